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

void giveShape(ITensor& tensor, const TensorShape& result) {
    if (tensor.shape() == result && tensor.buffer() != nullptr) return;
    const MireloStatus status = tensor.hasVariableShape() ? tensor.allocateShape(result) : tensor.resize(result);
    if (!status.ok()) throw Exception(status.getDescription(), status.getCode());
}

// An output's tensor, and its name; both borrowed.
using NamedTensor = std::pair<const ITensor*, const std::string*>;

// Of two results in the same memory one would be lost.
void checkApart(std::vector<NamedTensor> outputs) {
    std::sort(outputs.begin(), outputs.end(), [](const NamedTensor& one, const NamedTensor& other) {
        return std::pair(one.first->buffer(), one.first) < std::pair(other.first->buffer(), other.first);
    });
    for (size_t i = 1; i < outputs.size(); ++i) {
        const ITensor* const one = outputs[i - 1].first;
        const ITensor* const other = outputs[i].first;
        const bool overlap = one->buffer() != nullptr && one->buffer() + one->bytes() > other->buffer();
        if (one == other || overlap) {
            throw InvalidArgumentsException("Output \"" + *outputs[i].second +
                                            "\": the tensor shares its memory with another output's");
        }
    }
}

template <typename One, typename Other>
bool haveSameOwner(const One& one, const Other& other) {
    return !one.owner_before(other) && !other.owner_before(one);
}

// Whether the pointer owns the feature itself, not something that the feature is a part of.
template <typename Feature>
bool ownsItself(const std::shared_ptr<Feature>& feature) {
    return feature.use_count() != 0 && haveSameOwner(feature->weak_from_this(), feature);
}

size_t byteCount(const cv::Mat& matrix) { return matrix.total() * matrix.elemSize(); }

// A matrix for `rows` matrices of the form of `row`, one after the other.
cv::Mat stackOf(const cv::Mat& row, int rows) {
    EngineShape shape(row.size.p, row.size.p + row.dims);
    shape[0] = rows;
    return engine([&] { return cv::Mat(static_cast<int>(shape.size()), shape.data(), row.type()); });
}

}  // namespace

Binding::Binding(std::shared_ptr<Network> network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
                 int64_t rows)
    : network_(std::move(network)) {
    wrapInputs(inputs, rows);
    wrapOutputs(outputs, rows);
}

void Binding::wrapInputs(const MireloModel::Inputs& inputs, int64_t rows) {
    const Ports& ports = network_->inputs();
    const std::vector<size_t> indices = ports.indicesOf(inputs);
    std::vector<std::shared_ptr<const ITensor>> tensors(ports.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        tensors[indices[i]] = tensorOf(ports, indices[i], inputs[i]);
        keep(tensors[indices[i]]);
    }
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
    }
}

void Binding::wrapOutputs(MireloModel::Outputs& outputs, int64_t rows) {
    const Ports& ports = network_->outputs();
    const EngineShapes results = network_->inferOutputs(inputShapes_);
    inference_ = network_->inference();
    MireloModel::Outputs created;
    if (outputs.empty()) {
        for (size_t i = 0; i < ports.size(); ++i) {
            auto tensor = std::make_shared<Tensor>(DataType::Float, network_->resultShape(i, results[i], rows));
            created.push_back(std::make_shared<MireloFeatureTensor>(ports[i].descriptor, std::move(tensor)));
        }
    }
    const MireloModel::Outputs& features = outputs.empty() ? created : outputs;
    const std::vector<size_t> indices = ports.indicesOf(features);
    std::vector<std::shared_ptr<ITensor>> tensors;
    std::vector<NamedTensor> named;
    for (size_t i = 0; i < features.size(); ++i) {
        tensors.push_back(tensorOf(ports, indices[i], features[i]));
        checkOutput(ports, indices[i], *tensors[i], network_->resultShape(indices[i], results[indices[i]], rows));
        named.emplace_back(tensors[i].get(), &ports[indices[i]].name);
    }
    checkApart(std::move(named));
    for (size_t i = 0; i < features.size(); ++i) {
        const size_t index = indices[i];
        giveShape(*tensors[i], network_->resultShape(index, results[index], rows));
        outputNames_.push_back(ports[index].name);
        keep(tensors[i]);
        outputs_.push_back(wrap(*tensors[i], results[index], CV_32F));
    }
    if (outputs.empty()) outputs = std::move(created);
}

void Binding::keep(const std::shared_ptr<const ITensor>& tensor) {
    bound_.emplace_back(*tensor);
    kept_.push_back(tensor);
}

cv::Mat Binding::wrap(const ITensor& tensor, const EngineShape& shape, int depth) {
    // The engine only reads inputs, and outputs are not const to begin with.
    auto* const elements = const_cast<uint8_t*>(tensor.buffer());
    return engine([&] { return cv::Mat(static_cast<int>(shape.size()), shape.data(), depth, elements); });
}

void Binding::checkInPlace() const {
    if (!std::ranges::all_of(bound_, &Bound::isInPlace))
        throw InvalidOperationException("A bound tensor has got another buffer or shape; bind again");
}

void Binding::run() {
    checkInPlace();
    runAgain();
}

void Binding::runAgain() {
    if (network_->inference() != inference_) {  // the account of the memory is to be for these shapes again
        network_->inferOutputs(inputShapes_);
        inference_ = network_->inference();
    }
    forward();
}

void Binding::forward() {
    network_->forward(inputs_, outputNames_, outputs_);
    for (size_t i = 0; i < outputs_.size(); ++i) {
        if (outputs_[i].data != bound_[inputs_.size() + i].buffer) refuseResult(outputNames_[i]);
    }
}

bool Binding::release(const MireloModel::Inputs& inputs, const MireloModel::Outputs& outputs) {
    // A feature of this very class holds the same tensor as long as it lives, and tensors of these classes stay where
    // they are and what they are. Of others nobody knows.
    const auto isKnown = [](const auto& feature) {
        if (!isExactly<MireloFeatureTensor>(*feature) || !ownsItself(feature)) return false;
        const ITensor& tensor = *feature->asTensor();
        return isExactly<Tensor>(tensor) || isExactly<VariableTensor>(tensor) || isExactly<BufferWrappedTensor>(tensor);
    };
    if (!std::all_of(inputs.begin(), inputs.end(), isKnown) || !std::all_of(outputs.begin(), outputs.end(), isKnown)) {
        return false;
    }
    auto bound = bound_.begin();
    const auto remember = [&](const std::shared_ptr<const MireloFeature>& feature) {
        bound->feature = feature.get();
        (bound++)->owner = feature;
    };
    std::for_each(inputs.begin(), inputs.end(), remember);
    std::for_each(outputs.begin(), outputs.end(), remember);
    kept_.clear();
    return true;
}

// A feature is told by its address, and by the owner that it knows: one that came to the same address later knows
// another, or, where the owner gave the same room to another feature, none.
template <typename Feature>
bool Binding::Bound::isStill(const std::shared_ptr<Feature>& given) const {
    return given.get() == feature && haveSameOwner(given->weak_from_this(), owner) && isInPlace();
}

bool Binding::stillFits(const MireloModel::Inputs& inputs, const MireloModel::Outputs& outputs) const {
    if (inputs.size() != inputs_.size() || outputs.size() != outputs_.size()) return false;
    auto bound = bound_.begin();
    for (const auto& input : inputs) {
        if (!(bound++)->isStill(input)) return false;
    }
    for (const auto& output : outputs) {
        if (!(bound++)->isStill(output)) return false;
    }
    return true;
}

bool Binding::hasSameForm(const Binding& other) const {
    bool same = inputShapes_ == other.inputShapes_ && outputNames_ == other.outputNames_;
    for (size_t i = 0; same && i < inputs_.size(); ++i) same = inputs_[i].type() == other.inputs_[i].type();
    return same;
}

void Binding::runRows(std::vector<Binding>& rows) {
    for (const Binding& row : rows) row.checkInPlace();  // binding one row may have moved a tensor of another
    std::vector<NamedTensor> outputs;
    outputs.reserve(rows.size() * rows.front().outputs_.size());
    for (const Binding& row : rows) {
        for (size_t i = 0; i < row.outputs_.size(); ++i) {
            outputs.emplace_back(row.bound_[row.inputs_.size() + i].tensor, &row.outputNames_[i]);
        }
    }
    checkApart(std::move(outputs));
    const Binding& first = rows.front();
    const bool sameForm =
        std::all_of(rows.begin(), rows.end(), [&](const Binding& row) { return row.hasSameForm(first); });
    const int count = static_cast<int>(rows.size());
    if (count > 1 && sameForm && first.network_->stacks(first.inputShapes_, count)) {
        runStacked(rows);
    } else {
        for (Binding& row : rows) row.runAgain();
    }
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
