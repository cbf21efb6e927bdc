#include "files/tar_archive.h"

#include <utf8.h>

#include <algorithm>
#include <utility>

namespace TarnoMirelo::Tar {
namespace {

bool isExtension(const Header& header) {
    const char kind = header.kind();
    return kind == kGlobalHeader || kind == kExtendedHeader || kind == kLongName;
}

// Why an entry can't have that name; null when it can.
const char* nameProblem(const Entry& entry) {
    const std::string_view name = entry.name;
    if (name.find('\0') != std::string_view::npos) return "the name holds a NUL";
    if (!utf8::is_valid(name.begin(), name.end())) return "the name is not UTF-8";
    if (const char* const problem = confinementProblem(name)) return problem;
    const bool endsInSlash = name.back() == '/' || name.back() == '\\';
    if (!entry.isDirectory && (endsInSlash || componentsOf(name).empty())) {
        return "it is a file with the name of a directory";
    }
    return nullptr;
}

}  // namespace

Refusal refused(std::string_view name, const std::string& why) {
    return {TAR_EXTRACTION_ERROR, "Entry " + quoted(name) + ": " + why};
}

std::optional<Refusal> Archive::next(std::optional<Entry>& entry) {
    entry.reset();
    while (size_ - offset_ >= kBlockSize) {
        const Header header(archive_ + offset_);
        if (header.isZero()) return atEnd();
        if (header.checksum() != header.sum()) return badChecksum(header);
        if (!isExtension(header)) return readEntry(header, entry.emplace());
        if (std::optional<Refusal> refusal = readExtension(header)) return refusal;
    }
    return Refusal{TAR_EXTRACTION_ERROR, "The archive's " + std::to_string(size_) +
                                             " bytes hold no end block, wanted is a block of zero bytes behind the "
                                             "last entry"};
}

std::optional<Refusal> Archive::atEnd() const {
    if (!announced_) return std::nullopt;
    return refused(records_.path.value_or(""), "it is announced by an extended header, but there is no entry");
}

Refusal Archive::badChecksum(const Header& header) const {
    const std::optional<uint32_t> found = header.checksum();
    return {TAR_CHECKSUM_ERROR, "The header at byte " + std::to_string(offset_) + ": its checksum is " +
                                    (found ? std::to_string(*found) : "not a number") + ", its bytes add up to " +
                                    std::to_string(header.sum())};
}

// Takes a header and the data behind it off the archive; nothing when they are not all there.
std::optional<std::string_view> Archive::take(std::optional<uint32_t> size) {
    const uint64_t available = size_ - offset_ - kBlockSize;
    if (!size || paddedSize(*size) > available) return std::nullopt;
    const auto* const data = reinterpret_cast<const char*>(archive_ + offset_ + kBlockSize);
    offset_ += kBlockSize + paddedSize(*size);
    return std::string_view(data, *size);
}

Refusal Archive::refusedSize(std::string_view name, std::optional<uint32_t> size) const {
    if (!size) return refused(name, "its size is not given in octal digits, or is 4 GiB or more");
    return refused(name, "its data is cut off: its size is " + std::to_string(*size) + ", left are " +
                             std::to_string(size_ - offset_ - kBlockSize) + " bytes with the padding");
}

// What it says is for the entry to come.
std::optional<Refusal> Archive::readExtension(const Header& header) {
    const std::optional<uint32_t> size = header.wholeSize();
    const std::optional<std::string_view> data = take(size);
    if (!data) return refusedSize(header.name(), size);
    announced_ = announced_ || header.kind() != kGlobalHeader;
    if (header.kind() == kLongName) {
        records_.path = std::string(data->substr(0, data->find('\0')));
        return std::nullopt;
    }
    ExtendedRecords ofAll;
    std::string problem = readRecords(*data, header.kind() == kGlobalHeader ? ofAll : records_);
    if (ofAll.path || ofAll.size || ofAll.incomplete != nullptr) {
        problem = "it says of all entries that follow what can be true of one: a path, a size, or a part of a file";
    }
    if (problem.empty()) return std::nullopt;
    return refused(header.name(), problem);
}

std::optional<Refusal> Archive::readEntry(const Header& header, Entry& entry) {
    const ExtendedRecords records = std::exchange(records_, {});
    announced_ = false;
    entry.name = records.path ? *records.path : header.name();
    const std::optional<uint32_t> size = records.size ? records.size : header.wholeSize();
    const std::optional<std::string_view> data = take(size);
    if (!data) return refusedSize(entry.name, size);
    entry.data = *data;
    if (records.incomplete != nullptr) {
        return refused(entry.name, std::string("it is ") + records.incomplete + ", wanted is a file stored whole");
    }
    char kind = header.kind();
    const bool endsInSlash = !entry.name.empty() && (entry.name.back() == '/' || entry.name.back() == '\\');
    if (kind == kOldFile) kind = endsInSlash ? kDirectory : kFile;
    if (kind != kFile && kind != kDirectory) {
        return refused(entry.name, "it is " + kindName(kind) + ", wanted are files and directories");
    }
    entry.isDirectory = kind == kDirectory;
    // Packers differ in whether data lies behind such a header, and so in what the next entry is.
    if (entry.isDirectory && !data->empty()) {
        return refused(entry.name, "it is a directory of " + std::to_string(data->size()) + " bytes, wanted are none");
    }
    if (const char* const problem = nameProblem(entry)) return refused(entry.name, problem);
    return std::nullopt;
}

std::vector<std::string_view> componentsOf(std::string_view name) {
    std::vector<std::string_view> components;
    for (size_t begin = 0; begin < name.size();) {
        const size_t end = std::min(name.find_first_of("/\\", begin), name.size());
        const std::string_view component = name.substr(begin, end - begin);
        begin = end + 1;
        if (!component.empty() && component != ".") components.push_back(component);
    }
    return components;
}

}  // namespace TarnoMirelo::Tar
