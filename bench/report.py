#!/usr/bin/env python3
"""Writes the measured part of docs/performance.md, and its plots, from the benchmark's JSON.

Usage: report.py PERFORMANCE.MD IMAGE_FOLDER JSON...
       report.py --print JSON      as text, for a terminal

The tables hold ratios (ours / peer) of medians over the repetitions; the plots, drawn by gnuplot,
nanoseconds for each entry against the number of entries, for boxed keys in random order.
"""
import collections
import json
import os
import re
import statistics
import subprocess
import sys

OURS = "qv_btree"
LIMIT, LEVELS = "find limit", "levels"
OPERATIONS = ["insert", "find", "find absent", "lower bound", "walk", "foreach", "copy", "remove",
              "clear", "bytes"]
PLOTTED = ["insert", "find", "remove", "walk"]
BEGIN, END = "<!-- measured: begin -->", "<!-- measured: end -->"


def read(files):
    """{(keys, order): {operation: {entries: {peer: median}}}}, and what the machine was."""
    samples = collections.defaultdict(list)
    context = None
    for file in files:
        with open(file, encoding="utf-8") as stream:
            data = json.load(stream)
        context = context or data["context"]
        for run in data["benchmarks"]:
            if run["run_type"] == "iteration":
                peer, keys, order, entries = run["name"].split("/")[:4]
                for operation in OPERATIONS + [LIMIT, LEVELS]:
                    if operation in run:
                        samples[keys, order, operation, int(entries), peer].append(run[operation])
    results = collections.defaultdict(
        lambda: collections.defaultdict(lambda: collections.defaultdict(dict)))
    for (keys, order, operation, entries, peer), values in samples.items():
        results[keys, order][operation][entries][peer] = statistics.median(values)
    return results, context


def cell(ours, peer):
    if peer is None:
        return "–"
    ratio = f"{ours / peer:.2f}"
    return f"**{ratio}**" if float(ratio) > 1 else ratio


def table(operations, sizes, peers):
    lines = ["| | " + " | ".join(f"{peer}<br>{size:,}" for size in sizes for peer in peers) + " |",
             "|---" * (1 + len(sizes) * len(peers)) + "|"]
    for name in OPERATIONS:
        by_size = operations[name]
        cells = [cell(by_size[size][OURS], by_size[size].get(peer))
                 for size in sizes for peer in peers]
        lines.append(f"| {name} | " + " | ".join(cells) + " |")
    return lines


def report(results, context):
    cpu = re.search(r"^Model name:\s*(.*)", subprocess.run(
        ["lscpu"], capture_output=True, text=True, check=True).stdout, re.M).group(1)
    caches = ", ".join(f"L{c['level']} {c['type']} {c['size'] // 1024} KiB"
                       for c in context["caches"])
    lines = [f"Measured {context['date'][:10]} on a virtual machine: {cpu}, "
             f"{context['num_cpus']} cores, {caches}.", ""]
    for (keys, order), operations in sorted(results.items()):
        sizes = sorted(size for size in operations["find"] if size <= 1000000)
        peers = [peer for peer in operations["find"][sizes[0]] if peer != OURS]
        if peers:
            lines += [f"### {keys.capitalize()} keys, {order} order", "",
                      *table(operations, sizes, sorted(peers)), ""]
    lines += ["### Distance to the limit, random order", "",
              "| keys | entries | comparisons | find, ns | node-to-node loads alone, ns | ratio |",
              "|---|---|---|---|---|---|"]
    for (keys, order), operations in sorted(results.items()):
        for size, limit in sorted(operations[LIMIT].items() if order == "random" else []):
            find = operations["find"][size][OURS]
            lines.append(f"| {keys} | {size:,} | {operations[LEVELS][size][OURS]:.1f} | "
                         f"{find:.0f} | {limit[OURS]:.0f} | {find / limit[OURS]:.2f} |")
    lines += [""] + [f"![{name}: ns for each entry against entries](img/{name}.svg)"
                     for name in PLOTTED]
    return lines


def plot(results, folder):
    boxed = results["boxed", "random"]
    for name in PLOTTED:
        peers = sorted({peer for by_peer in boxed[name].values() for peer in by_peer})
        data = "".join(
            f"$D{i} << EOD\n" + "".join(f"{size} {by_peer[peer]}\n"
                                        for size, by_peer in sorted(boxed[name].items())
                                        if peer in by_peer) + "EOD\n"
            for i, peer in enumerate(peers))
        curves = ", ".join(
            f"$D{i} with linespoints lw {3 if peer == OURS else 1} title '{peer}' noenhanced"
            for i, peer in enumerate(peers))
        script = (f"set terminal svg size 640,400 font 'sans-serif,12' background 'white'\n"
                  f"set output '{os.path.join(folder, name)}.svg'\n{data}"
                  f"set logscale x 10\nset format x '10^{{%L}}'\nset yrange [0:*]\nset grid\n"
                  f"set key left top\nset xlabel 'entries'\nset ylabel 'ns for each entry'\n"
                  f"set title '{name}, boxed keys in random order'\nplot {curves}\n")
        subprocess.run(["gnuplot"], input=script, text=True, check=True)


def print_tables(results):
    for (keys, order), operations in sorted(results.items()):
        for size in sorted(operations["find"]):
            peers = sorted(operations["find"][size], key=lambda peer: (peer != OURS, peer))
            print(f"\n{keys.capitalize()} keys, {order} order, {size:,} entries: nanoseconds for each "
                  f"entry (ours / peer)\n")
            print(" " * 12 + "".join(f"{peer:>20}" for peer in peers))
            for name in OPERATIONS:
                by_peer = operations[name][size]
                cells = [f"{by_peer[OURS]:.0f}"] + [
                    f"{by_peer[peer]:.0f}  ({by_peer[OURS] / by_peer[peer]:.2f})"
                    if peer in by_peer else "–" for peer in peers[1:]]
                print(f"{name:12}" + "".join(f"{cell:>20}" for cell in cells))


def main():
    if sys.argv[1] == "--print":
        print_tables(read(sys.argv[2:])[0])
        return
    page, folder, *files = sys.argv[1:]
    results, context = read(files)
    with open(page, encoding="utf-8") as stream:
        text = stream.read()
    head, rest = text.split(BEGIN)
    tail = rest.split(END)[1]
    with open(page, "w", encoding="utf-8") as stream:
        stream.write("\n".join([head + BEGIN, "", *report(results, context), "", END + tail]))
    os.makedirs(folder, exist_ok=True)
    plot(results, folder)


if __name__ == "__main__":
    main()
