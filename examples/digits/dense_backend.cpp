// A backend without an engine: networks of fully connected layers, for systems that no engine is at hand for. Its
// component is a file of layers, each the counts of its inputs and outputs (32-bit), a row of weights for each output,
// and a bias for each output (32-bit floats, all in the machine's order). Between layers negative values become 0; the
// last one's results become probabilities.

#include "backend.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

using namespace TarnoMirelo;

namespace {

class FileReader {
 public:
    explicit FileReader(const Filepath& path) : left_(FileUtils().readBinaryFileToVector(path)) {}

    bool atEnd() const { return at_ == left_.size(); }

    template <typename Value>
    std::vector<Value> next(size_t count) {
        if (count > (left_.size() - at_) / sizeof(Value)) throw FileException("The file of layers is cut");
        std::vector<Value> values(count);
        std::memcpy(values.data(), left_.data() + at_, count * sizeof(Value));
        at_ += count * sizeof(Value);
        return values;
    }

 private:
    std::vector<char> left_;
    size_t at_ = 0;
};

struct Layer {
    explicit Layer(FileReader& file) : inputs(file.next<uint32_t>(1)[0]) {
        const size_t outputs = file.next<uint32_t>(1)[0];
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

class DenseModel : public MireloModel {
 public:
    using MireloModel::MireloModel;

 protected:
    struct Bound : MireloBinding {
        std::shared_ptr<const ITensor> input;
        std::shared_ptr<ITensor> output;
    };

    MireloStatus onLoad(const std::vector<ModelComponent>& components) override {
        layers_.clear();
        FileReader file(Filepath(getRootDir()).append(Filepath(components.at(0).path)));
        do {
            layers_.emplace_back(file);
            if (layers_.size() > 1 && layers_.back().inputs != layers_.end()[-2].bias.size()) {
                throw ModelMetaDataException("A layer does not take what the one before gives");
            }
        } while (!file.atEnd());
        return {SUCCESS, ""};
    }

    MireloStatus onUnload() override {
        layers_.clear();
        reportMemory();
        return {SUCCESS, ""};
    }

    MireloStatus onSetBatchSize(const unsigned int& /*rows*/) override {
        return {NOT_IMPLEMENTED, "One row at a time"};
    }

    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override {
        reportMemory();
        if (outputs.empty()) outputs = {std::make_shared<MireloFeatureTensor>(getModelTarget().outputs.at(0))};
        run(*inputs.at(0)->asTensor(), *outputs.at(0)->asTensor());
        return {SUCCESS, ""};
    }

    MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const override {
        Outputs all;
        for (const auto& row : MireloBatch(inputs).getFeatureSet().features) {
            Outputs results;
            MireloStatus status = onPredict(row, results);
            if (!status.ok()) return status;
            all.push_back(results.at(0));
        }
        outputs = std::move(all);
        return {SUCCESS, ""};
    }

    MireloStatus onBind(const Inputs& inputs, Outputs& outputs,
                        std::shared_ptr<MireloBinding>& binding) const override {
        MireloStatus status = onPredict(inputs, outputs);
        const auto bound = std::make_shared<Bound>();
        bound->input = inputs.at(0)->asTensor();
        bound->output = outputs.at(0)->asTensor();
        binding = bound;
        return status;
    }

    MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const override {
        const auto& bound = dynamic_cast<const Bound&>(*binding);
        run(*bound.input, *bound.output);
        return {SUCCESS, ""};
    }

 private:
    void run(const ITensor& input, ITensor& output) const {
        if (input.dataType() != DataType::Float || output.dataType() != DataType::Float ||
            input.shape().size() != static_cast<int64_t>(layers_.at(0).inputs) ||
            output.shape().size() != static_cast<int64_t>(layers_.back().bias.size())) {
            throw Exception("A tensor is not what the network takes or gives", INVALID_SHAPE);
        }
        const auto* const first = reinterpret_cast<const float*>(input.buffer());
        std::vector<float> values(first, first + input.shape().size());
        for (const Layer& layer : layers_) {
            if (&layer != layers_.data()) {
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
        for (const Layer& layer : layers_) numbers += layer.weights.size() + layer.bias.size();
        if (runtimeRecord() != nullptr) runtimeRecord()->setCurrentMemoryConsumption(numbers * sizeof(float));
    }

    std::vector<Layer> layers_;
};

}  // namespace

std::shared_ptr<MireloModel> makeModel(const std::string& name, const std::shared_ptr<Device>& device) {
    return std::make_shared<DenseModel>(name, device);
}
