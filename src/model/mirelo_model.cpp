#include "model/usage.h"

#include <TarnoMirelo/model.h>

#include <iostream>
#include <utility>

namespace TarnoMirelo {
namespace {

template <typename DevicePointer>
const Device& present(const DevicePointer& device) {
    if (device == nullptr) throw InvalidArgumentsException("The device must not be null");
    return *device;
}

std::shared_ptr<MireloFeature> allocateInput(const ModelFeatureDescriptor& descriptor) {
    switch (descriptor.type()) {
        case MireloFeatureType::Tensor:
            return std::make_shared<MireloFeatureTensor>(descriptor);
        case MireloFeatureType::Double:
            throw InvalidTypeException(
                "Unsupported feature type for ModelFeatureDescriptor.  Please quantize your model to float32/16");
        case MireloFeatureType::Bool:
        case MireloFeatureType::UInt8:
        case MireloFeatureType::Int32:
        case MireloFeatureType::Int64:
        case MireloFeatureType::String:
            throw InvalidTypeException("Unsupported feature type for ModelFeatureDescriptor");
        case MireloFeatureType::Image:
        case MireloFeatureType::Undefined:
            break;
    }
    throw InvalidTypeException("Undefined feature type for allocating inputs");
}

[[noreturn]] void refuseBinding() { throw Exception("Not implemented on current selected backend.", NOT_IMPLEMENTED); }

}  // namespace

MireloModel::MireloBinding::MireloBinding() = default;
MireloModel::MireloBinding::~MireloBinding() = default;

MireloModel::MireloModel(const std::string& name, Device* device) : MireloModel(name, device, ModelTarget()) {}

MireloModel::MireloModel(const std::string& name, Device* device, ModelTarget target)
    : MireloModel(name, present(device).getModelType(), std::move(target)) {
    rawDevice_ = device;
}

MireloModel::MireloModel(const std::string& name, std::shared_ptr<Device> device)
    : MireloModel(name, std::move(device), ModelTarget()) {}

MireloModel::MireloModel(const std::string& name, std::shared_ptr<Device> device, ModelTarget target)
    : MireloModel(name, present(device).getModelType(), std::move(target)) {
    device_ = std::move(device);
}

MireloModel::MireloModel(const std::string& name, MireloModelType type) : MireloModel(name, type, ModelTarget()) {}

MireloModel::MireloModel(const std::string& name, MireloModelType type, ModelTarget target)
    : name_(std::make_shared<const std::string>(name)), modelType_(type), target_(std::move(target)) {}

MireloModel::~MireloModel() = default;

const std::string& MireloModel::getName() const { return *name_; }

MireloStatus MireloModel::onBind(const Inputs& /*inputs*/, Outputs& /*outputs*/,
                                 std::shared_ptr<MireloBinding>& /*binding*/) const {
    refuseBinding();
}

MireloStatus MireloModel::onEvaluate(std::shared_ptr<MireloBinding>& /*binding*/) const { refuseBinding(); }

MireloCacheStatus MireloModel::onQueryCacheStatus(const Components& components) {
    static FileUtils files;
    if (!files.pathExists(std::get<Filepath>(components))) {
        std::cerr << "The model directory does not exist" << std::endl;
    }
    return MireloCacheStatus::NotCached;
}

bool MireloModel::isLoaded() const { return loaded_; }

void MireloModel::setCachedModelFilePath(std::optional<Filepath> path) { cachedModelFilePath_ = std::move(path); }

const std::shared_ptr<ModelRuntimeStatus>& MireloModel::runtimeRecord() const { return runtimeStatus_; }

MireloStatus MireloModel::load(const Components& components) {
    Components adopted = components;  // if the copy raises, the model is as before
    std::tie(modelType_, target_, rootDir_) = std::move(adopted);
    MireloStatus status;
    if (target_.components.empty()) {
        status.setCode(MODEL_METADATA_ERROR);
        status.setDescription("No model component found");
    } else {
        status = onLoad(target_.components);
        loaded_ = status.ok() || status.warn();
    }
    UsageReporting::addUsageProperties(status, "LOAD", modelType_, name_);
    return status;
}

MireloCacheStatus MireloModel::queryCacheStatus(const Components& components) { return onQueryCacheStatus(components); }

std::optional<Filepath> MireloModel::getCachedModelFilePath() const { return cachedModelFilePath_; }

MireloStatus MireloModel::setBatchSize(const unsigned int& batchSize) { return onSetBatchSize(batchSize); }

MireloStatus MireloModel::allocateInputs(std::vector<std::shared_ptr<MireloFeature>>& inputs) {
    try {
        inputs.reserve(target_.inputs.size());
        for (const ModelFeatureDescriptor& descriptor : target_.inputs) inputs.push_back(allocateInput(descriptor));
        return {SUCCESS, ""};
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

MireloStatus MireloModel::bind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const {
    return onBind(inputs, outputs, binding);
}

MireloStatus MireloModel::evaluate(std::shared_ptr<MireloBinding>& binding) const {
    MireloStatus status = onEvaluate(binding);
    UsageReporting::addUsageProperties(status, "PREDICT", modelType_, name_);
    return status;
}

MireloStatus MireloModel::predict(const Inputs& inputs, Outputs& outputs) const {
    MireloStatus status = onPredict(inputs, outputs);
    UsageReporting::addUsageProperties(status, "PREDICT", modelType_, name_);
    return status;
}

MireloStatus MireloModel::predictBatch(const Inputs& inputs, Outputs& outputs) const {
    return onPredictBatch(inputs, outputs);
}

MireloStatus MireloModel::doUnload() {
    MireloStatus status = onUnload();
    UsageReporting::addUsageProperties(status, "UNLOAD", modelType_, name_);
    return status;
}

const MireloModelType& MireloModel::getModelType() const { return modelType_; }
const ModelTarget& MireloModel::getModelTarget() const { return target_; }
const Filepath& MireloModel::getRootDir() const { return rootDir_; }
// NOLINTNEXTLINE(readability-const-return-type): part of the symbol's type that hosts were built against
const std::shared_ptr<Device> MireloModel::getDevice() const { return device_; }
Device* MireloModel::getDeviceRawPointer() const { return rawDevice_; }

const ModelRuntimeStatus& MireloModel::getRuntimeStatus() const {
    if (runtimeStatus_ == nullptr) throw InvalidOperationException("The model is not registered");
    return *runtimeStatus_;
}

void MireloModel::setRuntimeStatus(const std::shared_ptr<ModelRuntimeStatus>& runtimeStatus) {
    // The old record is released last: it may be the last owner of this model.
    std::shared_ptr<ModelRuntimeStatus> other = runtimeStatus;
    runtimeStatus_.swap(other);
}

}  // namespace TarnoMirelo
