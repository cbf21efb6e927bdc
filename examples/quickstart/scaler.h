#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/outputs.h>

#include <optional>

using namespace TarnoMirelo;

// A backend whose engine multiplies each element with a weight, a byte of its component. All else is the kit's.
class Scaler : public MireloModel {
 public:
    using MireloModel::MireloModel;

 protected:
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override try {
        weights_.clear();
        Kit::ComponentBytes bytes;
        MireloStatus status = Kit::readComponent(components.front(), getRootDir(), bytes);
        if (status.ok()) status = prepare(components.front(), bytes);
        reporter_.report(runtimeRecord(), weights_.size());
        return status;
    } catch (...) {
        return getStatusFromCurrentException();
    }
    MireloStatus onUnload() override {
        weights_.clear();
        reporter_.report(runtimeRecord(), 0);
        return {SUCCESS, ""};
    }
    MireloStatus onSetBatchSize(const unsigned int& /*rows*/) override {
        return {NOT_IMPLEMENTED, "Rows go through predictBatch alone"};
    }
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override { return run(inputs, outputs, 1); }
    MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const override {
        if (weights_.empty()) return notLoaded();
        const auto runRows = [this](const Inputs& rowInputs, Outputs& rowOutputs, int64_t rows) {
            return run(rowInputs, rowOutputs, rows);
        };
        return Kit::runBatch(*inputs_, *outputs_, inputs, outputs, Kit::Stacking::Promised, runRows);
    }

 private:
    static MireloStatus notLoaded() { return {INVALID_OPERATION, "The model is not loaded"}; }

    MireloStatus prepare(const ModelComponent& component, const Kit::ComponentBytes& bytes) {
        inputs_.emplace(getModelTarget());
        outputs_.emplace(getModelTarget());
        const Kit::Ports::Port& input = (*inputs_)[0];
        if (inputs_->size() > 1 || !input.required || input.dataType != DataType::Float ||
            input.shape.size() != static_cast<int64_t>(bytes.size())) {
            return {MODEL_METADATA_ERROR, "Component \"" + component.name +
                                              "\": wanted is a byte for each element of one required input of floats"};
        }
        weights_.assign(bytes.data(), bytes.data() + bytes.size());
        return {SUCCESS, ""};
    }

    MireloStatus run(const Inputs& inputs, Outputs& outputs, int64_t rows) const {
        if (weights_.empty()) return notLoaded();
        Kit::InputTensors x;
        MireloStatus status = inputs_->arrange(inputs, rows, x);
        if (!status.ok()) return status;
        const Kit::Result result{DataType::Float, x[0]->shape()};
        Kit::PreparedOutputs y;
        status = Kit::prepareOutputs(*inputs_, x, *outputs_, {result}, outputs, rows, y);
        if (!status.ok()) return status;
        const auto* const from = reinterpret_cast<const float*>(x[0]->buffer());
        auto* const to = reinterpret_cast<float*>(y.tensors[0]->buffer());
        const auto count = static_cast<size_t>(result.shape.size());
        for (size_t i = 0; i < count; ++i) to[i] = from[i] * static_cast<float>(weights_[i % weights_.size()]);
        outputs = std::move(y.features);
        reporter_.report(runtimeRecord(), weights_.size());
        return status;
    }

    std::vector<uint8_t> weights_;  // of the loaded component; empty while there is none
    std::optional<Kit::InputPorts> inputs_;
    std::optional<Kit::OutputPorts> outputs_;
    mutable Kit::MemoryReporter reporter_;
};
