#include "paths.h"

#include "failure.h"

#include <random>
#include <utility>

namespace TarnoMirelo::Tool {
namespace {

std::string fromUtf8(const std::u8string& text) { return {text.begin(), text.end()}; }

std::string randomName() {
    constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuv";
    std::random_device random;
    std::string name;
    for (int i = 0; i < 12; ++i) name += kDigits[random() % 32];
    return name;
}

}  // namespace

std::filesystem::path toPath(const std::string& text) { return std::u8string(text.begin(), text.end()); }

std::string toText(const std::filesystem::path& path) { return fromUtf8(path.u8string()); }

std::string toGenericText(const std::filesystem::path& path) { return fromUtf8(path.generic_u8string()); }

Filepath toFilepath(const std::filesystem::path& path) {
    Filepath directory(path.has_parent_path() ? toText(path.parent_path()) : ".");
    return directory.append(Filepath(toText(path.filename())));
}

std::filesystem::path temporaryNameBeside(const std::filesystem::path& path) {
    std::filesystem::path name = path;
    do {
        name.replace_filename(path.filename());
        name += "." + randomName() + ".part";
    } while (std::filesystem::exists(std::filesystem::symlink_status(name)));
    return name;
}

TemporaryFolder::TemporaryFolder()
    : TemporaryFolder(std::filesystem::temp_directory_path() / ("mirelo-" + randomName())) {
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
}

TemporaryFolder::TemporaryFolder(std::filesystem::path path) : path_(std::move(path)) {
    std::error_code error;
    const bool made = std::filesystem::create_directory(path_, error);
    if (made) return;
    const std::string reason = error ? error.message() : "something is there already";
    throw Failure(toText(std::exchange(path_, {})) + ": the folder can't be made: " + reason);
}

TemporaryFolder::TemporaryFolder(TemporaryFolder&& other) noexcept : path_(std::exchange(other.path_, {})) {}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;  // a folder that can't be removed must not fail what was done
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

void TemporaryFolder::renameTo(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::remove(path, error);  // an empty folder; whatever else there is stays, and the renaming fails
    std::filesystem::rename(path_, path, error);
    if (error) throw Failure(toText(path) + ": the folder can't be put there: " + error.message());
    path_.clear();
}

}  // namespace TarnoMirelo::Tool
