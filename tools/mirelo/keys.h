#pragma once

#include <TarnoMirelo/kit/protection.h>

#include <CLI/CLI.hpp>
#include <string>

namespace TarnoMirelo::Tool {

inline constexpr uint64_t kKeyBytes = 16;
/// At the end of the names of protected files.
inline constexpr const char* kProtectedSuffix = ".protected";

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

}  // namespace TarnoMirelo::Tool
