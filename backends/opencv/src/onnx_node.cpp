#include "onnx_node.h"

#include <algorithm>
#include <onnx/defs/tensor_proto_util.h>

namespace TarnoMirelo::OpenCv {

GraphFacts::GraphFacts(const onnx::GraphProto& graph, int version) : operatorSet(version) {
    for (const auto* const values : {&graph.value_info(), &graph.input(), &graph.output()}) {
        for (const onnx::ValueInfoProto& value : *values) types.emplace(value.name(), &value.type());
    }
    for (const onnx::TensorProto& constant : graph.initializer()) {
        constants.emplace(constant.name(), &constant);
        initializers.insert(constant.name());
    }
    for (const onnx::ValueInfoProto& input : graph.input()) {
        if (!initializers.contains(input.name())) inputs.insert(input.name());
    }
    for (const onnx::NodeProto& node : graph.node()) {  // a node comes after those that it takes its inputs from
        for (const std::string& value : node.output()) producers.emplace(value, &node);
        for (const std::string& value : node.input()) consumers[value].push_back(&node);
        const OnnxNode looked(node, *this);
        const auto* const value =
            node.op_type() == "Constant" && node.output_size() > 0 ? looked.attribute("value") : nullptr;
        if (value != nullptr) constants.emplace(node.output(0), &value->t());
        if (node.op_type() == "Shape" || !looked.hasVariableInput()) {
            computedConstants.insert(node.output().begin(), node.output().end());
        }
    }
    for (const onnx::NodeProto& node : graph.node()) {
        if (node.input_size() == 0 || !computedConstants.contains(node.output(0))) continue;
        shareIfUsedAgain(node.output(0));
        // The engine computes these without a copy.
        const bool isSameMemory = node.op_type() == "Flatten" || node.op_type() == "Reshape" ||
                                  node.op_type() == "Squeeze" || node.op_type() == "Unsqueeze";
        if (isSameMemory && sharedConstants.contains(node.input(0))) sharedConstants.insert(node.output(0));
    }
}

void GraphFacts::shareIfUsedAgain(const std::string& constant) {
    const auto users = consumers.find(constant);
    if (users == consumers.end() || users->second.size() < 2) return;
    const auto shape = shapeOf(constant);
    const bool isNumber = shape && std::ranges::all_of(*shape, [](int64_t size) { return size == 1; });
    const int type = typeOf(constant);
    const bool isInteger = type == onnx::TensorProto::INT64 || type == onnx::TensorProto::INT32;
    if (!isNumber && !isInteger) sharedConstants.insert(constant);
}

std::optional<std::vector<int64_t>> GraphFacts::shapeOf(const std::string& value) const {
    if (const auto constant = constants.find(value); constant != constants.end()) {
        return std::vector<int64_t>(constant->second->dims().begin(), constant->second->dims().end());
    }
    const auto type = types.find(value);
    if (type == types.end() || !type->second->tensor_type().has_shape()) return std::nullopt;
    std::vector<int64_t> shape;
    for (const auto& dimension : type->second->tensor_type().shape().dim()) {
        shape.push_back(dimension.has_dim_value() && dimension.dim_value() > 0 ? dimension.dim_value() : -1);
    }
    return shape;
}

int GraphFacts::typeOf(const std::string& value) const {
    if (const auto constant = constants.find(value); constant != constants.end()) return constant->second->data_type();
    const auto type = types.find(value);
    return type == types.end() ? onnx::TensorProto::UNDEFINED : type->second->tensor_type().elem_type();
}

const onnx::AttributeProto* OnnxNode::attribute(const char* name) const {
    const auto found = std::ranges::find(node_.attribute(), name, &onnx::AttributeProto::name);
    return found == node_.attribute().end() ? nullptr : &*found;
}

int64_t OnnxNode::number(const char* name, int64_t otherwise) const {
    const auto* const found = attribute(name);
    return found == nullptr ? otherwise : found->i();
}

float OnnxNode::real(const char* name, float otherwise) const {
    const auto* const found = attribute(name);
    return found == nullptr ? otherwise : found->f();
}

std::string OnnxNode::text(const char* name, const char* otherwise) const {
    const auto* const found = attribute(name);
    return found == nullptr ? otherwise : found->s();
}

std::vector<int64_t> OnnxNode::numbers(const char* name) const {
    const auto* const found = attribute(name);
    if (found == nullptr) return {};
    return {found->ints().begin(), found->ints().end()};
}

std::vector<float> OnnxNode::reals(const char* name) const {
    const auto* const found = attribute(name);
    if (found == nullptr) return {};
    return {found->floats().begin(), found->floats().end()};
}

bool OnnxNode::hasVariableInput() const {
    return std::ranges::any_of(node_.input(),
                               [this](const std::string& name) { return !name.empty() && !facts_.isConstant(name); });
}

std::optional<OnnxNode> OnnxNode::producerOf(int index) const {
    if (!hasInput(index)) return std::nullopt;
    const auto found = facts_.producers.find(node_.input(index));
    return found == facts_.producers.end() ? std::nullopt : std::optional<OnnxNode>(OnnxNode(*found->second, facts_));
}

std::vector<OnnxNode> OnnxNode::consumers(int output) const {
    std::vector<OnnxNode> nodes;
    if (!hasOutput(output)) return nodes;
    const auto found = facts_.consumers.find(node_.output(output));
    if (found == facts_.consumers.end()) return nodes;
    for (const onnx::NodeProto* const node : found->second) nodes.emplace_back(*node, facts_);
    return nodes;
}

const onnx::TensorProto* OnnxNode::constant(int index) const {
    if (!hasInput(index)) return nullptr;
    const auto found = facts_.constants.find(node_.input(index));
    return found == facts_.constants.end() ? nullptr : found->second;
}

std::vector<float> OnnxNode::constantReals(int index) const {
    const onnx::TensorProto* const found = constant(index);
    if (found == nullptr || found->data_type() != onnx::TensorProto::FLOAT) return {};
    return onnx::ParseData<float>(found);
}

std::vector<int64_t> OnnxNode::constantNumbers(int index) const {
    const onnx::TensorProto* const found = constant(index);
    if (found == nullptr) return {};
    if (found->data_type() == onnx::TensorProto::INT64) return onnx::ParseData<int64_t>(found);
    if (found->data_type() != onnx::TensorProto::INT32) return {};
    const std::vector<int32_t> numbers = onnx::ParseData<int32_t>(found);
    return {numbers.begin(), numbers.end()};
}

std::optional<std::vector<int64_t>> OnnxNode::inputShape(int index) const {
    return hasInput(index) ? facts_.shapeOf(node_.input(index)) : std::nullopt;
}

}  // namespace TarnoMirelo::OpenCv
