#include "support/status_text.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/manifest.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

constexpr MireloModelType kWinML = MireloModelType::WinML;

// A manifest with one thing in it, to be loaded from a fresh directory.
class ManifestTest : public testing::Test {
 protected:
    MireloStatus load(const std::string& json) {
        directory_.write("manifest.json", json);
        return metadata.load(manifestPath());
    }
    MireloStatus loadTarget(const std::string& members) { return load(R"({"targets": {"WinML": {)" + members + "}}}"); }
    /// The first input of a manifest with this feature object.
    ModelFeatureDescriptor loadInput(const std::string& members) {
        metadata = ModelMetadata();
        EXPECT_EQ(text(loadTarget(R"("inputs": [{)" + members + "}]")), kSuccess);
        return metadata.getTargetMetadata(kWinML).inputs.at(0);
    }
    Filepath manifestPath() const { return directory_.path("manifest.json"); }
    std::string unreadable() const { return "12: Failed to open metadata file at " + manifestPath().getPathString(); }
    const TempDir& directory() const { return directory_; }

    ModelMetadata metadata;

 private:
    TempDir directory_;
};

TEST_F(ManifestTest, FillsEveryField) {
    EXPECT_EQ(metadata.getVersion(), 0);
    EXPECT_EQ(text(load(R"({
        "id": "i", "sdkVersion": "s", "description": "d", "name": "n", "version": -3, "author": "a", "scripts": "ignored",
        "targets": {"CoreML": {"inputs": 7}, "WinML": {
            "components": [{"name": "first", "path": "net.onnx", "type": "file", "encryption": false}, {}, 5],
            "inputs": [
                {"name": "x", "description": "an input", "required": false, "featureType": "tensor",
                 "tensor": {"shape": [1, -1, 224], "dataType": "float16"}, "image": {"height": 1}},
                {"name": "y", "featureType": "image", "image": {"height": 4, "width": 5, "pixelType": "BGRA"}},
                {}, null],
            "outputs": [{"name": "z", "featureType": "string"}]}}})")),
              kSuccess);
    EXPECT_EQ(metadata.getId(), "i");
    EXPECT_EQ(metadata.getSdkVersion(), "s");
    EXPECT_EQ(metadata.getDescription(), "d");
    EXPECT_EQ(metadata.getName(), "n");
    EXPECT_EQ(metadata.getVersion(), -3);
    EXPECT_EQ(metadata.getAuthor(), "a");
    EXPECT_EQ(metadata.getScripts(), "");
    EXPECT_EQ(metadata.getRootDir().getPathString(), directory().path().getPathString());

    ASSERT_EQ(metadata.getTargets().size(), 1U);
    const ModelTarget& target = metadata.getTargets().at(kWinML);
    EXPECT_EQ(target.modelType, kWinML);
    ASSERT_EQ(target.components.size(), 2U);
    EXPECT_EQ(target.components[0].name, "first");
    EXPECT_EQ(target.components[0].path, "net.onnx");
    EXPECT_EQ(target.components[0].type, ComponentKind::File);
    EXPECT_EQ(target.components[1].name + target.components[1].path + target.components[1].type, "");
    for (const ModelComponent& component : target.components) {
        EXPECT_EQ(std::count(component.encryption.getKey(), component.encryption.getKey() + 16, 0), 16);
        EXPECT_EQ(component.encryption.getPaddingType(), Encryption::PaddingType::PKCS7);
        EXPECT_TRUE(component.buffer.empty());
    }
    EXPECT_EQ(target.inputNames, (std::vector<std::string>{"x", "y", ""}));
    EXPECT_EQ(target.outputNames, (std::vector<std::string>{"z"}));
    ASSERT_EQ(target.inputs.size(), 3U);
    EXPECT_EQ(target.inputs[0].name(), "x");
    EXPECT_EQ(target.inputs[0].description(), "an input");
    EXPECT_FALSE(target.inputs[0].required());
    EXPECT_EQ(target.inputs[0].type(), MireloFeatureType::Tensor);
    EXPECT_EQ(target.inputs[0].tensorDescriptor().shape(), TensorShape(1, -1, 224));
    EXPECT_EQ(target.inputs[0].tensorDescriptor().tensorType(), DataType::Float16);
    EXPECT_EQ(target.inputs[1].type(), MireloFeatureType::Image);
    EXPECT_EQ(target.inputs[2].type(), MireloFeatureType::Undefined);
    EXPECT_TRUE(target.inputs[2].required());
    EXPECT_EQ(target.outputs.at(0).type(), MireloFeatureType::String);
}

TEST_F(ManifestTest, IsNotReadUnlessItBeginsWithAJsonObject) {
    const std::string deep(1'000'000, '[');
    const std::string texts[] = {"",
                                 " \t\r\n",
                                 "[]",
                                 "null",
                                 "5",
                                 "\"{}\"",
                                 "{",
                                 "{\"a\"}",
                                 "{]}",
                                 "{'a': 1}",
                                 "{\"a\": 1,}",
                                 "\xEF\xBB\xBF{\"targets\": {}}",
                                 "x{}",
                                 std::string("\0{}", 3),
                                 "{\"a\": 1e999}",
                                 "{\"a\":" + deep};
    metadata.setName("before");
    metadata.setRootDir(Filepath("before"));
    for (const std::string& json : texts) {
        EXPECT_EQ(text(load(json)), unreadable()) << json.substr(0, 20);
        EXPECT_EQ(metadata.getName() + metadata.getRootDir().getPathString(), "beforebefore");
    }
}

// A good manifest, cut at every byte.
TEST_F(ManifestTest, IsRefusedWhenItEndsEarly) {
    const std::string whole =
        R"({"name": "n\u00e9", "version": 12, "targets": {"WinML": {"inputs": [{"name": "x"}]}}})";
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(text(load(whole.substr(0, size))), unreadable());
    EXPECT_EQ(text(load(whole)), kSuccess);
}

TEST_F(ManifestTest, TellsFilesThatItCannotRead) {
    FileUtils().createDir(manifestPath());
    EXPECT_EQ(text(metadata.load(manifestPath())), unreadable());
    EXPECT_EQ(text(metadata.load(Filepath("missing"))), "12: Failed to open metadata file at missing");
    EXPECT_EQ(text(metadata.load(Filepath("\x80"))), "2: bad conversion");
}

TEST_F(ManifestTest, KeepsWhatItReadBeforeItFoundNoTargets) {
    metadata.setAuthor("before");
    EXPECT_EQ(text(load(R"({"name": "n", "version": 3})")), "12: No target found in root of manifest file");
    EXPECT_EQ(metadata.getName(), "n");
    EXPECT_EQ(metadata.getVersion(), 3);
    EXPECT_EQ(metadata.getAuthor(), "before");
    EXPECT_EQ(metadata.getRootDir().getPathString(), directory().path().getPathString());
}

TEST_F(ManifestTest, HasNoTargetWhereTheObjectIsOfAnotherType) {
    for (const char* const targets : {"[]", "null", "{}", R"({"CoreML": {}})", R"({"WinML": []})", R"({"winml": {}})",
                                      R"({"WinML": 1, "WinML": {}})"}) {
        EXPECT_EQ(text(load(std::string(R"({"targets": )") + targets + "}")), kSuccess);
        EXPECT_TRUE(metadata.getTargets().empty()) << targets;
    }
}

// Text after the root, nesting without end, equal keys, embedded NULs, broken UTF-8: none of them is an error.
TEST_F(ManifestTest, TakesWhatIsUnusual) {
    const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
    EXPECT_EQ(text(load(R"({"x": )" + deep + R"(, "name": "first", "name": "second", "author": 5, "author": "skipped",
                  "id": "a\u0000b", "description": ")" +
                        "\xFF" + R"(", "targets": {}} {"name": "third")")),
              kSuccess);
    EXPECT_EQ(metadata.getName(), "first");
    EXPECT_EQ(metadata.getAuthor(), "");
    EXPECT_EQ(metadata.getId(), "a");
    EXPECT_EQ(metadata.getDescription(), "\xFF");
}

TEST_F(ManifestTest, VersionIsASigned32BitInteger) {
    const std::pair<const char*, int> cases[] = {{"3", 3},
                                                 {"-2147483648", -2147483647 - 1},
                                                 {"2147483647", 2147483647},
                                                 {"2147483648", 9},
                                                 {"4294967296", 9},
                                                 {"3.5", 9},
                                                 {"3.0", 9},
                                                 {"\"3\"", 9},
                                                 {"true", 9}};
    for (const auto& [json, version] : cases) {
        metadata.setVersion(9);
        EXPECT_EQ(text(load(std::string(R"({"version": )") + json + R"(, "targets": {}})")), kSuccess);
        EXPECT_EQ(metadata.getVersion(), version) << json;
    }
}

TEST_F(ManifestTest, KeepsTheTargetThatIsThere) {
    EXPECT_EQ(text(loadTarget(R"("inputs": [{"name": "first"}])")), kSuccess);
    EXPECT_EQ(text(load(R"({"name": "n", "targets": {"WinML": {"inputs": [{"name": "second"}]}}})")), kSuccess);
    EXPECT_EQ(metadata.getName(), "n");
    EXPECT_EQ(metadata.getTargets().at(kWinML).inputNames, std::vector<std::string>{"first"});
}

TEST_F(ManifestTest, ReadsFeaturesAsTheirTypeSays) {
    const auto tensor = [](const char* members) {
        return std::string(R"("featureType": "tensor", "tensor": {)") + members + "}";
    };
    const std::pair<std::string, TensorShape> shapes[] = {
        {tensor(R"("shape": [1, -1, 224, 224])"), {1, -1, 224, 224}},
        {tensor(R"("shape": [])"), {}},
        {tensor(R"("shape": [1, 2.5, "3", null, 2147483648, -2147483648])"), {1, 0, 0, 0, 0, -2147483648}},
        {tensor(R"("shape": 5)"), {}},
        {R"("featureType": "tensor", "tensor": [1])", {}},
        {R"("featureType": "int32", "tensor": {"shape": [1]})", {}},
        {R"("featureType": "Tensor", "tensor": {"shape": [1]})", {}}};
    for (const auto& [members, shape] : shapes)
        EXPECT_EQ(loadInput(members).tensorDescriptor().shape(), shape) << members;

    const std::pair<const char*, DataType> dataTypes[] = {
        {R"("int8")", DataType::Int8},       {R"("double")", DataType::Double}, {R"("bool\u0000x")", DataType::Bool},
        {R"("Float")", DataType::Undefined}, {R"("")", DataType::Undefined},    {"11", DataType::Undefined}};
    for (const auto& [json, type] : dataTypes) {
        EXPECT_EQ(loadInput(tensor((std::string(R"("dataType": )") + json).c_str())).tensorDescriptor().tensorType(),
                  type);
    }
    for (int32_t type = 0; type < 8; ++type) {
        const auto expected = static_cast<MireloFeatureType>(type);
        EXPECT_EQ(loadInput(R"("featureType": ")" + GetMireloFeatureTypeName(expected) + "\"").type(), expected);
    }
    EXPECT_EQ(loadInput(R"("featureType": "Tensor")").type(), MireloFeatureType::Undefined);
    EXPECT_EQ(loadInput(R"("featureType": "unknown")").type(), MireloFeatureType::Undefined);
    const std::pair<const char*, bool> flags[] = {{"true", true}, {"false", false}, {R"("false")", true}, {"0", true}};
    for (const auto& [json, required] : flags) {
        EXPECT_EQ(loadInput(std::string(R"("required": )") + json).required(), required) << json;
    }
}

TEST_F(ManifestTest, IgnoresListsThatAreNone) {
    EXPECT_EQ(text(loadTarget(R"("components": {}, "inputs": [], "outputs": "none")")), kSuccess);
    EXPECT_TRUE(metadata.getTargets().at(kWinML).components.empty());
    EXPECT_EQ(text(metadata.validate(kWinML)), "12: There must be at least one defined input name");
}

// --- choosing and checking a target ---

ModelFeatureDescriptor tensorFeature(const TensorShape& shape) {
    return {MireloFeatureType::Tensor, TensorDescriptor(shape, DataType::Float)};
}

TEST(Targets, AreValidatedInOrder) {
    struct Case {
        std::vector<ModelFeatureDescriptor> inputs, outputs;
        MireloModelType type;
        const char* expected;
    };
    const auto good = tensorFeature({1, 2});
    const Case cases[] = {{{good}, {good}, kWinML, "1: "},
                          {{}, {}, MireloModelType::OpenVino, "12: There must be at least one defined input name"},
                          {{good}, {}, MireloModelType::OpenVino, "12: There must be at least one defined output name"},
                          {{tensorFeature({1, 0, 3}), good}, {good}, kWinML, "12: The input shape has to be defined"},
                          {{tensorFeature({1, -1, 3})}, {good}, kWinML, "12: The input shape has to be defined"},
                          {{tensorFeature({-1, -1})}, {good}, kWinML, "1: "},
                          {{ModelFeatureDescriptor()}, {good}, kWinML, "1: "},
                          {{good, tensorFeature(TensorShape(0))}, {good}, kWinML, "1: "},
                          {{good}, {good}, MireloModelType::OpenVino, "12: OpenVino is no longer supported"}};
    for (const Case& c : cases) {
        ModelTarget target;
        target.modelType = c.type;
        target.inputs = c.inputs;
        target.outputs = c.outputs;
        ModelMetadata metadata;
        metadata.setTargets({{kWinML, target}, {MireloModelType::Undefined, target}});
        EXPECT_EQ(text(metadata.validate(kWinML)), c.expected);
        EXPECT_EQ(text(metadata.validate(MireloModelType::CoreML)), "12: ");
        EXPECT_EQ(text(metadata.validate(MireloModelType::Undefined)), "12: ");
    }
}

TEST(Targets, AreHandedOutAsCopies) {
    ModelMetadata metadata;
    EXPECT_THROW(metadata.getModelCompoents(kWinML), std::out_of_range);
    ModelTarget target;
    target.inputNames = {"x"};
    metadata.setTargets({{kWinML, target}});
    metadata.setRootDir(Filepath("root"));
    auto [type, copy, root] = metadata.getModelCompoents(kWinML);
    EXPECT_EQ(type, kWinML);
    EXPECT_EQ(root.getPathString(), "root");
    copy.inputNames.clear();
    EXPECT_EQ(metadata.getTargets().at(kWinML).inputNames.size(), 1U);

    EXPECT_EQ(metadata.getTargetMetadata(MireloModelType::CoreML).modelType, MireloModelType::Undefined);
    EXPECT_EQ(metadata.getTargets().size(), 2U);
    EXPECT_EQ(text(metadata.validate(MireloModelType::CoreML)), "12: There must be at least one defined input name");
}

TEST(Targets, EncryptTheirFirstComponent) {
    ModelMetadata metadata;
    const Encryption none({1, 2, 3}, Encryption::PaddingType::None);
    EXPECT_THROW(metadata.SetEncryption(kWinML, none), std::out_of_range);
    metadata.setTargets({{kWinML, ModelTarget()}});
    EXPECT_EQ(raised([&] { metadata.SetEncryption(kWinML, none); }), "12: No model component found");
    ModelTarget target;
    target.components.resize(2);
    metadata.setTargets({{kWinML, target}});
    metadata.SetEncryption(kWinML, none);
    const auto& components = metadata.getTargets().at(kWinML).components;
    EXPECT_EQ(components[0].encryption.getKey()[2], 3);
    EXPECT_EQ(components[0].encryption.getPaddingType(), Encryption::PaddingType::None);
    EXPECT_EQ(components[1].encryption.getKey()[2], 0);

    ModelComponent component = components[0];
    const unsigned char key[16] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
    component.setCryptoKey(key);
    EXPECT_TRUE(std::equal(key, key + 16, component.encryption.getKey()));
    EXPECT_EQ(component.encryption.getPaddingType(), Encryption::PaddingType::None);
}

TEST(Targets, ModelTypesHaveTheirNames) {
    const std::pair<uint64_t, const char*> names[] = {{0, "Undefined"}, {1, "CoreML"},    {2, "WinML"},
                                                      {4, "OpenVino"},  {8, "TF-Lite"},   {16, "OnnxRuntime"},
                                                      {32, "tfjs"},     {3, "Undefined"}, {64, "Undefined"}};
    for (const auto& [value, name] : names)
        EXPECT_EQ(ModelTypeToName(static_cast<MireloModelType>(value)), name);
}

TEST(ModelMetadata, IsAValueThatADerivedClassMayFillDifferently) {
    const ModelMetadata full("i", "s", "d", "n", 4, "a", Filepath("r"), {{kWinML, ModelTarget()}}, "scripts");
    ModelMetadata copy = full;
    copy.setName("other");
    EXPECT_EQ(full.getName(), "n");
    EXPECT_EQ(copy.getId() + copy.getSdkVersion() + copy.getDescription() + copy.getAuthor() + copy.getScripts(),
              "isdascripts");
    EXPECT_EQ(copy.getTargets().size(), 1U);

    class Failing : public ModelMetadata {
     protected:
        MireloStatus loadInternal(const Filepath& manifest) override {
            throw FileException("no " + manifest.getPathString());
        }
    };
    EXPECT_EQ(text(Failing().load(Filepath("m"))), "3: no m");
}

}  // namespace
}  // namespace TarnoMirelo
