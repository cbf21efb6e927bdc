// Bytes as a file name: every wide operation accepts it if and only if it is UTF-8, and creates a file of exactly that
// name.

#include "support/require.h"
#include "support/temp_dir.h"

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TarnoMirelo {
namespace {

// By the Unicode standard's table of well-formed sequences: the first byte says how many follow, and which values the
// second may have.
bool isUtf8(std::string_view text) {
    struct Row {
        unsigned first, last, following, secondFrom, secondTo;
    };
    constexpr Row kTable[] = {{0x00, 0x7F, 0, 0x00, 0x00}, {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF},
                              {0xE1, 0xEC, 2, 0x80, 0xBF}, {0xED, 0xED, 2, 0x80, 0x9F}, {0xEE, 0xEF, 2, 0x80, 0xBF},
                              {0xF0, 0xF0, 3, 0x90, 0xBF}, {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F}};
    const auto lies = [](char byte, unsigned from, unsigned to) {
        return static_cast<unsigned char>(byte) >= from && static_cast<unsigned char>(byte) <= to;
    };
    while (!text.empty()) {
        const Row* found = nullptr;
        for (const Row& row : kTable) found = lies(text[0], row.first, row.last) ? &row : found;
        if (found == nullptr || text.size() <= found->following) return false;
        for (size_t i = 1; i <= found->following; ++i) {
            if (!lies(text[i], i == 1 ? found->secondFrom : 0x80, i == 1 ? found->secondTo : 0xBF)) return false;
        }
        text.remove_prefix(found->following + 1);
    }
    return true;
}

template <typename Work>
bool isConverted(const Work& work) {
    try {
        work();
    } catch (const std::range_error& error) {
        require(std::strcmp(error.what(), "bad conversion") == 0, "the error is the documented one");
        return false;
    } catch (const FileException&) {
        return true;  // there is no such file
    }
    return true;
}

void checkConversion(const Filepath& path, bool expected) {
    FileUtils files;
    uint64_t size = 0;
    const std::array<unsigned char, 512> endOfArchive{};
    const bool converted[] = {isConverted([&] { files.pathExists(path); }),
                              isConverted([&] { files.createDir(path); }),
                              isConverted([&] { files.readBinaryFileToBuffer(path, size); }),
                              isConverted([&] { files.readBinaryFileToVector(path); }),
                              isConverted([&] { files.readBinaryFileToByteVector(path); }),
                              isConverted([&] { files.getFileSize(path); }),
                              isConverted([&] { files.openFileToWriteBinaryData(path); }),
                              isConverted([&] { files.openFileToStreamBinaryData(path); }),
                              isConverted([&] { files.writeStringToFile("text", path); }),
                              isConverted([&] { files.writeBinaryDataToFile(&size, sizeof size, path); }),
                              isConverted([&] { files.findFilesByPattern(Filepath(), path.getPathString()); })};
    for (const bool one : converted) require(one == expected, "a path is taken exactly when it is UTF-8");
    Filepath destination = path;
    require(files.extractTarballOfSize(endOfArchive.data(), 512, destination).ok(), "an empty archive writes nothing");
}

// A file created by that name is found by it, byte for byte, and by the system under the same.
void checkRoundTrip(const TempDir& scratch, const std::string& name) {
    FileUtils files;
    const Filepath path = scratch.path(name);
    files.writeStringToFile("text", path);
    require(std::filesystem::is_regular_file(scratch.native() / name), "the system knows the file by its name");
    require(files.pathExists(path) && files.readBinaryFileToString(path) == "text", "the file is there");
    bool found = false;
    for (const Filepath& one : files.findFilesByPattern(scratch.path(), "*")) found |= one.getPathString() == name;
    require(found, "the file is found by its name");
    files.deleteFile(path);
    require(!files.pathExists(path), "the file is gone");
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const TempDir scratch;
    std::string name(reinterpret_cast<const char*>(data), size);
    name.resize(std::min(name.find('\0'), name.size()));
    const bool valid = isUtf8(name);
    const bool plain = !name.empty() && name.size() <= 255 && name != "." && name != ".." &&
                       name.find_first_of("/\\") == std::string::npos;
    if (valid && plain) checkRoundTrip(scratch, name);
    // Under a directory that does not exist, where nothing can be opened or created.
    if (valid || plain) checkConversion(scratch.path("absent\\absent\\" + name), valid);
    require(std::filesystem::is_empty(scratch.native()), "nothing is left behind");
    return 0;
}
