#include "commands.h"
#include "component_exchange.h"
#include "keys.h"
#include "kit/src/component_files.h"

namespace TarnoMirelo::Tool {
namespace {

// Two keys would leave a package that no command opens.
void requireOneKey(const ComponentExchange& exchange, const Kit::SecretBytes& key) {
    for (const ManifestText::Component& each : exchange.manifest().components()) {
        if (each.type != ComponentKind::SecuredFile && each.type != ComponentKind::SecuredTar) continue;
        if (opens(exchange.manifest().existingFileOf(each), key)) continue;
        throw Failure(exchange.about() + ": \"" + each.path +
                      "\" does not open with this key, wanted is the key that the package has already");
    }
}

constexpr const char* kArchiveAdvice =
    "pack the folder with \"mirelo pack\", remove the folder, name the archive as a component of type \"file\", protect that, and write "
    "\"secured_tar\" for its type";

void refuseFilesOfNoComponent(const ComponentExchange& exchange) {
    const std::string files = exchange.package().filesOfNoComponent(exchange.package().folder());
    if (files.empty()) return;
    throw Failure(
        exchange.about() + ": no component names these files, so they would stay plain: " + files +
        ". Move those that are no secret out of the folder, and back afterwards. Put weights and their network "
        "into a folder of their own, " +
        kArchiveAdvice);
}

ExitCode protect(const ProtectionOptions& options, Console& console) {
    const std::string suffix(Kit::kProtectedSuffix);
    const Kit::SecretBytes key = readKey(options.keyFile);
    ComponentExchange exchange(options.path, options.keyFile);
    const std::vector<ManifestText::Component>& components = exchange.manifest().components();
    for (size_t i = 0; i < components.size(); ++i) {
        if (components[i].type == ComponentKind::Dir) {
            throw Failure(exchange.about() + ": component \"" + components[i].name +
                          "\" is a folder, which can't be protected as it is: " + kArchiveAdvice);
        }
        if (components[i].type == ComponentKind::File) {
            exchange.want(i, components[i].path + suffix, ComponentKind::SecuredFile, true);
        } else if (components[i].type.starts_with("secured_") && components[i].path.ends_with(suffix)) {
            exchange.wantGone(i, components[i].path.substr(0, components[i].path.size() - suffix.size()));
        }
    }
    if (exchange.empty()) throw Failure(exchange.about() + ": no component is a plain file, wanted is one at least");
    requireOneKey(exchange, key);
    refuseFilesOfNoComponent(exchange);
    exchange.run(
        [&key](const std::filesystem::path& from, const std::filesystem::path& to) {
            require(toGenericText(from), Kit::protectFile(toFilepath(from), key.data(), toFilepath(to)));
        },
        [&key](const std::filesystem::path& from, const std::filesystem::path& to) { return holds(to, key, from); },
        "protecting", console);
    return kDone;
}

}  // namespace

void addProtect(Commands& commands) {
    const auto options = std::make_shared<ProtectionOptions>();
    CLI::App& command = commands.add("protect", "Encrypt the files of a packaged model in place",
                                     "  mirelo keygen model.key\n  mirelo protect --key-file model.key digits",
                                     [options](Console& console) { return protect(*options, console); });
    addProtectionOptions(command, *options);
}

}  // namespace TarnoMirelo::Tool
