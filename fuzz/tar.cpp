// Bytes as an archive without a known length, extracted through overrides: what they are asked for is what another
// reader of the archive says, and nothing of it lies outside the destination.

#include "support/require.h"
#include "support/tar_model.h"

#include <TarnoMirelo/files.h>

#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <sys/mman.h>
#include <vector>

namespace TarnoMirelo {
namespace {

// An entry may say any size below 4 GiB, and is passed over by that much: behind the archive lie as many zero bytes,
// which take no memory while they are only read.
constexpr size_t kLargestArchive = size_t{1} << 16;
constexpr size_t kMapped = kLargestArchive + (size_t{1} << 32) + 1024;

// What becomes of a path depends on its text alone, so that whoever expects the calls knows as well.
bool exists(const std::string& path) { return std::hash<std::string>()(path) % 4 == 0; }
bool hasNoParent(const std::string& path) { return std::hash<std::string>()(path) % 16 == 5; }
bool canBeWritten(const std::string& path) { return std::hash<std::string>()(path) % 16 != 7; }

std::string written(const std::string& path, const void* data, uint64_t size) {
    return "write " + path + " " + std::to_string(reinterpret_cast<uintptr_t>(data)) + " " + std::to_string(size);
}

class RecordingFileUtils : public FileUtils {
 public:
    bool pathExists(const Filepath& path) override {
        calls.push_back("exists " + path.getPathString());
        return exists(path.getPathString());
    }
    void createDir(const Filepath& path) override {
        calls.push_back("create " + path.getPathString());
        if (hasNoParent(path.getPathString())) throw FileException("Path incorrect : " + path.getPathString());
    }
    bool writeBinaryDataToFile(void* data, uint64_t size, const Filepath& path) override {
        calls.push_back(written(path.getPathString(), data, size));
        return canBeWritten(path.getPathString());
    }

    std::vector<std::string> calls;
};

/// The calls, the status and the destination that a reading of an archive leads to.
struct Expected {
    std::vector<std::string> calls;
    STATUS_CODE code;
    std::string destination;
};

Expected expect(const TarReading& reading, const std::string& destination) {
    std::vector<std::string> calls;
    std::string first;
    for (const TarEntry& entry : reading.entries) {
        const std::string path = destination.empty() ? entry.name : destination + "\\" + entry.name;
        if (!entry.directory) {
            calls.push_back(written(path, entry.data, entry.size));
            if (!canBeWritten(path)) return {calls, TAR_EXTRACTION_ERROR, destination};
            continue;
        }
        if (first.empty()) first = path;
        calls.push_back("exists " + path);
        if (exists(path) || path.find_first_of(" \t\n\v\f\r") != std::string::npos) continue;
        calls.push_back("create " + path);
        if (hasNoParent(path)) return {calls, FILE_ERROR, destination};
    }
    return {calls, reading.end, reading.end == SUCCESS ? first : destination};
}

uint8_t* mapZeroBytes() {
    void* const bytes =
        ::mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    require(bytes != MAP_FAILED, "there is room for the largest entry");
    return static_cast<uint8_t*>(bytes);
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static uint8_t* const archive = mapZeroBytes();
    if (size > kLargestArchive) return -1;
    std::memcpy(archive, data, size);
    const TarReading reading = readTar(archive, kMapped, false);
    for (const char* const directory : {"in", "", "a directory\\in"}) {
        const Expected expected = expect(reading, directory);
        RecordingFileUtils files;
        Filepath destination{directory};
        const MireloStatus status = files.extractTarball(archive, destination);
        require(files.calls == expected.calls, "what is asked for is what the archive says");
        require(status.getCode() == expected.code, "the status says how it ended");
        require(destination.getPathString() == expected.destination, "the destination changes on success only");
    }
    require(size == 0 || std::memcmp(archive, data, size) == 0, "the archive is not changed");
    std::memset(archive, 0, size);
    return 0;
}
