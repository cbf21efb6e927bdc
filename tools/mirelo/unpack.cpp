#include "commands.h"
#include "package.h"

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string archive;
    std::string folder;
};

ExitCode unpack(const Options& options, Console& console) {
    const fs::path folder = toPlainPath(options.folder);
    const bool isThere = fs::exists(fs::symlink_status(folder));
    if (isThere && !(fs::is_directory(folder) && fs::is_empty(folder))) {
        throw Failure(options.folder + ": something is there already, wanted is a new or an empty folder");
    }
    // A folder that is there stays: it may be a link, a mount point or the current one, and has its own permissions.
    TemporaryFolder unpacked(temporaryNameBeside(isThere ? folder / "unpacked" : folder), options.folder);
    unpackArchive(toPath(options.archive), unpacked.path(), options.archive);
    uint64_t folders = 0;
    uint64_t files = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(unpacked.path())) {
        ++(entry.is_directory() ? folders : files);
    }
    if (folders == 0 && files == 0)
        throw Failure(options.archive + ": the archive has no entry, wanted is one at least");
    isThere ? unpacked.moveEntriesTo(folder) : unpacked.renameTo(folder);
    if (console.json()) {
        console.printJson({{"folder", options.folder}, {"folders", folders}, {"files", files}});
    } else {
        console.print(options.folder + ": folders: " + std::to_string(folders) + ", files: " + std::to_string(files) +
                      "\n");
    }
    return kDone;
}

}  // namespace

void addUnpack(Commands& commands) {
    const auto options = std::make_shared<Options>();
    CLI::App& command =
        commands.add("unpack", "Unpack an archive, all of it or nothing", "  mirelo unpack digits.tar -o unpacked",
                     [options](Console& console) { return unpack(*options, console); });
    command.add_option("ARCHIVE", options->archive, "the .tar archive")->required();
    command.add_option("-o,--output", options->folder, "the folder to put its entries into: a new or an empty one")
        ->required();
}

}  // namespace TarnoMirelo::Tool
