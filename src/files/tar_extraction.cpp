#include "files/platform.h"
#include "files/tar.h"

#include <TarnoMirelo/files.h>

#include <limits>
#include <optional>
#include <utility>

namespace TarnoMirelo {
namespace {

// What becomes of the entries. Each answers SUCCESS, or how the extraction ends.
class Destination {
 public:
    virtual ~Destination() = default;
    virtual MireloStatus makeDirectory(const Filepath& path) = 0;
    virtual MireloStatus writeFile(const Filepath& path, const unsigned char* data, uint32_t size) = 0;
};

// Through the operations of a FileUtils, as they are overridden there.
class VirtualDestination : public Destination {
 public:
    explicit VirtualDestination(FileUtils& files) : files_(files) {}

    MireloStatus makeDirectory(const Filepath& path) override {
        const bool blank = path.getPathString().find_first_of(" \t\n\v\f\r") != std::string::npos;
        if (!files_.pathExists(path) && !blank) files_.createDir(path);
        return {SUCCESS, ""};
    }
    MireloStatus writeFile(const Filepath& path, const unsigned char* data, uint32_t size) override {
        auto* const bytes = const_cast<unsigned char*>(data);  // writing a file only reads them
        return {files_.writeBinaryDataToFile(bytes, size, path) ? SUCCESS : TAR_EXTRACTION_ERROR, ""};
    }

 private:
    FileUtils& files_;
};

// Straight to the file system, and told when something could not be written.
class NativeDestination : public Destination {
 public:
    MireloStatus makeDirectory(const Filepath& path) override {
        // Not by asking first if it is there: what cannot be looked at, such as a name that is too long, counts as
        // such.
        switch (Platform::createDirectory(path.c_str(), Platform::PathText::Wide)) {
            case Platform::Creation::Done:
            case Platform::Creation::Present:
                return {SUCCESS, ""};
            case Platform::Creation::ParentMissing:
                return {FILE_ERROR, "Path incorrect : " + path.getPathString()};
            case Platform::Creation::Failed:
                break;
        }
        return {TAR_EXTRACTION_ERROR, ""};
    }
    MireloStatus writeFile(const Filepath& path, const unsigned char* data, uint32_t size) override {
        return {Platform::writeFile(path.c_str(), data, size) ? SUCCESS : TAR_EXTRACTION_ERROR, ""};
    }
};

// One pass over an archive, entry by entry.
class Extraction {
 public:
    /// @param size  bytes of the archive; more than it can have where the caller vouches for its end block
    /// @param pax   whether extended headers are honoured, and entries of the oldest kind taken for files
    Extraction(const unsigned char* archive, uint64_t size, bool pax, const Filepath& directory,
               Destination& destination)
        : archive_(archive), size_(size), pax_(pax), directory_(directory), destination_(destination) {}

    MireloStatus run() {
        uint64_t offset = 0;
        while (size_ - offset >= Tar::kBlockSize) {
            const Tar::Header header(archive_ + offset);
            if (header.endsArchive()) return {SUCCESS, ""};
            if (!header.checksumMatches()) return {TAR_CHECKSUM_ERROR, ""};
            const std::optional<uint32_t> entrySize = sizeOf(header);
            const uint64_t available = size_ - offset - Tar::kBlockSize;
            if (!entrySize || *entrySize > available) return refused();
            MireloStatus status = extract(header, archive_ + offset + Tar::kBlockSize, *entrySize);
            if (!status.ok()) return status;
            const uint64_t blocks = (uint64_t{*entrySize} + Tar::kBlockSize - 1) / Tar::kBlockSize;
            if (blocks * Tar::kBlockSize > available) return refused();
            offset += (blocks + 1) * Tar::kBlockSize;
        }
        return refused();  // there was no end block
    }

    /// The path of the first directory entry, empty when there was none.
    Filepath firstDirectory() const { return firstDirectory_.value_or(Filepath()); }

 private:
    static MireloStatus refused() { return {TAR_EXTRACTION_ERROR, ""}; }

    static bool isExtension(const Tar::Header& header) {
        return header.kind() == Tar::kExtendedHeader || header.kind() == Tar::kGlobalHeader;
    }

    std::optional<uint32_t> sizeOf(const Tar::Header& header) const {
        return records_.size && !isExtension(header) ? records_.size : header.size();
    }

    MireloStatus extract(const Tar::Header& header, const unsigned char* data, uint32_t size) {
        if (isExtension(header)) {
            if (!pax_ || header.kind() == Tar::kGlobalHeader) return {SUCCESS, ""};
            const std::string_view text(reinterpret_cast<const char*>(data), size);
            return Tar::readRecords(text, records_) ? MireloStatus(SUCCESS, "") : refused();
        }
        const Tar::ExtendedRecords records = std::exchange(records_, {});  // they are for this entry only
        const char kind = pax_ && header.kind() == Tar::kOldFile ? Tar::kFile : header.kind();
        if (kind != Tar::kFile && kind != Tar::kDirectory) return refused();
        const Filepath name(records.path ? *records.path : header.name());
        if (!Tar::staysInside(name.c_str())) return refused();
        Filepath path = directory_;
        path.append(name);
        // The separator after a destination that is a lone slash would make the name one of a machine.
        if (Platform::isOnNetwork(path.c_str()) && !Platform::isOnNetwork(directory_.c_str())) return refused();
        if (kind == Tar::kFile) return destination_.writeFile(path, data, size);
        if (!firstDirectory_) firstDirectory_ = path;
        return destination_.makeDirectory(path);
    }

    const unsigned char* archive_;
    uint64_t size_;
    bool pax_;
    const Filepath& directory_;
    Destination& destination_;
    Tar::ExtendedRecords records_;  // of the entry to come
    std::optional<Filepath> firstDirectory_;
};

MireloStatus extractInto(Destination& target, const unsigned char* archive, uint64_t size, bool pax,
                         Filepath& destination) {
    try {
        Extraction extraction(archive, archive == nullptr ? 0 : size, pax, destination, target);
        MireloStatus status = extraction.run();
        if (status.ok()) destination = extraction.firstDirectory();
        return status;
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

}  // namespace

MireloStatus FileUtils::extractTarball(unsigned char* archive, Filepath& destination) {
    VirtualDestination target(*this);
    return extractInto(target, archive, std::numeric_limits<uint64_t>::max(), false, destination);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): callers have an object for all file operations
MireloStatus FileUtils::extractTarballOfSize(const unsigned char* archive, uint64_t size, Filepath& destination) {
    NativeDestination target;
    return extractInto(target, archive, size, true, destination);
}

}  // namespace TarnoMirelo
