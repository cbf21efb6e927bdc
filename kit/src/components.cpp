#include "platform.h"

#include <TarnoMirelo/kit/components.h>

#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

constexpr char kSlashes[] = "/\\";

MireloStatus refuse(const ModelComponent& component, STATUS_CODE code, const std::string& text) {
    return {code, "Component \"" + component.name + "\": " + text};
}

MireloStatus refuseKind(const ModelComponent& component, const char* wanted) {
    const std::string& kind = component.type;
    const bool isProtected = kind == ComponentKind::SecuredFile || kind == ComponentKind::SecuredTar ||
                             kind == ComponentKind::SecuredMemoryStream;
    return refuse(component, MODEL_METADATA_ERROR,
                  "the kind is \"" + kind + "\"" + (isProtected ? ", which is protected and can't be read" : "") +
                      ", wanted is " + wanted);
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

MireloStatus cannotOpen(const ModelComponent& component, const Filepath& path) {
    return refuse(component, FILE_ERROR, "cannot open " + path.getPathString());
}

MireloStatus notUtf8(const ModelComponent& component) { return refuse(component, FILE_ERROR, "the path is not UTF-8"); }

MireloStatus readFile(const ModelComponent& component, const Filepath& rootDir, ComponentBytes& bytes) {
    Filepath path;
    MireloStatus status = pathOf(component, rootDir, path);
    if (!status.ok()) return status;
    try {
        uint64_t size = 0;
        std::unique_ptr<char[]> content = FileUtils().readBinaryFileToBuffer(path, size);
        if (content == nullptr) return cannotOpen(component, path);
        bytes = ComponentBytes(std::move(content), size);
        return status;
    } catch (const std::range_error&) {
        return notUtf8(component);
    } catch (const std::bad_alloc&) {
        return refuse(component, ALLOCATION_FAILED, "no memory for the file " + path.getPathString());
    }
}

}  // namespace

ComponentBytes::ComponentBytes(std::unique_ptr<char[]> owned, uint64_t size)
    : owned_(std::move(owned)), data_(reinterpret_cast<const uint8_t*>(owned_.get())), size_(size) {}

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
    if (component.type != ComponentKind::MemoryStream) {
        return refuseKind(component, R"("file" or "memory_stream")");
    }
    if (component.buffer.empty()) {
        return refuse(component, MODEL_METADATA_ERROR, "the buffer is empty, wanted is the content from the host");
    }
    bytes = ComponentBytes(component.buffer.data(), component.buffer.size());
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
        if (!FileUtils().pathExists(joined)) return cannotOpen(component, joined);
    } catch (const std::range_error&) {
        return notUtf8(component);
    }
    path = std::move(joined);
    return status;
}

}  // namespace TarnoMirelo::Kit
