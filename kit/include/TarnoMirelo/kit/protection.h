#pragma once

/// @file
/// Protected containers: bytes that are encrypted and authenticated under a key of 16 bytes, as the "secured_" kinds of
/// component hold them. docs/protection.md tells the format, byte by byte, and what it protects against what.
///
/// A key is 16 bytes from a generator for secrets, such as `Encryption::getKey` points to; it is no password. The
/// functions overwrite what they know of it, and their own buffers with plain bytes, before they return.
///
/// The functions keep no state: calls may overlap. They raise nothing but `std::bad_alloc` and what the caller's
/// streams raise. All return
///   - `SUCCESS`
///   - `INVALID_ARGUMENTS`: the key is all zero, which is what a key that was never set is; or the plain bytes are more
///     than `kLargestProtected`
///   - `UNKNOWN_ERROR`: the system's cryptography fails; the description names its call
/// Those that open a container also return
///   - `MODEL_METADATA_ERROR`: the bytes are no container, not all of one, changed anywhere, or of another key. Nothing
///     tells these apart, and one description serves all of them.

#include <TarnoMirelo/files.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

namespace TarnoMirelo::Kit {

/// The most plain bytes that a container holds: 4 PiB.
inline constexpr uint64_t kLargestProtected = uint64_t{1} << 52;

/// Bytes in memory of their own, overwritten with zeros before it is given back.
class SecretBytes {
 public:
    /// No bytes.
    SecretBytes() = default;
    /// So many bytes, of any value. Raises `std::bad_alloc`.
    explicit SecretBytes(uint64_t size);
    /// Takes over memory of the caller's, of `size` bytes.
    SecretBytes(std::unique_ptr<uint8_t[]> bytes, uint64_t size) noexcept;
    /// Takes the bytes over where they are; `other` has none then.
    SecretBytes(SecretBytes&& other) noexcept;
    /// Takes the bytes over; those that were here are overwritten with zeros and released.
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;
    ~SecretBytes();

    /// @{

    /// The first byte; valid as long as the bytes, wherever they are moved.
    uint8_t* data() { return bytes_.get(); }
    const uint8_t* data() const { return bytes_.get(); }
    /// @}

    /// How many bytes there are.
    uint64_t size() const { return size_; }

 private:
    std::unique_ptr<uint8_t[]> bytes_;
    uint64_t size_ = 0;
};

/// Draws a new key from the system's generator for secrets.
/// @param key  out, on success only: 16 bytes
MireloStatus newProtectionKey(unsigned char* key);

/// The size in bytes of a container that holds so many plain bytes.
/// @param size  up to `kLargestProtected`
uint64_t protectedSize(uint64_t size);

/// Makes a container of bytes in memory.
/// @param plain      the first byte; may be null where `size` is 0
/// @param key        16 bytes
/// @param container  `protectedSize(size)` bytes, apart from the plain ones. Two containers of the same bytes differ.
/// On
///                   failure, the bytes are of any value.
MireloStatus protect(const void* plain, uint64_t size, const unsigned char* key, uint8_t* container);

/// As above, into a vector, which fills its bytes with zeros before they are written: that costs a fifth more.
/// @param container  out, on success only
MireloStatus protect(const void* plain, uint64_t size, const unsigned char* key, std::vector<uint8_t>& container);

/// The bytes that a container in memory holds.
/// @param container  the first byte; may be null where `size` is 0
/// @param key        16 bytes
/// @param plain      out, on success only
MireloStatus unprotect(const void* container, uint64_t size, const unsigned char* key, SecretBytes& plain);

/// Makes a container of a file. It gets its name once it is complete: until then it is a file beside it, of that name
/// with ".part" at the end. That one is removed on failure; where the process ends early, it is left. A file of the
/// final name is replaced. On POSIX systems the new one has the permissions of the file that it is made of, as far as
/// the process's mask allows: a private file stays private, as a container and opened again.
/// @return as above, or `FILE_ERROR` with a description that names the path: a file can't be read or written, there is
///         something else than a file, or a path is not UTF-8
MireloStatus protectFile(const Filepath& plain, const unsigned char* key, const Filepath& container);

/// Writes what a container in a file holds, in the way of `protectFile`: a file of the final name is authentic and
/// whole.
/// @return as above
MireloStatus unprotectFile(const Filepath& container, const unsigned char* key, const Filepath& plain);

/// The bytes that a container in a file holds, in memory: no more than them and four MiB is needed at any time. A file
/// that is no container of that key takes four MiB, whatever its size.
/// @param plain  out, on success only
/// @return as `unprotectFile`
MireloStatus unprotectFile(const Filepath& container, const unsigned char* key, SecretBytes& plain);

/// Makes a container of all that a stream gives. Both streams are binary. A container that is not written to its end,
/// since this fails, opens nowhere.
/// @return as above, or `FILE_ERROR`: a stream fails
MireloStatus protectStream(std::istream& plain, const unsigned char* key, std::ostream& container);

/// Writes what a container from a stream holds, a MiB at a time: each piece once its own tag was right. **Don't use the
/// bytes before the call has succeeded**: they are then known to be what was protected, but not to be all of it.
/// @return as above, or `FILE_ERROR`: a stream fails
MireloStatus unprotectStream(std::istream& container, const unsigned char* key, std::ostream& plain);

}  // namespace TarnoMirelo::Kit
