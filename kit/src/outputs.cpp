#include "memory_ranges.h"

#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

MireloStatus refuse(const Ports& ports, size_t index, STATUS_CODE code, const std::string& text) {
    return {code, ports.about(index, text)};
}

MireloStatus checkResult(const OutputPorts& ports, size_t index, const Result& result, int64_t rows) {
    const Ports::Port& port = ports[index];
    if (port.dataType != DataType::Undefined && result.dataType != port.dataType) {
        return refuse(
            ports, index, MODEL_METADATA_ERROR,
            "the engine gives elements of type " + toText(result.dataType) + ", declared is " + toText(port.dataType));
    }
    if (fits(result.shape, port.shape, rows) && byteCount(result.dataType, result.shape)) return {SUCCESS, ""};
    return refuse(ports, index, MODEL_METADATA_ERROR,
                  "the engine gives the shape " + toText(result.shape) + ", declared is " + toText(port.shapeOf(rows)));
}

// Whether a tensor of the host's can take the result, as it is or once it has got the shape.
MireloStatus checkGiven(const OutputPorts& ports, size_t index, const ITensor& tensor, const Result& result) {
    if (tensor.dataType() != result.dataType) {
        return refuse(ports, index, INVALID_TENSOR_DATA_TYPE,
                      "the element type is " + toText(tensor.dataType()) + ", wanted is " + toText(result.dataType));
    }
    const TensorShape& shape = tensor.shape();
    const bool takesShape = tensor.hasVariableShape() ? shape.dimension() == result.shape.dimension()
                                                      : tensor.buffer() == nullptr || shape == result.shape;
    if (takesShape) return {SUCCESS, ""};
    return refuse(ports, index, INVALID_SHAPE, "the shape is " + toText(shape) + ", wanted is " + toText(result.shape));
}

// What `work` answers or, short of memory, ALLOCATION_FAILED.
template <typename Work>
MireloStatus orAllocationFailed(const OutputPorts& ports, size_t index, const TensorShape& shape, const Work& work) {
    const auto failed = [&] {
        return refuse(ports, index, ALLOCATION_FAILED, "no memory for the shape " + toText(shape));
    };
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return failed();
    } catch (const std::length_error&) {
        return failed();
    }
}

bool hasShape(const ITensor& tensor, const TensorShape& shape) {
    return tensor.buffer() != nullptr && tensor.shape() == shape;
}

MireloStatus giveShape(const OutputPorts& ports, size_t index, ITensor& tensor, const TensorShape& shape) {
    return orAllocationFailed(ports, index, shape, [&] {
        MireloStatus status = tensor.hasVariableShape() ? tensor.allocateShape(shape) : tensor.resize(shape);
        if (status.ok() && !hasShape(tensor, shape)) {
            return refuse(ports, index, INVALID_SHAPE, "the tensor does not take the shape " + toText(shape));
        }
        if (!status.ok()) status.setDescription(ports.about(index, status.getDescription()));
        return status;
    });
}

// Whether a tensor without a buffer says that it is of a kind that can't get one. It is asked for a buffer of a size
// that can't be had: a tensor that can allocate raises, and stays as it is either way.
bool refusesBuffers(ITensor& tensor) {
    if (tensor.hasVariableShape() || tensor.buffer() != nullptr) return false;
    try {
        return !tensor.resize(TensorShape(-1)).ok();
    } catch (const std::length_error&) {
        return false;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (...) {
        return true;
    }
}

// The variable tensors that have got another shape, which they get back unless it is kept.
class ShapeChanges {
 public:
    ShapeChanges() = default;
    ShapeChanges(const ShapeChanges&) = delete;
    ShapeChanges& operator=(const ShapeChanges&) = delete;
    ~ShapeChanges() {
        for (const auto& [tensor, shape] : changes_) {
            try {
                tensor->allocateShape(shape);  // one that it had: nothing is allocated
            } catch (...) {                    // NOLINT(bugprone-empty-catch): it is the first failure that is told
            }
        }
    }

    void reserve(size_t count) { changes_.reserve(count); }
    void add(ITensor& tensor) { changes_.emplace_back(&tensor, tensor.shape()); }
    void keep() { changes_.clear(); }

 private:
    std::vector<std::pair<ITensor*, TensorShape>> changes_;
};

// A tensor that needs another shape or a buffer.
struct Change {
    // In the order in which they are made: what can be taken back comes before what can't.
    enum Kind { Refused, Reshaped, Allocated };

    Kind kind;
    int64_t bytes;
    size_t index;
};

// Within a kind, those that need the most memory come first, so that little has changed when there is none.
std::vector<Change> changesFor(const std::vector<Result>& results, const OutputTensors& tensors) {
    std::vector<Change> changes;
    for (size_t i = 0; i < tensors.size(); ++i) {
        if (tensors[i] == nullptr || hasShape(*tensors[i], results[i].shape)) continue;
        const Change::Kind kind = tensors[i]->buffer() != nullptr ? Change::Reshaped
                                  : refusesBuffers(*tensors[i])   ? Change::Refused
                                                                  : Change::Allocated;
        changes.push_back({kind, *byteCount(results[i].dataType, results[i].shape), i});
    }
    std::sort(changes.begin(), changes.end(), [](const Change& one, const Change& other) {
        return one.kind != other.kind ? one.kind < other.kind : one.bytes > other.bytes;
    });
    return changes;
}

MireloStatus checkApart(const InputPorts& inputPorts, const InputTensors& inputs, const OutputPorts& ports,
                        const OutputTensors& tensors) {
    MemoryRanges ranges;
    ranges.reserve(inputs.size() + tensors.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i] != nullptr) ranges.addInput(*inputs[i], inputPorts[i].name);
    }
    for (size_t i = 0; i < tensors.size(); ++i) {
        if (tensors[i] != nullptr) ranges.addOutput(*tensors[i], ports[i].name);
    }
    return ranges.check();
}

MireloStatus giveShapes(const InputPorts& inputPorts, const InputTensors& inputs, const OutputPorts& ports,
                        const std::vector<Result>& results, const OutputTensors& tensors) {
    const std::vector<Change> changes = changesFor(results, tensors);
    ShapeChanges reshaped;
    reshaped.reserve(changes.size());
    auto next = changes.begin();
    for (; next != changes.end() && next->kind != Change::Allocated; ++next) {
        ITensor& tensor = *tensors[next->index];
        if (next->kind == Change::Reshaped) reshaped.add(tensor);
        MireloStatus status = giveShape(ports, next->index, tensor, results[next->index].shape);
        if (!status.ok()) return status;
    }
    // A variable tensor may have grown within its buffer, over what somebody wrapped there.
    MireloStatus status = checkApart(inputPorts, inputs, ports, tensors);
    for (; status.ok() && next != changes.end(); ++next) {
        status = giveShape(ports, next->index, *tensors[next->index], results[next->index].shape);
    }
    if (status.ok()) reshaped.keep();
    return status;
}

MireloStatus create(const OutputPorts& ports, const std::vector<Result>& results, PreparedOutputs& created) {
    created.features.reserve(ports.size());
    for (size_t i = 0; i < ports.size(); ++i) {
        MireloStatus status = orAllocationFailed(ports, i, results[i].shape, [&]() -> MireloStatus {
            created.tensors[i] = std::make_shared<Tensor>(results[i].dataType, results[i].shape);
            created.features.push_back(std::make_shared<MireloFeatureTensor>(ports[i].descriptor, created.tensors[i]));
            return {SUCCESS, ""};
        });
        if (!status.ok()) return status;
    }
    return {SUCCESS, ""};
}

}  // namespace

MireloStatus prepareOutputs(const InputPorts& inputPorts, const InputTensors& inputs, const OutputPorts& ports,
                            const std::vector<Result>& results, const MireloModel::Outputs& given, int64_t rows,
                            PreparedOutputs& prepared) {
    PreparedOutputs made;
    MireloStatus status = ports.arrange(inputPorts, inputs, given, rows, made.tensors);
    if (status.ok() && results.size() != ports.size()) {
        status = {MODEL_METADATA_ERROR, "Output: the engine gives " + std::to_string(results.size()) +
                                            " results, the target declares " + std::to_string(ports.size())};
    }
    for (size_t i = 0; status.ok() && i < ports.size(); ++i) {
        if (given.empty() || made.tensors[i] != nullptr) status = checkResult(ports, i, results[i], rows);
        if (status.ok() && made.tensors[i] != nullptr) status = checkGiven(ports, i, *made.tensors[i], results[i]);
    }
    if (!status.ok()) return status;
    made.features = given;
    status =
        given.empty() ? create(ports, results, made) : giveShapes(inputPorts, inputs, ports, results, made.tensors);
    if (status.ok()) prepared = std::move(made);
    return status;
}

MireloStatus writeOutputs(const InputPorts& inputPorts, const InputTensors& inputs, const OutputPorts& ports,
                          const std::vector<Result>& results, int64_t rows, MireloModel::Outputs& outputs) {
    PreparedOutputs prepared;
    MireloStatus status = prepareOutputs(inputPorts, inputs, ports, results, outputs, rows, prepared);
    if (!status.ok()) return status;
    for (size_t i = 0; i < prepared.tensors.size(); ++i) {
        if (prepared.tensors[i] == nullptr) continue;
        const auto bytes = static_cast<size_t>(*byteCount(results[i].dataType, results[i].shape));
        if (bytes > 0) std::memcpy(prepared.tensors[i]->buffer(), results[i].elements, bytes);
    }
    outputs = std::move(prepared.features);
    return status;
}

}  // namespace TarnoMirelo::Kit
