#pragma once

/// @file
/// A backend over ONNX Runtime: runs the ONNX component of a "WinML" target, on Linux and on Windows.

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/files.h>
#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/model.h>
#include <TarnoMirelo/operators.h>

#include <memory>
#include <string>
#include <vector>

/// @def MIRELO_ONNXRUNTIME_API
/// Marks what the library of the ONNX Runtime backend exports, as `MIRELO_API` does for sdk-core.

#if defined(SDK_CORE_ONNXRUNTIME_BUILDING)  // set while the backend itself is compiled, never by its users
#define MIRELO_ONNXRUNTIME_API MIRELO_EXPORT_SYMBOL
#else
#define MIRELO_ONNXRUNTIME_API MIRELO_IMPORT_SYMBOL
#endif

namespace TarnoMirelo::OnnxRuntime {

class Cache;
class Log;
class Network;
struct NetworkFile;

/// An operator that the engine lacks, computed by the host on the CPU.
///
/// The host registers a factory under the domain and the type of the node, with a dot between, as in
/// "com.example.Normalize", and finalises the registry before it loads the model. Each node of that name gets an
/// operator of its own, which lives as long as the loaded network; one more for each name answers while the network is
/// loaded. Operators are called on the thread that predicts, or on one of the engine's, and on several at once where
/// predictions overlap.
///
/// A class that derives from it is built with type information (not with `-fno-rtti`), by which the backend tells it
/// from operators that are none of its own. It must not call back into the model that runs it, or release its binding.
///
/// Elements are of any type that tensors have. A node may have no inputs, but a load refuses one that leaves out an
/// input between or behind others. What an operator raises, or returns as a failure, becomes the status of the model's
/// operation; a `WARNING` is logged, and the outputs taken. The registry's libraries of operators are handed to the
/// engine.
class MIRELO_ONNXRUNTIME_API Operator : public CustomOperators::Operator {
 public:
    Operator();
    ~Operator() override;

    /// The element types and shapes of the outputs for these of the inputs. While the network is loaded, -1 stands for
    /// a dimension that is not known yet, and an output may have such dimensions, too; a shape without dimensions may
    /// then be one that is not known at all.
    virtual std::vector<TensorDescriptor> outputs(const std::vector<TensorDescriptor>& inputs) const = 0;
    /// Computes every element of the outputs. The tensors are borrowed for the call.
    virtual MireloStatus forward(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                                 const std::vector<std::shared_ptr<ITensor>>& outputs) = 0;
};

/// How far the engine may rewrite the network while it is loaded. Results differ by rounding; those of a quantised
/// network, whose nodes may be computed with integers then, by a step of a quantisation.
enum class GraphOptimization : int32_t {
    None,      ///< not at all
    Basic,     ///< constants are computed, what has no use is dropped
    Extended,  ///< nodes are fused, too
    All,       ///< and laid out for this machine's processor
};

/// What `queryCacheStatus` answers, as a `MireloCacheStatus` of the same number.
enum class CacheStatus : int32_t {
    NotCached = static_cast<int32_t>(MireloCacheStatus::NotCached),  ///< no file, or no cache
    Cached = 1,                                                      ///< a load uses the file
    Stale = 2,  ///< the file is of another network, engine or optimisation, or damaged; a load replaces it
};

/// How a model is loaded and run.
struct Options {
    /// Threads that share the work of one node, the caller's included, at most 1,024; 0 for the engine's choice, one
    /// for each core.
    int threadsWithinNodes = 0;
    /// Nodes that don't depend on each other may run at once, on that many threads, at most 1,024; 1 runs one node
    /// after the other.
    int threadsBetweenNodes = 1;
    /// How often the engine loads the network. Predictions that overlap use different copies, and each binding uses one
    /// of its own as long as there are enough: they then wait for nothing of each other's. Each copy takes the time of
    /// a load and the memory of a network.
    int copies = 1;
    /// How far the network is rewritten: more takes longer to load and usually less to run.
    GraphOptimization graphOptimization = GraphOptimization::All;
    /// Where optimised networks are kept from load to load; empty: nowhere. The folder is created where it is missing.
    Filepath cacheDirectory;
    /// What the engine computes with; `Undefined` for what the model's device says, and without that the CPU.
    OrtEP executionProvider = OrtEP::Undefined;
    /// The host's promise: the first dimension of every input and output counts rows, and the network computes each row
    /// as if it were alone. `predictBatch` then runs all rows in one pass, which is faster, where the network leaves
    /// every first dimension open and every shape of the target begins with 1 or -1; else row by row.
    ///
    /// Where the promise is wrong, so are the results, in silence: a recurrent layer over the first dimension, or a
    /// softmax along it, mixes the rows. Neither the shapes nor the engine tell.
    bool rowsAreIndependent = false;
};

/// What the engine at hand computes with, in its order of preference: devices of type `OnnxRuntime` with the name of
/// the engine's execution provider. Those that `OrtEP` has no value for are left out. May be called on any thread.
///
/// Raises `MLFrameworkException` where the engine is too old.
MIRELO_ONNXRUNTIME_API std::vector<std::shared_ptr<Device>> devices();

/// What the engine tells of a network, for those who write a target for it.
struct NetworkDescription {
    /// Tensors; -1 stands for a dimension that the network leaves open. Inputs that it has a constant for are left out.
    std::vector<ModelFeatureDescriptor> inputs;
    /// Tensors; -1 stands for a dimension that the network leaves open.
    std::vector<ModelFeatureDescriptor> outputs;
    /// Paths of the weights that lie in files of their own, relative to the network's folder.
    std::vector<std::string> weightFiles;
};

/// Has the engine load a network, and describes it. May be called on any thread. Raises nothing.
/// @param component    as `Model` loads it
/// @param description  out, on success only
/// @param config       its sink gets what the engine reports
/// @return `SUCCESS`; a status as of `Model::load`; or `MODEL_METADATA_ERROR` for an input or output that no target can
///         describe: no tensor, of an element type that tensors don't have, or of an unknown number of dimensions
MIRELO_ONNXRUNTIME_API MireloStatus describeNetwork(const ModelComponent& component, const Filepath& rootDir,
                                                    NetworkDescription& description,
                                                    const MireloConfig& config = MireloConfig());

/// A model that ONNX Runtime runs.
///
/// **Components.** A target has one, an ONNX network:
///   - "file": its path is looked up under the root directory and can't leave it. Weights that the network keeps in
///     files of their own lie in the same folder or below it.
///   - "dir": a folder under the root directory that holds one file whose name ends in ".onnx", and its weights.
///   - "memory_stream": the component's buffer holds the bytes, the weights among them.
///   - "secured_file", "secured_memory_stream": the same, protected.
///   - "secured_tar": a protected archive that holds one file whose name ends in ".onnx" or ".ONNX", and its weights in
///     the same folder or below it; those need ONNX Runtime 1.18.
/// What is protected is opened in memory with the component's key, and nothing of it is written anywhere.
/// Inputs and outputs of the target are tensors that bear the names of the network's own. An input that the network has
/// a constant for may be left out.
///
/// **Inputs** are read in place, of every element type that tensors have. Shapes are the target's, where -1 stands for
/// any number from 0, unless the network fixes it.
///
/// **Outputs.** An empty list is filled with one new feature per output of the target. Otherwise the given features are
/// written into, in any order, all or some of the target's outputs: a tensor of variable shape or without a buffer gets
/// the result's shape. The engine writes in place where the shape is known beforehand, from the target, the network
/// or the given tensor; else results are copied.
///
/// **Batches.** `predictBatch` takes rows of the manifest's shape and returns the outputs row by row, one feature per
/// output and row. Each row is a pass of its own, unless the host makes the promise of `Options::rowsAreIndependent`.
/// `setBatchSize(n)` has `predict` and `bind` expect n rows in one tensor, n in place of the leading 1 of each shape;
/// it needs a loaded model, and each load begins with one row again. That the network computes each of the n rows by
/// itself is the host's knowledge here, too.
///
/// **Bindings.** `bind` with an empty list of outputs gives tensors of variable shape where only the run tells the
/// shape: each `evaluate` gives them theirs, and bound tensors may get another buffer then. Where every shape is known,
/// `evaluate` neither copies nor allocates.
///
/// **Cache.** With `Options::cacheDirectory`, a load keeps the network in the form that the engine has optimised it to,
/// and later loads begin with that form; `getCachedModelFilePath` then names the file. There is one file for each name
/// of a model and a component. It is used when it is whole, which its digest tells, and when network, weights,
/// optimisation, execution provider, release of the engine and processor are those that it was made with. What goes
/// wrong with it is logged as a warning, and the network loaded without. Networks with operators of the host's or of
/// its libraries are not kept: the engine may have computed them. Protected ones aren't, either: the file would be
/// plain. Whoever can write to the folder decides what is computed.
///
/// **Statuses** of every operation, apart from `SUCCESS`; a description names the input, output or component:
///   - `INVALID_OPERATION`: the model is not loaded; the network can't take that many rows at once; what was bound has
///     moved, or belongs to another load
///   - `INVALID_ARGUMENTS`: an input or output that the target doesn't have, that is missing, given twice, null, or
///     without a buffer; an output that shares memory with another or with an input; a batch size of 0, or beyond
///     what can be counted; an execution provider that the engine lacks; options out of range
///   - `INVALID_TYPE`: a feature that is no tensor, or a tensor that is not in host memory; uneven rows
///   - `INVALID_TENSOR_DATA_TYPE`, `INVALID_SHAPE`: a tensor that does not fit
///   - `MODEL_METADATA_ERROR`: a component of another kind, more than one, or none; what is no ONNX network, damaged,
///   or
///     has an operator that neither the engine nor the host has; weights outside of the component; a target that
///     does not fit the network; a result that does not fit the target
///   - `FILE_ERROR`: the network's file, or one with its weights, can't be read
///   - `ML_FRAMEWORK_ERROR`: the engine failed, with its own text; the engine is older than 1.17
///   - `ALLOCATION_FAILED`: an output's tensor can't get a buffer, or there is no memory for it
/// No operation that returns a status raises. One that fails leaves the list of outputs as it was; where the engine
/// failed in the midst of a run, the given tensors may have other shapes and elements. A load that fails leaves no
/// network, not even the one of the load before. A target without components never reaches the backend: the network of
/// the load before stays.
///
/// **Memory** that the engine takes for the model is reported through the model's record at the first operation after
/// the model was registered, measured anew after predictions that may have changed it, and taken back by the unload. It
/// is an estimate; docs/onnxruntime.md lists what it misses.
///
/// **Log**: the configuration's sink gets the load of a component with its time, an unload, every failure of the
/// engine, and the engine's own warnings and errors. Without a sink, failures alone are reported, through `_Report_`.
/// The backend calls sinks under a lock of its own: one call at a time, from the threads that use the models and those
/// of the engine.
///
/// **Threads**: `predict`, `predictBatch`, `bind`, and `evaluate` of distinct bindings may overlap on one model, as
/// long as their outputs are distinct. `load`, `setBatchSize`, `doUnload` and registration overlap with nothing on that
/// model. Distinct models are independent. The engine ends before static objects that were made earlier: no destructor
/// of theirs predicts.
class MIRELO_ONNXRUNTIME_API Model : public MireloModel {
 public:
    /// Raises `InvalidArgumentsException` for a null device, as every model does.
    /// @param device  shared with the model; its model type is adopted, and its execution provider used by the next
    /// load
    /// @param config  copied; its sink gets what the model reports
    Model(const std::string& name, std::shared_ptr<Device> device, MireloConfig config = MireloConfig(),
          Options options = Options());
    /// @param device  outlives the model
    Model(const std::string& name, Device* device, MireloConfig config = MireloConfig(), Options options = Options());
    /// A model without a device: the execution provider is that of `options`, and without one the CPU.
    Model(const std::string& name, MireloModelType type, MireloConfig config = MireloConfig(),
          Options options = Options());
    ~Model() override;

 protected:
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override;
    MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const override;
    MireloStatus onBind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const override;
    MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const override;
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override;
    MireloStatus onUnload() override;
    MireloStatus onSetBatchSize(const unsigned int& batchSize) override;
    /// A `CacheStatus`. Reads the network and the file; raises nothing.
    MireloCacheStatus onQueryCacheStatus(const Components& components) override;

 private:
    struct Memory;

    template <typename Work>
    MireloStatus statusOf(const Work& work) const;
    const std::shared_ptr<Network>& loadedNetwork() const;
    OrtEP executionProvider() const;
    std::unique_ptr<Cache> cacheFor(const ModelComponent& component, const NetworkFile& network) const;
    void reportMemory() const;

    Options options_;
    std::shared_ptr<const Log> log_;
    std::shared_ptr<Network> network_;  // empty while not loaded; bindings share it
    std::unique_ptr<Memory> memory_;
};

}  // namespace TarnoMirelo::OnnxRuntime
