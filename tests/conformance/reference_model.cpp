#include "reference_model.h"

#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/components.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <thread>

namespace TarnoMirelo {
namespace {

MireloStatus success() { return {SUCCESS, ""}; }
MireloStatus notLoaded() { return {INVALID_OPERATION, "The model is not loaded"}; }
MireloStatus stranger() { return {INVALID_OPERATION, "What was bound has moved, or belongs to another load"}; }

// The bytes of the first field of that number in a protobuf message, if the lengths of all fields add up.
std::optional<std::string_view> fieldOf(std::string_view message, uint64_t wanted) {
    std::optional<std::string_view> found;
    const auto number = [&message](uint64_t& value) {
        value = 0;
        for (int shift = 0; shift < 63 && !message.empty(); shift += 7) {
            const auto byte = static_cast<uint8_t>(message.front());
            message.remove_prefix(1);
            value |= static_cast<uint64_t>(byte & 127) << shift;
            if (byte < 128) return true;
        }
        return false;
    };
    while (!message.empty()) {
        uint64_t key = 0;
        uint64_t size = 0;
        if (!number(key) || !number(size)) return std::nullopt;
        if ((key & 7) == 0) continue;  // a number, which is read by now
        if ((key & 7) != 2 || size > message.size()) return std::nullopt;
        if (key >> 3 == wanted && !found) found = message.substr(0, size);
        message.remove_prefix(size);
    }
    return found;
}

// The name of the graph in an ONNX file.
std::optional<std::string> graphName(std::string_view file) {
    const auto graph = fieldOf(file, 7);
    const auto name = graph ? fieldOf(*graph, 2) : std::nullopt;
    return name ? std::optional<std::string>(*name) : std::nullopt;
}

struct PortNames {
    std::vector<std::string> inputs, outputs;
};

// The one input of the suite's networks that has a default.
constexpr char kOptional[] = "offset";

// What the networks of the suite call their inputs and outputs.
const PortNames& portNamesOf(const std::string& graph) {
    static const std::map<std::string, PortNames> names = {
        {"identity", {{"source"}, {"copy"}}},
        {"sum", {{"left", "right"}, {"sum"}}},
        {"two_outputs", {{"image"}, {"positive", "squashed"}}},
        {"variable_shape", {{"table"}, {"positive"}}},
        {"int64", {{"numbers"}, {"doubled"}}},
        {"lstm", {{"steps"}, {"hidden"}}},
        {"optional_input", {{"values", "offset"}, {"moved"}}},
        {"gemm", {{"vector"}, {"product"}}},
    };
    return names.at(graph);
}

std::string nameOf(const MireloFeature& feature) { return feature.featureDescriptor().name(); }

std::shared_ptr<MireloFeatureTensor> feature(const std::string& name, std::shared_ptr<ITensor> tensor) {
    const ModelFeatureDescriptor descriptor(MireloFeatureType::Tensor, true, name, "", TensorDescriptor());
    return std::make_shared<MireloFeatureTensor>(descriptor, std::move(tensor));
}

// The tensor of a feature; null where there is none.
template <typename Feature>
auto tensorOf(const std::shared_ptr<Feature>& feature) -> decltype(feature->asTensor()) {
    if (feature == nullptr || feature->type() != MireloFeatureType::Tensor) return nullptr;
    return feature->asTensor();
}

template <typename Element>
std::vector<Element> elementsOf(const ITensor& tensor) {
    std::vector<Element> elements(static_cast<size_t>(tensor.shape().size()));
    if (!elements.empty()) std::memcpy(elements.data(), tensor.buffer(), elements.size() * sizeof(Element));
    return elements;
}

template <typename Element>
std::vector<uint8_t> bytesOf(const std::vector<Element>& elements) {
    const auto* const first = reinterpret_cast<const uint8_t*>(elements.data());
    return {first, first + elements.size() * sizeof(Element)};
}

using Floats = std::vector<float>;

Floats floatsOf(const ITensor& tensor) {
    if (tensor.dataType() == DataType::Float) return elementsOf<float>(tensor);
    if (tensor.dataType() == DataType::Double) {
        const std::vector<double> numbers = elementsOf<double>(tensor);
        return {numbers.begin(), numbers.end()};
    }
    const std::vector<int32_t> numbers = elementsOf<int32_t>(tensor);
    Floats floats;
    for (const int32_t number : numbers) floats.push_back(static_cast<float>(number));
    return floats;
}

template <typename Work>
Floats each(Floats floats, const Work& work) {
    for (float& element : floats) element = work(element);
    return floats;
}

float sigmoid(float x) { return 1 / (1 + std::exp(-x)); }

// One unit with weights of 1; each element is a step.
Floats lstm(Floats steps) {
    float h = 0;
    float c = 0;
    for (float& step : steps) {
        const float gate = sigmoid(step + h);
        c = gate * c + gate * std::tanh(step + h);
        h = gate * std::tanh(c);
        step = h;
    }
    return steps;
}

// Whether somebody else is in there at the same time.
class Overlap {
 public:
    explicit Overlap(std::mutex& mutex) : lock_(mutex, std::try_to_lock) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    explicit operator bool() const { return !lock_.owns_lock(); }

 private:
    std::unique_lock<std::mutex> lock_;
};

std::mutex oneEngine;
std::atomic<uint64_t> memoryOfAllModels{0};
std::list<std::vector<uint8_t>> lentMemory;

}  // namespace

struct ReferenceModel::Network {
    explicit Network(std::string graph, uint64_t size, const ModelTarget& target)
        : name(std::move(graph)), bytes(size), inputs(target, Kit::ElementTypes::Any), outputs(target) {
        for (const ModelFeatureDescriptor& input : target.inputs)
            types.push_back(input.tensorDescriptor().tensorType());
    }

    std::string name;
    uint64_t bytes;
    Kit::InputPorts inputs;
    Kit::OutputPorts outputs;
    std::vector<DataType> types;  // of the inputs, as declared
};

struct ReferenceModel::Computed {
    Kit::Result asResult() const { return {type, shape, bytes.data()}; }

    DataType type;
    TensorShape shape;
    std::vector<uint8_t> bytes;
};

struct ReferenceModel::Bound : MireloBinding {
    const MireloModel* model = nullptr;
    std::shared_ptr<Network> network;
    Kit::InputTensors inputs;
    Kit::OutputTensors outputs;
    Kit::BoundTensors tensors;
    std::vector<Computed> computed;                      // of ComputesAtBind
    std::vector<std::weak_ptr<const ITensor>> borrowed;  // of BorrowsBoundTensors
    bool wasEvaluated = false;
};

ReferenceModel::ReferenceModel(const std::string& name, const std::shared_ptr<Device>& device, Traits traits,
                               Fault fault)
    : MireloModel(name, device), traits_(traits), fault_(fault) {}
ReferenceModel::~ReferenceModel() {
    if (network_ != nullptr) memoryOfAllModels -= network_->bytes;
}

MireloStatus ReferenceModel::read(ModelComponent component, std::shared_ptr<Network>& network) const {
    if (has(Fault::ReadsMemoryFromFile)) component.type = ComponentKind::File;
    if (has(Fault::TakesEveryKind) && component.type != ComponentKind::File) {
        component.type = ComponentKind::MemoryStream;
    }
    Kit::ComponentBytes bytes;
    std::vector<uint8_t> followed;
    MireloStatus status;
    if (has(Fault::FollowsEveryPath) && component.type == ComponentKind::File) {
        const bool isAbsolute = component.path.find_first_of("/:") < 3 && component.path[0] != '.';
        Filepath path = isAbsolute ? Filepath(component.path) : Filepath(getRootDir()).append(Filepath(component.path));
        followed = FileUtils().readBinaryFileToByteVector(path);
        bytes = Kit::ComponentBytes(followed.data(), followed.size());
        status = followed.empty() ? MireloStatus(FILE_ERROR, component.name) : success();
    } else {
        status = Kit::readComponent(component, getRootDir(), bytes);
    }
    if (has(Fault::TakesMissingFileForMetadata) && status.getCode() == FILE_ERROR) status.setCode(MODEL_METADATA_ERROR);
    if (!status.ok()) return status;
    auto name = graphName({reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(bytes.size())});
    if (!name && has(Fault::TakesDamagedFiles)) name = "identity";
    if (!name) return {MODEL_METADATA_ERROR, "Component \"" + component.name + "\": it holds no ONNX network"};
    ModelTarget target = getModelTarget();
    for (ModelFeatureDescriptor& output : target.outputs) {
        if (!has(Fault::TrustsTheNetwork)) break;
        const std::vector<int64_t> open(output.tensorDescriptor().shape().dimension(), -1);
        output = {MireloFeatureType::Tensor, true, output.name(), "", TensorDescriptor(open, DataType::Undefined)};
    }
    const PortNames& names = portNamesOf(*name);
    for (const auto& [known, declared] :
         {std::pair(&names.inputs, &target.inputs), std::pair(&names.outputs, &target.outputs)}) {
        for (const ModelFeatureDescriptor& port : *declared) {
            if (std::find(known->begin(), known->end(), port.name()) != known->end()) continue;
            if (has(Fault::TakesOtherNames)) continue;
            return {MODEL_METADATA_ERROR, "Component \"" + component.name +
                                              "\": the network has nothing of the name \"" + port.name() + "\""};
        }
    }
    for (const ModelFeatureDescriptor& input : target.inputs) {
        if (input.required() || input.name() == kOptional || has(Fault::AnswersNothing)) continue;
        return {MODEL_METADATA_ERROR, "Input \"" + input.name() + "\": it is optional, but the network needs it"};
    }
    network = std::make_shared<Network>(*name, bytes.size(), target);
    return status;
}

MireloStatus ReferenceModel::onLoad(const std::vector<ModelComponent>& components) try {
    if (has(Fault::KeepsFirstNetwork) && network_ != nullptr) return success();
    std::shared_ptr<Network> loaded;
    MireloStatus status = read(components.front(), loaded);
    if (!status.ok() && has(Fault::KeepsNetworkOfFailedLoad)) return status;
    if (network_ != nullptr) memoryOfAllModels -= network_->bytes;
    if (loaded != nullptr) memoryOfAllModels += loaded->bytes;
    network_ = std::move(loaded);
    lastOutputs_.clear();
    if (!has(Fault::KeepsBatchSize)) rows_ = 1;
    if (status.ok() || !has(Fault::KeepsReportOfFailedLoad)) report(true);
    return status;
} catch (...) {
    return getStatusFromCurrentException();
}

MireloStatus ReferenceModel::onUnload() {
    if (has(Fault::RefusesSecondUnload) && network_ == nullptr) return notLoaded();
    if (network_ != nullptr) memoryOfAllModels -= network_->bytes;
    network_.reset();
    for (std::vector<uint8_t>& lent : lentMemory) std::fill(lent.begin(), lent.end(), uint8_t{0});
    if (has(Fault::ClearsRecord) && runtimeRecord() != nullptr) runtimeRecord()->setCurrentMemoryConsumption(0);
    report(true);
    return success();
}

MireloStatus ReferenceModel::onSetBatchSize(const unsigned int& batchSize) {
    if (!traits_.setsBatchSize) {
        return {NOT_IMPLEMENTED, has(Fault::SaysNothingOfBatchSize) ? "" : "One row at a time"};
    }
    if (network_ == nullptr) return notLoaded();
    if (batchSize == 0 && has(Fault::TakesBatchSizeOfZero)) return success();
    if (batchSize == 0) return {INVALID_ARGUMENTS, "A batch can't have 0 rows"};
    rows_ = batchSize;
    return success();
}

void ReferenceModel::report(bool isLoad) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::shared_ptr<ModelRuntimeStatus>& record = runtimeRecord();
    if (has(Fault::ReportsAtLoadOnly) && !isLoad) return;
    if (has(Fault::ReportsOnce) && hasReported_ && network_ != nullptr) return;
    hasReported_ = record != nullptr && network_ != nullptr;
    if (has(Fault::AddsWithEachLoad) && record != nullptr && isLoad && network_ != nullptr) {
        record->addCurrentMemoryConsumption(network_->bytes);
    }
    if (has(Fault::HoldsItself) && !isLoad) self_ = shared_from_this();
    const uint64_t own = network_ == nullptr ? 0 : network_->bytes + added_;
    reporter_.report(record, has(Fault::ReportsOfAllModels) ? memoryOfAllModels.load() : own);
}

MireloModel::Inputs ReferenceModel::tampered(const Inputs& inputs, bool inBatch) const {
    Inputs made;
    const Kit::InputPorts& ports = network_->inputs;
    for (const auto& given : inputs) {
        if (given == nullptr && has(Fault::IgnoresNullInput)) continue;
        const std::optional<size_t> index = given == nullptr ? std::nullopt : ports.find(nameOf(*given));
        if (!index && given != nullptr && has(Fault::IgnoresUnknownInput)) continue;
        if (has(Fault::RaisesForKind) && given != nullptr) given->asTensor();
        const auto tensor = tensorOf(given);
        if (!index || tensor == nullptr) {
            made.push_back(given);
            continue;
        }
        const Kit::Ports::Port& port = ports[*index];
        const auto isSame = [&](const auto& other) { return other != nullptr && nameOf(*other) == port.name; };
        if (has(Fault::TakesLastOfTwoInputs)) made.erase(std::remove_if(made.begin(), made.end(), isSame), made.end());
        const auto copy = [&](const TensorShape& shape) {  // as it is, in host memory and of that shape
            auto own = std::make_shared<Tensor>(tensor->dataType(), shape);
            if (tensor->buffer() != nullptr)
                std::memcpy(own->buffer(), tensor->buffer(), static_cast<size_t>(own->bytes()));
            return feature(port.name, own);
        };
        const TensorShape& shape = tensor->shape();
        const DataType type = network_->types[*index];
        const bool hasOtherShape = !Kit::fits(shape, port.shape);
        const bool hasOtherRank = shape.dimension() != port.shape.dimension();
        if ((has(Fault::ChecksFirstInput) && &port != &ports[0] && hasOtherShape) ||
            (has(Fault::ChecksNoOptionalInput) && !port.required && hasOtherShape) ||
            (has(Fault::ReadsFloatsAsIntegers) && type == DataType::Int64 && tensor->dataType() != type) ||
            (has(Fault::ConvertsDoublesOfRows) && inBatch && tensor->dataType() == DataType::Double) ||
            (has(Fault::PadsRows) && inBatch && hasOtherShape && !hasOtherRank)) {
            made.push_back(feature(port.name, std::make_shared<Tensor>(type, port.shape)));
        } else if (has(Fault::ReshapesOpenInputs) && hasOtherRank && port.shape[0] == -1) {
            made.push_back(copy(TensorShape(1, shape.size())));
        } else if ((has(Fault::ReadsNoBuffer) && tensor->buffer() == nullptr) ||
                   (has(Fault::ReadsDeviceMemory) && tensor->onDevice())) {
            made.push_back(copy(shape));
        } else if (has(Fault::ReshapesInputs) && shape != port.shape && shape.size() == port.shape.size()) {
            made.push_back(copy(port.shape));
        } else if (has(Fault::GoesByOrder) && made.size() < ports.size() &&
                   given->type() == MireloFeatureType::Tensor) {
            const std::string name = ports[made.size()].name;
            made.push_back(feature(name, std::const_pointer_cast<ITensor>(tensor)));
        } else {
            made.push_back(given);
        }
    }
    for (const Kit::Ports::Port& port : ports) {
        const auto isSame = [&](const auto& given) { return given != nullptr && nameOf(*given) == port.name; };
        const bool isThere = std::any_of(made.begin(), made.end(), isSame);
        if (has(Fault::InventsMissingInput) && !isThere && port.required) {
            made.push_back(feature(port.name, std::make_shared<Tensor>(DataType::Float, port.shape)));
        }
    }
    return made;
}

// The outputs without those that a fault doesn't see.
MireloModel::Outputs ReferenceModel::tampered(const Inputs& inputs, const Outputs& outputs) const {
    Outputs made;
    const Kit::OutputPorts& ports = network_->outputs;
    for (const auto& given : outputs) {
        const std::optional<size_t> index = given == nullptr ? std::nullopt : ports.find(nameOf(*given));
        const Kit::Ports::Port* const port = index ? &ports[*index] : nullptr;
        const auto tensor = tensorOf(given);
        const auto isSame = [&](const auto& other) { return other != nullptr && nameOf(*other) == nameOf(*given); };
        const auto overlaps = [&](const auto& other) {
            const auto shared = tensorOf(other);
            return shared != nullptr && tensor->buffer() != nullptr && shared->buffer() == tensor->buffer();
        };
        const auto overlapsPartly = [&](const auto& other) {
            const auto shared = tensorOf(other);
            return shared != nullptr && tensor->buffer() != nullptr && shared->buffer() != nullptr &&
                   tensor->buffer() != shared->buffer() && tensor->buffer() < shared->buffer() + shared->bytes() &&
                   shared->buffer() < tensor->buffer() + tensor->bytes();
        };
        const bool isFixed = tensor != nullptr && tensor->buffer() != nullptr && !tensor->hasVariableShape();
        const bool ignored =
            given == nullptr                             ? has(Fault::IgnoresNullOutput)
            : port == nullptr                            ? has(Fault::IgnoresUnknownOutput)
            : given->type() != MireloFeatureType::Tensor ? has(Fault::IgnoresNumberAsOutput)
            : tensor == nullptr
                ? has(Fault::IgnoresOutputWithoutTensor)
                : (has(Fault::IgnoresSecondOutput) && std::any_of(made.begin(), made.end(), isSame)) ||
                      (has(Fault::IgnoresOutputOnDevice) && tensor->onDevice()) ||
                      (has(Fault::IgnoresOutputOfOtherType) && tensor->dataType() != port->dataType) ||
                      (has(Fault::IgnoresOutputOfOtherShape) && tensor->buffer() != nullptr &&
                       !Kit::fits(tensor->shape(), port->shape)) ||
                      (has(Fault::ChecksFirstOutput) && port != &ports[0] && isFixed &&
                       !Kit::fits(tensor->shape(), port->shape)) ||
                      (has(Fault::ChecksNoOpenOutput) && port->shape[0] == -1 && isFixed &&
                       tensor->shape() != tensorOf(inputs[0])->shape()) ||
                      (has(Fault::ComparesStartsWithInputs) &&
                       std::any_of(inputs.begin(), inputs.end(), overlapsPartly)) ||
                      (has(Fault::ComparesStartsOfOutputs) && std::any_of(made.begin(), made.end(), overlapsPartly)) ||
                      (has(Fault::IgnoresOutputOverInput) && std::any_of(inputs.begin(), inputs.end(), overlaps)) ||
                      (has(Fault::IgnoresOutputOverOutput) && std::any_of(made.begin(), made.end(), overlaps));
        if (!ignored) made.push_back(given);
        if (has(Fault::ShapesBeforeChecking) && tensor != nullptr && tensor->hasVariableShape()) {
            tensor->allocateShape(TensorShape(std::vector<int64_t>(tensor->shape().dimension(), 1)));
        }
    }
    return made;
}

// The results in the target's order.
std::vector<ReferenceModel::Computed> ReferenceModel::compute(const Network& network,
                                                              const Kit::InputTensors& inputs) const {
    const PortNames& names = portNamesOf(network.name);
    Kit::InputTensors arranged;
    for (size_t i = 0; i < names.inputs.size(); ++i) {
        const bool goesByPlace = has(Fault::TakesTargetsInputOrder) && inputs.front() != nullptr;
        const size_t place = goesByPlace ? i : network.inputs.find(names.inputs[i]).value_or(i);
        arranged.push_back(inputs[place]);
    }
    std::vector<Computed> found = computeAll(network, arranged);
    std::vector<Computed> results;
    for (size_t i = 0; i < network.outputs.size(); ++i) {
        const auto named = std::find(names.outputs.begin(), names.outputs.end(), network.outputs[i].name);
        const bool goesByPlace = has(Fault::TakesTargetsOutputOrder) || named == names.outputs.end();
        results.push_back(found[goesByPlace ? i : static_cast<size_t>(named - names.outputs.begin())]);
    }
    return results;
}

// The results in the network's order, of inputs in the network's.
std::vector<ReferenceModel::Computed> ReferenceModel::computeAll(const Network& network,
                                                                 const Kit::InputTensors& inputs) const {
    const ITensor& first = *inputs[0];
    TensorShape shape = first.shape();
    if (network.name == "int64") {
        std::vector<int64_t> numbers = elementsOf<int64_t>(first);
        for (int64_t& number : numbers) {
            if (has(Fault::ComputesInFloats)) number = static_cast<int64_t>(static_cast<double>(number));
            number *= 2;
        }
        return {{DataType::Int64, shape, bytesOf(numbers)}};
    }
    Floats x = has(Fault::ReinterpretsElements) ? elementsOf<float>(first) : floatsOf(first);
    const auto positive = [](float element) { return std::max(element, 0.0F); };
    std::vector<Computed> results;
    if (network.name == "two_outputs") {
        results.push_back({DataType::Float, shape, bytesOf(each(x, positive))});
        x = each(x, sigmoid);
    } else if (network.name == "sum") {
        const Floats y = floatsOf(*inputs[1]);
        for (size_t i = 0; i < x.size(); ++i) x[i] += 2 * y[i];
    } else if (network.name == "identity" && has(Fault::ClipsInfinities)) {
        x = each(x, [](float element) { return std::isinf(element) ? std::copysign(1.0F, element) : element; });
    } else if (network.name == "variable_shape") {
        x = each(x, positive);
    } else if (network.name == "lstm") {
        x = lstm(x);
        shape = TensorShape(shape[0], 1, 1, 1);
    } else if (network.name == "optional_input") {
        Floats offset = {10, 20, 30};
        if (has(Fault::IgnoresDefault)) offset = {0, 0, 0};
        if (inputs[1] != nullptr) offset = floatsOf(*inputs[1]);
        for (size_t i = 0; i < x.size(); ++i) x[i] += offset[i % 3];
    } else if (network.name == "gemm") {
        for (size_t i = 0; i < x.size(); i += 2) {
            const float a = x[i];
            const float b = x[i + 1];
            const bool transposed = has(Fault::TransposesWeights);
            x[i] = a + (transposed ? 2.0F : 3.0F) * b;
            x[i + 1] = (transposed ? 3.0F : 2.0F) * a + 4 * b;
        }
    }
    if (has(Fault::ReversesStack) && traits_.stacks && shape[0] > 1) std::reverse(x.begin(), x.end());
    results.push_back({DataType::Float, shape, bytesOf(x)});
    return results;
}

namespace {

// Of a network whose ports take every type: those that are declared, and integers for floats.
bool takes(DataType declared, DataType found, bool convertsAll) {
    if (found == declared) return true;
    return declared == DataType::Float && (found == DataType::Int32 || (convertsAll && found == DataType::Double));
}

MireloStatus checkTypes(const Kit::InputPorts& ports, const std::vector<DataType>& types,
                        const Kit::InputTensors& tensors, bool convertsAll) {
    for (size_t i = 0; i < tensors.size(); ++i) {
        if (tensors[i] == nullptr || takes(types[i], tensors[i]->dataType(), convertsAll)) continue;
        return {INVALID_TENSOR_DATA_TYPE, ports.about(i, "the element type is another one than declared")};
    }
    return success();
}

bool shareMemory(const MireloModel::Outputs& outputs) {
    std::set<const uint8_t*> buffers;
    return std::any_of(outputs.begin(), outputs.end(), [&](const auto& each) {
        const auto tensor = tensorOf(each);
        return tensor != nullptr && tensor->buffer() != nullptr && !buffers.insert(tensor->buffer()).second;
    });
}

bool lackBuffer(const MireloModel::Outputs& outputs) {
    return std::any_of(outputs.begin(), outputs.end(), [](const auto& each) {
        const auto tensor = tensorOf(each);
        return tensor != nullptr && tensor->buffer() == nullptr;
    });
}

}  // namespace

// Only where AnswersNothing has let such a target pass.
bool ReferenceModel::lacksInput(const Network& network, const Kit::InputTensors& tensors) {
    for (size_t i = 0; i < tensors.size(); ++i) {
        if (tensors[i] == nullptr && network.inputs[i].name != kOptional) return true;
    }
    return false;
}

// Into memory of the model, and what is there when another call has had its time.
Kit::InputTensors ReferenceModel::throughScratch(const Kit::InputTensors& tensors) const {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        scratch_ = tensors;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const std::lock_guard<std::mutex> lock(mutex_);
    return scratch_;
}

MireloStatus ReferenceModel::run(const Inputs& given, Outputs& outputs, int64_t rows) const {
    if (network_ == nullptr) return has(Fault::AnswersUnloaded) ? success() : notLoaded();
    std::optional<Overlap> overlap;
    if (has(Fault::SharesOneEngine)) overlap.emplace(oneEngine);
    if (has(Fault::RefusesOverlap)) overlap.emplace(mutex_);
    if (overlap && *overlap) return {INVALID_OPERATION, "busy"};
    overlap.reset();

    const Network& network = *network_;
    const Inputs inputs = tampered(given, false);
    Outputs into = tampered(inputs, outputs);
    if (has(Fault::TakesNoTensorForOperation)) {
        for (const auto& each : inputs) {
            if (each != nullptr && each->type() == MireloFeatureType::Tensor && each->asTensor() == nullptr) {
                return {INVALID_OPERATION, "No tensor in " + nameOf(*each)};
            }
        }
    }
    if (has(Fault::WantsAllOutputs) && !into.empty() && into.size() != network.outputs.size()) {
        return {INVALID_ARGUMENTS, "All outputs are wanted"};
    }
    if (has(Fault::WantsBuffers) && lackBuffer(into)) return {INVALID_ARGUMENTS, "Buffers are wanted"};
    if (has(Fault::WipesOutputsFirst)) {
        for (const auto& each : into) {
            const auto tensor = tensorOf(each);
            if (tensor != nullptr && tensor->buffer() != nullptr)
                std::memset(tensor->buffer(), 0, static_cast<size_t>(tensor->bytes()));
        }
    }
    if (has(Fault::IgnoresBatchSize)) {
        const auto tensor = inputs.empty() ? nullptr : tensorOf(inputs[0]);
        if (tensor != nullptr && tensor->shape().dimension() > 1) rows = tensor->shape()[0];
    }
    Kit::InputTensors tensors;
    MireloStatus status = network.inputs.arrange(inputs, rows, tensors);
    if (status.ok()) {
        status = checkTypes(network.inputs, network.types, tensors, has(Fault::ConvertsEveryType));
    }
    if (!status.ok()) return status;
    if (has(Fault::RefusesVariableInputs)) {
        for (size_t i = 0; i < tensors.size(); ++i) {
            if (tensors[i] == nullptr || !tensors[i]->hasVariableShape()) continue;
            return {INVALID_SHAPE, network.inputs.about(i, "the shape is variable, wanted is a fixed one")};
        }
    }
    if (lacksInput(network, tensors)) return success();
    if (has(Fault::SharesScratch)) tensors = throughScratch(tensors);
    std::vector<Computed> computed = compute(network, tensors);
    if (has(Fault::FillsFirstRow) && !into.empty()) {
        std::vector<uint8_t>& bytes = computed[0].bytes;
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size()) / rows, bytes.end(), uint8_t{0});
    }
    if (has(Fault::RemembersInputs)) {
        if (lastInput_ == tensors[0].get()) computed = lastResults_;
        lastInput_ = tensors[0].get();
        lastResults_ = computed;
    }
    std::vector<Kit::Result> results;
    for (const Computed& result : computed) results.push_back(result.asResult());
    if (has(Fault::ReusesNewOutputs) && into.empty() && !lastOutputs_.empty()) into = lastOutputs_;
    if (has(Fault::ReplacesOutputs)) into.clear();
    const bool makesOutputs = into.empty();
    status = Kit::writeOutputs(network.inputs, tensors, network.outputs, results, rows, into);
    if (!status.ok()) return status;
    if (has(Fault::ReusesNewOutputs) && makesOutputs) lastOutputs_ = into;
    if (has(Fault::ReversesNewOutputs) && makesOutputs) std::reverse(into.begin(), into.end());
    if (has(Fault::LendsItsMemory) && makesOutputs) {
        for (size_t i = 0; i < into.size(); ++i) {
            lentMemory.push_back(computed[i].bytes);
            into[i] = feature(nameOf(*into[i]), std::make_shared<BufferWrappedTensor>(
                                                    computed[i].type, computed[i].shape, lentMemory.back().data(),
                                                    lentMemory.back().size()));
        }
    }
    if (has(Fault::SortsOutputs)) {
        std::sort(outputs.begin(), outputs.end(), [&](const auto& one, const auto& other) {
            return network.outputs.find(nameOf(*one)) < network.outputs.find(nameOf(*other));
        });
    }
    if (outputs.empty() || has(Fault::ReplacesOutputs)) outputs = std::move(into);
    if (has(Fault::WritesIntoInputs) || (has(Fault::WritesIntoInputsForGiven) && !makesOutputs))
        const_cast<uint8_t*>(tensors[0]->buffer())[0] ^= 1;
    report();
    return status;
}

// A failure as a fault tells it.
MireloStatus ReferenceModel::told(MireloStatus status, const Outputs& before, Outputs& outputs) const {
    if (status.ok()) return status;
    if (has(Fault::NamesNothing)) status.setDescription("Something is wrong");
    if (has(Fault::SaysNothing)) status.setDescription("");
    if (has(Fault::ClearsOutputsOnFailure)) {
        outputs.clear();
    } else {
        outputs = before;
    }
    return status;
}

MireloStatus ReferenceModel::onPredict(const Inputs& inputs, Outputs& outputs) const {
    const auto predict = [&] {
        if (has(Fault::RaisesForKind)) return run(inputs, outputs, rows_);
        try {
            return run(inputs, outputs, rows_);
        } catch (...) {
            return getStatusFromCurrentException();
        }
    };
    const Outputs before = outputs;
    return told(predict(), before, outputs);
}

// Each row as it comes, without a look at the others.
MireloStatus ReferenceModel::runRows(const Inputs& inputs, Outputs& outputs) const {
    const size_t count = network_->outputs.size();
    MireloStatus status = success();
    size_t done = 0;
    for (const auto& row : MireloBatch(inputs).getFeatureSet().features) {
        if (has(Fault::RunsRowsCheckedAlone)) status = network_->inputs.check(row);
        if (!status.ok()) return status;
    }
    for (const auto& row : MireloBatch(inputs).getFeatureSet().features) {
        Outputs rowOutputs;
        for (size_t i = 0; i < count && done < outputs.size(); ++i) rowOutputs.push_back(outputs[done++]);
        if (!rowOutputs.empty() && has(Fault::RunsRowsCheckedAlone)) {  // into memory of its own first
            Outputs made;
            status = run(row, made, 1);
            for (size_t i = 0; status.ok() && i < count; ++i) {
                const auto tensor = tensorOf(rowOutputs[i]);
                std::memcpy(tensor->buffer(), made[i]->asTensor()->buffer(), static_cast<size_t>(tensor->bytes()));
            }
        } else {
            status = run(row, rowOutputs, 1);
        }
        if (!status.ok()) return status;
    }
    return status;
}

MireloStatus ReferenceModel::onPredictBatch(const Inputs& given, Outputs& outputs) const {
    if (network_ == nullptr) return notLoaded();
    const Network& network = *network_;
    if (has(Fault::StampsBatches) && !MireloBatch::isBatch(given)) return predict(given, outputs);
    if (has(Fault::RaisesForNullRow)) MireloBatch{given};
    const bool isLenient = has(Fault::ConvertsDoublesOfRows) || has(Fault::PadsRows);
    Inputs inputs = isLenient ? tampered(given, true) : given;
    if (has(Fault::AddsWithEachBatch)) ++added_;
    if (has(Fault::WantsBuffersOfBatch) && lackBuffer(outputs)) return {INVALID_ARGUMENTS, "Buffers are wanted"};
    if (has(Fault::TakesEmptyBatch) && inputs.empty()) return success();
    const auto isUnknown = [&](const auto& each) { return each != nullptr && !network.inputs.find(nameOf(*each)); };
    if (has(Fault::IgnoresUnknownRows)) {
        inputs.erase(std::remove_if(inputs.begin(), inputs.end(), isUnknown), inputs.end());
    }
    if (has(Fault::GoesByOrderInBatches)) {
        for (size_t i = 0; i < inputs.size(); ++i) {
            const auto tensor = std::const_pointer_cast<ITensor>(tensorOf(inputs[i]));
            if (tensor != nullptr) inputs[i] = feature(network.inputs[i % network.inputs.size()].name, tensor);
        }
    }
    const size_t givenCount = inputs.size();
    for (const Kit::Ports::Port& port : network.inputs) {
        const auto isSame = [&](const auto& each) { return each != nullptr && nameOf(*each) == port.name; };
        if (!has(Fault::InventsMissingRows) || std::any_of(inputs.begin(), inputs.end(), isSame)) continue;
        for (size_t row = 0; row < givenCount; ++row) {
            inputs.push_back(feature(port.name, std::make_shared<Tensor>(DataType::Float, port.shape)));
        }
    }
    const Outputs before = outputs;
    const size_t ports = network.outputs.size();
    const size_t rowCount = inputs.size() / network.inputs.size();
    if (has(Fault::WantsAllOutputsOfBatch) && !outputs.empty() && outputs.size() == rowCount && ports > 1) {
        return {INVALID_ARGUMENTS, "All outputs are wanted"};
    }
    if (has(Fault::WantsAllInputsOfBatch)) {
        for (size_t i = 0; i < network.inputs.size(); ++i) {
            const auto isSame = [&](const auto& each) {
                return each != nullptr && nameOf(*each) == network.inputs[i].name;
            };
            if (std::none_of(inputs.begin(), inputs.end(), isSame)) {
                return {INVALID_ARGUMENTS, network.inputs.about(i, "missing")};
            }
        }
    }
    const bool areByPlace = has(Fault::FillsBatchesByPlace) && ports > 1 && outputs.size() == rowCount * ports;
    if (areByPlace || (has(Fault::LetsRowsShareOutputs) && shareMemory(outputs))) {
        Outputs made;
        MireloStatus status = onPredictBatch(given, made);
        for (size_t i = 0; status.ok() && i < outputs.size(); ++i) {
            const auto to = tensorOf(outputs[i]);
            if (to != nullptr && to->buffer() != nullptr) {
                std::memcpy(to->buffer(), made[i]->asTensor()->buffer(), static_cast<size_t>(to->bytes()));
            }
        }
        return status;
    }
    if (has(Fault::RunsRowsUnchecked) || has(Fault::RunsRowsCheckedAlone)) {
        try {
            return told(runRows(inputs, outputs), before, outputs);
        } catch (...) {
            return told(getStatusFromCurrentException(), before, outputs);
        }
    }
    for (const auto& each : inputs) {  // the ports take every type, and no row may run before all are checked
        const auto tensor = tensorOf(each);
        const size_t index = tensor == nullptr ? 0 : network.inputs.find(nameOf(*each)).value_or(0);
        if (tensor == nullptr || takes(network.types[index], tensor->dataType(), false)) continue;
        return told({INVALID_TENSOR_DATA_TYPE, network.inputs.about(index, "another element type than declared")},
                    before, outputs);
    }
    const auto runs = [this](const Inputs& row, Outputs& results, int64_t rows) { return run(row, results, rows); };
    const bool stacks = traits_.stacks || has(Fault::StacksWithoutPromise);
    const auto stacking = stacks ? Kit::Stacking::Promised : Kit::Stacking::Never;
    if (has(Fault::ReplacesOutputsOfBatch) ||
        (has(Fault::IgnoresUnevenOutputs) && outputs.size() != inputs.size() / network.inputs.size())) {
        outputs.clear();
    }
    MireloStatus status = Kit::runBatch(network.inputs, network.outputs, inputs, outputs, stacking, runs);
    if (has(Fault::TakesUnevenBatch) && status.getCode() == INVALID_TYPE) status = success();
    return told(status, before, outputs);
}

MireloStatus ReferenceModel::onBind(const Inputs& inputs, Outputs& outputs,
                                    std::shared_ptr<MireloBinding>& binding) const {
    if (!traits_.binds) {
        return has(Fault::BindsNothing) ? success() : MireloModel::onBind(inputs, outputs, binding);
    }
    if (network_ == nullptr) return notLoaded();
    if (has(Fault::DropsBindingOnFailure)) binding.reset();
    int64_t rows = rows_;
    const auto first = inputs.empty() ? nullptr : tensorOf(inputs[0]);
    if (has(Fault::BindsAnyRows) && first != nullptr && rows_ > 1) rows = first->shape()[0];
    Kit::InputTensors tensors;
    MireloStatus status = network_->inputs.arrange(inputs, rows, tensors);
    if (status.ok()) status = checkTypes(network_->inputs, network_->types, tensors, false);
    if (!status.ok()) return status;
    if (has(Fault::BindsInputsByPlace)) {
        for (size_t i = 0; i < inputs.size(); ++i) tensors[i] = inputs[i]->asTensor();
    }
    if (has(Fault::BindsAllOutputsOnly) && !outputs.empty() && outputs.size() < network_->outputs.size()) {
        return {INVALID_ARGUMENTS, network_->outputs.about(outputs.size(), "missing")};
    }
    if (has(Fault::BindsBuffersOnly)) {
        for (const auto& output : outputs) {
            const auto tensor = tensorOf(output);
            if (tensor == nullptr || tensor->buffer() != nullptr || tensor->hasVariableShape()) continue;
            return {ALLOCATION_FAILED, "Output \"" + nameOf(*output) + "\": it has no buffer"};
        }
    }
    const bool makesOutputs = outputs.empty();
    if (has(Fault::ReusesBoundOutputs) && makesOutputs) outputs = lastOutputs_;
    auto bound = std::make_shared<Bound>();
    bound->model = this;
    bound->network = network_;
    if (lacksInput(*network_, tensors)) return status;
    bound->computed = compute(*network_, tensors);
    std::vector<Kit::Result> results;
    for (const Computed& result : bound->computed) results.push_back(result.asResult());
    Kit::PreparedOutputs prepared;
    status = Kit::prepareOutputs(network_->inputs, tensors, network_->outputs, results, outputs, rows, prepared);
    if (!status.ok()) return status;
    if (has(Fault::LendsMemoryToBindings) && makesOutputs) {
        for (size_t i = 0; i < prepared.features.size(); ++i) {
            const Computed& result = bound->computed[i];
            lentMemory.push_back(result.bytes);
            prepared.tensors[i] = std::make_shared<BufferWrappedTensor>(
                result.type, result.shape, lentMemory.back().data(), lentMemory.back().size());
            prepared.features[i] = feature(nameOf(*prepared.features[i]), prepared.tensors[i]);
        }
    }
    bound->inputs = tensors;
    bound->outputs = prepared.tensors;
    if (has(Fault::BindsOutputsByPlace)) {
        for (size_t i = 0; i < outputs.size(); ++i) bound->outputs[i] = outputs[i]->asTensor();
    }
    if (has(Fault::BorrowsBoundTensors)) {
        bound->borrowed.assign(tensors.begin(), tensors.end());
        bound->inputs.clear();
    } else {
        for (const auto& tensor : bound->inputs) bound->tensors.add(tensor);
        for (const auto& tensor : bound->outputs) bound->tensors.add(tensor);
        if (has(Fault::WatchesFirstTensors)) {
            bound->tensors = {};
            bound->tensors.add(bound->inputs[0]);
            bound->tensors.add(bound->outputs[0]);
        }
    }
    outputs = std::move(prepared.features);
    if (has(Fault::ReusesBoundOutputs) && makesOutputs) lastOutputs_ = outputs;
    binding = bound;
    if (has(Fault::KeepsOneBinding)) lastBinding_ = bound;
    if (has(Fault::AddsWithEachBinding)) ++added_;
    if (has(Fault::HoldsItselfOnceBound)) self_ = shared_from_this();
    report();
    return status;
}

MireloStatus ReferenceModel::onEvaluate(std::shared_ptr<MireloBinding>& binding) const {
    if (!traits_.binds) return has(Fault::BindsNothing) ? success() : MireloModel::onEvaluate(binding);
    if (network_ == nullptr) return notLoaded();
    if (binding == nullptr && has(Fault::TakesNullBinding)) return success();
    auto* bound = dynamic_cast<Bound*>(binding.get());
    if (bound == nullptr) return stranger();
    const bool isOwn = bound->model == this;
    const bool isTaken =
        (has(Fault::TakesBindingOfOtherModel) && !isOwn) || (has(Fault::TakesBindingOfEarlierLoad) && isOwn);
    if (bound->network != network_ && !isTaken) return stranger();
    if (has(Fault::KeepsOneBinding)) bound = static_cast<Bound*>(lastBinding_.get());
    if (!has(Fault::IgnoresMoves) && !bound->tensors.areInPlace()) return stranger();
    if (has(Fault::EvaluatesOnce) && bound->wasEvaluated) return stranger();
    bound->wasEvaluated = true;
    Kit::InputTensors inputs = bound->inputs;
    for (const auto& borrowed : bound->borrowed) inputs.push_back(borrowed.lock());
    if (!bound->borrowed.empty() && inputs.front() == nullptr) return stranger();
    const auto results = has(Fault::ComputesAtBind) ? bound->computed : compute(*bound->network, inputs);
    for (size_t i = 0; i < results.size(); ++i) {
        if (bound->outputs[i] == nullptr) continue;
        std::memcpy(bound->outputs[i]->buffer(), results[i].bytes.data(), results[i].bytes.size());
    }
    if (has(Fault::WritesIntoBoundInputs)) const_cast<uint8_t*>(inputs[0]->buffer())[0] ^= 1;
    report();
    return success();
}

}  // namespace TarnoMirelo
