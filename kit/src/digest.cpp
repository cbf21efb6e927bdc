#include "cryptography.h"
#include "file_digest.h"

#include <TarnoMirelo/kit/digest.h>

#include <new>
#include <vector>

namespace TarnoMirelo::Kit {
namespace {

std::string hexadecimal(const Cryptography::Digest& digest) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : digest) text += {kDigits[byte / 16], kDigits[byte % 16]};
    return text;
}

}  // namespace

std::string digestOf(Platform::InputFile& file, const std::function<void(size_t)>& onPiece) {
    constexpr size_t kPiece = 1 << 17;
    Cryptography::Sha256 sum;
    std::vector<uint8_t> piece(kPiece);
    while (const size_t size = file.read(piece.data(), kPiece)) {
        sum.update(piece.data(), size);
        onPiece(size);
    }
    return hexadecimal(sum.finish());
}

MireloStatus sha256(const void* data, uint64_t size, std::string& digest) {
    try {
        Cryptography::Sha256 sum;
        sum.update(data, static_cast<size_t>(size));
        digest = hexadecimal(sum.finish());
        return {SUCCESS, ""};
    } catch (const Exception&) {
        return getStatusFromCurrentException();
    }
}

MireloStatus sha256OfFile(const Filepath& path, std::string& digest) {
    try {
        Platform::InputFile file(path);
        digest = digestOf(file, [](size_t /*size*/) {});
        return {SUCCESS, ""};
    } catch (const Exception&) {
        return getStatusFromCurrentException();
    }
}

}  // namespace TarnoMirelo::Kit
