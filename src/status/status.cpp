#include <TarnoMirelo/status.h>

#include <utility>

namespace TarnoMirelo {

MireloStatus::MireloStatus() = default;

MireloStatus::MireloStatus(STATUS_CODE code, const std::string& description) : code_(code), description_(description) {}

STATUS_CODE MireloStatus::getCode() const { return code_; }

void MireloStatus::setCode(STATUS_CODE code) { code_ = code; }

std::string MireloStatus::getDescription() const { return description_; }

void MireloStatus::setDescription(std::string description) { description_ = std::move(description); }

std::string MireloStatus::getProperty(const std::string& key) const { return getPropertyMap().at(key); }

MireloStatus::PropertyMap MireloStatus::getPropertyMap() const {
    PropertyMap properties = properties_ == nullptr ? PropertyMap() : *properties_;
    if (usage_.modelName != nullptr) usage_.write(usage_, properties);
    return properties;
}

bool MireloStatus::ok() const { return code_ == SUCCESS; }

bool MireloStatus::warn() const { return code_ == WARNING; }

void MireloStatus::setProperty(const std::string& key, const std::string& value) {
    PropertyMap properties = getPropertyMap();  // the keys of a stamp win: it was there first
    properties.emplace(key, value);
    properties_ = std::make_shared<const PropertyMap>(std::move(properties));
    usage_ = UsageStamp();
}

}  // namespace TarnoMirelo
