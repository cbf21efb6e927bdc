// A backend without an engine: networks of fully connected layers, for systems that no engine is at hand for. Its
// component is a file of layers, each the counts of its inputs and outputs (32-bit), a row of weights for each output,
// and a bias for each output (32-bit floats, all in the machine's order). Between layers negative values become 0; the
// last one's results become probabilities.

#include "backend.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/bindings.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <optional>

using namespace TarnoMirelo;

namespace {

class Reader {
 public:
    explicit Reader(const Kit::ComponentBytes& bytes) : next_(bytes.data()), left_(bytes.size()) {}

    bool atEnd() const { return left_ == 0; }

    template <typename Value>
    std::vector<Value> next(size_t count) {
        if (count > left_ / sizeof(Value)) throw ModelMetaDataException("The file of layers is cut");
        std::vector<Value> values(count);
        const size_t size = count * sizeof(Value);
        if (size > 0) std::memcpy(values.data(), next_, size);
        next_ += size;
        left_ -= size;
        return values;
    }

 private:
    const uint8_t* next_;
    uint64_t left_;
};

struct Layer {
    explicit Layer(Reader& file) : inputs(file.next<uint32_t>(1)[0]) {
        const size_t outputs = file.next<uint32_t>(1)[0];
        if (inputs == 0 || outputs == 0) throw ModelMetaDataException("A layer takes or gives nothing");
        weights = file.next<float>(inputs * outputs);
        bias = file.next<float>(outputs);
    }

    std::vector<float> apply(const std::vector<float>& values) const {
        std::vector<float> results = bias;
        for (size_t i = 0; i < results.size(); ++i) {
            const float* const row = weights.data() + i * inputs;
            results[i] = std::inner_product(values.begin(), values.end(), row, results[i]);
        }
        return results;
    }

    size_t inputs;
    std::vector<float> weights, bias;
};

void toProbabilities(std::vector<float>& scores) {
    const float highest = *std::max_element(scores.begin(), scores.end());
    for (float& score : scores) score = std::exp(score - highest);
    const float sum = std::accumulate(scores.begin(), scores.end(), 0.0F);
    for (float& score : scores) score /= sum;
}

std::vector<Layer> readLayers(const Kit::ComponentBytes& bytes) {
    Reader file(bytes);
    std::vector<Layer> layers;
    do {
        layers.emplace_back(file);
        if (layers.size() > 1 && layers.back().inputs != layers.end()[-2].bias.size()) {
            throw ModelMetaDataException("A layer does not take what the one before gives");
        }
    } while (!file.atEnd());
    return layers;
}

class DenseModel : public MireloModel {
 public:
    using MireloModel::MireloModel;

 protected:
    struct Bound : MireloBinding {
        std::shared_ptr<const std::vector<Layer>> layers;
        Kit::BoundTensors tensors;
        std::shared_ptr<const ITensor> input;
        std::shared_ptr<ITensor> output;
    };

    MireloStatus onLoad(const std::vector<ModelComponent>& components) override {
        layers_.reset();
        MireloStatus status = read(components.at(0));
        reportMemory();  // after a failure, too: what the load before had is gone
        return status;
    }

    MireloStatus onUnload() override {
        layers_.reset();
        reportMemory();
        return {SUCCESS, ""};
    }

    MireloStatus onSetBatchSize(const unsigned int& /*rows*/) override {
        return {NOT_IMPLEMENTED, "One row at a time"};
    }

    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override {
        std::shared_ptr<MireloBinding> binding;
        Outputs results = outputs;
        MireloStatus status = onBind(inputs, results, binding);
        if (status.ok()) status = onEvaluate(binding);
        if (status.ok()) outputs = std::move(results);
        return status;
    }

    MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const override {
        if (layers_ == nullptr) return notLoaded();
        const auto run = [this](const Inputs& row, Outputs& results, int64_t /*rows*/) {
            return onPredict(row, results);
        };
        return Kit::runBatch(*inputs_, *outputs_, inputs, outputs, Kit::Stacking::Never, run);
    }

    MireloStatus onBind(const Inputs& inputs, Outputs& outputs,
                        std::shared_ptr<MireloBinding>& binding) const override {
        if (layers_ == nullptr) return notLoaded();
        Kit::InputTensors tensors;
        MireloStatus status = inputs_->arrange(inputs, 1, tensors);
        if (!status.ok()) return status;
        Kit::PreparedOutputs prepared;
        const Kit::Result result{DataType::Float, (*outputs_)[0].shape};
        status = Kit::prepareOutputs(*inputs_, tensors, *outputs_, {result}, outputs, 1, prepared);
        if (!status.ok()) return status;
        auto bound = std::make_unique<Bound>();
        bound->layers = layers_;
        bound->input = tensors[0];
        bound->output = prepared.tensors[0];
        bound->tensors.add(bound->input);
        bound->tensors.add(bound->output);
        outputs = std::move(prepared.features);
        binding = Kit::handOut(std::move(bound));
        reportMemory();
        return status;
    }

    MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const override {
        const Bound* const bound = Kit::ownBinding<Bound>(binding);
        if (layers_ == nullptr) return notLoaded();
        if (bound == nullptr || bound->layers != layers_ || !bound->tensors.areInPlace()) {
            return {INVALID_OPERATION, "What was bound has moved, or belongs to another load; bind again"};
        }
        run(*bound->input, *bound->output);
        reportMemory();
        return {SUCCESS, ""};
    }

 private:
    // The file of layers: the component's own, or one in a protected archive.
    MireloStatus readFile(const ModelComponent& component, Kit::ComponentFiles& files,
                          Kit::ComponentBytes& bytes) const {
        if (component.type != ComponentKind::SecuredTar) return Kit::readComponent(component, getRootDir(), bytes);
        MireloStatus status = Kit::readComponentFiles(component, getRootDir(), files);
        std::string name;
        if (status.ok()) status = Kit::findOnlyName(component, files.names(), ".dense", name);
        if (!status.ok()) return status;
        const Kit::ComponentFiles::File& file = *files.find(name);
        bytes = Kit::ComponentBytes(file.data, file.size);
        return status;
    }

    static MireloStatus notLoaded() { return {INVALID_OPERATION, "The model is not loaded"}; }

    MireloStatus read(const ModelComponent& component) try {
        Kit::ComponentFiles files;
        Kit::ComponentBytes bytes;
        MireloStatus status = readFile(component, files, bytes);
        if (!status.ok()) return status;
        const auto layers = std::make_shared<const std::vector<Layer>>(readLayers(bytes));
        inputs_.emplace(getModelTarget());
        outputs_.emplace(getModelTarget());
        checkPort(*inputs_, layers->front().inputs);
        if (!(*inputs_)[0].required) {
            throw ModelMetaDataException(inputs_->about(0, "it is optional, wanted is a required one"));
        }
        checkPort(*outputs_, layers->back().bias.size());
        layers_ = layers;
        return status;
    } catch (...) {
        MireloStatus status = getStatusFromCurrentException();
        status.setDescription("Component \"" + component.name + "\": " + status.getDescription());
        return status;
    }

    static void checkPort(const Kit::Ports& ports, size_t elements) {
        const Kit::Ports::Port& port = ports[0];
        if (ports.size() == 1 && port.dataType == DataType::Float &&
            port.shape.size() == static_cast<int64_t>(elements)) {
            return;
        }
        throw ModelMetaDataException(ports.about(0, "declared is " + Kit::toText(port.dataType) + " " +
                                                        Kit::toText(port.shape) + ", wanted are " +
                                                        std::to_string(elements) + " floats, and no other"));
    }

    void run(const ITensor& input, ITensor& output) const {
        const auto* const first = reinterpret_cast<const float*>(input.buffer());
        std::vector<float> values(first, first + input.shape().size());
        for (const Layer& layer : *layers_) {
            if (&layer != layers_->data()) {
                for (float& value : values) value = std::max(value, 0.0F);
            }
            values = layer.apply(values);
        }
        toProbabilities(values);
        std::memcpy(output.buffer(), values.data(), values.size() * sizeof(float));
    }

    // No hook is called when the model gets its record, so it is told at the next use.
    void reportMemory() const {
        size_t numbers = 0;
        if (layers_ != nullptr) {
            for (const Layer& layer : *layers_) numbers += layer.weights.size() + layer.bias.size();
        }
        reporter_.report(runtimeRecord(), numbers * sizeof(float));
    }

    std::shared_ptr<const std::vector<Layer>> layers_;  // bindings share them
    std::optional<Kit::InputPorts> inputs_;
    std::optional<Kit::OutputPorts> outputs_;
    mutable Kit::MemoryReporter reporter_;
};

}  // namespace

std::shared_ptr<MireloModel> makeModel(const std::string& name, const std::shared_ptr<Device>& device) {
    return std::make_shared<DenseModel>(name, device);
}
