#include "archive.h"

#include "failure.h"
#include "interrupt.h"
#include "kit/src/windows_names.h"
#include "package.h"

#include <utf8.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <set>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

constexpr size_t kBlock = 512;
constexpr size_t kNameField = 100;
constexpr size_t kPrefixField = 155;
constexpr uint64_t kLargestFile = 0xFFFFFFFF;
constexpr unsigned kTime = 315532800;  // 1980-01-01: the earliest that no unpacker wonders at

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// Empty where every reader makes the same of the name.
std::string problemOfName(const std::string& name, bool isFolder) {
    if (!utf8::is_valid(name.begin(), name.end())) return "the name is not UTF-8";
    if (name.find_first_of("<>:\"|?*\\") != std::string::npos || std::any_of(name.begin(), name.end(), isControl)) {
        return "the name has a character that Windows has no names with: one of < > : \" | ? * \\ or a control character";
    }
    if (name.back() == '.' || name.back() == ' ') return "the name ends with a dot or a space, which Windows drops";
    if (Kit::isWindowsDevice(name)) return "Windows takes the name for a device";
    if (!isFolder) return "";
    if (name.find(' ') != std::string::npos) return "the name of a folder has a space, which not every reader takes";
    if (std::any_of(name.begin(), name.end(), [](char c) { return (static_cast<unsigned char>(c) & 0x80U) != 0; })) {
        return "the name of a folder is not ASCII, which not every reader takes";
    }
    return "";
}

// Where the layout's two fields can part the name; the length of the whole name where the second is enough.
std::optional<size_t> splitOf(const std::string& name) {
    if (name.size() <= kNameField) return name.size();
    for (size_t slash = name.find('/'); slash != std::string::npos && slash <= kPrefixField;
         slash = name.find('/', slash + 1)) {
        const size_t rest = name.size() - slash - 1;
        if (slash > 0 && rest > 0 && rest <= kNameField) return slash;
    }
    return std::nullopt;
}

class Planner {
 public:
    void add(const fs::path& source, const std::string& parent) {
        checkInterrupt();
        const std::string name = toText(source.filename());
        const fs::file_status status = fs::symlink_status(source);
        const bool isFolder = fs::is_directory(status);
        const ArchivePlan::Entry entry{source, parent + name + (isFolder ? "/" : ""),
                                       fs::is_regular_file(status) ? fs::file_size(source) : 0};
        std::string problem = problemOfKind(status);
        if (problem.empty()) problem = problemOfName(name, isFolder);
        if (problem.empty() && entry.bytes > kLargestFile) problem = "the file has 4 GiB or more";
        if (problem.empty() && !splitOf(entry.name)) {
            problem = "the name is too long for a plain archive: 100 bytes, with a slash before them 255 at most";
        }
        if (problem.empty() && !seen_.insert(lowered(entry.name)).second) {
            problem = "another name differs in the case of letters alone, which is one name on Windows";
        }
        if (!problem.empty()) {
            plan_.problems.push_back({entry.name, problem});
            return;
        }
        plan_.entries.push_back(entry);
        if (!isFolder) return;
        std::set<fs::path> children;  // in their order, so that the same folder has the same problems
        for (const fs::directory_entry& child : fs::directory_iterator(source)) children.insert(child.path());
        for (const fs::path& child : children) add(child, entry.name);
    }

    ArchivePlan take() {
        std::sort(plan_.entries.begin(), plan_.entries.end(),
                  [](const ArchivePlan::Entry& a, const ArchivePlan::Entry& b) {
                      return std::pair(!a.isFolder(), a.name) < std::pair(!b.isFolder(), b.name);
                  });
        std::sort(plan_.problems.begin(), plan_.problems.end(),
                  [](const ArchivePlan::Problem& a, const ArchivePlan::Problem& b) { return a.name < b.name; });
        return std::move(plan_);
    }

 private:
    static std::string problemOfKind(const fs::file_status& status) {
        if (fs::is_symlink(status)) return "it is a symbolic link, wanted are files and folders";
        const bool isPlain = fs::is_directory(status) || fs::is_regular_file(status);
        return isPlain ? "" : "it is neither a file nor a folder";
    }

    ArchivePlan plan_;
    std::set<std::string> seen_;
};

class Header {
 public:
    explicit Header(const ArchivePlan::Entry& entry) {
        const size_t split = *splitOf(entry.name);
        if (split < entry.name.size()) {
            put(345, entry.name.substr(0, split));
            put(0, entry.name.substr(split + 1));
        } else {
            put(0, entry.name);
        }
        put(100, octal(entry.isFolder() ? 0755 : 0644, 7));
        put(108, octal(0, 7));
        put(116, octal(0, 7));
        put(124, octal(entry.bytes, 11));
        put(136, octal(kTime, 11));
        put(148, "        ");
        put(156, entry.isFolder() ? "5" : "0");
        put(257, std::string("ustar\0", 6) + "00");
        unsigned sum = 0;
        for (const char c : block_) sum += static_cast<unsigned char>(c);
        put(148, octal(sum, 6) + '\0');  // and a space, which is there
    }

    std::string_view bytes() const { return {block_.data(), block_.size()}; }

 private:
    void put(size_t offset, const std::string& text) {
        std::copy(text.begin(), text.end(), block_.begin() + static_cast<ptrdiff_t>(offset));
    }

    static std::string octal(uint64_t number, size_t digits) {
        std::string text(digits, '0');
        for (size_t i = digits; i > 0; --i, number /= 8) text[i - 1] = static_cast<char>('0' + number % 8);
        return text;
    }

    std::array<char, kBlock> block_{};
};

// Calls `use` with the pieces of a file. Raises `Failure` where it can't be read or has another size.
void readInPieces(const fs::path& path, uint64_t size, const std::function<void(std::string_view)>& use) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw Failure(toGenericText(path) + ": the file can't be opened");
    std::vector<char> piece(1U << 20U);
    uint64_t left = size;
    while (left > 0) {
        checkInterrupt();
        stream.read(piece.data(), static_cast<std::streamsize>(std::min<uint64_t>(left, piece.size())));
        const auto count = static_cast<uint64_t>(stream.gcount());
        if (count == 0) throw Failure(toGenericText(path) + ": the file has become shorter while it was read");
        use({piece.data(), static_cast<size_t>(count)});
        left -= count;
    }
    if (stream.get() != std::ifstream::traits_type::eof()) {
        throw Failure(toGenericText(path) + ": the file has become longer while it was read");
    }
}

bool haveSameBytes(const fs::path& a, const fs::path& b, uint64_t size) {
    if (fs::file_size(b) != size) return false;
    std::ifstream other(b, std::ios::binary);
    bool same = static_cast<bool>(other);
    std::vector<char> piece;
    readInPieces(a, size, [&](std::string_view bytes) {
        piece.resize(bytes.size());
        other.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        same = same && std::string_view(piece.data(), static_cast<size_t>(other.gcount())) == bytes;
    });
    return same;
}

uint64_t bytesOf(const ArchivePlan& plan) {
    uint64_t bytes = 0;
    for (const ArchivePlan::Entry& entry : plan.entries) bytes += entry.bytes;
    return bytes;
}

// Tells a terminal of the bytes that are done.
class Progress {
 public:
    Progress(Console& console, const char* work, uint64_t total) : console_(console), work_(work), total_(total) {}
    void add(uint64_t bytes) {
        done_ += bytes;
        if (total_ > 0) console_.progress(work_, static_cast<double>(done_) / static_cast<double>(total_));
    }

 private:
    Console& console_;
    const char* work_;
    uint64_t total_;
    uint64_t done_ = 0;
};

}  // namespace

ArchivePlan planArchive(const std::string& folder) {
    const fs::path path = toPlainPath(folder);
    if (!fs::is_directory(path)) throw Failure(folder + ": there is no such folder");
    Planner planner;
    planner.add(path, "");
    return planner.take();
}

void writeArchive(const ArchivePlan& plan, PartialFile& archive, Console& console) {
    Progress progress(console, "Packing", bytesOf(plan));
    const std::string zeros(2 * kBlock, '\0');
    for (const ArchivePlan::Entry& entry : plan.entries) {
        archive.write(Header(entry).bytes());
        if (entry.isFolder()) continue;
        readInPieces(entry.source, entry.bytes, [&](std::string_view bytes) {
            archive.write(bytes);
            progress.add(bytes.size());
        });
        archive.write(std::string_view(zeros).substr(0, (kBlock - entry.bytes % kBlock) % kBlock));
    }
    archive.write(zeros);
    archive.close();
}

void checkArchive(const ArchivePlan& plan, const fs::path& archive, const std::string& about, Console& console) {
    const TemporaryFolder unpacked;
    unpackArchive(archive, unpacked.path(), about + ": unpacking it into " + toGenericText(unpacked.path()));
    Progress progress(console, "Comparing", bytesOf(plan));
    for (const ArchivePlan::Entry& entry : plan.entries) {
        const fs::path found = unpacked.path() / toPath(entry.name);
        const bool same = entry.isFolder()
                              ? fs::is_directory(found)
                              : fs::is_regular_file(found) && haveSameBytes(entry.source, found, entry.bytes);
        if (!same) throw Failure(entry.name + ": the archive gives back something else than was packed");
        progress.add(entry.bytes);
    }
    const auto entries = std::distance(fs::recursive_directory_iterator(unpacked.path()), {});
    if (static_cast<size_t>(entries) != plan.entries.size()) {
        throw Failure(about + ": the archive gives back more than was packed");
    }
}

}  // namespace TarnoMirelo::Tool
