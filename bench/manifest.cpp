// Loading a manifest, beside reading and parsing it only, and checking it, beside loading it.

#include "measure.h"
#include "system_file.h"

#include <TarnoMirelo/kit/check.h>
#include <TarnoMirelo/manifest.h>

#include <rapidjson/document.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

namespace Bench {
namespace {

using namespace TarnoMirelo;

std::string featureText(size_t index) {
    return R"({"name": "input_)" + std::to_string(100000 + index) +
           R"(", "description": "A picture", "required": true, "featureType": "tensor", )" +
           R"("tensor": {"shape": [1, 3, 224, 224], "dataType": "float"}})";
}

std::string manifestText(size_t inputs) {
    std::string text =
        R"({"id": "m1", "name": "A model", "author": "The team", "description": "Tells things apart", "version": 3, )"
        R"("sdkVersion": "5.4.0", "targets": {"WinML": {"components": [{"name": "n", "path": "n.onnx", )"
        R"("type": "file"}], "inputs": [)";
    for (size_t i = 0; i < inputs; ++i) text += (i == 0 ? "" : ", ") + featureText(i);
    return text + R"(], "outputs": [)" + featureText(0) + "]}}}";
}

// A package in a folder of its own.
Filepath makePackage(const std::string& folder, size_t inputs) {
    const std::filesystem::path path = scratchDirectory() / folder;
    std::filesystem::create_directory(path);
    std::ofstream(path / "n.onnx") << "network";
    std::ofstream(path / "manifest.json") << manifestText(inputs);
    Filepath manifest(path.string());
    manifest.append(Filepath("manifest.json"));
    if (!Kit::checkManifest(manifest).empty()) throw std::runtime_error("the check finds something in the manifest");
    return manifest;
}

void addChecks(const std::string& row, const std::vector<Filepath>& manifests) {
    measure(row, Side::Ours, [=] {
        for (const Filepath& each : manifests) benchmark::DoNotOptimize(Kit::checkManifest(each));
    });
    measure(row, Side::Limit, [=] {
        for (const Filepath& each : manifests) {
            ModelMetadata metadata;
            benchmark::DoNotOptimize(metadata.load(each));
        }
    });
}

}  // namespace

void addManifests() {
    const std::pair<const char*, size_t> kSizes[] = {{"1 KB", 4}, {"300 KB", 2000}, {"10 MB", 66000}};
    for (const auto& [sizeName, inputs] : kSizes) {
        const std::string row = std::string("ModelMetadata::load, ") + sizeName;
        const std::string text = manifestText(inputs);
        const std::filesystem::path path = scratchDirectory() / ("manifest" + std::to_string(inputs) + ".json");
        std::ofstream(path) << text;
        const Filepath manifest(path.string());
        if (!ModelMetadata().load(manifest).ok()) throw std::runtime_error("the manifest can't be loaded");
        measure(row, Side::Ours, [=] {
            ModelMetadata metadata;
            benchmark::DoNotOptimize(metadata.load(manifest));
        });
        measure(row, Side::Limit, [=] {
            const SystemFile file = SystemFile::toRead(path.c_str());
            const size_t size = file.size();
            const std::unique_ptr<char[]> bytes(new char[size]);
            file.read(bytes.get(), size);
            rapidjson::Document root;
            root.Parse(bytes.get(), size);
            benchmark::DoNotOptimize(root);
        });
        measure(row, Side::Instead, [=] { benchmark::DoNotOptimize(nlohmann::json::parse(text)); });
    }
    addChecks("Kit::checkManifest, 10 MB", {makePackage("large", 66000)});
    std::vector<Filepath> packages;
    for (int i = 0; i < 1000; ++i) packages.push_back(makePackage("package" + std::to_string(i), 4));
    addChecks("Kit::checkManifest, 1,000 packages of 1 KB", packages);
}

}  // namespace Bench
