#pragma once

/// @file
/// SHA-256 digests, as packages state them and as caches name what they keep.
///
/// The functions keep no state: calls may overlap. They raise nothing but `std::bad_alloc`. Besides what each one
/// lists, they return `UNKNOWN_ERROR` where the system's cryptography fails, with the name of its call.

#include <TarnoMirelo/files.h>

#include <cstdint>
#include <string>

namespace TarnoMirelo::Kit {

/// The SHA-256 of bytes.
/// @param data    the first of them; may be null where `size` is 0
/// @param digest  out, on success only: 64 lower-case hexadecimal digits
MireloStatus sha256(const void* data, uint64_t size, std::string& digest);

/// The SHA-256 of a file, which is read in pieces: memory doesn't grow with it.
/// @param path    as for the *wide* operations of `FileUtils`
/// @param digest  out, on success only: 64 lower-case hexadecimal digits
/// @return `SUCCESS`, or `FILE_ERROR` with a description that names the path: no regular file is there, it can't be
///         read, or the path is not UTF-8
MireloStatus sha256OfFile(const Filepath& path, std::string& digest);

}  // namespace TarnoMirelo::Kit
