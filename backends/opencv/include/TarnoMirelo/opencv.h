#pragma once

/// @file
/// A backend over OpenCV's dnn module: runs the ONNX component of a "WinML" target on any desktop's CPU.

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/model.h>
#include <TarnoMirelo/operators.h>

#include <memory>
#include <string>
#include <vector>

/// @def MIRELO_OPENCV_API
/// Marks what the library of the OpenCV backend exports, as `MIRELO_API` does for sdk-core.

#if defined(SDK_CORE_OPENCV_BUILDING)  // set while the backend itself is compiled, never by its users
#define MIRELO_OPENCV_API MIRELO_EXPORT_SYMBOL
#else
#define MIRELO_OPENCV_API MIRELO_IMPORT_SYMBOL
#endif

namespace TarnoMirelo::Kit {
class MemoryReporter;
}

namespace TarnoMirelo::OpenCv {

class Network;

/// An operator that the engine lacks, computed by the host on the CPU.
///
/// The host registers a factory under the name that the engine has for the node, its domain and its type with a dot
/// between, as in "com.example.Normalize", and finalises the registry before it loads the model. Each node of that name
/// gets an operator of its own, which lives as long as the loaded network and is called on the thread that predicts.
///
/// A class that derives from it is built with type information (not with `-fno-rtti`), by which the backend tells it
/// from operators that are none of its own. It must not call back into the model that runs it, or release its binding.
///
/// Elements are floats. The inputs of a node that are constants come after its others. What an operator raises, or
/// returns as a failure, becomes the status of the model's operation; a `WARNING` is reported through `_Report_`, and
/// the outputs taken.
class MIRELO_OPENCV_API Operator : public CustomOperators::Operator {
 public:
    Operator();
    ~Operator() override;

    /// The shapes of the outputs for these shapes of the inputs. There are two dimensions at least, and 0 stands for
    /// one that is not known yet. Called for shapes that are never computed, too.
    virtual std::vector<TensorShape> outputShapes(const std::vector<TensorShape>& inputs) const = 0;
    /// Computes every element of the outputs. The tensors are borrowed for the call.
    virtual MireloStatus forward(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                                 const std::vector<std::shared_ptr<ITensor>>& outputs) = 0;
};

/// What a host knows of its network.
struct Options {
    /// The host's promise: the first dimension of every input and output counts rows, and the network computes each row
    /// as if it were alone. `predictBatch` then runs all rows in one pass, which is faster, where every shape begins
    /// with 1 or -1 and the results grow with the rows; where the engine can't, row by row as without the promise.
    ///
    /// Where the promise is wrong, so are the results, in silence: a recurrent layer over the first dimension, or a
    /// softmax along it, mixes the rows. Neither the shapes nor the engine tell.
    bool rowsAreIndependent = false;
};

/// A model that OpenCV runs.
///
/// **Components.** A target has one: an ONNX network, of kind "file" (its path is looked up under the root directory
/// and can't leave it) or "memory_stream" (its buffer holds the bytes), or protected in "secured_file",
/// "secured_memory_stream" or "secured_tar", an archive in which one name ends in ".onnx" or ".ONNX". A protected
/// network is opened in memory with the component's key and written nowhere. Inputs and outputs of the target are
/// tensors that bear the names of the network's own.
///
/// **Inputs** are used in place: the backend copies nothing but the rows of a batch that go through in one pass, and
/// the engine reads the tensor once into its own input blob. Element types: `UInt8`, `Int8`, `UInt16`, `Int16`,
/// `Int32`, `Float16`, `Float` and `Double`, all of which the engine turns into `Float`. A shape fits when it is the
/// manifest's, where -1 stands for any number from 1.
///
/// **Outputs** are `Float`. An empty list is filled with one new feature per output of the target. Otherwise the given
/// features are written into, in any order, all or some of the target's outputs: their shapes are those of the results,
/// but a tensor of variable shape or without a buffer gets shape and buffer here.
///
/// **Batches.** `predictBatch` takes rows of the manifest's shape and returns the outputs row by row, one feature per
/// output and row. Each row is a pass of its own, unless the host makes the promise of `Options::rowsAreIndependent`.
/// `setBatchSize(n)` has `predict` and `bind` expect n rows in one tensor, n in place of the leading 1 of each shape;
/// it needs a loaded model, and each load begins with one row again. That the network computes each of the n rows by
/// itself is the host's knowledge here, too.
///
/// **Networks** that the engine is known to compute wrong are repaired while they are read, or refused with the node's
/// name and the reason. docs/opencv.md lists them.
///
/// **Statuses** of every operation, apart from `SUCCESS`, as docs/contract.md has them for every backend; a description
/// names the input, output, component or node:
///   - `INVALID_OPERATION`: the model is not loaded; the network can't take that many rows at once; what was bound has
///     moved, or belongs to another load
///   - `INVALID_ARGUMENTS`: an input or output that the target doesn't have, that is missing, given twice, null, or
///     without a buffer; an output that shares memory with another or with an input; a batch size of 0, or beyond
///     what the engine can count
///   - `INVALID_TYPE`: a feature that is no tensor, or a tensor that is not in host memory; uneven rows
///   - `INVALID_TENSOR_DATA_TYPE`, `INVALID_SHAPE`: a tensor that does not fit
///   - `MODEL_METADATA_ERROR`: a component of another kind, more than one, or none; a file that is no ONNX network, or
///     is cut short; a target that does not fit the network; a node that the engine computes wrong
///   - `FILE_ERROR`: the component's file can't be read
///   - `ML_FRAMEWORK_ERROR`: the engine failed, with its own text
///   - `ALLOCATION_FAILED`: an output's tensor can't get a buffer, or there is no memory for it; other outputs without
///     one may have got theirs
/// No operation that returns a status raises. One that fails leaves the list of outputs as it was; where the engine or
/// an operator failed, the tensors in it may have the results' shapes, and other elements. A load that fails leaves no
/// network, not even the one of the load before. A target without components is refused before that.
///
/// **Memory**: what the engine's weights and blobs take is reported through the model's record at the
/// first operation after the model was registered, kept up to date as shapes change, and taken back by the unload.
///
/// **Log**: the configuration's sink gets the load of a component with its time, an unload, and every failure of the
/// engine. Without a sink, failures alone are reported, through `_Report_`. The backend calls sinks and `_Report_`
/// under a lock of its own, for all models. The engine itself writes to standard error when a network is malformed;
/// OPENCV_LOG_LEVEL=SILENT in the process's environment stops that.
///
/// **Threads**: no two operations on one model may overlap, const ones included, for the engine's network serves one
/// call at a time. Distinct models are independent. The engine ends before static objects that were made earlier: no
/// destructor of theirs predicts.
class MIRELO_OPENCV_API Model : public MireloModel {
 public:
    /// Raises `InvalidArgumentsException` for a null device, as every model does.
    /// @param device  shared with the model; its model type is adopted, the rest is not looked at
    /// @param config  copied; its sink gets what the model reports
    Model(const std::string& name, std::shared_ptr<Device> device, MireloConfig config = MireloConfig(),
          Options options = Options());
    /// @param device  outlives the model
    Model(const std::string& name, Device* device, MireloConfig config = MireloConfig(), Options options = Options());
    /// A model without a device.
    /// @param type  usually `WinML`; each load brings its own
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

 private:
    template <typename Work>
    MireloStatus statusOf(const Work& work) const;
    const std::shared_ptr<Network>& loadedNetwork() const;
    void predictRows(const Inputs& inputs, Outputs& outputs, int64_t rows) const;
    void reportMemory() const;
    void log(LogSeverity severity, const std::string& message) const;

    MireloConfig config_;
    Options options_;
    std::shared_ptr<Network> network_;  // empty while not loaded; bindings share it
    std::unique_ptr<Kit::MemoryReporter> reporter_;
};

}  // namespace TarnoMirelo::OpenCv
