#include "cryptography.h"

#include <TarnoMirelo/status.h>

#include <new>
#include <string>

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
// The second header needs the first.
// clang-format off
#include <windows.h>
#include <bcrypt.h>
// clang-format on

namespace TarnoMirelo::Kit::Cryptography {
namespace {

constexpr auto kNoMemory = static_cast<NTSTATUS>(0xC0000017);     // STATUS_NO_MEMORY
constexpr auto kTagMismatch = static_cast<NTSTATUS>(0xC000A002);  // STATUS_AUTH_TAG_MISMATCH

void require(NTSTATUS status, const char* call) {
    if (BCRYPT_SUCCESS(status)) return;
    if (status == kNoMemory) throw std::bad_alloc();
    throw Exception(std::string("The system's cryptography failed: ") + call);
}

// The system's functions only read what they take as input.
PUCHAR bytesAt(const void* data) { return static_cast<PUCHAR>(const_cast<void*>(data)); }

class Algorithm {
 public:
    explicit Algorithm(const wchar_t* name, ULONG flags = 0) {
        require(::BCryptOpenAlgorithmProvider(&handle_, name, nullptr, flags), "BCryptOpenAlgorithmProvider");
    }
    Algorithm(const Algorithm&) = delete;
    Algorithm& operator=(const Algorithm&) = delete;
    ~Algorithm() { ::BCryptCloseAlgorithmProvider(handle_, 0); }

    BCRYPT_ALG_HANDLE get() const { return handle_; }

 private:
    BCRYPT_ALG_HANDLE handle_ = nullptr;
};

class Hash {
 public:
    Hash(const Algorithm& algorithm, const void* key, size_t keySize) {
        require(::BCryptCreateHash(algorithm.get(), &handle_, nullptr, 0, bytesAt(key), static_cast<ULONG>(keySize), 0),
                "BCryptCreateHash");
    }
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;
    ~Hash() { ::BCryptDestroyHash(handle_); }

    void update(const void* data, size_t size) {
        constexpr size_t kMost = 1 << 30;  // the system counts in 32 bits
        for (const auto* next = static_cast<const char*>(data); size > 0;) {
            const size_t length = size < kMost ? size : kMost;
            require(::BCryptHashData(handle_, bytesAt(next), static_cast<ULONG>(length), 0), "BCryptHashData");
            next += length;
            size -= length;
        }
    }
    Digest finish() {
        Digest digest;
        require(::BCryptFinishHash(handle_, digest.data(), ULONG{kDigestSize}, 0), "BCryptFinishHash");
        return digest;
    }

 private:
    BCRYPT_HASH_HANDLE handle_ = nullptr;
};

}  // namespace

struct Sha256::State {
    Algorithm algorithm{BCRYPT_SHA256_ALGORITHM};
    Hash hash{algorithm, nullptr, 0};
};

Sha256::Sha256() : state_(std::make_unique<State>()) {}
Sha256::~Sha256() = default;
void Sha256::update(const void* data, size_t size) { state_->hash.update(data, size); }
Digest Sha256::finish() { return state_->hash.finish(); }

Digest hmacSha256(const void* key, size_t keySize, const void* data, size_t size) {
    const Algorithm algorithm(BCRYPT_SHA256_ALGORITHM, BCRYPT_ALG_HANDLE_HMAC_FLAG);
    Hash hash(algorithm, key, keySize);
    hash.update(data, size);
    return hash.finish();
}

struct AesGcm::State {
    Algorithm algorithm{BCRYPT_AES_ALGORITHM};
    BCRYPT_KEY_HANDLE key = nullptr;

    explicit State(const Key& bytes) {
        require(::BCryptSetProperty(algorithm.get(), BCRYPT_CHAINING_MODE, bytesAt(BCRYPT_CHAIN_MODE_GCM),
                                    sizeof(BCRYPT_CHAIN_MODE_GCM), 0),
                "BCryptSetProperty");
        require(
            ::BCryptGenerateSymmetricKey(algorithm.get(), &key, nullptr, 0, bytesAt(bytes.data()), ULONG{kKeySize}, 0),
            "BCryptGenerateSymmetricKey");
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { ::BCryptDestroyKey(key); }
};

namespace {

BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO infoOf(const Nonce& nonce, const void* associated, size_t associatedSize,
                                             const void* tag) {
    BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info;
    BCRYPT_INIT_AUTH_MODE_INFO(info);
    info.pbNonce = bytesAt(nonce.data());
    info.cbNonce = ULONG{kNonceSize};
    info.pbAuthData = bytesAt(associated);
    info.cbAuthData = static_cast<ULONG>(associatedSize);
    info.pbTag = bytesAt(tag);
    info.cbTag = ULONG{kTagSize};
    return info;
}

}  // namespace

AesGcm::AesGcm(const Key& key) : state_(std::make_unique<State>(key)) {}
AesGcm::~AesGcm() = default;

void AesGcm::seal(const Nonce& nonce, const void* associated, size_t associatedSize, const void* plain, size_t size,
                  uint8_t* out) {
    BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info = infoOf(nonce, associated, associatedSize, out + size);
    const auto length = static_cast<ULONG>(size);
    ULONG written = 0;
    require(::BCryptEncrypt(state_->key, bytesAt(plain), length, &info, nullptr, 0, out, length, &written, 0),
            "BCryptEncrypt");
}

bool AesGcm::open(const Nonce& nonce, const void* associated, size_t associatedSize, const uint8_t* sealed, size_t size,
                  void* out) {
    BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO info = infoOf(nonce, associated, associatedSize, sealed + size);
    const auto length = static_cast<ULONG>(size);
    ULONG written = 0;
    uint8_t nothing = 0;  // a null pointer would only ask for the length, and the tag would not be looked at
    const NTSTATUS status = ::BCryptDecrypt(state_->key, bytesAt(sealed), length, &info, nullptr, 0,
                                            size == 0 ? &nothing : static_cast<PUCHAR>(out), length, &written, 0);
    if (status == kTagMismatch) return false;
    require(status, "BCryptDecrypt");
    return true;
}

void randomBytes(void* data, size_t size) {
    require(::BCryptGenRandom(nullptr, static_cast<PUCHAR>(data), static_cast<ULONG>(size),
                              BCRYPT_USE_SYSTEM_PREFERRED_RNG),
            "BCryptGenRandom");
}

void wipe(void* data, size_t size) noexcept { ::SecureZeroMemory(data, size); }

}  // namespace TarnoMirelo::Kit::Cryptography
