#include "binding.h"

#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/texts.h>

#include <optional>
#include <utility>

namespace TarnoMirelo::OpenCv {
namespace {

// The engine's own number of an element type, nothing where it does not know the type.
std::optional<int> toEngineDepth(DataType dataType) {
    switch (dataType) {
        case DataType::UInt8:
            return CV_8U;
        case DataType::Int8:
            return CV_8S;
        case DataType::UInt16:
            return CV_16U;
        case DataType::Int16:
            return CV_16S;
        case DataType::Int32:
            return CV_32S;
        case DataType::Float16:
            return CV_16F;
        case DataType::Float:
            return CV_32F;
        case DataType::Double:
            return CV_64F;
        default:
            return std::nullopt;
    }
}

// What the engine has to know of an input.
struct Form {
    int depth;
    EngineShape shape;
};

// Raises for a type or shape that the engine doesn't take.
Form formOf(const Kit::InputPorts& ports, size_t index, const ITensor& tensor) {
    const std::optional<int> depth = toEngineDepth(tensor.dataType());
    if (!depth) {
        throw InvalidTensorDataTypeException(
            ports.about(index, "the engine doesn't take elements of type " + Kit::toText(tensor.dataType())));
    }
    std::optional<EngineShape> shape = toEngineShape(tensor.shape());
    if (!shape) {
        throw Exception(ports.about(index, "the engine can't take the shape " + Kit::toText(tensor.shape())),
                        INVALID_SHAPE);
    }
    return {*depth, *std::move(shape)};
}

cv::Mat wrap(const ITensor& tensor, const EngineShape& shape, int depth) {
    // The engine only reads inputs, and outputs are not const to begin with.
    auto* const elements = const_cast<uint8_t*>(tensor.buffer());
    return translateExceptions([&] { return cv::Mat(static_cast<int>(shape.size()), shape.data(), depth, elements); });
}

}  // namespace

void checkForms(const Kit::InputPorts& ports, const MireloModel::Inputs& inputs) {
    for (const auto& input : inputs) {
        if (input == nullptr || input->type() != MireloFeatureType::Tensor) continue;
        const std::shared_ptr<const ITensor> tensor = input->asTensor();
        const std::optional<size_t> index = ports.find(input->featureDescriptor().name());
        if (index && tensor != nullptr) formOf(ports, *index, *tensor);
    }
}

Binding::Binding(std::shared_ptr<Network> network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
                 int64_t rows)
    : network_(std::move(network)) {
    Kit::InputTensors inputTensors;
    require(network_->inputs().arrange(inputs, rows, inputTensors));
    for (size_t i = 0; i < inputTensors.size(); ++i) wrapInput(i, inputTensors[i]);
    const EngineShapes& shapes = network_->inferOutputs(inputShapes_);
    generation_ = network_->generation();
    std::vector<Kit::Result> results;
    for (size_t i = 0; i < shapes.size(); ++i) {
        results.push_back({DataType::Float, network_->resultShape(i, shapes[i]), nullptr});
    }
    Kit::PreparedOutputs prepared;
    require(
        Kit::prepareOutputs(network_->inputs(), inputTensors, network_->outputs(), results, outputs, rows, prepared));
    for (size_t i = 0; i < shapes.size(); ++i) {
        if (prepared.tensors[i] != nullptr) wrapOutput(i, std::move(prepared.tensors[i]), shapes[i]);
    }
    outputs = std::move(prepared.features);
}

void Binding::wrapInput(size_t index, std::shared_ptr<const ITensor> tensor) {
    const Kit::InputPorts& ports = network_->inputs();
    if (tensor == nullptr) {
        throw InvalidArgumentsException(ports.about(index, "missing; the engine can't do without an input"));
    }
    Form form = formOf(ports, index, *tensor);
    inputs_.push_back(wrap(*tensor, form.shape, form.depth));
    inputShapes_.push_back(std::move(form.shape));
    bound_.add(std::move(tensor));
}

void Binding::wrapOutput(size_t index, std::shared_ptr<const ITensor> tensor, const EngineShape& shape) {
    outputNames_.push_back(network_->outputs()[index].name);
    outputs_.push_back(wrap(*tensor, shape, CV_32F));
    outputMemory_.push_back(tensor->buffer());
    bound_.add(std::move(tensor));
}

void Binding::run() {
    if (!bound_.areInPlace()) {
        throw InvalidOperationException("A bound tensor has got another buffer or shape; bind again");
    }
    if (network_->generation() != generation_) {  // the reported memory is to be that of these shapes again
        network_->inferOutputs(inputShapes_);
        generation_ = network_->generation();
    }
    network_->forward(inputs_, outputNames_, outputs_);
    for (size_t i = 0; i < outputs_.size(); ++i) {
        if (outputs_[i].data == outputMemory_[i])
            continue;  // the engine allocates what does not have the inferred form
        throw Exception(
            "Output \"" + outputNames_[i] + "\": the engine gives another shape or element type than it announced",
            INVALID_SHAPE);
    }
}

}  // namespace TarnoMirelo::OpenCv
