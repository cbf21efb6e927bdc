#include "component_exchange.h"

#include "failure.h"
#include "interrupt.h"
#include "kit/src/platform.h"
#include "paths.h"
#include "platform.h"

#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/kit/package.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace TarnoMirelo::Tool {

namespace fs = std::filesystem;

ComponentExchange::ComponentExchange(const std::string& path, std::string keyFile)
    : keyFile_(std::move(keyFile)), package_(path), manifest_(package_) {
    if (fs::is_symlink(package_.manifest())) {
        throw Failure(about() + ": the manifest is a symbolic link, wanted is the file itself");
    }
}

ComponentExchange::~ComponentExchange() {
    std::error_code ignored;  // there is another failure to tell already
    for (const fs::path& each : made_) fs::remove(each, ignored);
}

void ComponentExchange::want(size_t component, const std::string& path, const std::string& type, bool isProtected) {
    wanted_.push_back({component, path, type, isProtected});
}

void ComponentExchange::wantGone(size_t component, const std::string& oldPath) {
    ManifestText::Component old = manifest_.components()[component];
    const std::string newPath = old.path;
    const fs::path to = manifest_.fileOf(old);
    old.path = oldPath;
    const fs::path from = manifest_.fileOf(old);
    const auto isOneFile = [](const fs::path& a, const fs::path& b) {
        return a.lexically_normal() == b.lexically_normal();
    };
    const bool isListed =
        std::any_of(left_.begin(), left_.end(), [&](const File& each) { return isOneFile(each.from, from); });
    const bool isComponents =
        std::any_of(manifest_.components().begin(), manifest_.components().end(),
                    [&](const ManifestText::Component& each) { return isOneFile(manifest_.fileOf(each), from); });
    if (isListed || isComponents || !fs::is_regular_file(fs::symlink_status(from))) return;
    left_.push_back({oldPath, newPath, from, to, true});
}

// Raises for what is in the way.
std::vector<ComponentExchange::File> ComponentExchange::files(const IsMade& isMade) const {
    for (const File& each : left_) {
        if (isMade(each.from, each.to)) continue;
        throw Failure(about() + ": \"" + each.oldPath + "\" lies beside \"" + each.newPath +
                      "\", and with this key they do not have the same content; wanted is one of the two alone");
    }
    std::vector<File> files = left_;
    for (const Wanted& wanted : wanted_) {
        ManifestText::Component component = manifest_.components()[wanted.component];
        const fs::path from = manifest_.existingFileOf(component);
        const std::string oldPath = component.path;
        if (fs::is_symlink(from)) {  // whose removal would leave the content elsewhere
            throw Failure(about() + ": \"" + oldPath + "\" is a symbolic link, wanted is the file itself");
        }
        component.path = wanted.path;
        const bool isShared = std::any_of(files.begin(), files.end(), [&](const File& each) {
            return each.from.lexically_normal() == from.lexically_normal();
        });
        if (isShared) continue;
        const fs::path to = manifest_.fileOf(component);
        const fs::file_status status = fs::symlink_status(to);
        if (fs::exists(status) && !(fs::is_regular_file(status) && isMade(from, to))) {
            throw Failure(about() + ": \"" + wanted.path + "\" is there already, wanted is a name that is free");
        }
        files.push_back({oldPath, wanted.path, from, to, fs::exists(status)});
    }
    const auto key = std::find_if(files.begin(), files.end(), [this](const File& each) {
        std::error_code ignored;  // they are there
        return fs::equivalent(each.from, toPath(keyFile_), ignored);
    });
    if (key != files.end()) {
        throw Failure(about() + ": \"" + key->oldPath +
                      "\" is the file of the key, which would be lost; wanted is a key outside of the folder");
    }
    return files;
}

// Under its name once it is whole, and never in the place of a file that somebody has put there meanwhile.
void ComponentExchange::makeNew(const File& file, const Make& make) {
    // A name that `check` knows, should the process be killed.
    const fs::path beside = toPath(Kit::toText(Kit::Platform::pathBeside(toFilepath(file.to))));
    make(file.from, beside);
    if (const std::error_code error = Platform::renameToNew(beside, file.to)) {
        std::error_code ignored;  // there is another failure to tell already
        fs::remove(beside, ignored);
        throw Failure(about() + ": \"" + file.newPath + "\" can't be put there: " + error.message());
    }
    made_.push_back(file.to);
}

// The file is the new one.
void ComponentExchange::change(const Wanted& wanted, const fs::path& file) {
    const ManifestText::Component component = manifest_.components()[wanted.component];
    manifest_.set(wanted.component, "path", Json(wanted.path).dump());
    manifest_.set(wanted.component, "type", Json(wanted.type).dump());
    if (wanted.isProtected) {
        manifest_.set(wanted.component, "encryption", "true");
    } else {
        manifest_.remove(wanted.component, "encryption");
    }
    if (component.hasSize) manifest_.set(wanted.component, "size", std::to_string(fs::file_size(file)));
    if (!component.hasDigest) return;
    std::string digest;
    require(about(), Kit::sha256OfFile(toFilepath(file), digest));
    manifest_.set(wanted.component, "sha256", Json(digest).dump());
}

// What is damaged would get a new digest, and nobody could find the damage any more.
void ComponentExchange::verify() const {
    Kit::PackageReport report;
    Kit::PackageOptions options;
    options.progress = [](const Kit::PackageProgress& /*progress*/) { checkInterrupt(); };
    require(about(), Kit::verifyPackage(toFilepath(package_.manifest()), report, options));
}

void ComponentExchange::run(const Make& make, const IsMade& isMade, const std::string& work, Console& console) {
    const std::vector<File> all = files(isMade);
    verify();
    made_.reserve(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        checkInterrupt();
        if (all[i].isThere) continue;
        console.progress(work + " " + all[i].oldPath, static_cast<double>(i) / static_cast<double>(all.size()));
        makeNew(all[i], make);
    }
    for (const Wanted& each : wanted_) {
        ManifestText::Component component = manifest_.components()[each.component];
        component.path = each.path;
        change(each, manifest_.fileOf(component));
    }
    checkInterrupt();
    syncNewFiles(all);
    if (!wanted_.empty()) manifest_.save();
    made_.clear();
    if (!Platform::syncDirectory(realPath(package_.manifest()).parent_path())) {
        throw Failure(about() + ": the new manifest may not be on the disk yet, so the old files were left there");
    }
    removeOldFiles(all);
    Json json = {{"manifest", about()}, {"files", Json::array()}};
    for (const File& each : all) {
        json["files"].push_back({{"from", each.oldPath}, {"to", each.newPath}});
        if (!console.json()) console.print(printable(each.oldPath + " -> " + each.newPath) + "\n");
    }
    if (console.json()) console.printJson(json);
}

// A name can be lost where its file is not, until the directory is on the disk, too.
void ComponentExchange::syncNewFiles(const std::vector<File>& files) const {
    for (const File& each : files) {
        if (Platform::syncDirectory(each.to.parent_path())) continue;
        throw Failure(about() + ": the directory of \"" + each.newPath + "\" can't be written to the disk");
    }
}

void ComponentExchange::removeOldFiles(const std::vector<File>& files) const {
    std::string left;
    for (const File& each : files) {
        std::error_code error;
        fs::remove(each.from, error);
        if (error) left += " \"" + each.oldPath + "\" (" + error.message() + ")";
    }
    if (!left.empty()) {
        throw Failure(about() +
                      ": everything is in place, but these old files can't be removed: remove them by hand:" + left);
    }
}

}  // namespace TarnoMirelo::Tool
