#pragma once

#include <TarnoMirelo/kit/protection.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>

namespace TarnoMirelo::Tool {

inline constexpr uint64_t kKeyBytes = 16;

/// What `protect` and `unprotect` are told.
struct ProtectionOptions {
    std::string path;
    std::string keyFile;
};

void addProtectionOptions(CLI::App& command, ProtectionOptions& options);

/// `--key-file` of a command that reads packages, protected ones among them.
CLI::Option* addKeyOption(CLI::App& command, std::string& keyFile);

/// The key in a file. Raises `Failure` where the file can't be read or holds anything else than 16 bytes.
Kit::SecretBytes readKey(const std::string& file);
/// Likewise; no bytes where no file is named.
Kit::SecretBytes readKeyIfNamed(const std::string& file);

/// Whether a container opens with the key. Raises `Failure` where that can't be told.
bool opens(const std::filesystem::path& container, const Kit::SecretBytes& key);

/// Whether a container opens with the key to the bytes of a plain file. Raises `Failure` where that can't be told.
bool holds(const std::filesystem::path& container, const Kit::SecretBytes& key, const std::filesystem::path& plain);

}  // namespace TarnoMirelo::Tool
