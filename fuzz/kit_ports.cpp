// Bytes as a target and the features for it: they are accepted exactly when a simple reading of the rules accepts them,
// and outputs are made to fit the results all or none.

#include "support/require.h"

#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <fuzzer/FuzzedDataProvider.h>
#include <set>

namespace TarnoMirelo {
namespace {

using Dimensions = std::vector<int64_t>;

const std::string kNames[] = {"a", "b", "", "a name of more than fifteen characters"};
constexpr int64_t kHuge = int64_t{1} << 61;

alignas(8) uint8_t memory[64];    // that wrapped tensors share
const uint8_t elements[64] = {};  // of all results

Dimensions anyShape(FuzzedDataProvider& input) {
    Dimensions shape(input.ConsumeIntegralInRange<size_t>(0, 3));
    for (int64_t& dimension : shape) dimension = input.ConsumeIntegralInRange<int64_t>(-1, 3);
    return shape;
}

DataType anyType(FuzzedDataProvider& input) {
    return input.ConsumeBool() ? DataType::Float : static_cast<DataType>(input.ConsumeIntegralInRange(-1, 13));
}

std::vector<ModelFeatureDescriptor> anyPorts(FuzzedDataProvider& input) {
    std::vector<ModelFeatureDescriptor> ports;
    const size_t count = input.ConsumeIntegralInRange<size_t>(1, 4);
    for (size_t i = 0; i < count; ++i) {
        const TensorDescriptor tensor(TensorShape(anyShape(input)), anyType(input));
        ports.emplace_back(MireloFeatureType::Tensor, input.ConsumeBool(), kNames[i], "", tensor);
    }
    return ports;
}

std::shared_ptr<ITensor> anyTensor(FuzzedDataProvider& input) {
    const DataType type = anyType(input);
    const Dimensions shape = anyShape(input);
    const bool negative = std::find(shape.begin(), shape.end(), -1) != shape.end();
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
            return nullptr;
        case 1:
            return std::make_shared<Tensor>(type);
        case 2: {
            auto tensor = std::make_shared<VariableTensor>(type, TensorShape(anyShape(input)));
            if (!negative) tensor->allocateShape(TensorShape(shape));
            return tensor;
        }
        case 3: {
            const uint64_t begin = input.ConsumeIntegralInRange<uint64_t>(0, sizeof memory);
            try {
                return std::make_shared<BufferWrappedTensor>(type, TensorShape(shape), memory + begin,
                                                             sizeof memory - begin);
            } catch (const InvalidArgumentsException&) {
                return std::make_shared<BufferWrappedTensor>(type);
            }
        }
        default:
            return negative ? nullptr : std::make_shared<Tensor>(type, TensorShape(shape));
    }
}

MireloModel::Outputs anyFeatures(FuzzedDataProvider& input) {
    MireloModel::Outputs features(input.ConsumeIntegralInRange<size_t>(0, 5));
    for (size_t i = 0; i < features.size(); ++i) {
        const std::string& name = kNames[input.ConsumeBool() ? i % 4 : input.ConsumeIntegralInRange<size_t>(0, 3)];
        const ModelFeatureDescriptor descriptor(MireloFeatureType::Tensor, true, name, "", TensorDescriptor());
        const int kind = input.ConsumeIntegralInRange(0, 20);
        if (kind == 1) features[i] = std::make_shared<MireloFeatureInt64>(descriptor);
        if (kind > 1) features[i] = std::make_shared<MireloFeatureTensor>(descriptor, anyTensor(input));
    }
    return features;
}

bool hasElements(DataType type) { return static_cast<int>(type) >= 1 && static_cast<int>(type) <= 12; }

bool fitsShape(const Dimensions& found, const Dimensions& wanted, int64_t rows) {
    bool good = found.size() == wanted.size();
    for (size_t i = 0; good && i < found.size(); ++i) {
        const int64_t dimension = i == 0 && wanted[0] == 1 ? rows : wanted[i];
        good = found[i] >= 0 && (dimension == -1 || found[i] == dimension);
    }
    return good;
}

std::shared_ptr<ITensor> tensorOf(const std::shared_ptr<MireloFeature>& feature) {
    return feature == nullptr || dynamic_cast<MireloFeatureTensor*>(feature.get()) == nullptr ? nullptr
                                                                                              : feature->asTensor();
}

// Whether each feature holds a tensor for a port of its own.
bool matches(const std::vector<ModelFeatureDescriptor>& ports, const MireloModel::Outputs& features, int64_t rows,
             bool isOutput) {
    std::set<std::string> seen;
    for (const auto& feature : features) {
        const std::shared_ptr<ITensor> tensor = tensorOf(feature);
        if (tensor == nullptr || !seen.insert(feature->featureDescriptor().name()).second) return false;
        const auto port = std::find_if(ports.begin(), ports.end(), [&](const ModelFeatureDescriptor& each) {
            return each.name() == feature->featureDescriptor().name();
        });
        if (port == ports.end()) return false;
        const DataType wanted = port->tensorDescriptor().tensorType();
        if (!hasElements(tensor->dataType()) || (hasElements(wanted) && wanted != tensor->dataType())) return false;
        const auto width = static_cast<uintptr_t>(*Kit::byteCount(tensor->dataType(), TensorShape()));
        if (reinterpret_cast<uintptr_t>(tensor->buffer()) % width != 0) return false;
        const Dimensions declared = port->tensorDescriptor().shape().shapeVector();
        if (isOutput && tensor->hasVariableShape()) {
            if (tensor->shape().dimension() != declared.size()) return false;
        } else if (!isOutput || tensor->buffer() != nullptr) {
            if (tensor->buffer() == nullptr || !fitsShape(tensor->shape().shapeVector(), declared, rows)) return false;
        }
    }
    return isOutput || std::all_of(ports.begin(), ports.end(), [&](const ModelFeatureDescriptor& port) {
               return !port.required() || seen.count(port.name()) != 0;
           });
}

bool overlap(const ITensor& one, const ITensor& other) {
    if (one.bytes() <= 0 || other.bytes() <= 0 || one.buffer() == nullptr || other.buffer() == nullptr) return false;
    return one.buffer() < other.buffer() + other.bytes() && other.buffer() < one.buffer() + one.bytes();
}

bool lieApart(const MireloModel::Outputs& inputs, const MireloModel::Outputs& outputs) {
    for (size_t i = 0; i < outputs.size(); ++i) {
        for (const auto& input : inputs) {
            if (overlap(*input->asTensor(), *outputs[i]->asTensor())) return false;
        }
        for (size_t j = 0; j < i; ++j) {
            if (overlap(*outputs[j]->asTensor(), *outputs[i]->asTensor())) return false;
        }
    }
    return true;
}

std::string stateOf(const MireloModel::Outputs& features) {
    std::string state;
    for (const auto& feature : features) {
        const std::shared_ptr<ITensor> tensor = tensorOf(feature);
        if (tensor != nullptr) state += Kit::toText(tensor->shape()) + (tensor->buffer() == nullptr ? "-" : "+");
    }
    return state;
}

void requireReason(const MireloStatus& status, std::initializer_list<STATUS_CODE> codes) {
    if (status.ok()) return;
    require(std::find(codes.begin(), codes.end(), status.getCode()) != codes.end(), "a code is a documented one");
    const std::string text = status.getDescription();
    require(text.compare(0, 5, "Input") == 0 || text.compare(0, 6, "Output") == 0, "a description names the thing");
    require(Kit::describe(status).size() > text.size(), "a status is described");
}

void checkOutputs(FuzzedDataProvider& input, const ModelTarget& target, const MireloModel::Outputs& inputs,
                  const Kit::InputPorts& inputPorts, const Kit::InputTensors& tensors) {
    const Kit::OutputPorts ports(target);
    MireloModel::Outputs outputs = anyFeatures(input);
    const bool good = matches(target.outputs, outputs, 1, true) && lieApart(inputs, outputs);
    const MireloStatus checked = Kit::checkOutputs(target, {inputs.begin(), inputs.end()}, outputs);
    require(checked.ok() == good, "outputs are accepted by the rules");
    requireReason(checked, {INVALID_ARGUMENTS, INVALID_TYPE, INVALID_TENSOR_DATA_TYPE, INVALID_SHAPE});

    std::vector<Kit::Result> results;
    for (size_t i = 0; i < ports.size(); ++i) {
        TensorShape shape(anyShape(input));
        if (shape.dimension() > 0 && input.ConsumeIntegralInRange(0, 9) == 0) shape[0] = kHuge;
        results.push_back({anyType(input), shape, elements});
    }
    const std::string before = stateOf(outputs);
    const MireloModel::Outputs given = outputs;
    const bool fitting = std::all_of(results.begin(), results.end(), [](const Kit::Result& result) {
        const std::optional<int64_t> bytes = Kit::byteCount(result.dataType, result.shape);
        return !bytes || *bytes <= static_cast<int64_t>(sizeof elements) || *bytes >= kHuge;
    });
    if (!fitting) return;  // there are not so many bytes to copy
    const MireloStatus status = Kit::writeOutputs(inputPorts, tensors, ports, results, 1, outputs);
    requireReason(status, {INVALID_ARGUMENTS, INVALID_TYPE, INVALID_TENSOR_DATA_TYPE, INVALID_SHAPE, ALLOCATION_FAILED,
                           MODEL_METADATA_ERROR});
    if (!status.ok()) {
        require(outputs == given && stateOf(outputs) == before, "a failure changes nothing");
        return;
    }
    require(checked.ok(), "outputs that don't fit are not written");
    require(given.empty() ? outputs.size() == ports.size() : outputs == given, "the list is the host's or complete");
    for (const auto& output : outputs) {
        const Kit::Result& result = results[*ports.find(output->featureDescriptor().name())];
        const ITensor& tensor = *output->asTensor();
        require(tensor.shape() == result.shape && tensor.buffer() != nullptr, "an output has its result's shape");
        require(given.empty() || tensor.bytes() == *Kit::byteCount(result.dataType, result.shape), "and its bytes");
    }
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    FuzzedDataProvider input(data, size);
    ModelTarget target;
    target.inputs = anyPorts(input);
    target.outputs = anyPorts(input);
    const MireloModel::Outputs features = anyFeatures(input);
    const MireloModel::Inputs inputs(features.begin(), features.end());
    const int64_t rows = input.ConsumeBool() ? 1 : 3;
    const Kit::InputPorts ports(target);
    Kit::InputTensors tensors;
    const MireloStatus status = ports.arrange(inputs, rows, tensors);
    require(status.ok() == matches(target.inputs, features, rows, false), "inputs are accepted by the rules");
    requireReason(status, {INVALID_ARGUMENTS, INVALID_TYPE, INVALID_TENSOR_DATA_TYPE, INVALID_SHAPE});
    const auto say = [](const MireloStatus& said) { return Kit::describe(said); };
    require(say(ports.check(inputs, rows)) == say(status), "checking and arranging say the same");
    if (rows == 1) require(say(Kit::checkInputs(target, inputs)) == say(status), "and so does the target itself");
    if (!status.ok()) {
        require(tensors.empty(), "a failure hands out nothing");
        return 0;
    }
    for (const auto& feature : features) {
        const std::optional<size_t> index = ports.find(feature->featureDescriptor().name());
        require(index && tensors[*index] == feature->asTensor(), "a tensor is where its port is");
    }
    checkOutputs(input, target, features, ports, tensors);
    return 0;
}
