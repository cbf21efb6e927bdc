#include "commands.h"
#include "engines.h"
#include "interrupt.h"
#include "keys.h"
#include "package.h"
#include "prediction.h"

#include <TarnoMirelo/kit/check.h>

#include <algorithm>

namespace TarnoMirelo::Tool {
namespace {

struct Options {
    std::vector<std::string> paths;
    std::string engine;
    std::string keyFile;
};

// What tries a package, beside reading it; no engine: nothing does.
struct Trial {
    const Engine* engine = nullptr;
    Kit::SecretBytes key;
};

// The findings of one package.
struct Verdict {
    std::string file;  // the manifest's, or what the command line names where there is none
    std::vector<Kit::Finding> findings;
};

// Failures name the path themselves, and end in a full stop or not.
Kit::Finding findingOf(const std::string& path, std::string failure) {
    if (failure.starts_with(path + ": ")) failure.erase(0, path.size() + 2);
    if (failure.ends_with('.')) failure.pop_back();
    Kit::Finding finding;
    finding.what = std::move(failure);
    return finding;
}

std::vector<Kit::Finding> findingsIn(const Filepath& manifest, const Trial& trial) {
    if (trial.engine == nullptr) return Kit::checkManifest(manifest);
    ModelMetadata metadata;
    std::string missingKey;
    if (trial.key.size() == 0 && metadata.load(manifest).ok() && metadata.validate(MireloModelType::WinML).ok()) {
        missingKey = missingKeyOf(std::get<ModelTarget>(metadata.getModelCompoents(MireloModelType::WinML)));
    }
    if (missingKey.empty()) {
        return Kit::checkPackage(manifest, trial.engine->makeModel("check", {}), trial.key.data());
    }
    std::vector<Kit::Finding> findings = Kit::checkManifest(manifest);
    if (!Kit::hasErrors(findings)) findings.push_back(findingOf("", missingKey));
    return findings;
}

// With an error, the component may have another path than it should.
void addFilesOfNoComponent(const Package& package, std::vector<Kit::Finding>& findings) {
    if (Kit::hasErrors(findings)) return;
    Kit::Finding finding;
    finding.found = package.filesOfNoComponent(package.folder());
    if (finding.found.empty()) return;
    finding.severity = Kit::Severity::Warning;
    finding.what = "No component names these files, so they have no digest and are never protected";
    finding.wanted = "only the manifest and the components' files";
    finding.advice =
        "Remove what nobody needs. Put weights and their network into one folder, a component of type \"dir\".";
    findings.push_back(std::move(finding));
}

Verdict verdictOn(const std::string& path, const Trial& trial) {
    try {
        const Package package(path);
        Verdict verdict{package.manifestText(), findingsIn(toFilepath(package.manifest()), trial)};
        addFilesOfNoComponent(package, verdict.findings);
        return verdict;
    } catch (const Failure& failure) {  // the other packages are checked all the same
        return {path, {findingOf(path, failure.what())}};
    } catch (const std::filesystem::filesystem_error& error) {
        return {path, {findingOf(path, reasonOf(error))}};
    }
}

std::string lineOf(const Verdict& verdict, const Kit::Finding& finding, const Console& console) {
    std::string place = verdict.file;
    if (finding.line != 0) place += ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
    const bool isError = finding.severity == Kit::Severity::Error;
    const std::string text = Kit::toText(finding);
    const size_t label = text.find(':') + 1;  // "error:"
    return console.paint(Colour::Bold, place + ":") + " " +
           console.paint(isError ? Colour::Red : Colour::Yellow, text.substr(0, label)) + text.substr(label) + "\n";
}

Json jsonOf(const Verdict& verdict, const Kit::Finding& finding) {
    return {{"file", verdict.file},     {"severity", finding.severity == Kit::Severity::Error ? "error" : "warning"},
            {"where", finding.where},   {"line", finding.line},
            {"column", finding.column}, {"what", finding.what},
            {"found", finding.found},   {"wanted", finding.wanted},
            {"advice", finding.advice}};
}

ExitCode check(const Options& options, Console& console) {
    const std::vector<std::string>& paths = options.paths;
    Trial trial;
    if (!options.engine.empty()) trial = {&engineNamed(options.engine), readKeyIfNamed(options.keyFile)};
    Json json = {{"findings", Json::array()}};
    bool isSound = true;
    for (size_t i = 0; i < paths.size(); ++i) {
        checkInterrupt();
        if (paths.size() > 1) console.progress("checking", static_cast<double>(i) / static_cast<double>(paths.size()));
        const Verdict verdict = verdictOn(paths[i], trial);
        isSound = isSound && !Kit::hasErrors(verdict.findings);
        for (const Kit::Finding& finding : verdict.findings) {
            if (console.json()) {
                json["findings"].push_back(jsonOf(verdict, finding));
            } else {
                console.print(lineOf(verdict, finding, console));
            }
        }
        if (verdict.findings.empty() && !console.json()) console.print(verdict.file + ": no mistakes found\n");
    }
    if (console.json()) console.printJson(json);
    return isSound ? kDone : kFailed;
}

}  // namespace

void addCheck(Commands& commands) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = commands.add("check", "Find mistakes in packaged models",
                                     "  mirelo check digits shapes/manifest.json model.tar",
                                     [options](Console& console) { return check(*options, console); });
    command.add_option("PATH", options->paths, "manifests, folders or .tar archives")->required();
    auto* const engine = command.add_option("--engine", options->engine,
                                            "load the packages and predict on zeros, too: " + engineNames());
    addKeyOption(command, options->keyFile)->needs(engine);
}

}  // namespace TarnoMirelo::Tool
