// The kit: outputs made to fit the results.

#include "support/kit_features.h"
#include "support/text.h"

#include <TarnoMirelo/kit/outputs.h>

#include <gtest/gtest.h>

#include <limits>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

const float kElements[] = {1, 2, 3, 4, 5, 6};

Result result(const TensorShape& shape, DataType type = DataType::Float) {
    return {type, shape, reinterpret_cast<const uint8_t*>(kElements)};
}

ModelTarget outputsTarget() {
    ModelTarget made;
    made.inputs = {port("x", DataType::Float, {1})};
    made.outputs = {port("y", DataType::Float, {1, 3}), port("z", DataType::Float, {-1, 2})};
    return made;
}

const InputPorts& inputPorts() {
    static const InputPorts ports(outputsTarget());
    return ports;
}

const OutputPorts& outputPorts() {
    static const OutputPorts ports(outputsTarget());
    return ports;
}

MireloStatus write(const std::vector<Result>& results, MireloModel::Outputs& outputs, int64_t rows = 1) {
    return writeOutputs(inputPorts(), {nullptr}, outputPorts(), results, rows, outputs);
}

std::shared_ptr<MireloFeature> bare(const char* name) {
    return feature(name, std::make_shared<Tensor>(DataType::Float));
}

std::shared_ptr<MireloFeature> variable(const char* name, const TensorShape& shape) {
    return feature(name, std::make_shared<VariableTensor>(DataType::Float, shape));
}

// What can be seen of outputs.
std::string seen(const MireloModel::Outputs& outputs) {
    std::string all;
    for (const auto& output : outputs) {
        const ITensor& tensor = *output->asTensor();
        all += list(tensor.shape(), tensor.buffer() == nullptr ? "bare " : "held ");
    }
    return all;
}

// A tensor that agrees to every shape and takes none.
class Stubborn : public Tensor {
 public:
    Stubborn() : Tensor(DataType::Float) {}
    MireloStatus resize(const TensorShape& /*shape*/) override { return {SUCCESS, ""}; }
};

}  // namespace

TEST(KitOutputs, AreMadeForAHostThatGaveNone) {
    MireloModel::Outputs outputs;
    ASSERT_EQ(text(write({result({1, 3}), result({2, 2})}, outputs)), kSuccess);
    ASSERT_EQ(outputs.size(), 2U);
    EXPECT_EQ(outputs[1]->featureDescriptor().name(), "z");
    EXPECT_EQ(outputs[1]->asTensor()->shape(), TensorShape(2, 2));
    EXPECT_EQ(floatsOf(outputs[0]), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(floatsOf(outputs[1]), (std::vector<float>{1, 2, 3, 4}));
    outputs.clear();
    ASSERT_EQ(text(write({result({2, 3}), result({0, 2})}, outputs, 2)), kSuccess);
    EXPECT_EQ(outputs[1]->asTensor()->shape(), TensorShape(0, 2));
}

TEST(KitOutputs, AreWrittenWhereTheHostWantsThem) {
    float memory[3] = {};
    MireloModel::Outputs outputs = {variable("z", {-1, 2}), wrapped("y", memory, {1, 3})};
    const MireloModel::Outputs given = outputs;
    ASSERT_EQ(text(write({result({1, 3}), result({3, 2})}, outputs)), kSuccess);
    EXPECT_EQ(outputs, given);
    EXPECT_EQ(memory[2], 3);
    EXPECT_EQ(floatsOf(outputs[0]), (std::vector<float>{1, 2, 3, 4, 5, 6}));
    ASSERT_EQ(text(write({result({1, 3}), result({1, 2})}, outputs)), kSuccess);
    EXPECT_EQ(outputs[0]->asTensor()->shape(), TensorShape(1, 2));
    outputs = {bare("z")};  // the other result is not looked at
    ASSERT_EQ(text(write({Result(), result({1, 2})}, outputs)), kSuccess);
    EXPECT_EQ(floatsOf(outputs[0]), (std::vector<float>{1, 2}));
}

TEST(KitOutputs, AreAllChangedOrNone) {
    constexpr int64_t kNoMemory = std::numeric_limits<int64_t>::max() / 16;
    float memory[2] = {};
    const auto grown = variable("z", {-1, 2});
    ASSERT_TRUE(grown->asTensor()->allocateShape({2, 2}).ok());
    const auto unwrapped = [](const char* name) {
        return feature(name, std::make_shared<BufferWrappedTensor>(DataType::Float));
    };
    const struct {
        MireloModel::Outputs outputs;
        std::vector<Result> results;
        std::string says;
    } cases[] = {
        {{}, {result({1, 3})}, "12: Output: the engine gives 1 results, the target declares 2"},
        {{},
         {result({1, 3}), result({2, 5})},
         "12: Output \"z\": the engine gives the shape (2, 5), declared is (-1, 2)"},
        {{},
         {result({1, 3}, DataType::Int8), result({2, 2})},
         "12: Output \"y\": the engine gives elements of type int8, declared is float"},
        {{},
         {result({1, 3}), result({kNoMemory, 2})},
         "18: Output \"z\": no memory for the shape (576460752303423487, 2)"},
        {{bare("y"), grown},
         {result({1, 3}), result({kNoMemory, 2})},
         "18: Output \"z\": no memory for the shape (576460752303423487, 2)"},
        {{bare("y"), wrapped("z", memory, {1, 2})},
         {result({1, 3}), result({2, 2})},
         "17: Output \"z\": the shape is (1, 2), wanted is (2, 2)"},
        {{bare("y"), unwrapped("z")},
         {result({1, 3}), result({1, 2})},
         "18: Output \"z\": Failed allocating a new buffer when resizing a tensor"},
        {{feature("y", std::make_shared<Stubborn>()), grown},
         {result({1, 3}), result({1, 2})},
         "17: Output \"y\": the tensor does not take the shape (1, 3)"},
    };
    for (const auto& each : cases) {
        if (each.outputs.empty()) {
            MireloModel::Outputs none;
            EXPECT_EQ(text(write(each.results, none)), each.says);
            EXPECT_TRUE(none.empty());
            continue;
        }
        for (const bool reversed : {false, true}) {
            MireloModel::Outputs outputs = each.outputs;
            if (reversed) std::swap(outputs[0], outputs[1]);
            const std::string before = seen(outputs);
            EXPECT_EQ(text(write(each.results, outputs)), each.says);
            EXPECT_EQ(seen(outputs), before) << each.says;
        }
    }
    EXPECT_EQ(grown->asTensor()->shape(), TensorShape(2, 2));
}

TEST(KitOutputs, SeeMemoryThatATensorGrowsOver) {
    const auto z = variable("z", {-1, 2});
    ASSERT_TRUE(z->asTensor()->allocateShape({8, 2}).ok());
    auto* const room = reinterpret_cast<float*>(z->asTensor()->buffer());
    ASSERT_TRUE(z->asTensor()->allocateShape({1, 2}).ok());  // in the same buffer
    MireloModel::Outputs outputs = {wrapped("y", room + 4, {1, 3}), z};
    EXPECT_EQ(text(write({result({1, 3}), result({1, 2})}, outputs)), kSuccess);
    EXPECT_EQ(write({result({1, 3}), result({3, 2})}, outputs).getCode(), INVALID_ARGUMENTS);
    EXPECT_EQ(z->asTensor()->shape(), TensorShape(1, 2));
    // Over an input: seen before the other output gets a buffer, which it could not give back.
    const auto x = wrapped("x", room + 5, {1})->asTensor();
    outputs[0] = bare("y");
    EXPECT_EQ(writeOutputs(inputPorts(), {x}, outputPorts(), {result({1, 3}), result({3, 2})}, 1, outputs).getCode(),
              INVALID_ARGUMENTS);
    EXPECT_EQ(outputs[0]->asTensor()->buffer(), nullptr);
}
