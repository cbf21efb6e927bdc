#pragma once

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

/// Everything that calls the engine runs in here, so that none of the engine's exceptions leaves the backend: they
/// become `MLFrameworkException` with the engine's text.
template <typename Call>
auto engine(const Call& call) {
    try {
        return call();
    } catch (const Exception&) {  // ours
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        const char* const what = exception.what();
        std::string text = what == nullptr ? "" : what;
        text.erase(text.find_last_not_of("\n >") + 1);  // the engine ends its texts with a prompt and a line feed
        throw MLFrameworkException(text);
    }
}

/// The inputs or the outputs of a target, in its order, and the way from a feature's name to its place among them.
class Ports {
 public:
    struct Port {
        ModelFeatureDescriptor descriptor;
        std::string name;
        TensorShape shape;  // the manifest's, of one row

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
    /// Reads an ONNX network and compares it with the target. Raises what the comparison finds.
    Network(const char* onnx, size_t size, const ModelTarget& target);

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
    /// A number that changes with each inference, so that who inferred last need not ask again.
    uint64_t inference() const { return inference_; }
    /// The shape of a result as the manifest has it, its variable dimensions filled in. Raises `ModelMetaDataException`
    /// when the manifest says something else than the engine.
    TensorShape resultShape(size_t output, const EngineShape& result, int64_t rows) const;
    /// Whether one pass over `rows` rows does what a pass over each does, as far as manifest and inference tell.
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

    void locatePorts();
    void countInputs();
    uint64_t countWeightBytes();
    void setInput(EngineInput& to, const cv::Mat& input);
    bool hasRows() const;
    /// The shapes of the inputs for that many rows by the manifest alone; nothing where a dimension is variable.
    std::optional<EngineShapes> fixedInputs(int rows) const;

    Ports inputs_;
    Ports outputs_;
    std::vector<EngineInput> engineInputs_;
    std::vector<int> engineOutputs_;  // the engine's id of the layer behind each output
    int64_t batchSize_ = 1;
    EngineShapes inferredFor_;
    EngineShapes inferred_;
    // What every prediction looks at.
    cv::dnn::Net net_;
    uint64_t inference_ = 0;
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
