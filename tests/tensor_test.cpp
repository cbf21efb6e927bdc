#include "support/text.h"

#include <TarnoMirelo/tensor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

using Dimensions = std::vector<int64_t>;

constexpr int64_t kHuge = int64_t{1} << 40;  // squared, it does not fit in 64 bits

bool isZero(const ITensor& tensor, int64_t bytes) {
    return std::count(tensor.buffer(), tensor.buffer() + bytes, 0) == bytes;
}

TEST(TensorShape, KeepsItsDimensions) {
    EXPECT_EQ(list(TensorShape(), TensorShape(1), TensorShape(1, 2), TensorShape(1, 2, 3), TensorShape(1, 2, 3, 4),
                   TensorShape(1, 2, 3, 4, 5), TensorShape({1, 2, 3, 4, 5, 6}), TensorShape(Dimensions{7, 8})),
              "() (1) (1,2) (1,2,3) (1,2,3,4) (1,2,3,4,5) (1,2,3,4,5,6) (7,8)");
    const TensorShape shapes[] = {{}, {2, 3}, {3, 2}, {2, 3, 4}};
    for (const TensorShape& a : shapes) {
        for (const TensorShape& b : shapes) EXPECT_EQ(list(a == b, a.compare(b), a != b), &a == &b ? "1 1 0" : "0 0 1");
    }
    TensorShape shape(4, 5);
    shape[1] = 6;
    shape.data()[0] = 3;
    EXPECT_EQ(shape, TensorShape(3, 6));
    for (const uint64_t index : {uint64_t{2}, std::numeric_limits<uint64_t>::max()}) {
        EXPECT_EQ(raised([&] { shape[index] = 1; }),
                  "14: Index was out-of-range when accessing TensorShape's dimensions");
    }
}

TEST(TensorShape, CountsElementsWithoutOverflow) {
    constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();
    EXPECT_EQ(list(TensorShape().size(), TensorShape(2, -1, 3).size(), TensorShape(-1, -1).size()), "1 -6 1");
    EXPECT_EQ(list(TensorShape(kHuge, kHuge).size(), TensorShape(kHuge, kHuge, 0).size()), "0 0");
    EXPECT_EQ(TensorShape(kLowest, -1).size(), kLowest);
    EXPECT_EQ(list(ITensor::getStrideFromShape({2, 3, 4}), ITensor::getStrideFromShape({})), "(12,4,1) ()");
    EXPECT_EQ(ITensor::getStrideFromShape({7, kHuge, kHuge}), TensorShape(0, kHuge, 1));
}

TEST(TensorShape, ViewsTakeTheLastDimensionsAndFillWithOnes) {
    const auto views = [](const TensorShape& s) {
        return list(TensorShape(s.getHW()), TensorShape(s.getCHW()), TensorShape(s.getNCHW()),
                    TensorShape(s.getNDCHW()), TensorShape(s.getNHWC()));
    };
    EXPECT_EQ(views({}), "(1,1) (1,1,1) (1,1,1,1) (1,1,1,1,1) (1,1,1,1)");
    EXPECT_EQ(views({3, 4}), "(3,4) (1,3,4) (1,1,3,4) (1,1,1,3,4) (1,3,4,1)");
    EXPECT_EQ(views({1, 2, 3, 4, 5, 6}), "(5,6) (4,5,6) (3,4,5,6) (2,3,4,5,6) (3,5,6,4)");
}

TEST(Tensor, OwnsAZeroedBufferThatEnginesCanUseInPlace) {
    for (const int64_t columns : {0, 1, 3, 1000, 1'000'000}) {
        Tensor tensor(DataType::Float, {2, columns});
        ASSERT_NE(tensor.buffer(), nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(tensor.buffer()) % 64, 0U);
        EXPECT_TRUE(tensor.bytes() == 8 * columns && isZero(tensor, 8 * columns));
        std::fill_n(tensor.buffer(), tensor.bytes(), uint8_t{255});  // sanitizers see what lies outside
    }
}

TEST(Tensor, IsReshapedInPlaceButNotResized) {
    Tensor tensor(DataType::Float, {2, 3});
    const uint8_t* const buffer = tensor.buffer();
    EXPECT_EQ(text(tensor.resize({3, 2})) + text(tensor.resize(tensor.shape())), "1: 1: ");
    for (const TensorShape& other : {TensorShape(4, 4), TensorShape(-2, 3), TensorShape(kHuge, kHuge, 6)}) {
        EXPECT_EQ(
            text(tensor.resize(other)),
            "17: Cannot resize a tensor because the new shape has different memory requirements than the old shape.");
    }
    EXPECT_EQ(list(tensor.shape(), tensor.stride(), tensor.buffer() == buffer), "(3,2) (2,1) 1");
    EXPECT_EQ(text(tensor.allocateShape({3, 2})), "6: This tensor is not variable");
    EXPECT_FALSE(tensor.hasVariableShape() || tensor.tensorChanged() || tensor.onDevice());
}

TEST(Tensor, WithoutABufferGetsOneFromResize) {
    Tensor tensor(DataType::Float);
    for (const TensorShape& impossible : {TensorShape(-3), TensorShape(kHuge, kHuge)}) {
        EXPECT_THROW(tensor.resize(impossible), std::length_error);
        EXPECT_EQ(list(tensor.shape(), tensor.bytes(), tensor.buffer() == nullptr), "(-1) -4 1");
    }
    EXPECT_EQ(text(tensor.resize({2, 2})), kSuccess);
    EXPECT_TRUE(isZero(tensor, 16));
}

TEST(Tensor, RefusesShapesThatNoBufferCanHave) {
    for (const TensorShape& shape : {TensorShape(2, -1), TensorShape(kHuge, kHuge), TensorShape(int64_t{1} << 62)}) {
        EXPECT_THROW(Tensor(DataType::Double, shape), std::length_error);
    }
    EXPECT_THROW(Tensor(DataType::UInt8, TensorShape(int64_t{1} << 60)), std::bad_alloc);
    EXPECT_EQ(Tensor(DataType::UInt8, {kHuge, kHuge, 0}).bytes(), 0);
    EXPECT_EQ(Tensor(static_cast<DataType>(13), {kHuge, 2}).bytes(), 0);
}

TEST(BufferWrappedTensor, UsesTheCallersMemoryIfItSuffices) {
    uint8_t memory[24] = {};
    const auto wrap = [&](const TensorShape& shape, uint8_t* buffer, uint64_t size) {
        return raised([&] { EXPECT_EQ(BufferWrappedTensor(DataType::Float, shape, buffer, size).buffer(), buffer); });
    };
    for (const uint64_t size : {24U, 100U}) EXPECT_EQ(wrap({2, 3}, memory, size), "nothing");
    for (const TensorShape& shape : {TensorShape(2, 3), TensorShape()}) EXPECT_EQ(wrap(shape, nullptr, 0), "nothing");
    const std::string tooSmall = "7: The existing buffer is insufficient for the given shape.";
    EXPECT_EQ(wrap({2, 3}, memory, 23), tooSmall);
    EXPECT_EQ(wrap({2, -3}, memory, 24), tooSmall);
    EXPECT_EQ(wrap({kHuge, kHuge}, memory, std::numeric_limits<uint64_t>::max()), tooSmall);
    EXPECT_EQ(wrap({}, memory, 24),
              "7: Tensor shape cannot be empty when constructing a new tensor with an exsiting buffer.");
    BufferWrappedTensor empty(DataType::Float);
    EXPECT_EQ(text(empty.resize({2, 2})), "18: Failed allocating a new buffer when resizing a tensor");
    EXPECT_EQ(empty.shape(), TensorShape(-1));
}

class HostMemoryDevice : public DeviceTensor {
 public:
    explicit HostMemoryDevice(uint8_t* memory) : DeviceTensor(DataType::UInt8, TensorShape(4), true), memory_(memory) {}
    const uint8_t* buffer() const override { return memory_; }
    uint8_t* buffer() override { return memory_; }
    MireloStatus copyFromHost(const uint8_t* /*source*/, uint64_t /*size*/) override { return {}; }
    MireloStatus copyToHost(uint8_t* /*destination*/, uint64_t /*size*/) const override { return {}; }
    void* nativeHandle() const override { return memory_; }

 private:
    uint8_t* memory_;
};

TEST(DeviceTensor, LeavesItsMemoryToTheBackend) {
    uint8_t memory[4] = {};
    HostMemoryDevice present(memory);
    EXPECT_EQ(list(present.onDevice(), present.isShared(), text(present.resize({2, 2}))), "1 1 1: ");
    HostMemoryDevice absent(nullptr);
    const std::string refused = "6: allocateBufferOfSize without a specific device is not allowed for DeviceTensor";
    EXPECT_EQ(raised([&] { absent.resize(TensorShape(2, 2)); }), refused);
    EXPECT_EQ(absent.shape(), TensorShape(4));
}

TEST(VariableTensor, GrowsAsNeededAndNeverShrinks) {
    VariableTensor tensor(DataType::Float, {1, -1});
    EXPECT_EQ(list(tensor.hasVariableShape(), tensor.tensorChanged(), tensor.bytes(), tensor.buffer() == nullptr),
              "1 1 -4 1");
    EXPECT_EQ(text(tensor.resize({1, 5})),
              "17: Resizing is not allowed. Use allocateShape() to modify variable dimensions");
    EXPECT_EQ(text(tensor.allocateShape({1, 5})), kSuccess);
    EXPECT_EQ(list(tensor.tensorChanged(), tensor.bytes(), tensor.stride(), isZero(tensor, 20)), "1 20 (5,1) 1");
    EXPECT_EQ(text(tensor.allocateShape(tensor.shape())), kSuccess);
    EXPECT_FALSE(tensor.tensorChanged());
    const uint8_t* const buffer = tensor.buffer();
    std::fill_n(tensor.buffer(), 20, uint8_t{7});
    tensor.allocateShape({1, 2});
    EXPECT_EQ(tensor.bytes(), 8);
    tensor.allocateShape({1, 5});
    EXPECT_EQ(list(tensor.buffer() == buffer, int{buffer[19]}), "1 7");
    tensor.allocateShape({1, 6});
    EXPECT_TRUE(isZero(tensor, 24));
}

TEST(VariableTensor, IsAsBeforeWhenAShapeIsRefused) {
    VariableTensor tensor(DataType::Float, {1, -1});
    const std::string expected = "17: No. of dimensions should match the one in manifest";
    EXPECT_EQ(text(tensor.allocateShape(TensorShape(5))), expected);
    EXPECT_EQ(tensor.buffer(), nullptr);
    for (int times = 0; times < 2; ++times) tensor.allocateShape({1, 5});
    EXPECT_EQ(text(tensor.allocateShape({1, 5, 1})), expected);
    EXPECT_FALSE(tensor.tensorChanged());
    const uint8_t* const buffer = tensor.buffer();
    for (const TensorShape& impossible : {TensorShape(1, -5), TensorShape(kHuge, kHuge)}) {
        EXPECT_THROW(tensor.allocateShape(impossible), std::length_error);
        EXPECT_EQ(list(tensor.tensorChanged(), tensor.shape(), tensor.bytes(), tensor.buffer() == buffer),
                  "1 (1,5) 20 1");
    }
}

TEST(VariableTensor, TakesItsOwnManifestShapeAsAConcreteOne) {
    const std::pair<TensorShape, int64_t> cases[] = {{{2, 3}, 24}, {{-1, -1}, 4}, {{1, -1}, 1}, {{4, 0}, 1}};
    for (const auto& [shape, present] : cases) {
        VariableTensor tensor(DataType::Float, shape);
        EXPECT_EQ(text(tensor.allocateShape(shape)), kSuccess);
        ASSERT_NE(tensor.buffer(), nullptr);
        EXPECT_TRUE(isZero(tensor, present) && !tensor.tensorChanged());
    }
    constexpr int64_t kRoot = int64_t{1} << 40;  // whose square wraps around to 0
    EXPECT_THROW(VariableTensor(DataType::UInt8, {kRoot, kRoot}).allocateShape({kRoot, kRoot}), std::length_error);
}

}  // namespace
}  // namespace TarnoMirelo
