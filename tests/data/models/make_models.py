#!/usr/bin/python3
"""Makes the networks that the backend's tests run. Run by hand; what it makes is committed. Needs python3-onnx."""

import pathlib

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper


def save(name, nodes, inputs, outputs, constants=(), weights=None):
    def info(ports):
        return [helper.make_tensor_value_info(port, TensorProto.FLOAT, shape) for port, shape in ports]
    graph = helper.make_graph(nodes, name, info(inputs), info(outputs),
                              [numpy_helper.from_array(value, constant) for constant, value in constants])
    model = helper.make_model(graph, producer_name="make_models.py",
                              opset_imports=[helper.make_opsetid(domain, 13) for domain in {"", nodes[0].domain}])
    model.ir_version = 7
    onnx.checker.check_model(model)
    folder = pathlib.Path(__file__).parent
    if weights:
        (folder / weights).unlink(missing_ok=True)  # else they are added to it
    onnx.save(model, str(folder / f"{name}.onnx"), save_as_external_data=weights is not None,
              location=weights, size_threshold=0)


# y = max(0, a + b), row by row
save("sum",
     [helper.make_node("Add", ["a", "b"], ["ab"]), helper.make_node("Relu", ["ab"], ["y"])],
     [("a", ["rows", 3]), ("b", ["rows", 3])], [("y", ["rows", 3])])

# The same, of any size.
save("any_sum",
     [helper.make_node("Add", ["a", "b"], ["ab"]), helper.make_node("Relu", ["ab"], ["y"])],
     [("a", ["m", "n"]), ("b", ["m", "n"])], [("y", ["m", "n"])])

# A list of any length.
save("list", [helper.make_node("Relu", ["x"], ["y"])], [("x", ["n"])], [("y", ["n"])])

# Holds a shape that fits one row only.
save("one_row",
     [helper.make_node("Relu", ["x"], ["r"]), helper.make_node("Reshape", ["r", "shape"], ["y"])],
     [("x", [1, 4])], [("y", [1, 2, 2])], [("shape", numpy.array([1, 2, 2], dtype=numpy.int64))])

# y = x + (1, 2, 3), by an operator that the engine lacks
save("operator",
     [helper.make_node("Shift", ["x", "shift"], ["shifted"], domain="test"), helper.make_node("Relu", ["shifted"], ["y"])],
     [("x", ["rows", 3])], [("y", ["rows", 3])], [("shift", numpy.array([[1, 2, 3]], dtype=numpy.float32))])

# One whose result for a row depends on the rows beside it, though its shapes begin with a 1.
save("softmax",
     [helper.make_node("Softmax", ["x"], ["y"], axis=0)],
     [("x", ["rows", 2])], [("y", ["rows", 2])])

# y = x + (1, 2, 3), with these numbers in a file of their own
save("outside",
     [helper.make_node("Add", ["x", "w"], ["y"])],
     [("x", [1, 3])], [("y", [1, 3])], [("w", numpy.array([[1, 2, 3]], dtype=numpy.float32))], weights="outside.weights")

# Outputs whose names make the same file, or none that Windows has
save("names",
     [helper.make_node("Sub", ["a", "b"], ["Y"])] +
     [helper.make_node("Identity", ["Y"], [name]) for name in ["y", "a/b", "a_b", "aux"]],
     [("a", [1, 2]), ("b", [1, 2])], [(name, [1, 2]) for name in ["Y", "y", "a/b", "a_b", "aux"]])

# The engine makes five dimensions of several rows where the convolution takes four.
save("lifted",
     [helper.make_node("Unsqueeze", ["x", "axes"], ["u"]), helper.make_node("Conv", ["u", "weights"], ["y"])],
     [("x", ["rows", 1, 2])], [("y", ["rows", 1, 1, 2])],
     [("axes", numpy.array([2], dtype=numpy.int64)), ("weights", numpy.full((1, 1, 1, 1), 2, dtype=numpy.float32))])
