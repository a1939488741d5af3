"""Counts the instructions of what is measured, by valgrind's callgrind: they are the same however
busy the machine is. Only benchmarks that take their time themselves can be counted.

usage: instructions.py PROGRAM FOLDER     FOLDER is for what callgrind writes
"""

import os
import re
import subprocess
import sys

PAIRS = [
    ("merge 100 new documents", "MergeNew/ormek/1000", "MergeNew/floor/1000", 1.5),
    ("merge 100 known documents", "MergeKnown/ormek/1000", "MergeKnown/floor/1000", 1.5),
    ("remove 50, 10 directories", "Remove/ormek/10/100", "Remove/boost/10/100", 2),
    ("remove 5,000, 1 directory", "Remove/ormek/1/10000", "Remove/boost/1/10000", 2),
    ("remove 5,000, 100 directories", "Remove/ormek/100/10000", "Remove/boost/100/10000", 2),
]


def count(program, name, folder):
    command = [
        "valgrind", "--tool=callgrind", "--toggle-collect=*Bench::measured<*",
        f"--callgrind-out-file={os.path.join(folder, name.replace('/', '-'))}", program,
        # Once is enough for a count.
        "--benchmark_min_time=0.000000001", f"--benchmark_filter=^{name}/manual_time$",
    ]
    result = subprocess.run(command, check=True, capture_output=True, text=True)
    return int(re.search(r"Collected : (\d+)", result.stderr).group(1))


def main():
    program, folder = sys.argv[1:]
    print(f"{'work':32}{'Ormek':>12}{'yardstick':>12}{'ratio':>8}  goal")
    for work, own, other, goal in PAIRS:
        a, b = count(program, own, folder), count(program, other, folder)
        print(f"{work:32}{a:>12,}{b:>12,}{a / b:>8.2f}  ≤ {goal} ×")


main()
