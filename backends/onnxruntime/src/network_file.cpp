#include "network_file.h"

#include <algorithm>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {
namespace {

constexpr char kExtension[] = ".onnx";

// The one network of a folder, as a component of its own.
ModelComponent findNetwork(const ModelComponent& component, const Filepath& rootDir) {
    Filepath folder;
    require(Kit::locateComponent(component, rootDir, folder));
    std::vector<std::string> names;
    for (const Filepath& name : FileUtils().findFilesByPattern(folder, std::string("*") + kExtension)) {
        names.push_back(name.getPathString());
    }
    std::string name;
    require(Kit::findOnlyName(component, names, kExtension, name));
    ModelComponent network;
    network.name = component.name;
    network.path = component.path + "/" + name;
    network.type = ComponentKind::File;
    return network;
}

// A backslash is a part of a name to the engine on Linux, and a separator to it on Windows and to this library.
void checkLocation(const std::string& location, const std::string& about) {
    if (location.find('\\') != std::string::npos) {
        throw ModelMetaDataException(about + " have a path with a backslash, wanted is \"/\" between folders");
    }
    if (location.empty() || !Kit::staysInside(location)) {
        throw ModelMetaDataException(about + " lie outside of the network's folder");
    }
}

// The weights that lie in files of their own: below the network's folder, and there.
std::vector<std::filesystem::path> locateWeights(const NetworkFile& file) {
    std::vector<std::filesystem::path> weights;
    for (const std::string& location : file.outline.weightFiles) {
        const std::string about = "the weights in \"" + location + "\"";
        if (file.path.empty()) throw ModelMetaDataException(about + " lie outside of the network, which is in memory");
        checkLocation(location, about);
        std::error_code error;
        weights.push_back(file.path.parent_path() / toSystemPath(Filepath(location)));
        if (!std::filesystem::is_regular_file(weights.back(), error)) {
            throw FileException(about + " are missing, or in no file");
        }
    }
    return weights;
}

// The weights that lie in the archive of the network, below its own folder there.
void findArchivedWeights(const std::string& network, NetworkFile& file) {
    const std::string folder = network.substr(0, network.rfind('/') + 1);  // nothing at the top
    for (const std::string& location : file.outline.weightFiles) {
        const std::string about = "the weights in \"" + location + "\"";
        checkLocation(location, about);
        const std::u8string inside = toSystemPath(Filepath(location)).lexically_normal().generic_u8string();
        const Kit::ComponentFiles::File* const weights =
            file.archive.find(folder + std::string(inside.begin(), inside.end()));
        if (weights == nullptr) throw ModelMetaDataException(about + " are missing in the archive");
        file.archivedWeights.emplace_back(location, weights);
    }
}

NetworkFile readArchive(const ModelComponent& component, const Filepath& rootDir) {
    NetworkFile file;
    file.isProtected = true;
    require(Kit::readComponentFiles(component, rootDir, file.archive));
    std::string name;
    require(Kit::findOnlyName(component, file.archive.names(), kExtension, name));
    const Kit::ComponentFiles::File& network = *file.archive.find(name);
    file.bytes = Kit::ComponentBytes(network.data, network.size);
    file.outline = readOutline(network.data, network.size);
    findArchivedWeights(network.name, file);
    return file;
}

void checkKind(const std::string& kind) {
    for (const char* const known :
         {ComponentKind::File, ComponentKind::Dir, ComponentKind::MemoryStream, ComponentKind::SecuredFile,
          ComponentKind::SecuredMemoryStream, ComponentKind::SecuredTar}) {
        if (kind == known) return;
    }
    throw ModelMetaDataException("the kind is \"" + kind +
                                 "\", wanted is \"file\", \"dir\", \"memory_stream\", \"secured_file\", "
                                 "\"secured_memory_stream\" or \"secured_tar\"");
}

NetworkFile read(const ModelComponent& component, const Filepath& rootDir) {
    if (component.type == ComponentKind::SecuredTar) return readArchive(component, rootDir);
    NetworkFile file;
    file.isProtected =
        component.type == ComponentKind::SecuredFile || component.type == ComponentKind::SecuredMemoryStream;
    require(Kit::readComponent(component, rootDir, file.bytes));
    if (component.type == ComponentKind::File) {
        Filepath path;
        require(Kit::locateComponent(component, rootDir, path));
        file.path = toSystemPath(path);
    }
    file.outline = readOutline(file.bytes.data(), file.bytes.size());
    file.weights = locateWeights(file);
    return file;
}

}  // namespace

void require(const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw Exception(status.getDescription(), status.getCode());
}

std::filesystem::path toSystemPath(const Filepath& path) {
    std::string text = path.getPathString();
    std::replace(text.begin(), text.end(), '\\', '/');
    try {
        return {std::u8string(text.begin(), text.end())};
    } catch (const std::exception&) {
        throw FileException("The path is not UTF-8: " + path.getPathString());
    }
}

NetworkFile readNetworkFile(const ModelComponent& component, const Filepath& rootDir) {
    const std::string prefix = "Component \"" + component.name + "\": ";
    try {
        checkKind(component.type);
        return component.type == ComponentKind::Dir ? read(findNetwork(component, rootDir), rootDir)
                                                    : read(component, rootDir);
    } catch (const Exception& exception) {
        const std::string text = exception.what();
        throw Exception(text.rfind(prefix, 0) == 0 ? text : prefix + text, exception.getStatusCode());
    }
}

}  // namespace TarnoMirelo::OnnxRuntime
