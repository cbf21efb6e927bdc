#include "commands.h"
#include "interrupt.h"
#include "keys.h"
#include "package.h"
#include "text_table.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/kit/targets.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <map>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

// A file or a folder of the package.
struct Content {
    bool isFolder = false;
    uint64_t files = 0;
    uint64_t bytes = 0;
    std::string sha256;                                 // of a file
    std::string problem;                                // empty: none
    std::optional<uint64_t> plainBytes = std::nullopt;  // that a protected file holds; nothing where there is no key
};

// The path is below `folder`.
struct Entry {
    std::string path;
    Content content;
};

Content contentOf(const fs::path& path) try {
    Content content;
    const fs::file_status status = fs::status(path);
    if (fs::is_regular_file(status)) {
        content.files = 1;
        content.bytes = fs::file_size(path);
        const MireloStatus read = Kit::sha256OfFile(toFilepath(path), content.sha256);
        if (!read.ok()) content.problem = "it can't be read: " + Kit::describe(read);
    } else if (fs::is_directory(status)) {
        content.isFolder = true;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
            checkInterrupt();
            if (!entry.is_regular_file()) continue;
            ++content.files;
            content.bytes += entry.file_size();
        }
    } else {
        content.problem = fs::exists(status) ? "it is neither a file nor a folder" : "nothing is there";
    }
    return content;
} catch (const fs::filesystem_error& error) {
    Content content;
    content.problem = "it can't be read: " + error.code().message();
    return content;
}

bool isInMemory(const ModelComponent& component) {
    return component.type == ComponentKind::MemoryStream || component.type == ComponentKind::SecuredMemoryStream;
}

Content contentOf(const ModelComponent& component, const fs::path& folder) {
    if (isInMemory(component)) return {};
    Content content;
    if (component.path.empty() || !Kit::staysInside(component.path)) {
        content.problem = "the path leads out of the model's folder";
        return content;
    }
    std::string path = component.path;
    std::replace(path.begin(), path.end(), '\\', '/');
    return contentOf(folder / toPath(path));
}

bool isProtectedFile(const ModelComponent& component) {
    return component.type == ComponentKind::SecuredFile || component.type == ComponentKind::SecuredTar;
}

// Proves that a protected file opens with the key.
void open(const ModelComponent& component, const Package& package, const Kit::SecretBytes& key, Content& content) {
    if (!content.problem.empty() || content.isFolder) return;
    std::string path = component.path;
    std::replace(path.begin(), path.end(), '\\', '/');
    Kit::SecretBytes plain;
    const Filepath file = toFilepath(package.manifest().parent_path() / toPath(path));
    const MireloStatus status = Kit::unprotectFile(file, key.data(), plain);
    if (status.ok()) {
        content.plainBytes = plain.size();
    } else {
        content.problem = "it does not open: " + Kit::describe(status);
        content.sha256.clear();
    }
}

std::vector<Entry> entriesOf(const fs::path& folder) {
    std::vector<Entry> entries;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        checkInterrupt();
        const std::string path = toGenericText(entry.path().lexically_relative(folder));
        if (entry.is_directory()) {
            entries.push_back({path + "/", {true, 0, 0, "", "", std::nullopt}});
        } else {
            entries.push_back({path, contentOf(entry.path())});
        }
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.path < b.path; });
    return entries;
}

// The key of the type in a manifest.
const char* keyOf(MireloModelType type) {
    switch (type) {
        case MireloModelType::CoreML:
            return TargetKey::CoreML;
        case MireloModelType::OpenVino:
            return TargetKey::OpenVino;
        case MireloModelType::TFLite:
            return TargetKey::TensorflowLite;
        case MireloModelType::TFJS:
            return TargetKey::TFJS;
        default:
            return TargetKey::WinML;
    }
}

// "1 byte", "12,345 bytes"
std::string inBytes(uint64_t bytes) {
    std::string digits = std::to_string(bytes);
    for (size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, ",");
    return digits + (bytes == 1 ? " byte" : " bytes");
}

std::string inFiles(uint64_t files) { return std::to_string(files) + (files == 1 ? " file" : " files"); }

// What the package holds, read once for both forms of the results.
struct Contents {
    Contents(const Package& package, const Kit::SecretBytes& key);

    struct Target {
        const ModelTarget* target;
        std::vector<Content> components;  // in the target's order
    };

    bool whole = true;  // nothing has a problem
    Kit::AllTargetsMetadata metadata;
    std::vector<Target> targets;
    std::vector<Entry> entries;  // of an archive
};

Contents::Contents(const Package& package, const Kit::SecretBytes& key) {
    package.load(metadata);
    std::map<MireloModelType, const ModelTarget*> sorted;
    for (const auto& [type, target] : metadata.getTargets()) sorted.emplace(type, &target);
    for (const auto& [type, target] : sorted) {
        Target described{target, {}};
        for (const ModelComponent& component : target->components) {
            described.components.push_back(contentOf(component, package.manifest().parent_path()));
            if (key.size() != 0 && isProtectedFile(component))
                open(component, package, key, described.components.back());
            whole = whole && described.components.back().problem.empty();
        }
        targets.push_back(std::move(described));
    }
    if (package.isArchive()) entries = entriesOf(package.folder());
}

std::string sizeText(const Content& content) {
    if (!content.problem.empty()) return content.problem;
    if (content.plainBytes) return inBytes(content.bytes) + ", holds " + inBytes(*content.plainBytes);
    return content.isFolder ? inFiles(content.files) + ", " + inBytes(content.bytes) : inBytes(content.bytes);
}

void addFeatures(std::string& page, const char* title, const std::vector<ModelFeatureDescriptor>& features) {
    TextTable table("    ");
    for (const ModelFeatureDescriptor& feature : features) {
        const bool isTensor = feature.type() == MireloFeatureType::Tensor;
        const TensorDescriptor& tensor = feature.tensorDescriptor();
        table.addRow({feature.name(), GetMireloFeatureTypeName(feature.type()),
                      isTensor ? Kit::toText(tensor.tensorType()) + " " + Kit::toText(tensor.shape()) : "",
                      feature.required() ? "" : "optional", feature.description()});
    }
    page += std::string("  ") + title + (table.empty() ? ": none" : "") + "\n" + table.text();
}

std::string targetPage(const Contents::Target& described, const Console& console) {
    const ModelTarget& target = *described.target;
    std::string page = "\n" + console.paint(Colour::Bold, std::string("Target ") + keyOf(target.modelType)) + "\n";
    TextTable table("    ");
    for (size_t i = 0; i < target.components.size(); ++i) {
        const ModelComponent& component = target.components[i];
        const Content& content = described.components[i];
        table.addRow({component.name, component.type, component.path,
                      isInMemory(component) ? "given by the host" : sizeText(content), content.sha256});
    }
    page += std::string("  components") + (table.empty() ? ": none" : "") + "\n" + table.text();
    addFeatures(page, "inputs", target.inputs);
    addFeatures(page, "outputs", target.outputs);
    return page;
}

std::string pageOf(const Package& package, const Contents& contents, const Console& console) {
    const ModelMetadata& metadata = contents.metadata;
    std::string page =
        console.paint(Colour::Bold, metadata.getName().empty() ? "(no name)" : printable(metadata.getName())) +
        ", version " + std::to_string(metadata.getVersion()) + "\n";
    TextTable identity("  ");
    const std::pair<const char*, std::string> texts[] = {{"description", metadata.getDescription()},
                                                         {"id", metadata.getId()},
                                                         {"author", metadata.getAuthor()},
                                                         {"sdkVersion", metadata.getSdkVersion()},
                                                         {"manifest", package.manifestText()}};
    for (const auto& [name, text] : texts) identity.addRow({name, text.empty() ? "-" : text});
    page += identity.text();
    for (const Contents::Target& target : contents.targets) page += targetPage(target, console);
    if (contents.targets.empty()) page += "\nThere is no target.\n";
    if (!package.isArchive()) return page;
    TextTable entries("  ", {TextTable::Align::Left, TextTable::Align::Right});
    for (const Entry& entry : contents.entries) {
        entries.addRow({entry.path, entry.content.isFolder ? "" : sizeText(entry.content), entry.content.sha256});
    }
    return page + "\n" + console.paint(Colour::Bold, "Entries") + "\n" + entries.text();
}

Json jsonOf(const Content& content) {
    Json json = {{"kind", content.isFolder ? "folder" : "file"}};
    if (!content.problem.empty()) return {{"problem", content.problem}};
    if (content.isFolder) json["files"] = content.files;
    json["bytes"] = content.bytes;
    if (!content.isFolder) json["sha256"] = content.sha256;
    if (content.plainBytes) json["plainBytes"] = *content.plainBytes;
    return json;
}

Json jsonOf(const std::vector<ModelFeatureDescriptor>& features) {
    Json json = Json::array();
    for (const ModelFeatureDescriptor& feature : features) {
        Json described = {{"name", feature.name()},
                          {"description", feature.description()},
                          {"required", feature.required()},
                          {"featureType", GetMireloFeatureTypeName(feature.type())}};
        if (feature.type() == MireloFeatureType::Tensor) {
            described["dataType"] = Kit::toText(feature.tensorDescriptor().tensorType());
            described["shape"] = feature.tensorDescriptor().shape().shapeVector();
        }
        json.push_back(std::move(described));
    }
    return json;
}

Json jsonOf(const Contents::Target& described) {
    Json components = Json::array();
    for (size_t i = 0; i < described.components.size(); ++i) {
        const ModelComponent& component = described.target->components[i];
        Json json = {{"name", component.name}, {"type", component.type}, {"path", component.path}};
        if (!isInMemory(component)) json["content"] = jsonOf(described.components[i]);
        components.push_back(std::move(json));
    }
    return {{"key", keyOf(described.target->modelType)},
            {"components", std::move(components)},
            {"inputs", jsonOf(described.target->inputs)},
            {"outputs", jsonOf(described.target->outputs)}};
}

Json jsonOf(const Package& package, const Contents& contents) {
    const ModelMetadata& metadata = contents.metadata;
    Json json = {{"manifest", package.manifestText()},
                 {"id", metadata.getId()},
                 {"name", metadata.getName()},
                 {"version", metadata.getVersion()},
                 {"author", metadata.getAuthor()},
                 {"description", metadata.getDescription()},
                 {"sdkVersion", metadata.getSdkVersion()}};
    json["targets"] = Json::array();
    for (const Contents::Target& target : contents.targets) json["targets"].push_back(jsonOf(target));
    if (!package.isArchive()) return json;
    json["entries"] = Json::array();
    for (const Entry& entry : contents.entries) {
        Json described = {{"path", entry.path}};
        described.update(entry.content.isFolder ? Json{{"kind", "folder"}} : jsonOf(entry.content));
        json["entries"].push_back(std::move(described));
    }
    return json;
}

ExitCode inspect(const std::string& path, const std::string& keyFile, Console& console) {
    const Kit::SecretBytes key = readKeyIfNamed(keyFile);
    const Package package(path);
    const Contents contents(package, key);
    if (console.json()) {
        console.printJson(jsonOf(package, contents));
    } else {
        console.print(pageOf(package, contents, console));
    }
    if (!contents.whole) throw Failure(path + ": not every component is there as the manifest says");
    return kDone;
}

}  // namespace

void addInspect(Commands& commands) {
    const auto path = std::make_shared<std::string>();
    const auto keyFile = std::make_shared<std::string>();
    CLI::App& command =
        commands.add("inspect", "Show what a packaged model holds", "  mirelo inspect digits/manifest.json",
                     [path, keyFile](Console& console) { return inspect(*path, *keyFile, console); });
    command.add_option("PATH", *path, "a manifest, a folder or a .tar archive")->required();
    addKeyOption(command, *keyFile);
}

}  // namespace TarnoMirelo::Tool
