#include "support/status_text.h"

#include <TarnoMirelo/feature.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

namespace TarnoMirelo {

class IImage {};  // the host's to define

namespace {

ModelFeatureDescriptor named(const std::string& name) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor()};
}

TEST(FeatureNames, AreThoseOfTheKnownValues) {
    const char* const types[] = {"bool", "uint8", "int32", "int64", "double", "string", "tensor", "image", "unknown"};
    for (int32_t i = 0; i < 9; ++i)
        EXPECT_EQ(GetMireloFeatureTypeName(static_cast<MireloFeatureType>(i)), types[i]);
    const char* const pixels[] = {"one", "BGR", "RGB", "RGBA", "BGRA", "unknown"};
    for (int32_t i = 0; i < 6; ++i)
        EXPECT_EQ(GetMireloPixelType(static_cast<MireloPixelType>(i)), pixels[i]);
    EXPECT_EQ(GetMireloFeatureTypeName(static_cast<MireloFeatureType>(-1)), "unknown");
    EXPECT_EQ(GetMireloPixelType(static_cast<MireloPixelType>(-1)), "unknown");
}

TEST(TensorDescriptor, JudgesVariabilityByTheShapeAlone) {
    const std::pair<TensorShape, bool> cases[] = {
        {{1, 3, -1, -1}, true}, {{1, 3, 224, 224}, false}, {{}, false}, {{1, -2}, false}, {{0, -1}, true}};
    for (const auto& [shape, variable] : cases) {
        EXPECT_EQ(TensorDescriptor(shape, DataType::Float).variableShape(), variable);
        EXPECT_EQ(TensorDescriptor("name", shape, !variable, DataType::Float).variableShape(), variable);
    }
    TensorDescriptor descriptor({1, 2}, DataType::Int8);
    descriptor.shape()[0] = 9;  // a copy
    EXPECT_EQ(descriptor.shape(), TensorShape(1, 2));
    EXPECT_EQ(descriptor.tensorType(), DataType::Int8);
    EXPECT_EQ(TensorDescriptor().tensorType(), DataType::Undefined);
}

TEST(FeatureDescriptor, HasTheDefaultsOfItsConstructor) {
    const TensorDescriptor tensor({1, 2}, DataType::Float);
    const ImageDescriptor image(4, 5, MireloPixelType::RGB);
    struct Case {
        ModelFeatureDescriptor descriptor;
        MireloFeatureType type;
        bool required;
        std::string name;
        TensorShape shape;
    };
    const Case cases[] = {
        {{}, MireloFeatureType::Undefined, true, "", {}},
        {ModelFeatureDescriptor(MireloFeatureType::Bool), MireloFeatureType::Bool, true, "", {}},
        {{MireloFeatureType::Image, image}, MireloFeatureType::Image, false, "", {}},
        {{MireloFeatureType::Tensor, tensor}, MireloFeatureType::Tensor, false, "", {1, 2}},
        {{MireloFeatureType::Image, true, "n", "d", image}, MireloFeatureType::Image, true, "n", {}},
        {{MireloFeatureType::Tensor, false, "n", "d", tensor}, MireloFeatureType::Tensor, false, "n", {1, 2}}};
    for (const Case& c : cases) {
        EXPECT_EQ(c.descriptor.type(), c.type);
        EXPECT_EQ(c.descriptor.required(), c.required);
        EXPECT_EQ(c.descriptor.name(), c.name);
        EXPECT_EQ(c.descriptor.description(), c.name.empty() ? "" : "d");
        EXPECT_EQ(c.descriptor.tensorDescriptor().shape(), c.shape);
    }
    EXPECT_EQ(image.height(), 4U);
    EXPECT_EQ(image.width(), 5U);
    EXPECT_EQ(image.pixelType(), MireloPixelType::RGB);
    EXPECT_EQ(ImageDescriptor().pixelType(), MireloPixelType::Undefined);
}

// Every accessor on every kind of feature: its own answers, all others say what was asked and what the feature is.
TEST(Feature, AnswersItsOwnAccessorsOnly) {
    const auto descriptor = [](int32_t type) { return ModelFeatureDescriptor(static_cast<MireloFeatureType>(type)); };
    const std::shared_ptr<MireloFeature> features[] = {
        std::make_shared<MireloFeatureBool>(descriptor(0), true),
        std::make_shared<MireloFeatureUInt8>(descriptor(1), uint8_t{1}),
        std::make_shared<MireloFeatureInt32>(descriptor(2), 2),
        std::make_shared<MireloFeatureInt64>(descriptor(3), 3),
        std::make_shared<MireloFeatureDouble>(descriptor(4), 4.5),
        std::make_shared<MireloFeatureString>(descriptor(5), "five"),
        std::make_shared<MireloFeatureTensor>(descriptor(6), std::make_shared<Tensor>(DataType::Float)),
        std::make_shared<MireloFeatureImage>(descriptor(7), std::make_shared<IImage>()),
        std::make_shared<MireloFeature>(ModelFeatureDescriptor())};
    const std::pair<const char*, std::function<void(MireloFeature&)>> accessors[] = {
        {"bool", [](MireloFeature& feature) { EXPECT_TRUE(feature.asBool()); }},
        {"unit8", [](MireloFeature& feature) { EXPECT_EQ(feature.asUInt8(), 1); }},
        {"int32", [](MireloFeature& feature) { EXPECT_EQ(feature.asInt32(), 2); }},
        {"int64", [](MireloFeature& feature) { EXPECT_EQ(feature.asInt64(), 3); }},
        {"double", [](MireloFeature& feature) { EXPECT_EQ(feature.asDouble(), 4.5); }},
        {"string", [](MireloFeature& feature) { EXPECT_EQ(feature.asString(), "five"); }},
        {"tensor", [](MireloFeature& feature) { EXPECT_NE(feature.asTensor(), nullptr); }},
        {"video frame", [](MireloFeature& feature) { EXPECT_NE(feature.asImage(), nullptr); }}};
    const std::function<void(const MireloFeature&)> constAccessors[] = {
        [](const MireloFeature& feature) { EXPECT_TRUE(feature.asBool()); },
        [](const MireloFeature& feature) { EXPECT_EQ(feature.asUInt8(), 1); },
        [](const MireloFeature& feature) { EXPECT_EQ(feature.asInt32(), 2); },
        [](const MireloFeature& feature) { EXPECT_EQ(feature.asInt64(), 3); },
        [](const MireloFeature& feature) { EXPECT_EQ(feature.asDouble(), 4.5); },
        [](const MireloFeature& feature) { EXPECT_EQ(feature.asString(), "five"); },
        [](const MireloFeature& feature) { EXPECT_NE(feature.asTensor(), nullptr); },
        [](const MireloFeature& feature) { EXPECT_NE(feature.asImage(), nullptr); }};
    for (size_t f = 0; f < std::size(features); ++f) {
        EXPECT_FALSE(features[f]->hasVariableShape());
        for (size_t a = 0; a < std::size(accessors); ++a) {
            const std::string expected = f == a ? "nothing"
                                                : std::string("8: Attempt to interpret a feature as ") +
                                                      accessors[a].first + " while the feature's type is " +
                                                      GetMireloFeatureTypeName(features[f]->type());
            EXPECT_EQ(raised([&] { accessors[a].second(*features[f]); }), expected);
            EXPECT_EQ(raised([&] { constAccessors[a](*features[f]); }), expected);
        }
    }
}

TEST(Feature, IsChangedThroughItsReferences) {
    MireloFeatureBool flag(ModelFeatureDescriptor(MireloFeatureType::Int32));
    EXPECT_FALSE(flag.asBool());
    flag.asBool() = true;
    EXPECT_TRUE(static_cast<const MireloFeature&>(flag).asBool());
    EXPECT_EQ(flag.type(), MireloFeatureType::Int32);  // the descriptor's word
    MireloFeatureString name(named("n"));
    name.asString() = "changed";
    EXPECT_EQ(static_cast<const MireloFeature&>(name).asString(), "changed");
    EXPECT_EQ(name.featureDescriptor().name(), "n");
}

TEST(TensorFeature, MakesTheTensorThatItsDescriptorAsksFor) {
    MireloFeatureTensor fixed({MireloFeatureType::Tensor, TensorDescriptor({1, 3, 2, 2}, DataType::Float)});
    EXPECT_FALSE(fixed.hasVariableShape());
    EXPECT_EQ(std::count(fixed.asTensor()->buffer(), fixed.asTensor()->buffer() + 48, 0), 48);
    MireloFeatureTensor variable({MireloFeatureType::Tensor, TensorDescriptor({1, 3, -1, -1}, DataType::Float)});
    EXPECT_TRUE(variable.hasVariableShape());
    EXPECT_EQ(variable.asTensor()->buffer(), nullptr);
    MireloFeatureTensor empty(named("empty"), nullptr);
    EXPECT_FALSE(empty.hasVariableShape());
    EXPECT_EQ(empty.asTensor(), nullptr);
    EXPECT_EQ(MireloFeatureImage(named("image")).asImage(), nullptr);
}

using Flat = std::vector<std::shared_ptr<const MireloFeature>>;

// Features named by the letters of a word, each numbered within its name.
Flat featuresOf(const std::string& letters) {
    Flat features;
    std::map<char, int> counts;
    for (const char letter : letters) {
        features.push_back(std::make_shared<MireloFeatureInt32>(named(std::string(1, letter)), counts[letter]++));
    }
    return features;
}

template <typename Features>
std::string wordOf(const Features& features) {
    std::string word;
    for (const auto& feature : features) {
        word += feature->featureDescriptor().name() + std::to_string(feature->asInt32());
    }
    return word;
}

TEST(Batch, IsAListInWhichANameRepeats) {
    const std::pair<const char*, bool> cases[] = {{"", false},   {"x", false},  {"xy", false},
                                                  {"xX", false}, {"xyx", true}, {"xx", true}};
    for (const auto& [letters, isBatch] : cases)
        EXPECT_EQ(MireloBatch::isBatch(featuresOf(letters)), isBatch);
}

TEST(Batch, GivesItsFeaturesByRowsAndByInputs) {
    const MireloBatch batch(featuresOf("xyyx"));
    const auto rows = batch.getFeatureSet().features;
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_TRUE(wordOf(rows[0]) == "x0y0" || wordOf(rows[0]) == "y0x0");
    EXPECT_TRUE(wordOf(rows[1]) == "x1y1" || wordOf(rows[1]) == "y1x1");
    EXPECT_EQ(wordOf(rows[0])[0], wordOf(rows[1])[0]);
    EXPECT_EQ(wordOf(batch.getSortedFetures({named("y"), named("x")})), "y0y1x0x1");
    EXPECT_EQ(wordOf(batch.getSortedFetures({named("x")})), "x0x1");
    EXPECT_EQ(wordOf(batch.getSortedFetures({})), "");
    EXPECT_THROW(batch.getSortedFetures({named("x"), named("z")}), std::out_of_range);
    EXPECT_EQ(MireloBatch(featuresOf("xyz")).getFeatureSet().features.size(), 1U);
}

TEST(Batch, OfNothingIsEmptyAndUnevenOrNullOnesAreRefused) {
    const MireloBatch empty(Flat{});
    EXPECT_TRUE(empty.getFeatureSet().features.empty());
    EXPECT_TRUE(empty.getSortedFetures({}).empty());
    EXPECT_THROW(empty.getSortedFetures({named("x")}), std::out_of_range);
    for (const char* const uneven : {"xxy", "xyx", "xxyyzzz"}) {
        EXPECT_EQ(raised([&] { MireloBatch batch(featuresOf(uneven)); }), "8: An uneven number of batches per input");
    }
    const std::string null = "7: A feature of a batch must not be null";
    EXPECT_EQ(raised([] { MireloBatch batch(Flat{nullptr}); }), null);
    EXPECT_EQ(raised([] { MireloBatch::isBatch(Flat{nullptr}); }), null);
}

}  // namespace
}  // namespace TarnoMirelo
