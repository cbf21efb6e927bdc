#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

/// The system's cryptography: OpenSSL's libcrypto, on Windows CNG. The build picks the file behind this header; no
/// cipher and no hash is written here.
///
/// Where the system refuses what every system has, the functions raise `Exception` with `UNKNOWN_ERROR` and the name of
/// the call, and `std::bad_alloc` where memory is what it lacks. Objects are used by one thread at a time.
namespace TarnoMirelo::Kit::Cryptography {

inline constexpr size_t kKeySize = 16;
inline constexpr size_t kNonceSize = 12;
inline constexpr size_t kTagSize = 16;
inline constexpr size_t kDigestSize = 32;

using Key = std::array<uint8_t, kKeySize>;
using Nonce = std::array<uint8_t, kNonceSize>;
using Digest = std::array<uint8_t, kDigestSize>;

/// SHA-256 (FIPS 180-4) of bytes that come in pieces.
class Sha256 {
 public:
    Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    ~Sha256();

    void update(const void* data, size_t size);
    /// Of all that was given. The last call on this object.
    Digest finish();

 private:
    struct State;
    std::unique_ptr<State> state_;
};

/// HMAC-SHA-256 (RFC 2104). Both sizes are below 2 GiB.
Digest hmacSha256(const void* key, size_t keySize, const void* data, size_t size);

/// AES-128-GCM (NIST SP 800-38D) under one key. A nonce must not seal twice. All sizes are below 2 GiB, and a null
/// pointer goes with size 0.
class AesGcm {
 public:
    explicit AesGcm(const Key& key);
    AesGcm(const AesGcm&) = delete;
    AesGcm& operator=(const AesGcm&) = delete;
    ~AesGcm();

    /// Encrypts, and authenticates the result together with `associated`, which stays as it is.
    /// @param out  `size` bytes of ciphertext and `kTagSize` of the tag behind it; it may not overlap `plain`
    void seal(const Nonce& nonce, const void* associated, size_t associatedSize, const void* plain, size_t size,
              uint8_t* out);
    /// Takes back what `seal` did.
    /// @param sealed  `size` bytes of ciphertext, the tag behind them
    /// @param out     `size` bytes; where the answer is no, they were written to and are to be wiped, not read
    /// @return whether the tag is right
    [[nodiscard]] bool open(const Nonce& nonce, const void* associated, size_t associatedSize, const uint8_t* sealed,
                            size_t size, void* out);

 private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Bytes that nobody can foretell.
void randomBytes(void* data, size_t size);

/// Overwrites with zeros, also where nobody reads the bytes afterwards.
void wipe(void* data, size_t size) noexcept;

}  // namespace TarnoMirelo::Kit::Cryptography
