#include "support/scripted_model.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/model.h>

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

std::shared_ptr<ScriptedModel> makeModel(const std::string& name) {
    return std::make_shared<ScriptedModel>(name, MireloModelType::WinML);
}

MireloModel::Components componentsOf(size_t count) {
    ModelTarget target;
    target.components.resize(count);
    return {MireloModelType::TFLite, target, Filepath("root")};
}

// A status with its usage properties in brackets.
std::string stamped(const MireloStatus& status) {
    std::string all = text(status);
    for (const char* const key : {"sdkName", "version", "method", "status", "modelType", "modelName"}) {
        const MireloStatus::PropertyMap properties = status.getPropertyMap();
        const auto found = properties.find(std::string("mireloondevice.") + key);
        all += found == properties.end() ? "" : " [" + found->second + "]";
    }
    return all;
}

TEST(Model, LoadAdoptsTheTupleWhateverComesOfIt) {
    ScriptedModel model("given name", MireloModelType::WinML);
    for (const int code : {1, 13, 27, -3}) {
        model.answer = MireloStatus(static_cast<STATUS_CODE>(code), "why");
        const std::string usage =
            list(code) + ": why [MireloOnDevice] [5.4.0] [LOAD] [" + list(code) + "] [TF-Lite] [given name]";
        EXPECT_EQ(stamped(model.load(componentsOf(2))), usage);
        EXPECT_EQ(model.isLoaded(), code == SUCCESS || code == WARNING);
        // Nothing to load: the flag stays, the tuple is adopted all the same.
        EXPECT_EQ(stamped(model.load({MireloModelType::TFJS, ModelTarget(), Filepath("other")})),
                  "12: No model component found [MireloOnDevice] [5.4.0] [LOAD] [12] [tfjs] [given name]");
        EXPECT_EQ(model.isLoaded(), code == SUCCESS || code == WARNING);
        EXPECT_EQ(list(model.getModelTarget().components.size(), model.getRootDir().getPathString()), "0 other");
    }
    EXPECT_EQ(model.calls, "load 2;load 2;load 2;load 2;");
}

TEST(Model, ForwardsToItsHooksAndStampsSomeOfTheirStatuses) {
    BindingModel model("given name", MireloModelType::Undefined);
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    model.answer = MireloStatus(MODEL_METADATA_ERROR, "why");
    const auto usage = [](const std::string& method) {
        return "12: why [MireloOnDevice] [5.4.0] [" + method + "] [12] [Undefined] [given name]";
    };
    EXPECT_EQ(stamped(model.predict({}, outputs)), usage("PREDICT"));
    EXPECT_EQ(stamped(model.predictBatch({}, outputs)), "12: why");
    EXPECT_EQ(stamped(model.bind({}, outputs, binding)), "12: why");
    EXPECT_EQ(stamped(model.evaluate(binding)), usage("PREDICT"));
    EXPECT_EQ(stamped(model.setBatchSize(3)), "12: why");
    EXPECT_EQ(stamped(model.doUnload()), usage("UNLOAD"));
    EXPECT_EQ(model.calls, "predict;predictBatch;bind;evaluate;setBatchSize 3;unload;");
    EXPECT_EQ(model.getName(), "another name");  // while the given one is reported
}

// The status outlives the model and does not follow it.
TEST(Model, UsagePropertiesBelongToTheStatus) {
    auto model = makeModel("a name that does not fit into a short string");
    MireloModel::Outputs outputs;
    MireloStatus status = model->predict({}, outputs);
    model->load(componentsOf(1));
    model.reset();
    status.setCode(RANGE_ERROR);
    const MireloStatus copy = status;
    const MireloStatus moved = std::move(status);
    for (const MireloStatus& kept : {copy, moved}) {
        EXPECT_EQ(stamped(kept),
                  "14:  [MireloOnDevice] [5.4.0] [PREDICT] [1] [WinML] [a name that does not fit into a short string]");
        EXPECT_THROW(kept.getProperty("modelName"), std::out_of_range);
    }
    EXPECT_TRUE(status.getPropertyMap().empty());  // NOLINT(bugprone-use-after-move): is of use as any other

    ScriptedModel outer("outer", MireloModelType::TFJS);  // hands on what the model that it wraps has answered
    outer.answer = copy;
    EXPECT_EQ(stamped(outer.predict({}, outputs)), stamped(copy));
    EXPECT_EQ(stamped(outer.doUnload()), stamped(copy));
}

TEST(Model, OutlivesTheChangeOfItsRecord) {
    auto model = makeModel("n");
    ModelManager().registerModel(model);  // from here on it lives by its record
    const ModelRuntimeStatus& record = model->getRuntimeStatus();
    const std::weak_ptr<MireloModel> watched = model;
    model.reset();
    record.getModel()->setRuntimeStatus(nullptr);
    EXPECT_TRUE(watched.expired());
}

TEST(Model, RunsOnADeviceThatKeepsWhatItIsGiven) {
    const auto device = std::make_shared<Device>("name", MireloModelType::WinML, DeviceType::GPU, OrtEP::CUDA, 5, 6);
    EXPECT_EQ(text(device->setNumThreads(9)), "7: Setting number of threads only supported on TFLite");
    device->setModelType(MireloModelType::TFLite);
    device->setDedicatedMemory(7);
    device->setVendorName("vendor");
    device->setVendorId(8);
    EXPECT_EQ(text(device->setNumThreads(9)), kSuccess);
    EXPECT_TRUE(device->getDeviceType() == DeviceType::GPU && device->getORTType() == OrtEP::CUDA);
    device->setDeviceType(DeviceType::NPU);
    device->setORTType(OrtEP::CoreML);
    const Device d = *device;
    EXPECT_EQ(list(d.getDeviceName(), static_cast<int>(d.getModelType()), static_cast<int>(d.getDeviceType()),
                   static_cast<int>(d.getORTType()), d.getLUID(), d.getId(), d.getDedicatedMemory(), d.getVendorName(),
                   d.getVendorId(), d.getNumThreads()),
              "name 8 3 5 5 6 7 vendor 8 9");

    const ScriptedModel shared("m", device);
    const ScriptedModel raw("m", device.get());
    EXPECT_EQ(list(shared.getDevice() == device, shared.getDeviceRawPointer() == nullptr, raw.getDevice() == nullptr,
                   raw.getDeviceRawPointer() == device.get(), raw.getModelType() == MireloModelType::TFLite),
              "1 1 1 1 1");
    EXPECT_EQ(raised([] { const ScriptedModel model("m", static_cast<Device*>(nullptr)); }),
              "7: The device must not be null");
}

TEST(Model, RaisesWhatItsHooksRaise) {
    const auto model = makeModel("n");
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(raised([&] { model->bind({}, outputs, binding); }), "29: Not implemented on current selected backend.");
    EXPECT_EQ(raised([&] { model->evaluate(binding); }), "29: Not implemented on current selected backend.");
    ModelManager manager;
    manager.registerModel(model);
    model->raises = true;
    EXPECT_EQ(raised([&] { model->load(componentsOf(1)); }), "2: raised by load 1");
    EXPECT_EQ(raised([&] { manager.unloadModel(model); }), "2: raised by unload");
    EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 1U);
    model->setRuntimeStatus(nullptr);  // or model and record keep each other
}

TEST(Model, AllocatesItsInputsUpToTheFirstThatItCannot) {
    const auto tensor = [](const TensorShape& shape) {
        return ModelFeatureDescriptor(MireloFeatureType::Tensor, TensorDescriptor(shape, DataType::Float));
    };
    std::vector<std::pair<ModelFeatureDescriptor, std::string>> cases = {
        {tensor({1, 2}), kSuccess}, {tensor({1, -2}), "2: A tensor buffer of this size cannot be allocated"}};
    for (int32_t type = 0; type < 10; ++type) {
        std::string expected = type < 6 ? "8: Unsupported feature type for ModelFeatureDescriptor"
                                        : "8: Undefined feature type for allocating inputs";
        if (type == 4) expected += ".  Please quantize your model to float32/16";
        if (type != 6) cases.emplace_back(ModelFeatureDescriptor(static_cast<MireloFeatureType>(type)), expected);
    }
    for (const auto& [third, expected] : cases) {
        ModelTarget target;
        target.inputs = {tensor({1, 3, 2, 2}), tensor({1, -1}), third};
        ScriptedModel model("n", MireloModelType::WinML, target);
        std::vector<std::shared_ptr<MireloFeature>> inputs{nullptr};  // what is there stays
        EXPECT_EQ(text(model.allocateInputs(inputs)), expected);
        ASSERT_EQ(inputs.size(), expected == kSuccess ? 4U : 3U);
        EXPECT_EQ(inputs[0], nullptr);
        EXPECT_EQ(int{inputs[1]->asTensor()->buffer()[47]}, 0);
        EXPECT_TRUE(inputs[2]->hasVariableShape() && inputs[2]->asTensor()->dataType() == DataType::Float);
    }
}

TEST(Model, LooksForACachedModelByItsDirectory) {
    const TempDir directory;
    testing::internal::CaptureStderr();
    for (const Filepath& root : {directory.path(), directory.path("missing")}) {
        EXPECT_EQ(makeModel("n")->queryCacheStatus({MireloModelType::WinML, {}, root}), MireloCacheStatus::NotCached);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "The model directory does not exist\n");
}

TEST(RuntimeRecord, RecordsBelowItsLimitAndSaysSo) {
    struct Limited : ModelRuntimeStatus {
        using ModelRuntimeStatus::ModelRuntimeStatus;
        using ModelRuntimeStatus::setMaxAllowedMemoryConsumption;
    } record(kNoLimit, nullptr);
    const std::string recorded = "16: Current Memory consumption = ";
    EXPECT_EQ(text(record.setCurrentMemoryConsumption(1000)), recorded + "1000");
    EXPECT_EQ(text(record.addCurrentMemoryConsumption(24)), recorded + "1024");
    const ModelRuntimeStatus copy = record;
    EXPECT_EQ(text(record.removeCurrentMemoryConsumption(1025)), kSuccess);  // wraps to the limit
    EXPECT_EQ(text(record.removeCurrentMemoryConsumption(1026)), recorded + "18446744073709551614");
    EXPECT_EQ(text(record.addCurrentMemoryConsumption(2)), recorded + "0");
    EXPECT_EQ(text(record.setMaxAllowedMemoryConsumption(500)), kSuccess);
    for (const uint64_t bytes : {uint64_t{600}, uint64_t{500}, kNoLimit}) {
        EXPECT_EQ(text(record.setCurrentMemoryConsumption(bytes)), kSuccess);
        EXPECT_EQ(record.getCurrentMemoryConsumption(), 0U);
    }
    EXPECT_EQ(text(record.setCurrentMemoryConsumption(499)), recorded + "499");
    EXPECT_EQ(copy.getCurrentMemoryConsumption(), 1024U);
}

TEST(Manager, TakesSnapshotsThatDoNotFollow) {
    ModelManager manager;
    const auto a = makeModel("a");
    const auto b = makeModel("b");
    EXPECT_EQ(raised([&] { a->getRuntimeStatus(); }), "6: The model is not registered");
    for (const auto& model : {a, b}) EXPECT_EQ(text(manager.registerModel(model)), kSuccess);
    EXPECT_EQ(text(b->runtimeRecord()->setCurrentMemoryConsumption(kNoLimit)), kSuccess);  // at the limit
    b->runtimeRecord()->setCurrentMemoryConsumption(30);
    RuntimeStatus before = manager.getRuntimeStatus();
    a->runtimeRecord()->setCurrentMemoryConsumption(12);
    RuntimeStatus after = manager.getRuntimeStatus();
    EXPECT_EQ(list(before.getTotalMemoryConsumption(), after.getTotalMemoryConsumption()), "30 42");
    EXPECT_EQ(after.getModelsRuntimeStatus().at(1).getModel(), b);
    EXPECT_EQ(list(after.getModelRuntimeStatus(b).getCurrentMemoryConsumption(), after.getMaxAllowedTotalMemory()),
              list(30, kNoLimit));
    EXPECT_EQ(raised([&] { after.getModelRuntimeStatus(nullptr); }), "2: model not found - this should not occur");

    EXPECT_EQ(stamped(manager.unloadModel(a)), "1:  [MireloOnDevice] [5.4.0] [UNLOAD] [1] [WinML] [a]");
    EXPECT_EQ(text(manager.unloadModel(b)), kSuccess);
    EXPECT_EQ(after.getLoadedModels(), (std::vector<std::shared_ptr<MireloModel>>{a, b}));
    EXPECT_EQ(manager.getRuntimeStatus().getTotalMemoryConsumption(), 0U);
    for (const std::shared_ptr<MireloModel>& unregistered : {std::shared_ptr<MireloModel>(a), {}}) {
        EXPECT_EQ(raised([&] { RuntimeStatus status({unregistered}); }), "6: The model is not registered");
    }
}

TEST(Manager, CountsWhatItRemovedOnceTheUnloadSucceeded) {
    ModelManager manager;
    const auto twice = makeModel("twice");
    const auto never = makeModel("never");
    for (int times = 0; times < 2; ++times) manager.registerModel(twice);
    for (const STATUS_CODE code : {ML_FRAMEWORK_ERROR, WARNING}) {
        twice->answer.setCode(code);
        EXPECT_EQ(manager.unloadModel(twice).getCode(), code);
        EXPECT_EQ(manager.getRuntimeStatus().getLoadedModels().size(), 2U);
    }
    twice->answer.setCode(SUCCESS);
    for (const auto& model : {twice, never}) {
        EXPECT_EQ(stamped(manager.unloadModel(model)), "11: Could not remove model from references");
        EXPECT_TRUE(model->calls.ends_with("unload;") && model->runtimeRecord() == nullptr);
    }
    EXPECT_TRUE(manager.getRuntimeStatus().getLoadedModels().empty());
    const std::string null = "7: The model must not be null";
    EXPECT_EQ(text(manager.registerModel(nullptr)) + text(manager.unloadModel(nullptr)), null + null);
}

TEST(Manager, TakesItsArgumentFromTheRecordItReleases) {
    ModelManager manager;
    auto model = makeModel("n");
    manager.registerModel(model);
    EXPECT_EQ(text(manager.registerModel(model->getRuntimeStatus().getModel())), kSuccess);
    EXPECT_EQ(model->getRuntimeStatus().getModel(), model);
    const std::weak_ptr<ScriptedModel> gone = model;
    const ModelRuntimeStatus& record = model->getRuntimeStatus();
    model.reset();
    EXPECT_EQ(manager.unloadModel(record.getModel()).getCode(), MODEL_REFERENCE_ERROR);
    EXPECT_TRUE(gone.expired());
}

}  // namespace
}  // namespace TarnoMirelo
