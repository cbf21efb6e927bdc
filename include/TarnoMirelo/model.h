#pragma once

/// @file
/// Models: the base class that backends derive from, the devices they run on, and the host's registry of loaded models.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/files.h>
#include <TarnoMirelo/manifest.h>
#include <TarnoMirelo/status.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace TarnoMirelo {

class MireloModel;

/// What sort of device a `Device` is. Kept for hosts and backends; this library does not interpret it.
enum class DeviceType : uint64_t {
    Undefined = 0,  ///< not said
    CPU = 1,        ///< the processor
    GPU = 2,        ///< a graphics processor
    NPU = 3,        ///< a processor for neural networks
};

/// The execution provider that an ONNX Runtime backend should use. Kept likewise.
enum class OrtEP : uint64_t {
    Undefined = 0,  ///< the backend's choice
    CPU = 1,        ///< the engine's own code for the processor
    CUDA = 2,       ///< NVIDIA's GPUs through CUDA
    DirectML = 3,   ///< GPUs on Windows through DirectML
    OpenVINO = 4,   ///< Intel's devices through OpenVINO
    CoreML = 5,     ///< Apple's devices through Core ML
    TensorRT = 6,   ///< NVIDIA's GPUs through TensorRT
};

/// Where a model runs. Hosts and backends create devices; models adopt the model type and keep a reference.
///
/// Not locked: while one thread changes a device, no other may use it.
class MIRELO_API Device {
 public:
    /// @param name       for people; messages name the device by it
    /// @param modelType  of the models that the device runs, which adopt it
    /// @param luid       the adapter's locally unique identifier
    /// @param id         the number that the engine has for the device
    Device(std::string name, MireloModelType modelType, DeviceType deviceType = DeviceType::Undefined,
           OrtEP ortType = OrtEP::Undefined, uint64_t luid = 0, uint64_t id = 0);
    /// A copy is a device of its own: models that use the other one don't follow its changes.
    Device(const Device&) = default;
    /// Copies every field; models that use this device follow.
    Device& operator=(const Device&) = default;
    virtual ~Device();

    /// The name given at construction; valid as long as the device.
    const std::string& getDeviceName() const;
    /// The type that models made with this device adopt; valid as long as the device.
    const MireloModelType& getModelType() const;
    /// Replaces the type for models that are made from now on.
    void setModelType(const MireloModelType& modelType);
    /// What sort of device it is.
    DeviceType getDeviceType() const;
    /// Replaces the sort.
    void setDeviceType(const DeviceType& deviceType);
    /// The execution provider for a backend over ONNX Runtime.
    OrtEP getORTType() const;
    /// Replaces the execution provider. A backend looks at it when it loads a model.
    void setORTType(const OrtEP& ortType);
    /// The adapter's locally unique identifier as given at construction; 0 where there is none.
    uint64_t getLUID() const;
    /// The engine's number for the device as given at construction.
    uint64_t getId() const;
    /// The device's own memory in bytes; 0 until set.
    uint64_t getDedicatedMemory() const;
    /// Replaces the size of the device's own memory.
    void setDedicatedMemory(uint64_t bytes);
    /// Who made the device, for people; empty until set. Valid as long as the device.
    const std::string& getVendorName() const;
    /// Replaces the maker's name.
    void setVendorName(const std::string& vendorName);
    /// The maker's number, such as the one of its PCI devices; 0 until set.
    uint32_t getVendorId() const;
    /// Replaces the maker's number.
    void setVendorId(uint32_t vendorId);
    /// 0 until set: the engine's own choice.
    unsigned int getNumThreads() const;
    /// Sets how many threads the engine uses; 0 leaves it to the engine.
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
    /// What the counter is at now.
    virtual uint64_t getFenceValue() const;

 protected:
    /// @param shared  what `isShared` answers: whether other devices or processes may use the fence
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
/// A value that holds a reference to its model. Not locked: the backend that reports serialises its reports. Reading
/// the consumption and copying the record may overlap with a report.
class MIRELO_API ModelRuntimeStatus {
 public:
    /// A record of no memory.
    /// @param maxAllowedMemoryConsumption  the limit in bytes, which a consumption stays below
    ModelRuntimeStatus(uint64_t maxAllowedMemoryConsumption, std::shared_ptr<MireloModel> model);

    /// The model that the record is of, which the record keeps alive.
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
    /// @cond  Doxygen would list it, although it is private

    // A number that is read and copied while another thread changes it.
    struct SharedNumber {
        std::atomic<uint64_t> value{0};

        SharedNumber() = default;
        SharedNumber(const SharedNumber& other) : value(other.get()) {}
        SharedNumber& operator=(const SharedNumber& other) {
            if (this != &other) set(other.get());
            return *this;
        }
        uint64_t get() const { return value.load(std::memory_order_relaxed); }
        void set(uint64_t number) { value.store(number, std::memory_order_relaxed); }
    };
    /// @endcond

    uint64_t maxAllowedMemoryConsumption_;
    SharedNumber currentMemoryConsumption_;
    std::shared_ptr<MireloModel> model_;
};

/// What a backend knows of a cached form of a model. This library only ever answers `NotCached`; backends define the
/// rest.
enum class MireloCacheStatus : int32_t {
    NotCached = 0,  ///< there is no cached form that a load could use
};

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
    /// The inputs of a prediction, shared with the caller; features are told apart by name, not by place.
    using Inputs = std::vector<std::shared_ptr<const MireloFeature>>;
    /// The outputs of a prediction, shared with the caller; features are told apart by name, not by place.
    using Outputs = std::vector<std::shared_ptr<MireloFeature>>;
    /// Model type, target and root directory, as `ModelMetadata::getModelCompoents` hands them out.
    using Components = std::tuple<MireloModelType, ModelTarget, Filepath>;

    /// What a backend prepares once in `bind` and uses in every `evaluate`. Backends derive from it.
    struct MIRELO_API MireloBinding {
        MireloBinding();
        /// @{

        /// Copies nothing: a binding's state is in the backend's own class.
        MireloBinding(const MireloBinding&) = default;
        MireloBinding& operator=(const MireloBinding&) = default;
        /// @}

        virtual ~MireloBinding();
    };

    /// @{

    /// The model type is the device's, or the one given; `load` replaces it, and the target, which is empty until then
    /// unless it is given. A raw device outlives the model; a shared one is kept. Raises `InvalidArgumentsException`
    /// "The device must not be null".
    /// @param name  of the host's choice; logs and usage properties tell models apart by it
    MireloModel(const std::string& name, Device* device);
    MireloModel(const std::string& name, Device* device, ModelTarget target);
    MireloModel(const std::string& name, std::shared_ptr<Device> device);
    MireloModel(const std::string& name, std::shared_ptr<Device> device, ModelTarget target);
    MireloModel(const std::string& name, MireloModelType type);
    MireloModel(const std::string& name, MireloModelType type, ModelTarget target);
    /// @}

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
    /// Asks the backend for a cached form of a model before it is loaded.
    /// @return what `onQueryCacheStatus` returns. By default raises `std::range_error` "bad conversion" for a root
    ///         directory that is not UTF-8.
    MireloCacheStatus queryCacheStatus(const Components& components);
    /// A copy; empty where the backend keeps no cached model file.
    std::optional<Filepath> getCachedModelFilePath() const;
    /// Has the backend prepare for that many rows in one tensor: `predict` and `bind` then expect them.
    /// @return what `onSetBatchSize` returns, without usage properties
    MireloStatus setBatchSize(const unsigned int& batchSize);
    /// Appends one tensor feature per input of the target, in the manifest's order: zeroed, or a `VariableTensor`
    /// without a buffer where a dimension is -1. Never raises.
    /// @return `SUCCESS`; `INVALID_TYPE` for an input that is no tensor; `UNKNOWN_ERROR` and the standard error's text
    ///         when a buffer can't be had. Features appended before the failure stay.
    MireloStatus allocateInputs(std::vector<std::shared_ptr<MireloFeature>>& inputs);
    /// Prepares predictions that use the same inputs and outputs again and again, each by one `evaluate`. The tensors
    /// stay where they are meanwhile.
    /// @param inputs   in any order
    /// @param outputs  empty: to be filled with one new feature for each output; else the features to write into
    /// @param binding  in: usually empty; out: what `evaluate` takes, the host's to keep
    /// @return what `onBind` returns, without usage properties
    MireloStatus bind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const;
    /// Runs the model on what was bound: reads the bound inputs, writes the bound outputs.
    /// @return what `onEvaluate` returns, stamped "PREDICT"
    MireloStatus evaluate(std::shared_ptr<MireloBinding>& binding) const;
    /// Runs the model once.
    /// @param inputs   in any order
    /// @param outputs  empty: to be filled with one new feature for each output; else the features to write into
    /// @return what `onPredict` returns, stamped "PREDICT"
    MireloStatus predict(const Inputs& inputs, Outputs& outputs) const;
    /// Runs the model on several rows.
    /// @param inputs   a flat list in which each name comes once per row; the n-th feature of a name belongs to row n
    /// @param outputs  empty: to be filled row by row; else a flat list likewise
    /// @return what `onPredictBatch` returns, without usage properties
    MireloStatus predictBatch(const Inputs& inputs, Outputs& outputs) const;
    /// Has the backend release what a load acquired. Hosts call `ModelManager::unloadModel` instead.
    /// @return what `onUnload` returns, stamped "UNLOAD"
    MireloStatus doUnload();

    /// The model type of the last `load`, before it that of the construction. The reference is valid as long as the
    /// model, and follows `load`.
    const MireloModelType& getModelType() const;
    /// The target of the last `load`, before it that of the construction. Valid as long as the model; follows `load`.
    const ModelTarget& getModelTarget() const;
    /// The root directory of the last `load`, before it the empty path. Valid as long as the model; follows `load`.
    const Filepath& getRootDir() const;
    /// The device that the model shares. Empty for models built with a raw pointer or a model type.
    const std::shared_ptr<Device> getDevice() const;  // NOLINT(readability-const-return-type): kept for hosts
    /// The device that the host keeps for the model. Null for models built with a shared device or a model type.
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

    /// The models of the snapshot, registered but not necessarily loaded, in the order given.
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
/// Not locked: calls on one manager must not overlap with each other. They may overlap with operations of its models,
/// but for those of a model that is registered or unloaded.
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
