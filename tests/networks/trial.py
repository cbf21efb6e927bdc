#!/usr/bin/python3
"""Tries a backend on some thousand small networks, and prints one table: trial.py <engine> <program> [option...]

Fails when something is wrong, crashes or is refused without naming what, or when fewer are right than expected.json says.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

import numpy

import onnx_project
import variants
from network import FROM_LIBRARY

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SECONDS = 20  # that a network may take
SUCCESS = "1"


class Answer:
    """What the program said of one network."""

    def __init__(self, lines):
        self.refusals = {}  # operation: description
        self.done = set()
        self.outputs = collections.defaultdict(dict)  # (operation, row): arrays by name
        for line in lines:
            kind, operation, *rest = line.split("\t")
            if kind == "output":
                row, name, type_, shape, elements = rest
                array = numpy.frombuffer(bytes.fromhex(elements), FROM_LIBRARY[int(type_)])
                self.outputs[operation, int(row)][name] = array.reshape([int(d) for d in shape.split()])
            elif rest[0] == SUCCESS:
                self.done.add(operation)
            else:
                self.refusals[operation] = f"{rest[0]}: {rest[1]}"


def difference(found, expected):
    """What is wrong with outputs, empty where nothing is."""
    if found.keys() != expected.keys():
        return f"outputs {list(found)} instead of {list(expected)}"
    for name, wanted in expected.items():
        array = found[name]
        if array.dtype != wanted.dtype or array.shape != wanted.shape:
            return f"{name}: {array.dtype}{list(array.shape)} instead of {wanted.dtype}{list(wanted.shape)}"
        if wanted.dtype.kind == "f":
            same = numpy.isclose(array, wanted, rtol=1e-3, atol=1e-7, equal_nan=True)
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
        wrong = difference(found, second if row == 1 else network.outputs)
        if wrong:
            return "WRONG", f"{operation}, row {row}: {wrong}"
    if not changed_ran and network.changed_outputs is None:
        answer.refusals.pop("predict 1", None)
    for operation, description in answer.refusals.items():
        named = operation == "validate" or names_something(network, description)
        return "refused" if named else "refused silently", f"{operation}: {description}"
    return "right", ""


def names_something(network, description):
    """Whether a refusal says which node, type, input or output it is about."""
    graph = network.model.graph
    quoted = [f'"{name}"' for name in [*network.inputs, *network.outputs]]
    words = [node.op_type for node in graph.node] + [node.name for node in graph.node if node.name]
    return any(text in description for text in quoted) or any(re.search(rf"\b{re.escape(w)}\b", description) for w in words)


def run(program, folder, network):
    environment = {**os.environ, "OPENCV_LOG_LEVEL": "SILENT", "MALLOC_PERTURB_": "165"}
    if not folder.exists():
        network.write(folder)
    try:
        process = subprocess.run([program, folder], env=environment, capture_output=True, timeout=SECONDS, check=False)
    except subprocess.TimeoutExpired:
        return "crashed", f"no end after {SECONDS} s"
    (folder / "answer.txt").write_bytes(process.stdout)
    if process.returncode != 0:
        last = process.stderr.decode(errors="replace").strip().splitlines()[-1:]
        return "crashed", f"exit {process.returncode} {' '.join(last)}"
    lines = [line for line in process.stdout.decode(errors="replace").splitlines() if line.startswith(("status\t", "output\t"))]
    return judge(network, Answer(lines))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("engine")
    parser.add_argument("program")
    parser.add_argument("--only", default="", help="a regular expression for the names of networks")
    arguments = parser.parse_args()
    work = ROOT / "build" / "networks"
    shutil.rmtree(work / "packages", ignore_errors=True)
    networks, left_out = onnx_project.read_all()
    networks += [variant for network in networks for variant in variants.all_of(network)]
    networks = [network for network in networks if re.search(arguments.only, network.name)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        folders = [work / "packages" / network.family / network.name for network in networks]
        verdicts = list(pool.map(run, [arguments.program] * len(networks), folders, networks))
    with open(work / "verdicts.tsv", "w") as file:
        for network, (verdict, text) in zip(networks, verdicts):
            print(network.family, network.name, network.operator, verdict, text, sep="\t", file=file)
    print(collections.Counter(verdict for verdict, _ in verdicts), collections.Counter(left_out.values()))


if __name__ == "__main__":
    main()
