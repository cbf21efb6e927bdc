#include "onnx_file.h"

#include "engine_limits.h"
#include "onnx_node.h"

#include <TarnoMirelo/status.h>

#include <algorithm>
#include <array>
#include <limits>
#include <onnx/defs/schema.h>
#include <onnx/onnx_pb.h>
#include <onnx/shape_inference/implementation.h>
#include <string_view>

namespace TarnoMirelo::OpenCv {
namespace {

bool isOnnxDomain(const std::string& domain) { return domain.empty() || domain == "ai.onnx"; }

onnx::ModelProto parse(const char* bytes, size_t size) {
    onnx::ModelProto model;
    if (size > static_cast<size_t>(std::numeric_limits<int>::max()) ||
        !model.ParseFromArray(bytes, static_cast<int>(size)) || !model.has_graph()) {
        throw ModelMetaDataException("the file holds no ONNX network, or only a part of one");
    }
    return model;
}

int operatorSetOf(const onnx::ModelProto& model) {
    if (model.opset_import().empty()) {
        throw ModelMetaDataException(
            "the file holds no ONNX network, or only a part of one: no version of its operators");
    }
    for (const auto& set : model.opset_import()) {
        if (isOnnxDomain(set.domain())) return static_cast<int>(set.version());
    }
    return 0;  // none of them is used
}

// What the types of values are told by. A network that can't be inferred is left as it was: its nodes are judged by
// what it declares.
void inferTypes(onnx::ModelProto& model) {
    onnx::ModelProto inferred = model;
    try {
        onnx::shape_inference::InferShapes(inferred);
    } catch (const std::exception&) {
        return;
    }
    model = std::move(inferred);
}

GraphFacts factsOf(const onnx::GraphProto& graph, int operatorSet) {
    GraphFacts facts;
    facts.operatorSet = operatorSet;
    for (const auto* const values : {&graph.value_info(), &graph.input(), &graph.output()}) {
        for (const onnx::ValueInfoProto& value : *values) facts.types.emplace(value.name(), &value.type());
    }
    for (const onnx::TensorProto& constant : graph.initializer()) facts.constants.emplace(constant.name(), &constant);
    for (const onnx::NodeProto& node : graph.node()) {
        if (node.op_type() != "Constant") continue;
        for (const onnx::AttributeProto& attribute : node.attribute()) {
            if (attribute.name() == "value") facts.constants.emplace(node.output(0), &attribute.t());
        }
    }
    for (const onnx::NodeProto& node : graph.node()) {  // a node comes after those that it takes its inputs from
        if (node.input_size() == 0 || OnnxNode(node, facts).hasVariableInput()) continue;
        facts.computedConstants.insert(node.output().begin(), node.output().end());
    }
    return facts;
}

// Nodes needn't have names; outputs do.
std::string nameOf(const onnx::NodeProto& node) {
    const bool byOutput = node.name().empty() && node.output_size() > 0;
    return "Node \"" + (byOutput ? node.output(0) : node.name()) + "\" (" + node.op_type() + ")";
}

[[noreturn]] void refuseConstant(const std::string& name, const std::string& found, const char* wanted) {
    throw ModelMetaDataException("Constant \"" + name + "\": it " + found + ", wanted is " + wanted);
}

// The engine has no other types, and takes elements of type uint8 for int8.
bool isReadable(const onnx::TensorProto& constant) {
    switch (constant.data_type()) {
        case onnx::TensorProto::FLOAT:
        case onnx::TensorProto::INT32:
        case onnx::TensorProto::INT64:
        case onnx::TensorProto::INT8:
            return true;
        case onnx::TensorProto::DOUBLE:
            return constant.double_data_size() > 0;  // it looks nowhere else
        default:
            return false;
    }
}

void checkConstants(const onnx::GraphProto& graph) {
    for (const onnx::TensorProto& constant : graph.initializer()) {
        const std::string& name = constant.name();
        if (constant.data_location() == onnx::TensorProto::EXTERNAL) {
            refuseConstant(name, "lies in a file of its own", "one in the network's file");
        }
        if (!isReadable(constant)) {
            const auto type = static_cast<onnx::TensorProto::DataType>(constant.data_type());
            refuseConstant(name, "has elements of type " + onnx::TensorProto::DataType_Name(type),
                           "FLOAT, INT8, INT32 or INT64");
        }
    }
    if (graph.sparse_initializer_size() > 0) {
        refuseConstant(graph.sparse_initializer(0).values().name(), "is sparse", "a dense one");
    }
}

// The engine takes a shape of one dimension for one of two, so it may not count from the end.
void countAxisFromStart(onnx::NodeProto& node, const GraphFacts& facts) {
    for (onnx::AttributeProto& attribute : *node.mutable_attribute()) {
        if (attribute.name() != "axis" || attribute.i() >= 0) continue;
        const auto shape = OnnxNode(node, facts).inputShape(0);
        if (shape) attribute.set_i(attribute.i() + static_cast<int64_t>(shape->size()));
    }
}

// The engine takes some attributes that are left out for other values than ONNX does.
void writeDefaults(onnx::NodeProto& node, const onnx::OpSchema& schema) {
    for (const auto& [name, attribute] : schema.attributes()) {
        if (!attribute.default_value.has_name()) continue;
        const auto isIt = [&name = name](const onnx::AttributeProto& given) { return given.name() == name; };
        if (std::any_of(node.attribute().begin(), node.attribute().end(), isIt)) continue;
        *node.add_attribute() = attribute.default_value;
    }
}

// The engine takes the size of a kernel from the attribute alone, which may be left out.
void writeKernelShape(onnx::NodeProto& node, const GraphFacts& facts) {
    const OnnxNode looked(node, facts);
    const auto weights = looked.hasInput(1) ? looked.inputShape(1) : std::nullopt;
    if (looked.attribute("kernel_shape") != nullptr || !weights || weights->size() < 3) return;
    onnx::AttributeProto& kernel = *node.add_attribute();
    kernel.set_name("kernel_shape");
    kernel.set_type(onnx::AttributeProto::INTS);
    for (size_t i = 2; i < weights->size(); ++i) kernel.add_ints((*weights)[i]);
}

// Of the operators whose axis is one of the first input's.
constexpr std::array<std::string_view, 6> kWithAxis = {"Concat", "Flatten", "Gather", "LogSoftmax", "Softmax", "Split"};

}  // namespace

OnnxFile readOnnxFile(const char* bytes, size_t size) {
    const onnx::ModelProto original = parse(bytes, size);
    const int operatorSet = operatorSetOf(original);
    checkConstants(original.graph());
    onnx::ModelProto inferred = original;
    inferTypes(inferred);
    const onnx::GraphProto& graph = inferred.graph();
    const GraphFacts facts = factsOf(graph, operatorSet);

    OnnxFile file;
    onnx::ModelProto repaired = original;
    for (onnx::NodeProto& node : *repaired.mutable_graph()->mutable_node()) {
        if (node.output_size() > 0) file.nodes.emplace(node.output(0), nameOf(node));
        const auto* const schema =
            isOnnxDomain(node.domain()) ? onnx::OpSchemaRegistry::Schema(node.op_type(), operatorSet, "") : nullptr;
        if (schema == nullptr) {
            file.customOperators.insert((isOnnxDomain(node.domain()) ? "" : node.domain() + ".") + node.op_type());
            continue;
        }
        writeDefaults(node, *schema);
        if (std::ranges::find(kWithAxis, node.op_type()) != kWithAxis.end()) countAxisFromStart(node, facts);
        if (node.op_type() == "Conv" || node.op_type() == "ConvTranspose") writeKernelShape(node, facts);
        const EngineLimit* const limit = limitOf(OnnxNode(node, facts));
        if (limit != nullptr) throw ModelMetaDataException(nameOf(node) + ": " + limit->reason);
    }
    file.repaired = repaired.SerializeAsString();
    for (const auto& input : graph.input()) {
        if (facts.constants.count(input.name()) == 0)
            file.inputs.push_back({input.name(), facts.shapeOf(input.name())});
    }
    return file;
}

}  // namespace TarnoMirelo::OpenCv
