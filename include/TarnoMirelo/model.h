#pragma once

/// @file
/// Models: the base class that backends derive from, the devices they run on, and the host's registry of loaded models.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/files.h>
#include <TarnoMirelo/manifest.h>
#include <TarnoMirelo/status.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace TarnoMirelo {

class MireloModel;

/// What sort of device a `Device` is. Kept for hosts and backends; this library does not interpret it.
enum class DeviceType : uint64_t { Undefined = 0, CPU = 1, GPU = 2, NPU = 3 };

/// The execution provider that an ONNX Runtime backend should use. Kept likewise.
enum class OrtEP : uint64_t { Undefined = 0, CPU = 1, CUDA = 2, DirectML = 3, OpenVINO = 4, CoreML = 5, TensorRT = 6 };

/// Where a model runs. Hosts and backends create devices; models adopt the model type and keep a reference.
///
/// Not locked: while one thread changes a device, no other may use it.
class MIRELO_API Device {
 public:
    /// @param luid  the adapter's locally unique identifier
    Device(std::string name, MireloModelType modelType, DeviceType deviceType = DeviceType::Undefined,
           OrtEP ortType = OrtEP::Undefined, uint64_t luid = 0, uint64_t id = 0);
    Device(const Device&) = default;
    Device& operator=(const Device&) = default;
    virtual ~Device();

    const std::string& getDeviceName() const;
    const MireloModelType& getModelType() const;
    void setModelType(const MireloModelType& modelType);
    DeviceType getDeviceType() const;
    void setDeviceType(const DeviceType& deviceType);
    OrtEP getORTType() const;
    void setORTType(const OrtEP& ortType);
    uint64_t getLUID() const;
    uint64_t getId() const;
    /// In bytes; 0 until set.
    uint64_t getDedicatedMemory() const;
    void setDedicatedMemory(uint64_t bytes);
    const std::string& getVendorName() const;
    void setVendorName(const std::string& vendorName);
    uint32_t getVendorId() const;
    void setVendorId(uint32_t vendorId);
    /// 0 until set: the engine's own choice.
    unsigned int getNumThreads() const;
    /// @return `INVALID_ARGUMENTS`, with nothing changed, unless the device's model type is `TFLite`
    MireloStatus setNumThreads(const unsigned int& numThreads);

 private:
    std::string name_;
    MireloModelType modelType_;
    DeviceType deviceType_;
    OrtEP ortType_;
    uint64_t luid_;
    uint64_t id_;
    uint64_t dedicatedMemory_ = 0;
    std::string vendorName_;
    uint32_t vendorId_ = 0;
    uint32_t numThreads_ = 0;
};

/// Synchronises host and device: a counter that the device advances when it reaches a point in its work. Backends
/// derive from it for their device API and hand fences out in `std::shared_ptr`.
///
/// Reads and writes of the counter are plain: a backend that advances it on another thread orders them itself.
class MIRELO_API DeviceFence : public std::enable_shared_from_this<DeviceFence> {
 public:
    DeviceFence(const DeviceFence&) = delete;
    DeviceFence& operator=(const DeviceFence&) = delete;
    virtual ~DeviceFence();

    /// What was said at construction.
    virtual bool isShared() const;
    /// The counter itself, which outlives the fence while somebody holds it.
    virtual std::shared_ptr<uint64_t> getFenceValuePtr() const;
    virtual uint64_t getFenceValue() const;

 protected:
    DeviceFence(uint64_t initialValue, bool shared);

    // What a backend supplies. `device` is borrowed for the call.

    /// Has the device set the counter to `value` once it has done all work submitted before.
    virtual MireloStatus signalFenceValue(Device* device, uint64_t value) = 0;
    /// Has the device signal the value after the last one.
    /// @return that value
    virtual uint64_t signalNextFenceValue(Device* device) = 0;
    /// Waits until the device has reached `value`.
    /// @param flag  for the backend to define; `flush` passes false
    virtual MireloStatus waitForFenceValue(Device* device, uint64_t value, bool flag) const = 0;
    /// Whether the device has reached `value`; never blocks.
    virtual bool isFenceValueReached(uint64_t value) const = 0;

 public:
    /// Waits for the value that the counter has now.
    /// @return what `waitForFenceValue` returns
    virtual MireloStatus waitForCurrentFenceValue(Device* device, bool flag) const;
    /// Signals the next value and waits for it: afterwards the device has done all work submitted before.
    /// @return what `waitForFenceValue` returns
    virtual MireloStatus flush(Device* device);

 private:
    std::shared_ptr<uint64_t> fenceValue_;
    bool shared_;
};

/// The memory that one registered model uses, as its backend reports it, against a limit.
///
/// A value that holds a reference to its model. Not locked: the backend that reports serialises its reports.
class MIRELO_API ModelRuntimeStatus {
 public:
    /// @param maxAllowedMemoryConsumption  in bytes
    ModelRuntimeStatus(uint64_t maxAllowedMemoryConsumption, std::shared_ptr<MireloModel> model);

    const std::shared_ptr<MireloModel>& getModel() const;
    /// The last recorded consumption in bytes, 0 at first.
    uint64_t getCurrentMemoryConsumption() const;
    /// Records a consumption below the limit.
    /// @return `MEMORY_CONSUMPTION_ERROR` "Current Memory consumption = " and the bytes when it was recorded; `SUCCESS`
    ///         when `bytes` reaches the limit and nothing was recorded
    MireloStatus setCurrentMemoryConsumption(uint64_t bytes);
    /// As `setCurrentMemoryConsumption` with the current consumption plus `bytes`, modulo 2^64.
    MireloStatus addCurrentMemoryConsumption(uint64_t bytes);
    /// As `setCurrentMemoryConsumption` with the current consumption minus `bytes`, modulo 2^64: callers take back no
    /// more than they added.
    MireloStatus removeCurrentMemoryConsumption(uint64_t bytes);

 protected:
    /// Always `SUCCESS`.
    MireloStatus setMaxAllowedMemoryConsumption(uint64_t bytes);

 private:
    uint64_t maxAllowedMemoryConsumption_;
    uint64_t currentMemoryConsumption_ = 0;
    std::shared_ptr<MireloModel> model_;
};

/// What a backend knows of a cached form of a model. This library only ever answers `NotCached`; backends define the
/// rest.
enum class MireloCacheStatus : int32_t { NotCached = 0 };

/// The base of every model. A backend derives from it and implements the hooks, which are reached through the public
/// operations of similar name; hosts hold models by `std::shared_ptr`.
///
/// The order of calls: `load`, register with a `ModelManager`, `allocateInputs` or inputs made by hand, then `predict`,
/// `predictBatch`, or one `bind` and any number of `evaluate`; unload through the manager. The backend checks whether
/// the model is loaded. A model may be loaded again. Destroying it calls no hook.
///
/// `load`, `predict`, `evaluate` and `doUnload` add six usage properties to the status that they return, where the hook
/// has not set them: "mireloondevice.sdkName", "mireloondevice.version", "mireloondevice.method" ("LOAD", "PREDICT" or
/// "UNLOAD"), "mireloondevice.status" (the code in decimal), "mireloondevice.modelType" (of `ModelTypeToName`) and
/// "mireloondevice.modelName" (the name given at construction). Nothing is sent or stored anywhere.
///
/// An exception that a hook raises passes through every operation but `allocateInputs`.
///
/// Nothing is locked: in a host that shares a model between threads, `load`, `setBatchSize` and `doUnload` must not
/// overlap with any other call. The backend says whether the const operations may overlap.
class MIRELO_API MireloModel : public std::enable_shared_from_this<MireloModel> {
 public:
    using Inputs = std::vector<std::shared_ptr<const MireloFeature>>;
    using Outputs = std::vector<std::shared_ptr<MireloFeature>>;
    /// Model type, target and root directory, as `ModelMetadata::getModelCompoents` hands them out.
    using Components = std::tuple<MireloModelType, ModelTarget, Filepath>;

    /// What a backend prepares once in `bind` and uses in every `evaluate`. Backends derive from it.
    struct MIRELO_API MireloBinding {
        MireloBinding();
        MireloBinding(const MireloBinding&) = default;
        MireloBinding& operator=(const MireloBinding&) = default;
        virtual ~MireloBinding();
    };

    // The model type is the device's, or the one given; `load` replaces it, and the target. A raw device outlives the
    // model. Raises `InvalidArgumentsException` "The device must not be null".
    MireloModel(const std::string& name, Device* device);
    MireloModel(const std::string& name, Device* device, ModelTarget target);
    MireloModel(const std::string& name, std::shared_ptr<Device> device);
    MireloModel(const std::string& name, std::shared_ptr<Device> device, ModelTarget target);
    MireloModel(const std::string& name, MireloModelType type);
    MireloModel(const std::string& name, MireloModelType type, ModelTarget target);
    MireloModel(const MireloModel&) = delete;
    MireloModel& operator=(const MireloModel&) = delete;
    virtual ~MireloModel();

    /// The name given at construction, unless a backend answers another.
    virtual const std::string& getName() const;

 protected:
    // The hooks. Arguments are borrowed for the call; what a hook returns or raises reaches the caller of the
    // operation. docs/contract.md has the status that every backend answers in each situation.

    /// Runs the model once. Required.
    /// @param inputs   in any order
    /// @param outputs  empty: to be filled; else the features to write into
    virtual MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const = 0;
    /// Runs the model on several rows. Required.
    /// @param inputs   a flat list in which input names repeat, once per row; `MireloBatch` takes it apart
    /// @param outputs  likewise
    virtual MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const = 0;
    /// Prepares `binding` for `onEvaluate`. Optional: by default raises `Exception` with `NOT_IMPLEMENTED`.
    /// @param binding  in: what the host passes, usually empty; out: owned by the host
    virtual MireloStatus onBind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const;
    /// Runs the model on what was bound: reads the bound inputs, writes the bound outputs. Optional, likewise.
    virtual MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const;
    /// Loads the components, at least one; called once per `load`. The model already describes the new tuple, and may
    /// hold what an earlier load left. `SUCCESS` and `WARNING` count as loaded. Required.
    virtual MireloStatus onLoad(const std::vector<ModelComponent>& components) = 0;
    /// Releases what `onLoad` acquired and takes back reported memory. Only `SUCCESS` lets the manager drop the model.
    /// May be called on a model that is not loaded. Required.
    virtual MireloStatus onUnload() = 0;
    /// Prepares for that many rows at once. Required.
    virtual MireloStatus onSetBatchSize(const unsigned int& batchSize) = 0;
    /// Looks for a cached form of a model before it is loaded. Optional: by default writes "The model directory does
    /// not exist" to standard error where that is so, and answers `NotCached`.
    virtual MireloCacheStatus onQueryCacheStatus(const Components& components);

    /// Whether `onLoad` answered `SUCCESS` or `WARNING` the last time that it returned; nothing else changes this, an
    /// unload included.
    bool isLoaded() const;
    /// What `getCachedModelFilePath` answers.
    void setCachedModelFilePath(std::optional<Filepath> path);
    /// The record through which the backend reports the model's memory; empty while the model is not registered.
    const std::shared_ptr<ModelRuntimeStatus>& runtimeRecord() const;

 public:
    /// Adopts the tuple, whatever comes of it, and has the backend load the target's components.
    /// @return the status of `onLoad`, or `MODEL_METADATA_ERROR` "No model component found" when the target has none
    MireloStatus load(const Components& components);
    /// @return what `onQueryCacheStatus` returns. By default raises `std::range_error` "bad conversion" for a root
    ///         directory that is not UTF-8.
    MireloCacheStatus queryCacheStatus(const Components& components);
    /// A copy; empty where the backend keeps no cached model file.
    std::optional<Filepath> getCachedModelFilePath() const;
    /// @return what `onSetBatchSize` returns, without usage properties
    MireloStatus setBatchSize(const unsigned int& batchSize);
    /// Appends one tensor feature per input of the target, in the manifest's order: zeroed, or a `VariableTensor`
    /// without a buffer where a dimension is -1. Never raises.
    /// @return `SUCCESS`; `INVALID_TYPE` for an input that is no tensor; `UNKNOWN_ERROR` and the standard error's text
    ///         when a buffer can't be had. Features appended before the failure stay.
    MireloStatus allocateInputs(std::vector<std::shared_ptr<MireloFeature>>& inputs);
    /// @return what `onBind` returns, without usage properties
    MireloStatus bind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const;
    /// @return what `onEvaluate` returns, stamped "PREDICT"
    MireloStatus evaluate(std::shared_ptr<MireloBinding>& binding) const;
    /// @return what `onPredict` returns, stamped "PREDICT"
    MireloStatus predict(const Inputs& inputs, Outputs& outputs) const;
    /// @return what `onPredictBatch` returns, without usage properties
    MireloStatus predictBatch(const Inputs& inputs, Outputs& outputs) const;
    /// @return what `onUnload` returns, stamped "UNLOAD". Hosts call `ModelManager::unloadModel` instead.
    MireloStatus doUnload();

    // References are valid as long as the model, and follow `load`.
    const MireloModelType& getModelType() const;
    const ModelTarget& getModelTarget() const;
    const Filepath& getRootDir() const;
    /// Empty for models built with a raw pointer or a model type.
    const std::shared_ptr<Device> getDevice() const;  // NOLINT(readability-const-return-type): kept for hosts
    /// Null for models built with a shared device or a model type.
    Device* getDeviceRawPointer() const;
    /// The model's memory record, valid while the model stays registered.
    /// Raises `InvalidOperationException` "The model is not registered".
    const ModelRuntimeStatus& getRuntimeStatus() const;
    /// For `ModelManager`: replaces the record.
    void setRuntimeStatus(const std::shared_ptr<ModelRuntimeStatus>& runtimeStatus);

 private:
    std::shared_ptr<const std::string> name_;  // shared with the statuses that report it
    MireloModelType modelType_;
    ModelTarget target_;
    std::shared_ptr<Device> device_;
    Device* rawDevice_ = nullptr;
    std::shared_ptr<ModelRuntimeStatus> runtimeStatus_;
    bool loaded_ = false;
    Filepath rootDir_;
    std::optional<Filepath> cachedModelFilePath_;
};

/// A snapshot of registered models and their memory records. It does not follow later changes, and keeps the models
/// alive while it exists; it may be read and released on another thread than the one that took it.
class MIRELO_API RuntimeStatus {
 public:
    /// Raises `InvalidOperationException` "The model is not registered" for a model that isn't, a null one included.
    explicit RuntimeStatus(std::vector<std::shared_ptr<MireloModel>> models);

    std::vector<std::shared_ptr<MireloModel>> getLoadedModels();
    /// One record per model, in the order of the models.
    std::vector<ModelRuntimeStatus> getModelsRuntimeStatus();
    /// The record of that model. Raises `Exception` "model not found - this should not occur" for a model that is not
    /// in the snapshot.
    ModelRuntimeStatus getModelRuntimeStatus(std::shared_ptr<MireloModel> model);
    /// The sum over all records, in bytes, modulo 2^64.
    uint64_t getTotalMemoryConsumption();
    /// In bytes; 2^64-1, that is, no limit.
    uint64_t getMaxAllowedTotalMemory();

 private:
    std::vector<ModelRuntimeStatus> statuses_;
    uint64_t maxAllowedTotalMemory_;
    std::vector<std::shared_ptr<MireloModel>> loadedModels_;
};

/// The host's registry of models in service. A registered model and its memory record hold each other until it is
/// unloaded here.
///
/// Not locked: calls on one manager must not overlap.
class MIRELO_API ModelManager {
 public:
    ModelManager();
    ModelManager(const ModelManager&) = delete;
    ModelManager& operator=(const ModelManager&) = delete;
    /// Releases the manager's references; models that were not unloaded keep their records and stay alive.
    ~ModelManager();

    /// Adds a model and gives it a new memory record without a limit, in place of one that it may have. A model that is
    /// registered already is added once more.
    /// @return `SUCCESS`; `INVALID_ARGUMENTS` "The model must not be null"
    MireloStatus registerModel(const std::shared_ptr<MireloModel>& model);
    /// Unloads a model and, if the backend says `SUCCESS`, removes it and releases its memory record.
    /// @return
    ///   - the status of `doUnload`, with everything as before unless it is `SUCCESS`
    ///   - `MODEL_REFERENCE_ERROR` "Could not remove model from references" when the model was unloaded, but was
    ///     registered not once; it is no longer registered then
    ///   - `INVALID_ARGUMENTS` "The model must not be null"
    /// What the backend raises passes through, with nothing changed here.
    MireloStatus unloadModel(const std::shared_ptr<MireloModel>& model);
    /// A snapshot, in the order of registration. Raises `InvalidOperationException` "The model is not registered" when
    /// a model of this manager has lost its record to `setRuntimeStatus` or to another manager's unload.
    RuntimeStatus getRuntimeStatus();

 private:
    std::vector<std::shared_ptr<MireloModel>> models_;
};

}  // namespace TarnoMirelo
