#include "affine_model.h"

#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/bindings.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/texts.h>

#include <string>
#include <utility>

using namespace TarnoMirelo;

namespace {

MireloStatus success() { return {SUCCESS, ""}; }
MireloStatus notLoaded() { return {INVALID_OPERATION, "The model is not loaded"}; }

MireloStatus refuse(const ModelComponent& component, const std::string& text) {
    return {MODEL_METADATA_ERROR, "Component \"" + component.name + "\": " + text};
}

// The engine computes floats, needs every input, and takes all tensors in one shape.
MireloStatus checkManifest(const Kit::Ports& ports, const TensorShape& shape) {
    for (size_t i = 0; i < ports.size(); ++i) {
        const Kit::Ports::Port& port = ports[i];
        std::string wrong;
        if (port.dataType != DataType::Float) {
            wrong = "the element type is " + Kit::toText(port.dataType) + ", wanted is float";
        } else if (port.shape != shape) {
            wrong = "the shape is " + Kit::toText(port.shape) + ", wanted is " + Kit::toText(shape);
        } else if (!port.required) {
            wrong = "it is optional, wanted is a required one";
        }
        if (!wrong.empty()) return {MODEL_METADATA_ERROR, ports.about(i, wrong)};
    }
    return success();
}

}  // namespace

MireloStatus AffineModel::onLoad(const std::vector<ModelComponent>& components) {
    loaded_.reset();  // if this load fails, the model of the last one is gone
    MireloStatus status;
    try {
        status = read(components);
    } catch (...) {
        status = getStatusFromCurrentException();
    }
    reportMemory();
    return status;
}

MireloStatus AffineModel::read(const std::vector<ModelComponent>& components) {
    const ModelComponent& component = components.front();
    if (components.size() != 1) return refuse(component, "there are others, wanted is one component");
    Kit::ComponentBytes bytes;
    MireloStatus status = Kit::readComponent(component, getRootDir(), bytes);
    if (!status.ok()) return status;
    auto network = AffineEngine::Network::parse(std::string(bytes.data(), bytes.data() + bytes.size()));
    if (!network) return refuse(component, "it is no affine network");

    const Kit::InputPorts inputs(getModelTarget());
    const Kit::OutputPorts outputs(getModelTarget());
    if (network->inputs() != inputs.size() || network->outputs() != outputs.size()) {
        return refuse(component, "the network has " + std::to_string(network->inputs()) + " inputs and " +
                                     std::to_string(network->outputs()) + " outputs, the manifest " +
                                     std::to_string(inputs.size()) + " and " + std::to_string(outputs.size()));
    }
    status = checkManifest(inputs, inputs[0].shape);
    if (status.ok()) status = checkManifest(outputs, inputs[0].shape);
    if (status.ok()) loaded_ = std::make_shared<const Loaded>(Loaded{std::move(*network), inputs, outputs});
    return status;
}

MireloStatus AffineModel::onUnload() {
    loaded_.reset();
    reportMemory();
    return success();
}

MireloStatus AffineModel::onSetBatchSize(const unsigned int& /*rows*/) {
    return {NOT_IMPLEMENTED, "This backend takes one row in a tensor"};
}

MireloStatus AffineModel::onPredict(const Inputs& inputs, Outputs& outputs) const {
    if (loaded_ == nullptr) return notLoaded();
    try {
        return run(inputs, outputs, 1);
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

MireloStatus AffineModel::onPredictBatch(const Inputs& inputs, Outputs& outputs) const {
    if (loaded_ == nullptr) return notLoaded();
    const auto runRows = [this](const Inputs& rowInputs, Outputs& rowOutputs, int64_t rows) {
        return run(rowInputs, rowOutputs, rows);
    };
    try {
        return Kit::runBatch(loaded_->inputs, loaded_->outputs, inputs, outputs, Kit::Stacking::Never, runRows);
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

// Checks everything, and changes nothing of the host's but the shapes of outputs that are open.
MireloStatus AffineModel::prepare(const Inputs& inputs, const Outputs& outputs, int64_t rows, Tensors& tensors) const {
    Kit::InputTensors& x = tensors.inputs;
    MireloStatus status = loaded_->inputs.arrange(inputs, rows, x);
    if (!status.ok()) return status;
    const TensorShape& shape = x[0]->shape();
    for (size_t i = 1; i < x.size(); ++i) {  // the manifest leaves variable dimensions open
        if (x[i]->shape() == shape) continue;
        const std::string found = Kit::toText(x[i]->shape());
        const std::string wrong = "the shape is " + found + ", wanted is " + Kit::toText(shape);
        return {INVALID_SHAPE, loaded_->inputs.about(i, wrong)};
    }
    const std::vector<Kit::Result> results(loaded_->outputs.size(), {DataType::Float, shape});
    return Kit::prepareOutputs(loaded_->inputs, x, loaded_->outputs, results, outputs, rows, tensors.outputs);
}

void AffineModel::compute(const Loaded& loaded, const Tensors& tensors) {
    std::vector<const float*> from;
    for (const auto& tensor : tensors.inputs) from.push_back(reinterpret_cast<const float*>(tensor->buffer()));
    std::vector<float*> to;
    for (const auto& tensor : tensors.outputs.tensors) {
        to.push_back(tensor == nullptr ? nullptr : reinterpret_cast<float*>(tensor->buffer()));
    }
    loaded.network.run(from, to, static_cast<size_t>(tensors.inputs[0]->shape().size()));
}

MireloStatus AffineModel::run(const Inputs& inputs, Outputs& outputs, int64_t rows) const {
    Tensors tensors;
    MireloStatus status = prepare(inputs, outputs, rows, tensors);
    if (!status.ok()) return status;
    compute(*loaded_, tensors);
    outputs = std::move(tensors.outputs.features);
    reportMemory();
    return success();
}

// What an evaluation uses, whatever the host does to its list of features meanwhile.
struct AffineModel::Binding : MireloBinding {
    std::shared_ptr<const Loaded> loaded;
    Tensors tensors;
    Kit::BoundTensors bound;
};

MireloStatus AffineModel::onBind(const Inputs& inputs, Outputs& outputs,
                                 std::shared_ptr<MireloBinding>& binding) const {
    if (loaded_ == nullptr) return notLoaded();
    try {
        auto own = std::make_unique<Binding>();
        own->loaded = loaded_;
        MireloStatus status = prepare(inputs, outputs, 1, own->tensors);
        if (!status.ok()) return status;
        for (const auto& tensor : own->tensors.inputs) own->bound.add(tensor);
        for (const auto& tensor : own->tensors.outputs.tensors) own->bound.add(tensor);
        Outputs features = own->tensors.outputs.features;
        auto made = Kit::handOut(std::move(own));
        reportMemory();
        outputs = std::move(features);
        binding = std::move(made);
        return success();
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

MireloStatus AffineModel::onEvaluate(std::shared_ptr<MireloBinding>& binding) const {
    if (loaded_ == nullptr) return notLoaded();
    const Binding* const own = Kit::ownBinding<Binding>(binding);
    if (own == nullptr || own->loaded != loaded_) {
        return {INVALID_OPERATION, "Wanted is a binding that this model has made since it was loaded"};
    }
    if (!own->bound.areInPlace()) {
        return {INVALID_OPERATION, "A bound tensor has another buffer or shape: bind it again"};
    }
    try {
        compute(*loaded_, own->tensors);
        reportMemory();
        return success();
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

void AffineModel::reportMemory() const {
    const std::lock_guard<std::mutex> lock(reporterMutex_);
    reporter_.report(runtimeRecord(), loaded_ == nullptr ? 0 : loaded_->network.bytes());
}
