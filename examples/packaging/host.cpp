// A host that gets packaged models as archives: it unpacks one, verifies it, and loads it with its key.

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/package.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/onnxruntime.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>

using namespace TarnoMirelo;

namespace {

void check(const MireloStatus& status) {
    if (!status.ok()) throw std::runtime_error(Kit::describe(status));
}

// Unpacks the archive into a new folder, and gives the model the package in it. The folder stays until the model is
// unloaded. Raises std::exception, and the folder is gone again.
void install(const Filepath& archive, const std::filesystem::path& folder, const std::vector<unsigned char>& key,
             MireloModel& model) {
    if (!std::filesystem::create_directory(folder)) throw std::runtime_error("The folder is there already");
    try {
        FileUtils files;
        const std::vector<unsigned char> bytes = files.readBinaryFileToByteVector(archive);
        Filepath package(folder.string());  // after the call, the archive's first directory
        check(files.extractTarballOfSize(bytes.data(), bytes.size(), package));
        if (package.getPathString().empty()) throw std::runtime_error("The archive has no folder");
        const Filepath manifest = package.append(Filepath("manifest.json"));

        Kit::PackageReport report;
        check(Kit::verifyPackage(manifest, report));
        if (!report.unstated.empty()) throw std::runtime_error(report.unstated.front() + " has no digest");

        ModelMetadata metadata;
        check(metadata.load(manifest));
        check(metadata.validate(MireloModelType::WinML));
        const MireloModel::Components components = metadata.getModelCompoents(MireloModelType::WinML);
        for (const ModelComponent& component : std::get<ModelTarget>(components).components) {
            if (component.type != ComponentKind::SecuredFile)
                throw std::runtime_error(component.name + " is not protected");
        }
        if (key.size() != 16) throw std::runtime_error("The key must have 16 bytes");
        check(Kit::setProtectionKey(metadata, MireloModelType::WinML, key.data()));
        check(model.load(metadata.getModelCompoents(MireloModelType::WinML)));
    } catch (...) {
        std::error_code ignored;  // the failure itself is what the caller must learn
        std::filesystem::remove_all(folder, ignored);
        throw;
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 4) throw std::invalid_argument("usage: host ARCHIVE NEW_FOLDER KEY_FILE");
    OnnxRuntime::Model model("packaged", MireloModelType::WinML);
    install(Filepath(argv[1]), argv[2], FileUtils().readBinaryFileToByteVector(Filepath(argv[3])), model);
    std::cout << "Loaded, inputs: " << model.getModelTarget().inputs.size() << '\n';
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
