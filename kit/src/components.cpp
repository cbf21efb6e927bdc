#include "cryptography.h"
#include "files/tar_archive.h"
#include "platform.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

constexpr char kSlashes[] = "/\\";

char lowered(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

MireloStatus refuse(const ModelComponent& component, STATUS_CODE code, const std::string& text) {
    return {code, "Component \"" + component.name + "\": " + text};
}

MireloStatus refuseKind(const ModelComponent& component, const char* wanted) {
    return refuse(component, MODEL_METADATA_ERROR, "the kind is \"" + component.type + "\", wanted is " + wanted);
}

// The same refusal, said of a component.
MireloStatus refuse(const ModelComponent& component, const MireloStatus& status) {
    std::string text = status.getDescription();
    if (!text.empty()) text[0] = lowered(text[0]);
    return refuse(component, status.getCode(), text);
}

MireloStatus noMemory(const ModelComponent& component) {
    return refuse(component, ALLOCATION_FAILED, "no memory for the content");
}

MireloStatus emptyBuffer(const ModelComponent& component) {
    return refuse(component, MODEL_METADATA_ERROR, "the buffer is empty, wanted is the content from the host");
}

bool isProtected(const ModelComponent& component) {
    return component.type == ComponentKind::SecuredFile || component.type == ComponentKind::SecuredTar ||
           component.type == ComponentKind::SecuredMemoryStream;
}

bool isAllZero(const unsigned char* key) {
    return std::all_of(key, key + 16, [](unsigned char byte) { return byte == 0; });
}

// Overwrites the keys in a copy of targets when its scope ends.
struct KeyWiper {
    ModelMetadata::Targets& targets;

    ~KeyWiper() {
        for (auto& [type, target] : targets) {
            for (ModelComponent& component : target.components) {
                Cryptography::wipe(const_cast<unsigned char*>(component.encryption.getKey()), Cryptography::kKeySize);
            }
        }
    }
};

// Whether the name ends so, whatever the case of its ASCII letters.
bool endsWithLetters(const std::string& name, const std::string& ending) {
    return name.size() >= ending.size() && std::equal(ending.rbegin(), ending.rend(), name.rbegin(),
                                                      [](char a, char b) { return lowered(a) == lowered(b); });
}

MireloStatus pathOf(const ModelComponent& component, const Filepath& rootDir, Filepath& path) {
    if (component.path.empty() || !staysInside(component.path)) {
        return refuse(component, MODEL_METADATA_ERROR,
                      "the path is \"" + component.path.substr(0, component.path.find('\0')) +
                          "\", wanted is a name below the model's directory");
    }
    Filepath joined = rootDir;
    joined.append(Filepath(component.path));
    path = std::move(joined);
    return {SUCCESS, ""};
}

MireloStatus readFile(const ModelComponent& component, const Filepath& rootDir, ComponentBytes& bytes) {
    Filepath path;
    MireloStatus status = pathOf(component, rootDir, path);
    if (!status.ok()) return status;
    try {
        Platform::InputFile file(path);
        std::unique_ptr<char[]> content(new char[file.size()]);  // not make_unique, which would fill it first
        if (file.read(content.get(), file.size()) != file.size()) {
            return refuse(component, FILE_ERROR, "the file " + toText(path) + " became shorter while it was read");
        }
        bytes = ComponentBytes(std::move(content), file.size());
        return status;
    } catch (const FileException&) {
        return refuse(component, getStatusFromCurrentException());
    } catch (const std::bad_alloc&) {
        return refuse(component, ALLOCATION_FAILED, "no memory for the file " + toText(path));
    }
}

// What the container of a protected component holds.
MireloStatus open(const ModelComponent& component, const Filepath& rootDir, SecretBytes& plain) {
    const unsigned char* const key = component.encryption.getKey();
    if (isAllZero(key)) {
        return refuse(component, MODEL_METADATA_ERROR,
                      "the key is all zero, wanted is the one that the content was protected with");
    }
    MireloStatus status;
    try {
        if (component.type == ComponentKind::SecuredMemoryStream) {
            if (component.buffer.empty()) return emptyBuffer(component);
            status = unprotect(component.buffer.data(), component.buffer.size(), key, plain);
        } else {
            Filepath path;
            status = pathOf(component, rootDir, path);
            if (!status.ok()) return status;
            status = unprotectFile(path, key, plain);
        }
    } catch (const std::bad_alloc&) {
        return noMemory(component);
    }
    return status.ok() ? status : refuse(component, status);
}

// The files of an archive in memory; a refusal names the entry.
std::optional<Tar::Refusal> list(const SecretBytes& archive, std::vector<ComponentFiles::File>& files) {
    Tar::Archive reader(archive.data(), archive.size());
    std::set<std::string> names;
    std::optional<Tar::Entry> entry;
    for (;;) {
        if (std::optional<Tar::Refusal> refusal = reader.next(entry)) return refusal;
        if (!entry) return std::nullopt;
        if (entry->isDirectory) continue;
        std::string name;
        for (const std::string_view part : Tar::componentsOf(entry->name)) {
            if (!name.empty()) name += '/';
            name += part;
        }
        if (!names.insert(name).second) return Tar::refused(entry->name, "its name comes twice");
        files.push_back({name, reinterpret_cast<const uint8_t*>(entry->data.data()), entry->data.size()});
    }
}

}  // namespace

ComponentBytes::ComponentBytes(std::unique_ptr<char[]> owned, uint64_t size)
    : owned_(std::move(owned)), data_(reinterpret_cast<const uint8_t*>(owned_.get())), size_(size) {}

ComponentBytes::ComponentBytes(SecretBytes owned)
    : secret_(std::move(owned)), data_(secret_.data()), size_(secret_.size()) {}

ComponentFiles::ComponentFiles(SecretBytes owned, std::vector<File> files)
    : owned_(std::move(owned)), files_(std::move(files)) {}

const ComponentFiles::File* ComponentFiles::find(const std::string& name) const {
    const auto found =
        std::find_if(files_.begin(), files_.end(), [&name](const File& file) { return file.name == name; });
    return found == files_.end() ? nullptr : &*found;
}

std::vector<std::string> ComponentFiles::names() const {
    std::vector<std::string> names;
    for (const File& file : files_) names.push_back(file.name);
    return names;
}

MireloStatus findOnlyName(const ModelComponent& component, const std::vector<std::string>& names,
                          const std::string& ending, std::string& name) {
    std::vector<std::string> found;
    for (const std::string& each : names) {
        if (endsWithLetters(each, ending)) found.push_back(each);
    }
    if (found.size() == 1) {
        name = std::move(found.front());
        return {SUCCESS, ""};
    }
    std::sort(found.begin(), found.end());
    std::string text = found.empty() ? "none" : "";
    for (const std::string& each : found) text += (text.empty() ? "\"" : ", \"") + each + "\"";
    return refuse(component, MODEL_METADATA_ERROR,
                  std::string("the ") + (component.type == ComponentKind::Dir ? "folder" : "archive") +
                      " has to hold one file whose name ends in \"" + ending + "\", found: " + text);
}

bool staysInside(const std::string& path) {
    constexpr std::string_view kRefused(":\0", 2);
    if (path.find_first_of(kRefused) != std::string::npos || path.find_first_of(kSlashes) == 0) return false;
    for (size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = path.find_first_of(kSlashes, begin);
        const std::string_view name = std::string_view(path).substr(begin, end - begin);
        if (name == ".." || (name != "." && Platform::isMisread(name))) return false;
    }
    return true;
}

MireloStatus readComponent(const ModelComponent& component, const Filepath& rootDir, ComponentBytes& bytes) {
    if (component.type == ComponentKind::File) return readFile(component, rootDir, bytes);
    if (component.type == ComponentKind::SecuredFile || component.type == ComponentKind::SecuredMemoryStream) {
        SecretBytes plain;
        MireloStatus status = open(component, rootDir, plain);
        if (status.ok()) bytes = ComponentBytes(std::move(plain));
        return status;
    }
    if (component.type != ComponentKind::MemoryStream) {
        return refuseKind(component, R"("file", "memory_stream", "secured_file" or "secured_memory_stream")");
    }
    if (component.buffer.empty()) return emptyBuffer(component);
    bytes = ComponentBytes(component.buffer.data(), component.buffer.size());
    return {SUCCESS, ""};
}

MireloStatus readComponentFiles(const ModelComponent& component, const Filepath& rootDir, ComponentFiles& files) {
    if (component.type != ComponentKind::SecuredTar) return refuseKind(component, R"("secured_tar")");
    SecretBytes archive;
    MireloStatus status = open(component, rootDir, archive);
    if (!status.ok()) return status;
    std::vector<ComponentFiles::File> listed;
    if (const std::optional<Tar::Refusal> refusal = list(archive, listed)) {
        return refuse(component, {MODEL_METADATA_ERROR, refusal->text});
    }
    files = ComponentFiles(std::move(archive), std::move(listed));
    return status;
}

MireloStatus setProtectionKey(ModelMetadata& metadata, MireloModelType type, const unsigned char* key) {
    if (isAllZero(key)) return {INVALID_ARGUMENTS, "The key is all zero, wanted are 16 bytes that are secret"};
    ModelMetadata::Targets targets = metadata.getTargets();
    const KeyWiper wiper{targets};
    const auto target = targets.find(type);
    if (target == targets.end()) {
        return {INVALID_ARGUMENTS, "The manifest has no target of type " + ModelTypeToName(type)};
    }
    bool found = false;
    for (ModelComponent& component : target->second.components) {
        if (!isProtected(component)) continue;
        component.setCryptoKey(key);
        found = true;
    }
    if (!found) return {MODEL_METADATA_ERROR, "No component of the target is protected"};
    metadata.setTargets(targets);
    return {SUCCESS, ""};
}

MireloStatus locateComponent(const ModelComponent& component, const Filepath& rootDir, Filepath& path) {
    if (component.type != ComponentKind::File && component.type != ComponentKind::Dir) {
        return refuseKind(component, R"("file" or "dir")");
    }
    Filepath joined;
    MireloStatus status = pathOf(component, rootDir, joined);
    if (!status.ok()) return status;
    try {
        if (!FileUtils().pathExists(joined)) return refuse(component, FILE_ERROR, "there is no " + toText(joined));
    } catch (const std::range_error&) {
        return refuse(component, FILE_ERROR, "the path is not UTF-8");
    }
    path = std::move(joined);
    return status;
}

}  // namespace TarnoMirelo::Kit
