#include "archive.h"
#include "commands.h"
#include "interrupt.h"
#include "keys.h"
#include "kit/src/component_files.h"
#include "package.h"

#include <TarnoMirelo/kit/digest.h>

#include <algorithm>
#include <set>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string folder;
    std::string archive;
    bool force = false;
};

// Whether a file is a key by its name, or opens a file of the archive.
bool isKey(const ArchivePlan::Entry& file, const ArchivePlan& plan) {
    if (file.isFolder() || file.bytes != kKeyBytes) return false;
    if (file.name.ends_with(".key")) return true;
    const Kit::SecretBytes key = readKey(toText(file.source));
    return std::any_of(plan.entries.begin(), plan.entries.end(), [&key](const ArchivePlan::Entry& each) {
        checkInterrupt();
        Kit::SecretBytes content;
        return !each.isFolder() && each.bytes > kKeyBytes &&
               Kit::unprotectFile(toFilepath(each.source), key.data(), content).ok();
    });
}

// Who gets the archive must not get these.
void addSecrets(ArchivePlan& plan) {
    std::set<std::string> names;
    for (const ArchivePlan::Entry& entry : plan.entries) names.insert(entry.name);
    for (const ArchivePlan::Entry& entry : plan.entries) {
        if (isKey(entry, plan)) {
            plan.problems.push_back({entry.name, "it is a key; keep it outside of the folder"});
        } else if (names.contains(entry.name + std::string(Kit::kProtectedSuffix))) {
            plan.problems.push_back({entry.name,
                                     "it looks like the plain form of the protected file beside it; remove it, or "
                                     "protect the package again, which removes it"});
        } else if (Kit::isUnfinished(entry.name)) {
            plan.problems.push_back(
                {entry.name,
                 "a command that was stopped has left it, and it may hold a part of what is protected; "
                 "remove it"});
        }
    }
}

ExitCode reportProblems(const Options& options, const ArchivePlan& plan, Console& console) {
    if (console.json()) {
        Json problems = Json::array();
        for (const ArchivePlan::Problem& problem : plan.problems) {
            problems.push_back({{"path", problem.name}, {"problem", problem.text}});
        }
        console.printJson({{"problems", std::move(problems)}});
    }
    std::vector<std::string> lines;
    for (const ArchivePlan::Problem& problem : plan.problems) lines.push_back(problem.name + ": " + problem.text);
    throw Failure(options.folder + ": nothing was packed, for not everything can be", lines);
}

// Nothing where there is no manifest: a folder of a network and its weights, which will be a component, has none.
std::optional<Package> packageIn(const std::string& folder) {
    try {
        return std::optional<Package>(folder);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

// The next call would pack this one's archive.
void refuseArchiveInside(const Options& options) {
    const fs::path folder = fs::weakly_canonical(toPlainPath(options.folder));
    const fs::path archive = fs::weakly_canonical(toPlainPath(options.archive));
    if (std::mismatch(folder.begin(), folder.end(), archive.begin(), archive.end()).first != folder.end()) return;
    throw Failure(options.archive + ": it would lie in the folder that is packed, wanted is another place");
}

ExitCode pack(const Options& options, Console& console) {
    refuseArchiveInside(options);
    ArchivePlan plan = planArchive(options.folder);
    addSecrets(plan);
    if (!plan.problems.empty()) return reportProblems(options, plan, console);
    if (const std::optional<Package> package = packageIn(options.folder)) {
        warnOfFilesOfNoComponent(*package, toPath(options.folder), console);
    }
    const fs::path path = toPath(options.archive);
    PartialFile archive(path, options.force);
    writeArchive(plan, archive, console);
    checkArchive(plan, archive.temporaryPath(), options.archive, console);
    const uint64_t bytes = fs::file_size(archive.temporaryPath());
    std::string digest;
    require(options.archive, Kit::sha256OfFile(toFilepath(archive.temporaryPath()), digest));
    archive.keep();

    const auto folders = std::count_if(plan.entries.begin(), plan.entries.end(),
                                       [](const ArchivePlan::Entry& entry) { return entry.isFolder(); });
    const size_t files = plan.entries.size() - static_cast<size_t>(folders);
    if (console.json()) {
        console.printJson({{"archive", options.archive},
                           {"bytes", bytes},
                           {"sha256", digest},
                           {"folders", folders},
                           {"files", files}});
    } else {
        console.print(options.archive + ": folders: " + std::to_string(folders) + ", files: " + std::to_string(files) +
                      ", bytes: " + std::to_string(bytes) + ", sha256: " + digest + "\n");
    }
    return kDone;
}

}  // namespace

void addPack(Commands& commands) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = commands.add("pack", "Pack a folder into an archive that every reader takes",
                                     "  mirelo pack digits --output digits.tar",
                                     [options](Console& console) { return pack(*options, console); });
    command.add_option("FOLDER", options->folder, "the package's folder; its name is the first in the archive")
        ->required();
    command.add_option("-o,--output", options->archive, "the archive to make")->required();
    command.add_flag("--force", options->force, "replace a file of that name");
}

}  // namespace TarnoMirelo::Tool
