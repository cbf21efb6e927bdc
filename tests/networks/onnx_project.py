"""The networks that the ONNX project tests engines with, as the distribution packages them."""

import pathlib
import sys

import numpy
import onnx
from onnx import numpy_helper

from network import FROM_ONNX, Network

FOLDER = pathlib.Path("/usr/share/libonnx-testdata/data")
EXCEPTIONS = pathlib.Path(__file__).resolve().parent / "exceptions.tsv"


def read_exceptions(engine):
    """Kind and reason by the network's name."""
    rows = [line.split("\t") for line in EXCEPTIONS.read_text().splitlines() if not line.startswith("#")]
    return {name: (kind, reason) for of, name, kind, reason in rows if of in ("any", engine)}


def read_all(engine, can_compare):
    """The networks, and for the name of each that is left out the reason. Exceptions stay if one can compare them."""
    networks = []
    left_out = {}
    exceptions = read_exceptions(engine)
    for file in sorted(FOLDER.glob("*/*/model.onnx")):
        name = file.parent.name
        model = onnx.load(file)
        inputs, outputs = values(model.graph)
        kind, exception = exceptions.pop(name, ("", ""))
        reason = unfit(inputs, outputs) or ("" if can_compare else exception)
        if reason:
            left_out[name] = reason
            continue
        data = file.parent / "test_data_set_0"
        networks.append(Network("onnx", name, model, read(data, "input", inputs), read(data, "output", outputs),
                                exception=kind))
    if exceptions:
        sys.exit(f"networks: exceptions.tsv lists what is not there: {', '.join(exceptions)}")
    return networks, left_out


def values(graph):
    constants = {constant.name for constant in graph.initializer}
    return [value for value in graph.input if value.name not in constants], list(graph.output)


def unfit(inputs, outputs):
    if not inputs:
        return "no input, of which a manifest has one at least"
    for value in inputs + outputs:
        kind = value.type.WhichOneof("value").replace("_type", "")
        if kind != "tensor":
            return f"a {kind} as input or output"
        if value.type.tensor_type.elem_type not in FROM_ONNX:
            name = onnx.TensorProto.DataType.Name(value.type.tensor_type.elem_type).lower()
            return f"elements of type {name}"
    return None


def read(folder, kind, values_):
    arrays = {}
    for i, value in enumerate(values_):
        file = folder / f"{kind}_{i}.pb"
        if not file.exists():
            break
        arrays[value.name] = numpy_helper.to_array(onnx.load_tensor(file))
    return arrays
