#include "support/text.h"

#include <TarnoMirelo/status.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace TarnoMirelo {
namespace {

TEST(Status, KnowsSuccessAndWarningFromEverythingElse) {
    EXPECT_EQ(text(MireloStatus()), "2: ");
    for (int code = -3; code < 31; ++code) {
        MireloStatus status(static_cast<STATUS_CODE>(code), "why");
        EXPECT_EQ(list(status.ok(), status.warn(), status.getCode()), list(code == 1, code == 27, code));
        EXPECT_THROW(status.getProperty("key"), std::out_of_range);
        status.setCode(FILE_ERROR);
        EXPECT_EQ(text(status), "3: why");
        status.setDescription("other");
        EXPECT_EQ(text(status), "3: other");
    }
}

// The numbers are part of what hosts compare and store.
TEST(Status, CodesHaveTheirFixedNumbers) {
    EXPECT_EQ(list(SUCCESS, UNKNOWN_ERROR, FILE_ERROR, INVALID_OPERATION, INVALID_ARGUMENTS, INVALID_TYPE),
              "1 2 3 6 7 8");
    EXPECT_EQ(list(INVALID_TENSOR_DATA_TYPE, MODEL_REFERENCE_ERROR, MODEL_METADATA_ERROR, ML_FRAMEWORK_ERROR),
              "9 11 12 13");
    EXPECT_EQ(list(RANGE_ERROR, MEMORY_CONSUMPTION_ERROR, INVALID_SHAPE, ALLOCATION_FAILED), "14 16 17 18");
    EXPECT_EQ(list(TAR_CHECKSUM_ERROR, TAR_EXTRACTION_ERROR, WARNING, NOT_IMPLEMENTED), "21 23 27 29");
}

template <typename Raised>
std::string convert(const Raised& exception) {
    return raised([&] { throw exception; });
}

TEST(Exceptions, BecomeTheStatusThatTheyCarry) {
    const Exception copied = RangeException("a message that does not fit into a short string");
    EXPECT_EQ(convert(copied), "14: a message that does not fit into a short string");
    EXPECT_EQ(convert(Exception("x")) + convert(Exception("x", NOT_IMPLEMENTED)), "2: x29: x");
    EXPECT_EQ(convert(FileException("x")) + convert(InvalidOperationException("x")), "3: x6: x");
    EXPECT_EQ(convert(InvalidArgumentsException("x")) + convert(InvalidTypeException("x")), "7: x8: x");
    EXPECT_EQ(convert(InvalidTensorDataTypeException("x")) + convert(ModelMetaDataException("x")), "9: x12: x");
    EXPECT_EQ(convert(MLFrameworkException("x")) + convert(RangeException("")), "13: x14: ");
    EXPECT_EQ(convert(std::out_of_range("standard")) + convert(7), "2: standard2: unknown error occured");
    struct Mute : std::exception {
        const char* what() const noexcept override { return nullptr; }
    };
    EXPECT_EQ(convert(Mute()), "2: ");
    EXPECT_THROW(throw FileException("x"), std::exception);
}

}  // namespace
}  // namespace TarnoMirelo
