#include "component_files.h"

#include "nearest_name.h"

#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/manifest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

using Words = FindingList::Words;

constexpr size_t kMostCompared = 1000;  // names of a directory, in search of the one that was meant

std::string lowerCased(std::string_view text) {
    std::string lower(text);
    for (char& each : lower) {
        if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
    }
    return lower;
}

// The names in directories. Each directory is read once, however many components lie in it.
class Directories {
 public:
    struct Names {
        bool isDirectory = false;  // what was asked for
        std::vector<std::string> all;
        std::unordered_map<std::string, size_t> exact;
        std::unordered_map<std::string, size_t> lower;  // by the name in lower-case letters
    };

    const Names& in(const Filepath& directory) {
        const auto [found, isNew] = names_.try_emplace(directory.getPathString());
        Names& names = found->second;
        if (!isNew) return names;
        for (const Filepath& each : FileUtils().findFilesByPattern(directory, "*")) {
            names.isDirectory = true;  // even an empty one has "."
            const size_t index = names.all.size();
            if (each.getPathString() == "." || each.getPathString() == "..") continue;
            names.all.push_back(each.getPathString());
            names.exact.emplace(names.all.back(), index);
            names.lower.emplace(lowerCased(names.all.back()), index);
        }
        return names;
    }

    // Files in the directories so far that never got their final name.
    std::vector<std::string> unfinished() const {
        std::vector<std::string> found;
        for (const auto& [directory, names] : names_) {
            std::copy_if(names.all.begin(), names.all.end(), std::back_inserter(found), isUnfinished);
        }
        return found;
    }

 private:
    std::map<std::string, Names> names_;
};

// Where a path leads, by the names that the directories have.
struct Place {
    Filepath path;
    std::string spelling;  // as the directories have it
    bool isExact = true;
    std::optional<std::string> missing;  // the name that is not there; `path` and `spelling` end before it
};

Place follow(const std::string& path, const Filepath& rootDir, Directories& directories) {
    Place place;
    place.path = rootDir;
    for (size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = path.find_first_of("/\\", begin);
        const std::string name = path.substr(begin, end - begin);
        if (name.empty() || name == ".") continue;
        const Directories::Names& names = directories.in(place.path);
        std::string actual = name;
        if (names.exact.find(name) == names.exact.end()) {
            const auto other = names.lower.find(lowerCased(name));
            if (other == names.lower.end()) {
                place.missing = name;
                return place;
            }
            actual = names.all[other->second];
            place.isExact = false;
        }
        place.path.append(Filepath(actual));
        place.spelling += (place.spelling.empty() ? "" : "/") + actual;
    }
    return place;
}

// Whether a path can only be a directory's: the system opens no file by it.
bool namesDirectory(const std::string& path) {
    const std::string name = path.substr(path.find_last_of("/\\") + 1);
    return name.empty() || name == ".";
}

bool isReadableFile(const Filepath& path, uint64_t& size) {
    try {
        size = FileUtils().getFileSize(path);
        return true;
    } catch (const FileException&) {
        return false;
    }
}

class ComponentCheck {
 public:
    ComponentCheck(const Filepath& rootDir, const std::string& manifest, FindingList& findings)
        : rootDir_(rootDir), manifest_(lowerCased(manifest)), findings_(findings) {}

    void check(const ComponentEntry& component) {
        const bool isDirectory = component.type == ComponentKind::Dir;
        const bool isOnDisk = isDirectory || component.type == ComponentKind::File ||
                              component.type == ComponentKind::SecuredFile ||
                              component.type == ComponentKind::SecuredTar;
        if (!isOnDisk) return;
        const Place place = follow(component.path, rootDir_, directories_);
        if (place.missing) return reportMissing(component, place);
        if (!place.isExact) {
            report(Severity::Error, component, component.pathOffset, "/path",
                   {"The path differs from the file's in the case of letters: it is found on Windows alone",
                    quotedExcerpt(component.path), quotedExcerpt(place.spelling), "Write \"" + place.spelling + "\"."});
        }
        if (lowerCased(place.spelling) == manifest_) {
            report(Severity::Error, component, component.pathOffset, "/path",
                   {"A component can't be the manifest itself", quotedExcerpt(component.path), "another file",
                    "Write the path of the component's file."});
            return;
        }
        uint64_t size = 0;
        const bool isFile = isReadableFile(place.path, size);
        const bool isListed = !isFile && directories_.in(place.path).isDirectory;
        if (isDirectory) {
            if (!isListed) reportKind(component, isFile ? "a file" : "something that can't be opened", "a directory");
        } else if (!isFile) {
            reportKind(component, isListed ? "a directory" : "something that can't be opened", "a file");
        } else if (namesDirectory(component.path)) {
            report(Severity::Error, component, component.pathOffset, "/path",
                   {"A file's path ends in its name", quotedExcerpt(component.path), quotedExcerpt(place.spelling),
                    "Write \"" + place.spelling + "\"."});
        } else {
            checkContent(component, place.path, size);
            checkPlainForm(component);
        }
    }

    void checkUnfinished() {
        for (const std::string& name : directories_.unfinished()) {
            if (!findings_.count(Severity::Warning)) continue;
            findings_.add(Severity::Warning, std::nullopt, "",
                          {"A call that was stopped has left an unfinished file", quotedExcerpt(name), "no such file",
                           "Remove it: it may hold a part of what is protected."});
        }
    }

 private:
    void report(Severity severity, const ComponentEntry& component, size_t offset, const char* key, Words words) {
        if (findings_.count(severity)) findings_.add(severity, offset, component.pointer + key, std::move(words));
    }

    void reportMissing(const ComponentEntry& component, const Place& place) {
        if (!findings_.count(Severity::Error)) return;
        const std::string directory =
            place.spelling.empty() ? "the manifest's directory" : quotedExcerpt(place.spelling);
        if (!directories_.in(place.path).isDirectory) {
            return findings_.add(Severity::Error, component.pathOffset, component.pointer + "/path",
                                 {"The directory can't be read", directory, "a directory that may be listed",
                                  "Correct the path, or the directory's permissions."});
        }
        const std::vector<std::string>& names = directories_.in(place.path).all;
        const std::vector<std::string_view> candidates(
            names.begin(), names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), kMostCompared)));
        const std::string_view meant = nearestName(*place.missing, candidates);
        findings_.add(
            Severity::Error, component.pathOffset, component.pointer + "/path",
            {"Nothing is there", "no " + quotedExcerpt(*place.missing) + " in " + directory, "the component's file",
             meant.empty() ? "Write the path of the file, or put the file there."
                           : "Write " + quotedExcerpt(meant) + "."});
    }

    void reportKind(const ComponentEntry& component, const char* found, const char* wanted) {
        report(Severity::Error, component, component.pathOffset, "/path",
               {"It is not what \"type\" says", found, wanted + std::string(", as for \"") + component.type + '"',
                "Correct the path or the type."});
    }

    void checkContent(const ComponentEntry& component, const Filepath& path, uint64_t size) {
        if (component.size && *component.size != size) {
            report(Severity::Error, component, component.sizeOffset, "/size",
                   {"The file has another size", std::to_string(*component.size), std::to_string(size), kStale});
        } else if (!component.sha256.empty()) {
            checkDigest(component, path);
        }
    }

    // Somebody who protects a package can be stopped before the plain files are removed.
    void checkPlainForm(const ComponentEntry& component) {
        if (component.type == ComponentKind::File || !component.path.ends_with(kProtectedSuffix)) return;
        const std::string path = component.path.substr(0, component.path.size() - kProtectedSuffix.size());
        if (namesDirectory(path)) return;
        const Place plain = follow(path, rootDir_, directories_);
        if (plain.missing) return;
        report(Severity::Warning, component, component.pathOffset, "/path",
               {"What looks like its plain form lies beside the protected file", quotedExcerpt(plain.spelling),
                "the protected file alone", "Protect the package again, which removes the plain form, or remove it."});
    }

    void checkDigest(const ComponentEntry& component, const Filepath& path) {
        std::string& digest = digests_[path.getPathString()];
        MireloStatus status(SUCCESS, "");
        if (digest.empty()) status = sha256OfFile(path, digest);
        if (!status.ok()) {
            report(Severity::Error, component, component.sha256Offset, "/sha256",
                   {"The file's digest can't be computed", excerpt(status.getDescription()), "a digest",
                    "Check that the file may be read."});
        } else if (digest != component.sha256) {
            report(Severity::Error, component, component.sha256Offset, "/sha256",
                   {"The file has another digest", component.sha256, digest, kStale});
        }
    }

    static constexpr const char* kStale = "Get the file again, or write its size and digest anew.";

    const Filepath& rootDir_;
    const std::string manifest_;  // its name, in lower-case letters
    FindingList& findings_;
    Directories directories_;
    std::map<std::string, std::string> digests_;  // by path: components may share a file
};

}  // namespace

bool isUnfinished(const std::string& name) {
    constexpr std::string_view kEnd = ".part";
    constexpr size_t kFewestDigits = 12;
    if (!name.ends_with(kEnd)) return false;
    const std::string stem = name.substr(0, name.size() - kEnd.size());
    const size_t dot = stem.rfind('.');
    if (dot == std::string::npos) return false;
    const std::string random = stem.substr(dot + 1);
    return random.size() >= kFewestDigits && random.find_first_not_of("0123456789") == std::string::npos;
}

void checkComponentFiles(const std::vector<ComponentEntry>& components, const Filepath& rootDir,
                         const std::string& manifest, FindingList& findings) {
    ComponentCheck check(rootDir, manifest, findings);
    for (const ComponentEntry& each : components) {
        try {
            check.check(each);
        } catch (const std::range_error&) {
            if (!findings.count(Severity::Error)) continue;
            findings.add(Severity::Error, each.pathOffset, each.pointer + "/path",
                         {"The path is not UTF-8", quotedExcerpt(each.path), "UTF-8", "Save the manifest as UTF-8."});
        }
    }
    check.checkUnfinished();
}

}  // namespace TarnoMirelo::Kit
