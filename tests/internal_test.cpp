// Internals, which are not exported: this is linked with the library's objects.

#include "model/usage.h"
#include "support/scripted_model.h"
#include "tensor/data_type.h"

#include <gtest/gtest.h>

#include <limits>

namespace TarnoMirelo {
namespace {

TEST(Properties, KeepTheFirstValueOfAKey) {
    MireloStatus status(SUCCESS, "");
    status.setProperty("key", "first");
    status.setProperty("key", "second");
    EXPECT_EQ(status.getPropertyMap(), (MireloStatus::PropertyMap{{"key", "first"}}));
    status.getPropertyMap()["key"] = "changed";  // a copy
    EXPECT_EQ(status.getProperty("key"), "first");
}

TEST(Properties, OfUsageLeaveWhatIsThereAndAreNotReplaced) {
    ScriptedModel model("given name", MireloModelType::TFLite);
    model.answer.setProperty("mireloondevice.status", "the backend's own");
    MireloModel::Outputs outputs;
    MireloStatus status = model.predict({}, outputs);
    EXPECT_EQ(status.getProperty("mireloondevice.status"), "the backend's own");
    EXPECT_EQ(status.getProperty("mireloondevice.version"), getLibraryVersion());
    EXPECT_EQ(status.getPropertyMap().size(), 6U);
    status.setProperty("mireloondevice.method", "too late");
    status.setProperty("other", "new");
    UsageReporting::addUsageProperties(status, "UNLOAD", MireloModelType::TFJS,
                                       std::make_shared<const std::string>("other"));
    EXPECT_EQ(status.getProperty("mireloondevice.method") + status.getProperty("other"), "PREDICTnew");
    EXPECT_EQ(status.getPropertyMap().size(), 7U);
}

TEST(DataTypes, HaveTheirWidthsAndNames) {
    const char* const names[] = {"bool",   "int8",  "uint8",  "int16",   "uint16", "int32",
                                 "uint32", "int64", "uint64", "float16", "float",  "double"};
    const int64_t widths[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    for (size_t i = 0; i < std::size(names); ++i) {
        EXPECT_EQ(findDataType(names[i]), static_cast<DataType>(i + 1));
        EXPECT_EQ(GetDataTypeSize(static_cast<DataType>(i + 1)), widths[i]) << names[i];
    }
    for (const int32_t other : {-1, 0, 13}) EXPECT_EQ(GetDataTypeSize(static_cast<DataType>(other)), 0);
    for (const char* const other : {"", "Float", "float32"}) EXPECT_EQ(findDataType(other), std::nullopt);
}

// Around the largest count that fits, from both sides of zero.
TEST(ByteCounts, FitIn63BitsOrAreNone) {
    constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
    constexpr int64_t kQuarter = kLargest / 4;
    EXPECT_EQ(checkedByteCount(DataType::UInt8, TensorShape(kLargest)), kLargest);
    EXPECT_EQ(checkedByteCount(DataType::UInt8, TensorShape(-kLargest)), -kLargest);
    EXPECT_EQ(checkedByteCount(DataType::UInt8, TensorShape(std::numeric_limits<int64_t>::min())), std::nullopt);
    EXPECT_EQ(checkedByteCount(DataType::Float, {kQuarter, 1, -1}), -4 * kQuarter);
    EXPECT_EQ(checkedByteCount(DataType::Float, TensorShape(kQuarter + 1)), std::nullopt);
    EXPECT_EQ(checkedByteCount(DataType::Float, {kLargest, kLargest, 0}), 0);
    EXPECT_EQ(checkedByteCount(DataType::Undefined, {kLargest, 2}), std::nullopt);
}

}  // namespace
}  // namespace TarnoMirelo
