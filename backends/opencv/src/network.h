#pragma once

#include "onnx_file.h"

#include <TarnoMirelo/manifest.h>

#include <opencv2/dnn.hpp>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace TarnoMirelo::OpenCv {

using EngineShape = cv::dnn::MatShape;
using EngineShapes = std::vector<EngineShape>;

/// The engine failed, with its text.
struct EngineFailure : MLFrameworkException {
    using MLFrameworkException::MLFrameworkException;
};

/// Calls the engine, and turns what it raises into an `EngineFailure`. What an operator of the host raises on the way
/// is an `MLFrameworkException` with its text, or stays as it is where it is one of ours.
template <typename Call>
auto translateExceptions(const Call& call) {
    try {
        return call();
    } catch (const Exception&) {  // ours
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const cv::Exception& exception) {
        std::string text = exception.what();
        text.erase(text.find_last_not_of("\n >") + 1);  // the engine ends its texts with a prompt and a line feed
        throw EngineFailure(text);
    } catch (const std::exception& exception) {
        const char* const what = exception.what();
        throw MLFrameworkException(what == nullptr ? "" : what);
    }
}

/// The inputs or the outputs of a target, in its order, and the way from a feature's name to its place among them.
class Ports {
 public:
    struct Port {
        ModelFeatureDescriptor descriptor;
        std::string name;
        TensorShape shape;  // of one row: the manifest's, and where that leaves a dimension open, the network's

        /// The shape of that many rows: a leading 1 gives way to `rows`. -1 stands for any dimension from 1.
        TensorShape shapeOf(int64_t rows) const;
    };

    /// Raises `ModelMetaDataException` for no features, a feature that is no tensor, and a name that comes twice.
    /// @param kind  "Input" or "Output", for messages
    Ports(const char* kind, const std::vector<ModelFeatureDescriptor>& descriptors);

    size_t size() const { return ports_.size(); }
    const Port& operator[](size_t index) const { return ports_[index]; }
    auto begin() const { return ports_.begin(); }
    auto end() const { return ports_.end(); }

    /// Where each of the features belongs. Raises `InvalidArgumentsException` for a null pointer, an unknown name, and
    /// one that comes twice.
    template <typename Feature>
    std::vector<size_t> indicesOf(const std::vector<std::shared_ptr<Feature>>& features) const;
    /// Takes a dimension that the manifest leaves open from the network.
    /// @param network  -1 for a dimension that the network leaves open
    /// Raises `ModelMetaDataException` where the two differ.
    void restrictShape(size_t index, const std::vector<int64_t>& network);
    /// `Input "x": ` and the text.
    std::string about(size_t index, const std::string& text) const;

 private:
    std::string kind_;
    std::vector<Port> ports_;
    std::unordered_map<std::string, size_t> indices_;
};

/// Whether every dimension is the wanted one, or one from 1 where -1 is wanted.
bool fits(const TensorShape& shape, const TensorShape& wanted);

/// "(1, 64)".
std::string toText(const TensorShape& shape);

/// The shape as the engine has it: no dimension is below 1 or beyond its integers, and there are at least two, and no
/// more than it knows. Nothing where that can't be.
std::optional<EngineShape> toEngineShape(const TensorShape& shape);

/// The engine's network together with the target that describes it. What the engine raises comes out as
/// `MLFrameworkException` with its text.
class Network {
 public:
    /// Has the engine read an ONNX network, and compares it with the target. Raises what the comparison finds.
    Network(OnnxFile file, const ModelTarget& target);

    const Ports& inputs() const { return inputs_; }
    const Ports& outputs() const { return outputs_; }

    /// Rows that `predict` and `bind` expect in one tensor.
    int64_t batchSize() const { return batchSize_; }
    /// Raises `InvalidArgumentsException` for no rows, or more than can be counted; `InvalidOperationException` where
    /// the network can't take so many at once.
    void setBatchSize(unsigned int batchSize);

    /// The shapes of the outputs for these shapes of the inputs, by the engine's own inference; remembered until asked
    /// for other ones.
    const EngineShapes& inferOutputs(const EngineShapes& inputs);
    /// A number that changes with each inference: while it stays, the last inference holds.
    uint64_t generation() const { return generation_; }
    /// The shape of a result as the manifest has it, its variable dimensions filled in. Raises `ModelMetaDataException`
    /// when the manifest says something else than the engine.
    TensorShape resultShape(size_t output, const EngineShape& result, int64_t rows) const;
    /// Whether the shapes allow one pass over `rows` rows. They don't tell whether a row's result depends on the
    /// others.
    /// @param row  the shapes of one row's inputs
    bool stacks(const EngineShapes& row, int rows);

    /// Runs the network. Each result is written to where the output of its name points, if it has that shape and type;
    /// else that output points elsewhere afterwards.
    void forward(const std::vector<cv::Mat>& inputs, const std::vector<std::string>& outputNames,
                 std::vector<cv::Mat>& outputs);

    /// Bytes of the weights, and of the blobs for the shapes inferred last.
    uint64_t memory() const { return weightBytes_ + blobBytes_; }

 private:
    struct EngineInput {
        size_t index;      // among the engine's inputs
        std::string name;  // as the engine is told it: nothing where there is one input only
        int depth = -1;    // the element type, as it was set last
    };

    /// Has the engine work, and where it fails, raises `EngineFailure` with the node's name before its text.
    /// @param goSoFar  has the engine do the same up to the layer of an id
    template <typename GoSoFar, typename Work>
    void namingNode(const GoSoFar& goSoFar, const Work& work);
    void compareInputs(const OnnxFile& file);
    void locatePorts();
    uint64_t countWeightBytes();
    void setInput(EngineInput& to, const cv::Mat& input);
    bool hasRows() const;
    /// The shapes of the inputs for that many rows by the manifest alone; nothing where a dimension is variable.
    std::optional<EngineShapes> fixedInputs(int rows) const;

    Ports inputs_;
    Ports outputs_;
    std::unordered_map<std::string, std::string> nodes_;  // what messages call them, by their first output
    std::vector<EngineInput> engineInputs_;
    std::vector<int> engineOutputs_;    // the engine's id of the layer behind each output
    bool firstDimensionIsOpen_ = true;  // of every input, as the network has it
    int64_t batchSize_ = 1;
    EngineShapes inferredFor_;
    EngineShapes inferred_;
    // What every prediction looks at.
    cv::dnn::Net net_;
    uint64_t generation_ = 0;
    uint64_t weightBytes_ = 0;
    uint64_t blobBytes_ = 0;
};

template <typename Feature>
std::vector<size_t> Ports::indicesOf(const std::vector<std::shared_ptr<Feature>>& features) const {
    std::vector<size_t> indices;
    std::vector<bool> taken(ports_.size());
    indices.reserve(features.size());
    for (const auto& feature : features) {
        if (feature == nullptr) throw InvalidArgumentsException(kind_ + ": a feature must not be null");
        const std::string name = feature->featureDescriptor().name();
        const auto found = indices_.find(name);
        if (found == indices_.end()) {
            throw InvalidArgumentsException(kind_ + " \"" + name + "\": the target has none of that name");
        }
        if (taken[found->second]) throw InvalidArgumentsException(about(found->second, "given twice"));
        taken[found->second] = true;
        indices.push_back(found->second);
    }
    return indices;
}

}  // namespace TarnoMirelo::OpenCv
