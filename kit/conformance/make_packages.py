#!/usr/bin/python3
"""Makes the packages that come with the suite. Run by hand; what it makes is committed. Needs python3-onnx."""

import json
import pathlib

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

FOLDER = pathlib.Path(__file__).parent / "packages"
TYPES = {"float": (TensorProto.FLOAT, np.float32), "int64": (TensorProto.INT64, np.int64)}


class Port:
    """An input or output: `shape` is the manifest's, `network` is the network's, with names of open dimensions."""

    def __init__(self, name, shape, network, dtype="float", required=True):
        self.name, self.shape, self.network, self.dtype, self.required = name, shape, network, dtype, required

    def info(self):
        return helper.make_tensor_value_info(self.name, TYPES[self.dtype][0], self.network)

    def manifest(self):
        entry = {"name": self.name, "featureType": "tensor", "tensor": {"shape": self.shape, "dataType": self.dtype}}
        return entry if self.required else {**entry, "required": False}


def line(kind, port, array):
    shape = "[" + ",".join(str(size) for size in array.shape) + "]"
    elements = " ".join(repr(element) for element in array.ravel().tolist())
    return f"{kind} {port.name} {port.dtype} {shape} {elements}\n"


def package(name, nodes, inputs, outputs, cases, compute, constants=(), independent=True):
    """`cases`: for each a name, and an array or None for each input. `compute` gives the arrays of the outputs."""
    folder = FOLDER / name
    folder.mkdir(parents=True, exist_ok=True)
    graph = helper.make_graph(nodes, name, [port.info() for port in inputs], [port.info() for port in outputs],
                              [numpy_helper.from_array(value, constant) for constant, value in constants])
    model = helper.make_model(graph, producer_name="make_packages.py", opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 7
    onnx.checker.check_model(model)
    onnx.save(model, str(folder / "network.onnx"))

    target = {"components": [{"name": "network", "path": "network.onnx", "type": "file"}],
              "inputs": [port.manifest() for port in inputs], "outputs": [port.manifest() for port in outputs]}
    manifest = {"name": name, "version": 1, "targets": {"WinML": target}}
    (folder / "manifest.json").write_text(json.dumps(manifest, indent=1) + "\n")

    text = "rows independent\n" if independent else ""
    for case, values in cases:
        arrays = [None if value is None else np.array(value, TYPES[port.dtype][1])
                  for port, value in zip(inputs, values)]
        text += f"case {case}\n"
        text += "".join(line("input", port, array) for port, array in zip(inputs, arrays) if array is not None)
        text += "".join(line("output", port, array) for port, array in zip(outputs, compute(*arrays)))
    (folder / "expected.txt").write_text(text)


def sigmoid(x):
    return 1 / (1 + np.exp(-x))


def lstm(x):
    """One unit whose weights are 1, over the first dimension."""
    h = c = np.zeros_like(x[0])
    steps = []
    for step in x:
        gate = sigmoid(step + h)
        c = gate * c + gate * np.tanh(step + h)
        h = gate * np.tanh(c)
        steps.append(h)
    return np.array(steps, np.float32).reshape(x.shape[0], 1, x.shape[1], 1)


def main():
    row, rows = [1, 3], ["rows", 3]
    package("identity", [helper.make_node("Identity", ["source"], ["copy"])],
            [Port("source", row, rows)], [Port("copy", row, rows)],
            [("first", [[[1, 2, 3]]]), ("second", [[[7, 0, 100]]]), ("no_numbers", [[[np.inf, -np.inf, np.nan]]])],
            lambda x: [x])

    # left + 2 right: it matters which input is which.
    package("sum",
            [helper.make_node("Add", ["left", "right"], ["part"]), helper.make_node("Add", ["part", "right"], ["sum"])],
            [Port("left", row, rows), Port("right", row, rows)], [Port("sum", row, rows)],
            [("first", [[[1, 2, 3]], [[10, 20, 30]]]), ("second", [[[4, 5, 6]], [[-40, 0.5, 60]]])],
            lambda x, y: [x + y + y])

    image, images = [1, 1, 2, 2], ["rows", 1, 2, 2]
    package("two_outputs",
            [helper.make_node("Relu", ["image"], ["positive"]), helper.make_node("Sigmoid", ["image"], ["squashed"])],
            [Port("image", image, images)], [Port("positive", image, images), Port("squashed", image, images)],
            [("first", [[[[[-1, 0], [0.5, 2]]]]]), ("second", [[[[[3, -3], [1, -0.25]]]]])],
            lambda x: [np.maximum(x, 0), sigmoid(x)])

    package("variable_shape", [helper.make_node("Relu", ["table"], ["positive"])],
            [Port("table", [-1, -1], ["m", "n"])], [Port("positive", [-1, -1], ["m", "n"])],
            [("wide", [[[1, -2, 3, -4]]]), ("high", [[[-1], [2], [3]]]), ("wide_again", [[[-5, 6, -7, 8]]])],
            lambda x: [np.maximum(x, 0)], independent=False)

    # Elements that no float holds: an engine that computes in floats gives others.
    package("int64", [helper.make_node("Add", ["numbers", "numbers"], ["doubled"])],
            [Port("numbers", row, rows, "int64")], [Port("doubled", row, rows, "int64")],
            [("small", [[[1, -2, 3]]]), ("large", [[[2**53 + 1, -2**61 - 1, 2**31]]])],
            lambda x: [x + x])

    # Rows that go through together are steps of one sequence, though each shape begins with a 1.
    ones = np.ones([1, 4, 1], np.float32)
    package("lstm", [helper.make_node("LSTM", ["steps", "weights", "recurrence"], ["hidden"], hidden_size=1)],
            [Port("steps", [1, 1, 1], ["steps", 1, 1])], [Port("hidden", [1, 1, 1, 1], ["steps", 1, 1, 1])],
            [("first", [[[[1]]]]), ("second", [[[[-0.5]]]])],
            lambda x: [lstm(x)], [("weights", ones), ("recurrence", ones)], independent=False)

    package("optional_input", [helper.make_node("Add", ["values", "offset"], ["moved"])],
            [Port("values", row, rows), Port("offset", row, row, required=False)], [Port("moved", row, rows)],
            [("without", [[[1, 2, 3]], None]), ("with", [[[1, 2, 3]], [[0.5, 0, -0.5]]])],
            lambda x, y: [x + (np.array([[10, 20, 30]], np.float32) if y is None else y)],
            [("offset", np.array([[10, 20, 30]], np.float32))], independent=False)

    # Nothing but the result tells square weights from their transpose.
    weights = np.array([[1, 2], [3, 4]], np.float32)
    package("gemm", [helper.make_node("Gemm", ["vector", "weights"], ["product"])],
            [Port("vector", [1, 2], ["rows", 2])], [Port("product", [1, 2], ["rows", 2])],
            [("first", [[[1, 1]]]), ("second", [[[1, 0]]])],
            lambda x: [x @ weights], [("weights", weights)])


if __name__ == "__main__":
    main()
