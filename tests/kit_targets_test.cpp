// The kit: manifests with several targets, and the choice among them.

#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/targets.h>

#include <gtest/gtest.h>

#include <sstream>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

constexpr const char* kKeys[] = {TargetKey::CoreML, TargetKey::OpenVino, TargetKey::TensorflowLite, TargetKey::TFJS};
constexpr MireloModelType kTypes[] = {MireloModelType::CoreML, MireloModelType::OpenVino, MireloModelType::TFLite,
                                      MireloModelType::TFJS};

// The target of that type, with everything that a manifest can say of it.
std::string describe(const ModelMetadata& metadata, MireloModelType type) {
    const auto found = metadata.getTargets().find(type);
    if (found == metadata.getTargets().end()) return "none";
    const ModelTarget& target = found->second;
    EXPECT_EQ(target.modelType, type);
    std::ostringstream out;
    for (const ModelComponent& each : target.components) out << list(each.name, each.path, each.type) << ";";
    for (const auto* features : {&target.inputs, &target.outputs}) {
        for (const ModelFeatureDescriptor& each : *features) {
            out << list(each.name(), each.description(), each.required(), GetMireloFeatureTypeName(each.type()),
                        each.tensorDescriptor().shape(), static_cast<int>(each.tensorDescriptor().tensorType()))
                << ";";
        }
        out << "|";
    }
    for (const std::string& name : target.inputNames) out << name << ";";
    for (const std::string& name : target.outputNames) out << name << ";";
    return out.str();
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
        text.replace(at, what.size(), with);
    }
    return text;
}

ModelTarget runnable(MireloModelType type) {
    ModelTarget made;
    made.modelType = type;
    made.components.resize(1);
    made.inputs.emplace_back(MireloFeatureType::Tensor, TensorDescriptor(TensorShape(1, 2), DataType::Float));
    made.outputs = made.inputs;
    return made;
}

}  // namespace

// What a manifest says under one key, it says under every other one.
TEST(KitTargets, AreReadAsTheCoreReadsItsOwn) {
    const TempDir directory;
    const std::vector<TextCase> cases = readCases(TEST_DATA "/manifests.txt");
    size_t there = 0;
    for (const TextCase& each : cases) {
        ModelMetadata core;
        const std::string status = text(core.load(directory.write("m", each.input)));
        const std::string expected = describe(core, MireloModelType::WinML);
        there += expected == "none" ? 0 : 1;
        for (size_t i = 0; i < std::size(kKeys); ++i) {
            // The target that the case has under this key itself gives way.
            const std::string json = replaced(each.input, "\"" + std::string(kKeys[i]) + "\"", "\"other\"");
            AllTargetsMetadata all;
            EXPECT_EQ(text(all.load(directory.write("m", replaced(json, "WinML", kKeys[i])))), status) << each.title;
            EXPECT_EQ(describe(all, kTypes[i]), expected) << each.title;
            EXPECT_EQ(describe(all, MireloModelType::WinML), "none") << each.title;
        }
    }
    EXPECT_GT(there, 5U);
}

TEST(KitTargets, AreAddedToWhatIsThere) {
    const TempDir directory;
    const Filepath manifest = directory.write(
        "m", R"({"name": "n", "targets": {"WinML": {}, "CoreML": {"components": [{"path": "new"}]}, "TFJS": {}}})");
    AllTargetsMetadata metadata;
    metadata.setTargets({{MireloModelType::CoreML, runnable(MireloModelType::CoreML)}});
    ASSERT_EQ(text(metadata.load(manifest)), kSuccess);
    EXPECT_EQ(metadata.getName(), "n");
    EXPECT_EQ(metadata.getTargets().size(), 3U);
    EXPECT_EQ(metadata.getTargets().at(MireloModelType::CoreML).components.at(0).path, "");
    EXPECT_EQ(metadata.load(directory.path("absent")).getCode(), MODEL_METADATA_ERROR);
    std::string deep = R"({"targets": {"CoreML": )";
    for (int i = 0; i < 100000; ++i) deep += "[";
    EXPECT_EQ(metadata.load(directory.write("deep", deep)).getCode(), MODEL_METADATA_ERROR);
}

TEST(KitTargets, AreChosenByTheDevices) {
    ModelMetadata metadata;
    ModelTarget bare = runnable(MireloModelType::CoreML);
    bare.components.clear();
    metadata.setTargets({{MireloModelType::WinML, runnable(MireloModelType::WinML)},
                         {MireloModelType::CoreML, bare},
                         {MireloModelType::OpenVino, runnable(MireloModelType::OpenVino)}});
    const auto device = [](const char* name, MireloModelType type) { return std::make_shared<Device>(name, type); };
    const auto tflite = device("npu", MireloModelType::TFLite);
    const auto coreml = device("ane", MireloModelType::CoreML);
    const auto openvino = device("vpu", MireloModelType::OpenVino);
    const auto onnx = device("gpu", MireloModelType::OnnxRuntime);

    const TargetChoice choice = chooseTarget(metadata, {tflite, coreml, openvino, nullptr, onnx, onnx});
    EXPECT_EQ(text(choice.status()), kSuccess);
    EXPECT_EQ(choice.device, onnx);
    EXPECT_EQ(choice.type, MireloModelType::WinML);
    ASSERT_EQ(choice.refusals.size(), 4U);
    EXPECT_EQ(choice.refusals[2].device, openvino);
    const char* const reasons[] = {
        "12: Device \"npu\": the manifest has no target of type TF-Lite, but CoreML, OpenVino, WinML",
        "12: Device \"ane\": the target of type CoreML can't be run: No model component found",
        "12: Device \"vpu\": the target of type OpenVino can't be run: OpenVino is no longer supported",
        "7: A device is null"};
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(text(choice.refusals[i].reason), reasons[i]);

    EXPECT_EQ(text(chooseTarget(metadata, {}).status()), "7: There is no device to choose a target for");
    EXPECT_EQ(text(chooseTarget(metadata, {coreml}).status()), reasons[1]);
    EXPECT_EQ(text(chooseTarget(metadata, {coreml, tflite}).status()),
              "12: Device \"ane\": the target of type CoreML can't be run: No model component found; Device \"npu\": "
              "the manifest has no target of type TF-Lite, but CoreML, OpenVino, WinML");
}
