"""Prints what the benchmarks measured as tables of ratios, each with the goal that it is to meet.

usage: report.py RESULTS [--docs DOCS]     with --docs: also plots, JSON and tables below DOCS
"""

import argparse
import glob
import json
import math
import os
import statistics
import subprocess
import tempfile

SIZES = [1_000, 100_000, 1_000_000]
GROWTH = [1_000, 10_000, 100_000]
DIRECTORIES = [1, 10, 100]
RCLONE_BYTES = 1160  # What a mount of rclone keeps per entry.
MEMBERS_PLUS = 64


class Results:
    """The median of every benchmark: seconds, and its counters."""

    def __init__(self, folder):
        self.runs = []
        self.context = {}
        for path in sorted(glob.glob(os.path.join(folder, "*.json"))):
            with open(path, encoding="utf-8") as file:
                result = json.load(file)
            self.context = result["context"]
            self.runs += [r for r in result["benchmarks"] if r["run_type"] == "iteration"]
        failed = [r["name"] for r in self.runs if r.get("error_occurred")]
        if failed:
            raise SystemExit("bench: failed: " + ", ".join(failed))

    def named(self, name):
        """All repetitions of a benchmark, by its name without what says how its time is taken."""
        runs = [r for r in self.runs if plain(r["name"]) == name]
        return runs

    def has(self, name):
        return bool(self.named(name))

    def seconds(self, name):
        runs = self.named(name)
        scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
        # Processor time of the thread, unless the benchmark says itself how long it took.
        key = "real_time" if runs[0]["name"].endswith("manual_time") else "cpu_time"
        values = [r[key] * scale[r["time_unit"]] for r in runs]
        return statistics.median(values) / runs[0].get("operations", 1)

    def counter(self, name, counter):
        return statistics.median(r[counter] for r in self.named(name))


def plain(name):
    parts = [p for p in name.split("/") if p != "manual_time" and not p.startswith("iterations:")]
    return "/".join(p for p in parts if not p.startswith("repeats:"))


def duration(seconds):
    for unit, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= scale:
            return f"{seconds / scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


class Table:
    """Rows of one kind of work; each is met, not met, or only shown."""

    def __init__(self, results):
        self.results = results
        self.rows = []

    def add(self, work, at, own, other, ratio, goal, met):
        verdict = "" if met is None else "yes" if met else "no"
        self.rows.append((work, at, own, other, ratio, goal, verdict))

    def compare(self, work, at, own, other, goal):
        """How many times what the other takes; `goal` may be None."""
        if not (self.results.has(own) and self.results.has(other)):
            return
        a, b = self.results.seconds(own), self.results.seconds(other)
        met = None if goal is None else a / b <= goal
        text = "" if goal is None else f"≤ {goal} ×"
        self.add(work, at, duration(a), f"{duration(b)} {peer(other)}", f"{a / b:.2f}", text, met)

    def beat(self, work, at, own, other, goal):
        """How many times as long the other takes."""
        if not (self.results.has(own) and self.results.has(other)):
            return
        a, b = self.results.seconds(own), self.results.seconds(other)
        met = None if goal is None else b / a >= goal
        text = "" if goal is None else f"≥ {goal} × slower"
        self.add(work, at, duration(a), f"{duration(b)} {peer(other)}", f"1/{b / a:.3g}", text, met)

    def grow(self, work, name):
        """From one size to ten times that one; the goal is n·√n."""
        for small, large in zip(GROWTH, GROWTH[1:]):
            a, b = self.results.seconds(f"{name}/{small}"), self.results.seconds(f"{name}/{large}")
            limit = (large / small) ** 1.5
            exponent = math.log(b / a) / math.log(large / small)
            self.add(work, f"{small:,} → {large:,}", duration(b), f"{duration(a)} at {small:,}",
                     f"{b / a:.1f} (n^{exponent:.2f})", f"≤ {limit:.1f}", b / a <= limit)


def peer(name):
    names = {"map": "map", "vector": "vector", "sqlite": "SQLite", "boost": "Boost.MultiIndex",
             "walk": "walk", "floor": "by hand", "format": "one write", "write": "writing",
             "readdir": "readdir"}
    return names[name.split("/")[1]]


def look_ups(table):
    for size in SIZES:
        at = f"{size:,} entries"
        goal = 1.2 if size == SIZES[-1] else None
        table.compare("getItem", at, f"GetItem/ormek/{size}", f"GetItem/map/{size}", goal)
    for size in SIZES:
        table.beat("getItem", f"{size:,} entries", f"GetItem/ormek/{size}",
                   f"GetItem/boost/{size}", None)
        table.beat("getItem", f"{size:,} entries", f"GetItem/ormek/{size}",
                   f"GetItem/sqlite/{size}", None)
    for size in SIZES:
        at = f"{size:,} entries, any offset"
        table.compare("get + page of 100", at, f"Page/ormek/{size}", f"Page/vector/{size}", 2)
        table.beat("get + page of 100", at, f"Page/ormek/{size}", f"Page/boost/{size}", None)
        table.beat("get + page of 100", at, f"Page/ormek/{size}", f"Page/sqlite/{size}",
                   None if size < 10_000 else 10)
    for offset in (0, 2500, 5000, 7500, 9900):
        at = f"offset {offset:,} of 10,000"
        table.compare("get + page of 100", at, f"PageAt/ormek/{offset}",
                      f"PageAt/vector/{offset}", 2)
        table.beat("get + page of 100", at, f"PageAt/ormek/{offset}", f"PageAt/sqlite/{offset}", 10)


def directories(table):
    for count, each in ((1, 100), (100, 100), (10_000, 100), (100, 10_000)):
        table.compare("get from memory", f"last of {count:,} directories of {each:,}",
                      f"Get/ormek/{count}/{each}", f"Get/walk/{count}/{each}", 1.2)
    results = table.results
    if results.has("Get/ormek/100/10000"):
        few, many = (results.seconds(f"Get/ormek/100/{each}") for each in (100, 10_000))
        table.add("get from memory", "100 directories: 10,000 entries each, not 100",
                  duration(many), f"{duration(few)} with 100", f"{many / few:.2f}", "≤ 1.2 ×",
                  many / few <= 1.2)
    names = ((1, 100), (100, 100), (10_000, 100))
    times = [results.seconds(f"Get/ormek/{count}/{each}") for count, each in names]
    table.add("get from memory", "10,000 directories, not 1", duration(times[-1]),
              f"{duration(times[0])} with 1", f"{times[-1] / times[0]:.2f}", "", None)


def merges(table):
    for kind, work in (("New", "merge 100 new documents"), ("Known", "merge 100 known documents")):
        for size in SIZES:
            at = f"{size:,} entries cached"
            own = f"Merge{kind}/ormek/{size}"
            table.compare(work, at, own, f"Merge{kind}/floor/{size}", 1.5)
            table.beat(work, at, own, f"Merge{kind}/sqlite/{size}", None)


def actions(table):
    for kind, work in (("Rename", "renameItem"), ("Move", "moveItem"), ("Remove", "removeItem")):
        for count in DIRECTORIES:
            table.compare(work, f"{count} directories of 10,000", f"{kind}/ormek/{count}/10000",
                          f"{kind}/boost/{count}/10000", 2)


def growth(table):
    table.grow("fill page by page", "Fill/ormek")
    for order in ("Front", "Middle", "Random"):
        name = f"Empty{order}/ormek"
        work = {"Front": "empty from the front", "Middle": "empty from the middle",
                "Random": "empty at random"}[order]
        table.grow(work, name)
        for size in GROWTH:
            slow = table.results.counter(f"{name}/{size}", "p99.9")
            table.add(work, f"{size:,}: 99.9% of removals within", duration(slow), "", "", "< 1 ms",
                      slow < 1e-3)
    table.grow("refresh known documents into a second listing", "RefreshElsewhere/ormek")
    table.grow("refresh documents that were all renamed", "RefreshRenamed/ormek")
    table.grow("give ids, and look each up", "UpdateIds/ormek")
    table.grow("empty beside an entry without id", "EmptyBesideOneWithoutId/ormek")


def memory(table):
    results = table.results
    members = results.counter("Memory/members", "allocated")
    for size in (1_000, 10_000, 100_000, 1_000_000):
        name = f"Memory/ormek/{size}"
        if not results.has(name):
            continue
        # Of few entries, the pages that happened to be there already tell nothing.
        for kind in ("resident", "allocated") if size >= 10_000 else ("allocated",):
            used = results.counter(name, kind)
            table.add(f"bytes of a document, {kind}", f"{size:,} entries", f"{used:.0f}",
                      f"{members:.0f} members alone", f"{used - members:+.0f}",
                      f"≤ +{MEMBERS_PLUS}", used - members <= MEMBERS_PLUS)
        table.add("bytes of a document", f"{size:,} entries", f"{used:.0f}",
                  f"{RCLONE_BYTES} a mount of rclone", f"{used / RCLONE_BYTES:.2f}", "≤ 0.85 ×",
                  used / RCLONE_BYTES <= 0.85)
    own, copies = (f"AnswerAllocations/{p}" for p in ("ormek", "copies"))
    for counter, what in (("blocks", "get"), ("pageBlocks", "page")):
        a, b = results.counter(own, counter), results.counter(copies, counter)
        other = "in the prescribed copies" if counter == "blocks" else "the vectors handed out"
        table.add("allocations in two answers", what, f"{a:.0f}", f"{b:.0f} {other}",
                  f"{a - b:+.0f}", "none besides", a <= b)


def trace(table):
    table.compare("a traced line", "to a file, 1,000 lines", "TraceLine/ormek", "TraceLine/format",
                  1.5)
    for size in (1_000, 10_000):
        table.compare("a query with the trace on", f"{size:,} entries", f"TracedQuery/ormek/{size}",
                      f"TracedQuery/write/{size}", 1.5)
        table.compare("a query with the trace on", f"{size:,} entries, lines formatted",
                      f"TracedQuery/ormek/{size}", f"TracedQuery/format/{size}", None)


def program(table):
    for size in (1_000, 100_000):
        if not table.results.has(f"FirstEntry/loaded/{size}"):
            continue
        goal = 1.5 if size == 100_000 else None
        for how in ("loaded", "memory"):
            table.compare(f"ls to the first entry, {how}", f"{size:,} files",
                          f"FirstEntry/{how}/{size}", f"FirstEntry/readdir/{size}", goal)


SECTIONS = [
    ("Look-ups and pages", look_ups),
    ("Finding a directory", directories),
    ("Merging", merges),
    ("Changes by the user", actions),
    ("Growing and shrinking", growth),
    ("Memory", memory),
    ("Trace", trace),
    ("The command line", program),
]
HEADINGS = ("work", "at", "Ormek", "yardstick", "ratio", "goal", "met")


def tables(results):
    for title, fill in SECTIONS:
        table = Table(results)
        fill(table)
        yield title, table.rows


def print_tables(all_tables):
    for title, rows in all_tables:
        widths = [max(len(row[i]) for row in [HEADINGS, *rows]) for i in range(len(HEADINGS))]
        print(f"\n{title}\n")
        for row in [HEADINGS, *rows]:
            print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())
    verdicts = [row[-1] for _, rows in all_tables for row in rows]
    print(f"\n{verdicts.count('yes')} goals met, {verdicts.count('no')} not met")


def as_markdown(all_tables):
    lines = []
    for title, rows in all_tables:
        lines += [f"### {title}", "", "| " + " | ".join(HEADINGS) + " |",
                  "|" + "---|" * len(HEADINGS)]
        lines += ["| " + " | ".join(row) + " |" for row in rows] + [""]
    return "\n".join(lines)


# --- Documents ------------------------------------------------------------------------------

PLOTS = [
    # File, title, label of the x axis, label of the y axis, lines: (title, names, xs, unit)
    ("getitem", "One entry by id", "entries cached", "time (ns)", 1e9,
     [(p, f"GetItem/{p}", SIZES) for p in ("ormek", "map", "boost", "sqlite")]),
    ("page", "A page of 100, any offset", "entries cached", "time (µs)", 1e6,
     [(p, f"Page/{p}", SIZES) for p in ("ormek", "vector", "boost", "sqlite")]),
    ("page-at", "A page of 100 by its offset", "offset in a listing of 10,000", "time (µs)", 1e6,
     [(p, f"PageAt/{p}", [0, 2500, 5000, 7500, 9900]) for p in ("ormek", "vector", "sqlite")]),
    ("get", "The last of many directories", "directories", "time (µs)", 1e6,
     [(p, f"Get/{p}", ["1/100", "100/100", "10000/100"]) for p in ("ormek", "walk")]),
    ("merge", "Merging 100 documents", "entries cached", "time (µs)", 1e6,
     [(f"{p}, {k.lower()}", f"Merge{k}/{p}", SIZES)
      for k in ("New", "Known") for p in ("ormek", "floor", "sqlite")]),
    ("actions", "Changing one entry", "directories of 10,000", "time (µs)", 1e6,
     [(f"{p}, {k.lower()}", f"{k}/{p}", [f"{d}/10000" for d in DIRECTORIES])
      for k in ("Rename", "Move", "Remove") for p in ("ormek", "boost")]),
    ("growth", "The whole of the work on one listing", "entries", "time (ms)", 1e3,
     [(t, f"{n}/ormek", GROWTH) for t, n in
      (("fill", "Fill"), ("empty from the front", "EmptyFront"),
       ("empty from the middle", "EmptyMiddle"), ("empty at random", "EmptyRandom"),
       ("refresh into a second listing", "RefreshElsewhere"),
       ("refresh renamed documents", "RefreshRenamed"))]),
]


def plot(results, folder):
    for file, title, x_label, y_label, scale, lines in PLOTS:
        logarithmic = file != "page-at"
        blocks, curves = [], []
        for name, benchmark, xs in lines:
            points = [(str(x).split("/", maxsplit=1)[0], results.seconds(f"{benchmark}/{x}"))
                      for x in xs]
            block = f"$data{len(blocks)}"
            blocks.append(f"{block} << EOD\n"
                          + "".join(f"{x} {y * scale:.6g}\n" for x, y in points) + "EOD\n")
            width = 3 if name.startswith("ormek") or file == "growth" else 1.5
            curves.append(f"{block} using 1:2 with linespoints lw {width} title '{name}'")
        if file == "growth":
            first = results.seconds("Fill/ormek/1000") * scale
            curves.append(f"{first:.6g} * (x / 1000) ** 1.5 with lines dt 2 lc 'gray' "
                          "title 'n·√n'")
            curves.append(f"{first:.6g} * (x / 1000) with lines dt 3 lc 'gray' title 'n'")
        commands = "".join(blocks) + f"""
set terminal svg size 720,420 font 'sans-serif,13' background 'white'
set output '{os.path.join(folder, file + ".svg")}'
set title '{title}'
set xlabel '{x_label}'
set ylabel '{y_label}'
set key outside right top
set grid
{"set logscale xy" if logarithmic else "set logscale y; set xrange [0:10000]"}
set format x '%.0f'
plot {", ".join(curves)}
"""
        with tempfile.NamedTemporaryFile("w", suffix=".gp", encoding="utf-8") as script:
            script.write(commands)
            script.flush()
            subprocess.run(["gnuplot", script.name], check=True)


def machine(context):
    """The machine, without its name and without paths."""
    def first_line(path, key):
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith(key):
                    return line.split(":", 1)[1].strip()
        return "unknown"

    def output(*command):
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()

    caches = ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KiB"
                       for c in context["caches"])
    memory_kib = int(first_line("/proc/meminfo", "MemTotal").split()[0])
    return {
        "processor": first_line("/proc/cpuinfo", "model name"),
        "cores": context["num_cpus"],
        "caches": caches,
        "memory": f"{memory_kib / 1024 / 1024:.0f} GiB",
        "kernel": output("uname", "-sr"),
        "compiler": output("c++", "--version").splitlines()[0],
        "built": "release (-O3)",
        "load": context["load_avg"],
    }


def write_documents(results, all_tables, docs):
    folder = os.path.join(docs, "bench")
    os.makedirs(folder, exist_ok=True)
    plot(results, folder)
    description = machine(results.context)
    kept = ("name", "iterations", "real_time", "cpu_time", "time_unit", "repetition_index")
    counters = ("operations", "p99.9", "longest", "resident", "allocated", "blocks", "pageBlocks",
                "bytes")
    runs = [{k: r[k] for k in kept + counters if k in r} for r in results.runs]
    with open(os.path.join(folder, "results.json"), "w", encoding="utf-8") as file:
        runs_text = ",\n".join(json.dumps(run) for run in runs)
        file.write(f'{{"machine": {json.dumps(description)},\n"runs": [\n{runs_text}\n]}}\n')
    with open(os.path.join(folder, "machine.md"), "w", encoding="utf-8") as file:
        file.write("# The machine that was measured on\n\n")
        file.writelines(f"- {key}: {value}\n" for key, value in description.items())
    page = os.path.join(docs, "performance.md")
    begin, end = "<!-- script/bench writes from here -->", "<!-- to here -->"
    with open(page, encoding="utf-8") as file:
        text = file.read()
    before, after = text.split(begin)[0], text.split(end)[1]
    with open(page, "w", encoding="utf-8") as file:
        file.write(f"{before}{begin}\n\n{as_markdown(all_tables)}\n{end}{after}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results")
    parser.add_argument("--docs")
    arguments = parser.parse_args()
    results = Results(arguments.results)
    all_tables = list(tables(results))
    print_tables(all_tables)
    if arguments.docs:
        write_documents(results, all_tables, arguments.docs)


main()
