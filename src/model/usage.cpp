#include "model/usage.h"

namespace TarnoMirelo {
namespace {

// Never destroyed, both of them: a host's static object may still read its statuses when the process ends.
const std::string& sdkName() {
    static const auto& name = *new std::string("MireloOnDevice");
    return name;
}

const std::string& versionText() {
    static const auto& version =
        *new std::string(std::to_string(SDK_CORE_VERSION_MAJOR) + "." + std::to_string(SDK_CORE_VERSION_MINOR) + "." +
                         std::to_string(SDK_CORE_VERSION_PATCH));
    return version;
}

}  // namespace

std::string getLibraryVersion() { return versionText(); }

void UsageReporting::addUsageProperties(MireloStatus& status, const char* method, MireloModelType modelType,
                                        const std::shared_ptr<const std::string>& modelName) {
    MireloStatus::UsageStamp& stamp = status.usage_;
    // Stamped before, with the same keys: the first value wins.
    if (stamp.write != nullptr && stamp.modelName != nullptr) return;
    stamp.method = method;
    stamp.code = status.getCode();
    stamp.modelType = modelType;
    stamp.modelName = modelName;
    stamp.write = &write;
}

void UsageReporting::write(const MireloStatus::UsageStamp& stamp, MireloStatus::PropertyMap& properties) {
    properties.emplace("mireloondevice.sdkName", sdkName());
    properties.emplace("mireloondevice.version", versionText());
    properties.emplace("mireloondevice.method", stamp.method);
    properties.emplace("mireloondevice.status", std::to_string(stamp.code));
    properties.emplace("mireloondevice.modelType", ModelTypeToName(stamp.modelType));
    properties.emplace("mireloondevice.modelName", *stamp.modelName);
}

}  // namespace TarnoMirelo
