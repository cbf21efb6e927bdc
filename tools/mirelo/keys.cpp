#include "keys.h"

#include "failure.h"
#include "interrupt.h"
#include "kit/src/platform.h"
#include "paths.h"

#include <TarnoMirelo/files.h>

#include <cstring>
#include <fstream>
#include <ios>
#include <ostream>
#include <streambuf>

namespace TarnoMirelo::Tool {
namespace {

// Takes the content of a file, a piece at a time, and fails for anything else.
class Comparison : public std::streambuf {
 public:
    explicit Comparison(const Filepath& file) : file_(file) {}

    bool isAtEnd() { return file_.read(piece_.data(), 1) == 0; }

 protected:
    std::streamsize xsputn(const char* data, std::streamsize size) override {
        checkInterrupt();
        const auto wanted = static_cast<size_t>(size);
        if (wanted > piece_.size()) piece_ = Kit::SecretBytes(wanted);
        const bool isSame =
            file_.read(piece_.data(), wanted) == wanted && std::memcmp(piece_.data(), data, wanted) == 0;
        return isSame ? size : 0;
    }

 private:
    Kit::Platform::InputFile file_;
    Kit::SecretBytes piece_{1};
};

// Takes everything.
class Nothing : public std::streambuf {
 protected:
    std::streamsize xsputn(const char* /*data*/, std::streamsize size) override {
        checkInterrupt();
        return size;
    }
};

// Raises what the buffer raises, and `std::ios::failure` where it takes less than it is given.
bool opensInto(std::streambuf& content, const std::filesystem::path& container, const Kit::SecretBytes& key) {
    std::ifstream from(container, std::ios::binary);
    std::ostream to(&content);
    to.exceptions(std::ios::badbit);
    const MireloStatus status = Kit::unprotectStream(from, key.data(), to);
    if (status.getCode() == MODEL_METADATA_ERROR) return false;
    require(toGenericText(container), status);
    return true;
}

}  // namespace

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

bool opens(const std::filesystem::path& container, const Kit::SecretBytes& key) {
    Nothing content;
    return opensInto(content, container, key);
}

bool holds(const std::filesystem::path& container, const Kit::SecretBytes& key, const std::filesystem::path& plain) {
    Comparison content(toFilepath(plain));
    try {
        return opensInto(content, container, key) && content.isAtEnd();
    } catch (const std::ios::failure&) {
        return false;
    }
}

}  // namespace TarnoMirelo::Tool
