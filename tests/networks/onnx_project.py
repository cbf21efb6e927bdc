"""The networks that the ONNX project tests engines with, as the distribution packages them."""

import pathlib

import numpy
import onnx
from onnx import numpy_helper

from network import FROM_ONNX, Network

FOLDER = pathlib.Path("/usr/share/libonnx-testdata/data")
# The outputs are drawn by chance.
RANDOM = {"Bernoulli", "Multinomial", "RandomNormal", "RandomNormalLike", "RandomUniform", "RandomUniformLike"}
DISPUTED = {
    "test_resize_downsample_scales_linear_align_corners": "computed with an output of 2.4 elements, which has 2",
}


def read_all():
    """The networks, and for the name of each that is left out the reason."""
    networks = []
    left_out = {}
    for file in sorted(FOLDER.glob("*/*/model.onnx")):
        name = file.parent.name
        model = onnx.load(file)
        inputs, outputs = values(model.graph)
        reason = DISPUTED.get(name) or unfit(model.graph, inputs, outputs)
        if reason:
            left_out[name] = reason
            continue
        data = file.parent / "test_data_set_0"
        networks.append(Network("onnx", name, model, read(data, "input", inputs), read(data, "output", outputs)))
    return networks, left_out


def values(graph):
    constants = {constant.name for constant in graph.initializer}
    return [value for value in graph.input if value.name not in constants], list(graph.output)


def unfit(graph, inputs, outputs):
    if not inputs:
        return "no input, of which a manifest has one at least"
    for value in inputs + outputs:
        kind = value.type.WhichOneof("value").replace("_type", "")
        if kind != "tensor":
            return f"a {kind} as input or output"
        if value.type.tensor_type.elem_type not in FROM_ONNX:
            name = onnx.TensorProto.DataType.Name(value.type.tensor_type.elem_type).lower()
            return f"elements of type {name}"
    if any(node.op_type in RANDOM for node in graph.node):
        return "outputs that are drawn by chance"
    return None


def read(folder, kind, values_):
    arrays = {}
    for i, value in enumerate(values_):
        file = folder / f"{kind}_{i}.pb"
        if not file.exists():
            break
        arrays[value.name] = numpy_helper.to_array(onnx.load_tensor(file))
    return arrays
