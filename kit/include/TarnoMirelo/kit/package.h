#pragma once

/// @file
/// A packaged model compared with the sizes and digests that its manifest states. A component object may have
///   - "sha256": 64 lower-case hexadecimal digits, of the file as it lies in the package (of a protected one, of the
///   container)
///   - "size": the file's length in bytes
///
/// That finds damage. It is no protection from people: whoever changes a file can change the manifest, too. Compare the
/// manifest's own digest, or a signature, with one that came another way.

#include <TarnoMirelo/files.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

/// A component that is not what the manifest states.
struct PackageMismatch {
    std::string component;  ///< its name
    std::string path;       ///< as the manifest has it
    std::string found;   ///< such as "1024 bytes", "sha256 ba78...", "no file that can be read (...)" with the reason
    std::string wanted;  ///< in the same words
};

/// What came of a comparison. Components are told of in the manifest's order, targets in the core's order of their
/// keys.
struct PackageReport {
    uint64_t verified = 0;              ///< how many have the digest that is stated
    std::vector<std::string> unstated;  ///< the names of those in files or directories that no digest is stated for
    std::vector<PackageMismatch> mismatches;  ///< empty where nothing contradicts the manifest
};

/// How far a comparison is, in bytes of the files that a digest is stated for.
struct PackageProgress {
    std::string path;    ///< of the file that was read from last, as the manifest has it
    uint64_t done = 0;   ///< what has been read
    uint64_t total = 0;  ///< what there is to read
};

/// How a comparison is made.
struct PackageOptions {
    /// How many files are read at once. The threads beside the caller's end before the call does; where one can't be
    /// started, there are fewer.
    unsigned threads = 1;
    /// Called after each piece of a file, from any of the threads, by one at a time. What it raises ends the comparison
    /// and passes through; an `Exception` becomes the status. It is not called again then, and the other threads end
    /// at their next piece.
    std::function<void(const PackageProgress& progress)> progress;
};

/// Compares the files of a package with what its manifest states, in the memory of one small piece for each thread.
/// Components of all targets that have a known key are looked at; those of a kind in memory are the host's and aren't.
/// Where the size is wrong, the digest isn't looked at.
/// @param manifest  either slash separates its directory
/// @param report    out, also where there are mismatches
/// @return `SUCCESS` where nothing contradicts the manifest: look at `unstated` for what nothing is stated of; or
///   - `MODEL_METADATA_ERROR` with the first mismatch and how many there are: a file that is missing, of another size
///   or
///     digest, or outside of the package; a statement that is malformed, or about what is no file
///   - `MODEL_METADATA_ERROR`, as `ModelMetadata::load`: the manifest can't be read
///   - `UNKNOWN_ERROR`: the system's cryptography fails
/// Raises `std::bad_alloc` and what `progress` raises.
MireloStatus verifyPackage(const Filepath& manifest, PackageReport& report, const PackageOptions& options = {});

}  // namespace TarnoMirelo::Kit
