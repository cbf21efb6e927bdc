"""Other forms of a network, which have the same outputs."""

import copy

from onnx import defs, helper, numpy_helper

from network import Network

MOST_INPUTS = 8  # of a network that gets a variant for each


def all_of(network):
    constant = [with_constants(network, kept) for kept in network.inputs] if 1 < len(network.inputs) <= MOST_INPUTS else []
    spelt = [variant for form in [network, *constant[:1]] for variant in with_attributes(form)]
    return constant + spelt


def with_constants(network, kept):
    """The network with one input left, and the others as constants, which is how exporters store weights."""
    model = copy.deepcopy(network.model)
    model.ir_version = max(model.ir_version, 4)  # since when a constant is no input
    for name, array in network.inputs.items():
        if name != kept:
            model.graph.input.remove(next(value for value in model.graph.input if value.name == name))
            model.graph.initializer.append(numpy_helper.from_array(array, name))
    changed = {kept: network.changed_inputs[kept]}
    if all((network.changed_inputs[name] == network.inputs[name]).all() for name in network.inputs if name != kept):
        outputs = network.changed_outputs
    else:
        outputs = None
    return Network(network.family + ", constants", f"{network.name}-only-{kept}", model, {kept: network.inputs[kept]},
                   network.outputs, changed, outputs)


def with_attributes(network):
    """The network with the attributes that have their default left out, and with every default written out."""
    left_out = copy.deepcopy(network.model)
    written = copy.deepcopy(network.model)
    versions = {opset.domain: opset.version for opset in network.model.opset_import}
    shapes = {name: array.shape for name, array in network.inputs.items()}
    shapes |= {constant.name: tuple(constant.dims) for constant in network.model.graph.initializer}
    for less, more in zip(left_out.graph.node, written.graph.node):
        default = defaults(more, versions, shapes)
        given = {attribute.name: attribute for attribute in more.attribute}
        for attribute in list(less.attribute):
            if default.get(attribute.name) == helper.get_attribute_value(attribute):
                less.attribute.remove(attribute)
        more.attribute.extend(helper.make_attribute(name, value) for name, value in default.items() if name not in given)
    for spelling, model in [("left-out", left_out), ("written-out", written)]:
        if model != network.model:
            yield Network(network.family.split(",")[0] + ", attributes", f"{network.name}-{spelling}", model, network.inputs,
                          network.outputs, network.changed_inputs, network.changed_outputs)


def defaults(node, versions, shapes):
    """The values that attributes have where they are left out."""
    try:
        schema = defs.get_schema(node.op_type, versions[node.domain], node.domain)
    except (defs.SchemaError, KeyError):
        return {}
    values = {name: helper.get_attribute_value(attribute.default_value) for name, attribute in schema.attributes.items()
              if attribute.default_value.type != 0}
    given = {attribute.name: helper.get_attribute_value(attribute) for attribute in node.attribute}
    return values | {name: value for name, value in implied(node, given, shapes).items() if name in schema.attributes}


def implied(node, given, shapes):
    """The defaults that depend on other attributes or on shapes."""
    kernel = given.get("kernel_shape")
    if node.op_type in ("Conv", "ConvTranspose") and node.input[1] in shapes:
        kernel = list(shapes[node.input[1]][2:])
    if node.op_type in ("Conv", "ConvTranspose", "MaxPool", "AveragePool", "LpPool") and kernel:
        rank = len(kernel)
        values = {"kernel_shape": kernel, "dilations": [1] * rank, "strides": [1] * rank}
        return values | ({"pads": [0] * 2 * rank} if given.get("auto_pad", b"NOTSET") == b"NOTSET" else {})
    if node.op_type == "Transpose" and node.input[0] in shapes:
        return {"perm": list(range(len(shapes[node.input[0]])))[::-1]}
    gates = {"RNN": [b"Tanh"], "GRU": [b"Sigmoid", b"Tanh"], "LSTM": [b"Sigmoid", b"Tanh", b"Tanh"]}
    if node.op_type in gates:
        return {"activations": gates[node.op_type] * (2 if given.get("direction") == b"bidirectional" else 1)}
    return {}
