#include "commands.h"
#include "component_exchange.h"
#include "keys.h"
#include "kit/src/component_files.h"

namespace TarnoMirelo::Tool {
namespace {

std::string plainPath(const std::string& path) {
    const std::string_view suffix = Kit::kProtectedSuffix;
    return path.ends_with(suffix) ? path.substr(0, path.size() - suffix.size()) : path + ".plain";
}

ExitCode unprotect(const ProtectionOptions& options, Console& console) {
    const Kit::SecretBytes key = readKey(options.keyFile);
    ComponentExchange exchange(options.path, options.keyFile);
    const std::vector<ManifestText::Component>& components = exchange.manifest().components();
    for (size_t i = 0; i < components.size(); ++i) {
        if (components[i].type == ComponentKind::SecuredTar) {
            throw Failure(
                exchange.about() + ": component \"" + components[i].name +
                "\" is a protected archive, and there is no kind for a plain one. Write \"secured_file\" for its "
                "type, unprotect that, unpack the archive, and name the folder as a component of type \"dir\"");
        }
        if (components[i].type == ComponentKind::SecuredFile) {
            exchange.want(i, plainPath(components[i].path), ComponentKind::File, false);
        } else if (components[i].type == ComponentKind::File) {
            exchange.wantGone(i, components[i].path + std::string(Kit::kProtectedSuffix));
        }
    }
    if (exchange.empty()) {
        throw Failure(exchange.about() + ": no component is a protected file, wanted is one at least");
    }
    exchange.run(
        [&key](const std::filesystem::path& from, const std::filesystem::path& to) {
            require(toGenericText(from), Kit::unprotectFile(toFilepath(from), key.data(), toFilepath(to)));
        },
        [&key](const std::filesystem::path& from, const std::filesystem::path& to) { return holds(from, key, to); },
        "opening", console);
    return kDone;
}

}  // namespace

void addUnprotect(Commands& commands) {
    const auto options = std::make_shared<ProtectionOptions>();
    CLI::App& command = commands.add("unprotect", "Decrypt the files of a packaged model in place",
                                     "  mirelo unprotect --key-file model.key digits",
                                     [options](Console& console) { return unprotect(*options, console); });
    addProtectionOptions(command, *options);
}

}  // namespace TarnoMirelo::Tool
