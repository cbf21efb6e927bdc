"""Sums up by subsystem what gcovr counted: coverage_table.py <its JSON> [--missed]"""

import json
import sys
from collections import defaultdict

WANTED = {"lines": 0.95, "branches": 0.85}
# Many branches are on failures of the engine and on its older releases, which tests can't bring about.
WANTED_OF = {"backends/onnxruntime": {"lines": 0.93, "branches": 0.77}}


def places(path):
    """Each line and branch that counts: subsystem, kind, times taken, and where it stands."""
    with open(path) as report:
        files = json.load(report)["files"]
    for file in files:
        subsystem = "/".join(file["file"].split("/")[:2])
        with open(file["file"]) as source:
            text = source.read().split("\n")
        for line in file["lines"]:
            where = f"{file['file']}:{line['line_number']}: {text[line['line_number'] - 1].strip()}"
            if not line.get("gcovr/noncode"):
                yield subsystem, "lines", line["count"], where
            for branch in line["branches"]:
                yield subsystem, "branches", branch["count"], where


def main():
    total = defaultdict(int)
    taken = defaultdict(int)
    missed = defaultdict(list)
    for subsystem, kind, count, where in places(sys.argv[1]):
        for name in (subsystem, "all"):
            total[name, kind] += 1
            taken[name, kind] += count > 0
        if count == 0:
            missed[kind].append(where)
    if "--missed" in sys.argv:
        lines = missed["lines"]
        branches = [where for where in dict.fromkeys(missed["branches"]) if where not in lines]
        print("lines:", *lines, "branches of lines:", *branches, sep="\n")

    enough = True
    print(f"{'subsystem':18}{'lines':>8}{'reached':>9}{'branches':>10}{'reached':>9}")
    for name in sorted({name for name, _ in total}):
        row = f"{name:18}"
        for kind, width in (("lines", 8), ("branches", 10)):
            share = taken[name, kind] / max(total[name, kind], 1) if total[name, kind] else 1
            enough = enough and share >= WANTED_OF.get(name, WANTED)[kind]
            row += f"{total[name, kind]:{width}}{100 * share:8.1f}%"
        print(row)
    if not enough:
        sys.exit("coverage: less than wanted is reached, which is 95% of the lines and 85% of the branches")


main()
