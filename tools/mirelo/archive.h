#pragma once

#include "console.h"
#include "paths.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// What goes into an archive, in its order: folders, each before those in it, then files, both by name.
struct ArchivePlan {
    struct Entry {
        std::filesystem::path source;
        std::string name;  ///< in the archive; that of a folder ends with a slash
        uint64_t bytes = 0;
        bool isFolder() const { return name.back() == '/'; }
    };
    struct Problem {
        std::string name;
        std::string text;
    };

    std::vector<Entry> entries;
    std::vector<Problem> problems;  ///< an archive can be written where there are none
};

/// Looks at a folder and everything in it. Nothing is followed that is a link.
///
/// An archive is to be read on every system and by every reader, so these are problems: what is neither a file nor a
/// folder; names that Windows would refuse or take for others; names that differ in the case of letters alone; folders
/// whose names have white space or are not ASCII; files of 4 GiB and more; names too long for the plain layout.
/// Raises `Failure` where there is no such folder.
/// @param folder  in UTF-8; its name is the first in the archive
ArchivePlan planArchive(const std::string& folder);

/// Writes the archive in the plain ustar layout. The same names and contents give the same bytes.
/// Raises `Failure` where a file can't be read, has changed since it was planned, or the archive can't be written.
void writeArchive(const ArchivePlan& plan, PartialFile& archive, Console& console);

/// Unpacks the archive into a temporary folder and compares that with what was planned.
/// Raises `Failure` with the first difference.
/// @param about  how messages name the archive
void checkArchive(const ArchivePlan& plan, const std::filesystem::path& archive, const std::string& about,
                  Console& console);

}  // namespace TarnoMirelo::Tool
