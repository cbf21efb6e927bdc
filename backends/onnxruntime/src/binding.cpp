#include "binding.h"

#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {
namespace {

bool isKnown(const TensorShape& shape) {
    for (uint64_t i = 0; i < shape.dimension(); ++i) {
        if (shape[i] < 0) return false;
    }
    return true;
}

// The engine only reads inputs, and outputs are not const to begin with.
Owned<OrtValue> wrap(const ITensor& tensor) {
    const TensorShape& shape = tensor.shape();
    constexpr int64_t kNone = 0;
    const int64_t* const dimensions =
        shape.dimension() == 0 ? &kNone : &shape[0];  // NOLINT(readability-container-data-pointer): data() is not const
    OrtValue* value = nullptr;
    check(api().CreateTensorWithDataAsOrtValue(
        hostMemory(), const_cast<uint8_t*>(tensor.buffer()), static_cast<size_t>(tensor.bytes()), dimensions,
        static_cast<size_t>(shape.dimension()), toEngineType(tensor.dataType()), &value));
    return Owned<OrtValue>(value);
}

// What the engine allocated, as a result that borrows its elements.
Kit::Result describe(OrtValue& value, const Kit::OutputPorts& ports, size_t index) {
    int isTensor = 0;
    check(api().IsTensor(&value, &isTensor));
    if (isTensor == 0) throw ModelMetaDataException(ports.about(index, "the engine gives no tensor"));
    const auto info = make<OrtTensorTypeAndShapeInfo>(api().GetTensorTypeAndShape, &value);
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    check(api().GetTensorElementType(info.get(), &type));
    size_t count = 0;
    check(api().GetDimensionsCount(info.get(), &count));
    std::vector<int64_t> shape(count);
    check(api().GetDimensions(info.get(), shape.data(), count));
    void* elements = nullptr;
    check(api().GetTensorMutableData(&value, &elements));
    return {toDataType(type), shape, static_cast<const uint8_t*>(elements)};
}

// Whether a result has another shape than the tensor in its place, which the target or the host expected. The engine
// has no code for that, but a text, since 1.17 and another one in 1.29.
bool hasOtherShape(const EngineFailure& failure) {
    const std::string text = failure.what();
    return text.find("shape verification failed") != std::string::npos ||
           text.find("The output OrtValue provided for output") != std::string::npos;
}

// The inputs in the engine's form, without those that the network has a constant for.
class Feeds {
 public:
    Feeds(const Network& network, const Kit::InputTensors& tensors) {
        names_.reserve(tensors.size());
        values_.reserve(tensors.size());
        owned_.reserve(tensors.size());
        for (size_t i = 0; i < tensors.size(); ++i) {
            if (tensors[i] == nullptr) {
                if (network.isOptional(i)) continue;
                throw InvalidArgumentsException(
                    network.inputs().about(i, "missing; the network has no constant in its place"));
            }
            names_.push_back(network.inputs()[i].name.c_str());
            bytes_ += static_cast<uint64_t>(tensors[i]->bytes());
            owned_.push_back(wrap(*tensors[i]));
            values_.push_back(owned_.back().get());
        }
    }

    /// @param values  null for a result that the engine allocates
    void run(const Network& network, const std::vector<const char*>& names, std::vector<OrtValue*>& values) const {
        const Network::Run running(network, bytes_);
        check(api().Run(running.session(), network.runOptions(), names_.data(), values_.data(), names_.size(),
                        names.data(), names.size(), values.data()));
    }

 private:
    std::vector<const char*> names_;
    std::vector<const OrtValue*> values_;
    std::vector<Owned<OrtValue>> owned_;
    uint64_t bytes_ = 0;
};

// The outputs that are wanted: those that the host gave, or all.
std::vector<size_t> wantedOutputs(const Kit::OutputTensors& given, bool all) {
    std::vector<size_t> wanted;
    wanted.reserve(given.size());
    for (size_t i = 0; i < given.size(); ++i) {
        if (all || given[i] != nullptr) wanted.push_back(i);
    }
    return wanted;
}

Kit::OutputTensors arrange(const Network& network, const Kit::InputTensors& inputs, const MireloModel::Outputs& outputs,
                           int64_t rows) {
    Kit::OutputTensors given;
    require(network.outputs().arrange(network.inputs(), inputs, outputs, rows, given));
    return given;
}

// A result for each output where the engine can write all of them in place: their shapes are known before the run.
std::optional<std::vector<Kit::Result>> knownResults(const Network& network, const Kit::InputTensors& inputs,
                                                     const MireloModel::Outputs& outputs, int64_t rows) {
    if (network.handsInputsOut()) return std::nullopt;
    const Kit::OutputPorts& ports = network.outputs();
    std::vector<Kit::Result> results;
    results.reserve(ports.size());
    bool allKnown = true;
    for (const Kit::Ports::Port& port : ports) {
        results.push_back({port.dataType, port.shapeOf(rows), nullptr});
        allKnown = allKnown && isKnown(results.back().shape);
    }
    if (allKnown) return results;
    const Kit::OutputTensors given = arrange(network, inputs, outputs, rows);
    for (size_t i = 0; i < given.size(); ++i) {
        if (isKnown(results[i].shape) || (given[i] == nullptr && !outputs.empty())) continue;
        const bool tells = given[i] != nullptr && !given[i]->hasVariableShape() && given[i]->buffer() != nullptr;
        if (!tells) return std::nullopt;
        results[i].shape = given[i]->shape();
    }
    return results;
}

void runInPlace(const Network& network, const Feeds& feeds, const Kit::OutputTensors& tensors) {
    std::vector<const char*> names;
    std::vector<OrtValue*> values;
    std::vector<Owned<OrtValue>> owned;
    names.reserve(tensors.size());
    values.reserve(tensors.size());
    owned.reserve(tensors.size());
    for (size_t i = 0; i < tensors.size(); ++i) {
        if (tensors[i] == nullptr) continue;
        names.push_back(network.outputs()[i].name.c_str());
        owned.push_back(wrap(*tensors[i]));
        values.push_back(owned.back().get());
    }
    feeds.run(network, names, values);
}

void runAndCopy(const Network& network, const Feeds& feeds, const Kit::InputTensors& inputs, int64_t rows,
                MireloModel::Outputs& outputs) {
    const Kit::OutputPorts& ports = network.outputs();
    const std::vector<size_t> wanted = wantedOutputs(arrange(network, inputs, outputs, rows), outputs.empty());
    std::vector<const char*> names;
    names.reserve(wanted.size());
    for (const size_t i : wanted) names.push_back(ports[i].name.c_str());
    std::vector<OrtValue*> values(wanted.size());
    feeds.run(network, names, values);
    std::vector<Owned<OrtValue>> owned(values.begin(), values.end());
    std::vector<Kit::Result> results(ports.size());
    for (size_t i = 0; i < wanted.size(); ++i) results[wanted[i]] = describe(*values[i], ports, wanted[i]);
    require(Kit::writeOutputs(network.inputs(), inputs, ports, results, rows, outputs));
}

}  // namespace

void predictOnce(const Network& network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
                 int64_t rows) {
    Kit::InputTensors tensors;
    require(network.inputs().arrange(inputs, rows, tensors));
    const Feeds feeds(network, tensors);
    if (const auto results = knownResults(network, tensors, outputs, rows)) {
        Kit::PreparedOutputs prepared;
        require(Kit::prepareOutputs(network.inputs(), tensors, network.outputs(), *results, outputs, rows, prepared));
        try {
            runInPlace(network, feeds, prepared.tensors);
            outputs = std::move(prepared.features);
            return;
        } catch (const EngineFailure& failure) {
            if (!hasOtherShape(failure)) throw;  // else the run tells which
        }
    }
    runAndCopy(network, feeds, tensors, rows, outputs);
}

Binding::Binding(std::shared_ptr<const Network> network, const MireloModel::Inputs& inputs,
                 MireloModel::Outputs& outputs, int64_t rows)
    : network_(std::move(network)),
      copy_(network_->nextCopy()),
      rows_(rows),
      binding_(make<OrtIoBinding>(api().CreateIoBinding, copy_.session.get())) {
    require(network_->inputs().arrange(inputs, rows, inputs_));
    for (size_t i = 0; i < inputs_.size(); ++i) {
        if (inputs_[i] == nullptr) {
            if (network_->isOptional(i)) continue;
            throw InvalidArgumentsException(
                network_->inputs().about(i, "missing; the network has no constant in its place"));
        }
        check(api().BindInput(binding_.get(), network_->inputs()[i].name.c_str(), wrap(*inputs_[i]).get()));
        bound_.add(inputs_[i]);
        inputBytes_ += static_cast<uint64_t>(inputs_[i]->bytes());
    }
    auto results = knownResults(*network_, inputs_, outputs, rows);
    if (results) {
        bindInPlace(std::move(*results), outputs);
    } else {
        bindToEngine(outputs);
    }
}

void Binding::bindInPlace(std::vector<Kit::Result> results, MireloModel::Outputs& outputs) {
    Kit::PreparedOutputs prepared;
    require(Kit::prepareOutputs(network_->inputs(), inputs_, network_->outputs(), results, outputs, rows_, prepared));
    for (size_t i = 0; i < prepared.tensors.size(); ++i) {
        if (prepared.tensors[i] == nullptr) continue;
        check(api().BindOutput(binding_.get(), network_->outputs()[i].name.c_str(), wrap(*prepared.tensors[i]).get()));
        bound_.add(prepared.tensors[i]);
    }
    features_ = prepared.features;
    outputs = std::move(prepared.features);
}

void Binding::bindToEngine(MireloModel::Outputs& outputs) {
    const Kit::OutputPorts& ports = network_->outputs();
    copied_ = wantedOutputs(arrange(*network_, inputs_, outputs, rows_), outputs.empty());
    features_ = outputs;
    if (features_.empty()) {
        for (const Kit::Ports::Port& port : ports) {
            const TensorShape shape = port.shapeOf(rows_);
            std::shared_ptr<ITensor> tensor;
            if (isKnown(shape)) {
                tensor = std::make_shared<Tensor>(port.dataType, shape);
            } else {
                tensor = std::make_shared<VariableTensor>(port.dataType, shape);
            }
            features_.push_back(std::make_shared<MireloFeatureTensor>(port.descriptor, std::move(tensor)));
        }
    }
    outputs = features_;
}

void Binding::run() {
    if (!bound_.areInPlace()) {
        throw InvalidOperationException("A bound tensor has got another buffer or shape; bind again");
    }
    // Anew for each run: the engine would write into the results of the run before, whatever their shape.
    for (const size_t i : copied_) {
        check(api().BindOutputToDevice(binding_.get(), network_->outputs()[i].name.c_str(), hostMemory()));
    }
    try {
        const Network::Run running(*network_, copy_, inputBytes_);
        check(api().RunWithBinding(running.session(), network_->runOptions(), binding_.get()));
    } catch (const EngineFailure& failure) {
        if (!hasOtherShape(failure)) throw;  // else the run tells which
        runAndCopy(*network_, Feeds(*network_, inputs_), inputs_, rows_, features_);
        return;
    }
    if (!copied_.empty()) copyResults();
}

void Binding::copyResults() {
    OrtAllocator* allocator = nullptr;
    check(api().GetAllocatorWithDefaultOptions(&allocator));
    OrtValue** values = nullptr;
    size_t count = 0;
    check(api().GetBoundOutputValues(binding_.get(), allocator, &values, &count));
    std::vector<Owned<OrtValue>> owned(values, values + count);
    check(api().AllocatorFree(allocator, values));
    const Kit::OutputPorts& ports = network_->outputs();
    std::vector<Kit::Result> results(ports.size());
    for (size_t i = 0; i < copied_.size(); ++i) results[copied_[i]] = describe(*owned.at(i), ports, copied_[i]);
    require(Kit::writeOutputs(network_->inputs(), inputs_, ports, results, rows_, features_));
}

}  // namespace TarnoMirelo::OnnxRuntime
