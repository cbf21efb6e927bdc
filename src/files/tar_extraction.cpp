#include "files/platform.h"
#include "files/tar.h"
#include "files/tar_archive.h"

#include <TarnoMirelo/files.h>

#include <optional>

namespace TarnoMirelo {
namespace {

// The path of an entry. Nothing where '/' and a separator would start a UNC path on Windows.
std::optional<Filepath> pathOf(const Filepath& directory, const std::string& name) {
    Filepath path = directory;
    path.append(Filepath(Platform::nameBelow(directory.c_str(), name)));
    if (Platform::isOnNetwork(path.c_str()) && !Platform::isOnNetwork(directory.c_str())) return std::nullopt;
    return path;
}

// Through the operations of a FileUtils, as they are overridden there.
class Extraction {
 public:
    Extraction(FileUtils& files, const Filepath& directory) : files_(files), directory_(directory) {}

    /// @param archive  the first header; the caller vouches for the end block
    STATUS_CODE run(const unsigned char* archive) {
        for (const unsigned char* block = archive;;) {
            const Tar::Header header(block);
            if (header.startsWithZero()) return SUCCESS;
            if (!header.hasSixDigitChecksum()) return TAR_CHECKSUM_ERROR;
            const std::optional<uint32_t> size = header.size();
            if (!size || !extract(header, block + Tar::kBlockSize, *size)) return TAR_EXTRACTION_ERROR;
            block += Tar::kBlockSize + Tar::paddedSize(*size);
        }
    }

    /// The path of the first directory entry, empty when there was none.
    Filepath firstDirectory() const { return firstDirectory_.value_or(Filepath()); }

 private:
    bool extract(const Tar::Header& header, const unsigned char* data, uint32_t size) {
        const char kind = header.kind();
        if (kind == Tar::kGlobalHeader || kind == Tar::kExtendedHeader) return true;
        if (kind != Tar::kFile && kind != Tar::kDirectory) return false;
        const std::string name = header.name();
        const std::optional<Filepath> path = pathOf(directory_, name);
        if (Tar::confinementProblem(name) != nullptr || !path) return false;
        // Writing a file only reads the bytes.
        if (kind == Tar::kFile) return files_.writeBinaryDataToFile(const_cast<unsigned char*>(data), size, *path);
        if (!firstDirectory_) firstDirectory_ = path;
        const bool blank = path->getPathString().find_first_of(" \t\n\v\f\r") != std::string::npos;
        if (!files_.pathExists(*path) && !blank) files_.createDir(*path);
        return true;
    }

    FileUtils& files_;
    const Filepath& directory_;
    std::optional<Filepath> firstDirectory_;
};

// Straight to the file system, in an archive of known length. Whatever is not taken over whole ends it, with a reason.
class SizedExtraction {
 public:
    SizedExtraction(const unsigned char* archive, uint64_t size, const Filepath& directory)
        : archive_(archive, size), directory_(directory) {}

    MireloStatus run() {
        const std::string given = directory_.getPathString();
        if (given.find('\0') != std::string::npos) return statusOf(refusedDestination("it holds a NUL"));
        std::optional<Tar::Entry> entry;
        for (;;) {
            std::optional<Tar::Refusal> refusal = archive_.next(entry);
            if (!refusal && entry) refusal = extract(*entry);
            if (refusal) return statusOf(*refusal);
            if (!entry) return {SUCCESS, ""};
        }
    }

    /// The path of the first directory entry, empty when there was none.
    Filepath firstDirectory() const { return firstDirectory_.value_or(Filepath()); }

 private:
    static MireloStatus statusOf(const Tar::Refusal& refusal) { return {refusal.code, refusal.text}; }
    Tar::Refusal refusedDestination(const std::string& why) const {
        return {TAR_EXTRACTION_ERROR, "Destination " + Tar::quoted(directory_.getPathString()) + ": " + why};
    }

    std::optional<Tar::Refusal> extract(const Tar::Entry& entry) {
        std::string relative;
        for (const std::string_view component : Tar::componentsOf(entry.name)) {
            if (const char* const problem = Platform::nameProblem(component)) {
                return Tar::refused(entry.name, Tar::quoted(component) + ' ' + problem);
            }
            if (!relative.empty()) relative += '/';
            relative += component;
        }
        if (entry.isDirectory && !firstDirectory_) {
            firstDirectory_ = pathOf(directory_, entry.name);
            if (!firstDirectory_) return refusedDestination("it and a name would be a path on the network");
        }
        if (!tree_) tree_.emplace(directory_.c_str());
        if (!tree_->isOpen()) return refusedDestination("wanted is a directory that is there and can be entered");
        const std::optional<Platform::Obstacle> obstacle =
            entry.isDirectory ? tree_->makeDirectory(relative)
                              : tree_->writeFile(relative, entry.data.data(), entry.data.size());
        if (obstacle) return Tar::refused(entry.name, Tar::quoted(obstacle->name) + ' ' + obstacle->found);
        return std::nullopt;
    }

    Tar::Archive archive_;
    const Filepath& directory_;
    std::optional<Platform::OutputTree> tree_;  // opened for the first entry
    std::optional<Filepath> firstDirectory_;
};

}  // namespace

MireloStatus FileUtils::extractTarball(unsigned char* archive, Filepath& destination) {
    if (archive == nullptr) return {TAR_EXTRACTION_ERROR, ""};
    try {
        Extraction extraction(*this, destination);
        const STATUS_CODE code = extraction.run(archive);
        if (code == SUCCESS) destination = extraction.firstDirectory();
        return {code, ""};
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): callers have an object for all file operations
MireloStatus FileUtils::extractTarballOfSize(const unsigned char* archive, uint64_t size, Filepath& destination) {
    try {
        SizedExtraction extraction(archive, size, destination);
        MireloStatus status = extraction.run();
        if (status.ok()) destination = extraction.firstDirectory();
        return status;
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

}  // namespace TarnoMirelo
