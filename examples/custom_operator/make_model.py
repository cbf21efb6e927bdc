#!/usr/bin/python3
"""Makes the network of this example: y = relu(UnitLength(x)), where UnitLength is an operator that no engine has.

Run by hand; what it makes is committed. Needs Debian's python3-onnx.
"""

import pathlib

import onnx
from onnx import TensorProto, helper

DOMAIN = "example.sdk"

graph = helper.make_graph(
    [helper.make_node("UnitLength", ["x"], ["unit"], domain=DOMAIN), helper.make_node("Relu", ["unit"], ["y"])],
    "unit_length",
    [helper.make_tensor_value_info("x", TensorProto.FLOAT, ["rows", 3])],
    [helper.make_tensor_value_info("y", TensorProto.FLOAT, ["rows", 3])])
model = helper.make_model(graph, producer_name="make_model.py",
                          opset_imports=[helper.make_opsetid("", 13), helper.make_opsetid(DOMAIN, 1)])
model.ir_version = 7
onnx.checker.check_model(model)
onnx.save(model, str(pathlib.Path(__file__).parent / "model" / "unit_length.onnx"))
