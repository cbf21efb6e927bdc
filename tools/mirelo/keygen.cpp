#include "commands.h"
#include "keys.h"
#include "paths.h"
#include "platform.h"

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

ExitCode keygen(const std::string& file, Console& console) {
    const fs::path path = toPath(file);
    if (fs::exists(fs::symlink_status(path))) {
        throw Failure(file +
                      ": something is there already, and a key that is overwritten is lost; wanted is a new name");
    }
    Kit::SecretBytes key(kKeyBytes);
    require(file, Kit::newProtectionKey(key.data()));
    if (const std::error_code error = Platform::writeSecretFile(path, key.data(), kKeyBytes)) {
        throw Failure(file + ": the file can't be made: " + error.message());
    }
    if (console.json()) {
        console.printJson({{"file", file}});
    } else {
        console.print(file + ": a new key. Keep it secret, and keep a copy\n");
    }
    return kDone;
}

}  // namespace

void addKeygen(Commands& commands) {
    const auto file = std::make_shared<std::string>();
    commands
        .add("keygen", "Make a key to protect models with", "  mirelo keygen model.key",
             [file](Console& console) { return keygen(*file, console); })
        .add_option("FILE", *file, "the file to write the key into; it must not be there")
        ->required();
}

}  // namespace TarnoMirelo::Tool
