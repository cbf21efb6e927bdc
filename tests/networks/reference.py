"""What ONNX's operators compute, with numpy: those that networks use most, with all of their attributes."""

import math

import numpy as np
from onnx import helper, numpy_helper
from numpy.lib.stride_tricks import sliding_window_view

from network import FROM_ONNX


@np.errstate(all="ignore")
def run(model, inputs):
    """The outputs of a model, by name. Raises NotImplementedError or TypeError for what is not here."""
    if model.opset_import[0].version < 7 or not {node.op_type for node in model.graph.node} <= OPERATORS.keys():
        raise NotImplementedError
    values = {constant.name: numpy_helper.to_array(constant) for constant in model.graph.initializer} | dict(inputs)
    opset = model.opset_import[0].version
    for node in model.graph.node:
        arrays = [values[name] if name else None for name in node.input]
        outputs = {"outputs": len(node.output)} if node.op_type == "Split" else {}
        results = OPERATORS[node.op_type](*arrays, opset=opset, **outputs, **attributes(node))
        results = results if isinstance(results, list) else [results]
        if len(results) < len(node.output):
            raise NotImplementedError
        for name, result in zip(node.output, results):
            values[name] = np.asarray(result)
    return {output.name: values[output.name] for output in model.graph.output}


def attributes(node):
    values = {attribute.name: helper.get_attribute_value(attribute) for attribute in node.attribute}
    return {name: value.decode() if isinstance(value, bytes) else value for name, value in values.items()}


def listed(values):
    """Axes, sizes and the like, which are attributes up to some version and inputs from then on."""
    return None if values is None else np.asarray(values).ravel().tolist()


def elementwise(function):
    return lambda *arrays, opset: typed(function(*arrays), arrays[0])


def typed(result, like):
    return np.asarray(result).astype(like.dtype)


def divide(a, b):
    return np.trunc(a / b) if a.dtype.kind in "iu" else a / b


def variadic(function):
    def fold(*arrays, opset):
        result = arrays[0]
        for array in arrays[1:]:
            result = function(result, array)
        return result
    return fold


# Activations

def clip(x, low=None, high=None, *, opset, min=None, max=None):
    low, high = (min if low is None else low), (max if high is None else high)
    x = x if low is None else typed(np.maximum(x, low), x)
    return x if high is None else typed(np.minimum(x, high), x)


def elu(x, *, opset, alpha=1.0):
    return typed(np.where(x > 0, x, alpha * np.expm1(x)), x)


def selu(x, *, opset, alpha=1.67326319217681884765625, gamma=1.05070102214813232421875):
    return typed(gamma * np.where(x > 0, x, alpha * np.expm1(x)), x)


def celu(x, *, opset, alpha=1.0):
    return typed(np.maximum(x, 0) + np.minimum(0, alpha * np.expm1(x / alpha)), x)


def leaky_relu(x, *, opset, alpha=0.01):
    return typed(np.where(x >= 0, x, alpha * x), x)


def thresholded_relu(x, *, opset, alpha=1.0):
    return typed(np.where(x > alpha, x, 0), x)


def hard_sigmoid(x, *, opset, alpha=0.2, beta=0.5):
    return typed(np.clip(alpha * x + beta, 0, 1), x)


def shrink(x, *, opset, lambd=0.5, bias=0.0):
    return typed(np.where(x < -lambd, x + bias, np.where(x > lambd, x - bias, 0)), x)


def sigmoid(x):
    return 1 / (1 + np.exp(-x))


def softmax(x, *, opset, axis=None):
    if opset >= 13:
        return over(x, -1 if axis is None else axis)
    axis = 1 if axis is None else axis
    flat = x.reshape(math.prod(x.shape[:axis]) if axis >= 0 else math.prod(x.shape[:axis + x.ndim]), -1)
    return over(flat, 1).reshape(x.shape)


def over(x, axis):
    powers = np.exp(x - x.max(axis=axis, keepdims=True))
    return powers / powers.sum(axis=axis, keepdims=True)


def log_softmax(x, *, opset, axis=None):
    return np.log(softmax(x, opset=opset, axis=axis))


# Products

def gemm(a, b, c=None, *, opset, alpha=1.0, beta=1.0, transA=0, transB=0):
    product = alpha * (a.T if transA else a) @ (b.T if transB else b)
    return typed(product if c is None else product + beta * c, a)


# Convolution and pooling

def paddings(shape, kernel, strides, dilations, pads, auto_pad):
    """The padding before and after each axis."""
    rank = len(kernel)
    if not auto_pad.startswith("SAME"):
        pads = pads or [0] * 2 * rank
        return list(zip(pads[:rank], pads[rank:]))
    both = []
    for size, width, stride, dilation in zip(shape, kernel, strides, dilations):
        total = max((math.ceil(size / stride) - 1) * stride + (width - 1) * dilation + 1 - size, 0)
        less, more = total // 2, total - total // 2
        both.append((less, more) if auto_pad == "SAME_UPPER" else (more, less))
    return both


def windows(x, kernel, strides, dilations):
    """The windows of x, whose first two axes are none: axes of positions, then axes within a window."""
    rank = len(kernel)
    extents = [(width - 1) * dilation + 1 for width, dilation in zip(kernel, dilations)]
    view = sliding_window_view(x, extents, axis=tuple(range(2, 2 + rank)))
    steps = [slice(None)] * 2 + [slice(None, None, step) for step in [*strides, *dilations]]
    return view[tuple(steps)]


def conv(x, w, b=None, *, opset, kernel_shape=None, strides=None, dilations=None, pads=None, group=1,
         auto_pad="NOTSET"):
    kernel = w.shape[2:]
    rank = len(kernel)
    strides, dilations = strides or [1] * rank, dilations or [1] * rank
    around = paddings(x.shape[2:], kernel, strides, dilations, pads, auto_pad)
    seen = windows(np.pad(x, [(0, 0), (0, 0), *around]), kernel, strides, dilations)
    axes = [1, *range(2 + rank, 2 + 2 * rank)], [1, *range(2, 2 + rank)]
    parts = [np.moveaxis(np.tensordot(part, weights, axes), -1, 1)
             for part, weights in zip(np.split(seen, group, axis=1), np.split(w, group))]
    y = np.concatenate(parts, axis=1)
    return y if b is None else y + b.reshape(-1, *[1] * rank)


def conv_transpose(x, w, b=None, *, opset, kernel_shape=None, strides=None, dilations=None, pads=None, group=1,
                   output_padding=None, output_shape=None, auto_pad="NOTSET"):
    kernel = w.shape[2:]
    rank = len(kernel)
    strides, dilations = strides or [1] * rank, dilations or [1] * rank
    extra, pads = output_padding or [0] * rank, list(pads or [0] * 2 * rank)
    sizes = [stride * (size - 1) + add + (width - 1) * dilation + 1 for size, stride, add, width, dilation
             in zip(x.shape[2:], strides, extra, kernel, dilations)]
    if output_shape or auto_pad.startswith("SAME"):
        wanted = output_shape or [size * stride for size, stride in zip(x.shape[2:], strides)]
        sizes = [max(size, want) for size, want in zip(sizes, wanted)]
        totals = [size - want for size, want in zip(sizes, wanted)]
        less, more = [total // 2 for total in totals], [total - total // 2 for total in totals]
        pads = less + more if auto_pad == "SAME_UPPER" else more + less
    y = np.zeros((x.shape[0], w.shape[1] * group, *sizes), x.dtype)
    parts = zip(np.split(x, group, axis=1), np.split(w, group), np.split(y, group, axis=1))  # the last are views
    for part, weights, result in parts:
        for offset in np.ndindex(*kernel):
            value = np.moveaxis(np.tensordot(part, weights[(slice(None), slice(None), *offset)], ([1], [0])), -1, 1)
            place = [slice(o * d, o * d + s * (n - 1) + 1, s)
                     for o, d, s, n in zip(offset, dilations, strides, x.shape[2:])]
            result[(slice(None), slice(None), *place)] += value
    y = y[(slice(None), slice(None), *[slice(pads[i], sizes[i] - pads[rank + i]) for i in range(rank)])]
    return y if b is None else y + b.reshape(-1, *[1] * rank)


def pool(x, fold, outside, *, kernel_shape, strides=None, dilations=None, pads=None, auto_pad="NOTSET", ceil_mode=0):
    rank = len(kernel_shape)
    strides, dilations = strides or [1] * rank, dilations or [1] * rank
    around = paddings(x.shape[2:], kernel_shape, strides, dilations, pads, auto_pad)
    like, x = x, np.pad(x.astype(float), [(0, 0), (0, 0), *around], constant_values=outside)
    if ceil_mode:  # what lies beyond the padding counts for nothing
        extents = [(width - 1) * dilation + 1 for width, dilation in zip(kernel_shape, dilations)]
        more = [-(size - extent) % stride for size, extent, stride in zip(x.shape[2:], extents, strides)]
        x = np.pad(x, [(0, 0), (0, 0), *[(0, add) for add in more]], constant_values=np.nan)
    seen = windows(x, kernel_shape, strides, dilations)
    return typed(fold(seen, axis=tuple(range(2 + rank, 2 + 2 * rank))), like)


def max_pool(x, *, opset, storage_order=0, **rest):
    return pool(x, np.nanmax, np.nan, **rest)


def average_pool(x, *, opset, count_include_pad=0, **rest):
    return pool(x, np.nanmean, 0 if count_include_pad else np.nan, **rest)


def lp_pool(x, *, opset, p=2, **rest):
    return pool(x, lambda seen, axis: (np.abs(seen) ** p).sum(axis=axis) ** (1 / p), 0, **rest)


def globally(fold):
    return lambda x, *, opset: fold(x, axis=tuple(range(2, x.ndim)), keepdims=True)


# Normalisation

def per_channel(values, x):
    return values.reshape(-1, *[1] * (x.ndim - 2))


def batch_normalization(x, scale, bias, mean, var, *, opset, epsilon=1e-5, momentum=0.9, training_mode=0, spatial=1):
    def normal(center, spread):
        y = (x - per_channel(center, x)) / np.sqrt(per_channel(spread, x) + epsilon)
        return typed(per_channel(scale, x) * y + per_channel(bias, x), x)
    if not training_mode:
        return normal(mean, var)
    axes = tuple(i for i in range(x.ndim) if i != 1)
    now = [x.mean(axis=axes), x.var(axis=axes)]
    return [normal(*now), *[old * momentum + new * (1 - momentum) for old, new in zip([mean, var], now)]]


def instance_normalization(x, scale, bias, *, opset, epsilon=1e-5):
    axes = tuple(range(2, x.ndim))
    normal = (x - x.mean(axis=axes, keepdims=True)) / np.sqrt(x.var(axis=axes, keepdims=True) + epsilon)
    return typed(per_channel(scale, x) * normal + per_channel(bias, x), x)


def lp_normalization(x, *, opset, axis=-1, p=2):
    return typed(x / (np.abs(x) ** p).sum(axis=axis, keepdims=True) ** (1 / p), x)


def mean_variance_normalization(x, *, opset, axes=(0, 2, 3)):
    axes = tuple(axes)
    return typed((x - x.mean(axis=axes, keepdims=True)) / (x.std(axis=axes, keepdims=True) + 1e-9), x)


def lrn(x, *, opset, size, alpha=1e-4, beta=0.75, bias=1.0):
    squares = np.pad(x ** 2, [(0, 0), ((size - 1) // 2, size // 2)] + [(0, 0)] * (x.ndim - 2))
    total = sum(squares[:, i:i + x.shape[1]] for i in range(size))
    return typed(x / (bias + alpha / size * total) ** beta, x)


# Reductions

def reduction(fold):
    def reduce(x, axes=None, *, opset, keepdims=1, noop_with_empty_axes=0):
        axes = listed(axes)
        if not axes and noop_with_empty_axes:
            return x
        return typed(fold(x, axis=tuple(axes) if axes else None, keepdims=bool(keepdims)), x)
    return reduce


def arg(fold):
    def find(x, *, opset, axis=0, keepdims=1, select_last_index=0):
        index = fold(np.flip(x, axis), axis=axis) if select_last_index else fold(x, axis=axis)
        index = x.shape[axis] - 1 - index if select_last_index else index
        return np.expand_dims(index, axis) if keepdims else index
    return find


# Shapes and places

def reshape(x, shape, *, opset, allowzero=0):
    sizes = [x.shape[i] if size == 0 and not allowzero else size for i, size in enumerate(shape.tolist())]
    return x.reshape(sizes)


def flatten(x, *, opset, axis=1):
    return x.reshape(math.prod(x.shape[:axis]), -1)


def squeeze(x, axes=None, *, opset):
    return np.squeeze(x, axis=tuple(listed(axes)) if axes is not None else None)


def unsqueeze(x, axes, *, opset):
    return np.expand_dims(x, tuple(listed(axes)))


def split_(x, split=None, *, opset, outputs, axis=0):
    return np.split(x, outputs if split is None else np.cumsum(listed(split))[:-1], axis=axis)


def slice_(x, starts, ends, axes=None, steps=None, *, opset):
    places = [slice(None)] * x.ndim
    axes = range(len(starts)) if axes is None else listed(axes)
    steps = [1] * len(starts) if steps is None else listed(steps)
    for start, end, axis, step in zip(listed(starts), listed(ends), axes, steps):
        size = x.shape[axis]
        end = None if step < 0 and end < -size else end
        places[axis] = slice(start, end, step)
    return x[tuple(places)]


def pad(x, pads, value=0.0, *, opset, mode="constant"):
    pads = listed(pads)
    value = np.asarray(value).item()
    cut = [slice(max(-begin, 0), size + min(end, 0)) for begin, end, size in zip(pads, pads[x.ndim:], x.shape)]
    around = [(max(begin, 0), max(end, 0)) for begin, end in zip(pads, pads[x.ndim:])]
    return np.pad(x[tuple(cut)], around, mode, **({"constant_values": value} if mode == "constant" else {}))


def gather_elements(x, indices, *, opset, axis=0):
    return np.take_along_axis(x, indices, axis)


def depth_to_space(x, *, opset, blocksize, mode="DCR"):
    n, c, h, w = x.shape
    s = blocksize
    if mode == "DCR":
        blocks = x.reshape(n, s, s, c // s ** 2, h, w).transpose(0, 3, 4, 1, 5, 2)
    else:
        blocks = x.reshape(n, c // s ** 2, s, s, h, w).transpose(0, 1, 4, 2, 5, 3)
    return blocks.reshape(n, c // s ** 2, h * s, w * s)


def space_to_depth(x, *, opset, blocksize):
    n, c, h, w = x.shape
    s = blocksize
    return x.reshape(n, c, h // s, s, w // s, s).transpose(0, 3, 5, 1, 2, 4).reshape(n, c * s ** 2, h // s, w // s)


def cast(x, *, opset, to):
    return x.astype(FROM_ONNX[to])


def cumsum(x, axis, *, opset, exclusive=0, reverse=0):
    x = np.flip(x, axis) if reverse else x
    total = np.cumsum(x, axis=axis) - (x if exclusive else 0)
    return np.flip(total, axis) if reverse else total


# Resize: each axis on its own

def resize(x, roi=None, scales=None, sizes=None, *, opset, mode="nearest", coordinate_transformation_mode="half_pixel",
           nearest_mode="round_prefer_floor"):
    given = sizes is not None and sizes.size
    new = sizes.tolist() if given else [int(size * scale) for size, scale in zip(x.shape, scales)]
    for axis, (size, to) in enumerate(zip(x.shape, new)):
        scale = to / size if given else float(scales[axis])
        if (size, scale) != (to, 1.0):
            x = resize_axis(x, axis, to, scale, mode, coordinate_transformation_mode, nearest_mode)
    return x


def resize_axis(x, axis, to, scale, mode, coordinates, nearest):
    size = x.shape[axis]
    i = np.arange(to)
    at = {"asymmetric": i / scale,
          "half_pixel": (i + 0.5) / scale - 0.5,
          "pytorch_half_pixel": (i + 0.5) / scale - 0.5 if to > 1 else 0.0 * i,
          "align_corners": i * (size - 1) / (to - 1) if to > 1 else 0.0 * i}[coordinates]
    if mode not in ("nearest", "linear"):
        raise NotImplementedError
    if mode == "nearest":
        index = {"floor": np.floor, "ceil": np.ceil, "round_prefer_floor": lambda a: np.ceil(a - 0.5),
                 "round_prefer_ceil": lambda a: np.floor(a + 0.5)}[nearest](at)
        return np.take(x, np.clip(index, 0, size - 1).astype(int), axis)
    low = np.floor(at)
    share = (at - low).reshape(-1, *[1] * (x.ndim - axis - 1))
    below, above = (np.take(x, np.clip(index, 0, size - 1).astype(int), axis) for index in (low, low + 1))
    return typed(below * (1 - share) + above * share, x)


def upsample(x, scales, *, opset, mode="nearest"):
    return resize(x, None, scales, opset=opset, mode=mode, coordinate_transformation_mode="asymmetric",
                  nearest_mode="floor")


# Recurrent networks

SQUASH = {"Sigmoid": sigmoid, "Tanh": np.tanh, "Relu": lambda x: np.maximum(x, 0)}


def recurrent(step, gates, default):
    """An operator over steps: step(x, states, w, r, b, peephole, squash, options) gives the new states."""
    def over_time(x, w, r, b=None, lengths=None, h=None, c=None, p=None, *, opset, hidden_size, direction="forward",
                  activations=None, clip=None, layout=0, **options):
        x = x.transpose(1, 0, 2) if layout else x
        directions, batch = len(w), x.shape[1]
        zeros = np.zeros((directions, batch, hidden_size), x.dtype)
        b = np.zeros((directions, 2 * gates * hidden_size), x.dtype) if b is None else b
        p = np.zeros((directions, 3 * hidden_size), x.dtype) if p is None else p
        starts = [zeros if start is None else start.transpose(1, 0, 2) if layout else start for start in (h, c)]
        activations = [name.decode() for name in activations or []] or default * directions
        rows, lasts = [], []
        for d in range(directions):
            backward = direction == "reverse" or d == 1
            squash = [SQUASH[name] for name in activations[d * len(default):(d + 1) * len(default)]]
            squash = [lambda v, f=f: f(v if clip is None else np.clip(v, -clip, clip)) for f in squash]
            states, row = [start[d] for start in starts], []
            for x_t in x[::-1] if backward else x:
                states = step(x_t, states, w[d], r[d], b[d], p[d], squash, options)
                row.append(states[0])
            rows.append(row[::-1] if backward else row)
            lasts.append(states)
        y = np.stack([np.stack(row) for row in rows], axis=1)
        ends = [np.stack(states) for states in zip(*lasts)]
        if layout:
            y, ends = y.transpose(2, 0, 1, 3), [end.transpose(1, 0, 2) for end in ends]
        return [typed(y, x), *[typed(end, x) for end in ends]]
    return over_time


def rnn_step(x, states, w, r, b, p, squash, options):
    wb, rb = np.split(b, 2)
    h = squash[0](x @ w.T + states[0] @ r.T + wb + rb)
    return [h, states[1]]


def gru_step(x, states, w, r, b, p, squash, options):
    h = states[0]
    (wz, wr, wh), (rz, rr, rh) = np.split(w, 3), np.split(r, 3)
    bz, br, bh, cz, cr, ch = np.split(b, 6)
    z = squash[0](x @ wz.T + h @ rz.T + bz + cz)
    reset = squash[0](x @ wr.T + h @ rr.T + br + cr)
    if options.get("linear_before_reset"):
        new = squash[1](x @ wh.T + reset * (h @ rh.T + ch) + bh)
    else:
        new = squash[1](x @ wh.T + (reset * h) @ rh.T + ch + bh)
    return [(1 - z) * new + z * h, states[1]]


def lstm_step(x, states, w, r, b, p, squash, options):
    h, c = states
    pi, po, pf = np.split(p, 3)
    gates = x @ w.T + h @ r.T + np.add(*np.split(b, 2))
    i, o, f, n = np.split(gates, 4, axis=-1)
    i = squash[0](i + pi * c)
    f = 1 - i if options.get("input_forget") else squash[0](f + pf * c)
    c = f * c + i * squash[1](n)
    o = squash[0](o + po * c)
    return [o * squash[2](c), c]


OPERATORS = {
    "Abs": elementwise(np.abs), "Acos": elementwise(np.arccos), "Asin": elementwise(np.arcsin),
    "Atan": elementwise(np.arctan), "Ceil": elementwise(np.ceil), "Cos": elementwise(np.cos),
    "Exp": elementwise(np.exp), "Floor": elementwise(np.floor), "Identity": elementwise(lambda x: x),
    "Log": elementwise(np.log), "Neg": elementwise(np.negative), "Reciprocal": elementwise(lambda x: 1 / x),
    "Relu": elementwise(lambda x: np.maximum(x, 0)), "Round": elementwise(np.round), "Sigmoid": elementwise(sigmoid),
    "Sign": elementwise(np.sign), "Sin": elementwise(np.sin), "Softplus": elementwise(lambda x: np.log1p(np.exp(x))),
    "Softsign": elementwise(lambda x: x / (1 + np.abs(x))), "Sqrt": elementwise(np.sqrt), "Tanh": elementwise(np.tanh),
    "Erf": elementwise(np.vectorize(math.erf)), "HardSwish": elementwise(lambda x: x * np.clip(x / 6 + 0.5, 0, 1)),
    "Not": lambda x, *, opset: ~x, "Clip": clip, "Elu": elu, "Selu": selu, "Celu": celu, "LeakyRelu": leaky_relu,
    "ThresholdedRelu": thresholded_relu, "HardSigmoid": hard_sigmoid, "Shrink": shrink, "Softmax": softmax,
    "LogSoftmax": log_softmax, "PRelu": elementwise(lambda x, slope: np.where(x >= 0, x, x * slope)),
    "Add": elementwise(np.add), "Sub": elementwise(np.subtract), "Mul": elementwise(np.multiply),
    "Div": elementwise(divide), "Pow": elementwise(np.power), "Equal": lambda a, b, *, opset: a == b,
    "Less": lambda a, b, *, opset: a < b, "Greater": lambda a, b, *, opset: a > b, "Sum": variadic(np.add),
    "Max": variadic(np.maximum), "Min": variadic(np.minimum),
    "Mean": lambda *arrays, opset: typed(sum(arrays) / len(arrays), arrays[0]),
    "Where": lambda condition, x, y, *, opset: np.where(condition, x, y), "Gemm": gemm,
    "MatMul": lambda a, b, *, opset: np.matmul(a, b), "Conv": conv, "ConvTranspose": conv_transpose,
    "MaxPool": max_pool, "AveragePool": average_pool, "LpPool": lp_pool, "GlobalAveragePool": globally(np.mean),
    "GlobalMaxPool": globally(np.max), "BatchNormalization": batch_normalization,
    "InstanceNormalization": instance_normalization, "LRN": lrn, "LpNormalization": lp_normalization,
    "MeanVarianceNormalization": mean_variance_normalization, "ReduceMax": reduction(np.max),
    "ReduceMin": reduction(np.min), "ReduceMean": reduction(np.mean), "ReduceSum": reduction(np.sum),
    "ReduceProd": reduction(np.prod), "ReduceL1": reduction(lambda x, **rest: np.sum(np.abs(x), **rest)),
    "ReduceL2": reduction(lambda x, **rest: np.sqrt(np.sum(x * x, **rest))),
    "ReduceSumSquare": reduction(lambda x, **rest: np.sum(x * x, **rest)),
    "ReduceLogSum": reduction(lambda x, **rest: np.log(np.sum(x, **rest))),
    "ReduceLogSumExp": reduction(lambda x, **rest: np.log(np.sum(np.exp(x), **rest))), "ArgMax": arg(np.argmax),
    "ArgMin": arg(np.argmin), "Reshape": reshape, "Flatten": flatten, "Squeeze": squeeze, "Unsqueeze": unsqueeze,
    "Split": split_, "Slice": slice_, "Pad": pad,
    "Concat": lambda *arrays, opset, axis: np.concatenate(arrays, axis=axis),
    "Transpose": lambda x, *, opset, perm=None: x.transpose(perm),
    "Gather": lambda x, indices, *, opset, axis=0: np.take(x, indices, axis=axis), "GatherElements": gather_elements,
    "Expand": lambda x, shape, *, opset: x * np.ones(shape.tolist(), x.dtype),
    "Tile": lambda x, repeats, *, opset: np.tile(x, repeats.tolist()), "DepthToSpace": depth_to_space,
    "SpaceToDepth": space_to_depth, "Cast": cast, "CumSum": cumsum,
    "Shape": lambda x, *, opset, start=0, end=None: np.array(x.shape[start:end], np.int64),
    "Dropout": lambda x, *, opset, ratio=0.5: x, "Resize": resize, "Upsample": upsample,
    "RNN": recurrent(rnn_step, 1, ["Tanh"]), "GRU": recurrent(gru_step, 3, ["Sigmoid", "Tanh"]),
    "LSTM": recurrent(lstm_step, 4, ["Sigmoid", "Tanh", "Tanh"]),
}
