// What a model's record says, against what the heap grew by.

#include "support/onnx_writer.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/onnxruntime.h>

#include <gtest/gtest.h>

#include <malloc.h>
#include <numeric>

namespace TarnoMirelo {
namespace {

using namespace OnnxWriter;

struct Port {
    std::string name;
    DataType type;
    TensorShape shape;
};

std::vector<ModelFeatureDescriptor> describe(const std::vector<Port>& ports) {
    std::vector<ModelFeatureDescriptor> all;
    for (const Port& each : ports) {
        all.emplace_back(MireloFeatureType::Tensor, true, each.name, "", TensorDescriptor(each.shape, each.type));
    }
    return all;
}

uint64_t heapInUse() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

class OnnxRuntimeMemory : public testing::Test {
 protected:
    // Loads, predicts once, and compares. Inputs and outputs, which are the host's, are made beforehand.
    static void check(const std::filesystem::path& file, const std::vector<Port>& inputs,
                      const std::vector<Port>& outputs) {
        ModelTarget target;
        target.components = {{"net", file.filename().string(), Encryption(), ComponentKind::File, {}}};
        target.inputs = describe(inputs);
        target.outputs = describe(outputs);
        OnnxRuntime::Options options;
        options.threadsWithinNodes = 1;
        const auto model = std::make_shared<OnnxRuntime::Model>("m", MireloModelType::WinML, MireloConfig(), options);
        ModelManager manager;
        ASSERT_EQ(text(manager.registerModel(model)), kSuccess);
        MireloModel::Inputs given;
        for (const ModelFeatureDescriptor& each : target.inputs) {
            const auto feature = std::make_shared<MireloFeatureTensor>(each);
            ITensor& tensor = *feature->asTensor();
            if (tensor.dataType() == DataType::Int64)
                *reinterpret_cast<int64_t*>(tensor.buffer()) = 16000;  // samples a second
            given.push_back(feature);
        }
        MireloModel::Outputs results;
        for (const ModelFeatureDescriptor& each : target.outputs) {
            results.push_back(std::make_shared<MireloFeatureTensor>(each));
        }
        const uint64_t before = heapInUse();
        ASSERT_EQ(text(model->load({MireloModelType::WinML, target, Filepath(file.parent_path().string())})), kSuccess);
        ASSERT_EQ(text(model->predict(given, results)), kSuccess);
        const auto grown = static_cast<double>(heapInUse() - before);
        const auto reported = static_cast<double>(
            manager.getRuntimeStatus().getModelsRuntimeStatus().at(0).getCurrentMemoryConsumption());
        const std::string said = file.filename().string() + ", reported / heap: " + std::to_string(reported / grown);
        EXPECT_GE(reported, 0.8 * grown) << said;
        EXPECT_LE(reported, 1.2 * grown) << said;
    }
};

TEST_F(OnnxRuntimeMemory, IsWithinAFifthOfWhatTheHeapGrewBy) {
    const std::filesystem::path digits = std::filesystem::path(DIGITS_MODEL) / "digits.onnx";
    const std::vector<Port> pixels = {{"pixels", DataType::Float, {1, 64}}};
    const std::vector<Port> probabilities = {{"probabilities", DataType::Float, {1, 10}}};
    {
        // The first load starts the engine, and the first network takes what belongs to the process.
        OnnxRuntime::Model first("first", MireloModelType::WinML);
        ModelTarget target;
        target.components = {{"net", "digits.onnx", Encryption(), ComponentKind::File, {}}};
        target.inputs = describe(pixels);
        target.outputs = describe(probabilities);
        ASSERT_EQ(text(first.load({MireloModelType::WinML, target, Filepath(DIGITS_MODEL)})), kSuccess);
    }
    check(digits, pixels, probabilities);
    if (std::filesystem::exists(VOICE_NETWORK)) {
        check(VOICE_NETWORK,
              {{"input", DataType::Float, {1, 576}},
               {"state", DataType::Float, {2, 1, 128}},
               {"sr", DataType::Int64, {}}},
              {{"output", DataType::Float, {1, 1}}, {"stateN", DataType::Float, {2, 1, 128}}});
    }
    const TempDir folder;
    constexpr int64_t kWidth = 1024;
    std::vector<float> v(kWidth * kWidth);
    std::iota(v.begin(), v.end(), 1.0F);
    const std::vector<float> w(v.rbegin(), v.rend());
    folder.write("products.onnx",
                 network({node("MatMul", {"x", "v"}, {"h"}), node("MatMul", {"h", "w"}, {"y"})},
                         {port("x", DataType::Float, {1, kWidth})}, {port("y", DataType::Float, {1, kWidth})},
                         {constant("v", {kWidth, kWidth}, v), constant("w", {kWidth, kWidth}, w)}));
    check(folder.native() / "products.onnx", {{"x", DataType::Float, {1, kWidth}}},
          {{"y", DataType::Float, {1, kWidth}}});
    const std::vector<int64_t> kernel = {512, 256, 3, 3};
    folder.write("half.onnx",
                 network({node("Conv", {"x", "w"}, {"y"})}, {port("x", DataType::Float16, {1, 256, 8, 8})},
                         {port("y", DataType::Float16, {1, 512, 6, 6})},
                         {constant("w", DataType::Float16, kernel, std::vector<uint16_t>(size_t{512} * 256 * 9))}));
    check(folder.native() / "half.onnx", {{"x", DataType::Float16, {1, 256, 8, 8}}},
          {{"y", DataType::Float16, {1, 512, 6, 6}}});
}

// The sum of n ones: what is in between grows, the inputs and outputs don't.
TEST_F(OnnxRuntimeMemory, GrowsWithValuesOfInputs) {
    const TempDir folder;
    folder.write("ones.onnx", network({node("ConstantOfShape", {"n"}, {"o"}), node("Relu", {"o"}, {"r"}),
                                       node("ReduceSum", {"r"}, {"y"})},
                                      {port("n", DataType::Int64, {1})}, {port("y", DataType::Float, {1})}));
    ModelTarget target;
    target.components = {{"net", "ones.onnx", Encryption(), ComponentKind::File, {}}};
    target.inputs = describe({{"n", DataType::Int64, TensorShape(1)}});
    target.outputs = describe({{"y", DataType::Float, TensorShape(1)}});
    const auto model = std::make_shared<OnnxRuntime::Model>("m", MireloModelType::WinML);
    ModelManager manager;
    ASSERT_EQ(text(manager.registerModel(model)), kSuccess);
    ASSERT_EQ(text(model->load({MireloModelType::WinML, target, folder.path()})), kSuccess);
    const auto n = std::make_shared<MireloFeatureTensor>(target.inputs[0]);
    constexpr int64_t kMany = 4'000'000;
    for (const int64_t count : {int64_t{10}, kMany}) {
        *reinterpret_cast<int64_t*>(n->asTensor()->buffer()) = count;
        MireloModel::Outputs outputs;
        ASSERT_EQ(text(model->predict({n}, outputs)), kSuccess);
    }
    EXPECT_GE(manager.getRuntimeStatus().getModelsRuntimeStatus().at(0).getCurrentMemoryConsumption(),
              kMany * sizeof(float));
}

}  // namespace
}  // namespace TarnoMirelo
