#!/usr/bin/env python3
"""Runs the programs of this folder and prints one table: table.py <build folder>

Fails when a figure is over what is wanted. docs/performance.md says how to read the table.
"""

import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
MANIFEST = str(ROOT / "examples/digits/model/manifest.json")  # 1 KB

# Families that share a process, its environment variables, the number of processes, and how often each repeats a row.
# Where code and data lie changes a ratio by some percent, so close comparisons run in many processes.
KEEP_MEMORY = {"GLIBC_TUNABLES": f"glibc.malloc.mmap_max=0:glibc.malloc.trim_threshold={1 << 40}"}
PROCESSES = [
    (["idle"], {}, 1, 15),
    (["kit"], {}, 1, 15),
    (["opencv"], {}, 9, 5),
    (["onnxruntime"], {}, 5, 5),
    (["manifests", "memory"], {}, 1, 15),
    (["files"], KEEP_MEMORY, 1, 15),
    (["archives", "manager", "logging"], {}, 1, 15),
    (["batches"], {}, 9, 5),
    (["protection"], {}, 1, 5),
]

# The largest ratios to the limit and to the alternative that are accepted, by the beginning of a row's name; the first
# that fits counts. None: shown only.
WANTED = [
    ("predict, idle backend beside threads", None, None),
    ("predict, idle", None, 0.2),
    ("evaluate, idle", None, 0.2),
    ("predict, digits over OpenCV", None, None),
    ("(evaluate, digits|predict, convolutions|evaluate, convolutions) over OpenCV", 1.05, None),
    ("predict, voice", 1.1, None),
    ("evaluate, voice", 1.05, None),
    ("predict, digits over ONNX Runtime", 1.6, None),
    ("evaluate, digits over ONNX Runtime", 1.25, None),
    ("load, voice, protected", 1.3, None),
    ("load, (voice|48 layers)", 1.05, None),
    ("load, ", None, None),
    ("load from the cache, (voice|48 layers)", None, 0.8),
    ("load from the cache", None, None),
    ("predictBatch", None, None),
    ("ModelMetadata::load", 1.5, None),
    ("Kit::checkManifest", 3.0, None),
    ("allocateInputs, (1 KB|.*beside)", None, None),
    ("allocateInputs", 1.5, None),
    ("VariableTensor", None, None),
    # Through the stream that an override may have put in the file's place: a stream by itself is at 1.12.
    ("extractTarball, 2,000 files", 1.25, 1.15),
    ("extractTarballOfSize, 2,000 files", 1.15, 1.0),
    ("extractTarball", 1.15, None),
    (r"readBinaryFileTo\w+, 1 KB", None, None),
    ("readBinaryFileTo", 1.1, None),
    (r"MireloBatch, [^,]+, 1 row\b", 2.5, None),
    ("MireloBatch", 2.0, None),
    ("Logger::Report", None, 1.0),
    ("GenerateLogEntry", None, None),
    ("checkInputs|InputPorts|TracedModel", None, None),
    ("snapshot", 2.0, None),
    ("registerModel|unloadModel", None, None),
    ("Kit::(un)?protect", 1.1, None),
]

# Costs that grow no faster than their work: the cost of a model at 10,000 models, divided by that at 1,000. Caches make
# up to 2 of it; quadratic growth would make 10.
GROWTH = [
    ("registerModel", 2.0),
    ("unloadModel and registerModel", 2.0),
]

# Times that are wanted, in nanoseconds: of a row, or of what a row takes beyond another one, shared by so many.
NAMES = ("short names", "long names")
CHECKS = ("checkInputs", "InputPorts::check")
DIFFERENCES = [
    *((f"{check}, {names}, 1 input", f"{check}, {names}, 1 input", None, 1, 60) for check in CHECKS for names in NAMES),
    *((f"{check}, {names}, each further input", f"{check}, {names}, 17 inputs", f"{check}, {names}, 1 input", 16, 30)
      for check in CHECKS for names in NAMES),
    ("TracedModel without a sink, beyond the model", "TracedModel::predict, no sink, idle backend",
     "predict, idle backend beside threads", 1, 10),
]


def wanted(row):
    return next((limit, instead) for name, limit, instead in WANTED if re.match(name, row))


def measure(program):
    """What the library takes at least, in nanoseconds, and its median ratios to the other sides, by row and side."""
    rows = {}
    for families, variables, processes, repetitions in PROCESSES:
        runs = []
        for _ in range(processes):
            runs += benchmark(program, families, variables, repetitions)
        for run in sorted(runs, key=lambda run: run["family_index"]):
            for side in ("ours", "limit", "instead"):
                if side in run:
                    rows.setdefault(run["run_name"].split("/")[0], {}).setdefault(side, []).append(run[side])
    return {row: {side: min(values) if side == "ours" else statistics.median(values) for side, values in sides.items()}
            for row, sides in rows.items()}


def benchmark(program, families, variables, repetitions):
    """The runs of one process."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        log = subprocess.run(
            [program, *families, f"--benchmark_repetitions={repetitions}",
             "--benchmark_min_time=0.02", "--benchmark_enable_random_interleaving=true",
             f"--benchmark_out={out.name}", "--benchmark_out_format=json"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=os.environ | variables)
        if log.returncode != 0:
            sys.exit(log.stdout)
        return [run for run in json.load(out)["benchmarks"] if run["run_type"] == "iteration"]


def start_times(programs, spawns=1000):
    """The least CPU time from the start of each program to its end, in nanoseconds."""
    least = [float("inf")] * len(programs)
    for _ in range(spawns):
        for i, program in enumerate(programs):
            pid = os.posix_spawn(program[0], program, os.environ)
            _, status, usage = os.wait4(pid, 0)
            least[i] = min(least[i], (usage.ru_utime + usage.ru_stime) * 1e9)
            if status != 0:
                sys.exit(f"table: {program[0]} failed")
    return least


def counts(program):
    """What a program prints, by name."""
    printed = subprocess.run([program], check=True, capture_output=True, text=True).stdout
    return dict(line.split() for line in printed.splitlines())


def instructions():
    """The instructions of a predict, and the most that the check allows."""
    check = subprocess.run([ROOT / ".ci/check_instructions"], capture_output=True, text=True)
    return tuple(map(int, re.search(r"(\d+) instructions, at most (\d+)", check.stdout).groups()))


def machine():
    with open("/proc/cpuinfo") as facts:
        processor = next((line.split(": ")[1].strip() for line in facts if line.startswith("model name")), "processor")
    return f"{processor}, {os.cpu_count()} cores"


def stripped_size(library):
    with tempfile.NamedTemporaryFile() as out:
        subprocess.run(["strip", "-o", out.name, library], check=True)
        return os.path.getsize(out.name)


def duration(nanoseconds):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= scale:
            return f"{nanoseconds / scale:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


class Table:
    def __init__(self):
        self.over = 0
        print(f"{'work':<66} {'ours':>9} {'of limit':>9} {'wanted':>7} {'of other':>9} {'wanted':>7}")

    def ratios(self, row, sides):
        cells = []
        good = True
        for side, most in zip(("limit", "instead"), wanted(row)):
            ratio = sides.get(side)
            if most is not None and ratio is None:
                sys.exit(f"table: {row} has no {side}")
            good = good and (most is None or ratio <= most)
            cells += ["" if ratio is None else f"{ratio:.2f}", "" if most is None else f"{most:.2f}"]
        self.line(row, duration(sides["ours"]), *cells, good)

    def figure(self, name, value, most, unit=""):
        """most: None where nothing is wanted"""
        good = most is None or value <= most
        self.line(name, f"{value:.3g}{unit}", "", "" if most is None else f"{most:g}{unit}", "", "", good)

    def gain(self, name, value, least):
        self.line(name, f"{value:.3g}", "", "" if least is None else f">={least:g}", "", "",
                  least is None or value >= least)

    def line(self, name, ours, limit, limit_wanted, other, other_wanted, good):
        self.over += not good
        print(f"{name:<66} {ours:>9} {limit:>9} {limit_wanted:>7} {other:>9} {other_wanted:>7}  "
              f"{'ok' if good else 'OVER'}")


def main():
    build = sys.argv[1]
    starts = [[f"{build}/bench/sdk-core-bench-start_empty"], [f"{build}/bench/sdk-core-bench-start_runtime"],
              [f"{build}/bench/sdk-core-bench-start_load", MANIFEST]]
    print(machine())
    before = start_times(starts)
    rows = measure(f"{build}/bench/sdk-core-bench")
    table = Table()
    for row, sides in rows.items():
        table.ratios(row, sides)
    for name, most in GROWTH:
        small, large = (rows[f"{name}, {models} models"]["ours"] for models in (1000, 10000))
        table.figure(f"{name}: cost of a model at 10,000 of 1,000", large / small / 10, most)
    for name, row, other, share, most in DIFFERENCES:
        beyond = 0 if other is None else rows[other]["ours"]
        table.figure(name, (rows[row]["ours"] - beyond) / share, most, " ns")
    counted = counts(f"{build}/bench/sdk-core-bench-once") | counts(f"{build}/bench/sdk-core-bench-onnxruntime_once")
    table.figure("VariableTensor, allocations of 1,000 changes", int(counted["variable_tensor_allocations"]), 0)
    table.figure("predict, allocations of 1,000 calls", int(counted["predict_allocations"]), 0)
    table.figure("predict, heap growth of a million calls", int(counted["heap_growth"]), 0, " B")
    table.figure("predict, instructions", *instructions())
    table.figure("evaluate, voice over ONNX Runtime, allocations beyond the engine's",
                 int(counted["evaluate_allocations"]), 0)
    for name, key, least in (("ONNX Runtime, two copies", "two_threads", 1.8),
                             ("ONNX Runtime, one copy", "two_threads_one_copy", None),
                             ("the engine alone", "two_threads_engine", None)):
        table.gain(f"evaluate, voice, two threads, {name}", float(counted[key]), least)
    # Once more, minutes later: a shared machine may be slow for seconds.
    empty, runtime, load = map(min, before, start_times(starts))
    start = "start to a loaded manifest, beyond"
    table.figure(f"{start} an empty C++ program", (load - runtime) / 1e6, 1, " ms")
    table.figure(f"{start} one without its runtime", (load - empty) / 1e6, None, " ms")
    table.figure("the library, stripped", stripped_size(f"{build}/libsdk-core.so") / 1024, 400, " KB")
    print(f"{table.over} over" if table.over else "all as wanted")
    return 1 if table.over else 0


if __name__ == "__main__":
    sys.exit(main())
