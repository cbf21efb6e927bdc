#include "tensor/aligned_buffer.h"
#include "tensor/data_type.h"

#include <TarnoMirelo/tensor.h>

#include <utility>

namespace TarnoMirelo {

ITensor::ITensor(DataType dataType) : ITensor(dataType, TensorShape(-1)) {}
ITensor::ITensor(DataType dataType, TensorShape shape) : dataType_(dataType), shape_(std::move(shape)) {}
ITensor::~ITensor() = default;

const TensorShape& ITensor::shape() const { return shape_; }
const DataType& ITensor::dataType() const { return dataType_; }

int64_t ITensor::bytes() const { return hasVariableShape() ? byteCount_ : wrappingByteCount(dataType_, shape_); }

MireloStatus ITensor::resize(const TensorShape& newShape) {
    TensorShape adopted = newShape;  // before a new buffer: the copy may raise
    const std::optional<int64_t> newBytes = checkedByteCount(dataType_, newShape);
    if (buffer() != nullptr) {
        if (!newBytes || *newBytes != bytes()) {
            return {
                INVALID_SHAPE,
                "Cannot resize a tensor because the new shape has different memory requirements than the old shape."};
        }
    } else if (!allocateBufferOfSize(allocationSize(newBytes))) {
        return {ALLOCATION_FAILED, "Failed allocating a new buffer when resizing a tensor"};
    }
    if (&newShape != &shape_) shape_ = std::move(adopted);
    return {SUCCESS, ""};
}

TensorShape ITensor::stride() { return getStrideFromShape(shape()); }
bool ITensor::hasVariableShape() const { return false; }
bool ITensor::tensorChanged() const { return false; }
bool ITensor::onDevice() const { return false; }

MireloStatus ITensor::allocateShape(const TensorShape& /*newShape*/) {
    return {INVALID_OPERATION, "This tensor is not variable"};
}

TensorShape ITensor::getStrideFromShape(const TensorShape& shape) {
    std::vector<int64_t> strides(shape.dimension());
    int64_t stride = 1;
    for (size_t i = strides.size(); i-- > 0;) {
        strides[i] = stride;
        stride = wrappingProduct(stride, shape[i]);
    }
    return strides;
}

void ITensor::setByteCount(int64_t bytes) { byteCount_ = bytes; }

Tensor::Tensor(DataType dataType) : ITensor(dataType), memory_(noMemory()) {}

Tensor::Tensor(DataType dataType, TensorShape shape)
    : ITensor(dataType, std::move(shape)),
      memory_(allocateZeroed(allocationSize(checkedByteCount(dataType, ITensor::shape())))) {}

Tensor::~Tensor() = default;

const uint8_t* Tensor::buffer() const { return alignedBuffer(memory_); }
uint8_t* Tensor::buffer() { return alignedBuffer(memory_); }

bool Tensor::allocateBufferOfSize(uint64_t size) {
    memory_ = allocateZeroed(size);
    return true;
}

BufferWrappedTensor::BufferWrappedTensor(DataType dataType) : ITensor(dataType) {}

BufferWrappedTensor::BufferWrappedTensor(DataType dataType, TensorShape shape, uint8_t* buffer, uint64_t size)
    : ITensor(dataType, std::move(shape)) {
    if (buffer == nullptr) return;
    if (ITensor::shape().dimension() == 0) {
        throw InvalidArgumentsException(
            "Tensor shape cannot be empty when constructing a new tensor with an exsiting buffer.");
    }
    const std::optional<int64_t> required = checkedByteCount(dataType, ITensor::shape());
    if (!required || size < static_cast<uint64_t>(*required)) {
        throw InvalidArgumentsException("The existing buffer is insufficient for the given shape.");
    }
    buffer_ = buffer;
}

BufferWrappedTensor::~BufferWrappedTensor() = default;

const uint8_t* BufferWrappedTensor::buffer() const { return buffer_; }
uint8_t* BufferWrappedTensor::buffer() { return buffer_; }

bool BufferWrappedTensor::allocateBufferOfSize(uint64_t /*size*/) { return false; }

DeviceTensor::DeviceTensor(DataType dataType, TensorShape shape, bool shared)
    : ITensor(dataType, std::move(shape)), shared_(shared) {}

DeviceTensor::~DeviceTensor() = default;

bool DeviceTensor::onDevice() const { return true; }
bool DeviceTensor::isShared() const { return shared_; }

bool DeviceTensor::allocateBufferOfSize(uint64_t /*size*/) {
    throw InvalidOperationException("allocateBufferOfSize without a specific device is not allowed for DeviceTensor");
}

}  // namespace TarnoMirelo
