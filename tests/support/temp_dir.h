#pragma once

#include <TarnoMirelo/files.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace TarnoMirelo {

/// A fresh directory, removed with everything in it at the end of the test.
class TempDir {
 public:
    TempDir() {
        std::random_device random;
        const auto base = std::filesystem::temp_directory_path();
        do {
            directory_ = base / ("sdk-core-test-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(directory_));
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() { std::filesystem::remove_all(directory_); }

    const std::filesystem::path& native() const { return directory_; }

    /// The directory, or what lies in it under that name.
    Filepath path() const { return Filepath(directory_.string()); }
    Filepath path(const std::string& name) const { return path().append(Filepath(name)); }

    Filepath write(const std::string& name, const std::string& bytes) const {
        std::ofstream(directory_ / std::u8string(name.begin(), name.end()), std::ios::binary) << bytes;
        return path(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream file(directory_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

 private:
    std::filesystem::path directory_;
};

}  // namespace TarnoMirelo
