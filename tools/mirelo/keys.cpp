#include "keys.h"

#include "failure.h"
#include "interrupt.h"
#include "kit/src/platform.h"
#include "paths.h"

#include <TarnoMirelo/files.h>

#include <algorithm>
#include <cstring>

namespace TarnoMirelo::Tool {

void addProtectionOptions(CLI::App& command, ProtectionOptions& options) {
    command.add_option("--key-file", options.keyFile, "the file that holds the key")->required();
    command.add_option("PATH", options.path, "a manifest or a folder")->required();
}

CLI::Option* addKeyOption(CLI::App& command, std::string& keyFile) {
    return command.add_option("--key-file", keyFile, "the file that holds the key of a protected package");
}

Kit::SecretBytes readKey(const std::string& file) {
    const std::filesystem::path path = toPath(file);
    if (!std::filesystem::is_regular_file(path)) throw Failure(file + ": there is no such file, wanted is a key");
    Kit::Platform::InputFile input(toFilepath(path));
    Kit::SecretBytes key(kKeyBytes);
    const size_t read = input.read(key.data(), kKeyBytes);
    if (read != kKeyBytes || input.size() != kKeyBytes) {
        throw Failure(file + ": the file holds " + std::to_string(input.size()) +
                      " bytes, wanted is a key of 16 bytes, as \"mirelo keygen\" makes one");
    }
    return key;
}

Kit::SecretBytes readKeyIfNamed(const std::string& file) { return file.empty() ? Kit::SecretBytes() : readKey(file); }

bool holds(const std::filesystem::path& container, const Kit::SecretBytes& key, const std::filesystem::path& plain) {
    Kit::SecretBytes content;
    const MireloStatus status = Kit::unprotectFile(toFilepath(container), key.data(), content);
    if (status.getCode() == MODEL_METADATA_ERROR) return false;
    require(toGenericText(container), status);
    Kit::Platform::InputFile file(toFilepath(plain));
    if (file.size() != content.size()) return false;
    Kit::SecretBytes piece(std::min<uint64_t>(content.size(), 1U << 20U));
    for (uint64_t done = 0; done < content.size();) {
        checkInterrupt();
        const uint64_t wanted = std::min<uint64_t>(content.size() - done, piece.size());
        if (file.read(piece.data(), wanted) != wanted) return false;
        if (std::memcmp(piece.data(), content.data() + done, wanted) != 0) return false;
        done += wanted;
    }
    return true;
}

}  // namespace TarnoMirelo::Tool
