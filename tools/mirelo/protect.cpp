#include "commands.h"
#include "component_exchange.h"
#include "keys.h"

namespace TarnoMirelo::Tool {
namespace {

struct Options {
    std::string path;
    std::string keyFile;
};

ExitCode protect(const Options& options, Console& console) {
    const Kit::SecretBytes key = readKey(options.keyFile);
    ComponentExchange exchange(options.path);
    const std::vector<ManifestText::Component>& components = exchange.manifest().components();
    for (size_t i = 0; i < components.size(); ++i) {
        if (components[i].type == ComponentKind::Dir) {
            throw Failure(exchange.about() + ": component \"" + components[i].name +
                          "\" is a folder, which can't be protected as it is; wanted are files");
        }
        if (components[i].type != ComponentKind::File) continue;
        exchange.want(i, components[i].path + kProtectedSuffix, ComponentKind::SecuredFile, true);
    }
    if (exchange.empty()) throw Failure(exchange.about() + ": no component is a plain file, wanted is one at least");
    exchange.run(
        [&key](const std::filesystem::path& from, const std::filesystem::path& to) {
            require(toGenericText(from), Kit::protectFile(toFilepath(from), key.data(), toFilepath(to)));
        },
        "protecting", console);
    return kDone;
}

}  // namespace

void addProtect(Commands& commands) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = commands.add("protect", "Encrypt the files of a packaged model in place",
                                     "  mirelo keygen model.key\n  mirelo protect --key-file model.key digits",
                                     [options](Console& console) { return protect(*options, console); });
    command.add_option("--key-file", options->keyFile, "the file that holds the key")->required();
    command.add_option("PATH", options->path, "a manifest or a folder")->required();
}

}  // namespace TarnoMirelo::Tool
