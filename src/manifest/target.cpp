#include <TarnoMirelo/manifest.h>

#include <algorithm>

namespace TarnoMirelo {

Encryption::Encryption() = default;

Encryption::Encryption(std::array<unsigned char, 16>&& key, PaddingType paddingType)
    : key_(key), paddingType_(paddingType) {}

const unsigned char* Encryption::getKey() const { return key_.data(); }
void Encryption::setKey(const unsigned char* key) { std::copy_n(key, key_.size(), key_.begin()); }
Encryption::PaddingType Encryption::getPaddingType() const { return paddingType_; }
void Encryption::setPaddingType(PaddingType paddingType) { paddingType_ = paddingType; }

void ModelComponent::setCryptoKey(const unsigned char* key) { encryption.setKey(key); }

}  // namespace TarnoMirelo
