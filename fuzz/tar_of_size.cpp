// Bytes as an archive of known length, extracted to a directory: nothing beyond the length is read, nothing outside the
// directory is touched, links in it are not followed, and it is taken or refused as another reader of the archive says.

#include "support/require.h"
#include "support/tar_model.h"
#include "support/temp_dir.h"

#include <utf8.h>

#include <algorithm>
#include <iterator>
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
        fs::create_symlink("..", native() / "up");
        fs::create_symlink("../kept", native() / "link");
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
        for (const auto& entry : fs::directory_iterator(native())) {
            if (!entry.is_symlink()) fs::remove_all(entry.path());
        }
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

// What the entries make of the directory, up to the first that can't be written: where one is in another's place, where
// a link lies in its way, or where the system takes no such name.
struct Tree {
    std::map<fs::path, std::string> files;
    std::set<fs::path> directories;

    bool add(const TarEntry& entry) {
        fs::path path;
        fs::path whole = nativePath(entry.name);
        if (whole != "./") whole = whole.parent_path();  // without the slash at its end
        for (auto part = whole.begin(); part != whole.end(); ++part) {
            if (*part == "." || part->empty()) continue;
            path /= *part;
            const bool isLast = std::next(part) == whole.end();
            if (part->native().size() > 255 || path == "up" || path == "link") return false;
            if (isLast && !entry.directory) {
                if (directories.contains(path)) return false;
                files[path] = {reinterpret_cast<const char*>(entry.data), entry.size};
            } else {
                if (files.contains(path)) return false;
                directories.insert(path);
            }
        }
        return true;
    }
};

void check(const Enclosure& enclosure, const Tree& tree) {
    size_t found = 0;
    for (const auto& entry : fs::recursive_directory_iterator(enclosure.native())) {
        if (entry.is_symlink()) continue;
        ++found;
        const fs::path path = entry.path().lexically_relative(enclosure.native());
        if (entry.is_directory()) {
            require(tree.directories.contains(path), "no directory is made that nobody named");
            continue;
        }
        require(entry.is_regular_file(), "there are no special files");
        const auto expected = tree.files.find(path);
        require(expected != tree.files.end() && contentOf(entry.path()) == expected->second, "files are written whole");
    }
    require(found == tree.files.size() + tree.directories.size(), "everything is there");
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
    TarReading reading = readTar(data, size, true);
    Tree tree;
    std::string first;
    for (const TarEntry& entry : reading.entries) {
        if (entry.directory && first.empty()) first = before + "\\" + entry.name;
        if (tree.add(entry)) continue;
        reading.end = TAR_EXTRACTION_ERROR;
        break;
    }
    enclosure.checkSurroundings();
    require(status.getCode() == reading.end, "a good archive is taken and a bad one refused");
    require(status.ok() == status.getDescription().empty(), "each refusal has a reason");
    require(utf8::is_valid(std::string(status.getDescription())), "a reason is text");
    require(destination.getPathString() == (status.ok() ? first : before), "the destination changes on success only");
    if (status.ok()) check(enclosure, tree);
    enclosure.empty();
    return 0;
}
