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
    EXPECT_EQ(status.getProperty("key"), "first");
    EXPECT_EQ(status.getPropertyMap().size(), 1U);
    MireloStatus::PropertyMap copy = status.getPropertyMap();
    copy["key"] = "changed";
    EXPECT_EQ(status.getProperty("key"), "first");
    EXPECT_THROW(status.getProperty("other"), std::out_of_range);
}

TEST(UsageProperties, LeaveWhatIsThereAndAreNotReplaced) {
    ScriptedModel model("given name", MireloModelType::TFLite);
    model.answer.setProperty("mireloondevice.status", "the backend's own");
    MireloModel::Outputs outputs;
    MireloStatus status = model.predict({}, outputs);
    EXPECT_EQ(status.getPropertyMap(), (MireloStatus::PropertyMap{{"mireloondevice.sdkName", "MireloOnDevice"},
                                                                  {"mireloondevice.version", getLibraryVersion()},
                                                                  {"mireloondevice.method", "PREDICT"},
                                                                  {"mireloondevice.status", "the backend's own"},
                                                                  {"mireloondevice.modelType", "TF-Lite"},
                                                                  {"mireloondevice.modelName", "given name"}}));
    status.setProperty("mireloondevice.method", "too late");
    status.setProperty("other", "new");
    UsageReporting::addUsageProperties(status, "UNLOAD", MireloModelType::TFJS,
                                       std::make_shared<const std::string>("other"));
    EXPECT_EQ(status.getProperty("mireloondevice.method"), "PREDICT");
    EXPECT_EQ(status.getProperty("other"), "new");
    EXPECT_EQ(status.getPropertyMap().size(), 7U);
}

TEST(DataTypes, HaveTheirWidthsAndNames) {
    const std::pair<const char*, int64_t> types[] = {{"bool", 1},   {"int8", 1},    {"uint8", 1},  {"int16", 2},
                                                     {"uint16", 2}, {"int32", 4},   {"uint32", 4}, {"int64", 8},
                                                     {"uint64", 8}, {"float16", 2}, {"float", 4},  {"double", 8}};
    int32_t value = 0;
    for (const auto& [name, width] : types) {
        ++value;
        EXPECT_EQ(findDataType(name), static_cast<DataType>(value)) << name;
        EXPECT_EQ(GetDataTypeSize(static_cast<DataType>(value)), width) << name;
    }
    for (const int32_t other : {-1, 0, 13})
        EXPECT_EQ(GetDataTypeSize(static_cast<DataType>(other)), 0);
    for (const char* const other : {"", "Float", "float32"})
        EXPECT_EQ(findDataType(other), std::nullopt);
}

// Around the largest count that fits, from both sides of zero.
TEST(ByteCounts, FitIn63BitsOrAreNone) {
    constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
    constexpr int64_t kQuarter = kLargest / 4;
    EXPECT_EQ(checkedByteCount(DataType::UInt8, TensorShape(kLargest)), kLargest);
    EXPECT_EQ(checkedByteCount(DataType::UInt8, TensorShape(-kLargest)), -kLargest);
    EXPECT_EQ(checkedByteCount(DataType::UInt8, TensorShape(std::numeric_limits<int64_t>::min())), std::nullopt);
    EXPECT_EQ(checkedByteCount(DataType::Float, TensorShape(kQuarter)), 4 * kQuarter);
    EXPECT_EQ(checkedByteCount(DataType::Float, TensorShape(kQuarter + 1)), std::nullopt);
    EXPECT_EQ(checkedByteCount(DataType::Float, {kQuarter, 1, -1}), -4 * kQuarter);
    EXPECT_EQ(checkedByteCount(DataType::Float, {kLargest, kLargest, 0}), 0);
    EXPECT_EQ(checkedByteCount(DataType::Undefined, {kLargest, 2}), std::nullopt);
}

// Virtual functions have fixed slots, which backends of an earlier build rely on. Under the C++ ABI of GCC and Clang
// the pointer to a virtual member holds its slot; a destructor takes two.
template <typename Member>
ptrdiff_t slotOf(Member member) {
    ptrdiff_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    return (word - 1) / static_cast<ptrdiff_t>(sizeof(void*));
}

template <typename... Members>
std::vector<ptrdiff_t> slotsOf(Members... members) {
    return {slotOf(members)...};
}

std::vector<ptrdiff_t> slotsFrom(ptrdiff_t first, size_t count) {
    std::vector<ptrdiff_t> slots(count);
    std::iota(slots.begin(), slots.end(), first);
    return slots;
}

TEST(Slots, AreThoseOfThePublishedClasses) {
    struct Model : MireloModel {
        static std::vector<ptrdiff_t> slots() {
            return slotsOf(&Model::getName, &Model::onPredict, &Model::onPredictBatch, &Model::onBind,
                           &Model::onEvaluate, &Model::onLoad, &Model::onUnload, &Model::onSetBatchSize,
                           &Model::onQueryCacheStatus);
        }
    };
    EXPECT_EQ(Model::slots(), slotsFrom(2, 9));
    struct Fence : DeviceFence {
        static std::vector<ptrdiff_t> slots() {
            return slotsOf(&Fence::isShared, &Fence::getFenceValuePtr, &Fence::getFenceValue, &Fence::signalFenceValue,
                           &Fence::signalNextFenceValue, &Fence::waitForFenceValue, &Fence::isFenceValueReached,
                           &Fence::waitForCurrentFenceValue, &Fence::flush);
        }
    };
    EXPECT_EQ(Fence::slots(), slotsFrom(2, 9));
    struct AnyTensor : DeviceTensor {
        static std::vector<ptrdiff_t> slots() {
            return slotsOf(&AnyTensor::shape, &AnyTensor::dataType, &AnyTensor::bytes, &AnyTensor::resize,
                           static_cast<const uint8_t* (ITensor::*)() const>(&AnyTensor::buffer),
                           static_cast<uint8_t* (ITensor::*)()>(&AnyTensor::buffer), &AnyTensor::stride,
                           &AnyTensor::hasVariableShape, &AnyTensor::tensorChanged, &AnyTensor::onDevice,
                           &AnyTensor::allocateShape, &AnyTensor::allocateBufferOfSize, &AnyTensor::isShared,
                           &AnyTensor::copyFromHost, &AnyTensor::copyToHost, &AnyTensor::nativeHandle);
        }
    };
    EXPECT_EQ(AnyTensor::slots(), slotsFrom(2, 16));
    using Feature = MireloFeature;
    EXPECT_EQ(slotsOf(static_cast<bool& (Feature::*)()>(&Feature::asBool),
                      static_cast<const bool& (Feature::*)() const>(&Feature::asBool),
                      static_cast<const uint8_t& (Feature::*)() const>(&Feature::asUInt8),
                      static_cast<uint8_t& (Feature::*)()>(&Feature::asUInt8),
                      static_cast<const int32_t& (Feature::*)() const>(&Feature::asInt32)),
              slotsFrom(2, 5));
    EXPECT_EQ(
        slotsOf(static_cast<std::shared_ptr<const IImage> (Feature::*)() const>(&Feature::asImage),
                static_cast<std::shared_ptr<IImage> (Feature::*)()>(&Feature::asImage), &Feature::hasVariableShape),
        slotsFrom(16, 3));
    EXPECT_EQ(
        slotsOf(&FileUtils::createDir, &FileUtils::pathExists, &FileUtils::openFileToStreamBinaryData,
                &FileUtils::streamBinaryDataToFile, &FileUtils::openFileToWriteBinaryData,
                &FileUtils::writeBinaryDataToFile, &FileUtils::writeStringToFile, &FileUtils::readBinaryFileToBuffer,
                &FileUtils::readBinaryFileToVector, &FileUtils::readBinaryFileToByteVector, &FileUtils::getFileSize,
                &FileUtils::readBinaryFileToAllocated, &FileUtils::deleteDir, &FileUtils::deleteFile,
                &FileUtils::extractTarball),
        slotsFrom(0, 15));
    EXPECT_EQ(slotsOf(&FileUtils::readBinaryFileToString, &FileUtils::findFilesByPattern), slotsFrom(17, 2));
}

}  // namespace
}  // namespace TarnoMirelo
