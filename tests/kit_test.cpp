// The kit: texts for people.

#include "support/text.h"

#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

TEST(KitTexts, NameCodesTypesAndShapes) {
    EXPECT_EQ(toText(INVALID_SHAPE), "INVALID_SHAPE");
    EXPECT_EQ(toText(static_cast<STATUS_CODE>(5)), "status code 5");
    EXPECT_EQ(toText(DataType::Float), "float");
    EXPECT_EQ(toText(DataType::Double), "double");
    EXPECT_EQ(toText(static_cast<DataType>(-1)), "undefined");
    EXPECT_EQ(toText(TensorShape()), "()");
    EXPECT_EQ(toText(TensorShape(1, -1, 64)), "(1, -1, 64)");
}

TEST(KitTexts, DescribeEveryStatus) {
    const struct {
        STATUS_CODE code;
        const char* description;
        const char* text;
    } cases[] = {
        {SUCCESS, "", "SUCCESS (1): It worked."},
        {INVALID_SHAPE, "Input \"x\": the shape is (2), wanted is (3)",
         "INVALID_SHAPE (17): Input \"x\": the shape is (2), wanted is (3)."},
        {MODEL_METADATA_ERROR, "",
         "MODEL_METADATA_ERROR (12): The manifest has no target of that type. Look at the members of its \"targets\"."},
        {INVALID_OPERATION, "The model is not registered",
         "INVALID_OPERATION (6): The model is not registered. Register the model with a ModelManager first."},
        {MEMORY_CONSUMPTION_ERROR, "Current Memory consumption = 5",
         "MEMORY_CONSUMPTION_ERROR (16): Current Memory consumption = 5. This is no failure: a memory record answers so "
         "when it has taken a report."},
        {NOT_IMPLEMENTED, "Not implemented on current selected backend.",
         "NOT_IMPLEMENTED (29): Not implemented on current selected backend. Use predict in place of bind and "
         "evaluate."},
        {static_cast<STATUS_CODE>(5), "", "status code 5: No description."},
        {FILE_ERROR, " \n", "FILE_ERROR (3): A file operation failed."},
    };
    for (const auto& each : cases) EXPECT_EQ(describe({each.code, each.description}), each.text);
}
