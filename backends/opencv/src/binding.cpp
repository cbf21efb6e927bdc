#include "binding.h"

#include <algorithm>
#include <cstring>
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

// The feature's tensor, which is in host memory.
template <typename Feature>
auto tensorOf(const Ports& ports, size_t index, const std::shared_ptr<Feature>& feature) {
    const auto held = [&] {
        try {
            return feature->asTensor();
        } catch (const InvalidTypeException&) {
            throw InvalidTypeException(ports.about(index, "the feature is no tensor"));
        }
    };
    auto tensor = held();
    if (tensor == nullptr) throw InvalidArgumentsException(ports.about(index, "the feature holds no tensor"));
    if (tensor->onDevice()) throw InvalidTypeException(ports.about(index, "the tensor is not in host memory"));
    return tensor;
}

[[noreturn]] void refuseShape(const Ports& ports, size_t index, const TensorShape& found, const TensorShape& wanted) {
    throw Exception(ports.about(index, "the shape is " + toText(found) + ", wanted is " + toText(wanted)),
                    INVALID_SHAPE);
}

// The engine allocates a result anew when it does not have the form that its inference gave.
[[noreturn]] void refuseResult(const std::string& output) {
    throw Exception("Output \"" + output + "\": the engine gives another shape or element type than it announced",
                    INVALID_SHAPE);
}

// An output can take a result of that shape as it is, or once it has got the shape.
void checkOutput(const Ports& ports, size_t index, const ITensor& tensor, const TensorShape& result) {
    if (tensor.dataType() != DataType::Float) {
        throw InvalidTensorDataTypeException(ports.about(index, "the engine computes elements of type float only"));
    }
    const bool takesShape = tensor.hasVariableShape() ? tensor.shape().dimension() == result.dimension()
                                                      : tensor.buffer() == nullptr || tensor.shape() == result;
    if (!takesShape) refuseShape(ports, index, tensor.shape(), result);
}

void giveShape(const std::string& output, ITensor& tensor, const TensorShape& result) {
    if (tensor.shape() == result && tensor.buffer() != nullptr) return;
    const MireloStatus status = tensor.hasVariableShape() ? tensor.allocateShape(result) : tensor.resize(result);
    if (!status.ok()) throw Exception("Output \"" + output + "\": " + status.getDescription(), status.getCode());
}

[[noreturn]] void refuseSharing(const Memory& one, const Memory& other) {
    const Memory& output = one.isOutput ? one : other;
    const Memory& second = one.isOutput ? other : one;
    throw InvalidArgumentsException("Output \"" + *output.name + "\": the tensor shares its memory with " +
                                    (second.isOutput ? "another output's" : "input \"" + *second.name + "\""));
}

// Refuses an output in the memory of another output, of whose results one would be lost, or of an input, whose elements
// a run of several rows would overwrite before it reads them.
void checkApart(std::vector<Memory> memories) {
    std::ranges::sort(memories, {}, [](const Memory& memory) { return std::pair(memory.begin, memory.tensor); });
    const Memory* input = nullptr;  // of those before, the ones that reach furthest
    const Memory* output = nullptr;
    for (const Memory& next : memories) {
        const auto reaches = [&](const Memory* before) {
            if (before == nullptr) return false;
            return before->tensor == next.tensor || (next.begin != nullptr && before->end > next.begin);
        };
        if (reaches(output)) refuseSharing(*output, next);
        if (next.isOutput && reaches(input)) refuseSharing(*input, next);
        const Memory*& furthest = next.isOutput ? output : input;
        if (furthest == nullptr || next.end > furthest->end) furthest = &next;
    }
}

size_t byteCount(const cv::Mat& matrix) { return matrix.total() * matrix.elemSize(); }

// A matrix for `rows` matrices of the form of `row`, one after the other.
cv::Mat stackOf(const cv::Mat& row, int rows) {
    EngineShape shape(row.size.p, row.size.p + row.dims);
    shape[0] = rows;
    return translateExceptions([&] { return cv::Mat(static_cast<int>(shape.size()), shape.data(), row.type()); });
}

}  // namespace

Binding::Binding(std::shared_ptr<Network> network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
                 int64_t rows)
    : network_(std::move(network)) {
    wrapInputs(inputs, rows);
    checkOutputs(outputs, rows);
}

void Binding::wrapInputs(const MireloModel::Inputs& inputs, int64_t rows) {
    const Ports& ports = network_->inputs();
    const std::vector<size_t> indices = ports.indicesOf(inputs);
    std::vector<std::shared_ptr<const ITensor>> tensors(ports.size());
    for (size_t i = 0; i < inputs.size(); ++i) tensors[indices[i]] = tensorOf(ports, indices[i], inputs[i]);
    for (size_t i = 0; i < ports.size(); ++i) {
        if (tensors[i] == nullptr) throw InvalidArgumentsException(ports.about(i, "missing"));
        const std::optional<int> depth = toEngineDepth(tensors[i]->dataType());
        if (!depth) {
            throw InvalidTensorDataTypeException(ports.about(i, "the engine doesn't take elements of that type"));
        }
        const TensorShape wanted = ports[i].shapeOf(rows);
        const std::optional<EngineShape> shape = toEngineShape(tensors[i]->shape());
        if (!shape || !fits(tensors[i]->shape(), wanted)) refuseShape(ports, i, tensors[i]->shape(), wanted);
        if (tensors[i]->buffer() == nullptr)
            throw InvalidArgumentsException(ports.about(i, "the tensor has no buffer"));
        inputShapes_.push_back(*shape);
        inputs_.push_back(wrap(*tensors[i], *shape, *depth));
        bound_.emplace_back(std::move(tensors[i]));
    }
}

void Binding::checkOutputs(MireloModel::Outputs& outputs, int64_t rows) {
    const Ports& ports = network_->outputs();
    const EngineShapes results = network_->inferOutputs(inputShapes_);
    generation_ = network_->generation();
    MireloModel::Outputs created;
    if (outputs.empty()) {
        for (size_t i = 0; i < ports.size(); ++i) {
            auto tensor = std::make_shared<Tensor>(DataType::Float, network_->resultShape(i, results[i], rows));
            created.push_back(std::make_shared<MireloFeatureTensor>(ports[i].descriptor, std::move(tensor)));
        }
    }
    const MireloModel::Outputs& features = outputs.empty() ? created : outputs;
    const std::vector<size_t> indices = ports.indicesOf(features);
    for (size_t i = 0; i < features.size(); ++i) {
        const size_t index = indices[i];
        auto tensor = tensorOf(ports, index, features[i]);
        TensorShape shape = network_->resultShape(index, results[index], rows);
        checkOutput(ports, index, *tensor, shape);
        outputNames_.push_back(ports[index].name);
        results_.push_back({std::move(tensor), std::move(shape), results[index]});
    }
    checkApart(memories());
    if (outputs.empty()) outputs = std::move(created);
}

std::vector<Memory> Binding::memories() const {
    std::vector<Memory> all;
    all.reserve(inputs_.size() + results_.size());
    for (size_t i = 0; i < inputs_.size(); ++i) {
        const ITensor& tensor = *bound_[i].tensor;
        all.push_back(
            {&tensor, bound_[i].buffer, bound_[i].buffer + tensor.bytes(), &network_->inputs()[i].name, false});
    }
    for (size_t i = 0; i < results_.size(); ++i) {
        const uint8_t* const begin = results_[i].tensor->buffer();
        const uint8_t* const end = begin == nullptr ? nullptr : begin + results_[i].shape.size() * sizeof(float);
        all.push_back({results_[i].tensor.get(), begin, end, &outputNames_[i], true});
    }
    return all;
}

void Binding::prepareOutputs() {
    // Those of fixed shape first: a tensor that can't get a buffer is among them.
    for (const bool variable : {false, true}) {
        for (size_t i = 0; i < results_.size(); ++i) {
            if (results_[i].tensor->hasVariableShape() == variable) {
                giveShape(outputNames_[i], *results_[i].tensor, results_[i].shape);
            }
        }
    }
    for (const Result& result : results_) {
        outputs_.push_back(wrap(*result.tensor, result.engineShape, CV_32F));
        bound_.emplace_back(result.tensor);
    }
}

cv::Mat Binding::wrap(const ITensor& tensor, const EngineShape& shape, int depth) {
    // The engine only reads inputs, and outputs are not const to begin with.
    auto* const elements = const_cast<uint8_t*>(tensor.buffer());
    return translateExceptions([&] { return cv::Mat(static_cast<int>(shape.size()), shape.data(), depth, elements); });
}

void Binding::checkInPlace() const {
    if (!std::ranges::all_of(bound_, &Bound::isInPlace))
        throw InvalidOperationException("A bound tensor has got another buffer or shape; bind again");
}

void Binding::run() {
    checkInPlace();
    runInPlace();
}

void Binding::runInPlace() {
    if (network_->generation() != generation_) {  // the reported memory is to be that of these shapes again
        network_->inferOutputs(inputShapes_);
        generation_ = network_->generation();
    }
    network_->forward(inputs_, outputNames_, outputs_);
    for (size_t i = 0; i < outputs_.size(); ++i) {
        if (outputs_[i].data != bound_[inputs_.size() + i].buffer) refuseResult(outputNames_[i]);
    }
}

bool Binding::hasSameForm(const Binding& other) const {
    bool same = inputShapes_ == other.inputShapes_ && outputNames_ == other.outputNames_;
    for (size_t i = 0; same && i < inputs_.size(); ++i) same = inputs_[i].type() == other.inputs_[i].type();
    return same;
}

void Binding::runRows(std::vector<Binding>& rows, bool rowsAreIndependent) {
    std::vector<Memory> memories;
    for (const Binding& row : rows) {
        const std::vector<Memory> some = row.memories();
        memories.insert(memories.end(), some.begin(), some.end());
    }
    checkApart(std::move(memories));
    for (Binding& row : rows) row.prepareOutputs();
    for (const Binding& row : rows) row.checkInPlace();
    const Binding& first = rows.front();
    const int count = static_cast<int>(rows.size());
    const bool stacks = rowsAreIndependent && count > 1 &&
                        std::ranges::all_of(rows, [&](const Binding& row) { return row.hasSameForm(first); }) &&
                        first.network_->stacks(first.inputShapes_, count);
    if (stacks) {
        try {
            runStacked(rows);
            return;
        } catch (const EngineFailure&) {
            // The network takes one row at a time although the shapes allow more. What else it lacks, a row tells.
        }
    }
    for (Binding& row : rows) row.runInPlace();
}

void Binding::runStacked(std::vector<Binding>& rows) {
    const Binding& first = rows.front();
    const int count = static_cast<int>(rows.size());
    std::vector<cv::Mat> inputs;
    for (size_t i = 0; i < first.inputs_.size(); ++i) {
        const size_t size = byteCount(first.inputs_[i]);
        cv::Mat& stack = inputs.emplace_back(stackOf(first.inputs_[i], count));
        for (size_t row = 0; row < rows.size(); ++row) {
            std::memcpy(stack.data + row * size, rows[row].inputs_[i].data, size);
        }
    }
    std::vector<cv::Mat> outputs;
    for (const cv::Mat& output : first.outputs_) outputs.push_back(stackOf(output, count));
    first.network_->forward(inputs, first.outputNames_, outputs);
    for (size_t i = 0; i < outputs.size(); ++i) {
        const size_t size = byteCount(first.outputs_[i]);
        if (byteCount(outputs[i]) != size * rows.size()) refuseResult(first.outputNames_[i]);
        for (size_t row = 0; row < rows.size(); ++row) {
            std::memcpy(rows[row].outputs_[i].data, outputs[i].data + row * size, size);
        }
    }
}

}  // namespace TarnoMirelo::OpenCv
