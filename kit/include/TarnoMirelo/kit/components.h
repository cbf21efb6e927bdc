#pragma once

/// @file
/// The components of a target: the bytes of those that a backend reads, and the path of those that its engine reads.
///
/// The path of a component is relative to the model's root directory and stays below it: one with a ".." component, an
/// absolute one, one with a ":" or a NUL, and an empty one are refused, and either slash separates. On Windows, so are
/// names that stand for a device whatever their extension ("aux.json") and names that end in a dot or a space, which
/// the system would take for another name. Links that lie in the root directory are followed.
///
/// The functions keep no state: calls may overlap. They raise nothing but `std::bad_alloc`. Statuses, with a
/// description that names the component:
///   - `MODEL_METADATA_ERROR`: a kind that the function does not serve, a protected one among them; a path that is
///     refused; a component in memory whose buffer is empty
///   - `FILE_ERROR`: nothing is there, or it can't be read, or the path is not UTF-8
///   - `ALLOCATION_FAILED`: there is no memory for the file

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/manifest.h>

#include <cstdint>
#include <memory>
#include <string>

namespace TarnoMirelo::Kit {

/// The bytes of a component: of a file they are owned here, of a component in memory they are the component's own.
class ComponentBytes {
 public:
    /// No bytes.
    ComponentBytes() = default;
    /// @param data  outlives this object
    ComponentBytes(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
    ComponentBytes(std::unique_ptr<char[]> owned, uint64_t size);

    /// The first byte; valid as long as this object and, for a component in memory, as the component's buffer.
    const uint8_t* data() const { return data_; }
    uint64_t size() const { return size_; }

 private:
    std::unique_ptr<char[]> owned_;
    const uint8_t* data_ = nullptr;
    uint64_t size_ = 0;
};

/// Whether a relative path stays below the directory that it is relative to, as above.
bool staysInside(const std::string& path);

/// The bytes of a component of kind "file", which is read whole, or "memory_stream", which is not copied.
/// @param bytes  out, on success only
MireloStatus readComponent(const ModelComponent& component, const Filepath& rootDir, ComponentBytes& bytes);

/// The path of a component of kind "file" or "dir", for an engine that opens it by itself. Something is there; whether
/// it is a file or a directory is for the engine to find out.
/// @param path  out, on success only
MireloStatus locateComponent(const ModelComponent& component, const Filepath& rootDir, Filepath& path);

}  // namespace TarnoMirelo::Kit
