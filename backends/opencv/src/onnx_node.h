#pragma once

#include <cstdint>
#include <onnx/onnx_pb.h>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// What a graph says of its values, by their names.
struct GraphFacts {
    int operatorSet = 0;  // the version of ONNX's own operators
    std::unordered_map<std::string, const onnx::TensorProto*> constants;
    std::unordered_set<std::string> computedConstants;              // by nodes of which every input is constant
    std::unordered_map<std::string, const onnx::TypeProto*> types;  // as declared or inferred, where they are known

    /// -1 for a dimension that is not known; nothing where not even the rank is.
    std::optional<std::vector<int64_t>> shapeOf(const std::string& value) const;
    /// An element type of `onnx::TensorProto`, `UNDEFINED` where it is not known.
    int typeOf(const std::string& value) const;
};

/// A node of ONNX's own domain, as the rules on the engine's limits look at it.
class OnnxNode {
 public:
    /// Both are borrowed.
    OnnxNode(const onnx::NodeProto& node, const GraphFacts& facts) : node_(node), facts_(facts) {}

    const std::string& type() const { return node_.op_type(); }
    int operatorSet() const { return facts_.operatorSet; }

    /// The attribute of that name; null where the node has none.
    const onnx::AttributeProto* attribute(const char* name) const;
    int64_t number(const char* name, int64_t otherwise) const;
    std::string text(const char* name, const char* otherwise) const;
    std::vector<int64_t> numbers(const char* name) const;
    std::vector<float> reals(const char* name) const;

    int inputCount() const { return node_.input_size(); }
    int outputCount() const { return node_.output_size(); }
    /// Whether the input is there: optional ones may be left out by an empty name.
    bool hasInput(int index) const { return index < node_.input_size() && !node_.input(index).empty(); }
    /// Whether any input depends on what the host gives.
    bool hasVariableInput() const;
    /// Whether the file holds the input's elements.
    bool isConstant(int index) const { return hasInput(index) && facts_.constants.count(node_.input(index)) != 0; }
    /// The elements of a constant input of type float; none where it is of another type.
    std::vector<float> constantReals(int index) const;
    /// The shape of an input, -1 for a dimension that is not known; nothing where not even the rank is.
    std::optional<std::vector<int64_t>> inputShape(int index) const { return facts_.shapeOf(node_.input(index)); }
    std::optional<std::vector<int64_t>> outputShape(int index) const { return facts_.shapeOf(node_.output(index)); }
    /// An element type of `onnx::TensorProto`, `UNDEFINED` where it is not known.
    int inputType(int index) const { return facts_.typeOf(node_.input(index)); }
    int outputType(int index) const { return facts_.typeOf(node_.output(index)); }

 private:
    const onnx::NodeProto& node_;
    const GraphFacts& facts_;
};

}  // namespace TarnoMirelo::OpenCv
