#!/usr/bin/env python3
"""Writes the measured part of docs/performance.md and its plots from the benchmark's JSON.

Usage: report.py DOCS_FOLDER GCC_JSON... CLANG_JSON...   writes performance.md and img/*.svg
       report.py --print GCC_JSON                        prints a table, for a terminal

All figures are medians over the repetitions. A ratio is the time of qv_btree / that of the peer.
"""
import collections
import json
import os
import re
import statistics
import subprocess
import sys

QV = "qv_btree"
COLOURS = {QV: "#d62728", "std::map": "#1f77b4", "Boost AVL": "#2ca02c", "Abseil B-tree": "#9467bd",
           "tsearch": "#7f7f7f"}
PEERS = list(COLOURS)[1:]
KINDS = ["boxed", "branching", "string", "in pointer"]
SIZES = [100, 1000, 10000, 100000, 1000000]
LOOKUPS = ["find, random", "find, Zipf", "find, ascending"]
UPDATES = ["insert, random", "insert, ascending", "remove, random"]
OPERATIONS = [*LOOKUPS, "find absent, random", "lower bound, random", *UPDATES, "remove, ascending",
              "walk", "copy", "clear"]


def read(files):
    """By compiler {(compiler, keys or use, size or text, operation): {peer: median}}; contexts."""
    samples = collections.defaultdict(lambda: collections.defaultdict(list))
    contexts = {}
    for file in files:
        with open(file, encoding="utf-8") as stream:
            data = json.load(stream)
        compiler = data["context"]["compiler"].split()[0]
        contexts[compiler] = data["context"]
        for run in data["benchmarks"]:
            peer, keys, *where = run["name"].split("/")
            size = int(where[0]) if where[0].isdigit() else " ".join(where[:2])
            for operation in OPERATIONS + ["step", "enter"]:
                if operation in run and run["run_type"] == "iteration":
                    samples[compiler, keys, size, operation][peer].append(run[operation])
    return {case: {peer: statistics.median(values) for peer, values in by_peer.items()}
            for case, by_peer in samples.items()}, contexts


def ratio(by_peer, peer):
    if QV not in by_peer or peer not in by_peer:
        return "–"
    text = f"{by_peer[QV] / by_peer[peer]:.2f}"
    return f"**{text}**" if float(text) > 1 else text


def ratios(results, compiler, keys, operation, peer, sizes=tuple(SIZES)):
    cells = [ratio(results.get((compiler, keys, size, operation), {}), peer) for size in sizes]
    return "–" if set(cells) == {"–"} else " · ".join(cells)


def table(title, head, rows):
    return [f"### {title}", "", "| " + " | ".join(head) + " |", "|---" * len(head) + "|",
            *("| " + " | ".join(row) + " |" for row in rows), ""]


def setup(contexts):
    gcc = contexts["GNU"]
    cpu = re.search(r"^Model name:\s*(.*)", subprocess.run(
        ["lscpu"], capture_output=True, text=True, check=True).stdout, re.M).group(1)
    caches = ", ".join(f"L{c['level']} {c['type']} {c['size'] // 1024} KiB" for c in gcc["caches"])
    versions = ", ".join(f"{name} {gcc[name]}" for name in ("glibc", "Boost", "Abseil"))
    return ["```text", f"machine    {cpu}, {gcc['num_cpus']} cores, virtual; {caches}",
            *(f"compiler   {context['compiler']}" for context in contexts.values()),
            f"versions   {versions}", f"date       {gcc['date'][:10]}", "```", ""]


def page(results, contexts):
    lines = setup(contexts)
    for compiler, name in (("GNU", "gcc"), ("Clang", "clang")):
        lines += table(
            f"qv_btree / std::map by {name}, at 100 · 1,000 · 10,000 · 100,000 · 1,000,000 entries",
            ["operation", *KINDS],
            [[operation, *(ratios(results, compiler, keys, operation, "std::map") for keys in KINDS)]
             for operation in OPERATIONS])
    lines += table(
        "qv_btree / other maps by gcc, boxed keys, at the same five sizes",
        ["operation", *PEERS[1:]],
        [[operation, *(ratios(results, "GNU", "boxed", operation, peer) for peer in PEERS[1:])]
         for operation in OPERATIONS])
    texts = sorted({size for _, _, size, operation in results if operation == "enter"})
    uses = [("timers", "step", "timers, at the same five sizes", SIZES)] + [
        ("words", "enter", "words of {0}, {1:,} different".format(*split_text(text)), [text])
        for text in texts]
    return lines + table(
        "Uses: qv_btree / each map", ["use", "std::map by clang", *(f"{peer} by gcc" for peer in PEERS)],
        [[title, ratios(results, "Clang", use, operation, "std::map", sizes),
          *(ratios(results, "GNU", use, operation, peer, sizes) for peer in PEERS)]
         for use, operation, title, sizes in uses])


def split_text(text):
    name, _, distinct = text.rpartition(" ")
    return name, int(distinct)


def plot(results, folder, name, operations):
    script = (f"set terminal svg size 1080,360 font 'sans-serif,12' background 'white'\n"
              f"set output '{os.path.join(folder, name)}.svg'\nset multiplot layout 1,3\n"
              "set logscale xy 10\nset format x '10^{%L}'\nset grid\nset key top left\n"
              "set xlabel 'entries'\nset ylabel 'nanoseconds'\nset yrange [10:4000]\n")
    for operation in operations:
        curves = []
        for i, (peer, colour) in enumerate(COLOURS.items()):
            script += f"$D{i} << EOD\n" + "".join(
                f"{size} {results['GNU', 'boxed', size, operation][peer]}\n" for size in SIZES) + "EOD\n"
            curves.append(f"$D{i} with linespoints pt 7 ps 0.5 lw {3 if peer == QV else 1.5} "
                          f"lc rgb '{colour}' title '{peer}' noenhanced")
        script += f"set title '{operation}'\nplot {', '.join(curves)}\nunset key\n"
    subprocess.run(["gnuplot"], text=True, check=True, input=script)


def main():
    results, contexts = read(sys.argv[2:])
    if sys.argv[1] == "--print":
        sizes = sorted({size for _, _, size, _ in results})
        print("\nqv_btree / each map, boxed keys, at " + " · ".join(f"{size:,}" for size in sizes) +
              f" entries\n\n{'':22}" + "".join(f"{peer:>16}" for peer in PEERS))
        for operation in OPERATIONS:
            print(f"{operation:22}" + "".join(
                f"{ratios(results, 'GNU', 'boxed', operation, peer, sizes).replace('*', ''):>16}"
                for peer in PEERS))
        return
    name = os.path.join(sys.argv[1], "performance.md")
    with open(name, encoding="utf-8") as stream:
        head, rest = stream.read().split("<!-- measured: begin -->")
    end = "<!-- measured: end -->"
    with open(name, "w", encoding="utf-8") as stream:
        stream.write("\n".join([head + "<!-- measured: begin -->", "", *page(results, contexts),
                                end + rest.split(end)[1]]))
    images = os.path.join(sys.argv[1], "img")
    plot(results, images, "find", LOOKUPS)
    plot(results, images, "update", UPDATES)


if __name__ == "__main__":
    main()
