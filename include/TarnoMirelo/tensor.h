#pragma once

/// @file
/// Element types, shapes, and the tensors that own, grow, wrap or stand for an element buffer.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/status.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

namespace TarnoMirelo {

/// The type of a tensor's elements. Any other value is taken for `Undefined`, whose elements have no bytes.
enum class DataType : int32_t {
    Undefined = 0,  ///< not known; the elements have no bytes
    Bool = 1,       ///< one byte
    Int8 = 2,       ///< signed, one byte
    UInt8 = 3,      ///< unsigned, one byte
    Int16 = 4,      ///< signed, two bytes
    UInt16 = 5,     ///< unsigned, two bytes
    Int32 = 6,      ///< signed, four bytes
    UInt32 = 7,     ///< unsigned, four bytes
    Int64 = 8,      ///< signed, eight bytes
    UInt64 = 9,     ///< unsigned, eight bytes
    Float16 = 10,   ///< IEEE 754 half precision, two bytes
    Float = 11,     ///< IEEE 754 single precision, four bytes
    Double = 12,    ///< IEEE 754 double precision, eight bytes
};

/// The dimensions of a tensor, outermost first; the last one varies fastest in memory. -1 stands for a dimension that
/// is not known before run time; the shape itself treats it like any other number.
///
/// A plain value. One shape may be read from several threads at once as long as none changes it.
struct MIRELO_API TensorShape {
    /// No dimensions: the shape of a single element.
    TensorShape();
    /// @{

    /// These dimensions, outermost first. A list or a vector converts by itself, a single number does not.
    TensorShape(const std::initializer_list<int64_t>& dimensions);
    TensorShape(const std::vector<int64_t>& dimensions);
    explicit TensorShape(int64_t d0);
    TensorShape(int64_t d0, int64_t d1);
    TensorShape(int64_t d0, int64_t d1, int64_t d2);
    TensorShape(int64_t d0, int64_t d1, int64_t d2, int64_t d3);
    TensorShape(int64_t d0, int64_t d1, int64_t d2, int64_t d3, int64_t d4);
    /// @}

    /// Always true: no shape is rejected.
    bool valid() const;
    /// The number of elements: the product of all dimensions, 1 when there are none. A -1 counts as -1, so a shape with
    /// variable dimensions has no meaningful count. A product beyond 64 bits wraps around.
    int64_t size() const;
    /// The number of dimensions.
    uint64_t dimension() const;
    /// The dimensions in place, `dimension()` of them, to read and write; valid until the shape is assigned or
    /// destroyed.
    int64_t* data();
    /// A copy of the dimensions.
    std::vector<int64_t> shapeVector() const;

    /// @{

    /// The dimension at `index`, 0 for the outermost; raises `RangeException` when there is none. The reference is
    /// valid until the shape is assigned or destroyed.
    int64_t& operator[](uint64_t index);
    const int64_t& operator[](uint64_t index) const;
    /// @}

    /// Equal: as many dimensions, with equal values. A -1 equals -1 alone.
    bool operator==(const TensorShape& other) const;
    /// The reverse of `==`.
    bool operator!=(const TensorShape& other) const;
    /// The same as `==`.
    bool compare(const TensorShape& other) const;

    /// @{

    /// The last two, three, four, five dimensions, in the order that the name spells (N rows, D depth, C channels, H
    /// height, W width); missing leading ones are 1.
    std::vector<int64_t> getHW() const;
    std::vector<int64_t> getCHW() const;
    std::vector<int64_t> getNCHW() const;
    std::vector<int64_t> getNDCHW() const;
    /// @}

    /// As `getNCHW`, with the channels moved to the end.
    std::vector<int64_t> getNHWC() const;

 private:
    std::vector<int64_t> dimensions_;
};

/// An element buffer with its element type and shape.
///
/// Tensors are held by `std::shared_ptr`. A tensor is not locked: while one thread calls `resize`, `allocateShape` or
/// writes through `buffer`, no other may use it.
///
/// Byte counts are signed: a shape that still holds -1 has no meaningful one. Counts beyond 63 bits wrap around; no
/// buffer is ever allocated or accepted for them.
class MIRELO_API ITensor : public std::enable_shared_from_this<ITensor> {
 public:
    /// Shape (-1).
    explicit ITensor(DataType dataType);
    /// No buffer yet: a derived class has it.
    ITensor(DataType dataType, TensorShape shape);
    ITensor(const ITensor&) = delete;
    ITensor& operator=(const ITensor&) = delete;
    virtual ~ITensor();

    /// The dimensions; valid as long as the tensor, and it follows `resize` and `allocateShape`.
    virtual const TensorShape& shape() const;
    /// The type of the elements, which never changes; valid as long as the tensor.
    virtual const DataType& dataType() const;
    /// Element width times the element count of the shape, in bytes.
    virtual int64_t bytes() const;
    /// Gives the tensor another shape. With a buffer, only to one of the same byte count; the buffer stays where it is.
    /// Without one, the tensor gets a buffer of the new size.
    /// @return `SUCCESS`, or with the tensor unchanged
    ///   - `INVALID_SHAPE`: there is a buffer and the new shape takes another number of bytes, or there is no room for
    ///     it in 63 bits; always on a `VariableTensor`
    ///   - `ALLOCATION_FAILED`: this kind of tensor can't allocate a buffer
    /// Raises `std::length_error` or `std::bad_alloc` when a buffer of that size can't be had, and on a `DeviceTensor`
    /// without a buffer what its `allocateBufferOfSize` raises.
    virtual MireloStatus resize(const TensorShape& newShape);
    /// @{

    /// The elements, dense and row-major, or null while there is no buffer. Owned by the tensor unless its class says
    /// otherwise; valid until the next `allocateShape` or the tensor's end.
    virtual const uint8_t* buffer() const = 0;
    virtual uint8_t* buffer() = 0;
    /// @}

    /// `getStrideFromShape` of the shape.
    virtual TensorShape stride();
    /// True for tensors whose shape is fixed with `allocateShape`.
    virtual bool hasVariableShape() const;
    /// Whether the last `allocateShape` changed the shape. True before the first one and after one that raised; one
    /// that returned `INVALID_SHAPE` does not count. Always false for tensors of fixed shape.
    virtual bool tensorChanged() const;
    /// Whether the buffer lives on an execution device instead of in host memory.
    virtual bool onDevice() const;
    /// Fixes the shape of a tensor that has a variable one; `INVALID_OPERATION` on every other.
    virtual MireloStatus allocateShape(const TensorShape& newShape);

    /// The strides of a dense row-major tensor, in elements: each is the product of the dimensions behind it.
    static TensorShape getStrideFromShape(const TensorShape& shape);

 protected:
    /// Gives the tensor a zeroed buffer of `size` bytes in place of the one that it has.
    /// @return false when this kind of tensor can't
    virtual bool allocateBufferOfSize(uint64_t size) = 0;

    /// Keeps what `bytes` answers for a derived class whose `hasVariableShape` is true, in bytes.
    void setByteCount(int64_t bytes);

 private:
    int64_t byteCount_ = 0;
    DataType dataType_;
    TensorShape shape_;
};

/// A tensor that owns its buffer, which begins at a multiple of 64 bytes so that engines can use it in place.
class MIRELO_API Tensor : public ITensor {
 public:
    /// Shape (-1) and no buffer; `resize` gives it both.
    explicit Tensor(DataType dataType);
    /// Every byte of the buffer is zero. Raises `std::length_error` or `std::bad_alloc` when it can't be had.
    Tensor(DataType dataType, TensorShape shape);
    ~Tensor() override;

    const uint8_t* buffer() const override;
    uint8_t* buffer() override;

 protected:
    bool allocateBufferOfSize(uint64_t size) override;

 private:
    std::unique_ptr<void, void (*)(void*)> memory_;  // holds the buffer
};

/// A tensor over memory of the caller, which it neither copies nor releases: the caller keeps it alive and in place for
/// the tensor's lifetime.
class MIRELO_API BufferWrappedTensor : public ITensor {
 public:
    /// Shape (-1) and no buffer; it can't get one.
    explicit BufferWrappedTensor(DataType dataType);
    /// @param buffer  first element; null for a tensor without a buffer
    /// @param size    bytes that `buffer` holds, at least what the shape takes; not looked at when `buffer` is null
    /// Raises `InvalidArgumentsException` when the shape has no dimensions or takes more than `size` bytes.
    BufferWrappedTensor(DataType dataType, TensorShape shape, uint8_t* buffer, uint64_t size);
    ~BufferWrappedTensor() override;

    const uint8_t* buffer() const override;
    uint8_t* buffer() override;

 protected:
    bool allocateBufferOfSize(uint64_t size) override;

 private:
    uint8_t* buffer_ = nullptr;
};

/// The base of tensors that live on an execution device. Backends derive from it and supply the buffer; what `buffer`
/// answers is for the backend to say, null where the memory can't be reached from the host.
class MIRELO_API DeviceTensor : public ITensor {
 public:
    ~DeviceTensor() override;

    bool onDevice() const override;
    /// Whether other devices or processes may use the same memory; what was said at construction.
    virtual bool isShared() const;
    /// Copies `size` bytes from host memory to the start of the tensor; blocks until they are there.
    virtual MireloStatus copyFromHost(const uint8_t* source, uint64_t size) = 0;
    /// Copies the first `size` bytes of the tensor to host memory; blocks until they are there.
    virtual MireloStatus copyToHost(uint8_t* destination, uint64_t size) const = 0;
    /// The device's own handle of the memory, owned by the tensor.
    virtual void* nativeHandle() const = 0;

 protected:
    /// @param shared  what `isShared` answers
    DeviceTensor(DataType dataType, TensorShape shape, bool shared);

    /// Raises `InvalidOperationException`: the memory comes from a device, which only the backend knows.
    bool allocateBufferOfSize(uint64_t size) override;

 private:
    bool shared_;
};

/// A tensor whose shape is known at run time only: `allocateShape` fixes it, as often as it changes, and the buffer
/// grows as needed. It never shrinks, so going back and forth between shapes allocates nothing once the largest was
/// seen. The buffer is aligned as that of a `Tensor`.
class MIRELO_API VariableTensor : public ITensor {
 public:
    /// @param shape  of the manifest, usually with -1 dimensions; there is no buffer before the first `allocateShape`
    VariableTensor(DataType dataType, const TensorShape& shape);
    ~VariableTensor() override;

    /// The shape of the last `allocateShape`; before the first one that of the construction.
    const TensorShape& shape() const override;
    /// The bytes of the current shape, which may be fewer than the buffer has.
    int64_t bytes() const override;
    /// Always `INVALID_SHAPE`; see `allocateShape`.
    MireloStatus resize(const TensorShape& newShape) override;
    const uint8_t* buffer() const override;
    uint8_t* buffer() override;
    bool hasVariableShape() const override;
    bool tensorChanged() const override;
    /// Fixes the shape. Where more bytes are needed than the buffer has, a new zeroed one takes its place; the contents
    /// are not carried over. Otherwise buffer and contents stay.
    /// @return `SUCCESS`, or `INVALID_SHAPE` with nothing changed when the number of dimensions differs
    /// Raises `std::length_error` or `std::bad_alloc` when a larger buffer can't be had; `tensorChanged` is then true
    /// already, while shape and buffer are as before.
    MireloStatus allocateShape(const TensorShape& newShape) override;

 protected:
    bool allocateBufferOfSize(uint64_t size) override;

 private:
    std::unique_ptr<void, void (*)(void*)> memory_;  // holds the buffer
    uint64_t capacity_ = 0;                          // bytes of the buffer
    DataType elementType_;
    TensorShape currentShape_;
    bool changed_ = true;
};

}  // namespace TarnoMirelo
