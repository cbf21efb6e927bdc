#include <TarnoMirelo/model.h>

#include <utility>

namespace TarnoMirelo {

Device::Device(std::string name, MireloModelType modelType, DeviceType deviceType, OrtEP ortType, uint64_t luid,
               uint64_t id)
    : name_(std::move(name)), modelType_(modelType), deviceType_(deviceType), ortType_(ortType), luid_(luid), id_(id) {}

Device::~Device() = default;

const std::string& Device::getDeviceName() const { return name_; }
const MireloModelType& Device::getModelType() const { return modelType_; }
void Device::setModelType(const MireloModelType& modelType) { modelType_ = modelType; }
DeviceType Device::getDeviceType() const { return deviceType_; }
void Device::setDeviceType(const DeviceType& deviceType) { deviceType_ = deviceType; }
OrtEP Device::getORTType() const { return ortType_; }
void Device::setORTType(const OrtEP& ortType) { ortType_ = ortType; }
uint64_t Device::getLUID() const { return luid_; }
uint64_t Device::getId() const { return id_; }
uint64_t Device::getDedicatedMemory() const { return dedicatedMemory_; }
void Device::setDedicatedMemory(uint64_t bytes) { dedicatedMemory_ = bytes; }
const std::string& Device::getVendorName() const { return vendorName_; }
void Device::setVendorName(const std::string& vendorName) { vendorName_ = vendorName; }
uint32_t Device::getVendorId() const { return vendorId_; }
void Device::setVendorId(uint32_t vendorId) { vendorId_ = vendorId; }
unsigned int Device::getNumThreads() const { return numThreads_; }

MireloStatus Device::setNumThreads(const unsigned int& numThreads) {
    if (modelType_ != MireloModelType::TFLite) {
        return {INVALID_ARGUMENTS, "Setting number of threads only supported on TFLite"};
    }
    numThreads_ = numThreads;
    return {SUCCESS, ""};
}

DeviceFence::DeviceFence(uint64_t initialValue, bool shared)
    : fenceValue_(std::make_shared<uint64_t>(initialValue)), shared_(shared) {}

DeviceFence::~DeviceFence() = default;

bool DeviceFence::isShared() const { return shared_; }
std::shared_ptr<uint64_t> DeviceFence::getFenceValuePtr() const { return fenceValue_; }
uint64_t DeviceFence::getFenceValue() const { return *fenceValue_; }

MireloStatus DeviceFence::waitForCurrentFenceValue(Device* device, bool flag) const {
    return waitForFenceValue(device, *fenceValue_, flag);
}

MireloStatus DeviceFence::flush(Device* device) {
    const uint64_t value = signalNextFenceValue(device);
    return waitForFenceValue(device, value, false);
}

}  // namespace TarnoMirelo
