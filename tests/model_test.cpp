#include "support/scripted_model.h"
#include "support/status_text.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/model.h>

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

MireloModel::Components componentsOf(size_t count) {
    ModelTarget target;
    target.components.resize(count);
    return {MireloModelType::TFLite, target, Filepath("root")};
}

MireloStatus::PropertyMap usage(const std::string& method, const std::string& code, const std::string& modelType) {
    return {{"mireloondevice.sdkName", "MireloOnDevice"},
            {"mireloondevice.version", "5.4.0"},
            {"mireloondevice.method", method},
            {"mireloondevice.status", code},
            {"mireloondevice.modelType", modelType},
            {"mireloondevice.modelName", "given name"}};
}

TEST(Model, TakesTypeTargetAndDeviceFromItsConstructor) {
    ModelTarget target;
    target.inputNames = {"x"};
    Device raw("d", MireloModelType::TFLite);
    const auto shared = std::make_shared<Device>("d", MireloModelType::CoreML);
    struct Case {
        ScriptedModel model;
        MireloModelType type;
        Device* raw;
        std::shared_ptr<Device> shared;
        size_t inputs;
    };
    const Case cases[] = {{{"n", &raw}, MireloModelType::TFLite, &raw, nullptr, 0},
                          {{"n", &raw, target}, MireloModelType::TFLite, &raw, nullptr, 1},
                          {{"n", shared}, MireloModelType::CoreML, nullptr, shared, 0},
                          {{"n", shared, target}, MireloModelType::CoreML, nullptr, shared, 1},
                          {{"n", MireloModelType::TFJS}, MireloModelType::TFJS, nullptr, nullptr, 0},
                          {{"n", MireloModelType::TFJS, target}, MireloModelType::TFJS, nullptr, nullptr, 1}};
    for (const Case& c : cases) {
        EXPECT_EQ(c.model.getName(), "n");
        EXPECT_EQ(c.model.getModelType(), c.type);
        EXPECT_EQ(c.model.getDeviceRawPointer(), c.raw);
        EXPECT_EQ(c.model.getDevice(), c.shared);
        EXPECT_EQ(c.model.getModelTarget().inputNames.size(), c.inputs);
        EXPECT_EQ(c.model.getRootDir().getPathString(), "");
        EXPECT_FALSE(c.model.isLoaded());
        EXPECT_FALSE(c.model.getCachedModelFilePath());
    }
    const std::string noDevice = "7: The device must not be null";
    EXPECT_EQ(raised([] { ScriptedModel model("n", static_cast<Device*>(nullptr)); }), noDevice);
    EXPECT_EQ(raised([] { ScriptedModel model("n", std::shared_ptr<Device>(), ModelTarget()); }), noDevice);
}

TEST(Model, LoadAdoptsTheTupleWhateverComesOfIt) {
    ScriptedModel model("given name", MireloModelType::WinML);
    const std::pair<int, bool> answers[] = {{SUCCESS, true}, {ML_FRAMEWORK_ERROR, false}, {WARNING, true}, {-3, false}};
    for (const auto& [code, loaded] : answers) {
        model.answer = MireloStatus(static_cast<STATUS_CODE>(code), "from the backend");
        const MireloStatus status = model.load(componentsOf(2));
        EXPECT_EQ(text(status), std::to_string(code) + ": from the backend");
        EXPECT_EQ(status.getPropertyMap(), usage("LOAD", std::to_string(code), "TF-Lite"));
        EXPECT_EQ(model.isLoaded(), loaded);

        // Nothing to load: the flag stays, the tuple is adopted all the same.
        const MireloStatus empty = model.load({MireloModelType::TFJS, ModelTarget(), Filepath("other")});
        EXPECT_EQ(text(empty), "12: No model component found");
        EXPECT_EQ(empty.getPropertyMap(), usage("LOAD", "12", "tfjs"));
        EXPECT_EQ(model.isLoaded(), loaded);
        EXPECT_EQ(model.getModelType(), MireloModelType::TFJS);
        EXPECT_EQ(model.getRootDir().getPathString(), "other");
        EXPECT_TRUE(model.getModelTarget().components.empty());
    }
    EXPECT_EQ(model.calls, std::vector<std::string>(4, "load 2"));
}

TEST(Model, ForwardsToItsHooksAndStampsSomeOfTheirStatuses) {
    BindingModel model("given name", MireloModelType::Undefined);
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    for (const int code : {SUCCESS, WARNING, MODEL_METADATA_ERROR}) {
        model.calls.clear();
        model.answer = MireloStatus(static_cast<STATUS_CODE>(code), "why");
        const auto expected = [&](const char* method) { return usage(method, std::to_string(code), "Undefined"); };
        EXPECT_EQ(model.predict({}, outputs).getPropertyMap(), expected("PREDICT"));
        EXPECT_TRUE(model.predictBatch({}, outputs).getPropertyMap().empty());
        EXPECT_TRUE(model.bind({}, outputs, binding).getPropertyMap().empty());
        EXPECT_NE(binding, nullptr);
        EXPECT_EQ(model.evaluate(binding).getPropertyMap(), expected("PREDICT"));
        EXPECT_TRUE(model.setBatchSize(3).getPropertyMap().empty());
        EXPECT_EQ(model.doUnload().getPropertyMap(), expected("UNLOAD"));
        EXPECT_EQ(text(model.predictBatch({}, outputs)), std::to_string(code) + ": why");
        EXPECT_EQ(model.calls, (std::vector<std::string>{"predict", "predictBatch", "bind", "evaluate",
                                                         "setBatchSize 3", "unload", "predictBatch"}));
    }
    EXPECT_EQ(model.getName(), "another name");
}

// The status outlives the model and does not follow it.
TEST(Model, UsagePropertiesBelongToTheStatus) {
    auto model =
        std::make_unique<ScriptedModel>("a name that does not fit into a short string", MireloModelType::TFLite);
    MireloModel::Outputs outputs;
    MireloStatus status = model->predict({}, outputs);
    model->load({MireloModelType::TFJS, ModelTarget(), Filepath()});
    status.setCode(RANGE_ERROR);
    model.reset();
    const MireloStatus copy = status;
    const MireloStatus moved = std::move(status);
    for (const MireloStatus& kept : {copy, moved}) {
        EXPECT_EQ(kept.getProperty("mireloondevice.modelName"), "a name that does not fit into a short string");
        EXPECT_EQ(kept.getProperty("mireloondevice.modelType"), "TF-Lite");
        EXPECT_EQ(kept.getProperty("mireloondevice.status"), "1");
        EXPECT_THROW(kept.getProperty("modelName"), std::out_of_range);
    }
}

TEST(Model, WithoutBindAndEvaluateRaises) {
    const ScriptedModel model("n", MireloModelType::WinML);
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(raised([&] { model.bind({}, outputs, binding); }), "29: Not implemented on current selected backend.");
    EXPECT_EQ(raised([&] { model.evaluate(binding); }), "29: Not implemented on current selected backend.");
}

TEST(Model, LetsExceptionsOfItsHooksPass) {
    class Raising : public ScriptedModel {
     public:
        using ScriptedModel::ScriptedModel;

     protected:
        MireloStatus onLoad(const std::vector<ModelComponent>& /*components*/) override {
            throw std::runtime_error("x");
        }
        MireloStatus onUnload() override { throw std::runtime_error("x"); }
    };
    const auto model = std::make_shared<Raising>("n", MireloModelType::WinML);
    EXPECT_THROW(model->load(componentsOf(1)), std::runtime_error);
    EXPECT_EQ(model->getRootDir().getPathString(), "root");
    ModelManager manager;
    manager.registerModel(model);
    EXPECT_THROW(manager.unloadModel(model), std::runtime_error);
    EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 1U);
    model->setRuntimeStatus(nullptr);  // or model and record keep each other
}

TEST(Model, AllocatesItsInputsUpToTheFirstThatItCannot) {
    const ModelFeatureDescriptor fixed(MireloFeatureType::Tensor, TensorDescriptor({1, 3, 2, 2}, DataType::Float));
    const ModelFeatureDescriptor variable(MireloFeatureType::Tensor, TensorDescriptor({1, -1}, DataType::Int8));
    const ModelFeatureDescriptor negative(MireloFeatureType::Tensor, TensorDescriptor({1, -2}, DataType::Int8));
    const auto other = [](MireloFeatureType type) { return ModelFeatureDescriptor(type); };
    const std::string unsupported = "8: Unsupported feature type for ModelFeatureDescriptor";
    const std::string undefined = "8: Undefined feature type for allocating inputs";
    const std::pair<ModelFeatureDescriptor, std::string> cases[] = {
        {fixed, kSuccess},
        {other(MireloFeatureType::Double), unsupported + ".  Please quantize your model to float32/16"},
        {other(MireloFeatureType::Bool), unsupported},
        {other(MireloFeatureType::UInt8), unsupported},
        {other(MireloFeatureType::Int32), unsupported},
        {other(MireloFeatureType::Int64), unsupported},
        {other(MireloFeatureType::String), unsupported},
        {other(MireloFeatureType::Image), undefined},
        {other(MireloFeatureType::Undefined), undefined},
        {other(static_cast<MireloFeatureType>(99)), undefined},
        {negative, "2: A tensor buffer of this size cannot be allocated"}};
    for (const auto& [third, expected] : cases) {
        ModelTarget target;
        target.inputs = {fixed, variable, third};
        ScriptedModel model("n", MireloModelType::WinML, target);
        const auto mine = std::make_shared<MireloFeature>(ModelFeatureDescriptor());
        std::vector<std::shared_ptr<MireloFeature>> inputs{mine};
        const MireloStatus status = model.allocateInputs(inputs);
        EXPECT_EQ(text(status), expected);
        EXPECT_TRUE(status.getPropertyMap().empty());
        ASSERT_EQ(inputs.size(), expected == kSuccess ? 4U : 3U);
        EXPECT_EQ(inputs[0], mine);
        EXPECT_EQ(inputs[1]->asTensor()->bytes(), 48);
        EXPECT_EQ(inputs[1]->asTensor()->buffer()[47], 0);
        EXPECT_TRUE(inputs[2]->hasVariableShape());
        EXPECT_EQ(inputs[2]->asTensor()->dataType(), DataType::Int8);
    }
}

TEST(Model, LooksForACachedModelByItsDirectory) {
    ScriptedModel model("n", MireloModelType::WinML);
    const TempDir directory;
    const auto query = [&](const Filepath& root) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(model.queryCacheStatus({MireloModelType::WinML, ModelTarget(), root}), MireloCacheStatus::NotCached);
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(query(directory.path()), "");
    EXPECT_EQ(query(directory.path("missing")), "The model directory does not exist\n");
    model.setCachedModelFilePath(Filepath("cached"));
    EXPECT_EQ(model.getCachedModelFilePath()->getPathString(), "cached");
}

class LimitedRecord : public ModelRuntimeStatus {
 public:
    using ModelRuntimeStatus::ModelRuntimeStatus;
    using ModelRuntimeStatus::setMaxAllowedMemoryConsumption;
};

TEST(RuntimeRecord, RecordsBelowItsLimitAndSaysSo) {
    LimitedRecord record(kNoLimit, nullptr);
    const auto recorded = [](const std::string& bytes) { return "16: Current Memory consumption = " + bytes; };
    EXPECT_EQ(record.getCurrentMemoryConsumption(), 0U);
    EXPECT_EQ(text(record.setCurrentMemoryConsumption(1000)), recorded("1000"));
    EXPECT_EQ(text(record.addCurrentMemoryConsumption(24)), recorded("1024"));
    const ModelRuntimeStatus copy = record;
    EXPECT_EQ(text(record.removeCurrentMemoryConsumption(24)), recorded("1000"));
    EXPECT_EQ(text(record.setCurrentMemoryConsumption(kNoLimit - 1)), recorded("18446744073709551614"));
    EXPECT_EQ(text(record.addCurrentMemoryConsumption(1)), kSuccess);  // reaches the limit
    EXPECT_EQ(text(record.addCurrentMemoryConsumption(2)), recorded("0"));
    EXPECT_EQ(text(record.removeCurrentMemoryConsumption(2)), recorded("18446744073709551614"));
    EXPECT_EQ(text(record.setMaxAllowedMemoryConsumption(500)), kSuccess);
    for (const uint64_t bytes : {uint64_t{600}, uint64_t{500}, kNoLimit}) {
        EXPECT_EQ(text(record.setCurrentMemoryConsumption(bytes)), kSuccess);
        EXPECT_EQ(record.getCurrentMemoryConsumption(), kNoLimit - 1);
    }
    EXPECT_EQ(text(record.setCurrentMemoryConsumption(499)), recorded("499"));
    EXPECT_EQ(copy.getCurrentMemoryConsumption(), 1024U);
}

TEST(Manager, TakesSnapshotsThatDoNotFollow) {
    ModelManager manager;
    EXPECT_EQ(manager.getRuntimeStatus().getTotalMemoryConsumption(), 0U);
    const auto a = std::make_shared<ScriptedModel>("a", MireloModelType::WinML);
    const auto b = std::make_shared<ScriptedModel>("b", MireloModelType::WinML);
    EXPECT_EQ(raised([&] { a->getRuntimeStatus(); }), "6: The model is not registered");
    EXPECT_EQ(a->runtimeRecord(), nullptr);
    EXPECT_EQ(text(manager.registerModel(a)), kSuccess);
    EXPECT_EQ(text(manager.registerModel(b)), kSuccess);
    b->runtimeRecord()->setCurrentMemoryConsumption(30);
    RuntimeStatus before = manager.getRuntimeStatus();
    a->runtimeRecord()->setCurrentMemoryConsumption(12);
    RuntimeStatus after = manager.getRuntimeStatus();
    EXPECT_EQ(before.getTotalMemoryConsumption(), 30U);
    EXPECT_EQ(after.getTotalMemoryConsumption(), 42U);
    EXPECT_EQ(after.getLoadedModels(), (std::vector<std::shared_ptr<MireloModel>>{a, b}));
    EXPECT_EQ(after.getModelsRuntimeStatus().at(1).getModel(), b);
    EXPECT_EQ(after.getModelRuntimeStatus(b).getCurrentMemoryConsumption(), 30U);
    EXPECT_EQ(after.getMaxAllowedTotalMemory(), kNoLimit);
    EXPECT_EQ(text(after.getModelRuntimeStatus(b).setCurrentMemoryConsumption(kNoLimit)), kSuccess);
    EXPECT_EQ(raised([&] { after.getModelRuntimeStatus(nullptr); }), "2: model not found - this should not occur");

    EXPECT_EQ(manager.unloadModel(a).getPropertyMap().size(), 6U);
    EXPECT_EQ(text(manager.unloadModel(b)), kSuccess);
    EXPECT_EQ(after.getLoadedModels().size(), 2U);
    EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 0U);
    EXPECT_EQ(raised([&] { a->getRuntimeStatus(); }), "6: The model is not registered");
    for (const std::shared_ptr<MireloModel>& unregistered : {std::shared_ptr<MireloModel>(a), {}}) {
        EXPECT_EQ(raised([&] { RuntimeStatus status({unregistered}); }), "6: The model is not registered");
    }
}

TEST(Manager, KeepsAModelUnlessItsUnloadSucceeds) {
    ModelManager manager;
    const auto model = std::make_shared<ScriptedModel>("n", MireloModelType::WinML);
    manager.registerModel(model);
    for (const STATUS_CODE code : {ML_FRAMEWORK_ERROR, WARNING}) {
        model->answer = MireloStatus(code, "still here");
        const MireloStatus status = manager.unloadModel(model);
        EXPECT_EQ(text(status), std::to_string(code) + ": still here");
        EXPECT_EQ(status.getProperty("mireloondevice.method"), "UNLOAD");
        EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 1U);
    }
    model->answer = MireloStatus(SUCCESS, "");
    EXPECT_EQ(text(manager.unloadModel(model)), kSuccess);
}

TEST(Manager, CountsWhatItRemoved) {
    ModelManager manager;
    const std::string notOnce = "11: Could not remove model from references";
    const auto twice = std::make_shared<ScriptedModel>("twice", MireloModelType::WinML);
    const auto never = std::make_shared<ScriptedModel>("never", MireloModelType::WinML);
    manager.registerModel(twice);
    manager.registerModel(twice);
    EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 2U);
    for (const auto& model : {twice, never}) {
        const MireloStatus status = manager.unloadModel(model);
        EXPECT_EQ(text(status), notOnce);
        EXPECT_TRUE(status.getPropertyMap().empty());
        EXPECT_EQ(model->calls, std::vector<std::string>{"unload"});
        EXPECT_EQ(model->runtimeRecord(), nullptr);
    }
    EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 0U);
    EXPECT_EQ(text(manager.registerModel(nullptr)), "7: The model must not be null");
    EXPECT_EQ(text(manager.unloadModel(nullptr)), "7: The model must not be null");
}

// The argument lies in the record that the call releases.
TEST(Manager, TakesItsArgumentFromTheRecordItReleases) {
    ModelManager manager;
    auto model = std::make_shared<ScriptedModel>("n", MireloModelType::WinML);
    manager.registerModel(model);
    const std::weak_ptr<ModelRuntimeStatus> first = model->runtimeRecord();
    EXPECT_EQ(text(manager.registerModel(model->getRuntimeStatus().getModel())), kSuccess);
    EXPECT_TRUE(first.expired());
    EXPECT_EQ(model->getRuntimeStatus().getModel(), model);
    const std::weak_ptr<ScriptedModel> gone = model;
    const ModelRuntimeStatus& record = model->getRuntimeStatus();
    model.reset();
    EXPECT_EQ(manager.unloadModel(record.getModel()).getCode(), MODEL_REFERENCE_ERROR);
    EXPECT_TRUE(gone.expired());
}

TEST(Device, KeepsWhatItIsGiven) {
    Device device("d", MireloModelType::OnnxRuntime, DeviceType::GPU, OrtEP::CUDA, 11, 12);
    EXPECT_EQ(device.getDeviceName(), "d");
    EXPECT_EQ(device.getDeviceType(), DeviceType::GPU);
    EXPECT_EQ(device.getORTType(), OrtEP::CUDA);
    EXPECT_EQ(device.getLUID(), 11U);
    EXPECT_EQ(device.getId(), 12U);
    EXPECT_EQ(text(device.setNumThreads(4)), "7: Setting number of threads only supported on TFLite");
    EXPECT_EQ(device.getNumThreads(), 0U);
    device.setModelType(static_cast<MireloModelType>(8 | 1));
    EXPECT_EQ(device.setNumThreads(4).getCode(), INVALID_ARGUMENTS);
    device.setModelType(MireloModelType::TFLite);
    EXPECT_EQ(text(device.setNumThreads(4)), kSuccess);
    device.setDeviceType(DeviceType::NPU);
    device.setORTType(OrtEP::TensorRT);
    device.setDedicatedMemory(13);
    device.setVendorName("v");
    device.setVendorId(14);
    const Device copy = device;
    EXPECT_EQ(copy.getNumThreads(), 4U);
    EXPECT_EQ(copy.getDeviceType(), DeviceType::NPU);
    EXPECT_EQ(copy.getORTType(), OrtEP::TensorRT);
    EXPECT_EQ(copy.getDedicatedMemory(), 13U);
    EXPECT_EQ(copy.getVendorName(), "v");
    EXPECT_EQ(copy.getVendorId(), 14U);
}

class CountingFence : public DeviceFence {
 public:
    CountingFence() : DeviceFence(5, true) {}
    mutable std::vector<std::pair<uint64_t, bool>> waits;

 protected:
    MireloStatus signalFenceValue(Device* /*device*/, uint64_t value) override {
        *getFenceValuePtr() = value;
        return {SUCCESS, ""};
    }
    uint64_t signalNextFenceValue(Device* device) override {
        signalFenceValue(device, 7);
        return 7;
    }
    MireloStatus waitForFenceValue(Device* device, uint64_t value, bool flag) const override {
        waits.emplace_back(value, flag);
        return {WARNING, device->getDeviceName()};
    }
    bool isFenceValueReached(uint64_t value) const override { return getFenceValue() >= value; }
};

TEST(Fence, WaitsForTheCounterThatItShares) {
    Device device("the device", MireloModelType::WinML);
    auto fence = std::make_unique<CountingFence>();
    EXPECT_TRUE(fence->isShared());
    EXPECT_EQ(text(fence->waitForCurrentFenceValue(&device, true)), "27: the device");
    EXPECT_EQ(text(fence->flush(&device)), "27: the device");
    EXPECT_EQ(fence->waits, (std::vector<std::pair<uint64_t, bool>>{{5, true}, {7, false}}));
    const std::shared_ptr<uint64_t> counter = fence->getFenceValuePtr();
    *counter = 9;
    EXPECT_EQ(fence->getFenceValue(), 9U);
    fence.reset();
    EXPECT_EQ(*counter, 9U);
}

}  // namespace
}  // namespace TarnoMirelo
