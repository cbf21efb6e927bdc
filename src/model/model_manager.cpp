#include <TarnoMirelo/model.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace TarnoMirelo {
namespace {

constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

MireloStatus nullModel() { return {INVALID_ARGUMENTS, "The model must not be null"}; }

}  // namespace

ModelRuntimeStatus::ModelRuntimeStatus(uint64_t maxAllowedMemoryConsumption, std::shared_ptr<MireloModel> model)
    : maxAllowedMemoryConsumption_(maxAllowedMemoryConsumption), model_(std::move(model)) {}

const std::shared_ptr<MireloModel>& ModelRuntimeStatus::getModel() const { return model_; }
uint64_t ModelRuntimeStatus::getCurrentMemoryConsumption() const { return currentMemoryConsumption_.get(); }

MireloStatus ModelRuntimeStatus::setCurrentMemoryConsumption(uint64_t bytes) {
    if (bytes >= maxAllowedMemoryConsumption_) return {SUCCESS, ""};
    MireloStatus status(MEMORY_CONSUMPTION_ERROR, "Current Memory consumption = " + std::to_string(bytes));
    currentMemoryConsumption_.set(bytes);
    return status;
}

MireloStatus ModelRuntimeStatus::addCurrentMemoryConsumption(uint64_t bytes) {
    return setCurrentMemoryConsumption(currentMemoryConsumption_.get() + bytes);
}

MireloStatus ModelRuntimeStatus::removeCurrentMemoryConsumption(uint64_t bytes) {
    return setCurrentMemoryConsumption(currentMemoryConsumption_.get() - bytes);
}

MireloStatus ModelRuntimeStatus::setMaxAllowedMemoryConsumption(uint64_t bytes) {
    maxAllowedMemoryConsumption_ = bytes;
    return {SUCCESS, ""};
}

RuntimeStatus::RuntimeStatus(std::vector<std::shared_ptr<MireloModel>> models) : maxAllowedTotalMemory_(kNoLimit) {
    statuses_.reserve(models.size());
    for (const auto& model : models) {
        if (model == nullptr) throw InvalidOperationException("The model is not registered");
        statuses_.push_back(model->getRuntimeStatus());
    }
    loadedModels_ = std::move(models);
}

std::vector<std::shared_ptr<MireloModel>> RuntimeStatus::getLoadedModels() { return loadedModels_; }
std::vector<ModelRuntimeStatus> RuntimeStatus::getModelsRuntimeStatus() { return statuses_; }

ModelRuntimeStatus RuntimeStatus::getModelRuntimeStatus(std::shared_ptr<MireloModel> model) {
    const auto found = std::find_if(statuses_.begin(), statuses_.end(),
                                    [&](const ModelRuntimeStatus& status) { return status.getModel() == model; });
    if (found == statuses_.end()) throw Exception("model not found - this should not occur");
    return *found;
}

uint64_t RuntimeStatus::getTotalMemoryConsumption() {
    uint64_t total = 0;
    for (const ModelRuntimeStatus& status : statuses_) total += status.getCurrentMemoryConsumption();
    return total;
}

// NOLINTNEXTLINE(readability-make-member-function-const): const would change the symbol that hosts link to
uint64_t RuntimeStatus::getMaxAllowedTotalMemory() { return maxAllowedTotalMemory_; }

ModelManager::ModelManager() = default;
ModelManager::~ModelManager() = default;

MireloStatus ModelManager::registerModel(const std::shared_ptr<MireloModel>& model) {
    // The argument may lie in the very record that is released here. NOLINTNEXTLINE(*-unnecessary-copy-initialization)
    const std::shared_ptr<MireloModel> held = model;
    if (held == nullptr) return nullModel();
    const auto record = std::make_shared<ModelRuntimeStatus>(kNoLimit, held);
    models_.push_back(held);
    held->setRuntimeStatus(record);
    return {SUCCESS, ""};
}

MireloStatus ModelManager::unloadModel(const std::shared_ptr<MireloModel>& model) {
    // As above. NOLINTNEXTLINE(*-unnecessary-copy-initialization)
    const std::shared_ptr<MireloModel> held = model;
    if (held == nullptr) return nullModel();
    MireloStatus status = held->doUnload();
    if (!status.ok()) return status;
    if (std::count(models_.begin(), models_.end(), held) != 1) {
        status = {MODEL_REFERENCE_ERROR, "Could not remove model from references"};
    }
    std::erase(models_, held);
    held->setRuntimeStatus(nullptr);
    return status;
}

RuntimeStatus ModelManager::getRuntimeStatus() { return RuntimeStatus(models_); }

}  // namespace TarnoMirelo
