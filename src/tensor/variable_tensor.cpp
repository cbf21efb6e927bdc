#include "tensor/aligned_buffer.h"
#include "tensor/data_type.h"

#include <TarnoMirelo/tensor.h>

namespace TarnoMirelo {

VariableTensor::VariableTensor(DataType dataType, const TensorShape& shape)
    : ITensor(dataType), memory_(noMemory()), elementType_(dataType), currentShape_(shape) {}

VariableTensor::~VariableTensor() = default;

const TensorShape& VariableTensor::shape() const { return currentShape_; }
int64_t VariableTensor::bytes() const { return wrappingByteCount(elementType_, currentShape_); }

MireloStatus VariableTensor::resize(const TensorShape& /*newShape*/) {
    return {INVALID_SHAPE, "Resizing is not allowed. Use allocateShape() to modify variable dimensions"};
}

const uint8_t* VariableTensor::buffer() const { return alignedBuffer(memory_); }
uint8_t* VariableTensor::buffer() { return alignedBuffer(memory_); }
bool VariableTensor::hasVariableShape() const { return true; }
bool VariableTensor::tensorChanged() const { return changed_; }

MireloStatus VariableTensor::allocateShape(const TensorShape& newShape) {
    if (newShape.dimension() != currentShape_.dimension()) {
        return {INVALID_SHAPE, "No. of dimensions should match the one in manifest"};
    }
    const bool sameShape = newShape == currentShape_;
    if (sameShape && memory_ != nullptr) {
        changed_ = false;
        return {SUCCESS, ""};
    }
    if (!sameShape) {
        changed_ = true;
        setByteCount(wrappingByteCount(elementType_, newShape));
    }
    // A manifest's shape with -1 dimensions has no byte count; fixing the tensor to it still gives it a buffer.
    const std::optional<int64_t> newBytes = checkedByteCount(elementType_, newShape);
    const uint64_t required = sameShape && newBytes && *newBytes <= 0 ? 1 : allocationSize(newBytes);
    if (memory_ == nullptr || required > capacity_) {
        memory_ = allocateZeroed(required);
        capacity_ = required;
    }
    changed_ = !sameShape;
    currentShape_ = newShape;
    return {SUCCESS, ""};
}

bool VariableTensor::allocateBufferOfSize(uint64_t /*size*/) { return false; }

}  // namespace TarnoMirelo
