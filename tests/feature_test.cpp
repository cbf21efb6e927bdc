#include "support/text.h"

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

TEST(TensorDescriptor, IsVariableWhereADimensionIsOpen) {
    const std::pair<TensorShape, bool> cases[] = {
        {{1, 3, -1, -1}, true}, {{0, -1}, true}, {{}, false}, {{1, -2}, false}};
    for (const auto& [shape, variable] : cases) {  // whatever the flag says
        EXPECT_EQ(TensorDescriptor("name", shape, !variable, DataType::Float).variableShape(), variable) << shape;
    }
}

// Every accessor on every kind of feature: its own answers, all others say what was asked and what the feature is.
TEST(Feature, AnswersItsOwnAccessorsOnly) {
    const auto of = [](int32_t type) { return ModelFeatureDescriptor(static_cast<MireloFeatureType>(type)); };
    const std::shared_ptr<MireloFeature> features[] = {
        std::make_shared<MireloFeatureBool>(of(0), true),
        std::make_shared<MireloFeatureUInt8>(of(1), uint8_t{1}),
        std::make_shared<MireloFeatureInt32>(of(2), 2),
        std::make_shared<MireloFeatureInt64>(of(3), 3),
        std::make_shared<MireloFeatureDouble>(of(4), 4.5),
        std::make_shared<MireloFeatureString>(of(5), "five"),
        std::make_shared<MireloFeatureTensor>(of(6), std::make_shared<Tensor>(DataType::Float)),
        std::make_shared<MireloFeatureImage>(of(7), std::make_shared<IImage>()),
        std::make_shared<MireloFeature>(of(8))};
    const auto accessors = [](auto& feature) {
        return std::vector<std::pair<std::string, std::function<bool()>>>{
            {"bool", [&] { return feature.asBool(); }},
            {"unit8", [&] { return feature.asUInt8() == 1; }},
            {"int32", [&] { return feature.asInt32() == 2; }},
            {"int64", [&] { return feature.asInt64() == 3; }},
            {"double", [&] { return feature.asDouble() == 4.5; }},
            {"string", [&] { return feature.asString() == "five"; }},
            {"tensor", [&] { return feature.asTensor() != nullptr; }},
            {"video frame", [&] { return feature.asImage() != nullptr; }}};
    };
    for (size_t f = 0; f < std::size(features); ++f) {
        for (const auto& table : {accessors(*features[f]), accessors(std::as_const(*features[f]))}) {
            for (size_t a = 0; a < table.size(); ++a) {
                const std::string refusal = "8: Attempt to interpret a feature as " + table[a].first +
                                            " while the feature's type is " +
                                            GetMireloFeatureTypeName(features[f]->type());
                EXPECT_EQ(raised([&] { EXPECT_TRUE(table[a].second()); }), f == a ? "nothing" : refusal);
            }
        }
        EXPECT_FALSE(features[f]->hasVariableShape());
    }
}

TEST(Feature, IsZeroUntilItIsGivenAValue) {
    const ModelFeatureDescriptor descriptor(MireloFeatureType::Image, ImageDescriptor(1, 2, MireloPixelType::RGB));
    EXPECT_EQ(list(int{MireloFeatureUInt8(descriptor).asUInt8()}, MireloFeatureInt32(descriptor).asInt32(),
                   MireloFeatureInt64(descriptor).asInt64(), MireloFeatureDouble(descriptor).asDouble(),
                   MireloFeatureString(descriptor).asString().empty(), ModelFeatureDescriptor().required()),
              "0 0 0 0 1 1");
    const ImageDescriptor image(3, 4, MireloPixelType::RGBA);
    EXPECT_EQ(list(image.height(), image.width(), GetMireloPixelType(image.pixelType())), "3 4 RGBA");
}

TEST(Feature, IsMadeAsItsDescriptorSays) {
    MireloFeatureBool flag(ModelFeatureDescriptor{MireloFeatureType::Int32});
    flag.asBool() = !flag.asBool();
    EXPECT_TRUE(std::as_const(flag).asBool());
    EXPECT_EQ(flag.type(), MireloFeatureType::Int32);  // the descriptor's word
    const auto of = [](const TensorShape& shape) {
        return MireloFeatureTensor({MireloFeatureType::Tensor, TensorDescriptor(shape, DataType::Float)});
    };
    EXPECT_EQ(int{of({1, 3, 2, 2}).asTensor()->buffer()[47]}, 0);
    EXPECT_EQ(list(of({1, 3, 2, 2}).hasVariableShape(), of({1, 3, -1, -1}).hasVariableShape()), "0 1");
    EXPECT_FALSE(MireloFeatureTensor(named("empty"), nullptr).hasVariableShape());
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
    for (const auto& feature : features)
        word += feature->featureDescriptor().name() + std::to_string(feature->asInt32());
    return word;
}

TEST(Batch, IsAListInWhichANameRepeats) {
    for (const char* const letters : {"", "x", "xy", "xX"}) EXPECT_FALSE(MireloBatch::isBatch(featuresOf(letters)));
    for (const char* const letters : {"xx", "xyx"}) EXPECT_TRUE(MireloBatch::isBatch(featuresOf(letters)));
}

TEST(Batch, TakesItsFeaturesInAnyOrder) {
    std::string letters = "xxxyyyzzz";
    do {
        const MireloBatch batch(featuresOf(letters));
        const auto rows = batch.getFeatureSet().features;
        ASSERT_EQ(rows.size(), 3U) << letters;
        std::string row = wordOf(rows[0]);  // the same order of names in each row
        EXPECT_TRUE(row.size() == 6 && row.find("x0") + row.find("y0") + row.find("z0") == 6) << letters << " " << row;
        for (size_t i = 0; i < rows.size(); ++i) {
            std::replace(row.begin(), row.end(), static_cast<char>('0' + i - (i > 0)), static_cast<char>('0' + i));
            EXPECT_EQ(wordOf(rows[i]), row) << letters;
        }
        EXPECT_EQ(wordOf(batch.getSortedFetures({named("z"), named("x"), named("x")})), "z0z1z2x0x1x2x0x1x2")
            << letters;
        EXPECT_THROW(batch.getSortedFetures({named("x"), named("X")}), std::out_of_range);
    } while (std::next_permutation(letters.begin(), letters.end()));
    EXPECT_EQ(MireloBatch(featuresOf("xyz")).getFeatureSet().features.size(), 1U);
}

TEST(Batch, OfNothingIsEmptyAndUnevenOrNullOnesAreRefused) {
    const MireloBatch empty(Flat{});
    EXPECT_TRUE(empty.getFeatureSet().features.empty() && empty.getSortedFetures({}).empty());
    EXPECT_THROW(empty.getSortedFetures({named("x")}), std::out_of_range);
    for (const char* const uneven : {"xxy", "xyx", "xyxyz", "xxyyzzz"}) {
        EXPECT_EQ(raised([&] { MireloBatch batch(featuresOf(uneven)); }), "8: An uneven number of batches per input");
    }
    const std::string null = "7: A feature of a batch must not be null";
    for (const char* const others : {"", "xy", "xyxy", "xxy"}) {
        Flat features = featuresOf(others);
        features.push_back(nullptr);
        EXPECT_EQ(raised([&] { MireloBatch batch(features); }), null) << others;
    }
    EXPECT_EQ(raised([] { MireloBatch::isBatch(Flat{nullptr}); }), null);
}

}  // namespace
}  // namespace TarnoMirelo
