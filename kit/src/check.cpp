#include "component_files.h"
#include "finding_list.h"
#include "strict_reader.h"

#include <TarnoMirelo/kit/check.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/targets.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

using Words = FindingList::Words;

constexpr size_t kLongestStatus = 1000;  // bytes

void addError(FindingList& findings, Words words) {
    if (findings.count(Severity::Error)) findings.add(Severity::Error, std::nullopt, "", std::move(words));
}

// The directory that the manifest lies in, by either slash. What the loader takes for it is another thing.
Filepath directoryOf(const std::string& manifest) {
    const size_t end = manifest.find_last_of("/\\");
    if (end == std::string::npos) return Filepath(".");
    return Filepath(end == 0 ? manifest.substr(0, 1) : manifest.substr(0, end));
}

void checkOwnPath(const Filepath& manifest, FindingList& findings) {
    const std::string path = manifest.getPathString();
    const size_t slash = path.find_last_of("/\\");
    if (slash != std::string::npos && path[slash] == '\\') return;
    addError(findings,
             {"The loader takes another directory for the model's: it counts backslashes alone, on every system",
              "the path " + quotedExcerpt(path), "a backslash between the directory and the manifest's name",
              "Build the path with Filepath::append, from the directory and the name."});
}

// The manifest's text; null where it can't be read.
std::unique_ptr<char[]> readManifest(const Filepath& manifest, uint64_t& size, FindingList& findings) {
    const auto cannot = [&](const char* why) {
        addError(findings, {"The manifest can't be read", why + quotedExcerpt(manifest.getPathString()), "a file",
                            "Check the path, and that the file may be read."});
        return nullptr;
    };
    try {
        std::unique_ptr<char[]> text = FileUtils().readBinaryFileToBuffer(manifest, size);
        if (text == nullptr) return cannot("no file at ");
        return text;
    } catch (const std::range_error&) {
        return cannot("a path that is not UTF-8, ");
    }
}

// What a step of the backend refused.
void addRefusal(std::vector<Finding>& findings, const std::string& step, const MireloStatus& status) {
    const bool isWarning = status.getCode() == WARNING;
    if (status.getCode() == SUCCESS) return;
    Finding& finding = findings.emplace_back();
    finding.severity = isWarning ? Severity::Warning : Severity::Error;
    finding.what = step + (isWarning ? " gives a warning" : " fails");
    finding.found = excerpt(describe(status), kLongestStatus);
    while (finding.found.ends_with('.')) finding.found.pop_back();
    finding.advice = "Compare the target with the network.";
}

template <typename Step>
bool works(std::vector<Finding>& findings, const char* name, const Step& step) {
    MireloStatus status;
    try {
        status = step();
    } catch (...) {
        status = getStatusFromCurrentException();
    }
    addRefusal(findings, name, status);
    return status.getCode() == SUCCESS || status.getCode() == WARNING;
}

// Gives inputs of variable shape a buffer: the dimensions that are left open are 1.
MireloStatus fixShapes(const MireloModel::Outputs& inputs) {
    for (const auto& input : inputs) {
        const std::shared_ptr<ITensor> tensor = input->asTensor();
        if (!tensor->hasVariableShape() || tensor->buffer() != nullptr) continue;
        std::vector<int64_t> dimensions = tensor->shape().shapeVector();
        std::replace(dimensions.begin(), dimensions.end(), int64_t{-1}, int64_t{1});
        MireloStatus status = tensor->allocateShape(TensorShape(dimensions));
        if (!status.ok()) return status;
    }
    return {SUCCESS, ""};
}

void tryPrediction(std::vector<Finding>& findings, const std::shared_ptr<MireloModel>& model) {
    MireloModel::Outputs inputs;
    const bool prepared = works(findings, "Making the inputs", [&] {
        MireloStatus status = model->allocateInputs(inputs);
        return status.ok() ? fixShapes(inputs) : status;
    });
    if (!prepared) return;
    MireloStatus status;
    const bool predicts = works(findings, "A prediction on zeros", [&] {
        MireloModel::Outputs outputs;
        status = model->predict({inputs.begin(), inputs.end()}, outputs);
        return status;
    });
    // The engine fails, or its result does not fit the target.
    const bool dependsOnValues = status.getCode() == ML_FRAMEWORK_ERROR || status.getCode() == MODEL_METADATA_ERROR;
    if (predicts || !dependsOnValues) return;
    Finding& refusal = findings.back();
    refusal.severity = Severity::Warning;
    refusal.what = "Loading works, but a prediction on zeros fails";
    refusal.advice =
        "The network may refuse zeros, or 1 for an open dimension, or give shapes that depend on values. Try real data: "
        "mirelo run --input. If that fails, too, compare the target with the network.";
}

}  // namespace

std::string toText(const Finding& finding) {
    std::string text = finding.severity == Severity::Error ? "error: " : "warning: ";
    text += finding.what + '.';
    if (!finding.found.empty())
        text += " Found " + finding.found + (finding.wanted.empty() ? "." : ", wanted " + finding.wanted + '.');
    if (!finding.advice.empty()) text += ' ' + finding.advice;
    return text;
}

bool hasErrors(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& each) { return each.severity == Severity::Error; });
}

std::vector<Finding> checkManifestText(std::string_view text) {
    FindingList findings;
    std::vector<ComponentEntry> components;
    readStrictly(text, findings, components);
    return findings.take(text);
}

std::vector<Finding> checkManifest(const Filepath& manifest) {
    FindingList findings;
    checkOwnPath(manifest, findings);
    uint64_t size = 0;
    const std::unique_ptr<char[]> bytes = readManifest(manifest, size, findings);
    if (bytes == nullptr) return findings.take({});
    const std::string_view text(bytes.get(), static_cast<size_t>(size));
    std::vector<ComponentEntry> components;
    readStrictly(text, findings, components);
    const std::string path = manifest.getPathString();
    checkComponentFiles(components, directoryOf(path), path.substr(path.find_last_of("/\\") + 1), findings);
    return findings.take(text);
}

std::vector<Finding> checkPackage(const Filepath& manifest, const std::shared_ptr<MireloModel>& model,
                                  const unsigned char* key) {
    std::vector<Finding> findings = checkManifest(manifest);
    if (hasErrors(findings)) return findings;
    if (model == nullptr) {
        addRefusal(findings, "Loading", {INVALID_ARGUMENTS, "The model must not be null"});
        return findings;
    }
    AllTargetsMetadata metadata;
    const bool isLoaded = works(findings, "Loading", [&] {
        MireloStatus status = metadata.load(manifest);
        if (!status.ok()) return status;
        const auto device = std::make_shared<Device>(model->getName(), model->getModelType());
        const TargetChoice choice = chooseTarget(metadata, {device});
        status = choice.status();
        if (status.ok() && key != nullptr) status = setProtectionKey(metadata, choice.type, key);
        return status.ok() ? model->load(metadata.getModelCompoents(choice.type)) : status;
    });
    if (!isLoaded) return findings;
    ModelManager manager;
    ScopedModel scoped(manager, model);
    tryPrediction(findings, model);
    works(findings, "Unloading", [&] { return scoped.unload(); });
    return findings;
}

}  // namespace TarnoMirelo::Kit
