#include "support/status_text.h"

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

const char* const kOtherMemory =
    "17: Cannot resize a tensor because the new shape has different memory requirements than the old shape.";

TEST(TensorShape, KeepsTheDimensionsOfEveryConstructor) {
    EXPECT_EQ(TensorShape().shapeVector(), Dimensions{});
    EXPECT_EQ(TensorShape(7).shapeVector(), Dimensions({7}));
    EXPECT_EQ(TensorShape(1, 2).shapeVector(), Dimensions({1, 2}));
    EXPECT_EQ(TensorShape(1, 2, 3).shapeVector(), Dimensions({1, 2, 3}));
    EXPECT_EQ(TensorShape(1, 2, 3, 4).shapeVector(), Dimensions({1, 2, 3, 4}));
    EXPECT_EQ(TensorShape(1, 2, 3, 4, 5).shapeVector(), Dimensions({1, 2, 3, 4, 5}));
    EXPECT_EQ(TensorShape({1, 2, 3, 4, 5, 6}).shapeVector(), Dimensions({1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(TensorShape(Dimensions{8, 9}).shapeVector(), Dimensions({8, 9}));
}

TEST(TensorShape, CountsElementsWithoutOverflow) {
    const std::pair<TensorShape, int64_t> cases[] = {
        {{}, 1},
        {{2, -1, 3}, -6},
        {{-1, -1}, 1},
        {{4, 0, 9}, 0},
        {{kHuge, kHuge}, 0},  // 2^80, modulo 2^64
        {{kHuge, kHuge, 0}, 0},
        {{std::numeric_limits<int64_t>::min(), -1}, std::numeric_limits<int64_t>::min()}};
    for (const auto& [shape, count] : cases) {
        EXPECT_EQ(shape.size(), count);
        EXPECT_TRUE(shape.valid());
    }
}

TEST(TensorShape, IsReadAndWrittenByIndexWithinItsBounds) {
    TensorShape shape(4, 5);
    shape[1] = 6;
    shape.data()[0] = 3;
    const TensorShape& constant = shape;
    EXPECT_EQ(constant[0], 3);
    EXPECT_EQ(constant[1], 6);
    const std::string expected = "14: Index was out-of-range when accessing TensorShape's dimensions";
    EXPECT_EQ(raised([&] { shape[2] = 1; }), expected);
    EXPECT_EQ(raised([&] { (void)constant[std::numeric_limits<uint64_t>::max()]; }), expected);
    EXPECT_EQ(shape.dimension(), 2U);
}

TEST(TensorShape, ComparesDimensionsOnly) {
    const TensorShape shapes[] = {{}, {2, 3}, {3, 2}, {2, 3, 4}, {2, -1}};
    for (const TensorShape& a : shapes) {
        for (const TensorShape& b : shapes) {
            EXPECT_EQ(a == b, &a == &b);
            EXPECT_EQ(a != b, &a != &b);
            EXPECT_EQ(a.compare(b), &a == &b);
        }
    }
}

TEST(TensorShape, ViewsTakeTheLastDimensionsAndFillWithOnes) {
    struct Case {
        TensorShape shape;
        Dimensions hw, chw, nchw, ndchw, nhwc;
    };
    const Case cases[] = {
        {{}, {1, 1}, {1, 1, 1}, {1, 1, 1, 1}, {1, 1, 1, 1, 1}, {1, 1, 1, 1}},
        {{3, 4}, {3, 4}, {1, 3, 4}, {1, 1, 3, 4}, {1, 1, 1, 3, 4}, {1, 3, 4, 1}},
        {{3, 224, 225}, {224, 225}, {3, 224, 225}, {1, 3, 224, 225}, {1, 1, 3, 224, 225}, {1, 224, 225, 3}},
        {{1, 2, 3, 4, 5, 6}, {5, 6}, {4, 5, 6}, {3, 4, 5, 6}, {2, 3, 4, 5, 6}, {3, 5, 6, 4}}};
    for (const Case& c : cases) {
        EXPECT_EQ(c.shape.getHW(), c.hw);
        EXPECT_EQ(c.shape.getCHW(), c.chw);
        EXPECT_EQ(c.shape.getNCHW(), c.nchw);
        EXPECT_EQ(c.shape.getNDCHW(), c.ndchw);
        EXPECT_EQ(c.shape.getNHWC(), c.nhwc);
    }
}

TEST(Tensor, StridesAreThoseOfADenseRowMajorTensor) {
    EXPECT_EQ(ITensor::getStrideFromShape({2, 3, 4}).shapeVector(), Dimensions({12, 4, 1}));
    EXPECT_EQ(ITensor::getStrideFromShape(TensorShape(5)).shapeVector(), Dimensions({1}));
    EXPECT_EQ(ITensor::getStrideFromShape({}).shapeVector(), Dimensions{});
    EXPECT_EQ(ITensor::getStrideFromShape({7, kHuge, kHuge}).shapeVector(), Dimensions({0, kHuge, 1}));
}

TEST(Tensor, OwnsAZeroedBufferThatEnginesCanUseInPlace) {
    for (const int64_t columns : {0, 1, 3, 1000, 1'000'000}) {
        SCOPED_TRACE(columns);
        Tensor tensor(DataType::Float, {2, columns});
        EXPECT_EQ(tensor.bytes(), 8 * columns);
        ASSERT_NE(tensor.buffer(), nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(tensor.buffer()) % 64, 0U);
        EXPECT_EQ(std::count(tensor.buffer(), tensor.buffer() + tensor.bytes(), 0), tensor.bytes());
        std::fill_n(tensor.buffer(), tensor.bytes(), uint8_t{255});  // sanitizers see what lies outside
    }
}

TEST(Tensor, IsReshapedInPlaceButNotResized) {
    Tensor tensor(DataType::Float, {2, 3});
    const uint8_t* const buffer = tensor.buffer();
    tensor.buffer()[23] = 9;
    EXPECT_EQ(text(tensor.resize({3, 2})), kSuccess);
    EXPECT_EQ(tensor.shape(), TensorShape(3, 2));
    EXPECT_EQ(text(tensor.resize(tensor.shape())), kSuccess);
    for (const TensorShape& other :
         {TensorShape(4, 4), TensorShape(), TensorShape(-2, 3), TensorShape(kHuge, kHuge, 6)}) {
        EXPECT_EQ(text(tensor.resize(other)), kOtherMemory);
    }
    EXPECT_EQ(tensor.shape(), TensorShape(3, 2));
    EXPECT_EQ(tensor.stride(), TensorShape(2, 1));
    EXPECT_EQ(tensor.buffer(), buffer);
    EXPECT_EQ(buffer[23], 9);
    EXPECT_EQ(text(tensor.allocateShape({3, 2})), "6: This tensor is not variable");
    EXPECT_FALSE(tensor.hasVariableShape() || tensor.tensorChanged() || tensor.onDevice());
}

TEST(Tensor, WithoutABufferGetsOneFromResize) {
    Tensor tensor(DataType::Float);
    EXPECT_EQ(tensor.shape(), TensorShape(-1));
    EXPECT_EQ(tensor.bytes(), -4);
    EXPECT_EQ(tensor.buffer(), nullptr);
    EXPECT_THROW(tensor.resize(TensorShape(-3)), std::length_error);
    EXPECT_THROW(tensor.resize({kHuge, kHuge}), std::length_error);
    EXPECT_EQ(tensor.buffer(), nullptr);
    EXPECT_EQ(tensor.shape(), TensorShape(-1));
    EXPECT_EQ(text(tensor.resize({2, 2})), kSuccess);
    EXPECT_EQ(std::count(tensor.buffer(), tensor.buffer() + 16, 0), 16);
}

TEST(Tensor, RefusesShapesThatNoBufferCanHave) {
    for (const TensorShape& shape : {TensorShape(2, -1), TensorShape(kHuge, kHuge), TensorShape(int64_t{1} << 62),
                                     TensorShape(kHuge, kHuge, -1)}) {
        EXPECT_THROW(Tensor(DataType::Double, shape), std::length_error);
    }
    EXPECT_THROW(Tensor(DataType::UInt8, TensorShape(int64_t{1} << 60)), std::bad_alloc);
    EXPECT_EQ(Tensor(DataType::UInt8, {kHuge, kHuge, 0}).bytes(), 0);
    EXPECT_EQ(Tensor(static_cast<DataType>(13), {kHuge, 2}).bytes(), 0);
}

TEST(BufferWrappedTensor, UsesTheCallersMemoryIfItSuffices) {
    std::vector<uint8_t> memory(24);
    const std::string tooSmall = "7: The existing buffer is insufficient for the given shape.";
    const auto wrap = [&](const TensorShape& shape, uint8_t* buffer, uint64_t size) {
        return raised([&] {
            BufferWrappedTensor tensor(DataType::Float, shape, buffer, size);
            EXPECT_EQ(tensor.buffer(), buffer);
        });
    };
    EXPECT_EQ(wrap({2, 3}, memory.data(), 24), "nothing");
    EXPECT_EQ(wrap({2, 3}, memory.data(), 100), "nothing");
    EXPECT_EQ(wrap({2, 3}, nullptr, 0), "nothing");
    EXPECT_EQ(wrap({}, nullptr, 0), "nothing");
    EXPECT_EQ(wrap({2, 3}, memory.data(), 23), tooSmall);
    EXPECT_EQ(wrap({2, -3}, memory.data(), 24), tooSmall);
    EXPECT_EQ(wrap({kHuge, kHuge}, memory.data(), std::numeric_limits<uint64_t>::max()), tooSmall);
    EXPECT_EQ(wrap({}, memory.data(), 24),
              "7: Tensor shape cannot be empty when constructing a new tensor with an exsiting buffer.");
}

TEST(BufferWrappedTensor, NeverGetsABufferOfItsOwn) {
    BufferWrappedTensor tensor(DataType::Float);
    EXPECT_EQ(text(tensor.resize({2, 2})), "18: Failed allocating a new buffer when resizing a tensor");
    EXPECT_EQ(text(tensor.resize({kHuge, kHuge})), "18: Failed allocating a new buffer when resizing a tensor");
    EXPECT_EQ(tensor.shape(), TensorShape(-1));
    EXPECT_EQ(tensor.buffer(), nullptr);
}

class HostMemoryDevice : public DeviceTensor {
 public:
    explicit HostMemoryDevice(uint8_t* memory) : DeviceTensor(DataType::UInt8, TensorShape(4), true), memory_(memory) {}
    const uint8_t* buffer() const override { return memory_; }
    uint8_t* buffer() override { return memory_; }
    MireloStatus copyFromHost(const uint8_t* /*source*/, uint64_t /*size*/) override { return {SUCCESS, ""}; }
    MireloStatus copyToHost(uint8_t* /*destination*/, uint64_t /*size*/) const override { return {SUCCESS, ""}; }
    void* nativeHandle() const override { return memory_; }

 private:
    uint8_t* memory_;
};

TEST(DeviceTensor, LeavesItsMemoryToTheBackend) {
    uint8_t memory[4] = {};
    HostMemoryDevice present(memory);
    EXPECT_TRUE(present.onDevice());
    EXPECT_TRUE(present.isShared());
    EXPECT_EQ(text(present.resize({2, 2})), kSuccess);
    HostMemoryDevice absent(nullptr);
    EXPECT_EQ(raised([&] {
                  absent.resize({2, 2});
              }),
              "6: allocateBufferOfSize without a specific device is not allowed for DeviceTensor");
    EXPECT_EQ(absent.shape(), TensorShape(4));
}

TEST(VariableTensor, GrowsAsNeededAndNeverShrinks) {
    VariableTensor tensor(DataType::Float, {1, -1});
    EXPECT_TRUE(tensor.hasVariableShape() && tensor.tensorChanged());
    EXPECT_EQ(tensor.buffer(), nullptr);
    EXPECT_EQ(tensor.bytes(), -4);
    EXPECT_EQ(text(tensor.resize({1, 5})),
              "17: Resizing is not allowed. Use allocateShape() to modify variable dimensions");

    EXPECT_EQ(text(tensor.allocateShape({1, 5})), kSuccess);
    EXPECT_TRUE(tensor.tensorChanged());
    EXPECT_EQ(tensor.bytes(), 20);
    EXPECT_EQ(tensor.stride(), TensorShape(5, 1));
    EXPECT_EQ(std::count(tensor.buffer(), tensor.buffer() + 20, 0), 20);
    std::fill_n(tensor.buffer(), 20, uint8_t{7});

    EXPECT_EQ(text(tensor.allocateShape(tensor.shape())), kSuccess);
    EXPECT_FALSE(tensor.tensorChanged());

    const uint8_t* const buffer = tensor.buffer();
    EXPECT_EQ(text(tensor.allocateShape({1, 2})), kSuccess);
    EXPECT_EQ(tensor.bytes(), 8);
    EXPECT_EQ(text(tensor.allocateShape({1, 5})), kSuccess);
    EXPECT_EQ(tensor.buffer(), buffer);
    EXPECT_EQ(buffer[19], 7);

    EXPECT_EQ(text(tensor.allocateShape({1, 6})), kSuccess);
    EXPECT_EQ(std::count(tensor.buffer(), tensor.buffer() + 24, 0), 24);
}

TEST(VariableTensor, IsAsBeforeWhenAShapeIsRefused) {
    VariableTensor tensor(DataType::Float, {1, -1});
    const std::string expected = "17: No. of dimensions should match the one in manifest";
    EXPECT_EQ(text(tensor.allocateShape(TensorShape(5))), expected);
    EXPECT_EQ(tensor.buffer(), nullptr);
    tensor.allocateShape({1, 5});
    tensor.allocateShape({1, 5});
    EXPECT_EQ(text(tensor.allocateShape({1, 5, 1})), expected);
    EXPECT_FALSE(tensor.tensorChanged());
    const uint8_t* const buffer = tensor.buffer();
    for (const TensorShape& impossible : {TensorShape(1, -5), TensorShape(kHuge, kHuge)}) {
        EXPECT_THROW(tensor.allocateShape(impossible), std::length_error);
        EXPECT_TRUE(tensor.tensorChanged());
        EXPECT_EQ(tensor.shape(), TensorShape(1, 5));
        EXPECT_EQ(tensor.bytes(), 20);
        EXPECT_EQ(tensor.buffer(), buffer);
    }
}

TEST(VariableTensor, TakesItsOwnManifestShapeAsAConcreteOne) {
    for (const auto& [shape, present] :
         std::vector<std::pair<TensorShape, int64_t>>{{{2, 3}, 24}, {{-1, -1}, 4}, {{1, -1}, 1}, {{4, 0}, 1}}) {
        VariableTensor tensor(DataType::Float, shape);
        EXPECT_EQ(text(tensor.allocateShape(shape)), kSuccess);
        EXPECT_FALSE(tensor.tensorChanged());
        ASSERT_NE(tensor.buffer(), nullptr);
        EXPECT_EQ(std::count(tensor.buffer(), tensor.buffer() + present, 0), present);
    }
}

}  // namespace
}  // namespace TarnoMirelo
