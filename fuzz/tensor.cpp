// Bytes as a sequence of tensor operations: after each step the tensor is as a simple model of it says.

#include "support/memory_budget.h"
#include "support/require.h"

#include <TarnoMirelo/tensor.h>

#include <algorithm>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <vector>

namespace TarnoMirelo {
namespace {

using Dimensions = std::vector<int64_t>;

constexpr int64_t kBudget = int64_t{1} << 13;  // no buffer may take more
constexpr int64_t kOverhead = 4096;            // what else an operation may take
constexpr uint8_t kMark = 0xA5;                // fills a buffer after it was checked to be zero

uint8_t hostMemory[1] = {kMark};  // wrapped, and said to be of any size: the library does not touch it

/// Tensors on a device, in host memory if anywhere.
class HostedDeviceTensor : public DeviceTensor {
 public:
    HostedDeviceTensor(DataType type, const TensorShape& shape, uint8_t* memory)
        : DeviceTensor(type, shape, true), memory_(memory) {}
    const uint8_t* buffer() const override { return memory_; }
    uint8_t* buffer() override { return memory_; }
    MireloStatus copyFromHost(const uint8_t* /*source*/, uint64_t /*size*/) override { return {NOT_IMPLEMENTED, ""}; }
    MireloStatus copyToHost(uint8_t* /*to*/, uint64_t /*size*/) const override { return {NOT_IMPLEMENTED, ""}; }
    void* nativeHandle() const override { return nullptr; }

 private:
    uint8_t* memory_;
};

int64_t widthOf(DataType type) {
    constexpr int64_t kWidths[] = {0, 1, 1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    const auto index = static_cast<int64_t>(type);
    return index < 0 || index > 12 ? 0 : kWidths[index];
}

int64_t wrappedProduct(Dimensions::const_iterator begin, Dimensions::const_iterator end) {
    const auto times = [](uint64_t a, int64_t b) { return a * static_cast<uint64_t>(b); };
    return static_cast<int64_t>(std::accumulate(begin, end, uint64_t{1}, times));
}

int64_t wrappedBytes(DataType type, Dimensions shape) {
    shape.push_back(widthOf(type));
    return wrappedProduct(shape.begin(), shape.end());
}

// Empty if elements or bytes don't fit in 63 bits.
std::optional<int64_t> exactBytes(DataType type, const Dimensions& shape) {
    if (std::find(shape.begin(), shape.end(), 0) != shape.end()) return 0;
    __int128 count = 1;
    for (const int64_t factor : shape) {
        count *= factor;
        if (std::max(count, -count) > std::numeric_limits<int64_t>::max()) return std::nullopt;
    }
    count *= widthOf(type);
    if (std::max(count, -count) > std::numeric_limits<int64_t>::max()) return std::nullopt;
    return static_cast<int64_t>(count);
}

Dimensions anyShape(FuzzedDataProvider& input) {
    Dimensions shape(input.ConsumeIntegralInRange<size_t>(0, 6));
    for (int64_t& dimension : shape) {
        const auto choice = input.ConsumeIntegral<uint8_t>();
        dimension = choice < 0xF0 ? choice % 16 - 1 : input.ConsumeIntegral<int64_t>();
    }
    return shape;
}

void checkShape(const TensorShape& shape, const Dimensions& expected) {
    require(shape.shapeVector() == expected && shape.dimension() == expected.size(), "a shape keeps its dimensions");
    require(shape.size() == wrappedProduct(expected.begin(), expected.end()), "the size is the product");
    require(shape == TensorShape(expected) && !(shape != TensorShape(expected)), "equal dimensions are equal shapes");
    Dimensions padded(5, 1);
    padded.insert(padded.end(), expected.begin(), expected.end());
    const auto last = [&](std::ptrdiff_t count) { return Dimensions(padded.end() - count, padded.end()); };
    require(shape.getHW() == last(2) && shape.getCHW() == last(3) && shape.getNCHW() == last(4) &&
                shape.getNDCHW() == last(5),
            "views are the last dimensions");
    const Dimensions nchw = last(4);
    require(shape.getNHWC() == Dimensions{nchw[0], nchw[2], nchw[3], nchw[1]}, "the channels are moved to the end");
}

void checkIndex(const TensorShape& shape) {
    try {
        static_cast<void>(shape[shape.dimension()]);
        require(false, "an index out of range raises");
    } catch (const RangeException& error) {
        require(error.getStatusCode() == RANGE_ERROR, "an index out of range raises");
    }
}

/// A tensor, and what it should be.
class Subject {
 public:
    enum class Kind : uint8_t { Owning, Wrapping, Variable, Device, kMaxValue = Device };

    explicit Subject(FuzzedDataProvider& input)
        : kind_(input.ConsumeEnum<Kind>()),
          type_(static_cast<DataType>(input.ConsumeIntegralInRange(-1, 13))),
          shape_(anyShape(input)) {
        const bool bare = input.ConsumeBool();
        // Around what it takes.
        const auto size =
            static_cast<uint64_t>(exactBytes(type_, shape_).value_or(0)) + input.ConsumeIntegral<uint8_t>() - 1;
        constructed_ = !ambiguous(shape_) && (bare ? constructBare() : construct(size));
        if (constructed_) check();
        checkIndex(TensorShape(shape_));
    }

    explicit operator bool() const { return constructed_; }

    void step(FuzzedDataProvider& input) {
        const bool own = input.ConsumeBool();  // the tensor's own shape as the argument
        const Dimensions next = own ? shape_ : anyShape(input);
        if (ambiguous(next)) return;
        const TensorShape other(next);
        const TensorShape& argument = own ? tensor_->shape() : other;
        if (input.ConsumeBool()) {
            resize(argument, next);
        } else {
            allocateShape(argument, next);
        }
        check();
    }

 private:
    // Whether a buffer can be had or not depends on what else is allocated.
    bool ambiguous(const Dimensions& shape) const {
        const std::optional<int64_t> bytes = exactBytes(type_, shape);
        return bytes && *bytes > kBudget && *bytes <= kBudget + 2 * kOverhead;
    }

    bool constructBare() {
        const bool variable = kind_ == Kind::Variable;
        if (!variable && kind_ != Kind::Device) shape_ = {-1};
        if (kind_ == Kind::Owning) tensor_ = std::make_shared<Tensor>(type_);
        if (kind_ == Kind::Wrapping) tensor_ = std::make_shared<BufferWrappedTensor>(type_);
        if (kind_ == Kind::Device) tensor_ = std::make_shared<HostedDeviceTensor>(type_, shape_, nullptr);
        if (variable) tensor_ = std::make_shared<VariableTensor>(type_, shape_);
        return true;
    }

    bool construct(uint64_t size) {
        if (kind_ == Kind::Variable) return constructBare();
        address_ = hostMemory;
        if (kind_ == Kind::Device) {
            tensor_ = std::make_shared<HostedDeviceTensor>(type_, shape_, hostMemory);
        } else if (kind_ == Kind::Wrapping) {
            const std::optional<int64_t> bytes = exactBytes(type_, shape_);
            const bool fits = bytes && size >= static_cast<uint64_t>(*bytes) && !shape_.empty();
            const auto wrap = [&] { tensor_ = std::make_shared<BufferWrappedTensor>(type_, shape_, hostMemory, size); };
            require(raises<InvalidArgumentsException>(wrap) == !fits, "memory that is too small is not wrapped");
        } else if (allocation(shape_, [&] { tensor_ = std::make_shared<Tensor>(type_, shape_); })) {
            adoptBuffer(*exactBytes(type_, shape_));
        }
        return tensor_ != nullptr;
    }

    void resize(const TensorShape& argument, const Dimensions& next) {
        MireloStatus status;
        const auto work = [&] { status = tensor_->resize(argument); };
        STATUS_CODE expected = SUCCESS;
        if (kind_ == Kind::Variable) {
            work();
            expected = INVALID_SHAPE;
        } else if (address_ != nullptr) {
            work();
            if (exactBytes(type_, next) != wrappedBytes(type_, shape_)) expected = INVALID_SHAPE;
        } else if (kind_ == Kind::Device) {
            return require(raises<InvalidOperationException>(work), "device memory comes from a device");
        } else if (kind_ == Kind::Wrapping) {
            work();
            expected = ALLOCATION_FAILED;
        } else {
            if (!allocation(next, work)) return;
            adoptBuffer(*exactBytes(type_, next));
        }
        require(status.getCode() == expected, "a tensor is resized where it can be");
        if (status.ok()) shape_ = next;
    }

    void allocateShape(const TensorShape& argument, const Dimensions& next) {
        MireloStatus status;
        const auto work = [&] { status = tensor_->allocateShape(argument); };
        const bool fits = next.size() == shape_.size();
        if (kind_ != Kind::Variable || !fits) {
            work();
            const STATUS_CODE expected = kind_ == Kind::Variable ? INVALID_SHAPE : INVALID_OPERATION;
            return require(status.getCode() == expected, "only a variable shape of as many dimensions is fixed");
        }
        const bool same = next == shape_;
        changed_ = changed_ || !same;
        const bool countless = same && exactBytes(type_, next).value_or(1) <= 0;
        const Dimensions needed = countless ? Dimensions{0} : next;  // any buffer will do
        const std::optional<int64_t> bytes = exactBytes(type_, needed);
        if (address_ != nullptr && bytes && *bytes >= 0 && *bytes <= capacity_) {
            work();
        } else {
            if (!allocation(needed, work)) return;
            adoptBuffer(countless ? 1 : *bytes);
        }
        require(status.ok(), "a variable shape is fixed");
        changed_ = !same;
        shape_ = next;
    }

    // Does what needs a buffer for that shape, and says whether one can be had.
    template <typename Work>
    bool allocation(const Dimensions& shape, const Work& work) {
        const std::optional<int64_t> bytes = exactBytes(type_, shape);
        const MemoryBudget budget(kBudget + kOverhead);
        if (!bytes || *bytes < 0 || *bytes > std::numeric_limits<int64_t>::max() - 64) {
            require(raises<std::length_error>(work), "no buffer has a size that can't be");
        } else if (*bytes > kBudget) {
            require(raises<std::bad_alloc>(work), "a buffer that can't be had raises");
        } else {
            work();
            return true;
        }
        return false;
    }

    template <typename Error, typename Work>
    static bool raises(const Work& work) {
        try {
            work();
        } catch (const Error&) {
            return true;
        }
        return false;
    }

    void adoptBuffer(int64_t bytes) {
        address_ = tensor_->buffer();
        capacity_ = bytes;
        require(address_ != nullptr && reinterpret_cast<uintptr_t>(address_) % 64 == 0, "there is an aligned buffer");
        require(std::all_of(address_, address_ + bytes, [](uint8_t byte) { return byte == 0; }), "a buffer is zero");
        std::fill_n(tensor_->buffer(), bytes, kMark);
    }

    void check() const {
        checkShape(tensor_->shape(), shape_);
        require(tensor_->dataType() == type_ && tensor_->bytes() == wrappedBytes(type_, shape_),
                "bytes follow the shape");
        require(tensor_->buffer() == address_, "a buffer stays where it is");
        require(capacity_ == 0 || (address_[0] == kMark && address_[capacity_ - 1] == kMark), "contents stay");
        Dimensions strides;
        for (auto next = shape_.begin(); next != shape_.end(); strides.push_back(wrappedProduct(next, shape_.end())))
            ++next;
        require(tensor_->stride() == TensorShape(strides), "a stride is the product of the dimensions behind it");
        const bool variable = kind_ == Kind::Variable;
        require(tensor_->hasVariableShape() == variable && tensor_->tensorChanged() == (variable && changed_) &&
                    tensor_->onDevice() == (kind_ == Kind::Device),
                "a tensor tells its kind");
    }

    Kind kind_;
    DataType type_;
    Dimensions shape_;
    bool changed_ = true;
    int64_t capacity_ = 0;  // bytes of a buffer that the tensor owns
    const uint8_t* address_ = nullptr;
    std::shared_ptr<ITensor> tensor_;
    bool constructed_ = false;
};

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    TarnoMirelo::Subject subject(input);
    while (subject && input.remaining_bytes() > 0) subject.step(input);
    return 0;
}
