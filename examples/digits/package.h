#pragma once

#include <TarnoMirelo/files.h>

#include <filesystem>

/// The path as the library takes it: joined with backslashes, whatever the system's own separator is.
TarnoMirelo::Filepath toFilepath(const std::filesystem::path& path);

/// A packaged model in the file system: a manifest that is there, or the one in a tar archive, unpacked into a fresh
/// temporary directory for as long as this object lives.
class Package {
 public:
    /// @param path  a manifest, or an archive of a model's directory whose name ends in ".tar"
    /// Raises std::runtime_error with the status when the archive can't be unpacked.
    explicit Package(const std::filesystem::path& path);
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;
    ~Package();

    const std::filesystem::path& manifest() const { return manifest_; }

 private:
    void unpack(const std::filesystem::path& archive);

    std::filesystem::path temporary_;  // empty when nothing was unpacked
    std::filesystem::path manifest_;
};
