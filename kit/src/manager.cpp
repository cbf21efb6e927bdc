#include <TarnoMirelo/kit/manager.h>

#include <utility>

namespace TarnoMirelo::Kit {

ScopedModel::ScopedModel(ModelManager& manager, std::shared_ptr<MireloModel> model)
    : manager_(&manager), status_(std::make_shared<MireloStatus>()) {
    *status_ = manager.registerModel(model);
    if (status_->ok()) model_ = std::move(model);
}

ScopedModel::ScopedModel(ScopedModel&& other) noexcept = default;

ScopedModel& ScopedModel::operator=(ScopedModel&& other) noexcept {
    if (this == &other) return *this;
    unloadQuietly();
    manager_ = other.manager_;
    model_ = std::move(other.model_);
    status_ = std::move(other.status_);
    return *this;
}

ScopedModel::~ScopedModel() { unloadQuietly(); }

MireloStatus ScopedModel::unload() {
    if (model_ == nullptr) return {SUCCESS, ""};
    try {
        *status_ = manager_->unloadModel(model_);
    } catch (...) {
        *status_ = getStatusFromCurrentException();
    }
    // A model that the manager did not have once is unloaded all the same.
    if (status_->ok() || status_->getCode() == MODEL_REFERENCE_ERROR) model_.reset();
    return *status_;
}

void ScopedModel::unloadQuietly() noexcept {
    try {
        unload();
    } catch (...) {  // NOLINT(bugprone-empty-catch): no memory for the copy of a status that is kept already
    }
}

}  // namespace TarnoMirelo::Kit
