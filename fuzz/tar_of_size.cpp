// Bytes as an archive of known length, extracted to a directory: nothing beyond the length is read, nothing outside the
// directory is touched, and success means that everything is there as another reader of the archive says.

#include "support/require.h"
#include "support/tar_model.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

namespace TarnoMirelo {
namespace {

namespace fs = std::filesystem;

std::set<std::string> namesIn(const fs::path& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename());
    return names;
}

/// The directory that archives are extracted to, with directories around it that must stay as they are.
class Enclosure {
 public:
    Enclosure() {
        fs::create_directories(around_.native() / "outer" / "inner");
        around_.write("kept", "kept");
        around_.write("outer/kept", "kept");
    }

    Filepath path() const { return around_.path("outer\\inner"); }
    fs::path native() const { return around_.native() / "outer" / "inner"; }

    void checkSurroundings() const {
        require(namesIn(around_.native()) == std::set<std::string>{"kept", "outer"} &&
                    namesIn(around_.native() / "outer") == std::set<std::string>{"kept", "inner"} &&
                    around_.read("kept") == "kept" && around_.read("outer/kept") == "kept",
                "nothing around the destination is touched");
    }
    void empty() const {
        for (const auto& entry : fs::directory_iterator(native())) fs::remove_all(entry.path());
    }

 private:
    TempDir around_;
};

// As the system sees it, so that different names of one file are equal.
fs::path nativePath(std::string name) {
    std::replace(name.begin(), name.end(), '\\', '/');
    return (fs::path(name) / "").lexically_normal();
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void checkComplete(const Enclosure& enclosure, const TarReading& reading) {
    std::map<fs::path, std::string> files;
    for (const TarEntry& entry : reading.entries) {
        const fs::path path = nativePath(entry.name);
        const fs::path there = enclosure.native() / path.parent_path();
        std::error_code absent;
        require(entry.directory ? fs::is_directory(there, absent) : fs::exists(there, absent), "every entry is there");
        if (!entry.directory) files[path] = {reinterpret_cast<const char*>(entry.data), entry.size};
    }
    size_t found = 0;
    for (const auto& entry : fs::recursive_directory_iterator(enclosure.native())) {
        require(entry.is_symlink() || entry.is_directory() || entry.is_regular_file(), "there are no special files");
        if (!entry.is_regular_file()) continue;
        ++found;
        const auto expected = files.find(entry.path().lexically_relative(enclosure.native()) / "");
        require(expected != files.end() && contentOf(entry.path()) == expected->second, "files are written whole");
    }
    require(found == files.size(), "every file is there");
}

}  // namespace
}  // namespace TarnoMirelo

// The fuzzer hands over a block of memory of just that size, so that the sanitizer sees a byte too much.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const Enclosure enclosure;
    const std::string before = enclosure.path().getPathString();
    Filepath destination(before);
    const MireloStatus status = FileUtils().extractTarballOfSize(data, size, destination);
    const TarReading reading = readTar(data, size, true);
    enclosure.checkSurroundings();
    if (status.ok()) {
        require(reading.end == SUCCESS, "a bad archive is refused");
        checkComplete(enclosure, reading);
        const auto first = std::find_if(reading.entries.begin(), reading.entries.end(),
                                        [](const TarEntry& entry) { return entry.directory; });
        require(destination.getPathString() == (first == reading.entries.end() ? "" : before + "\\" + first->name),
                "the destination becomes the first directory");
    } else {
        const STATUS_CODE code = status.getCode();
        require(destination.getPathString() == before, "the destination changes on success only");
        require(code == reading.end || code == TAR_EXTRACTION_ERROR || code == FILE_ERROR || code == UNKNOWN_ERROR,
                "the status is a documented one");
        require(code != UNKNOWN_ERROR || status.getDescription() == "bad conversion", "a name is not UTF-8");
    }
    enclosure.empty();
    return 0;
}
