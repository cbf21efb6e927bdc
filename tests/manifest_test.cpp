#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/manifest.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

constexpr MireloModelType kWinML = MireloModelType::WinML;

void print(std::ostream& out, const char* kind, const std::vector<ModelFeatureDescriptor>& features) {
    for (const ModelFeatureDescriptor& f : features) {
        out << list(kind, f.name(), "(" + f.description() + ")", f.required() ? "required" : "optional",
                    GetMireloFeatureTypeName(f.type()), f.tensorDescriptor().shape(),
                    static_cast<int>(f.tensorDescriptor().tensorType()))
            << "\n";
    }
}

// The status of a load into metadata with known fields, and what it then holds.
std::string load(const Filepath& manifest) {
    ModelMetadata metadata("-", "-", "-", "-", 9, "-", Filepath("-"), {}, "-");
    std::ostringstream out;
    out << "[" << text(metadata.load(manifest)) << "]\n"
        << list(metadata.getId(), metadata.getSdkVersion(), metadata.getDescription(), metadata.getName(),
                metadata.getVersion(), metadata.getAuthor(), metadata.getScripts())
        << "\n";
    const bool read = metadata.getRootDir().getPathString() == manifest.parent_path().getPathString();
    if (!read) return "unchanged " + out.str();
    for (const auto& [type, target] : metadata.getTargets()) {
        EXPECT_TRUE(type == kWinML && target.modelType == kWinML);
        EXPECT_EQ(target.inputNames.size() + target.outputNames.size(), target.inputs.size() + target.outputs.size());
        for (const ModelComponent& component : target.components) {
            out << "component [" << component.name << "] [" << component.path << "] [" << component.type << "]\n";
            EXPECT_EQ(std::count(component.encryption.getKey(), component.encryption.getKey() + 16, 0), 16);
            EXPECT_EQ(component.encryption.getPaddingType(), Encryption::PaddingType::PKCS7);
        }
        print(out, "input", target.inputs);
        print(out, "output", target.outputs);
    }
    return out.str();
}

const char* const kNothingRead = "- - - - 9 - -\n";

TEST(Manifest, IsReadAsTheCasesSay) {
    const TempDir directory;
    const std::vector<TextCase> cases = readCases(TEST_DATA "/manifests.txt");
    for (const auto& [title, json, expected] : cases) EXPECT_EQ(load(directory.write("m", json)), expected) << title;
    EXPECT_GT(cases.size(), 10U);
}

TEST(Manifest, IsNotReadUnlessItBeginsWithAWholeJsonObject) {
    const TempDir directory;
    std::vector<std::string> texts = {" \t\r\n",
                                      "[]",
                                      "\"{}\"",
                                      "{'a': 1}",
                                      "{\"a\": 1,}",
                                      "\xEF\xBB\xBF{}",
                                      "x{}",
                                      std::string("\0{}", 3),
                                      "{\"a\":" + std::string(1'000'000, '[')};
    const std::string whole =
        R"({"name": "n\u00e9", "version": 12, "targets": {"WinML": {"inputs": [{"name": "x"}]}}})";
    for (size_t size = 0; size < whole.size(); ++size) texts.push_back(whole.substr(0, size));
    const std::string expected = "[12: Failed to open metadata file at " + directory.path("m").getPathString() + "]\n";
    for (const std::string& json : texts) {
        EXPECT_EQ(load(directory.write("m", json)), "unchanged " + expected + kNothingRead) << json.substr(0, 90);
    }
    EXPECT_EQ(load(directory.write("m", whole)).substr(0, 6), "[1: ]\n");
    // Nesting without end is no error, nor is text that is not UTF-8.
    const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
    EXPECT_EQ(load(directory.write("m", R"({"x": )" + deep + R"(, "name": ")" + "\xFF" + R"(", "targets": 0})")),
              "[1: ]\n- - - \xFF 9 - -\n");
}

TEST(Manifest, TellsFilesThatItCannotRead) {
    const TempDir directory;
    const std::string cannot = "unchanged [12: Failed to open metadata file at ";
    EXPECT_EQ(load(directory.path()), cannot + directory.path().getPathString() + "]\n" + kNothingRead);
    EXPECT_EQ(load(Filepath("missing")), cannot + "missing]\n" + kNothingRead);
    EXPECT_EQ(load(Filepath("\x80")), std::string("unchanged [2: bad conversion]\n") + kNothingRead);
}

TEST(Manifest, DoesNotReplaceTheTargetThatIsThere) {
    const TempDir directory;
    ModelMetadata metadata;
    for (const std::string name : {"first", "second"}) {
        const std::string target = R"({"WinML": {"inputs": [{"name": ")" + name + R"("}]}})";
        metadata.load(directory.write("m", R"({"name": ")" + name + R"(", "targets": )" + target + "}"));
        EXPECT_EQ(metadata.getName() + metadata.getTargets().at(kWinML).inputNames.at(0), name + "first");
    }
}

TEST(Targets, AreValidatedInOrder) {
    struct Case {
        std::vector<TensorShape> inputs, outputs;
        MireloModelType type;
        const char* expected;
    };
    const Case cases[] = {
        {{{1, 2}}, {{}}, kWinML, "1: "},
        {{}, {}, MireloModelType::OpenVino, "12: There must be at least one defined input name"},
        {{{1, 0}}, {}, MireloModelType::OpenVino, "12: There must be at least one defined output name"},
        {{{1, 0}, {}}, {{}}, MireloModelType::OpenVino, "12: The input shape has to be defined"},
        {{{1, -1, 3}}, {{}}, kWinML, "12: The input shape has to be defined"},
        {{{-1, -1}, {0, 1}}, {{}}, kWinML, "1: "},
        {{{}}, {{}}, MireloModelType::OpenVino, "12: OpenVino is no longer supported"}};
    for (const Case& c : cases) {
        ModelTarget target;
        target.modelType = c.type;
        for (const auto& s : c.inputs) target.inputs.emplace_back(MireloFeatureType::Tensor, TensorDescriptor(s, {}));
        for (const auto& s : c.outputs) target.outputs.emplace_back(MireloFeatureType::Tensor, TensorDescriptor(s, {}));
        ModelMetadata metadata;
        metadata.setTargets({{kWinML, target}, {MireloModelType::Undefined, target}});
        EXPECT_EQ(text(metadata.validate(kWinML)), c.expected);
        EXPECT_EQ(text(metadata.validate(MireloModelType::Undefined)), "12: ");
        EXPECT_EQ(text(metadata.validate(MireloModelType::CoreML)), "12: ");
    }
}

TEST(Targets, AreHandedOutAsCopiesAndAddedWhenAskedFor) {
    ModelMetadata metadata;
    EXPECT_THROW(metadata.getModelCompoents(kWinML), std::out_of_range);
    metadata.setTargets({{kWinML, ModelTarget()}});
    metadata.setRootDir(Filepath("root"));
    auto [type, copy, root] = metadata.getModelCompoents(kWinML);
    EXPECT_EQ(ModelTypeToName(type) + root.getPathString(), "WinMLroot");
    copy.inputNames = {"x"};
    EXPECT_TRUE(metadata.getTargets().at(kWinML).inputNames.empty());
    EXPECT_EQ(metadata.getTargetMetadata(MireloModelType::CoreML).modelType, MireloModelType::Undefined);
    EXPECT_EQ(text(metadata.validate(MireloModelType::CoreML)), "12: There must be at least one defined input name");
}

TEST(Targets, EncryptTheirFirstComponent) {
    ModelMetadata metadata;
    const Encryption none({1, 2, 3}, Encryption::PaddingType::None);
    EXPECT_EQ(raised([&] { metadata.SetEncryption(kWinML, none); }), "2: invalid unordered_map<K, T> key");
    ModelTarget target;
    metadata.setTargets({{kWinML, target}});
    EXPECT_EQ(raised([&] { metadata.SetEncryption(kWinML, none); }), "12: No model component found");
    target.components.resize(2);
    metadata.setTargets({{kWinML, target}});
    metadata.SetEncryption(kWinML, none);
    std::vector<ModelComponent> components = metadata.getTargets().at(kWinML).components;
    EXPECT_EQ(components[0].encryption.getKey()[2] + components[1].encryption.getKey()[2], 3);
    const unsigned char key[16] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 8};
    components[0].setCryptoKey(key);
    EXPECT_TRUE(std::equal(key, key + 16, components[0].encryption.getKey()));
    EXPECT_EQ(components[0].encryption.getPaddingType(), Encryption::PaddingType::None);
}

TEST(Manifest, ReplacesWhatItsSettersAreGiven) {
    ModelMetadata metadata;
    metadata.setId("id");
    metadata.setSdkVersion("sdk");
    metadata.setDescription("description");
    metadata.setName("name");
    metadata.setVersion(5);
    metadata.setAuthor("author");
    metadata.setRootDir(Filepath("root"));
    metadata.setScripts("scripts");
    metadata.setName(metadata.getName());
    const ModelTarget& target = metadata.getTargetMetadata(kWinML);
    metadata.setTargets(metadata.getTargets());  // which leaves the targets where they are
    EXPECT_EQ(&metadata.getTargetMetadata(kWinML), &target);
    const ModelMetadata copy = metadata;
    EXPECT_EQ(list(copy.getId(), copy.getSdkVersion(), copy.getDescription(), copy.getName(), copy.getVersion(),
                   copy.getAuthor(), copy.getRootDir().c_str(), copy.getScripts(), copy.getTargets().size()),
              "id sdk description name 5 author root scripts 1");
}

TEST(Targets, ModelTypesHaveTheirNames) {
    std::string names;
    for (const uint64_t type : {0U, 1U, 2U, 4U, 8U, 16U, 32U, 3U})
        names += ModelTypeToName(static_cast<MireloModelType>(type)) + " ";
    EXPECT_EQ(names, "Undefined CoreML WinML OpenVino TF-Lite OnnxRuntime tfjs Undefined ");
}

}  // namespace
}  // namespace TarnoMirelo
