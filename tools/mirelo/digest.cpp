#include "commands.h"
#include "interrupt.h"
#include "manifest_text.h"
#include "text_table.h"

#include <TarnoMirelo/kit/digest.h>

namespace TarnoMirelo::Tool {
namespace {

bool isOneFile(const std::string& kind) {
    return kind == ComponentKind::File || kind == ComponentKind::SecuredFile || kind == ComponentKind::SecuredTar;
}

ExitCode digest(const std::string& path, Console& console) {
    const Package package(path);
    ManifestText manifest(package);
    Json json = {{"manifest", package.manifestText()}, {"components", Json::array()}};
    TextTable table("", {TextTable::Align::Left, TextTable::Align::Right});
    const std::vector<ManifestText::Component>& components = manifest.components();
    for (size_t i = 0; i < components.size(); ++i) {
        checkInterrupt();
        console.progress("hashing " + components[i].path,
                         static_cast<double>(i) / static_cast<double>(components.size()));
        if (!isOneFile(components[i].type)) continue;
        const std::filesystem::path file = manifest.existingFileOf(components[i]);
        std::string sha256;
        require(package.manifestText(), Kit::sha256OfFile(toFilepath(file), sha256));
        const uint64_t bytes = std::filesystem::file_size(file);
        manifest.set(i, "size", std::to_string(bytes));
        manifest.set(i, "sha256", '"' + sha256 + '"');
        json["components"].push_back({{"path", components[i].path}, {"bytes", bytes}, {"sha256", sha256}});
        table.addRow({components[i].path, std::to_string(bytes) + " bytes", sha256});
    }
    if (table.empty()) {
        throw Failure(package.manifestText() + ": no component is a file, and folders have no digest");
    }
    manifest.save();
    warnOfFilesOfNoComponent(package, package.folder(), console);
    if (console.json()) {
        console.printJson(json);
    } else {
        console.print(table.text());
    }
    return kDone;
}

}  // namespace

void addDigest(Commands& commands) {
    const auto path = std::make_shared<std::string>();
    commands
        .add("digest", "Write sizes and SHA-256 digests of the files into the manifest", "  mirelo digest digits",
             [path](Console& console) { return digest(*path, console); })
        .add_option("PATH", *path, "a manifest or a folder")
        ->required();
}

}  // namespace TarnoMirelo::Tool
