#include "manifest_json.h"

#include <TarnoMirelo/kit/targets.h>

#include <algorithm>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

// The types of the metadata's targets by name, as in "CoreML, WinML".
std::string typesOf(const ModelMetadata& metadata) {
    std::vector<std::string> names;
    for (const auto& [type, target] : metadata.getTargets()) names.push_back(ModelTypeToName(type));
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "none at all" : text;
}

// Nothing where the target of the device can be run.
MireloStatus refusalOf(const ModelMetadata& metadata, const Device& device, MireloModelType type) {
    const std::string about = "Device \"" + device.getDeviceName() + "\": ";
    const auto found = metadata.getTargets().find(type);
    if (found == metadata.getTargets().end() || type == MireloModelType::Undefined) {
        return {MODEL_METADATA_ERROR,
                about + "the manifest has no target of type " + ModelTypeToName(type) + ", but " + typesOf(metadata)};
    }
    MireloStatus status = metadata.validate(type);
    if (status.ok() && found->second.components.empty()) {
        status = {MODEL_METADATA_ERROR, "No model component found"};
    }
    if (!status.ok()) {
        status.setDescription(about + "the target of type " + ModelTypeToName(type) +
                              " can't be run: " + status.getDescription());
    }
    return status;
}

MireloModelType typeFor(const ModelMetadata& metadata, MireloModelType type) {
    const bool served = type != MireloModelType::OnnxRuntime || metadata.getTargets().contains(type);
    return served ? type : MireloModelType::WinML;
}

}  // namespace

MireloStatus AllTargetsMetadata::loadInternal(const Filepath& manifest) {
    MireloStatus status = ModelMetadata::loadInternal(manifest);
    Targets targets = getTargets();
    readTargets(manifest, [&](ModelTarget target) {
        const MireloModelType type = target.modelType;
        targets.try_emplace(type, std::move(target));
    });
    if (targets.size() != getTargets().size()) setTargets(targets);
    return status;
}

MireloStatus TargetChoice::status() const {
    if (device != nullptr) return {SUCCESS, ""};
    if (refusals.empty()) return {INVALID_ARGUMENTS, "There is no device to choose a target for"};
    if (refusals.size() == 1) return refusals.front().reason;
    std::string text;
    for (const DeviceRefusal& refusal : refusals) {
        text += (text.empty() ? "" : "; ") + refusal.reason.getDescription();
    }
    return {MODEL_METADATA_ERROR, text};
}

TargetChoice chooseTarget(const ModelMetadata& metadata, const std::vector<std::shared_ptr<Device>>& devices) {
    TargetChoice choice;
    for (const std::shared_ptr<Device>& device : devices) {
        if (device == nullptr) {
            choice.refusals.push_back({nullptr, {INVALID_ARGUMENTS, "A device is null"}});
            continue;
        }
        const MireloModelType type = typeFor(metadata, device->getModelType());
        MireloStatus refusal = refusalOf(metadata, *device, type);
        if (refusal.ok()) {
            choice.device = device;
            choice.type = type;
            break;
        }
        choice.refusals.push_back({device, std::move(refusal)});
    }
    return choice;
}

}  // namespace TarnoMirelo::Kit
