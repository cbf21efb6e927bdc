#!/usr/bin/python3
"""Tries a backend on some thousand small networks, and prints one table: trial.py <engine> <program> [option...]

Fails when something is wrong, crashes or is refused without a name, when fewer are right than expected.json says, or when
another program that runs beside has one right that this one has not. Networks of exceptions.tsv are only compared with
that program. What came of each is in build/networks/verdicts.tsv; the packages of those that failed stay in
build/networks/failed.
"""

import argparse
import collections
import dataclasses
import json
import multiprocessing
import os
import pathlib
import re
import shlex
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
SECONDS = 120  # that a program may take for the networks of one process
SUCCESS = "1"
FAILURES = ["silent", "WRONG", "crashed", "lost", "stale"]
VERDICTS = ["right", "refused", "excepted", *FAILURES]
WINE_HAS_NO_GRAPHICS = "Failed to create DXGI factory."  # ONNX Runtime says so when it looks for devices
CAMEL_CASE = r"[A-Z]+(?![a-z])|[A-Z][a-z]+"
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
    wrong = difference_of_form(found, expected)
    if wrong:
        return wrong
    for name, wanted in expected.items():
        array = found[name]
        if wanted.dtype.kind == "f":
            same = numpy.isclose(array, wanted, rtol=1e-3, atol=atol, equal_nan=True)
        else:
            same = array == wanted
        if not same.all():
            index = tuple(numpy.argwhere(~same)[0])
            return f"{name}: {(~same).sum()} of {same.size} differ, first {array[index]} instead of {wanted[index]}"
    return ""


def difference_of_form(found, expected, _=0):
    """As `difference`, whatever the values."""
    if found.keys() != expected.keys():
        return f"outputs {list(found)} instead of {list(expected)}"
    for name, wanted in expected.items():
        array = found[name]
        if array.dtype != wanted.dtype or array.shape != wanted.shape:
            return f"{name}: {array.dtype}{list(array.shape)} instead of {wanted.dtype}{list(wanted.shape)}"
    return ""


def difference_of_ways(answer):
    """What is wrong with the results of the package that was loaded from memory and from an archive."""
    first = answer.outputs.get(("predict", 0))
    for way in ["memory", "archive"]:
        found = answer.outputs.get((f"{way} predict", 0))
        if found is not None and any(found[name].tobytes() != first[name].tobytes() for name in first):
            return f"not the same from {way} as from the file"
    return ""


def judge(network, answer, differs=difference):
    """The verdict, and what it is about."""
    if isinstance(answer, str):
        return "crashed", answer
    changed_ran = "predict 1" in answer.done
    second = network.changed_outputs or answer.outputs["predict", 1] if changed_ran else network.outputs
    for (operation, row), found in answer.outputs.items():
        wrong = differs(found, second if row == 1 else network.outputs, network.tolerance)
        if wrong:
            return "WRONG", f"{operation}, row {row}: {wrong}"
    wrong = difference_of_ways(answer)
    if wrong and differs is difference:
        return "WRONG", wrong
    refusals = dict(answer.refusals)
    refusals.pop("validate", None)  # of empty inputs, which a backend may take all the same
    if network.changed_outputs is None:
        refusals.pop("predict 1", None)  # the changed row may not be one that the network can take
    for operation, description in refusals.items():
        return "refused" if names_something(network, description) else "silent", f"{operation}: {description}"
    return "right", ""


def judge_beside(network, answer, other):
    """The verdict where another program has run the network, too."""
    verdict = judge(network, answer)
    expected = judge(network, other)
    if isinstance(other, str) or ("predict", 0) not in other.outputs:
        return verdict
    seen = dataclasses.replace(network, outputs=other.outputs["predict", 0])
    seen.changed_outputs = other.outputs.get(("predict", 1))
    if network.exception:
        is_drawn = network.exception == "drawn"
        if expected[0] == "right" and (not is_drawn or verdict[0] == "right"):
            return "stale", "right, and listed in exceptions.tsv"
        verdict = judge(seen, answer, difference_of_form if is_drawn else difference)
        return ("excepted", network.exception) if verdict[0] == "right" else verdict
    if expected[0] != "right":
        return verdict
    if verdict[0] in ("refused", "silent"):
        return "lost", verdict[1]
    # Where the changed row may be one that the manifest's shapes don't fit, the other program tells.
    tells = seen.changed_outputs is not None and not difference_of_form(seen.changed_outputs, network.outputs)
    return judge(seen, answer) if tells and verdict[0] == "right" else verdict


def names_something(network, description):
    """Whether a refusal says which node, type, input, output or constant it is about."""
    nodes = network.model.graph.node
    words = {node.op_type for node in nodes} | {node.name for node in nodes if node.name}
    words |= {onnx.TensorProto.DataType.Name(number) for number in FROM_ONNX}
    if {node.op_type.lower() for node in nodes} & {part.lower() for part in re.findall(CAMEL_CASE, description)}:
        return True  # as a part of the name of a class
    graph = network.model.graph
    names = [*network.outputs, *(value.name for value in [*graph.input, *graph.initializer])]
    quoted = any(f'"{name}"' in description for name in names)
    return quoted or any(re.search(rf"\b{re.escape(word)}\b", description) for word in words)


def answers(program, folders):
    """What a program says of each network, or, as a text, how it ended: then each runs in a process of its own."""
    # Files: a pipe has no end before that of Wine's own processes, which live on.
    with tempfile.TemporaryFile("w+", errors="replace") as output, tempfile.TemporaryFile("w+") as errors:
        try:
            process = subprocess.run([*shlex.split(program), *folders], env=ENVIRONMENT, stdout=output, stderr=errors,
                                     timeout=SECONDS, check=False)
            output.seek(0)
            errors.seek(0)
            lines = [line for line in errors.read().splitlines() if line != WINE_HAS_NO_GRAPHICS]
            if process.returncode == 0 and not lines:
                return [Answer(text) for text in output.read().split("network\t")[1:]]
            end = f"exit {process.returncode} {' '.join(lines[-1:])}"
        except subprocess.TimeoutExpired:
            end = f"no end after {SECONDS} s"
    return [end] if len(folders) == 1 else [answer for folder in folders for answer in answers(program, [folder])]


def run(forms):
    """The row of each network in the table of verdicts."""
    rows = []
    with tempfile.TemporaryDirectory(dir=WORK.relative_to(pathlib.Path.cwd())) as directory:
        folders = [pathlib.Path(directory) / str(i) for i in range(len(forms))]
        for network, folder in zip(forms, folders):
            network.write(folder)
        others = answers(arguments.beside, folders) if arguments.beside else []
        for folder in folders:
            shutil.rmtree(folder / "unpacked", ignore_errors=True)
        found = answers(arguments.program, folders)
        for i, (network, folder) in enumerate(zip(forms, folders)):
            verdict = judge_beside(network, found[i], others[i]) if others else judge(network, found[i])
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


def run_some(begin):
    """A few of the networks, each with its variants: what one process runs."""
    some = networks[begin:begin + AT_ONCE]
    rows = [row for network in some if not (network.compute or network.exception) for row in check_reference(network)]
    forms = [form for network in some for form in [network, *([] if arguments.plain else variants.all_of(network))]]
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
    if arguments.only or arguments.sample:
        return good
    for family, least in json.loads((HERE / "expected.json").read_text())[arguments.engine].items():
        if family in ran and right[family] < least:
            print(f"networks: of {family} {right[family]} are right, wanted are {least}", file=sys.stderr)
            good = False
    return good


def main():
    start = time.monotonic()
    shutil.rmtree(WORK, ignore_errors=True)
    WORK.mkdir(parents=True)
    with multiprocessing.get_context("fork").Pool() as pool:  # each gets the networks by being forked
        rows = [row for some in pool.imap(run_some, range(0, len(networks), AT_ONCE)) for row in some]
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
    parser.add_argument("program", help="with the arguments that come before the networks' folders")
    parser.add_argument("--beside", metavar="PROGRAM", help="what it has right, the other has to have right, too")
    parser.add_argument("--plain", action="store_true", help="without the variants of the networks")
    parser.add_argument("--only", default="", metavar="REGEX", help="the networks in whose names it is found")
    parser.add_argument("--sample", type=int, metavar="NUMBER", help="that many of the ONNX project's networks, without variants")
    arguments = parser.parse_args()
    arguments.plain = arguments.plain or arguments.sample is not None
    networks, left_out = onnx_project.read_all(arguments.engine, bool(arguments.beside))
    if arguments.sample:
        networks = networks[::max(len(networks) // arguments.sample, 1)][:arguments.sample]
    else:
        networks += families.read_all()
    networks = [network for network in networks if re.search(arguments.only, network.name)]
    if not networks:
        sys.exit(f"networks: none has {arguments.only} in its name")
    AT_ONCE = 50 if arguments.plain else 5
    main()
