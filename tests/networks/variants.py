"""Other forms of a network, which have the same outputs."""

import copy
import dataclasses

from onnx import defs, helper, numpy_helper

from network import Network

MOST_INPUTS = 8  # of a network that gets a variant for each


def all_of(network):
    several = 1 < len(network.inputs) <= MOST_INPUTS
    constant = [with_constants(network, kept) for kept in network.inputs] if several else []
    first = [network, *constant[:1]]
    spelt = [variant for form in first for variant in with_attributes(form)]
    nodes = [with_constant_nodes(form) for form in constant]
    return constant + nodes + [other(form) for form in first for other in (with_symbol, with_open_outputs)] + spelt


def with_constants(network, kept):
    """The network with one input left, and the others as constants, which is how exporters store weights."""
    left = dataclasses.replace(network, family=network.family + "-constants", name=f"{network.name}-only-{kept}")
    for name in network.inputs:
        if name != kept:
            left = without(left, name)
    return left


def without(network, name):
    """The network with a constant in place of that input."""
    model = copy.deepcopy(network.model)
    model.ir_version = max(model.ir_version, 4)  # since when a constant is no input
    model.graph.input.remove(next(value for value in model.graph.input if value.name == name))
    model.graph.initializer.append(numpy_helper.from_array(network.inputs[name], name))
    given = {name: network.inputs[name]}
    compute = network.compute and (lambda others: network.compute(others | given))
    inputs, changed = ({key: array for key, array in row.items() if key != name}
                       for row in (network.inputs, network.changed_inputs))
    return dataclasses.replace(network, model=model, inputs=inputs, changed_inputs=changed, changed_outputs=None,
                               compute=compute)


def with_constant_nodes(network):
    """The network with a node in place of each constant."""
    model = copy.deepcopy(network.model)
    nodes = [helper.make_node("Constant", [], [constant.name], value=constant) for constant in model.graph.initializer]
    nodes += model.graph.node
    inputs = [value for value in model.graph.input if value.name in network.inputs]
    del model.graph.node[:], model.graph.initializer[:], model.graph.input[:]
    model.graph.node.extend(nodes)
    model.graph.input.extend(inputs)
    return dataclasses.replace(network, family=network.family + "-nodes", name=network.name + "-nodes", model=model)


def with_symbol(network):
    """The network with a name for the first dimension of its inputs, as exporters write batches of any size."""
    model = copy.deepcopy(network.model)
    for value in model.graph.input:
        if len(value.type.tensor_type.shape.dim) > 1:
            value.type.tensor_type.shape.dim[0].dim_param = "batch"
    del model.graph.value_info[:]
    return dataclasses.replace(network, family=base(network) + "-symbol", name=network.name + "-symbol", model=model)


def with_open_outputs(network):
    """The network with a manifest that lets the engine tell the shapes of the outputs."""
    return dataclasses.replace(network, family=base(network) + "-open", name=network.name + "-open", open_outputs=True)


def base(network):
    return network.family.removesuffix("-constants")


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
        more.attribute.extend(helper.make_attribute(*item) for item in default.items() if item[0] not in given)
    for spelling, model in [("left-out", left_out), ("written-out", written)]:
        if model != network.model:
            yield dataclasses.replace(network, family=base(network) + "-attributes", model=model,
                                      name=f"{network.name}-{spelling}")


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
