#include <TarnoMirelo/TarnoMirelo.h>

#include <algorithm>

using namespace TarnoMirelo;

// A backend whose engine is one line: each element of the output is twice that of the input.
class Doubler : public MireloModel {
 public:
    using MireloModel::MireloModel;

 protected:
    MireloStatus onLoad(const std::vector<ModelComponent>& /*components*/) override { return {SUCCESS, ""}; }
    MireloStatus onUnload() override { return {SUCCESS, ""}; }
    MireloStatus onSetBatchSize(const unsigned int& /*rows*/) override { return {NOT_IMPLEMENTED, ""}; }
    MireloStatus onPredictBatch(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override {
        return {NOT_IMPLEMENTED, "One row at a time"};
    }
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override {
        const std::shared_ptr<const ITensor> input = inputs.at(0)->asTensor();
        if (input->dataType() != DataType::Float) return {INVALID_TENSOR_DATA_TYPE, "Input x takes floats"};
        const auto output = std::make_shared<Tensor>(DataType::Float, input->shape());
        const auto* const x = reinterpret_cast<const float*>(input->buffer());
        auto* const y = reinterpret_cast<float*>(output->buffer());
        std::transform(x, x + input->shape().size(), y, [](float element) { return 2 * element; });
        outputs = {std::make_shared<MireloFeatureTensor>(getModelTarget().outputs.at(0), output)};
        return {SUCCESS, ""};
    }
};
