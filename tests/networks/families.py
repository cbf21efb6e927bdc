"""Networks of our own, for what the ONNX project's leave out: the operators that are used most, attribute by attribute.

What is expected of them is computed by reference.py.
"""

import ast
import dataclasses
import itertools
import re

import numpy as np
from onnx import TensorProto, helper

import reference
import variants
from network import FROM_ONNX, Network

TO_ONNX = {dtype: number for number, dtype in FROM_ONNX.items()}
FLOAT, INT32, INT64, BOOL = TensorProto.FLOAT, TensorProto.INT32, TensorProto.INT64, TensorProto.BOOL


# The language of the families

def data(*shape, low=-2.0, high=2.0):
    """Values without a pattern, the same in every run."""
    seed = sum((i + 1) * size for i, size in enumerate(shape)) + len(shape)
    return np.random.RandomState(seed).uniform(low, high, shape).astype(np.float32)


def whole(*shape, low=-9, high=9, dtype=np.int32):
    return np.rint(data(*shape, low=low, high=high)).astype(dtype)


def ints(*values):
    return np.array(values, np.int64)


def scalar(value, dtype=np.float32):
    return np.array(value, dtype)


def shapes(text):
    """"2x3 3, 2x3 ()" is [((2, 3), (3,)), ((2, 3), ())]."""
    def shape(word):
        return () if word == "()" else tuple(int(size) for size in word.split("x"))
    return [tuple(shape(word) for word in group.split()) for group in text.split(",")]


def some(**choices):
    """Every combination of the attributes; None leaves an attribute out."""
    for values in itertools.product(*choices.values()):
        yield {name: value for name, value in zip(choices, values) if value is not None}


def given(**attributes):
    return next(some(**{name: [value] for name, value in attributes.items()}))


def nodes(text):
    """"Exp a; Softmax y0 axis=1" is [("Exp", ["a"], {}), ("Softmax", ["y0"], {"axis": 1})]."""
    for operator, *words in (part.split() for part in text.split(";")):
        attributes = dict(word.split("=") for word in words if "=" in word)
        yield (operator, [word for word in words if "=" not in word],
               {name: ast.literal_eval(value) for name, value in attributes.items()})


def network(nodes_, inputs, opset=13, outputs=1, producer=""):
    """nodes_: (operator, names of inputs, attributes); the outputs of node i are y<i>, y<i>b, ...

    The producer is named because engines treat some exporters' networks in a way of their own.
    """
    nodes_, made = list(nodes_), []
    for i, (operator, names_, attributes) in enumerate(nodes_):
        count = outputs if i == len(nodes_) - 1 else 2 if operator == "Split" else 1
        results = [f"y{i}{suffix}" for suffix in ["", "b", "c"][:count]]
        made.append(helper.make_node(operator, names_, results, f"node{i}", **attributes))
    graph = helper.make_graph(made, "graph", [value(name, array) for name, array in inputs.items()], [])
    graph.output.extend(helper.make_empty_tensor_value_info(name) for name in made[-1].output)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", opset)], ir_version=8,
                              producer_name=producer)
    expected = reference.run(model, inputs)
    del model.graph.output[:]
    model.graph.output.extend(value(name, array) for name, array in expected.items())
    return Network("own", title(nodes_, inputs, opset) + producer, model, inputs, expected,
                   compute=lambda others: reference.run(model, others))


def value(name, array):
    return helper.make_tensor_value_info(name, TO_ONNX[array.dtype], array.shape)


def title(nodes_, inputs, opset):
    parts = [operator + "".join(f"_{name}{setting}" for name, setting in attributes.items())
             for operator, _, attributes in nodes_]
    return re.sub(r"[^\w.-]+", "_", "-".join([*parts, *[spelt(array) for array in inputs.values()], f"opset{opset}"]))


def spelt(array):
    holds_sizes = array.dtype == np.int64 or array.ravel().tolist()[:2] == [1, 1]
    if array.ndim < 2 and array.size < 9 and holds_sizes:
        return str(array.tolist())
    return ("" if array.dtype == np.float32 else array.dtype.name) + ("x".join(map(str, array.shape)) or "scalar")


def single(operator, arrays, opset=13, outputs=1, producer="", **attributes):
    """One node over these arrays; None for an optional input that is not given."""
    given_ = ["abcdefghij"[i] if array is not None else "" for i, array in enumerate(arrays)]
    inputs = {name: array for name, array in zip(given_, arrays) if name}
    return network([(operator, given_, attributes)], inputs, opset, outputs, producer)


def weighted(operator, arrays, opset=13, outputs=1, producer="", **attributes):
    """One node whose inputs but the first are constants at once."""
    made = single(operator, arrays, opset, outputs, producer, **attributes)
    return dataclasses.replace(variants.with_constants(made, "a"), family=made.family)


def followed(operator, arrays, then, opset=13, **attributes):
    """A node and others behind it: (operator, further inputs, attributes)."""
    inputs = dict(zip("abcdefghij", arrays))
    made = [(operator, list(inputs), attributes)]
    for i, (next_, more, named) in enumerate(then):
        further = {f"more{i}{k}": array for k, array in enumerate(more)}
        inputs |= further
        made.append((next_, [f"y{i}", *further], named))
    return network(made, inputs, opset)


def constants(nodes_, inputs, fixed):
    """A network of which some inputs are constants at once."""
    made = network(nodes_, inputs | fixed)
    for name in fixed:
        made = variants.without(made, name)
    return made


# The families

def products():
    for a in some(transA=[None, 1], transB=[None, 1], alpha=[None, 0.5], beta=[None, 2.0]):
        square = [data(3, 3), data(3, 3) + 1]
        for (bias,) in shapes("3x3, 3, 1x3, 3x1, 1, ()"):
            yield single("Gemm", [*square, data(*bias)], **a)
        yield single("Gemm", square, **a)
        right = data(3, 4) if a.get("transB") else data(4, 3)
        yield single("Gemm", [data(4, 2) if a.get("transA") else data(2, 4), right, data(3)], **a)
        yield single("Gemm", [data(4, 1) if a.get("transA") else data(1, 4), right, data(3)], 9, **a)
    for a, b in shapes("3x3 3x3, 1x4 4x3, 2x3x4 2x4x3, 2x3x4 4x3, 3x4 2x4x3, 2x3x3 1x3x3, 1x2x3x4 4x4, 1x3x3 3x3,"
                       "2x2x3x4 2x2x4x3, 2x1x3x4 1x2x4x3, 3x3x3 3x3x3, 4 4x3, 3x4 4, 4 4"):
        yield single("MatMul", [data(*a), data(*b) + 1])


def convolutions():
    x = data(1, 4, 7, 6)
    for a in some(group=[None, 2, 4], dilations=[None, [2, 2], [1, 2]], strides=[None, [2, 1]],
                  pads=[None, [1, 1, 1, 1], [0, 1, 2, 1], [1, 0, 0, 2]]):
        yield single("Conv", [x, data(4, 4 // a.get("group", 1), 3, 2), data(4)], **a)
    for a in some(auto_pad=["SAME_UPPER", "SAME_LOWER", "VALID"], strides=[None, [2, 2]], group=[None, 2]):
        for (kernel,) in shapes("3x3, 2x2, 2x3"):
            yield single("Conv", [x, data(4, 4 // a.get("group", 1), *kernel)], **a)
    yield single("Conv", [data(2, 4, 7, 6), data(4, 4, 3, 3), data(4)])
    yield single("Conv", [x, data(4, 4, 3, 3)], auto_pad="SAME_UPPER", dilations=[2, 2])
    line, cube = data(1, 4, 9), data(1, 2, 5, 4, 6)
    yield single("Conv", [line, data(6, 4, 3), data(6)], pads=[1, 2])
    yield single("Conv", [line, data(6, 4, 2)], auto_pad="SAME_LOWER")
    yield single("Conv", [line, data(4, 1, 3)], group=4, dilations=[2])
    yield single("Conv", [cube, data(4, 2, 2, 2, 2), data(4)], pads=[1, 0, 0, 1, 1, 0])
    yield single("Conv", [cube, data(4, 1, 2, 2, 2), data(4)], group=2, strides=[2, 1, 1])
    yield single("Conv", [cube, data(4, 2, 2, 2, 2), data(4)], auto_pad="SAME_LOWER")

    x, w = data(1, 3, 4, 5), data(3, 2, 3, 3)
    for a in some(strides=[None, [2, 2], [2, 1]], pads=[None, [1, 1, 1, 1], [0, 1, 1, 0]],
                  output_padding=[None, [1, 0]], dilations=[None, [2, 1]]):
        if "output_padding" not in a or "strides" in a:
            yield single("ConvTranspose", [x, w, data(2)], **a)
    yield single("ConvTranspose", [data(1, 4, 4, 5), data(4, 2, 3, 3), data(4)], group=2)
    yield single("ConvTranspose", [x, w], strides=[2, 2], output_shape=[8, 10])
    yield single("ConvTranspose", [x, w], strides=[2, 2], auto_pad="SAME_UPPER")
    yield single("ConvTranspose", [x, w], strides=[2, 2], auto_pad="SAME_LOWER")
    yield single("ConvTranspose", [data(1, 3, 5), data(3, 2, 3), data(2)], strides=[2])
    yield single("ConvTranspose", [data(1, 3, 3, 4, 3), data(3, 2, 2, 2, 2), data(2)], strides=[2, 2, 2])


def pooling():
    x = data(1, 2, 7, 6)
    padded = [None, [1, 1, 1, 1], [0, 1, 1, 0]]
    common = dict(kernel_shape=[[3, 3], [3, 2]], strides=[None, [2, 2], [2, 1]], pads=padded)
    for a in some(dilations=[None, [2, 2]], ceil_mode=[None, 1], **common):
        if not overhangs(x, **a):
            yield single("MaxPool", [x], **a)
    for a in some(ceil_mode=[None, 1], **common):
        if not overhangs(x, **a):
            yield single("AveragePool", [x], **a)
    for a in some(count_include_pad=[0, 1], **common):  # without ceil_mode, where engines differ on what counts
        yield single("AveragePool", [x], **a)
    for operator in ["MaxPool", "AveragePool"]:
        for a in some(kernel_shape=[[3, 3], [2, 2], [2, 3]], auto_pad=["SAME_UPPER", "SAME_LOWER", "VALID"],
                      strides=[None, [2, 2]]):
            yield single(operator, [x], **a)
        yield single(operator, [data(1, 2, 9)], kernel_shape=[3], pads=[1, 1])
        yield single(operator, [data(1, 2, 9)], kernel_shape=[2], strides=[2], ceil_mode=1)
        yield single(operator, [data(1, 2, 5, 4, 6)], kernel_shape=[2, 2, 2], pads=[1, 0, 0, 1, 1, 0])
        yield single(operator, [data(2, 2, 7, 6)], kernel_shape=[2, 2])
    yield single("AveragePool", [x], kernel_shape=[2, 2], auto_pad="SAME_UPPER", count_include_pad=1)
    for a in some(count_include_pad=[None, 0, 1], pads=padded):
        yield single("AveragePool", [x], producer="pytorch", kernel_shape=[3, 3], **a)
    yield single("AveragePool", [x], producer="pytorch", kernel_shape=[2, 2], strides=[2, 2], ceil_mode=1)
    yield single("AveragePool", [x], producer="pytorch", kernel_shape=[2, 2], auto_pad="SAME_UPPER")
    yield single("MaxPool", [x], producer="pytorch", kernel_shape=[3, 3], pads=[1, 1, 1, 1])
    for a in some(p=[None, 1, 3], pads=[None, [1, 1, 1, 1]]):
        yield single("LpPool", [x], kernel_shape=[2, 2], **a)
    for operator in ["GlobalAveragePool", "GlobalMaxPool"]:
        for (shape,) in shapes("1x3x4x5, 2x3x4x5, 1x3x7, 1x3x2x3x4"):
            yield single(operator, [data(*shape)])


def overhangs(x, kernel_shape, strides=(1, 1), dilations=(1, 1), pads=(0, 0, 0, 0), ceil_mode=0):
    """Whether a window of a ceil_mode lies in the padding alone, where versions of ONNX differ."""
    for size, width, stride, dilation, before, after in zip(x.shape[2:], kernel_shape, strides, dilations, pads,
                                                            pads[2:]):
        last = -(-(size + before + after - (width - 1) * dilation - 1) // stride)
        if ceil_mode and last * stride >= size + before:
            return True
    return False


def softmax():
    for operator, opset in itertools.product(["Softmax", "LogSoftmax"], [9, 11, 13]):
        for (shape,) in shapes("3x4, 2x3x4, 1x3x4, 1x2x3x4, 2x2x2x3, 5"):
            for axis in [None, *range(0 if opset == 9 else -len(shape), len(shape))]:
                if axis is not None or len(shape) > 1 or opset == 13:
                    yield single(operator, [data(*shape)], opset, **given(axis=axis))


def activations():
    alpha = {
        "LeakyRelu": [None, 0.0, 0.3, -0.5, 1.5], "Elu": [None, 0.5, 2.0], "Celu": [None, 0.5, 2.0],
        "ThresholdedRelu": [None, 0.5],
    }
    two = {
        "Selu": some(alpha=[None, 1.2], gamma=[None, 2.0]), "HardSigmoid": some(alpha=[None, 0.4], beta=[None, 0.3]),
        "Shrink": some(lambd=[None, 1.0], bias=[None, 0.5]), "Clip": some(min=[None, -0.5], max=[None, 1.0]),
    }
    settings = {operator: list(choices) for operator, choices in two.items()}
    settings |= {operator: list(some(alpha=choices)) for operator, choices in alpha.items()}
    plain = "Abs Ceil Cos Exp Floor Identity Neg Reciprocal Relu Round Sigmoid Sign Sin Softplus Softsign Tanh Erf Atan"
    settings |= {operator: [{}] for operator in plain.split()}
    for x in [data(2, 3, 4), data(5), data()]:
        x = np.asarray(x, np.float32)
        for operator, choices in settings.items():
            for a in choices:
                yield single(operator, [x], 9 if operator == "Clip" else 13, **a)
        for operator in ["Log", "Sqrt"]:
            yield single(operator, [np.abs(x) + np.float32(0.1)])
        yield single("HardSwish", [x], 14)
        for low, high in itertools.product([None, scalar(-0.5)], [None, scalar(1.0)]):
            yield single("Clip", [x, low, high], 12)
    for shape, slope in shapes("2x3x4 3x1, 2x3x4x5 3x1x1, 2x3x4x5 1, 2x3x4x5 5, 2x3x4x5 4x5, 2x3x4x5 2x3x4x5,"
                               "3x3x3x3 3, 1x3x4x5 1x3x1x1, 2x3 3, 2x3 1"):
        yield single("PRelu", [data(*shape), data(*slope)])


PAIRS = shapes(
    "2x3x4 2x3x4, 2x3x4 4, 2x3x4 3x1, 2x3x4 3x4, 2x3x4 1, 2x3x4 (), 2x3x4 2x1x4, 2x3x4 1x3x1, 2x1x4 1x3x4, 4x1 3,"
    "2x3x4x5 3x1x1, 2x3x4x5 1x3x1x1, 1x3x4x5 5, 1x3x4x5 4x1, 1x3x4x5 1x1x1x1, 1x1x4x5 1x3x4x5, 1x3x1x5 1x3x4x5,"
    "2x3x1x1 4x5, 5 5, 5 1, 5 (), () (), 2x3 3")
# Where all dimensions are equal, an operand along the wrong axis fits as well.
PAIRS += shapes(
    "3x3 3x1, 3x3 1x3, 3x3x3 3, 3x3x3 3x1, 3x3x3 3x1x1, 3x3x3 1x3x1, 3x3x3 1x1x3, 3x3x3 3x3, 3x3x3 1x3x3, 3x3x3 3x1x3,"
    "3x3x3 3x3x1, 3x3x3x3 3, 3x3x3x3 3x1, 3x3x3x3 3x1x1, 3x3x3x3 1x3x1x1, 3x3x3x3 3x3, 3x3x3x3 3x3x1")


def elementwise():
    for operator, (one, other) in itertools.product(["Add", "Sub", "Mul", "Div", "Pow"], PAIRS):
        for a, b in dict.fromkeys([(one, other), (other, one)]):
            x, y = np.asarray(data(*a), np.float32), data(*b) + np.float32(0.1)
            yield single(operator, [np.abs(x) + np.float32(0.5), y] if operator == "Pow" else [x, y])
    for operator in ["Max", "Min", "Sum", "Mean"]:
        for operands in shapes("2x3 2x3, 2x3 3, 3 2x3, 2x3 (), 2x3, 2x3 2x3 2x3, 2x3x4 1x3x1 4, 1x3x4x5 5, 3x3x3 3,"
                               "3x3x3 3x1, 3x3x3 3x1x1, 3x3x3 1x3x3 3x3x3"):
            yield single(operator, [data(*shape) + np.float32(i) for i, shape in enumerate(operands)])
    choice = whole(2, 3, low=0, high=1, dtype=np.bool_)
    for (shape,) in shapes("2x3, 3, ()"):
        yield single("Where", [choice, data(2, 3), data(*shape) + np.float32(1)])


TO_FLOAT = [("Cast", [], {"to": FLOAT})]


def whole_numbers():
    """Of which an engine may make floats."""
    for one, other in shapes("2x3 2x3, 2x3 3, 3 2x3, 2x3 ()"):
        for operator, dtype in itertools.product(["Add", "Sub", "Mul", "Div"], [np.int32, np.int64]):
            second = np.asarray(whole(*other, dtype=dtype) % 4 + 2, dtype)
            yield followed(operator, [whole(*one, dtype=dtype), second], TO_FLOAT)
    large, one = whole(2, 3) + np.int32(1 << 24), np.full((2, 3), 1, np.int32)
    yield followed("Mul", [whole(2, 3) + np.int32(1 << 20), whole(2, 3) + np.int32(1 << 10)], TO_FLOAT)
    yield followed("Add", [large, one], [("Sub", [one << 24], {}), *TO_FLOAT])
    for operator, (one, other) in itertools.product(["Equal", "Less", "Greater"],
                                                    shapes("2x3 2x3, 2x3 3, 2x3 (), 3x3x3 3, 3x3x3 3x1")):
        x, y = (whole(*shape, low=-1, high=1).astype(np.float32) for shape in (one, other))
        yield followed(operator, [x, y * y], TO_FLOAT)
    x = data(2, 3, low=-3, high=3) + np.float32(0.05)
    for to in [INT32, INT64, BOOL, FLOAT, TensorProto.INT8, TensorProto.DOUBLE, TensorProto.FLOAT16]:
        yield followed("Cast", [x], TO_FLOAT, to=to)
    yield followed("Cast", [np.abs(x) * np.float32(40)], TO_FLOAT, to=TensorProto.UINT8)
    for dtype in FROM_ONNX.values():
        yield single("Cast", [whole(2, 3, low=0, high=100).astype(dtype)], to=FLOAT)
    yield single("Cast", [np.array([[1 << 24, -(1 << 24) - 1, 7]], np.int32)], to=FLOAT)
    for operator in ["ArgMax", "ArgMin"]:
        for a in some(axis=[None, 1, -1], keepdims=[None, 0], select_last_index=[None, 1]):
            yield followed(operator, [whole(2, 3, 4, low=0, high=2).astype(np.float32)], TO_FLOAT, **a)


def normalisation():
    for (shape,) in shapes("1x3x4x5, 2x3x4x5, 2x3, 2x3x4, 1x3x2x2x2"):
        arrays = [data(*shape), data(3), data(3) + 1, data(3) - 1, data(3, low=0.5, high=2)]
        for a in some(epsilon=[None, 0.1], momentum=[None, 0.5]):
            yield single("BatchNormalization", arrays, 9, **a)
            yield single("BatchNormalization", arrays, 15, **a)
        for outputs in [1, 3]:
            yield single("BatchNormalization", arrays, 15, outputs, training_mode=1)
    for (shape,) in shapes("1x3x4x5, 2x3x4x5, 1x3x6, 2x3x6, 1x3x2x3x2, 1x1x4x5"):
        for a in some(epsilon=[None, 0.1]):
            yield single("InstanceNormalization", [data(*shape), data(shape[1]), data(shape[1]) + 1], **a)
    for (shape,) in shapes("1x5x3x3, 2x5x3x3, 1x5x4"):
        for a in some(size=[3, 5], alpha=[None, 0.5], beta=[None, 0.5], bias=[None, 2.0]):
            yield single("LRN", [data(*shape)], **a)
    for a in some(axis=[None, 0, 1, -1, -2], p=[None, 1, 2]):
        yield single("LpNormalization", [data(2, 3, 4)], **a)
    for a in some(axes=[None, [0, 1, 2, 3], [2, 3], [1, 2, 3], [0, 2, 3]]):
        yield single("MeanVarianceNormalization", [data(2, 3, 4, 5)], **a)


def reductions():
    operators = "Max Min Mean Sum Prod L1 L2 SumSquare LogSum LogSumExp".split()
    choices = [None, [0], [-1], [1], [-2], [0, 1], [1, 2], [2, 1], [0, 2], [-1, 0], [0, 1, 2], [2, 3], [3], [-1, -2]]
    for operator, (shape,), keepdims, axes in itertools.product(operators, shapes("2x3x4, 1x3x4x5, 5"), [None, 0, 1],
                                                                choices):
        x, rank, a = data(*shape, low=0.5, high=1.5), len(shape), given(keepdims=keepdims)
        if axes and (max(axes) >= rank or min(axes) < -rank or len({axis % rank for axis in axes}) < len(axes)):
            continue
        yield single(f"Reduce{operator}", [x], 11, **a, **given(axes=axes))
        if operator == "Sum":
            yield single("ReduceSum", [x, ints(*axes)] if axes else [x], 13, **a)
    yield single("ReduceSum", [data(2, 3)], 13, noop_with_empty_axes=1)


def joining():
    for shape, axes in [((3,), [0, -1]), ((2, 3), [0, 1, -1, -2]), ((1, 3, 2), [0, 1, 2, -1, -2, -3]),
                        ((1, 2, 3, 2), [0, 1, 2, 3, -1, -3])]:
        for axis in axes:
            longer = list(shape)
            longer[axis] += 2
            yield single("Concat", [data(*shape), data(*shape) + 1], axis=axis)
            yield single("Concat", [data(*shape), data(*shape) + 1, data(*shape) + 2], 11, axis=axis)
            yield single("Concat", [data(*shape), data(*longer)], axis=axis)
    x = data(4, 4, 4)
    for a in some(axis=[None, 0, 1, 2, -1, -2, -3]):
        yield single("Split", [x], 11, 2, **a)
        yield single("Split", [x], 13, 2, **a)
        yield single("Split", [x], 11, 3, split=[1, 2, 1], **a)
        yield single("Split", [x, ints(1, 2, 1)], 13, 3, **a)
        yield single("Split", [x, ints(3, 1)], 13, 2, **a)
    # Parts of different sizes, which come together again in another order.
    for axis, sizes in itertools.product([0, 1], [[3, 1], [1, 3], [2, 2]]):
        back = ("Concat", ["y0b", "y0"], {"axis": axis})
        yield constants([("Split", ["a", "s"], {"axis": axis}), back], {"a": x}, {"s": ints(*sizes)})
        yield network([("Split", ["a"], {"axis": axis, "split": sizes}), back], {"a": x}, 11)


def cutting():
    x = data(4, 5, 6)
    for starts, ends, axes in [([1], [3], [0]), ([0, 1], [2, 3], [1, 2]), ([-2], [1000], [-1]), ([0], [-1], [1]),
                               ([1, 1], [3, 4], None), ([-3], [-1], [0])]:
        yield single("Slice", [x], 9, starts=starts, ends=ends, **given(axes=axes))
        axes = ints(*(axes or range(len(starts))))
        yield single("Slice", [x, ints(*starts), ints(*ends), axes])
        yield single("Slice", [x, ints(*starts), ints(*ends), axes, 0 * axes + 2])
        for step in [-1, -2]:
            yield single("Slice", [x, 0 * axes + 4, 0 * axes, axes, 0 * axes + step])
    yield single("Slice", [x, ints(-1), ints(-1000), ints(1), ints(-1)])
    yield single("Slice", [x, ints(1, 1), ints(3, 4)])
    yield single("Slice", [data(4, 4, 4), ints(1), ints(3), ints(-1), ints(2)])
    yield single("Slice", [data(5), ints(1), ints(4)])
    for a in some(axis=[None, 0, 1, 2, -1]):
        for indices in [ints(0, 1), ints(-1, 0), ints(-1), ints(1), np.array(1), np.array(-1),
                        ints(0, 1, 1, -2).reshape(2, 2)]:
            yield single("Gather", [data(2, 3, 4), indices], **a)
        yield single("GatherElements", [data(2, 3, 4), whole(2, 3, 4, low=-1, high=1, dtype=np.int64)], **a)
    yield single("Gather", [data(5), ints(0, -1)])
    yield single("Gather", [data(2, 3), whole(2, 2, low=-1, high=1)])


def shaping():
    for perm in [[1, 0], [0, 2, 1], [2, 0, 1], [1, 2, 0], [0, 2, 3, 1], [0, 3, 1, 2], [3, 2, 1, 0], [1, 0, 2, 3],
                 [0, 2, 1, 4, 3]]:
        yield single("Transpose", [data(*range(2, 2 + len(perm)))], perm=perm)
    for rank in range(1, 5):
        yield single("Transpose", [data(*range(2, 2 + rank))])
    for shape in [[0, -1], [-1], [2, -1, 2], [0, 0, -1], [-1, 4], [3, 2, 4], [1, 0, -1], [0, 12], [2, 3, 2, 2],
                  [4, 0, 2], [-1, 0, 2]]:
        yield single("Reshape", [data(2, 3, 4), ints(*shape)])
        yield single("Reshape", [data(2, 3, 4), ints(*shape)], 9)
    for shape in [[1, -1], [0, 60], [0, 3, -1], [3, 20], [-1, 5]]:
        yield single("Reshape", [data(1, 3, 4, 5), ints(*shape)])
    for opset, axis, x in itertools.product([9, 13], [None, 0, 1, 2, 3, -1, -2, -3], [data(2, 3, 4), data(1, 3, 4, 5)]):
        if axis is None or axis >= 0 or opset > 9:
            yield single("Flatten", [x], opset, **given(axis=axis))
    for shape, axes in [((1, 3, 1), [0]), ((1, 3, 1), [2]), ((1, 3, 1), [0, 2]), ((1, 3, 1), [-1]), ((1, 3, 1), None),
                        ((2, 1, 4), [1]), ((2, 1, 4), [-2]), ((1, 1), [0])]:
        yield single("Squeeze", [data(*shape)], 11, **given(axes=axes))
        yield single("Squeeze", [data(*shape), ints(*axes)] if axes else [data(*shape)], 13)
    for axes in [[0], [1], [2], [3], [-1], [-2], [0, 2], [2, 0], [0, -1], [1, 2]]:
        yield single("Unsqueeze", [data(2, 3, 4)], 11, axes=axes)
        yield single("Unsqueeze", [data(2, 3, 4), ints(*axes)], 13)
    yield single("Unsqueeze", [data(3)], 11, axes=[0])
    yield single("Unsqueeze", [data(3)], 11, axes=[1])
    for shape, to in shapes("3x1 2x3x4, 3x1 3x4, 1x3x1 2x1x4, 1 3x4, 2x3 2x3, 1x3x1x1 1x3x4x5, 2x1x4 1x3x1, 4 3x4"):
        yield single("Expand", [data(*shape), ints(*to)])
    for repeats in [[2, 1], [1, 3], [2, 2]]:
        yield single("Tile", [data(2, 3), ints(*repeats)])
    for blocks in [2, 3]:
        for a in some(mode=[None, "DCR", "CRD"]):
            yield single("DepthToSpace", [data(1, 2 * blocks ** 2, 2, 3)], blocksize=blocks, **a)
            yield single("DepthToSpace", [data(2, blocks ** 2, 2, 3)], blocksize=blocks, **a)
        yield single("SpaceToDepth", [data(2, 3, 2 * blocks, 3 * blocks)], blocksize=blocks)
    for a in some(exclusive=[None, 1], reverse=[None, 1]):
        for axis in [0, 1, -1]:
            yield single("CumSum", [data(2, 3, 4), scalar(axis, np.int32)], 14, **a)


def padding():
    x = data(1, 2, 4, 5)
    for pads, modes in [([0, 0, 1, 1, 0, 0, 1, 1], 4), ([0, 0, 2, 1, 0, 0, 0, 3], 4), ([0, 1, 0, 0, 0, 1, 0, 0], 4),
                        ([0, 0, 0, 2, 0, 0, 0, 0], 4), ([1, 0, 0, 0, 0, 0, 0, 0], 2), ([0, 0, -1, 0, 0, 0, 1, -1], 2)]:
        for a in some(mode=[None, "constant", "reflect", "edge"][:modes]):
            yield single("Pad", [x], 9, pads=pads, **a)
            yield single("Pad", [x, ints(*pads)], 13, **a)
            if a.get("mode", "constant") == "constant":
                yield single("Pad", [x], 9, pads=pads, value=1.5, **a)
                yield single("Pad", [x, ints(*pads), scalar(1.5)], 13, **a)
    for shape, pads in [((3,), [1, 2]), ((2, 3), [0, 1, 2, 0]), ((2, 3, 4), [0, 1, 0, 0, 0, 2]),
                        ((1, 2, 3, 3, 2), [0, 0, 1, 0, 1, 0, 0, 0, 1, 0])]:
        for a in some(mode=[None, "edge"]):
            yield single("Pad", [data(*shape), ints(*pads)], 13, **a)


def resizing():
    x, empty = data(1, 2, 4, 6), np.zeros(0, np.float32)
    coordinates = [None, "half_pixel", "pytorch_half_pixel", "align_corners", "asymmetric"]
    roundings = [None, "round_prefer_floor", "round_prefer_ceil", "floor", "ceil"]
    for a in [*some(mode=["nearest"], coordinate_transformation_mode=coordinates, nearest_mode=roundings),
              *some(mode=["linear"], coordinate_transformation_mode=coordinates)]:
        for scales in [(1, 1, 2, 2), (1, 1, 0.5, 0.5), (1, 1, 3, 1.5)]:
            # With other factors it is disputed whether align_corners counts the length or the factor.
            if a.get("coordinate_transformation_mode") != "align_corners" or scales[-1] == 2:
                for producer in ["", "pytorch"]:
                    yield weighted("Resize", [x, empty, np.array(scales, np.float32)], 11, 1, producer, **a)
        for sizes in [(1, 2, 8, 12), (1, 2, 7, 9), (1, 2, 2, 3), (1, 2, 3, 5), (1, 2, 1, 1)]:
            yield weighted("Resize", [x, empty, empty, ints(*sizes)], 11, **a)
    yield weighted("Resize", [x, None, np.array((1, 1, 2, 2), np.float32)], 13, mode="nearest",
                   coordinate_transformation_mode="asymmetric", nearest_mode="floor")
    factors = [(1.0, 1.0, 2.0, 2.0), (1.0, 1.0, 1.5, 3.0), (1.0, 1.0, 1.0, 2.0)]
    for mode, scales in itertools.product(["nearest", "linear"], factors):
        yield weighted("Upsample", [x, np.array(scales, np.float32)], 9, mode=mode)
        yield weighted("Upsample", [x, np.array(scales, np.float32)], 9, producer="pytorch", mode=mode)
        yield single("Upsample", [x], 8, mode=mode, scales=scales)


def recurrent():
    size, steps, hidden = 4, 5, 3
    settings = {
        "RNN": (1, [{}, {"clip": 0.5}, {"activations": ["Relu"]}]),
        "GRU": (3, [{}, {"clip": 0.5}, {"linear_before_reset": 1}, {"activations": ["Sigmoid", "Relu"]}]),
        # Without clip: whether it is for the cell's own activation as well is disputed.
        "LSTM": (4, [{}, {"input_forget": 1}, {"activations": ["Sigmoid", "Relu", "Tanh"]}]),
    }
    for operator, (gates, choices) in settings.items():
        for direction, batch, more in itertools.product([None, "forward", "reverse", "bidirectional"], [1, 2], choices):
            d = 2 if direction == "bidirectional" else 1
            a = {"hidden_size": hidden, **more, **given(direction=direction)}
            if "activations" in a:
                a["activations"] = a["activations"] * d
            x = data(steps, batch, size)
            w, r, b = data(d, gates * hidden, size), data(d, gates * hidden, hidden), data(d, 2 * gates * hidden)
            state = [data(d, batch, hidden), *([data(d, batch, hidden) + 1] if operator == "LSTM" else [])]
            yield weighted(operator, [x, w, r, b], 14, **a)
            yield weighted(operator, [x, w, r], 14, **a)
            yield weighted(operator, [x, w, r, b], 14, 1 + len(state), **a)
            yield weighted(operator, [x, w, r, b, None, *state], 14, **a)
            if operator == "LSTM":
                yield weighted(operator, [x, w, r, b, None, *state, data(d, 3 * hidden)], 14, **a)
            yield weighted(operator, [x.transpose(1, 0, 2), w, r, b], 14, layout=1, **a)
            yield weighted(operator, [data(d, d, size), w, r, b, None, data(d, d, hidden)], 14, layout=1, **a)


def fused():
    """Nodes that engines make one of."""
    x, w, b = data(1, 3, 5, 5), data(4, 3, 3, 3), data(4)
    normal = ("BatchNormalization", [data(4), data(4) + 1, data(4) - 1, data(4, low=0.5, high=2)], {})
    same_size = [
        normal, ("Relu", [], {}), ("LeakyRelu", [], {"alpha": 0.3}), ("Sigmoid", [], {}), ("Tanh", [], {}),
        ("Abs", [], {}), ("Elu", [], {"alpha": 0.5}), ("Exp", [], {}), ("HardSigmoid", [], {}),
        ("Clip", [scalar(0), scalar(1)], {}), ("Softmax", [], {"axis": 1}), ("Pow", [scalar(2)], {}),
        ("Add", [data(1, 4, 3, 3)], {}), ("Add", [data(4, 1, 1)], {}), ("Add", [data(3)], {}),
        ("Sub", [data(4, 1, 1)], {}), ("Mul", [data(4, 1, 1)], {}), ("Mul", [scalar(2)], {}),
        ("Div", [np.array([3], np.float32)], {}), ("PRelu", [data(4, 1, 1)], {}),
    ]
    other_size = [
        ("MaxPool", [], {"kernel_shape": [2, 2]}), ("AveragePool", [], {"kernel_shape": [2, 2]}), ("Flatten", [], {}),
        ("Transpose", [], {"perm": [0, 2, 3, 1]}), ("Reshape", [ints(1, -1)], {}), ("GlobalAveragePool", [], {}),
        ("Pad", [ints(0, 0, 1, 1, 0, 0, 1, 1)], {}),
    ]
    for one in same_size + other_size:
        yield followed("Conv", [x, w, b], [one])
    for one, other in itertools.product(same_size, [("Relu", [], {}), normal, ("Add", [data(1, 4, 3, 3)], {})]):
        yield followed("Conv", [x, w, b], [one, other])
    for one in [("Relu", [], {}), ("Sigmoid", [], {}), ("Softmax", [], {}), ("Add", [data(3)], {}),
                ("Mul", [scalar(2)], {})]:
        yield followed("Gemm", [data(2, 3), data(3, 3) + 1, data(3)], [one])
        yield followed("Gemm", [data(2, 3), data(3, 3) + 1, data(3)], [one], transB=1)
        yield followed("MatMul", [data(2, 3), data(3, 3) + 1], [one])
        yield followed("MatMul", [data(2, 2, 3), data(3, 3) + 1], [one])
    # What has channels, behind what has others or none.
    for shape in [(1, 3), (2, 3, 4), (1, 3, 4, 3)]:
        for one in [("BatchNormalization", [data(3), data(3) + 1, data(3) - 1, data(3, low=0.5, high=2)], {}),
                    ("PRelu", [data(3, *[1] * (len(shape) - 2))], {})]:
            yield followed("Add", [data(*shape), data(*shape) + 1], [one])
            yield followed("MatMul", [data(*shape), data(shape[-1], 3)], [one])
    for one, group in itertools.product([normal, ("Mul", [data(4, 1, 1)], {}), ("Relu", [], {})], [1, 2]):
        yield followed("ConvTranspose", [data(1, 4, 4, 5), data(4, 4 // group, 3, 3), data(4)], [one], group=group)
    yield followed("Conv", [x, data(3, 3, 3, 3)], [("Add", [data(3)], {})])
    yield followed("Conv", [x, data(3, 3, 3, 3)], [("Mul", [data(3, 1, 1)], {}), ("Add", [data(3, 1)], {})])
    for one in [("Add", [scalar(3)], {}), ("Mul", [scalar(3)], {}), ("Neg", [], {})]:
        yield followed("Pow", [data(2, 3), scalar(2)], [one])
    around = ints(0, 0, 1, 1, 0, 0, 1, 1)
    yield followed("Pad", [x, around], [("Conv", [w, b], {})])
    yield followed("Pad", [x, around], [("AveragePool", [], {"kernel_shape": [2, 2]})])
    yield followed("Pad", [x - 3, around], [("MaxPool", [], {"kernel_shape": [2, 2]})])
    first = [0, 3, 1, 2]  # channels last to channels first
    last = ("Transpose", [], {"perm": [0, 2, 3, 1]})
    yield followed("Transpose", [data(1, 4, 4, 3)], [("Conv", [w, b], {}), last], perm=first)
    yield followed("Transpose", [data(1, 4, 4, 3)], [("Reshape", [ints(1, -1)], {})], perm=first)
    yield followed("Reshape", [data(1, 12), ints(1, 3, 4)], [("Transpose", [], {"perm": [0, 2, 1]})])


def shared():
    """Results that are used twice."""
    a, x, w, b = {"a": data(2, 3)}, data(1, 3, 5, 5), data(4, 3, 3, 3), data(4)
    for operator, other in itertools.product(["Relu", "Sigmoid"], ["Add", "Mul", "Sub"]):
        yield network(nodes(f"{operator} a; {other} a y0"), a)
        yield network(nodes(f"Exp a; {operator} y0; {other} y0 y1"), a)
    for text in ["Neg a; Relu y0; Add y0 y1; Mul y2 y0", "Add a a", "Mul a a", "Sub a a", "Div a a",
                 "Concat a a axis=1"]:
        yield network(nodes(text), a)
    yield network(nodes("MatMul a a"), {"a": data(3, 3)})
    yield network(nodes("Conv x w b; Relu y0; Add y0 y1"), {"x": x, "w": w, "b": b})
    yield network(nodes("Conv x w b; Conv x v b; Add y0 y1; Relu y2"), {"x": x, "w": w, "b": b, "v": w + 1})


def exported():
    """What exporters write for one operator of a framework."""
    x = {"a": data(2, 3, 4)}
    yield network(nodes("ReduceMean a axes=[-1]; Sub a y0; Mul y1 y1; ReduceMean y2 axes=[-1]; Add y3 e; Sqrt y4;"
                        "Div y1 y5; Mul y6 g; Add y7 b"),
                  {"a": data(1, 3, 4), "e": scalar(1e-5), "g": data(4), "b": data(4) + 1}, 11)
    yield network(nodes("ReduceL2 a axes=[1]; Clip y0 e; Expand y1 s; Div a y2"),
                  x | {"e": scalar(1e-12), "s": ints(2, 3, 4)}, 12)
    for axis in [-1, 1]:
        yield network(nodes("Exp a; ReduceSum y0 x; Div y0 y1"), x | {"x": ints(axis)})
        yield network(nodes(f"ReduceL2 a axes=[{axis}]; Div a y0"), x)
        yield network(nodes(f"ReduceMax a axes=[{axis}]; Sub a y0; Exp y1"), {"a": data(3, 3, 3)})
    yield network(nodes("Softplus a; Tanh y0; Mul a y1"), x)
    yield network(nodes("Div a c; Erf y0; Add y1 o; Mul a y2; Mul y3 h"),
                  x | {"c": scalar(1.4142135), "o": scalar(1), "h": scalar(0.5)})
    yield network(nodes("Add a three; Clip y0 zero six; Div y1 six; Mul a y2"),
                  x | {"three": scalar(3), "zero": scalar(0), "six": scalar(6)})
    yield network(nodes("Reshape a s; Transpose y0 perm=[0,2,1,3,4]; Reshape y1 t"),
                  {"a": data(1, 4, 3, 3), "s": ints(1, 2, 2, 3, 3), "t": ints(1, 4, 3, 3)})
    yield network(nodes("Transpose k perm=[0,2,1]; MatMul q y0; Softmax y1 axis=-1; MatMul y2 v"),
                  {"q": x["a"], "k": x["a"] + 1, "v": x["a"] - 1})


def folded():
    """Nodes over constants alone, and constants in the place where a variable is usual."""
    a, c = {"a": data(2, 3)}, {"c": data(2, 3) + np.float32(2.5)}
    for operator in ("Abs Ceil Exp Floor Identity Neg Relu Reciprocal Sigmoid Sqrt Tanh Softmax Elu LeakyRelu Flatten "
                     "Dropout Erf Round ReduceMean ReduceSum").split():
        yield constants(nodes(f"{operator} c; Add a y0"), a, c)
    yield constants(nodes("Transpose c perm=[1,0]; Add a y0"), a, {"c": data(3, 2)})
    for to in [FLOAT, INT32, INT64, BOOL, TensorProto.DOUBLE]:
        yield constants(nodes(f"Cast c to={to}; Cast y0 to={FLOAT}; Add a y1"), a, c)
    operators = "Add Sub Mul Div Pow Max Min Sum".split()
    for operator, (other,), order in itertools.product(operators, shapes("2x3, 3, 2x1, 1, ()"), ["c d", "d c"]):
        yield constants(nodes(f"{operator} {order}; Add a y0"), a, c | {"d": data(*other) + np.float32(3)})
    for operator in ["Equal", "Less", "Greater"]:
        yield constants(nodes(f"{operator} c d; Cast y0 to={FLOAT}; Add a y1"), a, c | {"d": data(2, 3)})
    for shape in [[3, 2], [-1], [1, 2, 3]]:
        yield constants(nodes("Reshape c s; Reshape y0 t; Add a y1"), a, c | {"s": ints(*shape), "t": ints(2, 3)})
    for text, *fixed in [
            ("Concat c d axis=0", data(1, 3), data(1, 3) + 1), ("Concat c d axis=-1", data(2, 1), data(2, 2)),
            ("Slice c d e f", data(2, 5), ints(1), ints(4), ints(1)), ("Gather c d axis=0", data(4, 3), np.array(2)),
            ("Gather c d axis=0", data(4, 3), np.array(-1)), ("Gather c d axis=1", data(3, 4), np.array(1)),
            ("Expand c d", data(1, 3), ints(2, 3)), ("Expand c d", data(2, 1), ints(2, 3)),
            ("Unsqueeze c d", data(3), ints(0)), ("Unsqueeze c d", data(2), ints(-1)),
            ("MatMul c d", data(2, 3), data(3, 3))]:
        yield constants(nodes(text + "; Add a y0"), a, dict(zip("cdef", fixed)))
    yield constants(nodes("MatMul c a"), {"a": data(3, 3)}, {"c": data(3, 3) + 1})
    yield constants(nodes("MatMul a c; Add d y0"), a, {"c": data(3, 3), "d": data(3)})
    # A weight that is computed, as quantised and tied weights are.
    image, w = {"a": data(1, 2, 5, 5)}, data(3, 2, 3, 3)
    yield constants(nodes("Transpose w perm=[1,0]; Gemm a y0"), a, {"w": data(3, 3) + 1})
    yield constants(nodes("Mul w s; Conv a y0"), image, {"w": w, "s": np.array([0.5], np.float32)})
    yield constants(nodes("Reshape w s; Conv a y0 kernel_shape=[3,3]"), image,
                    {"w": w.reshape(3, 18), "s": ints(3, 2, 3, 3)})
    # Weights that engines change in place.
    yield constants(nodes("Gemm a w; Gemm y0 w; Add y1 w"), {"a": data(3, 3)}, {"w": data(3, 3) + 1})
    yield constants(nodes("Div a c; Mul y0 c; Add y1 c"), a, {"c": data(3) + np.float32(3)})
    yield constants(nodes("LSTM a w w hidden_size=3"), {"a": data(2, 1, 3)}, {"w": data(1, 12, 3)})
    # A padding that a pool may not take in, for it pads with what is below every value.
    yield constants(nodes("Pad a p; MaxPool y0 kernel_shape=[2,2]"), {"a": data(1, 3, 6, 6) - 3},
                    {"p": ints(0, 0, 1, 1, 0, 0, 1, 1)})
    # One constant for several nodes.
    yield constants(nodes("Add a c; Mul y0 c; Concat y1 c axis=1"), a, c)
    yield constants(nodes("Conv a w kernel_shape=[3,3]; Conv y0 w kernel_shape=[3,3]"), {"a": data(1, 2, 7, 7)},
                    {"w": data(2, 2, 3, 3)})


def names():
    """Nodes without a name, and several of one name, which ONNX allows."""
    for name in ["", "same"]:
        made = network(nodes("Relu a; Neg y0; Exp y1"), {"a": data(2, 3)})
        for node in made.model.graph.node:
            node.name = name
        made.name += f"-named-{name or 'nothing'}"
        yield made


FAMILIES = [products, convolutions, pooling, softmax, activations, elementwise, whole_numbers, normalisation,
            reductions, joining, cutting, shaping, padding, resizing, recurrent, fused, shared, exported, folded, names]


def read_all():
    return list({made.name: made for family in FAMILIES for made in family()}.values())
