"""A network with inputs and the outputs that are expected for them, and the package that the library loads."""

import dataclasses
import json
import tarfile

import numpy
import onnx

# The element types that the library has: its number, its name in a manifest, and ONNX's own number.
TYPES = [
    (1, "bool", numpy.bool_, onnx.TensorProto.BOOL),
    (2, "int8", numpy.int8, onnx.TensorProto.INT8),
    (3, "uint8", numpy.uint8, onnx.TensorProto.UINT8),
    (4, "int16", numpy.int16, onnx.TensorProto.INT16),
    (5, "uint16", numpy.uint16, onnx.TensorProto.UINT16),
    (6, "int32", numpy.int32, onnx.TensorProto.INT32),
    (7, "uint32", numpy.uint32, onnx.TensorProto.UINT32),
    (8, "int64", numpy.int64, onnx.TensorProto.INT64),
    (9, "uint64", numpy.uint64, onnx.TensorProto.UINT64),
    (10, "float16", numpy.float16, onnx.TensorProto.FLOAT16),
    (11, "float", numpy.float32, onnx.TensorProto.FLOAT),
    (12, "double", numpy.float64, onnx.TensorProto.DOUBLE),
]
MANIFEST_NAME = {numpy.dtype(type_): name for _, name, type_, _ in TYPES}
FROM_LIBRARY = {number: numpy.dtype(type_) for number, _, type_, _ in TYPES}
FROM_ONNX = {number: numpy.dtype(type_) for _, _, type_, number in TYPES}


@dataclasses.dataclass
class Network:
    family: str  # where it comes from: a row of the table of totals
    name: str
    model: onnx.ModelProto
    inputs: dict  # arrays by name, in the manifest's order
    outputs: dict
    changed_inputs: dict = None  # the second row
    changed_outputs: dict = None  # None: not known, but the same in every way
    compute: callable = None  # the outputs of any inputs, where one knows
    open_outputs: bool = False  # the manifest leaves the outputs' dimensions open
    exception: str = ""  # its kind in exceptions.tsv, where it is there

    def __post_init__(self):
        if self.changed_inputs is None:
            self.changed_inputs = changed(self.inputs)
        if self.compute is not None:
            self.changed_outputs = self.compute(self.changed_inputs)

    @property
    def tolerance(self):
        # The ONNX project's values have been compared with engines; of ours, small ones may be what large ones leave.
        return 1e-7 if self.compute is None else 3e-5

    @property
    def operator(self):
        types = {node.op_type for node in self.model.graph.node if node.op_type != "Constant"}
        return types.pop() if len(types) == 1 else "(several)"

    def write(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        onnx.save(self.model, folder / "network.onnx")
        target = {
            "components": [{"name": "network", "path": "network.onnx", "type": "file"}],
            "inputs": [feature(name, array) for name, array in self.inputs.items()],
            "outputs": [feature(name, array, self.open_outputs) for name, array in self.outputs.items()],
        }
        (folder / "manifest.json").write_text(json.dumps({"name": self.name, "targets": {"WinML": target}}, indent=1))
        for row, inputs in enumerate([self.inputs, self.changed_inputs]):
            elements = b"".join(numpy.ascontiguousarray(array).tobytes() for array in inputs.values())
            (folder / f"inputs-{row}.bin").write_bytes(elements)
        if self.family == "onnx":
            with tarfile.open(folder / "package.tar", "w") as archive:
                for name in ["manifest.json", "network.onnx"]:
                    archive.add(folder / name, name)


def feature(name, array, open_=False):
    tensor = {"shape": [-1] * array.ndim if open_ else list(array.shape), "dataType": MANIFEST_NAME[array.dtype]}
    return {"name": name, "featureType": "tensor", "tensor": tensor}


def changed(inputs):
    """Another row: other values where that asks for outputs of the same shape, as far as one can tell."""
    def is_float(array):
        return array.dtype.kind == "f"
    data = [name for name, array in inputs.items() if is_float(array) and array.ndim > 1]
    data = data or [name for name, array in inputs.items() if is_float(array)] or list(inputs)
    row = dict(inputs)
    for name in data:
        array = inputs[name]
        reversed_ = array.ravel()[::-1].reshape(array.shape)
        row[name] = (reversed_ * 0.9).astype(array.dtype) if is_float(array) else reversed_
    return row
