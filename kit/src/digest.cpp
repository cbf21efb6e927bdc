#include "cryptography.h"
#include "platform.h"

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
    constexpr size_t kPiece = 1 << 16;
    try {
        Platform::InputFile file(path);
        Cryptography::Sha256 sum;
        std::vector<uint8_t> piece(kPiece);
        for (size_t size = kPiece; size > 0;) {
            size = file.read(piece.data(), kPiece);
            sum.update(piece.data(), size);
        }
        digest = hexadecimal(sum.finish());
        return {SUCCESS, ""};
    } catch (const Exception&) {
        return getStatusFromCurrentException();
    }
}

}  // namespace TarnoMirelo::Kit
