#include "onnx_file.h"

#include "engine_limits.h"
#include "onnx_node.h"

#include <TarnoMirelo/status.h>

#include <algorithm>
#include <limits>
#include <onnx/defs/schema.h>
#include <onnx/onnx_pb.h>
#include <onnx/shape_inference/implementation.h>
#include <unordered_set>

namespace TarnoMirelo::OpenCv {
namespace {

constexpr char kNoNetwork[] = "the file holds no ONNX network, or only a part of one";

bool isOnnxDomain(const std::string& domain) { return domain.empty() || domain == "ai.onnx"; }

onnx::ModelProto parse(const char* bytes, size_t size) {
    onnx::ModelProto model;
    if (size > static_cast<size_t>(std::numeric_limits<int>::max()) ||
        !model.ParseFromArray(bytes, static_cast<int>(size)) || !model.has_graph() || model.opset_import().empty()) {
        throw ModelMetaDataException(kNoNetwork);
    }
    return model;
}

// Nodes needn't have names; outputs do.
std::string nameOf(const onnx::NodeProto& node) {
    const auto output = std::ranges::find_if_not(node.output(), &std::string::empty);
    const bool byOutput = node.name().empty() && output != node.output().end();
    return "Node \"" + (byOutput ? *output : node.name()) + "\" (" + node.op_type() + ")";
}

int operatorSetOf(const onnx::ModelProto& model) {
    const auto& sets = model.opset_import();
    const auto set = std::ranges::find_if(sets, isOnnxDomain, &onnx::OperatorSetIdProto::domain);
    const int64_t version = set == sets.end() ? 0 : set->version();
    if (version >= 1 && version <= std::numeric_limits<int>::max()) return static_cast<int>(version);
    const auto node = std::ranges::find_if(model.graph().node(), isOnnxDomain, &onnx::NodeProto::domain);
    if (node == model.graph().node().end()) return 1;  // of which none is used
    throw ModelMetaDataException(nameOf(*node) + ": the network's version of ONNX's operators is " +
                                 std::to_string(version) + ", wanted is one from 1");
}

const onnx::OpSchema* schemaOf(const onnx::NodeProto& node, int operatorSet) {
    return isOnnxDomain(node.domain()) ? onnx::OpSchemaRegistry::Schema(node.op_type(), operatorSet, "") : nullptr;
}

[[noreturn]] void refuseConstant(const std::string& name, const std::string& found, const std::string& wanted) {
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

// How many elements the data of a constant holds, of a readable type.
uint64_t countElements(const onnx::TensorProto& constant) {
    const bool isWide = constant.data_type() == onnx::TensorProto::INT64;
    if (constant.has_raw_data()) {
        const uint64_t width = isWide ? 8 : constant.data_type() == onnx::TensorProto::INT8 ? 1 : 4;
        return constant.raw_data().size() % width == 0 ? constant.raw_data().size() / width : 0;
    }
    if (constant.data_type() == onnx::TensorProto::FLOAT) return static_cast<uint64_t>(constant.float_data_size());
    if (constant.data_type() == onnx::TensorProto::DOUBLE) return static_cast<uint64_t>(constant.double_data_size());
    return static_cast<uint64_t>(isWide ? constant.int64_data_size() : constant.int32_data_size());
}

// Nothing where they can't be counted.
std::optional<uint64_t> countWanted(const onnx::TensorProto& constant) {
    uint64_t count = 1;
    for (const int64_t size : constant.dims()) {
        if (size < 0 || size > std::numeric_limits<int>::max()) return std::nullopt;
        count *= static_cast<uint64_t>(size);
        if (count > static_cast<uint64_t>(std::numeric_limits<int>::max())) return std::nullopt;
    }
    return count;
}

void checkConstant(const std::string& name, const onnx::TensorProto& constant) {
    if (constant.data_location() == onnx::TensorProto::EXTERNAL) {
        refuseConstant(name, "lies in a file of its own", "one in the network's file");
    }
    if (!isReadable(constant)) {
        const auto type = static_cast<onnx::TensorProto::DataType>(constant.data_type());
        refuseConstant(name, "has elements of type " + onnx::TensorProto::DataType_Name(type),
                       "FLOAT, INT8, INT32 or INT64");
    }
    const std::optional<uint64_t> wanted = countWanted(constant);
    if (!wanted) refuseConstant(name, "has a shape that can't be counted", "one of up to 2^31 - 1 elements");
    if (countElements(constant) != *wanted) {
        refuseConstant(name, "has data for another number of elements", "data for " + std::to_string(*wanted));
    }
}

void checkConstants(const onnx::GraphProto& graph) {
    for (const onnx::TensorProto& constant : graph.initializer()) checkConstant(constant.name(), constant);
    for (const onnx::NodeProto& node : graph.node()) {
        if (node.op_type() != "Constant") continue;
        for (const onnx::AttributeProto& attribute : node.attribute()) {
            if (attribute.name() == "value") checkConstant(node.output(0), attribute.t());
        }
    }
    if (graph.sparse_initializer_size() > 0) {
        refuseConstant(graph.sparse_initializer(0).values().name(), "is sparse", "a dense one");
    }
}

// Numbers that bring down the engine, or the inference of shapes.
void checkNode(const onnx::NodeProto& node) {
    const auto refuse = [&](const std::string& why) { throw ModelMetaDataException(nameOf(node) + ": " + why); };
    // The first one may be left out, as an LSTM's is whose last state alone is wanted.
    if (std::ranges::all_of(node.output(), &std::string::empty)) refuse("it has no output, wanted is one");
    for (const onnx::AttributeProto& attribute : node.attribute()) {
        if (attribute.has_g() || attribute.graphs_size() > 0) refuse("it holds a graph, which the engine can't run");
        const std::string& name = attribute.name();
        const auto isWrong = [](int64_t number) { return number < 1 || number > std::numeric_limits<int>::max(); };
        const bool isSize = name == "strides" || name == "dilations" || name == "kernel_shape";
        if ((isSize && std::ranges::any_of(attribute.ints(), isWrong)) || (name == "group" && isWrong(attribute.i()))) {
            refuse(name + " holds a number that is not from 1 to 2^31 - 1");
        }
    }
}

// The inference of shapes trusts that a node has the inputs, outputs and attributes of its operator.
void checkSchema(const onnx::NodeProto& node, int operatorSet) {
    const onnx::OpSchema* const schema = schemaOf(node, operatorSet);
    if (schema == nullptr) return;
    try {
        schema->Verify(node);
    } catch (const std::exception& exception) {
        throw ModelMetaDataException(nameOf(node) + ": " + exception.what());
    }
}

void checkNodes(const onnx::GraphProto& graph, int operatorSet) {
    std::unordered_set<std::string> empty;
    for (const onnx::TensorProto& constant : graph.initializer()) {
        if (std::ranges::find(constant.dims(), 0) != constant.dims().end()) empty.insert(constant.name());
    }
    for (const onnx::NodeProto& node : graph.node()) {
        checkNode(node);
        checkSchema(node, operatorSet);
        if (node.op_type() != "Conv" && node.op_type() != "ConvTranspose") continue;
        if (node.input_size() > 1 && empty.contains(node.input(1))) {
            throw ModelMetaDataException(nameOf(node) + ": its weights are empty");
        }
    }
}

// The engine settles some sizes while it reads the network, and takes 1 for those that are open then.
// @param first  whether the first dimension is settled, too, where the target has one row
void writeShapes(onnx::GraphProto& graph, const ModelTarget& target, bool first) {
    for (const ModelFeatureDescriptor& descriptor : target.inputs) {
        const auto input = std::ranges::find(*graph.mutable_input(), descriptor.name(), &onnx::ValueInfoProto::name);
        const TensorShape shape = descriptor.tensorDescriptor().shape();
        if (input == graph.mutable_input()->end() || !input->type().tensor_type().has_shape()) continue;
        auto& dimensions = *input->mutable_type()->mutable_tensor_type()->mutable_shape()->mutable_dim();
        if (static_cast<uint64_t>(dimensions.size()) != shape.dimension()) continue;
        for (int i = 0; i < dimensions.size(); ++i) {
            const int64_t size = shape[static_cast<uint64_t>(i)];
            const bool isOpenRow = i == 0 && size == 1 && !first;
            if (!dimensions[i].has_dim_value() && size > 0 && !isOpenRow) dimensions[i].set_dim_value(size);
        }
    }
}

bool hasOneRow(const ModelTarget& target) {
    return std::ranges::all_of(target.inputs, [](const ModelFeatureDescriptor& descriptor) {
        const TensorShape shape = descriptor.tensorDescriptor().shape();
        return shape.dimension() > 0 && shape[0] == 1;
    });
}

// Infers the types and shapes of all values for as long as it lives. What the file says of values in between, and of
// the shapes of outputs, is not believed: it may be of another time. Of a network that can't be inferred nothing is
// known.
class Inference {
 public:
    explicit Inference(onnx::ModelProto& model) : graph_(*model.mutable_graph()), outputs_(graph_.output()) {
        graph_.mutable_value_info()->Swap(&declared_);
        for (onnx::ValueInfoProto& output : *graph_.mutable_output()) {
            if (output.type().has_tensor_type()) output.mutable_type()->mutable_tensor_type()->clear_shape();
        }
        try {
            onnx::shape_inference::InferShapes(model);
        } catch (const std::exception&) {
            graph_.clear_value_info();
        }
    }
    Inference(const Inference&) = delete;
    Inference& operator=(const Inference&) = delete;
    ~Inference() {
        graph_.mutable_value_info()->Swap(&declared_);
        graph_.mutable_output()->Swap(&outputs_);
    }

 private:
    onnx::GraphProto& graph_;
    google::protobuf::RepeatedPtrField<onnx::ValueInfoProto> declared_;
    google::protobuf::RepeatedPtrField<onnx::ValueInfoProto> outputs_;
};

// The engine takes other values than ONNX does for some attributes that are left out.
void writeDefaults(onnx::NodeProto& node, const onnx::OpSchema& schema) {
    for (const auto& [name, attribute] : schema.attributes()) {
        if (!attribute.default_value.has_name()) continue;
        if (std::ranges::find(node.attribute(), name, &onnx::AttributeProto::name) == node.attribute().end()) {
            *node.add_attribute() = attribute.default_value;
        }
    }
}

// The engine takes a shape of one dimension for one of two, so it may not count from the end.
void countAxesFromStart(onnx::NodeProto& node, const GraphFacts& facts) {
    const auto shape = OnnxNode(node, facts).inputShape(0);
    if (!shape || node.op_type() == "OneHot") return;  // whose axis is one of the result
    const auto count = static_cast<int64_t>(shape->size());
    for (onnx::AttributeProto& attribute : *node.mutable_attribute()) {
        if (attribute.name() == "axis" && attribute.i() < 0) attribute.set_i(attribute.i() + count);
        if (attribute.name() != "axes") continue;
        const int64_t added = node.op_type() == "Unsqueeze" ? attribute.ints_size() : 0;  // axes of the result
        for (int64_t& axis : *attribute.mutable_ints()) {
            if (axis < 0) axis += count + added;
        }
        const bool isOrdered = node.op_type() == "Slice";  // whose other attributes are in the same order
        if (!isOrdered) std::ranges::sort(*attribute.mutable_ints());
    }
}

// Written before shapes are inferred: the engine takes the size of a kernel from the attribute alone, and the inference
// reads beside it where the weights have not as many dimensions as the input.
void writeKernelShapes(onnx::GraphProto& graph, const GraphFacts& facts) {
    for (onnx::NodeProto& node : *graph.mutable_node()) {
        if (node.op_type() != "Conv" && node.op_type() != "ConvTranspose") continue;
        const bool isLeftOut = OnnxNode(node, facts).attribute("kernel_shape") == nullptr;
        if (!isLeftOut || schemaOf(node, facts.operatorSet) == nullptr) continue;
        const std::string& weights = node.input(1);
        const bool isDeclared = facts.constants.contains(weights) || facts.inputs.contains(weights);
        const auto shape = isDeclared ? facts.shapeOf(weights) : std::nullopt;
        if (!shape || shape->size() < 3) {
            throw ModelMetaDataException(nameOf(node) + ": kernel_shape is left out, and its weights don't tell it");
        }
        onnx::AttributeProto& kernel = *node.add_attribute();
        kernel.set_name("kernel_shape");
        kernel.set_type(onnx::AttributeProto::INTS);
        kernel.mutable_ints()->Add(shape->begin() + 2, shape->end());
    }
}

// Reversed where it is left out, which depends on the number of dimensions.
void writePermutation(onnx::NodeProto& node, const GraphFacts& facts) {
    const OnnxNode looked(node, facts);
    const auto shape = looked.inputShape(0);
    if (node.op_type() != "Transpose" || looked.attribute("perm") != nullptr || !shape) return;
    onnx::AttributeProto& permutation = *node.add_attribute();
    permutation.set_name("perm");
    permutation.set_type(onnx::AttributeProto::INTS);
    for (size_t i = shape->size(); i-- > 0;) permutation.add_ints(static_cast<int64_t>(i));
}

// Gives each node the weights that it takes for itself, for the engine inverts, transposes or scales some in place.
void separateWeights(onnx::GraphProto& graph) {
    std::unordered_map<std::string, int> uses;  // of weights that several inputs take
    const GraphFacts facts(graph, 0);
    for (const auto& [name, users] : facts.consumers) {
        const auto constant = facts.constants.find(name);
        if (users.size() < 2 || constant == facts.constants.end()) continue;
        const bool isNumber = countElements(*constant->second) == 1;  // which is read, and left as it is
        const int type = constant->second->data_type();
        const bool isFloat = type == onnx::TensorProto::FLOAT || type == onnx::TensorProto::DOUBLE;
        if (isFloat && !isNumber) uses.emplace(name, 0);
    }
    size_t bytes = graph.ByteSizeLong();
    for (onnx::NodeProto& node : *graph.mutable_node()) {
        for (std::string& input : *node.mutable_input()) {
            const auto found = uses.find(input);
            if (found == uses.end() || found->second++ == 0) continue;
            onnx::TensorProto copy = *facts.constants.at(input);
            do {
                copy.set_name(input + "/" + std::to_string(found->second++));
            } while (facts.hasValue(copy.name()));
            bytes += copy.ByteSizeLong();
            if (bytes > static_cast<size_t>(std::numeric_limits<int>::max())) {
                throw ModelMetaDataException(nameOf(node) +
                                             ": weights that several nodes take are too large to be copied");
            }
            input = copy.name();
            *graph.add_initializer() = std::move(copy);
        }
    }
}

void repair(onnx::ModelProto& model, int operatorSet) {
    separateWeights(*model.mutable_graph());
    writeKernelShapes(*model.mutable_graph(), GraphFacts(model.graph(), operatorSet));
    const Inference inference(model);
    const GraphFacts facts(model.graph(), operatorSet);
    for (onnx::NodeProto& node : *model.mutable_graph()->mutable_node()) {
        const onnx::OpSchema* const schema = schemaOf(node, operatorSet);
        if (schema == nullptr) continue;
        writeDefaults(node, *schema);
        countAxesFromStart(node, facts);
        writePermutation(node, facts);
    }
    model.clear_producer_name();  // the engine reads the networks of some exporters in another way
}

// The first node that the engine computes wrong, and why; empty where there is none.
std::string refusalOf(onnx::ModelProto& model, int operatorSet, OnnxFile& file) {
    const Inference inference(model);
    const GraphFacts facts(model.graph(), operatorSet);
    file.shapes.clear();
    for (const auto* const values : {&model.graph().value_info(), &model.graph().output()}) {
        for (const onnx::ValueInfoProto& value : *values) {
            if (auto shape = facts.shapeOf(value.name())) file.shapes.emplace(value.name(), std::move(*shape));
        }
    }
    for (const onnx::NodeProto& node : model.graph().node()) {
        if (!isOnnxDomain(node.domain())) continue;
        const OnnxNode looked(node, facts);
        file.fusesWrongly = file.fusesWrongly || isFusedWrongly(looked);
        const EngineLimit* const limit = limitOf(looked);
        if (limit != nullptr) return nameOf(node) + ": " + limit->reason;
    }
    return {};
}

}  // namespace

OnnxFile readOnnxFile(const char* bytes, size_t size, const ModelTarget& target) {
    onnx::ModelProto model = parse(bytes, size);
    const int operatorSet = operatorSetOf(model);
    checkNodes(model.graph(), operatorSet);
    checkConstants(model.graph());
    OnnxFile file;
    for (const onnx::NodeProto& node : model.graph().node()) {
        for (const std::string& output : node.output()) file.nodes.emplace(output, nameOf(node));
        if (schemaOf(node, operatorSet) == nullptr) {
            file.customOperators.insert((isOnnxDomain(node.domain()) ? "" : node.domain() + ".") + node.op_type());
        }
    }
    writeShapes(*model.mutable_graph(), target, false);
    repair(model, operatorSet);
    std::string refusal = refusalOf(model, operatorSet, file);
    if (!refusal.empty() && hasOneRow(target)) {  // some are right for one row
        writeShapes(*model.mutable_graph(), target, true);
        refusal = refusalOf(model, operatorSet, file);
    }
    if (!refusal.empty()) throw ModelMetaDataException(refusal);
    const GraphFacts facts(model.graph(), operatorSet);
    for (const auto& input : model.graph().input()) {
        if (facts.inputs.contains(input.name())) file.inputs.push_back({input.name(), facts.shapeOf(input.name())});
    }
    file.repaired = Kit::SecretBytes(model.ByteSizeLong());
    if (!model.SerializeToArray(file.repaired.data(), static_cast<int>(file.repaired.size()))) {
        throw ModelMetaDataException("the network takes 2 GiB or more, which can't be handed to the engine");
    }
    return file;
}

}  // namespace TarnoMirelo::OpenCv
