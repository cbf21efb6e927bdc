#!/usr/bin/python3
"""Makes convolutions.onnx, a network whose pass takes an engine a fraction of a millisecond. Run by hand; what it makes
is committed. Needs Debian's python3-onnx.
"""

import pathlib

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

CHANNELS = [3, 16, 16]
SIZE = 48

random = numpy.random.default_rng(1)
nodes, constants, value = [], [], "image"
for layer, (into, out) in enumerate(zip(CHANNELS, CHANNELS[1:])):
    kernel = random.standard_normal((out, into, 3, 3)).astype(numpy.float32) / numpy.sqrt(9 * into).astype(numpy.float32)
    constants.append(numpy_helper.from_array(kernel, f"kernel{layer}"))
    nodes.append(helper.make_node("Conv", [value, f"kernel{layer}"], [f"conv{layer}"], kernel_shape=[3, 3], pads=[1] * 4))
    value = f"relu{layer}"
    nodes.append(helper.make_node("Relu", [f"conv{layer}"], [value]))
graph = helper.make_graph(
    nodes, "convolutions",
    [helper.make_tensor_value_info("image", TensorProto.FLOAT, ["rows", CHANNELS[0], SIZE, SIZE])],
    [helper.make_tensor_value_info(value, TensorProto.FLOAT, ["rows", CHANNELS[-1], SIZE, SIZE])], constants)
model = helper.make_model(graph, producer_name="make_network.py", opset_imports=[helper.make_opsetid("", 13)])
model.ir_version = 7
onnx.checker.check_model(model)
onnx.save(model, str(pathlib.Path(__file__).parent / "convolutions.onnx"))
