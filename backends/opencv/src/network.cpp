#include "network.h"

#include "operator_layer.h"

#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace TarnoMirelo::OpenCv {
namespace {

constexpr uint64_t kMostDimensions = 32;  // of the engine's matrices

// Whether the shape may be that of one row among several.
bool isRow(const TensorShape& shape) { return shape.dimension() > 1 && (shape[0] == 1 || shape[0] == -1); }

uint64_t elementCount(const EngineShape& shape) {
    uint64_t count = 1;
    for (const int dimension : shape) count *= static_cast<uint64_t>(dimension);
    return count;
}

// Whether each has no more elements than fit the integers that the engine counts them with; what goes beyond them it
// does not notice.
bool areCountable(const EngineShapes& shapes) {
    return std::all_of(shapes.begin(), shapes.end(), [](const EngineShape& shape) {
        int64_t left = std::numeric_limits<int>::max();
        for (const int dimension : shape) left = dimension < 0 ? 0 : left / std::max(dimension, 1);
        return left > 0;
    });
}

// memcpy where type and size match: copyTo's overhead dominates small results.
void copy(const cv::Mat& result, cv::Mat& output) {
    if (result.isContinuous() && result.type() == output.type() && result.size == output.size) [[likely]] {
        std::memcpy(output.data, result.data, static_cast<size_t>(output.dataend - output.data));
    } else {
        result.copyTo(output);
    }
}

// The target with the dimensions that it leaves open and the network does not.
ModelTarget restrictedBy(const OnnxFile& file, ModelTarget target) {
    for (ModelFeatureDescriptor& descriptor : target.inputs) {
        if (descriptor.type() != MireloFeatureType::Tensor) continue;
        const auto input = std::ranges::find(file.inputs, descriptor.name(), &OnnxFile::Input::name);
        if (input == file.inputs.end() || !input->shape) continue;
        const TensorDescriptor& tensor = descriptor.tensorDescriptor();
        TensorShape shape = tensor.shape();
        bool same = shape.dimension() == input->shape->size();
        for (size_t i = 0; same && i < input->shape->size(); ++i) {
            const int64_t network = (*input->shape)[i];
            if (shape[i] == -1) shape[i] = network;
            same = network == -1 || network == shape[i];
        }
        if (!same) {
            throw ModelMetaDataException("Input \"" + input->name + "\": the network takes the shape " +
                                         Kit::toText(*input->shape) + ", declared is " + Kit::toText(tensor.shape()));
        }
        descriptor = {descriptor.type(), descriptor.required(), descriptor.name(), descriptor.description(),
                      TensorDescriptor(shape, tensor.tensorType())};
    }
    return target;
}

}  // namespace

void require(const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw Exception(status.getDescription(), status.getCode());
}

std::optional<EngineShape> toEngineShape(const TensorShape& shape) {
    if (shape.dimension() > kMostDimensions) return std::nullopt;
    EngineShape dimensions;
    for (uint64_t i = 0; i < shape.dimension(); ++i) {
        if (shape[i] < 1 || shape[i] > std::numeric_limits<int>::max()) return std::nullopt;
        dimensions.push_back(static_cast<int>(shape[i]));
    }
    if (dimensions.empty()) return std::nullopt;
    if (dimensions.size() == 1) dimensions.push_back(1);  // the engine's matrices have two dimensions at least
    return dimensions;
}

Network::Network(OnnxFile file, const ModelTarget& target)
    : inputs_(restrictedBy(file, target), Kit::ElementTypes::Any),
      outputs_(target),
      nodes_(std::move(file.nodes)),
      shapes_(std::move(file.shapes)) {
    compareInputs(file);
    const OperatorLayers operators(file.customOperators);  // until the network has got its layers
    translateExceptions([&] {
        net_ = cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(file.repaired.data()), file.repaired.size());
        net_.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        net_.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
        net_.enableFusion(!file.fusesWrongly);
        locatePorts();
        weightBytes_ = countWeightBytes();
    });
    if (const std::optional<EngineShapes> shapes = fixedInputs(1)) checkResults(inferOutputs(*shapes));
}

void Network::checkResults(const EngineShapes& results) const {
    for (size_t i = 0; i < outputs_.size(); ++i) {
        const TensorShape found = resultShape(i, results[i]);
        if (Kit::fits(found, outputs_[i].shape)) continue;
        throw ModelMetaDataException(outputs_.about(
            i, "the engine gives the shape " + Kit::toText(found) + ", declared is " + Kit::toText(outputs_[i].shape)));
    }
}

void Network::compareInputs(const OnnxFile& file) {
    for (size_t i = 0; i < inputs_.size(); ++i) {
        if (std::ranges::find(file.inputs, inputs_[i].name, &OnnxFile::Input::name) == file.inputs.end()) {
            throw ModelMetaDataException(inputs_.about(i, "the network has none of that name"));
        }
    }
    for (const OnnxFile::Input& input : file.inputs) {
        if (!inputs_.find(input.name)) {
            throw ModelMetaDataException("Input \"" + input.name + "\": the network has it, the target lacks it");
        }
        firstDimensionIsOpen_ =
            firstDimensionIsOpen_ && (!input.shape || (!input.shape->empty() && input.shape->front() == -1));
    }
}

void Network::locatePorts() {
    const cv::Ptr<cv::dnn::Layer> inputLayer = net_.getLayer(0);
    for (size_t i = 0; i < inputs_.size(); ++i) {
        const int index = inputLayer->outputNameToIndex(inputs_[i].name);
        if (index < 0) throw ModelMetaDataException(inputs_.about(i, "the engine knows none of that name"));
        engineInputs_.push_back({static_cast<size_t>(index), inputs_.size() == 1 ? "" : inputs_[i].name});
    }
    for (size_t i = 0; i < outputs_.size(); ++i) {
        const int layer = net_.getLayerId(outputs_[i].name);
        if (layer <= 0) throw ModelMetaDataException(outputs_.about(i, "the network has none of that name"));
        if (outputs_[i].dataType != DataType::Float) {
            throw ModelMetaDataException(outputs_.about(i, "the engine computes elements of type float only"));
        }
        engineOutputs_.push_back(layer);
    }
}

uint64_t Network::countWeightBytes() {
    uint64_t bytes = 0;
    for (const std::string& name : net_.getLayerNames()) {
        for (const cv::Mat& blob : net_.getLayer(net_.getLayerId(name))->blobs) bytes += blob.total() * blob.elemSize();
    }
    return bytes;
}

std::optional<EngineShapes> Network::fixedInputs(int rows) const {
    EngineShapes shapes;
    for (size_t i = 0; i < inputs_.size(); ++i) {
        const std::vector<int64_t> dimensions = inputs_[i].shape.shapeVector();
        if (std::ranges::find(dimensions, -1) != dimensions.end()) return std::nullopt;
        const std::optional<EngineShape> shape = toEngineShape(inputs_[i].shape);
        if (!shape) throw ModelMetaDataException(inputs_.about(i, "the engine can't take that shape"));
        shapes.push_back(*shape);
        shapes.back()[0] *= rows;
    }
    return shapes;
}

bool Network::hasRows() const {
    const auto startsWithRow = [](const Kit::Ports::Port& port) { return isRow(port.shape); };
    return firstDimensionIsOpen_ && std::all_of(inputs_.begin(), inputs_.end(), startsWithRow) &&
           std::all_of(outputs_.begin(), outputs_.end(), startsWithRow);
}

void Network::setBatchSize(unsigned int batchSize) {
    if (batchSize == 0 || batchSize > std::numeric_limits<int>::max()) {
        throw InvalidArgumentsException("A batch can't have " + std::to_string(batchSize) + " rows");
    }
    const int rows = static_cast<int>(batchSize);
    const std::optional<EngineShapes> row = hasRows() ? fixedInputs(1) : std::nullopt;
    if (row && !areCountable(*fixedInputs(rows))) {
        throw InvalidArgumentsException("A batch of " + std::to_string(rows) +
                                        " rows is more than the engine can count");
    }
    if (rows > 1 && (!hasRows() || (row && !stacks(*row, rows)))) {
        throw InvalidOperationException("The model can't take " + std::to_string(rows) + " rows at once");
    }
    if (row) inferOutputs(*fixedInputs(rows));
    batchSize_ = rows;
}

EngineShape Network::inferLayer(const EngineShapes& ordered, int layer) {
    EngineShapes into;
    EngineShapes out;
    net_.getLayerShapes(ordered, layer, into, out);
    return out.at(0);
}

// For several rows, or sizes that were open before the run, the engine adds a dimension where it knows a new shape for
// one row alone, and divides by zero in what follows.
void Network::compareReshaped(const EngineShapes& ordered) {
    for (const std::string& name : net_.getLayerNames()) {
        const int layer = net_.getLayerId(name);
        if (net_.getLayer(layer)->type != "Reshape") continue;
        EngineShape shape;
        try {
            shape = translateExceptions([&] { return inferLayer(ordered, layer); });
        } catch (const EngineFailure&) {
            continue;  // which the inference of all layers names better
        }
        compareShape(name, shape);
    }
}

// What the engine computes in a shape of its own, it computes wrong, or what follows.
void Network::compareShape(const std::string& layer, const EngineShape& found) const {
    const auto known = shapes_.find(layer.substr(layer.find('!') + 1));
    if (known == shapes_.end()) return;
    const std::vector<int64_t>& wanted = known->second;
    // The engine has two dimensions at least, or one element where there is none.
    const bool isShort = wanted.size() < 2 && found.size() <= 2 && elementCount(found) == elementCount({found[0]});
    const bool isSame =
        wanted.size() == found.size() && std::equal(wanted.begin(), wanted.end(), found.begin(),
                                                    [](int64_t size, int other) { return size < 0 || size == other; });
    if (isSame || isShort) return;
    throw EngineFailure(nodeOf(layer) + ": the engine gives the result the shape " +
                        Kit::toText(TensorShape(std::vector<int64_t>(found.begin(), found.end()))) + ", wanted is " +
                        Kit::toText(TensorShape(wanted)));
}

const EngineShapes& Network::inferOutputs(const EngineShapes& inputs) {
    if (inputs == inferredFor_) return inferred_;
    EngineShapes ordered(inputs.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        ordered.resize(std::max(ordered.size(), engineInputs_[i].index + 1));
        ordered[engineInputs_[i].index] = inputs[i];
    }
    if (fixedInputs(1) != inputs) compareReshaped(ordered);
    EngineShapes outputs;
    uint64_t blobs = 0;
    const auto infer = [&](int layer) { return inferLayer(ordered, layer); };
    std::vector<int> layers;
    std::vector<EngineShapes> out;
    namingNode(infer, [&] {
        for (const int layer : engineOutputs_) outputs.push_back(infer(layer));
        std::vector<EngineShapes> into;
        net_.getLayersShapes(ordered, layers, into, out);
        for (const EngineShapes& results : out) {
            if (!areCountable(results))
                throw MLFrameworkException("A layer's result is more than the engine can count");
            for (const EngineShape& result : results) blobs += elementCount(result) * sizeof(float);
        }
    });
    for (size_t i = 0; i < layers.size(); ++i) {
        if (!out[i].empty()) compareShape(net_.getLayer(layers[i])->name, out[i].front());
    }
    inferredFor_ = inputs;
    inferred_ = std::move(outputs);
    ++generation_;
    blobBytes_ = blobs;
    return inferred_;
}

// The engine's texts seldom name the node, which is the first whose layer fails when the engine is asked to go so far.
template <typename GoSoFar, typename Work>
void Network::namingNode(const GoSoFar& goSoFar, const Work& work) {
    try {
        translateExceptions(work);
    } catch (const EngineFailure& exception) {
        const std::vector<std::string> layers = net_.getLayerNames();
        const auto isGood = [&](const std::string& layer) {
            try {
                translateExceptions([&] { goSoFar(net_.getLayerId(layer)); });
                return true;
            } catch (const EngineFailure&) {
                return false;
            }
        };
        const auto failing = std::partition_point(layers.begin(), layers.end(), isGood);
        if (failing == layers.end()) throw;
        throw EngineFailure(nodeOf(*failing) + ": " + exception.what());
    }
}

std::string Network::nodeOf(const std::string& layer) const {
    const std::string output = layer.substr(layer.find('!') + 1);  // behind a prefix of the engine's
    const auto node = nodes_.find(output);
    return node == nodes_.end() ? "Node \"" + output + "\"" : node->second;
}

TensorShape Network::resultShape(size_t output, const EngineShape& result) const {
    const TensorShape found(std::vector<int64_t>(result.begin(), result.end()));
    const uint64_t declared = outputs_[output].shape.dimension();
    if (declared == 0 && found.size() == 1) return {};
    return declared == 1 && result.size() == 2 ? TensorShape(found.size()) : found;
}

bool Network::stacks(const EngineShapes& row, int rows) {
    try {
        EngineShapes stacked = row;
        for (EngineShape& shape : stacked) {
            if (shape[0] != 1) return false;
            shape[0] = rows;
        }
        EngineShapes expected = inferOutputs(row);
        for (EngineShape& shape : expected) {
            if (shape[0] != 1) return false;
            shape[0] = rows;
        }
        return inferOutputs(stacked) == expected;
    } catch (const EngineFailure&) {
        return false;  // the network holds a shape that fits one row only
    }
}

// The engine tells a new input from the one before by its shape alone. One of the same shape and another element type
// would be put aside, and the former one used again; so an input of another shape comes between them.
void Network::setInput(EngineInput& to, const cv::Mat& input) {
    if (to.depth != input.depth()) [[unlikely]] {
        EngineShape other(input.size.p, input.size.p + input.dims);
        other.back() = other.back() == 1 ? 2 : 1;
        net_.setInput(cv::Mat(other, input.type(), cv::Scalar(0)), to.name);
        to.depth = input.depth();
    }
    net_.setInput(input, to.name);
}

void Network::forward(const std::vector<cv::Mat>& inputs, const std::vector<std::string>& outputNames,
                      std::vector<cv::Mat>& outputs) {
    const auto goSoFar = [&](int layer) { net_.forward(net_.getLayer(layer)->name); };
    namingNode(goSoFar, [&] {
        for (size_t i = 0; i < inputs.size(); ++i) setInput(engineInputs_[i], inputs[i]);
        if (outputs.size() == 1) {  // the engine has a shorter way for a single one
            copy(net_.forward(outputNames[0]), outputs[0]);
        } else {
            net_.forward(outputs, outputNames);
        }
    });
}

}  // namespace TarnoMirelo::OpenCv
