#pragma once

/// @file
/// Manifests with targets for several backends, and the choice among them.

#include <TarnoMirelo/model.h>

#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

/// A manifest whose targets are read for every key of `TargetKey`, by the same rules as the one that the core reads.
/// It is used as `ModelMetadata` is, and what is not said here is as there.
class AllTargetsMetadata : public ModelMetadata {
 public:
    AllTargetsMetadata() = default;

 protected:
    /// As `ModelMetadata::loadInternal`, and adds the targets of the other keys, each unless there is one of its type
    /// already; all of them or, where it raises, none. The file is read a second time for that.
    MireloStatus loadInternal(const Filepath& manifest) override;
};

/// Why a device was not chosen.
struct DeviceRefusal {
    std::shared_ptr<Device> device;  ///< null where the list had a null pointer
    MireloStatus reason;             ///< its description names the device
};

/// What `chooseTarget` found.
struct TargetChoice {
    std::shared_ptr<Device> device;  ///< null where no device has a target that can be run
    /// What to ask the metadata's `getModelCompoents` for.
    MireloModelType type = MireloModelType::Undefined;
    /// Of the devices before the chosen one, in their order.
    std::vector<DeviceRefusal> refusals;

    /// `SUCCESS`; the only refusal; or `MODEL_METADATA_ERROR` with the texts of all refusals. `INVALID_ARGUMENTS` for
    /// an empty list of devices.
    MireloStatus status() const;
};

/// The first device whose target can be run: there is one of the device's model type, `validate` takes it, and it has
/// components. For a device of type `OnnxRuntime` the target of type `WinML` serves, which holds ONNX networks.
/// Changes nothing.
/// @param devices  in the order of preference
TargetChoice chooseTarget(const ModelMetadata& metadata, const std::vector<std::shared_ptr<Device>>& devices);

}  // namespace TarnoMirelo::Kit
