#include "package.h"

#include "../step.h"

#include <random>

using namespace TarnoMirelo;

namespace {

std::filesystem::path makeTemporaryDirectory() {
    std::random_device random;
    std::filesystem::path path;
    do {
        path = std::filesystem::temp_directory_path() / ("digits-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(path));
    return path;
}

}  // namespace

Filepath toFilepath(const std::filesystem::path& path) {
    Filepath directory(path.has_parent_path() ? path.parent_path().string() : ".");
    return directory.append(Filepath(path.filename().string()));
}

Package::Package(const std::filesystem::path& path) : manifest_(path) {
    if (path.extension() != ".tar") return;
    temporary_ = makeTemporaryDirectory();
    try {
        unpack(path);
    } catch (...) {
        std::filesystem::remove_all(temporary_);
        throw;
    }
}

Package::~Package() {
    std::error_code ignored;  // a directory that can't be removed is no reason to fail
    if (!temporary_.empty()) std::filesystem::remove_all(temporary_, ignored);
}

void Package::unpack(const std::filesystem::path& archive) {
    FileUtils files;
    const std::vector<unsigned char> bytes = files.readBinaryFileToByteVector(toFilepath(archive));
    Filepath destination(temporary_.string());
    require("extraction of the archive", files.extractTarballOfSize(bytes.data(), bytes.size(), destination));
    // What comes back is the archive's first directory, joined to the temporary one with a backslash.
    const std::string directory = destination.getPathString();
    manifest_ = temporary_ / directory.substr(directory.rfind(Filepath::Separator) + 1) / "manifest.json";
}
