#include "onnx_node.h"

#include <algorithm>
#include <onnx/defs/tensor_proto_util.h>

namespace TarnoMirelo::OpenCv {

const onnx::AttributeProto* OnnxNode::attribute(const char* name) const {
    for (const onnx::AttributeProto& attribute : node_.attribute()) {
        if (attribute.name() == name) return &attribute;
    }
    return nullptr;
}

int64_t OnnxNode::number(const char* name, int64_t otherwise) const {
    const auto* const found = attribute(name);
    return found == nullptr ? otherwise : found->i();
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

std::vector<float> OnnxNode::constantReals(int index) const {
    const onnx::TensorProto& constant = *facts_.constants.at(node_.input(index));
    if (constant.data_type() != onnx::TensorProto::FLOAT) return {};
    return onnx::ParseData<float>(&constant);
}

bool OnnxNode::hasVariableInput() const {
    return std::ranges::any_of(node_.input(), [this](const std::string& name) {
        return !name.empty() && facts_.constants.count(name) == 0 && facts_.computedConstants.count(name) == 0;
    });
}

std::optional<std::vector<int64_t>> GraphFacts::shapeOf(const std::string& value) const {
    if (const auto constant = constants.find(value); constant != constants.end()) {
        return std::vector<int64_t>(constant->second->dims().begin(), constant->second->dims().end());
    }
    const auto type = types.find(value);
    if (type == types.end() || !type->second->tensor_type().has_shape()) return std::nullopt;
    std::vector<int64_t> shape;
    for (const auto& dimension : type->second->tensor_type().shape().dim()) {
        shape.push_back(dimension.has_dim_value() ? dimension.dim_value() : -1);
    }
    return shape;
}

int GraphFacts::typeOf(const std::string& value) const {
    if (const auto constant = constants.find(value); constant != constants.end()) {
        return constant->second->data_type();
    }
    const auto type = types.find(value);
    return type == types.end() ? onnx::TensorProto::UNDEFINED : type->second->tensor_type().elem_type();
}

}  // namespace TarnoMirelo::OpenCv
