#pragma once

#include "package.h"
#include "platform.h"

#include <cstddef>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// The text of a manifest, whose components can be changed: all else stays as it was written, to the byte.
class ManifestText {
 public:
    /// Of a component, as the text had it.
    struct Component {
        std::string name;
        std::string type;
        std::string path;
        bool hasSize = false;
        bool hasDigest = false;
    };

    /// Reads the manifest of a package that is no archive, and keeps other calls of the tool away from its folder.
    /// Raises `WrongUsage` for an archive, `Failure` where another call is at work there, or where the manifest can't
    /// be read, or has mistakes beyond a size or a digest that doesn't match.
    explicit ManifestText(const Package& package);

    /// Of all targets, in the order of the text.
    const std::vector<Component>& components() const { return components_; }
    /// The file or folder of a component, whether it is there or not.
    std::filesystem::path fileOf(const Component& component) const;
    /// The file of a component. Raises `Failure` where there is none, or where it is the manifest itself.
    std::filesystem::path existingFileOf(const Component& component) const;

    /// Gives a member of a component another value, or adds it.
    /// @param json  the value as JSON
    void set(size_t component, const std::string& key, const std::string& json);
    /// Removes a member of a component, if it is there.
    void remove(size_t component, const std::string& key);
    /// Writes the text with the changes in the place of the manifest: there is the old one or the new one at any time,
    /// whole and on the disk. Raises `FileException` that names the path where that fails.
    void save() const;

 private:
    struct Member {
        std::string key;
        size_t begin = 0;  // of the key
        size_t valueBegin = 0;
        size_t end = 0;
    };
    struct Object {
        size_t begin = 0;
        std::vector<Member> members;
    };
    struct Change {
        size_t begin;
        size_t end;
        std::string text;
    };

    size_t skipBlanks(size_t at) const;
    size_t endOfValue(size_t begin) const;
    std::string textAt(size_t begin, size_t end) const;
    Object readObject(size_t begin) const;
    void readTarget(size_t begin);
    void addComponent(size_t begin);

    std::filesystem::path manifest_;
    Platform::FolderLock lock_;
    std::string about_;  // how messages name it
    std::string text_;
    std::vector<Component> components_;
    std::vector<Object> objects_;  // of the components
    std::vector<Change> changes_;
};

}  // namespace TarnoMirelo::Tool
