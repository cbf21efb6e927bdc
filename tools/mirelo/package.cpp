#include "package.h"

#include "failure.h"
#include "interrupt.h"
#include "kit/src/component_files.h"

#include <TarnoMirelo/kit/targets.h>

#include <algorithm>
#include <fstream>
#include <set>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

bool endsWith(const fs::path& path, const char* end) { return lowered(toText(path.filename())).ends_with(end); }

// Nothing where no file is named like a manifest.
std::optional<fs::path> manifestIn(const fs::path& folder, const std::string& about) {
    if (fs::is_regular_file(folder / "manifest.json")) return folder / "manifest.json";
    std::vector<fs::path> candidates;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.is_regular_file() && endsWith(entry.path(), ".json")) candidates.push_back(entry.path());
    }
    if (candidates.size() > 1) {
        throw Failure(about + ": " + std::to_string(candidates.size()) +
                      R"( files end in ".json" and none is "manifest.json"; give the path of the manifest itself)");
    }
    if (candidates.empty()) return std::nullopt;
    return candidates.front();
}

// The folder in a folder with no other one.
std::optional<fs::path> onlyFolderIn(const fs::path& folder) {
    std::optional<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (!entry.is_directory()) continue;
        if (found) return std::nullopt;
        found = entry.path();
    }
    return found;
}

fs::path findManifest(const fs::path& folder, const std::string& about) {
    std::optional<fs::path> manifest = manifestIn(folder, about);
    if (!manifest) {
        if (const std::optional<fs::path> inner = onlyFolderIn(folder)) manifest = manifestIn(*inner, about);
    }
    if (!manifest) {
        throw Failure(
            about + ": there is no manifest, wanted is a file that ends in \".json\", there or in the only subfolder");
    }
    return *manifest;
}

}  // namespace

Package::Package(const std::string& path) : path_(path) {
    const fs::path given = toPath(path);
    const fs::file_status status = fs::status(given);
    if (!fs::exists(status)) throw Failure(path + ": nothing is there");
    if (fs::is_directory(status)) {
        manifest_ = findManifest(given, path);
    } else if (endsWith(given, ".tar")) {
        unpacked_.emplace();
        unpackArchive(given, unpacked_->path(), path);
        manifest_ = findManifest(unpacked_->path(), path);
    } else if (endsWith(given, ".gz") || endsWith(given, ".tgz") || endsWith(given, ".zip") || endsWith(given, ".xz")) {
        throw Failure(path + ": the archive is compressed, wanted is a plain one: see \"mirelo pack --help\"");
    } else {
        manifest_ = given;
    }
}

std::string Package::manifestText() const {
    return printable(isArchive() ? path_ + ":" + toGenericText(manifest_.lexically_relative(unpacked_->path()))
                                 : toGenericText(manifest_));
}

void Package::load(ModelMetadata& metadata) const {
    const MireloStatus status = metadata.load(toFilepath(manifest_));
    if (!status.ok()) {
        throw Failure(manifestText() + ": it is no manifest that can be loaded; \"mirelo check " + path_ +
                      "\" says why");
    }
}

std::string Package::filesOfNoComponent(const fs::path& folder) const {
    constexpr size_t kMostLookedAt = 100;  // a manifest may lie among all the files of its owner
    constexpr size_t kMostNamed = 10;
    const std::string suffix(Kit::kProtectedSuffix);
    Kit::AllTargetsMetadata metadata;
    if (!metadata.load(toFilepath(manifest_)).ok()) return {};
    std::set<fs::path> known{fs::canonical(manifest_)};
    const auto add = [&](std::string path) {
        std::replace(path.begin(), path.end(), '\\', '/');
        known.insert(fs::weakly_canonical(manifest_.parent_path() / toPath(path)));
    };
    for (const auto& [type, target] : metadata.getTargets()) {
        for (const ModelComponent& component : target.components) {
            if (component.path.empty()) continue;
            add(component.path);
            if (component.type == ComponentKind::File) add(component.path + suffix);
            if (component.path.ends_with(suffix)) {
                add(component.path.substr(0, component.path.size() - suffix.size()));
            }
        }
    }
    std::set<std::string> found;
    const fs::path root = folder.empty() ? "." : folder;
    if (known.contains(fs::canonical(root))) return "";
    fs::recursive_directory_iterator each(root, fs::directory_options::skip_permission_denied);
    for (; each != fs::recursive_directory_iterator() && found.size() < kMostLookedAt; ++each) {
        checkInterrupt();
        std::error_code leadsNowhere;  // as a link can
        if (known.contains(fs::weakly_canonical(each->path(), leadsNowhere))) {
            each.disable_recursion_pending();
        } else if (!each->is_directory() || each->is_symlink()) {
            found.insert(toGenericText(each->path().lexically_relative(root)));
        }
    }
    std::string names;
    size_t named = 0;
    for (const std::string& file : found) {
        if (++named > kMostNamed) return names + " and more";
        names += (names.empty() ? "\"" : ", \"") + printable(file) + '"';
    }
    return names;
}

void warnOfFilesOfNoComponent(const Package& package, const fs::path& folder, Console& console) {
    const std::string files = package.filesOfNoComponent(folder);
    if (files.empty()) return;
    console.printWarning(package.manifestText() +
                         ": no component names these files, so they have no digest and are never "
                         "protected: " +
                         files);
}

void unpackArchive(const fs::path& archive, const fs::path& folder, const std::string& about) {
    uint64_t size = 0;
    const std::unique_ptr<char[]> bytes = FileUtils().readBinaryFileToBuffer(toFilepath(archive), size);
    if (bytes == nullptr) throw Failure(about + ": the file can't be opened");
    Filepath destination = toFilepath(folder);
    require(about,
            FileUtils().extractTarballOfSize(reinterpret_cast<const unsigned char*>(bytes.get()), size, destination));
}

}  // namespace TarnoMirelo::Tool
