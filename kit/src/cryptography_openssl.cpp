#include "cryptography.h"

#include <TarnoMirelo/status.h>

#include <new>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <string>

namespace TarnoMirelo::Kit::Cryptography {
namespace {

// Leaves OpenSSL's queue of errors empty, as it was found.
[[noreturn]] void fail(const char* call) {
    const bool noMemory = ERR_GET_REASON(ERR_peek_last_error()) == ERR_R_MALLOC_FAILURE;
    ERR_clear_error();
    if (noMemory) throw std::bad_alloc();
    throw Exception(std::string("The system's cryptography failed: ") + call);
}

void require(int result, const char* call) {
    if (result != 1) fail(call);
}

const unsigned char* bytesAt(const void* data) { return static_cast<const unsigned char*>(data); }

}  // namespace

struct Sha256::State {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context{EVP_MD_CTX_new(), EVP_MD_CTX_free};
};

Sha256::Sha256() : state_(std::make_unique<State>()) {
    if (state_->context == nullptr) throw std::bad_alloc();
    require(EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr), "EVP_DigestInit_ex");
}

Sha256::~Sha256() = default;

void Sha256::update(const void* data, size_t size) {
    require(EVP_DigestUpdate(state_->context.get(), data, size), "EVP_DigestUpdate");
}

Digest Sha256::finish() {
    Digest digest;
    require(EVP_DigestFinal_ex(state_->context.get(), digest.data(), nullptr), "EVP_DigestFinal_ex");
    return digest;
}

Digest hmacSha256(const void* key, size_t keySize, const void* data, size_t size) {
    Digest digest;
    if (HMAC(EVP_sha256(), key, static_cast<int>(keySize), bytesAt(data), size, digest.data(), nullptr) == nullptr) {
        fail("HMAC");
    }
    return digest;
}

struct AesGcm::State {
    // Wipes the key when it is freed.
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context{EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free};

    void begin(const Nonce& nonce, const void* associated, size_t associatedSize, bool sealing) const {
        int length = 0;
        require(EVP_CipherInit_ex(context.get(), nullptr, nullptr, nullptr, nonce.data(), sealing ? 1 : 0),
                "EVP_CipherInit_ex");
        if (associatedSize == 0) return;
        require(
            EVP_CipherUpdate(context.get(), nullptr, &length, bytesAt(associated), static_cast<int>(associatedSize)),
            "EVP_CipherUpdate");
    }
    void run(const void* from, size_t size, void* to) const {
        int length = 0;
        if (size == 0) return;  // OpenSSL takes a call without bytes for the end
        require(EVP_CipherUpdate(context.get(), static_cast<unsigned char*>(to), &length, bytesAt(from),
                                 static_cast<int>(size)),
                "EVP_CipherUpdate");
    }
};

AesGcm::AesGcm(const Key& key) : state_(std::make_unique<State>()) {
    if (state_->context == nullptr) throw std::bad_alloc();
    require(EVP_CipherInit_ex(state_->context.get(), EVP_aes_128_gcm(), nullptr, key.data(), nullptr, 1),
            "EVP_CipherInit_ex");
}

AesGcm::~AesGcm() = default;

void AesGcm::seal(const Nonce& nonce, const void* associated, size_t associatedSize, const void* plain, size_t size,
                  uint8_t* out) {
    uint8_t rest[kTagSize];  // GCM has none
    int length = 0;
    EVP_CIPHER_CTX* const context = state_->context.get();
    state_->begin(nonce, associated, associatedSize, true);
    state_->run(plain, size, out);
    require(EVP_CipherFinal_ex(context, rest, &length), "EVP_CipherFinal_ex");
    require(EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, int{kTagSize}, out + size), "EVP_CTRL_AEAD_GET_TAG");
}

bool AesGcm::open(const Nonce& nonce, const void* associated, size_t associatedSize, const uint8_t* sealed, size_t size,
                  void* out) {
    uint8_t rest[kTagSize];
    int length = 0;
    EVP_CIPHER_CTX* const context = state_->context.get();
    state_->begin(nonce, associated, associatedSize, false);
    state_->run(sealed, size, out);
    auto* const tag = const_cast<uint8_t*>(sealed + size);  // only read
    require(EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, int{kTagSize}, tag), "EVP_CTRL_AEAD_SET_TAG");
    return EVP_CipherFinal_ex(context, rest, &length) == 1;
}

void randomBytes(void* data, size_t size) {
    require(RAND_bytes(static_cast<unsigned char*>(data), static_cast<int>(size)), "RAND_bytes");
}

void wipe(void* data, size_t size) noexcept { OPENSSL_cleanse(data, size); }

}  // namespace TarnoMirelo::Kit::Cryptography
