// The kit: batches.

#include "support/kit_features.h"
#include "support/text.h"

#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/outputs.h>

#include <gtest/gtest.h>

#include <numeric>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

// "sum" is the sum of the elements of a and b, "double" is twice a. Rows of (1, 2).
class Engine {
 public:
    MireloStatus operator()(const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs, int64_t rows) {
        calls += std::to_string(rows) + ";";
        if (rows > 1 && refusesRows) return {INVALID_OPERATION, "one at a time"};
        InputTensors tensors;
        MireloStatus status = inputPorts.arrange(inputs, rows, tensors);
        if (!status.ok()) return status;
        const auto count = static_cast<size_t>(rows);
        const auto* const a = reinterpret_cast<const float*>(tensors[0]->buffer());
        const auto* const b = reinterpret_cast<const float*>(tensors[1]->buffer());
        std::vector<float> sum(count);
        std::vector<float> doubled(2 * count);
        for (size_t i = 0; i < 2 * count; ++i) {
            if (a[i] < 0) return {ML_FRAMEWORK_ERROR, "negative"};
            sum[i / 2] += a[i] + b[i];
            doubled[i] = 2 * a[i];
        }
        const auto bytes = [](const std::vector<float>& from) { return reinterpret_cast<const uint8_t*>(from.data()); };
        status = writeOutputs(inputPorts, tensors, outputPorts,
                              {{DataType::Float, TensorShape(rows, 1), bytes(sum)},
                               {DataType::Float, TensorShape(rows, 2), bytes(doubled)}},
                              rows, outputs);
        if (reversed) std::reverse(outputs.begin(), outputs.end());
        return warns && status.ok() ? MireloStatus(WARNING, "slow") : status;
    }

    static ModelTarget target() {
        ModelTarget made;
        made.inputs = {port("a", DataType::Float, {1, 2}), port("b", DataType::Float, {1, 2})};
        made.outputs = {port("sum", DataType::Float, {1, 1}), port("double", DataType::Float, {1, 2})};
        return made;
    }

    const InputPorts inputPorts{target()};
    const OutputPorts outputPorts{target()};
    bool refusesRows = false, reversed = false, warns = false;
    std::string calls;

    MireloStatus run(const MireloModel::Outputs& inputs, MireloModel::Outputs& outputs, Stacking stacking) {
        calls.clear();
        return runBatch(inputPorts, outputPorts, {inputs.begin(), inputs.end()}, outputs, stacking, std::ref(*this));
    }
};

// Two rows, in an order of their own.
MireloModel::Outputs twoRows() {
    return {floats("a", {1, 2}), floats("a", {3, 4}), floats("b", {10, 20}), floats("b", {30, 40})};
}

std::string all(const MireloModel::Outputs& outputs) {
    std::string text;
    for (const auto& output : outputs) {
        text += output->featureDescriptor().name();
        for (const float each : floatsOf(output)) text += " " + std::to_string(static_cast<int>(each));
        text += ";";
    }
    return text;
}

constexpr const char* kRowByRow = "sum 33;double 2 4;sum 77;double 6 8;";

}  // namespace

TEST(KitBatch, GivesNewOutputsRowByRow) {
    for (const bool reversed : {false, true}) {
        for (const bool refusing : {false, true}) {
            Engine engine;
            engine.reversed = reversed;
            engine.refusesRows = refusing;
            MireloModel::Outputs outputs;
            ASSERT_EQ(text(engine.run(twoRows(), outputs, Stacking::Never)), kSuccess);
            EXPECT_EQ(engine.calls, "1;1;");
            EXPECT_EQ(all(outputs), kRowByRow);
            outputs.clear();
            ASSERT_EQ(text(engine.run(twoRows(), outputs, Stacking::Promised)), kSuccess);
            EXPECT_EQ(engine.calls, refusing ? "2;1;1;" : "2;");
            EXPECT_EQ(all(outputs), kRowByRow);
        }
    }
}

TEST(KitBatch, WritesIntoGivenOutputs) {
    for (const Stacking stacking : {Stacking::Never, Stacking::Promised}) {
        Engine engine;
        MireloModel::Outputs outputs = {floats("double", {0, 0}), floats("sum", {0}), floats("sum", {0}),
                                        feature("double", std::make_shared<Tensor>(DataType::Float))};
        const MireloModel::Outputs given = outputs;
        ASSERT_EQ(text(engine.run(twoRows(), outputs, stacking)), kSuccess);
        EXPECT_EQ(outputs, given);
        EXPECT_EQ(all(outputs), "double 2 4;sum 33;sum 77;double 6 8;");
        outputs = {floats("sum", {0}), floats("sum", {0})};
        ASSERT_EQ(text(engine.run(twoRows(), outputs, stacking)), kSuccess);
        EXPECT_EQ(all(outputs), "sum 33;sum 77;");
    }
}

// It has no elements when the rows are checked, and then grows within its buffer over what the second row reads.
TEST(KitBatch, RefusesAnOutputThatGrowsOverAnotherRow) {
    for (const Stacking stacking : {Stacking::Never, Stacking::Promised}) {
        Engine engine;
        const auto grows = std::make_shared<VariableTensor>(DataType::Float, TensorShape(-1, -1));
        ASSERT_EQ(text(grows->allocateShape({2, 2})), kSuccess);
        MireloModel::Outputs inputs = twoRows();
        inputs[1] = wrapped("a", reinterpret_cast<float*>(grows->buffer()), {1, 2});
        ASSERT_EQ(text(grows->allocateShape({0, 2})), kSuccess);
        MireloModel::Outputs outputs = {feature("double", grows), floats("double", {0, 0})};
        EXPECT_EQ(text(engine.run(inputs, outputs, stacking)),
                  "7: Between rows: Output \"double\": the tensor shares its memory with input \"a\", wanted is memory "
                  "of its own");
    }
}

TEST(KitBatch, PassesOnWarningsAndFailures) {
    for (const Stacking stacking : {Stacking::Never, Stacking::Promised}) {
        Engine engine;
        engine.warns = true;
        MireloModel::Outputs outputs;
        EXPECT_EQ(engine.run(twoRows(), outputs, stacking).getCode(), WARNING);
        EXPECT_EQ(outputs.size(), 4U);
        outputs.clear();
        MireloModel::Outputs inputs = twoRows();
        inputs[1] = floats("a", {-1, 0});
        EXPECT_EQ(text(engine.run(inputs, outputs, stacking)), "13: Row 1: negative");
        EXPECT_TRUE(outputs.empty());
    }
}

TEST(KitBatch, IsCheckedBeforeARowIsRun) {
    float memory[8] = {};
    const auto at = [&](const char* name, int offset) { return wrapped(name, memory + offset, {1, 2}); };
    const struct {
        MireloModel::Outputs inputs, outputs;
        std::string says;
    } cases[] = {
        {{}, {}, "7: Input: the batch is empty, wanted is at least one row"},
        {{nullptr}, {}, "7: Input: the feature at index 0 is null"},
        {{floats("c", {1, 2})}, {}, "7: Input \"c\": the target has none of that name"},
        {{floats("a", {1, 2})}, {}, "7: Row 0: Input \"b\": missing"},
        {{floats("a", {1, 2}), floats("a", {1, 2}), floats("b", {1, 2})},
         {},
         R"(8: Input "b": 1 features, wanted are 2 as of input "a")"},
        {{floats("a", {1, 2}), floats("b", {1, 2}), floats("a", {1, 2}), floats("b", {1, 2, 3})},
         {},
         "17: Row 1: Input \"b\": the shape is (1, 3), wanted is (1, 2)"},
        {twoRows(), {floats("sum", {0})}, "7: Output \"sum\": 1 features, wanted are 2, one for each row"},
        {twoRows(),
         {floats("sum", {0}), floats("sum", {0, 0})},
         "17: Row 1: Output \"sum\": the shape is (1, 2), wanted is (1, 1)"},
        {twoRows(),
         {at("double", 0), at("double", 1)},
         "7: Between rows: Output \"double\": the tensor shares its memory with output \"double\", wanted is memory of "
         "its own"},
        {{at("a", 0), floats("b", {1, 2}), at("a", 2), floats("b", {1, 2})},
         {at("double", 3), at("double", 6)},
         "7: Between rows: Output \"double\": the tensor shares its memory with input \"a\", wanted is memory of its "
         "own"},
    };
    for (const auto& each : cases) {
        Engine engine;
        MireloModel::Outputs outputs = each.outputs;
        EXPECT_EQ(text(engine.run(each.inputs, outputs, Stacking::Promised)), each.says);
        EXPECT_EQ(engine.calls, "");
        EXPECT_EQ(outputs, each.outputs);
    }
}

TEST(KitBatch, RunsRowsOfDifferentShapesOneByOne) {
    ModelTarget target = Engine::target();
    target.inputs = {port("x", DataType::Float, {1, -1})};
    target.outputs = {port("n", DataType::Float, {1})};
    const InputPorts inputPorts(target);
    const OutputPorts outputPorts(target);
    const auto count = [&](const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs, int64_t rows) {
        EXPECT_EQ(rows, 1);
        const auto length = static_cast<float>(inputs.at(0)->asTensor()->shape()[1]);
        return writeOutputs(inputPorts, {nullptr}, outputPorts,
                            {{DataType::Float, TensorShape(1), reinterpret_cast<const uint8_t*>(&length)}}, rows,
                            outputs);
    };
    MireloModel::Outputs outputs;
    ASSERT_EQ(text(runBatch(inputPorts, outputPorts, {floats("x", {1, 2, 3}), floats("x", {1})}, outputs,
                            Stacking::Promised, count)),
              kSuccess);
    EXPECT_EQ(all(outputs), "n 3;n 1;");
}

// A backend that says it took several rows, but gave results for one.
TEST(KitBatch, RunsRowsOneByOneWhenTheResultsOfAPassAreNoRows) {
    ModelTarget target = Engine::target();
    target.inputs = {port("x", DataType::Float, {1, 2})};
    target.outputs = {port("y", DataType::Float, {-1, 2})};
    std::string calls;
    const auto first = [&](const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs, int64_t rows) {
        calls += std::to_string(rows) + ";";
        const auto* const x = reinterpret_cast<const float*>(inputs.at(0)->asTensor()->buffer());
        outputs = {floats("y", {x[0], x[1]})};
        return MireloStatus(SUCCESS, "");
    };
    MireloModel::Outputs outputs;
    ASSERT_EQ(text(runBatch(InputPorts(target), OutputPorts(target), {floats("x", {1, 2}), floats("x", {3, 4})},
                            outputs, Stacking::Promised, first)),
              kSuccess);
    EXPECT_EQ(calls, "2;1;1;");
    EXPECT_EQ(all(outputs), "y 1 2;y 3 4;");
}
