#pragma once

/// @file
/// The components of a target: the bytes of those that a backend reads, and the path of those that its engine reads.
/// Protected ones are opened in memory with their own key, see protection.h, and never written anywhere.
///
/// The path of a component is relative to the model's root directory and stays below it: one with a ".." component, an
/// absolute one, one with a ":" or a NUL, and an empty one are refused, and either slash separates. On Windows, so are
/// names that stand for a device whatever their extension ("aux.json") and names that end in a dot or a space, which
/// the system would take for another name. Links that lie in the root directory are followed.
///
/// The functions keep no state: calls may overlap. They raise nothing but `std::bad_alloc`. Statuses, with a
/// description that names the component:
///   - `MODEL_METADATA_ERROR`: a kind that the function does not serve; a path that is refused; a component in memory
///     whose buffer is empty; a protected one that does not open with its key, or whose key is all zero
///   - `FILE_ERROR`: nothing is there, or it can't be read, or the path is not UTF-8
///   - `ALLOCATION_FAILED`: there is no memory for the content
///   - `UNKNOWN_ERROR`: the system's cryptography fails

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/kit/protection.h>
#include <TarnoMirelo/manifest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

/// The bytes of a component: of a file they are owned here, of a component in memory they are the component's own.
/// Those of a protected component are owned here, and overwritten with zeros when they are given back.
class ComponentBytes {
 public:
    /// No bytes.
    ComponentBytes() = default;
    /// @param data  outlives this object
    ComponentBytes(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
    /// Bytes that this object releases.
    /// @param owned  at least `size` bytes
    ComponentBytes(std::unique_ptr<char[]> owned, uint64_t size);
    /// Bytes that this object overwrites with zeros and releases.
    explicit ComponentBytes(SecretBytes owned);

    /// The first byte; valid as long as this object and, for a component in memory, as the component's buffer.
    const uint8_t* data() const { return data_; }
    /// How many bytes there are.
    uint64_t size() const { return size_; }

 private:
    std::unique_ptr<char[]> owned_;
    SecretBytes secret_;
    const uint8_t* data_ = nullptr;
    uint64_t size_ = 0;
};

/// The files of a protected archive, in memory that is owned here and overwritten with zeros when it is given back.
class ComponentFiles {
 public:
    /// One file of the archive.
    struct File {
        std::string name;               ///< with slashes, such as "model/net.onnx"; no two are equal
        const uint8_t* data = nullptr;  ///< as long as the `ComponentFiles` that it is from, wherever that is moved
        uint64_t size = 0;              ///< bytes at `data`
    };

    /// No files.
    ComponentFiles() = default;
    /// @param files  lie in `owned`
    ComponentFiles(SecretBytes owned, std::vector<File> files);

    /// In the archive's order.
    const std::vector<File>& files() const { return files_; }
    /// The file of that name, null where there is none. Letters count as they are.
    const File* find(const std::string& name) const;
    /// The names of the files, in the archive's order.
    std::vector<std::string> names() const;

 private:
    SecretBytes owned_;
    std::vector<File> files_;
};

/// Whether a relative path stays below the directory that it is relative to, as above.
bool staysInside(const std::string& path);

/// The bytes of a component of kind "file", which is read whole; "memory_stream", which is not copied; "secured_file",
/// whose file is a container; or "secured_memory_stream", whose buffer is one.
/// @param bytes  out, on success only
MireloStatus readComponent(const ModelComponent& component, const Filepath& rootDir, ComponentBytes& bytes);

/// The files of a component of kind "secured_tar", whose file is the container of a tar archive. docs/archives.md tells
/// what archives are taken; here, a name that comes twice is refused, too. Directories are left out.
/// @param files  out, on success only
/// @return as above, also `MODEL_METADATA_ERROR` where the content is no such archive, with the entry and the reason
MireloStatus readComponentFiles(const ModelComponent& component, const Filepath& rootDir, ComponentFiles& files);

/// The only one among the names in a component of kind "dir" or "secured_tar" that ends so, such as ".onnx". ASCII
/// letters count without their case.
/// @param name  out, on success only
/// @return `SUCCESS`, or `MODEL_METADATA_ERROR` where no name or more than one ends so; the description lists them
MireloStatus findOnlyName(const ModelComponent& component, const std::vector<std::string>& names,
                          const std::string& ending, std::string& name);

/// Gives a key to every component of a target whose kind is a protected one; `ModelMetadata::SetEncryption` reaches the
/// first component alone. The other components stay as they are.
/// @param type  of the target in `metadata`
/// @param key   16 bytes, copied
/// @return `SUCCESS`, or with nothing changed
///   - `INVALID_ARGUMENTS`: there is no such target, or the key is all zero
///   - `MODEL_METADATA_ERROR`: no component of the target is protected
MireloStatus setProtectionKey(ModelMetadata& metadata, MireloModelType type, const unsigned char* key);

/// The path of a component of kind "file" or "dir", for an engine that opens it by itself. Something is there; whether
/// it is a file or a directory is for the engine to find out.
/// @param path  out, on success only
MireloStatus locateComponent(const ModelComponent& component, const Filepath& rootDir, Filepath& path);

}  // namespace TarnoMirelo::Kit
