#include "files/platform.h"
#include "files/tar.h"

#include <TarnoMirelo/files.h>

#include <utf8.h>

#include <optional>
#include <utility>

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
        : archive_(archive), size_(archive == nullptr ? 0 : size), directory_(directory) {}

    MireloStatus run() {
        const std::string given = directory_.getPathString();
        if (given.find('\0') != std::string::npos) return refusedDestination("it holds a NUL");
        while (size_ - offset_ >= Tar::kBlockSize) {
            const Tar::Header header(archive_ + offset_);
            if (header.isZero()) return atEnd();
            if (header.checksum() != header.sum()) return badChecksum(header);
            MireloStatus status = isExtension(header) ? readExtension(header) : extract(header);
            if (!status.ok()) return status;
        }
        return {TAR_EXTRACTION_ERROR, "The archive's " + std::to_string(size_) +
                                          " bytes hold no end block, wanted is a " +
                                          "block of zero bytes behind the last entry"};
    }

    /// The path of the first directory entry, empty when there was none.
    Filepath firstDirectory() const { return firstDirectory_.value_or(Filepath()); }

 private:
    static bool isExtension(const Tar::Header& header) {
        const char kind = header.kind();
        return kind == Tar::kGlobalHeader || kind == Tar::kExtendedHeader || kind == Tar::kLongName;
    }

    MireloStatus atEnd() const {
        if (!announced_) return {SUCCESS, ""};
        return refused(records_.path.value_or(""), "it is announced by an extended header, but there is no entry");
    }
    MireloStatus refusedDestination(const std::string& why) const {
        return {TAR_EXTRACTION_ERROR, "Destination " + Tar::quoted(directory_.getPathString()) + ": " + why};
    }
    static MireloStatus refused(std::string_view name, const std::string& why) {
        return {TAR_EXTRACTION_ERROR, "Entry " + Tar::quoted(name) + ": " + why};
    }
    MireloStatus badChecksum(const Tar::Header& header) const {
        const std::optional<uint32_t> found = header.checksum();
        return {TAR_CHECKSUM_ERROR, "The header at byte " + std::to_string(offset_) + ": its checksum is " +
                                        (found ? std::to_string(*found) : "not a number") + ", its bytes add up to " +
                                        std::to_string(header.sum())};
    }

    // Takes a header and the data behind it off the archive; nothing when they are not all there.
    std::optional<std::string_view> take(std::optional<uint32_t> size) {
        const uint64_t available = size_ - offset_ - Tar::kBlockSize;
        if (!size || Tar::paddedSize(*size) > available) return std::nullopt;
        const auto* const data = reinterpret_cast<const char*>(archive_ + offset_ + Tar::kBlockSize);
        offset_ += Tar::kBlockSize + Tar::paddedSize(*size);
        return std::string_view(data, *size);
    }
    MireloStatus refusedSize(std::string_view name, std::optional<uint32_t> size) const {
        if (!size) return refused(name, "its size is not given in octal digits, or is 4 GiB or more");
        return refused(name, "its data is cut off: its size is " + std::to_string(*size) + ", left are " +
                                 std::to_string(size_ - offset_ - Tar::kBlockSize) + " bytes with the padding");
    }

    // What it says is for the entry to come.
    MireloStatus readExtension(const Tar::Header& header) {
        const std::optional<uint32_t> size = header.wholeSize();
        const std::optional<std::string_view> data = take(size);
        if (!data) return refusedSize(header.name(), size);
        announced_ = announced_ || header.kind() != Tar::kGlobalHeader;
        if (header.kind() == Tar::kLongName) {
            records_.path = std::string(data->substr(0, data->find('\0')));
            return {SUCCESS, ""};
        }
        Tar::ExtendedRecords ofAll;
        std::string problem = Tar::readRecords(*data, header.kind() == Tar::kGlobalHeader ? ofAll : records_);
        if (ofAll.path || ofAll.size || ofAll.incomplete != nullptr) {
            problem = "it says of all entries that follow what can be true of one: a path, a size, or a part of a file";
        }
        return problem.empty() ? MireloStatus(SUCCESS, "") : refused(header.name(), problem);
    }

    MireloStatus extract(const Tar::Header& header) {
        const Tar::ExtendedRecords records = std::exchange(records_, {});
        announced_ = false;
        const std::string name = records.path ? *records.path : header.name();
        const std::optional<uint32_t> size = records.size ? records.size : header.wholeSize();
        const std::optional<std::string_view> data = take(size);
        if (!data) return refusedSize(name, size);
        if (records.incomplete != nullptr) {
            return refused(name, std::string("it is ") + records.incomplete + ", wanted is a file stored whole");
        }
        char kind = header.kind();
        const bool endsInSlash = !name.empty() && (name.back() == '/' || name.back() == '\\');
        if (kind == Tar::kOldFile) kind = endsInSlash ? Tar::kDirectory : Tar::kFile;
        if (kind != Tar::kFile && kind != Tar::kDirectory) {
            return refused(name, "it is " + Tar::kindName(kind) + ", wanted are files and directories");
        }
        // Packers differ in whether data lies behind such a header, and so in what the next entry is.
        if (kind == Tar::kDirectory && !data->empty()) {
            return refused(name, "it is a directory of " + std::to_string(data->size()) + " bytes, wanted are none");
        }
        std::string relative;
        std::string problem = readName(name, relative);
        if (problem.empty() && kind == Tar::kFile && (endsInSlash || relative.empty())) {
            problem = "it is a file with the name of a directory";
        }
        if (!problem.empty()) return refused(name, problem);
        if (kind == Tar::kDirectory && !firstDirectory_) {
            firstDirectory_ = pathOf(directory_, name);
            if (!firstDirectory_) return refusedDestination("it and a name would be a path on the network");
        }
        if (!tree_) tree_.emplace(directory_.c_str());
        if (!tree_->isOpen()) return refusedDestination("wanted is a directory that is there and can be entered");
        const std::optional<Platform::Obstacle> obstacle = kind == Tar::kDirectory
                                                               ? tree_->makeDirectory(relative)
                                                               : tree_->writeFile(relative, data->data(), data->size());
        if (obstacle) return refused(name, Tar::quoted(obstacle->name) + ' ' + obstacle->found);
        return {SUCCESS, ""};
    }

    // The name as a path for the tree, or why it can't be one.
    static std::string readName(std::string_view name, std::string& relative) {
        if (name.find('\0') != std::string_view::npos) return "the name holds a NUL";
        if (!utf8::is_valid(name.begin(), name.end())) return "the name is not UTF-8";
        if (const char* const problem = Tar::confinementProblem(name)) return problem;
        relative.reserve(name.size());
        for (size_t begin = 0; begin < name.size();) {
            const size_t end = std::min(name.find_first_of("/\\", begin), name.size());
            const std::string_view component = name.substr(begin, end - begin);
            begin = end + 1;
            if (component.empty() || component == ".") continue;
            if (const char* const problem = Platform::nameProblem(component)) {
                return Tar::quoted(component) + ' ' + problem;
            }
            if (!relative.empty()) relative += '/';
            relative += component;
        }
        return "";
    }

    const unsigned char* archive_;
    uint64_t size_;
    uint64_t offset_ = 0;  // of the next header
    const Filepath& directory_;
    std::optional<Platform::OutputTree> tree_;  // opened for the first entry
    Tar::ExtendedRecords records_;              // of the entry to come
    bool announced_ = false;                    // whether an extended header has announced it
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
