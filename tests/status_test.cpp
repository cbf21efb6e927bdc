#include "support/status_text.h"

#include <TarnoMirelo/status.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace TarnoMirelo {
namespace {

TEST(Status, KnowsSuccessAndWarningFromEverythingElse) {
    EXPECT_EQ(text(MireloStatus()), "2: ");
    for (const int code : {-3, 0, 1, 2, 12, 26, 27, 28, 29}) {
        SCOPED_TRACE(code);
        const MireloStatus status(static_cast<STATUS_CODE>(code), "why");
        EXPECT_EQ(status.getCode(), code);
        EXPECT_EQ(status.ok(), code == 1);
        EXPECT_EQ(status.warn(), code == 27);
        EXPECT_TRUE(status.getPropertyMap().empty());
        EXPECT_THROW(status.getProperty("key"), std::out_of_range);
    }
}

TEST(Status, ChangesOneFieldAtATimeAndCopiesIndependently) {
    MireloStatus status(SUCCESS, "first");
    const MireloStatus copy = status;
    status.setCode(FILE_ERROR);
    EXPECT_EQ(text(status), "3: first");
    status.setDescription("second");
    EXPECT_EQ(text(status), "3: second");
    EXPECT_EQ(text(copy), "1: first");
}

// The numbers are part of what hosts compare and store.
TEST(Status, CodesHaveTheirFixedNumbers) {
    static_assert(std::is_same_v<std::underlying_type_t<STATUS_CODE>, int32_t>);
    const std::pair<STATUS_CODE, int> codes[] = {{SUCCESS, 1},
                                                 {UNKNOWN_ERROR, 2},
                                                 {FILE_ERROR, 3},
                                                 {INVALID_OPERATION, 6},
                                                 {INVALID_ARGUMENTS, 7},
                                                 {INVALID_TYPE, 8},
                                                 {INVALID_TENSOR_DATA_TYPE, 9},
                                                 {MODEL_REFERENCE_ERROR, 11},
                                                 {MODEL_METADATA_ERROR, 12},
                                                 {ML_FRAMEWORK_ERROR, 13},
                                                 {RANGE_ERROR, 14},
                                                 {MEMORY_CONSUMPTION_ERROR, 16},
                                                 {INVALID_SHAPE, 17},
                                                 {ALLOCATION_FAILED, 18},
                                                 {TAR_CHECKSUM_ERROR, 21},
                                                 {TAR_EXTRACTION_ERROR, 23},
                                                 {WARNING, 27},
                                                 {NOT_IMPLEMENTED, 29}};
    for (const auto& [code, number] : codes)
        EXPECT_EQ(code, number);
}

template <typename Raised>
std::string convert(const Raised& exception) {
    return raised([&] { throw exception; });
}

TEST(Exceptions, BecomeTheStatusThatTheyCarry) {
    EXPECT_EQ(convert(Exception("x")), "2: x");
    EXPECT_EQ(convert(Exception("x", NOT_IMPLEMENTED)), "29: x");
    EXPECT_EQ(convert(FileException("x")), "3: x");
    EXPECT_EQ(convert(InvalidOperationException("x")), "6: x");
    EXPECT_EQ(convert(InvalidArgumentsException("x")), "7: x");
    EXPECT_EQ(convert(InvalidTypeException("x")), "8: x");
    EXPECT_EQ(convert(InvalidTensorDataTypeException("x")), "9: x");
    EXPECT_EQ(convert(ModelMetaDataException("x")), "12: x");
    EXPECT_EQ(convert(MLFrameworkException("x")), "13: x");
    EXPECT_EQ(convert(RangeException("")), "14: ");
    EXPECT_EQ(convert(std::out_of_range("standard")), "2: standard");
    EXPECT_EQ(convert(7), "2: unknown error occured");
}

TEST(Exceptions, AreCaughtByTheirBasesAndKeepTheirMessageWhenCopied) {
    try {
        throw RangeException("a message that does not fit into a short string");
    } catch (const std::exception& exception) {
        const auto copy = dynamic_cast<const RangeException&>(exception);
        EXPECT_STREQ(copy.what(), exception.what());
        EXPECT_EQ(copy.getStatusCode(), RANGE_ERROR);
    }
}

}  // namespace
}  // namespace TarnoMirelo
