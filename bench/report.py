#!/usr/bin/env python3
"""Writes the measured part of docs/performance.md and its plots from the benchmark's JSON.

Usage: report.py DOCS_FOLDER JSON...   writes performance.md and img/*.svg
       report.py --print JSON          prints a table, for a terminal

The name of a file says which variant was measured: gain_VARIANT_NUMBER.json, else the program as it is. All
figures are medians over the repetitions. A ratio is the time of qv_btree / that of the peer.
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
COMPILERS = {"gcc": "GNU", "clang": "Clang"}
SIZES = [100, 1000, 10000, 100000, 1000000]
SMALL = 10000  # Up to here all but the largest keys are in the cache.
LOOKUPS = ["find, random", "find, Zipf", "find, ascending", "find absent, random", "lower bound, random"]
UPDATES = ["insert, random", "insert, ascending", "remove, random", "remove, ascending"]
OPERATIONS = [*LOOKUPS, *UPDATES, "walk", "copy", "clear"]
GAINED = ["find, random", "find, ascending", "insert, random", "remove, random", "walk", "copy"]
GROUPS = {"lookups": LOOKUPS, "updates": UPDATES, "walks": ["walk"], "copies": ["copy"],
          "clearing": ["clear"], "timers": ["step"], "words": ["enter"]}
# What each variant has or lacks; and whether it is the program as it is that lacks it.
GAINS = {"search_prefetch": ("search: both links are prefetched before the comparison", False),
         "next_key": ("search: the next key is loaded first", False),
         "selection": ("lookups: the next node is selected", False),
         "branches": ("updates: the next node is branched to", False),
         "walk_prefetch": ("walk: right links are prefetched", False),
         "copy_prefetch": ("copy: the next key is prefetched", False),
         "huge": ("huge pages (`GLIBC_TUNABLES=glibc.malloc.hugetlb=1`)", True),
         "packed": ("[a packing allocator](../examples/packed_memory.cpp)", True)}


def read(files):
    """{(compiler, variant, keys or use, size or text, operation): {peer: median}}; contexts."""
    samples = collections.defaultdict(lambda: collections.defaultdict(list))
    contexts = {}
    for file in files:
        with open(file, encoding="utf-8") as stream:
            data = json.load(stream)
        variant = re.sub(r"gain_(\w+)_\d+.json|.*", r"\1", os.path.basename(file))
        compiler = data["context"]["compiler"].split()[0]
        contexts[compiler] = data["context"]
        for run in data["benchmarks"]:
            peer, keys, *where = run["name"].split("/")
            size = int(where[0]) if where[0].isdigit() else " ".join(where[:2])
            for operation in OPERATIONS + ["step", "enter"]:
                if operation in run and run["run_type"] == "iteration":
                    samples[compiler, variant, keys, size, operation][peer].append(run[operation])
    return {case: {peer: statistics.median(values) for peer, values in by_peer.items()}
            for case, by_peer in samples.items()}, contexts


def bold(*numbers):
    """Rounded, and in bold type where one of them is a loss."""
    text = "–".join(dict.fromkeys(f"{number:.2f}" for number in numbers))
    return f"**{text}**" if float(text.split("–")[-1]) > 1 else text


def ratios(results, compiler, keys, operation, peer, sizes=tuple(SIZES)):
    times = [results.get((COMPILERS[compiler], "", keys, size, operation), {}) for size in sizes]
    cells = [bold(time[QV] / time[peer]) for time in times if QV in time and peer in time]
    return " · ".join(cells) or "–"


def summary(results, compiler, peer, operations):
    """The range of the ratios over all kinds of keys, up to SMALL entries and above."""
    found = {True: [], False: []}
    for (of, variant, _, size, operation), times in results.items():
        if (of, variant) == (COMPILERS[compiler], "") and operation in operations and peer in times:
            entries = size if isinstance(size, int) else int(size.split()[-1])
            found[entries <= SMALL].append(times[QV] / times[peer])
    return " · ".join(bold(min(part), max(part)) for part in found.values() if part) or "–"


def gains(results, compiler, variant, operation):
    cells = []
    for size in (1000, 1000000):
        case = "boxed", size, operation
        as_it_is, other = (results.get((COMPILERS[compiler], of, *case), {}).get(QV)
                           for of in ("as_it_is", variant))
        if as_it_is and other:
            cells.append(bold(other / as_it_is if GAINS[variant][1] else as_it_is / other))
    return " · ".join(cells)


def table(title, head, rows):
    return [f"### {title}", "", "| " + " | ".join(head) + " |", "|---" * len(head) + "|",
            *("| " + " | ".join(row) + " |" for row in rows), ""]


def setup(contexts):
    gcc = contexts["GNU"]
    cpu = re.search(r"^Model name:\s*(.*)", subprocess.run(
        ["lscpu"], capture_output=True, text=True, check=True).stdout, re.M).group(1)
    caches = ", ".join(f"L{c['level']} {c['type']} {c['size'] // 1024} KiB" for c in gcc["caches"])
    versions = ", ".join(f"{name} {gcc[name]}" for name in ("glibc", "Boost", "Abseil"))
    return ["```text", f"machine    {cpu}, {gcc['num_cpus']} processors; {caches}",
            *(f"compiler   {context['compiler']}" for context in contexts.values()),
            f"versions   {versions}", f"date       {gcc['date'][:10]}", "```", ""]


def page(results, contexts):
    compared = [("gcc", "std::map"), ("clang", "std::map"), *(("gcc", peer) for peer in PEERS[1:])]
    columns = [(compiler, keys) for keys in ("boxed", "string", "in pointer") for compiler in COMPILERS]
    return setup(contexts) + table(
        f"Summary: from the least to the largest ratio, up to {SMALL:,} entries · above",
        ["time of qv_btree / that of", *GROUPS],
        [[f"`{peer}`, {compiler}", *(summary(results, compiler, peer, operations)
                                     for operations in GROUPS.values())]
         for compiler, peer in compared]) + table(
        "Time of qv_btree / time of `std::map`, at " + " · ".join(f"{size:,}" for size in SIZES) + " entries",
        ["operation", *(f"{keys}, {compiler}" for compiler, keys in columns)],
        [[operation, *(ratios(results, compiler, keys, operation, "std::map") for compiler, keys in columns)]
         for operation in OPERATIONS]) + table(
        "Time of qv_btree / time of other maps, boxed keys, gcc, at the same five sizes",
        ["operation", *PEERS[1:]],
        [[operation, *(ratios(results, "gcc", "boxed", operation, peer) for peer in PEERS[1:])]
         for operation in OPERATIONS]) + table(
        "Gains: time of qv_btree with / without something, boxed keys, at 1,000 · 1,000,000 entries",
        ["with", *GAINED],
        [[f"{what}, {compiler}", *(gains(results, compiler, variant, operation) for operation in GAINED)]
         for variant, (what, _) in GAINS.items() for compiler in COMPILERS
         if gains(results, compiler, variant, "walk")])


def plot(results, folder, name, operations):
    script = (f"set terminal svg size 1080,360 font 'sans-serif,12' background 'white'\n"
              f"set output '{os.path.join(folder, name)}.svg'\nset multiplot layout 1,3\n"
              "set logscale xy 10\nset format x '10^{%L}'\nset grid\nset key top left\n"
              "set xlabel 'entries'\nset ylabel 'nanoseconds'\nset yrange [10:4000]\n")
    for operation in operations:
        curves = []
        for i, (peer, colour) in enumerate(COLOURS.items()):
            script += f"$D{i} << EOD\n" + "".join(
                f"{size} {results['GNU', '', 'boxed', size, operation][peer]}\n" for size in SIZES) + "EOD\n"
            curves.append(f"$D{i} with linespoints pt 7 ps 0.5 lw {3 if peer == QV else 1.5} "
                          f"lc rgb '{colour}' title '{peer}' noenhanced")
        script += f"set title '{operation}'\nplot {', '.join(curves)}\nunset key\n"
    subprocess.run(["gnuplot"], text=True, check=True, input=script)


def main():
    results, contexts = read(sys.argv[2:])
    if sys.argv[1] == "--print":
        sizes = sorted({size for _, _, _, size, _ in results})
        print("\nqv_btree / each map, boxed keys, at " + " · ".join(f"{size:,}" for size in sizes) +
              f" entries\n\n{'':22}" + "".join(f"{peer:>16}" for peer in PEERS))
        for operation in OPERATIONS:
            print(f"{operation:22}" + "".join(
                f"{ratios(results, 'gcc', 'boxed', operation, peer, sizes).replace('*', ''):>16}"
                for peer in PEERS))
        return
    name = os.path.join(sys.argv[1], "performance.md")
    begin, end = "<!-- measured: begin -->", "<!-- measured: end -->"
    with open(name, encoding="utf-8") as stream:
        head, rest = stream.read().split(begin)
    with open(name, "w", encoding="utf-8") as stream:
        stream.write("\n".join([head + begin, "", *page(results, contexts), end + rest.split(end)[1]]))
    images = os.path.join(sys.argv[1], "img")
    plot(results, images, "find", LOOKUPS[:3])
    plot(results, images, "update", UPDATES[:3])


if __name__ == "__main__":
    main()
