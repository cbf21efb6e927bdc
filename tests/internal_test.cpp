// What the library keeps to itself: linked with its objects, since none of this is exported.

#include "model/usage.h"
#include "support/scripted_model.h"
#include "tensor/data_type.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <numeric>

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

// Virtual functions have fixed slots, which backends of an earlier build rely on. Under the C++ ABI of GCC and Clang
// the pointer to a virtual member holds its slot; a destructor takes two.
template <typename... Members>
void expectSlots(ptrdiff_t first, Members... members) {
    const auto slotOf = [](auto member) {
        ptrdiff_t word = 0;
        std::memcpy(&word, &member, sizeof word);
        return (word - 1) / static_cast<ptrdiff_t>(sizeof(void*));
    };
    const std::vector<ptrdiff_t> slots{slotOf(members)...};
    std::vector<ptrdiff_t> expected(slots.size());
    std::iota(expected.begin(), expected.end(), first);
    EXPECT_EQ(slots, expected);
}

TEST(Slots, AreThoseOfThePublishedClasses) {
    struct Model : MireloModel {
        static void check() {
            expectSlots(2, &Model::getName, &Model::onPredict, &Model::onPredictBatch, &Model::onBind,
                        &Model::onEvaluate, &Model::onLoad, &Model::onUnload, &Model::onSetBatchSize,
                        &Model::onQueryCacheStatus);
        }
    };
    Model::check();
    struct Fence : DeviceFence {
        static void check() {
            expectSlots(2, &Fence::isShared, &Fence::getFenceValuePtr, &Fence::getFenceValue, &Fence::signalFenceValue,
                        &Fence::signalNextFenceValue, &Fence::waitForFenceValue, &Fence::isFenceValueReached,
                        &Fence::waitForCurrentFenceValue, &Fence::flush);
        }
    };
    Fence::check();
    struct Any : DeviceTensor {
        static void check() {
            expectSlots(2, &Any::shape, &Any::dataType, &Any::bytes, &Any::resize,
                        static_cast<const uint8_t* (ITensor::*)() const>(&Any::buffer),
                        static_cast<uint8_t* (ITensor::*)()>(&Any::buffer), &Any::stride, &Any::hasVariableShape,
                        &Any::tensorChanged, &Any::onDevice, &Any::allocateShape, &Any::allocateBufferOfSize,
                        &Any::isShared, &Any::copyFromHost, &Any::copyToHost, &Any::nativeHandle);
        }
    };
    Any::check();
    using Feature = MireloFeature;
    expectSlots(2, static_cast<bool& (Feature::*)()>(&Feature::asBool),
                static_cast<const bool& (Feature::*)() const>(&Feature::asBool),
                static_cast<const uint8_t& (Feature::*)() const>(&Feature::asUInt8),
                static_cast<uint8_t& (Feature::*)()>(&Feature::asUInt8));
    expectSlots(16, static_cast<std::shared_ptr<const IImage> (Feature::*)() const>(&Feature::asImage),
                static_cast<std::shared_ptr<IImage> (Feature::*)()>(&Feature::asImage), &Feature::hasVariableShape);
    using Files = FileUtils;
    expectSlots(0, &Files::createDir, &Files::pathExists, &Files::openFileToStreamBinaryData,
                &Files::streamBinaryDataToFile, &Files::openFileToWriteBinaryData, &Files::writeBinaryDataToFile,
                &Files::writeStringToFile, &Files::readBinaryFileToBuffer, &Files::readBinaryFileToVector,
                &Files::readBinaryFileToByteVector, &Files::getFileSize, &Files::readBinaryFileToAllocated,
                &Files::deleteDir, &Files::deleteFile, &Files::extractTarball);
    expectSlots(17, &Files::readBinaryFileToString, &Files::findFilesByPattern);
}

}  // namespace
}  // namespace TarnoMirelo
