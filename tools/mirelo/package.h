#pragma once

#include "console.h"
#include "paths.h"

#include <TarnoMirelo/manifest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace TarnoMirelo::Tool {

/// A packaged model as a command line names it: by its manifest, by its folder, or by a tar archive of either.
class Package {
 public:
    /// Finds the manifest; it is not read. An archive is unpacked into a temporary folder that lives as long as this
    /// object. In a folder or an archive, the manifest is "manifest.json", or else the only file whose name ends in
    /// ".json"; where there is none, both are looked for in the only folder that is there.
    /// @param path  in UTF-8; the names of archives end in ".tar"
    /// Raises `Failure` where nothing is there, the archive is refused, or no manifest is found.
    explicit Package(const std::string& path);

    const std::filesystem::path& manifest() const { return manifest_; }
    bool isArchive() const { return unpacked_.has_value(); }
    /// Everything that an archive holds, unpacked; the manifest's folder else.
    std::filesystem::path folder() const { return unpacked_ ? unpacked_->path() : manifest_.parent_path(); }
    /// How messages and results name the manifest: as the command line does, within an archive after it.
    std::string manifestText() const;

    /// The files in a folder that no component of the manifest names: they have no digest, and `protect` leaves them
    /// plain. A component has its protected and its plain form, too, of which others tell.
    /// @param folder  the manifest's, or one around it
    /// @return their paths below the folder, as in "\"a\", \"b/c\"", after ten of them "and more"; empty: none
    std::string filesOfNoComponent(const std::filesystem::path& folder) const;

    /// Reads the manifest with the targets of every backend. Raises `Failure` with the loader's reason.
    void load(ModelMetadata& metadata) const;

 private:
    std::string path_;
    std::optional<TemporaryFolder> unpacked_;
    std::filesystem::path manifest_;
};

/// Warns of `Package::filesOfNoComponent`.
void warnOfFilesOfNoComponent(const Package& package, const std::filesystem::path& folder, Console& console);

/// Unpacks an archive. Raises `Failure` with the reader's reason.
/// @param folder  is there
/// @param about   how messages name the archive
void unpackArchive(const std::filesystem::path& archive, const std::filesystem::path& folder, const std::string& about);

}  // namespace TarnoMirelo::Tool
