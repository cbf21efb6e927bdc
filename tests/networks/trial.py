#!/usr/bin/python3
"""Tries a backend on some thousand small networks, and prints one table: trial.py <engine> <program> [option...]

Fails when something is wrong, crashes or is refused without a name, or when fewer are right than expected.json says.
What came of each is in build/networks/verdicts.tsv; the packages of those that failed stay in build/networks/failed.
"""

import argparse
import collections
import json
import multiprocessing
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import numpy
import onnx

import families
import onnx_project
import reference
import variants
from network import FROM_LIBRARY, FROM_ONNX

HERE = pathlib.Path(__file__).resolve().parent
WORK = HERE.parent.parent / "build" / "networks"
SECONDS = 60  # that the program may take
SUCCESS = "1"
VERDICTS = ["right", "refused", "silent", "WRONG", "crashed"]
FAILURES = ["silent", "WRONG", "crashed"]
ENVIRONMENT = {
    **os.environ,
    "OPENCV_LOG_LEVEL": "SILENT",
    "MALLOC_PERTURB_": "165",  # memory that nobody has written to is no zero by chance
}


class Answer:
    """What the program said of one network."""

    def __init__(self, text):
        self.done = set()
        self.refusals = {}  # operation: code and description
        self.outputs = collections.defaultdict(dict)  # (operation, row): arrays by name
        for line in text.splitlines():
            kind, *rest = line.split("\t")
            if kind == "output":
                operation, row, name, type_, shape, elements = rest
                array = numpy.frombuffer(bytes.fromhex(elements), FROM_LIBRARY[int(type_)])
                self.outputs[operation, int(row)][name] = array.reshape([int(size) for size in shape.split()])
            elif kind == "status":
                operation, code, description = rest
                if code == SUCCESS:
                    self.done.add(operation)
                else:
                    self.refusals[operation] = f"{code}: {description}"


def difference(found, expected, atol):
    """What is wrong with outputs, empty where nothing is."""
    if found.keys() != expected.keys():
        return f"outputs {list(found)} instead of {list(expected)}"
    for name, wanted in expected.items():
        array = found[name]
        if array.dtype != wanted.dtype or array.shape != wanted.shape:
            return f"{name}: {array.dtype}{list(array.shape)} instead of {wanted.dtype}{list(wanted.shape)}"
        if wanted.dtype.kind == "f":
            same = numpy.isclose(array, wanted, rtol=1e-3, atol=atol, equal_nan=True)
        else:
            same = array == wanted
        if not same.all():
            index = tuple(numpy.argwhere(~same)[0])
            return f"{name}: {(~same).sum()} of {same.size} differ, first {array[index]} instead of {wanted[index]}"
    return ""


def judge(network, answer):
    """The verdict, and what it is about."""
    changed_ran = "predict 1" in answer.done
    second = network.changed_outputs or answer.outputs["predict", 1] if changed_ran else network.outputs
    for (operation, row), found in answer.outputs.items():
        wrong = difference(found, second if row == 1 else network.outputs, network.tolerance)
        if wrong:
            return "WRONG", f"{operation}, row {row}: {wrong}"
    if network.changed_outputs is None:
        answer.refusals.pop("predict 1", None)  # the changed row may not be one that the network can take
    for operation, description in answer.refusals.items():
        named = operation == "validate" or names_something(network, description)
        return "refused" if named else "silent", f"{operation}: {description}"
    return "right", ""


def names_something(network, description):
    """Whether a refusal says which node, type, input, output or constant it is about."""
    nodes = network.model.graph.node
    words = {node.op_type for node in nodes} | {node.name for node in nodes if node.name}
    words |= {onnx.TensorProto.DataType.Name(number) for number in FROM_ONNX}
    graph = network.model.graph
    names = [*network.outputs, *(value.name for value in [*graph.input, *graph.initializer])]
    quoted = any(f'"{name}"' in description for name in names)
    return quoted or any(re.search(rf"\b{re.escape(word)}\b", description) for word in words)


def answers(folders):
    """What the program says of each network, or, as a text, how it ended: then each runs in a process of its own."""
    try:
        process = subprocess.run([arguments.program, *folders], env=ENVIRONMENT, capture_output=True, timeout=SECONDS,
                                 check=False)
        if process.returncode == 0:
            return [Answer(text) for text in process.stdout.decode(errors="replace").split("network\t")[1:]]
        last = process.stderr.decode(errors="replace").strip().splitlines()[-1:]
        end = f"exit {process.returncode} {' '.join(last)}"
    except subprocess.TimeoutExpired:
        end = f"no end after {SECONDS} s"
    return [end] if len(folders) == 1 else [answer for folder in folders for answer in answers([folder])]


def run(forms):
    """The row of each network in the table of verdicts."""
    rows = []
    with tempfile.TemporaryDirectory(dir=WORK) as directory:
        folders = [pathlib.Path(directory) / str(i) for i in range(len(forms))]
        for network, folder in zip(forms, folders):
            network.write(folder)
        for network, folder, answer in zip(forms, folders, answers(folders)):
            verdict = ("crashed", answer) if isinstance(answer, str) else judge(network, answer)
            rows.append((network.family, network.name, network.operator, *verdict))
            if verdict[0] in FAILURES:
                shutil.copytree(folder, WORK / "failed" / network.family / network.name)
    return rows


def check_reference(network):
    """What ours compute is right where the ONNX project's networks tell."""
    try:
        wrong = difference(reference.run(network.model, network.inputs), network.outputs, network.tolerance)
    except (NotImplementedError, TypeError):
        return []
    return [("reference.py", network.name, network.operator, "WRONG" if wrong else "right", wrong)]


def run_with_variants(index):
    network = networks[index]
    rows = check_reference(network) if network.compute is None else []
    forms = [network] if arguments.plain else [network, *variants.all_of(network)]
    return rows + run(forms)


def table(title, rows, column):
    counts = collections.defaultdict(collections.Counter)
    for row in rows:
        counts[row[column]][row[3]] += 1
        counts["total"][row[3]] += 1
    counts["total"] = counts.pop("total")  # last
    width = max(map(len, counts))
    print(f"\n{title:{width}}", *(f"{verdict:>9}" for verdict in VERDICTS))
    for name, count in counts.items():
        print(f"{name:{width}}", *(f"{count[verdict] or '':>9}" for verdict in VERDICTS))


def reasons(rows):
    """How often something was refused for the same reason, whatever the names and numbers in it."""
    counts = collections.Counter()
    for *_, operator, verdict, text in rows:
        if verdict == "refused":
            text = re.sub(r"> Node .*? parse error: ", f"{operator}: ", text)
            text = re.sub(r"OpenCV\(\S+\) \S+: error: |Component \"\w+\": |\n", "", text)
            text = re.sub(r'"[^"]*"', '".."', re.sub(r"\d+", "N", text))
            counts[" ".join(text.split())] += 1
    print("\nRefused, by reason")
    for reason, count in counts.most_common(25):
        print(f"{count:6} {reason[:150]}")
    print(f"{sum(counts.values()) - sum(count for _, count in counts.most_common(25)):6} others, in verdicts.tsv")


def failures(rows):
    for verdict in FAILURES:
        those = [row for row in rows if row[3] == verdict]
        if those:
            print(f"\n{verdict}: {len(those)}")
        for family, name, operator, _, text in those[:40]:
            print(f"  {operator}: {family}/{name}: {text[:160]}")
        if len(those) > 40:
            print("  and so on: see verdicts.tsv")


def meets_expectations(rows):
    right = collections.Counter(row[0] for row in rows if row[3] == "right")
    ran = {row[0] for row in rows}
    good = not any(row[3] in FAILURES for row in rows)
    for family, least in json.loads((HERE / "expected.json").read_text())[arguments.engine].items():
        if family in ran and not arguments.only and right[family] < least:
            print(f"networks: of {family} {right[family]} are right, wanted are {least}", file=sys.stderr)
            good = False
    return good


def main():
    start = time.monotonic()
    shutil.rmtree(WORK, ignore_errors=True)
    WORK.mkdir(parents=True)
    with multiprocessing.get_context("fork").Pool() as pool:  # each gets the networks by being forked
        rows = [row for some in pool.imap(run_with_variants, range(len(networks)), 4) for row in some]
    with open(WORK / "verdicts.tsv", "w") as file:
        for row in rows:
            print(*row, sep="\t", file=file)
    table("operator", sorted(rows, key=lambda row: row[2]), 2)
    reasons(rows)
    print("\nLeft out, by reason")
    for reason, count in collections.Counter(left_out.values()).most_common():
        print(f"{count:6} {reason}")
    table("networks", rows, 0)
    failures(rows)
    print(f"\n{len(rows)} networks in {time.monotonic() - start:.0f} s")
    sys.exit(0 if meets_expectations(rows) else "networks: failed")


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("engine")
    parser.add_argument("program")
    parser.add_argument("--plain", action="store_true", help="without the variants of the networks")
    parser.add_argument("--only", default="", metavar="REGEX", help="the networks in whose names it is found")
    arguments = parser.parse_args()
    networks, left_out = onnx_project.read_all()
    networks += families.read_all()
    networks = [network for network in networks if re.search(arguments.only, network.name)]
    if not networks:
        sys.exit(f"networks: none has {arguments.only} in its name")
    main()
