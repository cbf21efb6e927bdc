#include "descriptor_access.h"
#include "memory_ranges.h"

#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

constexpr char kInput[] = "Input";
constexpr char kOutput[] = "Output";

using Dimensions = std::vector<int64_t>;

int64_t widthOf(DataType type) {
    constexpr std::array<int64_t, 13> kWidths = {0, 1, 1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    const auto index = static_cast<uint32_t>(type);
    return index < kWidths.size() ? kWidths[index] : 0;
}

// Whether the product of two numbers that are not negative fits in 63 bits.
bool canMultiply(int64_t a, int64_t b) {
    if ((static_cast<uint64_t>(a | b) >> 31) == 0) return true;  // most are small, and a division takes its time
    return a == 0 || b <= std::numeric_limits<int64_t>::max() / a;
}

bool fit(const Dimensions& found, const Dimensions& wanted, int64_t rows) {
    if (found.size() != wanted.size()) return false;
    for (size_t i = 0; i < found.size(); ++i) {
        const int64_t dimension = i == 0 && wanted[0] == 1 ? rows : wanted[i];
        if (found[i] < 0 || (dimension != -1 && found[i] != dimension)) return false;
    }
    return true;
}

std::optional<int64_t> bytesOf(DataType type, const Dimensions& dimensions) {
    int64_t bytes = widthOf(type);
    bool empty = false;
    bool countable = true;
    for (const int64_t dimension : dimensions) {
        if (dimension < 0) return std::nullopt;
        empty = empty || dimension == 0;
        countable = countable && canMultiply(bytes, dimension);
        if (countable) bytes *= dimension;
    }
    if (empty) return 0;  // whatever the others are
    return countable ? std::optional<int64_t>(bytes) : std::nullopt;
}

TensorShape shapeOfRows(TensorShape shape, int64_t rows) {
    if (shape.dimension() > 0 && shape[0] == 1) shape[0] = rows;
    return shape;
}

// The ports of a target as it stands.
class TargetPorts {
 public:
    TargetPorts(const char* kind, const std::vector<ModelFeatureDescriptor>& descriptors)
        : kind_(kind), descriptors_(descriptors) {
        if (size() <= kFew) return;
        for (size_t i = 0; i < size(); ++i) indices_.emplace(name(i), i);
    }

    const char* kind() const { return kind_; }
    size_t size() const { return descriptors_.size(); }
    const std::string& name(size_t index) const { return nameOf(descriptors_[index]); }
    const TensorShape& shape(size_t index) const { return shapeOf(descriptors_[index].tensorDescriptor()); }
    DataType dataType(size_t index) const { return descriptors_[index].tensorDescriptor().tensorType(); }
    MireloFeatureType type(size_t index) const { return descriptors_[index].type(); }
    bool required(size_t index) const { return descriptors_[index].required(); }
    std::optional<size_t> find(const std::string& wanted) const {
        if (!indices_.empty()) {
            const auto found = indices_.find(wanted);
            return found == indices_.end() ? std::nullopt : std::optional<size_t>(found->second);
        }
        for (size_t i = 0; i < size(); ++i) {
            if (name(i) == wanted) return i;
        }
        return std::nullopt;
    }

 private:
    static constexpr size_t kFew = 64;  // a map of so few is not worth its allocations

    const char* kind_;
    const std::vector<ModelFeatureDescriptor>& descriptors_;
    std::unordered_map<std::string_view, size_t> indices_;  // empty while there are few
};

// Likewise, of ports that are prepared.
class PreparedPorts {
 public:
    PreparedPorts(const char* kind, const Ports& ports) : kind_(kind), ports_(ports) {}

    const char* kind() const { return kind_; }
    size_t size() const { return ports_.size(); }
    const std::string& name(size_t index) const { return ports_[index].name; }
    const TensorShape& shape(size_t index) const { return ports_[index].shape; }
    DataType dataType(size_t index) const { return ports_[index].dataType; }
    static constexpr MireloFeatureType type(size_t /*index*/) { return MireloFeatureType::Tensor; }
    bool required(size_t index) const { return ports_[index].required; }
    std::optional<size_t> find(const std::string& wanted) const { return ports_.find(wanted); }

 private:
    const char* kind_;
    const Ports& ports_;
};

// Which ports have got their feature.
class Taken {
 public:
    explicit Taken(size_t count) : many_(count > kFew ? count : 0) {}

    bool has(size_t index) const { return many_.empty() ? (few_ >> index & 1) != 0 : static_cast<bool>(many_[index]); }
    void add(size_t index) {
        if (many_.empty()) {
            few_ |= uint64_t{1} << index;
        } else {
            many_[index] = true;
        }
    }

 private:
    static constexpr size_t kFew = 64;

    uint64_t few_ = 0;
    std::vector<bool> many_;
};

// The checks return whether all is well, and say in `failure` what is not: a status for each step that went well would
// take longer than the steps.

template <typename List>
bool refuse(const List& ports, size_t index, STATUS_CODE code, const std::string& text, MireloStatus& failure) {
    failure = {code, std::string(ports.kind()) + " \"" + ports.name(index) + "\": " + text};
    return false;
}

template <typename List>
bool refuseName(const List& ports, const std::string& name, MireloStatus& failure) {
    std::string text = std::string(ports.kind()) + " \"" + name + "\": the target has none of that name, but ";
    constexpr size_t kShown = 8;
    for (size_t i = 0; i < std::min(ports.size(), kShown); ++i) {
        text += (i == 0 ? "\"" : ", \"") + ports.name(i) + "\"";
    }
    if (ports.size() == 0) text += "none at all";
    if (ports.size() > kShown) text += " and " + std::to_string(ports.size() - kShown) + " more";
    failure = {INVALID_ARGUMENTS, text};
    return false;
}

template <typename List>
bool refuseType(const List& ports, size_t index, MireloFeatureType found, MireloStatus& failure) {
    if (found == ports.type(index)) {
        return refuse(ports, index, INVALID_TYPE, "the feature is no tensor, although its descriptor says so", failure);
    }
    return refuse(ports, index, INVALID_TYPE,
                  "the feature's type is " + GetMireloFeatureTypeName(found) + ", wanted is " +
                      GetMireloFeatureTypeName(ports.type(index)),
                  failure);
}

template <typename List>
bool refuseShape(const List& ports, size_t index, const TensorShape& found, int64_t rows, MireloStatus& failure) {
    const std::vector<int64_t> wanted = shapeOfRows(ports.shape(index), rows).shapeVector();
    const bool open = std::find(wanted.begin(), wanted.end(), -1) != wanted.end();
    return refuse(ports, index, INVALID_SHAPE,
                  "the shape is " + toText(found) + ", wanted is " + toText(wanted) +
                      (open ? " with any number from 0 for -1" : ""),
                  failure);
}

template <typename List>
bool refuseElements(const List& ports, size_t index, DataType found, MireloStatus& failure) {
    const DataType wanted = ports.dataType(index);
    return refuse(
        ports, index, INVALID_TENSOR_DATA_TYPE,
        "the element type is " + toText(found) + ", wanted is " + (widthOf(wanted) == 0 ? "another" : toText(wanted)),
        failure);
}

template <typename List>
bool checkHeld(const List& ports, size_t index, const ITensor* tensor, DataType& found, MireloStatus& failure) {
    if (tensor == nullptr) return refuse(ports, index, INVALID_ARGUMENTS, "the feature holds no tensor", failure);
    if (tensor->onDevice()) {
        return refuse(ports, index, INVALID_TYPE, "the tensor is on a device, wanted is one in host memory", failure);
    }
    found = tensor->dataType();
    const DataType wanted = ports.dataType(index);
    const bool fitting = widthOf(found) != 0 && (found == wanted || widthOf(wanted) == 0);
    return fitting || refuseElements(ports, index, found, failure);
}

template <typename List>
bool checkShape(const List& ports, size_t index, const ITensor& tensor, DataType type, int64_t rows,
                MireloStatus& failure) {
    const TensorShape& shape = tensor.shape();
    const Dimensions& dimensions = dimensionsOf(shape);
    if (!fit(dimensions, dimensionsOf(ports.shape(index)), rows)) {
        return refuseShape(ports, index, shape, rows, failure);
    }
    return bytesOf(type, dimensions).has_value() ||
           refuse(ports, index, INVALID_SHAPE,
                  "the shape " + toText(shape) + " has more elements than can be counted in 63 bits", failure);
}

// Engines read and write elements where they lie, at addresses that are multiples of an element's width.
template <typename List>
bool checkAlignment(const List& ports, size_t index, const uint8_t* buffer, DataType type, MireloStatus& failure) {
    const int64_t width = widthOf(type);
    return (reinterpret_cast<uintptr_t>(buffer) & static_cast<uintptr_t>(width - 1)) == 0 ||
           refuse(ports, index, INVALID_ARGUMENTS,
                  "the buffer's address is no multiple of " + std::to_string(width) + ", wanted for elements of type " +
                      toText(type),
                  failure);
}

template <typename List>
bool checkInput(const List& ports, size_t index, const ITensor* tensor, int64_t rows, MireloStatus& failure) {
    DataType type = DataType::Undefined;
    if (!checkHeld(ports, index, tensor, type, failure)) return false;
    if (!checkShape(ports, index, *tensor, type, rows, failure)) return false;
    const uint8_t* const buffer = tensor->buffer();
    if (buffer == nullptr) return refuse(ports, index, INVALID_ARGUMENTS, "the tensor has no buffer", failure);
    return checkAlignment(ports, index, buffer, type, failure);
}

template <typename List>
bool checkOutput(const List& ports, size_t index, const ITensor* tensor, int64_t rows, MireloStatus& failure) {
    DataType type = DataType::Undefined;
    if (!checkHeld(ports, index, tensor, type, failure)) return false;
    const uint8_t* const buffer = tensor->buffer();
    if (!checkAlignment(ports, index, buffer, type, failure)) return false;
    if (!tensor->hasVariableShape()) {
        return buffer == nullptr || checkShape(ports, index, *tensor, type, rows, failure);
    }
    const TensorShape& shape = tensor->shape();
    return shape.dimension() == ports.shape(index).dimension() || refuseShape(ports, index, shape, rows, failure);
}

// The port of a feature.
// @param likely  where to look first
template <typename List>
bool findPort(const List& ports, const MireloFeature& feature, size_t likely, size_t& index, MireloStatus& failure) {
    const std::string& name = nameOf(feature.featureDescriptor());
    if (likely < ports.size() && ports.name(likely) == name) {
        index = likely;
        return true;
    }
    const std::optional<size_t> found = ports.find(name);
    if (!found) return refuseName(ports, name, failure);
    index = *found;
    return true;
}

// Finds the port of each feature and looks at its tensor: check(index, tensor) returns whether all is well.
template <typename List, typename Feature, typename Check>
bool match(const List& ports, const std::vector<std::shared_ptr<Feature>>& features, Taken& taken, const Check& check,
           MireloStatus& failure) {
    for (size_t i = 0; i < features.size(); ++i) {
        if (features[i] == nullptr) {
            failure = {INVALID_ARGUMENTS,
                       std::string(ports.kind()) + ": the feature at index " + std::to_string(i) + " is null"};
            return false;
        }
        Feature& feature = *features[i];
        size_t index = 0;
        if (!findPort(ports, feature, i, index, failure)) return false;  // most come in the target's order
        if (taken.has(index)) return refuse(ports, index, INVALID_ARGUMENTS, "given twice", failure);
        taken.add(index);
        if (const MireloFeatureType wanted = ports.type(index); wanted != MireloFeatureType::Tensor) {
            if (feature.type() != wanted) return refuseType(ports, index, feature.type(), failure);
            continue;
        }
        decltype(feature.asTensor()) tensor;
        try {
            tensor = feature.asTensor();
        } catch (const InvalidTypeException&) {
            return refuseType(ports, index, feature.type(), failure);
        }
        if (!check(index, std::move(tensor))) return false;
    }
    return true;
}

template <typename List, typename Check>
MireloStatus matchInputs(const List& ports, const MireloModel::Inputs& inputs, const Check& check,
                         MireloStatus& status) {
    Taken taken(ports.size());
    if (!match(ports, inputs, taken, check, status)) return std::move(status);
    if (inputs.size() != ports.size()) {
        for (size_t i = 0; i < ports.size(); ++i) {
            if (taken.has(i) || !ports.required(i)) continue;
            refuse(ports, i, INVALID_ARGUMENTS, "missing", status);
            return std::move(status);
        }
    }
    status.setCode(SUCCESS);
    return std::move(status);
}

template <typename List>
MireloStatus checkInputs(const List& ports, const MireloModel::Inputs& inputs, int64_t rows) {
    MireloStatus status;
    const auto check = [&](size_t index, const std::shared_ptr<const ITensor>& tensor) {
        return checkInput(ports, index, tensor.get(), rows, status);
    };
    return matchInputs(ports, inputs, check, status);
}

template <typename List>
MireloStatus arrangeOutputs(const List& ports, const MireloModel::Outputs& outputs, int64_t rows,
                            OutputTensors& tensors) {
    MireloStatus status;
    const auto check = [&](size_t index, std::shared_ptr<ITensor> tensor) {
        const bool good = checkOutput(ports, index, tensor.get(), rows, status);
        tensors[index] = std::move(tensor);
        return good;
    };
    Taken taken(ports.size());
    if (match(ports, outputs, taken, check, status)) status.setCode(SUCCESS);
    return status;
}

template <typename InputName, typename OutputName>
MireloStatus checkApart(const InputTensors& inputs, const InputName& inputName, const OutputTensors& outputs,
                        const OutputName& outputName) {
    MemoryRanges ranges;
    ranges.reserve(inputs.size() + outputs.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i] != nullptr) ranges.addInput(*inputs[i], *inputName(i));
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
        if (outputs[i] != nullptr) ranges.addOutput(*outputs[i], *outputName(i));
    }
    return ranges.check();
}

}  // namespace

bool fits(const TensorShape& shape, const TensorShape& wanted, int64_t rows) {
    return fit(dimensionsOf(shape), dimensionsOf(wanted), rows);
}

std::optional<int64_t> byteCount(DataType type, const TensorShape& shape) { return bytesOf(type, dimensionsOf(shape)); }

MireloStatus checkInputs(const ModelTarget& target, const MireloModel::Inputs& inputs) {
    return checkInputs(TargetPorts(kInput, target.inputs), inputs, 1);
}

MireloStatus checkOutputs(const ModelTarget& target, const MireloModel::Inputs& inputs,
                          const MireloModel::Outputs& outputs) {
    const TargetPorts ports(kOutput, target.outputs);
    OutputTensors tensors(ports.size());
    MireloStatus status = arrangeOutputs(ports, outputs, 1, tensors);
    if (!status.ok()) return status;
    InputTensors inputTensors(inputs.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        try {
            if (inputs[i] != nullptr) inputTensors[i] = inputs[i]->asTensor();
        } catch (const InvalidTypeException&) {  // no tensor has no memory to share
        }
    }
    const auto inputName = [&](size_t index) { return &nameOf(inputs[index]->featureDescriptor()); };
    const auto outputName = [&](size_t index) { return &ports.name(index); };
    return checkApart(inputTensors, inputName, tensors, outputName);
}

TensorShape Ports::Port::shapeOf(int64_t rows) const { return shapeOfRows(shape, rows); }

Ports::Ports(const char* kind, const std::vector<ModelFeatureDescriptor>& descriptors, ElementTypes types)
    : kind_(kind) {
    if (descriptors.empty()) throw ModelMetaDataException(kind_ + ": the target has none");
    ports_.reserve(descriptors.size());
    for (const ModelFeatureDescriptor& descriptor : descriptors) {
        const size_t index = ports_.size();
        const TensorDescriptor& tensor = descriptor.tensorDescriptor();
        const DataType type = types == ElementTypes::Any ? DataType::Undefined : tensor.tensorType();
        ports_.push_back({descriptor, descriptor.name(), type, tensor.shape(), descriptor.required()});
        if (descriptor.type() != MireloFeatureType::Tensor) {
            throw ModelMetaDataException(
                about(index, "the type is " + GetMireloFeatureTypeName(descriptor.type()) + ", wanted is tensor"));
        }
        if (!indices_.emplace(ports_[index].name, index).second) {
            throw ModelMetaDataException(about(index, "the target has two of that name"));
        }
    }
}

std::optional<size_t> Ports::find(const std::string& name) const {
    const auto found = indices_.find(name);
    return found == indices_.end() ? std::nullopt : std::optional<size_t>(found->second);
}

std::string Ports::about(size_t index, const std::string& text) const {
    return kind_ + " \"" + ports_[index].name + "\": " + text;
}

InputPorts::InputPorts(const ModelTarget& target, ElementTypes types) : Ports(kInput, target.inputs, types) {}

MireloStatus InputPorts::check(const MireloModel::Inputs& inputs, int64_t rows) const {
    return checkInputs(PreparedPorts(kInput, *this), inputs, rows);
}

MireloStatus InputPorts::arrange(const MireloModel::Inputs& inputs, int64_t rows, InputTensors& tensors) const {
    const PreparedPorts ports(kInput, *this);
    InputTensors arranged(size());
    MireloStatus status;
    const auto check = [&](size_t index, std::shared_ptr<const ITensor> tensor) {
        const bool good = checkInput(ports, index, tensor.get(), rows, status);
        arranged[index] = std::move(tensor);
        return good;
    };
    MireloStatus matched = matchInputs(ports, inputs, check, status);
    if (matched.ok()) tensors = std::move(arranged);
    return matched;
}

OutputPorts::OutputPorts(const ModelTarget& target, ElementTypes types) : Ports(kOutput, target.outputs, types) {}

MireloStatus OutputPorts::arrange(const InputPorts& inputPorts, const InputTensors& inputs,
                                  const MireloModel::Outputs& outputs, int64_t rows, OutputTensors& tensors) const {
    OutputTensors arranged(size());
    if (!outputs.empty()) {
        MireloStatus status = arrangeOutputs(PreparedPorts(kOutput, *this), outputs, rows, arranged);
        if (!status.ok()) return status;
        status = checkApart(
            inputs, [&](size_t index) { return &inputPorts[index].name; }, arranged,
            [&](size_t index) { return &(*this)[index].name; });
        if (!status.ok()) return status;
    }
    tensors = std::move(arranged);
    return {SUCCESS, ""};
}

void BoundTensors::add(std::shared_ptr<const ITensor> tensor) {
    if (tensor == nullptr) return;
    const uint8_t* const buffer = tensor->buffer();
    const TensorShape& shape = tensor->shape();
    bound_.push_back({std::move(tensor), buffer, shape});
}

}  // namespace TarnoMirelo::Kit
