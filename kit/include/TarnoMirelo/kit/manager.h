#pragma once

/// @file
/// Models that are in service for as long as an object lives.

#include <TarnoMirelo/model.h>

#include <memory>

namespace TarnoMirelo::Kit {

/// A model that is registered on construction and unloaded on destruction, so that no way out of a host's function
/// leaves it behind: a registered model and its record keep each other alive until the manager unloads it.
///
/// Not locked, like the manager, which outlives this object.
class ScopedModel {
 public:
    /// Registers the model, whether it is loaded or not. What the manager raises passes through.
    /// @param model  null is refused as the manager does; there is nothing to unload then
    ScopedModel(ModelManager& manager, std::shared_ptr<MireloModel> model);
    /// Takes the model over: it stays registered, and `other` has none.
    ScopedModel(ScopedModel&& other) noexcept;
    /// Unloads the model of this object as the destructor does, then takes the other one over. Nobody learns what came
    /// of that unload unless `lastStatus` was taken before.
    ScopedModel& operator=(ScopedModel&& other) noexcept;
    ScopedModel(const ScopedModel&) = delete;
    ScopedModel& operator=(const ScopedModel&) = delete;
    /// As `unload`, unless it has succeeded already. Raises nothing: `lastStatus` says what came of it.
    ~ScopedModel();

    /// The model; null after it was unloaded or moved away.
    const std::shared_ptr<MireloModel>& model() const { return model_; }
    /// The model, of which there must be one.
    MireloModel& operator*() const { return *model_; }
    /// The model; null where there is none.
    MireloModel* operator->() const { return model_.get(); }

    /// Unloads the model now. A model that refuses stays registered, and the next call asks it again.
    /// @return as `ModelManager::unloadModel`; what the backend raises, as a status; `SUCCESS` when there is no model
    MireloStatus unload();
    /// The status of the registration or of the last unload; null once this object was moved from. It is shared: take
    /// it before the destruction to know what came of that.
    std::shared_ptr<const MireloStatus> lastStatus() const { return status_; }

 private:
    void unloadQuietly() noexcept;

    ModelManager* manager_;
    std::shared_ptr<MireloModel> model_;
    std::shared_ptr<MireloStatus> status_;
};

}  // namespace TarnoMirelo::Kit
