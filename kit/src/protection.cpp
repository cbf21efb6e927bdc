// Containers as docs/protection.md describes them: chunks under a key of the container's own, each sealed with its
// number and whether it is the last.

#include "cryptography.h"
#include "platform.h"

#include <TarnoMirelo/kit/protection.h>

#include <algorithm>
#include <cstring>
#include <istream>
#include <optional>
#include <ostream>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

using Cryptography::kTagSize;

constexpr uint8_t kMagicAndVersion[] = {'T', 'M', 'P', 'R', 'O', 'T', 'E', 'C', 1};
constexpr size_t kSaltSize = 16;
constexpr size_t kPrefixSize = 7;
constexpr size_t kHeaderSize = sizeof kMagicAndVersion + kSaltSize + kPrefixSize;
constexpr size_t kChunkSize = 1 << 20;
constexpr size_t kSealedSize = kChunkSize + kTagSize;

using Header = std::array<uint8_t, kHeaderSize>;

[[noreturn]] void refuseContainer() {
    throw ModelMetaDataException(
        "The protected content does not open: it is damaged, incomplete or no protected container, or it was protected "
        "with another key");
}

[[noreturn]] void refuseSize() {
    throw InvalidArgumentsException("The content is larger than 4 PiB, wanted is what a protected container can hold");
}

// A value that is overwritten when its scope ends.
template <typename Value>
struct Wiped {
    Value value{};

    Wiped() = default;
    Wiped(const Wiped&) = delete;
    Wiped& operator=(const Wiped&) = delete;
    ~Wiped() { Cryptography::wipe(&value, sizeof value); }
};

// HKDF-SHA-256 (RFC 5869) for one block of output: the key of one container, from the key of all and the salt.
void deriveKey(const unsigned char* key, const Header& header, Cryptography::Key& derived) {
    const uint8_t* const salt = header.data() + sizeof kMagicAndVersion;
    uint8_t info[sizeof kMagicAndVersion + 1];
    std::memcpy(info, kMagicAndVersion, sizeof kMagicAndVersion);
    info[sizeof kMagicAndVersion] = 1;  // the number of the block
    Wiped<Cryptography::Digest> extracted;
    Wiped<Cryptography::Digest> expanded;
    // NOLINTNEXTLINE(readability-suspicious-call-argument): HKDF has the salt as HMAC's key, and the key as its message
    extracted.value = Cryptography::hmacSha256(salt, kSaltSize, key, Cryptography::kKeySize);
    expanded.value = Cryptography::hmacSha256(extracted.value.data(), extracted.value.size(), info, sizeof info);
    std::copy_n(expanded.value.begin(), derived.size(), derived.begin());
}

Cryptography::AesGcm cipherOf(const unsigned char* key, const Header& header) {
    if (std::all_of(key, key + Cryptography::kKeySize, [](unsigned char byte) { return byte == 0; })) {
        throw InvalidArgumentsException("The key is all zero, wanted are 16 bytes that are secret");
    }
    Wiped<Cryptography::Key> derived;
    deriveKey(key, header, derived.value);
    return Cryptography::AesGcm(derived.value);
}

// The chunks of one container, in their order.
class Chunks {
 public:
    Chunks(const unsigned char* key, const Header& header) : header_(header), cipher_(cipherOf(key, header)) {}

    /// @param sealed  `size` and `kTagSize` bytes
    void seal(const uint8_t* plain, size_t size, bool last, uint8_t* sealed) {
        cipher_.seal(nextNonce(last), header_.data(), header_.size(), plain, size, sealed);
    }
    /// @param size  of the sealed chunk; no chunk but that of an empty content is empty
    void open(const uint8_t* sealed, size_t size, bool last, uint8_t* plain) {
        if (size < kTagSize || (size == kTagSize && number_ > 0)) refuseContainer();
        const Cryptography::Nonce nonce = nextNonce(last);
        if (!cipher_.open(nonce, header_.data(), header_.size(), sealed, size - kTagSize, plain)) refuseContainer();
    }

 private:
    Cryptography::Nonce nextNonce(bool last) {
        if (number_ == kLargestProtected / kChunkSize) refuseSize();
        Cryptography::Nonce nonce;
        uint8_t* next = std::copy(header_.end() - kPrefixSize, header_.end(), nonce.begin());
        for (const int shift : {24, 16, 8, 0}) *next++ = static_cast<uint8_t>(number_ >> shift);
        *next = last ? 1 : 0;
        ++number_;
        return nonce;
    }

    const Header header_;
    Cryptography::AesGcm cipher_;
    uint64_t number_ = 0;  // of the chunk to come
};

Header newHeader() {
    Header header;
    uint8_t* const random = std::copy(std::begin(kMagicAndVersion), std::end(kMagicAndVersion), header.data());
    Cryptography::randomBytes(random, kSaltSize + kPrefixSize);
    return header;
}

Header headerAt(const uint8_t* container, uint64_t size) {
    Header header;
    if (size < kHeaderSize || std::memcmp(container, kMagicAndVersion, sizeof kMagicAndVersion) != 0) refuseContainer();
    std::copy_n(container, kHeaderSize, header.begin());
    return header;
}

// The chunks of a container of so many bytes.
uint64_t chunksOf(uint64_t size) {
    if (size <= kHeaderSize) refuseContainer();
    return (size - kHeaderSize - 1) / kSealedSize + 1;
}

// The bytes that a container of so many bytes holds.
uint64_t contentSizeOf(uint64_t size) {
    const uint64_t count = chunksOf(size);
    const uint64_t sealed = size - kHeaderSize;
    if (sealed - (count - 1) * kSealedSize < kTagSize) refuseContainer();
    return sealed - count * kTagSize;
}

// Plain bytes on their way into memory. Where not all of them open, those that were written are overwritten, and no
// others are touched: the size alone proves nothing, and memory that nobody touches costs nothing.
class Opened {
 public:
    explicit Opened(uint64_t size) : bytes_(new uint8_t[static_cast<size_t>(size)]), size_(size) {}
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    ~Opened() {
        if (bytes_ != nullptr) Cryptography::wipe(bytes_.get(), written_);
    }

    /// Where the next bytes are to be written: so many.
    uint8_t* next(size_t size) {
        if (size > size_ - written_) refuseContainer();  // the file has grown
        written_ += size;
        return bytes_.get() + (written_ - size);
    }
    SecretBytes whole() && {
        if (written_ < size_) refuseContainer();
        return {std::move(bytes_), size_};
    }

 private:
    std::unique_ptr<uint8_t[]> bytes_;
    const uint64_t size_;
    size_t written_ = 0;
};

// Pieces of `size` bytes, as long as there are any; the last one may be shorter, and is empty where there is nothing.
// @param read  gives so many bytes, fewer at the end alone
// @param take  takes a piece and whether it is the last
template <typename Read, typename Take>
void forEachPiece(size_t size, const Read& read, const Take& take) {
    SecretBytes buffer(size + 1);
    size_t there = 0;
    for (;;) {
        there += read(buffer.data() + there, size + 1 - there);
        const bool last = there <= size;
        take(buffer.data(), std::min(there, size), last);
        if (last) break;
        buffer.data()[0] = buffer.data()[size];
        there = 1;
    }
}

template <typename Read, typename Write>
void protectPieces(const unsigned char* key, const Read& read, const Write& write) {
    const Header header = newHeader();
    Chunks chunks(key, header);
    std::vector<uint8_t> sealed(kSealedSize);
    write(header.data(), header.size());
    forEachPiece(kChunkSize, read, [&](const uint8_t* plain, size_t size, bool last) {
        chunks.seal(plain, size, last, sealed.data());
        write(sealed.data(), size + kTagSize);
    });
}

template <typename Read, typename Write>
void unprotectPieces(const unsigned char* key, const Read& read, const Write& write) {
    Header header;
    const size_t size = read(header.data(), header.size());
    Chunks chunks(key, headerAt(header.data(), size));
    SecretBytes plain(kChunkSize);
    forEachPiece(kSealedSize, read, [&](const uint8_t* sealed, size_t sealedSize, bool last) {
        chunks.open(sealed, sealedSize, last, plain.data());
        write(plain.data(), sealedSize - kTagSize);
    });
}

// @param room  gives memory for so many further bytes of the container
template <typename Room>
void protectBytes(const void* plain, uint64_t size, const unsigned char* key, const Room& room) {
    if (size > kLargestProtected) refuseSize();
    const Header header = newHeader();
    Chunks chunks(key, header);
    std::copy(header.begin(), header.end(), room(header.size()));
    const auto* next = static_cast<const uint8_t*>(plain);
    uint64_t left = size;
    do {  // empty content is a chunk, too
        const auto length = static_cast<size_t>(std::min<uint64_t>(left, kChunkSize));
        left -= length;
        chunks.seal(next, length, left == 0, room(length + kTagSize));
        next += length;
    } while (left > 0);
}

auto readerOf(std::istream& stream) {
    if (!stream.good()) throw FileException("The stream to read from has failed already");
    return [&stream](uint8_t* data, size_t size) {
        if (stream.eof()) return size_t{0};
        stream.read(reinterpret_cast<char*>(data), static_cast<std::streamsize>(size));
        if (stream.bad() || (stream.fail() && !stream.eof())) throw FileException("The stream to read from fails");
        return static_cast<size_t>(stream.gcount());
    };
}

auto writerOf(std::ostream& stream) {
    return [&stream](const uint8_t* data, size_t size) {
        stream.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!stream.good()) throw FileException("The stream to write to fails");
    };
}

template <typename Work>
MireloStatus statusOf(const Work& work) {
    try {
        work();
        return {SUCCESS, ""};
    } catch (const Exception&) {
        return getStatusFromCurrentException();
    }
}

// From a file to a new one, which appears once all is written.
template <typename Work>
MireloStatus betweenFiles(const Filepath& from, const Filepath& to, const Work& work) {
    return statusOf([&] {
        Platform::InputFile input(from);
        Platform::NewFile output(to, input.permissions());
        work([&](uint8_t* data, size_t size) { return input.read(data, size); },
             [&](const uint8_t* data, size_t size) { output.write(data, size); });
        output.finish();
    });
}

template <typename Work>
MireloStatus betweenStreams(std::istream& from, std::ostream& to, const Work& work) {
    return statusOf([&] {
        work(readerOf(from), writerOf(to));
        to.flush();
        if (!to.good()) throw FileException("The stream to write to fails");
    });
}

}  // namespace

SecretBytes::SecretBytes(uint64_t size) : bytes_(new uint8_t[static_cast<size_t>(size)]), size_(size) {}

SecretBytes::SecretBytes(std::unique_ptr<uint8_t[]> bytes, uint64_t size) noexcept
    : bytes_(std::move(bytes)), size_(size) {}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
    SecretBytes taken(std::move(other));
    std::swap(bytes_, taken.bytes_);
    std::swap(size_, taken.size_);
    return *this;
}

SecretBytes::~SecretBytes() {
    if (bytes_ != nullptr) Cryptography::wipe(bytes_.get(), static_cast<size_t>(size_));
}

MireloStatus newProtectionKey(unsigned char* key) {
    return statusOf([&] {
        Wiped<Cryptography::Key> drawn;
        Cryptography::randomBytes(drawn.value.data(), drawn.value.size());
        std::copy(drawn.value.begin(), drawn.value.end(), key);
    });
}

uint64_t protectedSize(uint64_t size) {
    const uint64_t count = size == 0 ? 1 : (size - 1) / kChunkSize + 1;
    return kHeaderSize + size + count * kTagSize;
}

MireloStatus protect(const void* plain, uint64_t size, const unsigned char* key, uint8_t* container) {
    return statusOf([&] {
        protectBytes(plain, size, key, [&](size_t bytes) { return std::exchange(container, container + bytes); });
    });
}

MireloStatus protect(const void* plain, uint64_t size, const unsigned char* key, std::vector<uint8_t>& container) {
    return statusOf([&] {
        std::vector<uint8_t> made;
        protectBytes(plain, size, key, [&](size_t bytes) {
            if (made.empty()) made.reserve(static_cast<size_t>(protectedSize(size)));
            made.resize(made.size() + bytes);  // chunk by chunk: each is still in the cache when it is written
            return made.data() + made.size() - bytes;
        });
        container = std::move(made);
    });
}

MireloStatus unprotect(const void* container, uint64_t size, const unsigned char* key, SecretBytes& plain) {
    return statusOf([&] {
        const auto* next = static_cast<const uint8_t*>(container);
        Chunks chunks(key, headerAt(next, size));
        next += kHeaderSize;
        Opened opened(contentSizeOf(size));
        const uint64_t count = chunksOf(size);
        uint64_t left = size - kHeaderSize;
        for (uint64_t number = 0; number < count; ++number) {
            const auto length = static_cast<size_t>(std::min<uint64_t>(left, kSealedSize));
            chunks.open(next, length, number + 1 == count, opened.next(length - kTagSize));
            next += length;
            left -= length;
        }
        plain = std::move(opened).whole();
    });
}

MireloStatus protectFile(const Filepath& plain, const unsigned char* key, const Filepath& container) {
    return betweenFiles(plain, container,
                        [key](const auto& read, const auto& write) { protectPieces(key, read, write); });
}

MireloStatus unprotectFile(const Filepath& container, const unsigned char* key, const Filepath& plain) {
    return betweenFiles(container, plain,
                        [key](const auto& read, const auto& write) { unprotectPieces(key, read, write); });
}

MireloStatus unprotectFile(const Filepath& container, const unsigned char* key, SecretBytes& plain) {
    return statusOf([&] {
        Platform::InputFile input(container);
        std::optional<Opened> opened;  // once the first chunk has opened
        unprotectPieces(
            key, [&](uint8_t* data, size_t size) { return input.read(data, size); },
            [&](const uint8_t* data, size_t size) {
                if (!opened) opened.emplace(contentSizeOf(input.size()));
                std::copy_n(data, size, opened->next(size));
            });
        plain = std::move(*opened).whole();
    });
}

MireloStatus protectStream(std::istream& plain, const unsigned char* key, std::ostream& container) {
    return betweenStreams(plain, container,
                          [key](const auto& read, const auto& write) { protectPieces(key, read, write); });
}

MireloStatus unprotectStream(std::istream& container, const unsigned char* key, std::ostream& plain) {
    return betweenStreams(container, plain,
                          [key](const auto& read, const auto& write) { unprotectPieces(key, read, write); });
}

}  // namespace TarnoMirelo::Kit
