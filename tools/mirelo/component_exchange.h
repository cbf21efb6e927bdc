#pragma once

#include "console.h"
#include "manifest_text.h"

#include <functional>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// New files in the place of components' files, under other names: all of them or none. The manifest names the old
/// files until every new one is whole and on the disk, and the new ones from then on; only then the old ones go.
/// What an exchange that was killed has left is finished by the next one.
class ComponentExchange {
 public:
    /// Makes the new file of the old one, whole and on the disk, or raises.
    using Make = std::function<void(const std::filesystem::path& from, const std::filesystem::path& to)>;
    /// Whether a file that is there is what `Make` would make of the old one.
    using IsMade = std::function<bool(const std::filesystem::path& from, const std::filesystem::path& to)>;

    /// Raises as `ManifestText`, and `Failure` for a manifest that is a symbolic link: other folders may have it, too.
    /// @param keyFile  no file that is replaced may be this one
    ComponentExchange(const std::string& path, std::string keyFile);
    ComponentExchange(const ComponentExchange&) = delete;
    ComponentExchange& operator=(const ComponentExchange&) = delete;
    /// Removes the new files if the manifest does not name them.
    ~ComponentExchange();

    const Package& package() const { return package_; }
    const ManifestText& manifest() const { return manifest_; }
    std::string about() const { return package_.manifestText(); }

    /// Wants another file for a component. Components may share one.
    /// @param path          of the new file, as the manifest has it
    /// @param isProtected   whether the manifest is to say "encryption"
    void want(size_t component, const std::string& path, const std::string& type, bool isProtected);
    /// Wants the old file of a component that has the new one gone, if it is still there and no component's.
    /// @param oldPath  as the manifest had it
    void wantGone(size_t component, const std::string& oldPath);
    bool empty() const { return wanted_.empty() && left_.empty(); }

    /// Does it, and prints which file replaces which. Raises `Failure` before anything is changed where a new file's
    /// name is taken by another one, an old file is not what the new one was made of, or a component is not what its
    /// size and digest say, and afterwards for an old file that can't be removed.
    /// @param work  for the progress, as in "protecting"
    void run(const Make& make, const IsMade& isMade, const std::string& work, Console& console);

 private:
    struct Wanted {
        size_t component;
        std::string path;
        std::string type;
        bool isProtected;
    };
    // Of one file, whoever shares it.
    struct File {
        std::string oldPath;
        std::string newPath;
        std::filesystem::path from;
        std::filesystem::path to;
        bool isThere = false;  // the new one
    };

    std::vector<File> files(const IsMade& isMade) const;
    void makeNew(const File& file, const Make& make);
    void verify() const;
    void change(const Wanted& wanted, const std::filesystem::path& file);
    void syncNewFiles(const std::vector<File>& files) const;
    void removeOldFiles(const std::vector<File>& files) const;

    std::string keyFile_;
    Package package_;
    ManifestText manifest_;
    std::vector<Wanted> wanted_;
    std::vector<File> left_;                   // old files that an exchange before this one has left
    std::vector<std::filesystem::path> made_;  // and not yet named by the manifest
};

}  // namespace TarnoMirelo::Tool
