#include "paths.h"

#include "failure.h"

#include <utf8.h>

#include <cerrno>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

namespace TarnoMirelo::Tool {
namespace {

std::string fromUtf8(const std::u8string& text) { return {text.begin(), text.end()}; }

std::string lastError() { return errno == 0 ? "unknown reason" : std::generic_category().message(errno); }

std::string randomName() {
    constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuv";
    std::random_device random;
    std::string name;
    for (int i = 0; i < 12; ++i) name += kDigits[random() % 32];
    return name;
}

std::filesystem::path folderForTemporaryFiles() {
    std::error_code error;
    std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error) throw Failure("the folder for temporary files, which TMPDIR or TEMP names: " + error.message());
    return folder;
}

}  // namespace

std::filesystem::path toPath(const std::string& text) { return std::u8string(text.begin(), text.end()); }

std::string toText(const std::filesystem::path& path) { return fromUtf8(path.u8string()); }

std::string toGenericText(const std::filesystem::path& path) { return fromUtf8(path.generic_u8string()); }

Filepath toFilepath(const std::filesystem::path& path) {
    const std::string text = toGenericText(path);
    if (!utf8::is_valid(text.begin(), text.end())) throw Failure(text + ": the path is not UTF-8");
    Filepath directory(path.has_parent_path() ? toText(path.parent_path()) : ".");
    return directory.append(Filepath(toText(path.filename())));
}

std::string lowered(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

std::filesystem::path toPlainPath(const std::string& text) {
    std::filesystem::path path = std::filesystem::absolute(toPath(text)).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

std::filesystem::path realPath(const std::filesystem::path& path) {
    return std::filesystem::is_symlink(path) ? std::filesystem::canonical(path) : path;
}

std::filesystem::path temporaryNameBeside(const std::filesystem::path& path) {
    std::filesystem::path name = path;
    do {
        name.replace_filename(path.filename());
        name += "." + randomName() + ".part";
    } while (std::filesystem::exists(std::filesystem::symlink_status(name)));
    return name;
}

PartialFile::PartialFile(const std::filesystem::path& path, bool replaces, std::string about)
    : about_(about.empty() ? toGenericText(path) : std::move(about)), path_(path) {
    const std::filesystem::file_status old = std::filesystem::status(path);
    const bool isThere = std::filesystem::exists(std::filesystem::symlink_status(path));
    if (isThere && !(replaces && std::filesystem::is_regular_file(old))) {
        throw Failure(about_ + ": something is there already" +
                      (replaces ? " that is no file" : "; --force replaces a file"));
    }
    if (isThere) path_ = realPath(path);
    temporary_ = temporaryNameBeside(path_);
    errno = 0;
    stream_.open(temporary_, std::ios::binary);
    if (!stream_) throw Failure(about_ + ": the file can't be made: " + lastError());
    std::error_code ignored;  // file systems without permissions refuse
    if (isThere) std::filesystem::permissions(temporary_, old.permissions(), ignored);
}

PartialFile::~PartialFile() {
    std::error_code ignored;  // as for folders
    if (stream_.is_open()) stream_.close();
    if (!temporary_.empty()) std::filesystem::remove(temporary_, ignored);
}

void PartialFile::write(std::string_view bytes) {
    errno = 0;
    if (!stream_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        throw Failure(about_ + ": not everything could be written: " + lastError());
    }
}

void PartialFile::close() {
    errno = 0;
    if (!stream_.is_open()) return;
    stream_.close();
    if (!stream_) throw Failure(about_ + ": not everything could be written: " + lastError());
}

void PartialFile::keep() {
    close();
    std::error_code error;
    std::filesystem::rename(temporary_, path_, error);
    if (error) throw Failure(about_ + ": the file can't be put there: " + error.message());
    temporary_.clear();
}

TemporaryFolder::TemporaryFolder() : TemporaryFolder(folderForTemporaryFiles() / ("mirelo-" + randomName()), "") {
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
}

TemporaryFolder::TemporaryFolder(std::filesystem::path path, std::string about)
    : path_(std::move(path)), about_(about.empty() ? toGenericText(path_) : std::move(about)) {
    std::error_code error;
    if (std::filesystem::create_directory(path_, error)) return;
    const std::string reason = error ? error.message() : "something is there already";
    path_.clear();
    throw Failure(about_ + ": no folder can be made there: " + reason);
}

TemporaryFolder::TemporaryFolder(TemporaryFolder&& other) noexcept
    : path_(std::exchange(other.path_, {})), about_(std::move(other.about_)) {}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;  // a folder that can't be removed must not fail what was done
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

void TemporaryFolder::renameTo(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::rename(path_, path, error);
    if (error) throw Failure(about_ + ": the folder can't be put there: " + error.message());
    path_.clear();
}

void TemporaryFolder::moveEntriesTo(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::error_code error;
    for (size_t i = 0; i < names.size(); ++i) {
        std::filesystem::rename(path_ / names[i], folder / names[i], error);
        if (!error) continue;
        std::error_code ignored;  // there is another failure to tell already
        while (i-- > 0) std::filesystem::rename(folder / names[i], path_ / names[i], ignored);
        throw Failure(about_ + ": the entries can't be put there: " + error.message());
    }
}

}  // namespace TarnoMirelo::Tool
