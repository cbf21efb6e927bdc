#pragma once

#include <cstdint>
#include <onnx/onnx_pb.h>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// What a graph says of its values, by their names. All is borrowed from the graph.
struct GraphFacts {
    GraphFacts(const onnx::GraphProto& graph, int version);

    int operatorSet = 0;  // the version of ONNX's own operators
    std::unordered_set<std::string> inputs;
    std::unordered_map<std::string, const onnx::TensorProto*> constants;  // initializers and Constant nodes
    std::unordered_set<std::string> initializers;
    std::unordered_set<std::string> computedConstants;  // by nodes of which every input is constant, and by Shape
    std::unordered_set<std::string> sharedConstants;    // computed ones with several uses; no integers, no single ones
    std::unordered_map<std::string, const onnx::NodeProto*> producers;               // the node behind each value
    std::unordered_map<std::string, std::vector<const onnx::NodeProto*>> consumers;  // a node for each of its inputs
    std::unordered_map<std::string, const onnx::TypeProto*> types;  // as declared or inferred, where they are known

    bool isConstant(const std::string& value) const {
        return constants.contains(value) || computedConstants.contains(value);
    }
    bool hasValue(const std::string& name) const {
        return inputs.contains(name) || constants.contains(name) || producers.contains(name);
    }
    /// -1 for a dimension that is not known; nothing where not even the rank is.
    std::optional<std::vector<int64_t>> shapeOf(const std::string& value) const;
    /// An element type of `onnx::TensorProto`, `UNDEFINED` where it is not known.
    int typeOf(const std::string& value) const;

 private:
    void shareIfUsedAgain(const std::string& constant);
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
    float real(const char* name, float otherwise) const;
    std::string text(const char* name, const char* otherwise) const;
    std::vector<int64_t> numbers(const char* name) const;
    std::vector<float> reals(const char* name) const;

    int inputCount() const { return node_.input_size(); }
    /// Whether the input is there: optional ones may be left out by an empty name.
    bool hasInput(int index) const { return index < node_.input_size() && !node_.input(index).empty(); }
    bool hasOutput(int index) const { return index < node_.output_size() && !node_.output(index).empty(); }
    /// Whether any input depends on what the host gives.
    bool hasVariableInput() const;
    bool isConstant(int index) const { return hasInput(index) && facts_.isConstant(node_.input(index)); }
    bool isInitializer(int index) const { return hasInput(index) && facts_.initializers.contains(node_.input(index)); }
    /// Whether the input is one of the network's own.
    bool isNetworkInput(int index) const { return hasInput(index) && facts_.inputs.contains(node_.input(index)); }
    /// The node that an input comes from; nothing where it is none's result.
    std::optional<OnnxNode> producerOf(int index) const;
    /// The nodes that take an output.
    std::vector<OnnxNode> consumers(int output = 0) const;
    bool isSharedConstant(int index) const {
        return hasInput(index) && facts_.sharedConstants.contains(node_.input(index));
    }
    /// Whether the first input of this node is the given one of the other.
    bool takes(const OnnxNode& other, int index) const {
        return hasInput(0) && other.hasInput(index) && node_.input(0) == other.node_.input(index);
    }
    /// The elements of a constant input of type float, or int32 or int64; none where it is of another type or computed.
    std::vector<float> constantReals(int index) const;
    std::vector<int64_t> constantNumbers(int index) const;
    /// The shape, -1 for a dimension that is not known; nothing where not even the rank is.
    std::optional<std::vector<int64_t>> inputShape(int index) const;
    std::optional<std::vector<int64_t>> outputShape(int index) const { return facts_.shapeOf(node_.output(index)); }
    /// An element type of `onnx::TensorProto`, `UNDEFINED` where it is not known.
    int inputType(int index) const { return hasInput(index) ? facts_.typeOf(node_.input(index)) : 0; }
    int outputType(int index) const { return facts_.typeOf(node_.output(index)); }

 private:
    const onnx::TensorProto* constant(int index) const;

    const onnx::NodeProto& node_;
    const GraphFacts& facts_;
};

}  // namespace TarnoMirelo::OpenCv
