#!/usr/bin/env python3
"""Writes the measured part of docs/performance.md and its plots from the benchmark's JSON.

Usage: report.py DOCS_FOLDER CSV JSON...   writes performance.md, img/*.svg and all data as CSV
       report.py --print JSON              prints the first table of the page, for a terminal

All figures are medians over the repetitions. A ratio is ours / peer.
"""
import collections
import csv
import json
import os
import re
import statistics
import subprocess
import sys

OURS = "qv_btree"
PEERS = ["std::map", "Boost AVL", "Abseil B-tree", "tsearch"]
LIMIT, LEVELS, COPY_LIMIT = "find limit", "levels", "copy limit"
OPERATIONS = ["insert", "find", "find absent", "lower bound", "walk", "foreach", "copy", "remove",
              "clear", "bytes"]
KINDS = ["boxed", "string", "in-pointer"]
VERDICT = ["insert", "find", "find absent", "remove", "walk", "copy"]
GROWTH = ["insert", "find"]
UNCOMPARED = ["walk", "foreach", "clear", "bytes"]  # without a comparator call
COMPARATORS = {"boxed": "without branches", "boxed-branching": "with branches"}


def read(files):
    """{(keys, order, entries, operation): {peer: median}}, repetitions, and what the machine was."""
    samples = collections.defaultdict(lambda: collections.defaultdict(list))
    context, repetitions = None, set()
    for file in files:
        with open(file, encoding="utf-8") as stream:
            data = json.load(stream)
        context = context or data["context"]
        for run in data["benchmarks"]:
            if run["run_type"] == "iteration":
                peer, keys, order, entries = run["name"].split("/")[:4]
                repetitions.add((int(entries), run["repetitions"]))
                for operation in OPERATIONS + [LIMIT, LEVELS, COPY_LIMIT, "enter"]:
                    if operation in run:
                        samples[keys, order, int(entries), operation][peer].append(run[operation])
    results = {case: {peer: statistics.median(values) for peer, values in by_peer.items()}
               for case, by_peer in samples.items()}
    return results, sorted(repetitions), context


def cell(by_peer, peer, bold="**", time=True):
    """The peer's time and the ratio, or the ratio alone."""
    if peer not in by_peer:
        return "–"
    ratio = f"{by_peer[OURS] / by_peer[peer]:.2f}"
    if float(ratio) > 1:
        ratio = bold + ratio + bold
    return f"{by_peer[peer]:.0f} ({ratio})" if time else ratio


def verdict(results):
    """(entries, comparator, [(operation, {peer: time})]), for boxed keys in random order."""
    for entries in (1000, 1000000):
        for keys, comparator in COMPARATORS.items():
            rows = [(operation, results[keys, "random", entries, operation])
                    for operation in VERDICT if (keys, "random", entries, operation) in results
                    and (keys == "boxed" or operation not in [*UNCOMPARED, "copy"])]
            if rows:
                yield entries, comparator, rows


def markdown(head, rows):
    return ["| " + " | ".join(head) + " |", "|---" * len(head) + "|",
            *("| " + " | ".join(row) + " |" for row in rows), ""]


def page_verdict(results):
    rows = []
    for entries, comparator, operations in verdict(results):
        rows += [[f"{entries:,}", comparator, operation, f"{by_peer[OURS]:.0f}"] +
                 [cell(by_peer, peer) for peer in PEERS] for operation, by_peer in operations]
    return ["![time of qv_btree / time of each peer](img/verdict.svg)", "",
            *markdown(["entries", "comparator", "nanoseconds", OURS, *PEERS], rows)]


def page_setup(repetitions, context):
    cpu = re.search(r"^Model name:\s*(.*)", subprocess.run(
        ["lscpu"], capture_output=True, text=True, check=True).stdout, re.M).group(1)
    caches = ", ".join(f"L{c['level']} {c['type']} {c['size'] // 1024} KiB"
                       for c in context["caches"])
    versions = ", ".join(f"{name} {context[name]}" for name in
                         ("glibc", "Boost", "Abseil", "Google Benchmark") if name in context)
    synthetic = ", ".join(f"{count} at {entries:,}" for entries, count in repetitions
                          if entries % 1000 == 0)
    return ["## Set-up", "", "```text",
            f"machine      {cpu}, {context['num_cpus']} cores, virtual; {caches}",
            f"compiler     {context['compiler']}, all linked statically with the map",
            f"versions     {versions}",
            f"repetitions  {synthetic} entries, interleaved in random order; medians",
            f"date         {context['date'][:10]}", "```", ""]


def page_kinds(results):
    rows = []
    for operation in OPERATIONS:
        for keys in KINDS:
            if operation in (VERDICT if keys == "boxed" else UNCOMPARED):
                continue  # In the first table, or as with boxed keys.
            by_size = [results[keys, "random", entries, operation] for entries in (1000, 1000000)]
            rows.append([operation, keys, *(f"{by_peer[OURS]:.0f}" for by_peer in by_size)] +
                        [" · ".join(cell(by_peer, peer, time=False) for by_peer in by_size)
                         for peer in PEERS])
    return ["### More operations and kinds of keys, random order: ratios at 1,000 · 1,000,000", "",
            *markdown(["operation", "keys", "ours, 1,000", "ours, 1,000,000", *PEERS], rows)]


def page_words(results):
    rows = [[text, f"{distinct:,}", f"{by_peer[OURS]:.0f}"] + [cell(by_peer, peer) for peer in PEERS]
            for (keys, text, distinct, _), by_peer in sorted(results.items(), key=lambda r: r[0][2])
            if keys == "words"]
    return ["### Words of real texts: nanoseconds for each word", "",
            *markdown(["text", "distinct words", OURS, *PEERS], rows)]


def page_limit(results):
    rows = []
    for (keys, order, entries, operation), by_peer in sorted(results.items()):
        if operation == LIMIT and order == "random" and keys != "boxed-branching" and (
                entries != 30000 or keys == "boxed"):
            find = results[keys, order, entries, "find"][OURS]
            levels = results[keys, order, entries, LEVELS][OURS]
            copy = results[keys, order, entries, "copy"]
            calls = results.get((keys, order, entries, COPY_LIMIT)) if entries <= 30000 else None
            rows.append([keys, f"{entries:,}", f"{levels:.1f}", f"{find:.0f}",
                         f"{by_peer[OURS]:.0f} ({find / by_peer[OURS]:.2f})", f"{copy[OURS]:.0f}",
                         f"{calls[OURS]:.0f}" if calls else "–", cell(copy, "std::map")])
    return ["### What bounds a search and a copy, random order, in nanoseconds", "",
            *markdown(["keys", "entries", "comparisons of a find", "find",
                       "its node-to-node loads alone", "copy", "its comparator calls alone",
                       "copy of std::map"], rows)]


def gnuplot(folder, name, size, script):
    subprocess.run(["gnuplot"], text=True, check=True, input=(
        f"set terminal svg size {size} font 'sans-serif,12' background 'white'\n"
        f"set output '{os.path.join(folder, name)}.svg'\n{script}"))


def plot_verdict(results, folder):
    script = ("set multiplot layout 1,2\nset logscale x 2\nset grid\nset key outside bottom center "
              "horizontal\nset xlabel 'time of qv_btree / time of the peer: left of 1 it is faster' "
              "noenhanced\n"
              "set arrow from 1,graph 0 to 1,graph 1 nohead lw 2 lc rgb '#444444'\n"
              f"set xrange [0.25:32]\nset yrange [{len(VERDICT) - 0.5}:-0.5]\n"
              "set ytics (" + ", ".join(f"'{op}' {i}" for i, op in enumerate(VERDICT)) + ")\n")
    for entries, comparator, rows in verdict(results):
        if comparator != COMPARATORS["boxed"]:
            continue
        script += "".join(f"$D{i} << EOD\n" + "".join(
            f"{by_peer[OURS] / by_peer[peer]} {row + (i - 1.5) / 6}\n" for row, (_, by_peer) in enumerate(rows)
            if peer in by_peer) + "EOD\n" for i, peer in enumerate(PEERS))
        script += f"set title '{entries:,} entries'\nplot " + ", ".join(
            f"$D{i} with points pt {(7, 5, 9, 13)[i]} ps 1.2 title '{peer}' noenhanced"
            for i, peer in enumerate(PEERS)) + "\n"
    gnuplot(folder, "verdict", "960,360", script)


def plot_growth(results, folder, operation):
    curves = collections.defaultdict(list)
    for (keys, order, entries, name), by_peer in sorted(results.items()):
        if (keys, order, name) == ("boxed", "random", operation):
            for peer, time in by_peer.items():
                curves[peer].append(f"{entries} {time}\n")
    data = "".join(f"$D{i} << EOD\n{''.join(curve)}EOD\n" for i, curve in enumerate(curves.values()))
    lines = ", ".join(
        f"$D{i} with linespoints lw {3 if peer == OURS else 1} title '{peer}' noenhanced"
        for i, peer in enumerate(curves))
    gnuplot(folder, operation, "640,400",
            f"{data}set logscale x 10\nset format x '10^{{%L}}'\nset yrange [0:*]\nset grid\n"
            f"set key left top\nset xlabel 'entries'\nset ylabel 'ns for each entry'\n"
            f"set title '{operation}, boxed keys in random order'\nplot {lines}\n")


def write_data(results, path):
    with open(path, "w", encoding="utf-8", newline="") as stream:
        writer = csv.writer(stream, lineterminator="\n")
        writer.writerow(["keys", "order or text", "entries", "operation", "map",
                         "ns for each entry (bytes: bytes)", "ours / this"])
        for case, by_peer in sorted(results.items()):
            for peer, value in sorted(by_peer.items()):
                writer.writerow([*case, peer, f"{value:.2f}", f"{by_peer[OURS] / value:.3f}"])


def print_verdict(results):
    for entries, comparator, rows in verdict(results):
        print(f"\nBoxed keys, random order, {entries:,} entries, comparator {comparator}: "
              "nanoseconds (ours / peer)\n")
        print(f"{'':12}{OURS:>10}" + "".join(f"{peer:>18}" for peer in PEERS))
        for operation, by_peer in rows:
            print(f"{operation:12}{by_peer[OURS]:>10.0f}" +
                  "".join(f"{cell(by_peer, peer, bold=''):>18}" for peer in PEERS))


def put(text, name, lines):
    """The text with these lines in the part of that name."""
    begin, end = f"<!-- {name}: begin -->", f"<!-- {name}: end -->"
    head, rest = text.split(begin)
    return "\n".join([head + begin, "", *lines, end + rest.split(end)[1]])


def main():
    if sys.argv[1] == "--print":
        print_verdict(read(sys.argv[2:])[0])
        return
    folder, data, *files = sys.argv[1:]
    results, repetitions, context = read(files)
    page = os.path.join(folder, "performance.md")
    with open(page, encoding="utf-8") as stream:
        text = stream.read()
    growth = " ".join(f"![{name}: ns for each entry against entries](img/{name}.svg)"
                      for name in GROWTH)
    text = put(text, "verdict", page_verdict(results))
    text = put(text, "measured", [*page_setup(repetitions, context), *page_words(results),
                                  *page_kinds(results), *page_limit(results), growth, ""])
    with open(page, "w", encoding="utf-8") as stream:
        stream.write(text)
    write_data(results, data)
    images = os.path.join(folder, "img")
    plot_verdict(results, images)
    for operation in GROWTH:
        plot_growth(results, images, operation)


if __name__ == "__main__":
    main()
