#include "archive.h"
#include "commands.h"

#include <TarnoMirelo/kit/digest.h>

#include <algorithm>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string folder;
    std::string archive;
    bool force = false;
};

ExitCode reportProblems(const Options& options, const ArchivePlan& plan, Console& console) {
    if (console.json()) {
        Json problems = Json::array();
        for (const ArchivePlan::Problem& problem : plan.problems) {
            problems.push_back({{"path", problem.name}, {"problem", problem.text}});
        }
        console.printJson({{"problems", std::move(problems)}});
    }
    std::string text = options.folder + ": nothing was packed, for not everything can be";
    for (const ArchivePlan::Problem& problem : plan.problems) text += "\n  " + problem.name + ": " + problem.text;
    throw Failure(text);
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
    const ArchivePlan plan = planArchive(options.folder);
    if (!plan.problems.empty()) return reportProblems(options, plan, console);
    const fs::path path = toPath(options.archive);
    PartialFile archive(path, options.force);
    writeArchive(plan, archive, console);
    checkArchive(plan, archive.temporaryPath(), console);
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
