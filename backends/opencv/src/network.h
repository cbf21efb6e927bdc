#pragma once

#include "onnx_file.h"

#include <TarnoMirelo/kit/ports.h>
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

/// Raises the status where it is a failure.
void require(const MireloStatus& status);

/// The shape as the engine has it: no dimension is below 1 or beyond its integers, and there are at least two, and no
/// more than it knows. Nothing where that can't be.
std::optional<EngineShape> toEngineShape(const TensorShape& shape);

/// The engine's network together with the target that describes it. What the engine raises comes out as
/// `MLFrameworkException` with its text.
class Network {
 public:
    /// Has the engine read an ONNX network, and compares it with the target. Raises what the comparison finds.
    Network(OnnxFile file, const ModelTarget& target);

    /// The shapes are the target's, and where that leaves a dimension open, the network's.
    const Kit::InputPorts& inputs() const { return inputs_; }
    const Kit::OutputPorts& outputs() const { return outputs_; }

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
    /// The shape of a result with as many dimensions as the target has it: the engine's matrices have two at least.
    TensorShape resultShape(size_t output, const EngineShape& result) const;
    /// Whether the network leaves the number of rows open, and the target's shapes begin with one. That tells nothing
    /// of whether a row's result depends on the others.
    bool hasRows() const;

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
    std::string nodeOf(const std::string& layer) const;
    EngineShape inferLayer(const EngineShapes& ordered, int layer);
    void compareReshaped(const EngineShapes& ordered);
    void compareShape(const std::string& layer, const EngineShape& found) const;
    void compareInputs(const OnnxFile& file);
    void checkResults(const EngineShapes& results) const;
    bool stacks(const EngineShapes& row, int rows);
    void locatePorts();
    uint64_t countWeightBytes();
    void setInput(EngineInput& to, const cv::Mat& input);
    /// The shapes of the inputs for that many rows by the target alone; nothing where a dimension is variable.
    std::optional<EngineShapes> fixedInputs(int rows) const;

    Kit::InputPorts inputs_;
    Kit::OutputPorts outputs_;
    std::unordered_map<std::string, std::string> nodes_;            // what messages call them, by their outputs
    std::unordered_map<std::string, std::vector<int64_t>> shapes_;  // of values, -1 for an open dimension
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

}  // namespace TarnoMirelo::OpenCv
