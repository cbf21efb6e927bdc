// Reading whole files and unpacking archives, in the memory file system.

#include "measure.h"
#include "system_file.h"

#include <TarnoMirelo/files.h>

#include <archive.h>
#include <archive_entry.h>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Bench {
namespace {

using namespace TarnoMirelo;

constexpr size_t kMebibyte = size_t{1} << 20;

// Read into new memory of this type, which fills it with zeros first.
template <typename Container>
Container readInto(const std::string& path) {
    const SystemFile file = SystemFile::toRead(path.c_str());
    Container bytes(file.size(), 0);
    file.read(bytes.data(), bytes.size());
    return bytes;
}

std::unique_ptr<char[]> readIntoBuffer(const std::string& path) {
    const SystemFile file = SystemFile::toRead(path.c_str());
    const size_t size = file.size();
    std::unique_ptr<char[]> bytes(new char[size]);
    file.read(bytes.get(), size);
    return bytes;
}

void addReads(const std::string& sizeName, size_t size) {
    const std::string path = scratchDirectory() / ("bytes" + std::to_string(size));
    const Filepath file(path);
    {
        const SystemFile written = SystemFile::toWrite(path.c_str());
        const std::string block(std::min(size, kMebibyte), 'x');
        for (size_t left = size; left > 0; left -= block.size()) written.write(block.data(), block.size());
    }
    const auto add = [&](const std::string& reader, Side side, auto work) {
        const int repetitions = size > 64 * kMebibyte ? 8 : 0;
        measure(
            reader + ", " + sizeName, side, [work] { benchmark::DoNotOptimize(work()); }, repetitions);
    };
    add("readBinaryFileToBuffer", Side::Ours, [=] {
        uint64_t bytes = 0;
        return FileUtils().readBinaryFileToBuffer(file, bytes);
    });
    add("readBinaryFileToBuffer", Side::Limit, [=] { return readIntoBuffer(path); });
    add("readBinaryFileToBuffer", Side::Instead, [=] {
        std::ifstream stream(path, std::ios::binary);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    });
    add("readBinaryFileToVector", Side::Ours, [=] { return FileUtils().readBinaryFileToVector(file); });
    add("readBinaryFileToVector", Side::Limit, [=] { return readInto<std::vector<char>>(path); });
    add("readBinaryFileToByteVector", Side::Ours, [=] { return FileUtils().readBinaryFileToByteVector(file); });
    add("readBinaryFileToByteVector", Side::Limit, [=] { return readInto<std::vector<unsigned char>>(path); });
    add("readBinaryFileToString", Side::Ours, [=] { return FileUtils().readBinaryFileToString(file); });
    add("readBinaryFileToString", Side::Limit, [=] {
        auto text = readInto<std::string>(path);
        text.resize(std::min(text.find('\0'), text.size()));
        return text;
    });
    const auto memory = std::make_shared<std::unique_ptr<char[]>>();
    const auto present = [=] {  // the caller's: made once, so that its pages are in use already
        if (*memory == nullptr) *memory = std::make_unique<char[]>(size);
        return memory->get();
    };
    add("readBinaryFileToAllocated", Side::Ours, [=] {
        uint64_t bytes = 0;
        FileUtils().readBinaryFileToAllocated(file, bytes, present());
        return bytes;
    });
    add("readBinaryFileToAllocated", Side::Limit, [=] {
        const SystemFile source = SystemFile::toRead(path.c_str());
        const size_t bytes = source.size();
        source.read(present(), bytes);
        return bytes;
    });
}

// An archive in the ustar layout of one directory and files of one size in it.
class Archive {
 public:
    Archive(size_t files, size_t size) {
        bytes_.reserve((files + 1) * (size + 2 * kBlock));
        addHeader("model/", 0, '5');
        for (size_t i = 0; i < files; ++i) {
            names_.push_back("model/file_" + std::to_string(i));
            addHeader(names_.back(), size, '0');
            offsets_.push_back(bytes_.size());
            bytes_.resize(bytes_.size() + (size + kBlock - 1) / kBlock * kBlock, 'x');
        }
        bytes_.resize(bytes_.size() + 2 * kBlock);
        fileSize_ = size;
    }

    std::vector<unsigned char>& bytes() { return bytes_; }
    size_t fileCount() const { return names_.size(); }
    size_t fileSize() const { return fileSize_; }
    const std::string& name(size_t file) const { return names_[file]; }
    const unsigned char* data(size_t file) const { return bytes_.data() + offsets_[file]; }

 private:
    static constexpr size_t kBlock = 512;

    static std::string octal(size_t number, size_t digits) {
        std::string text(digits, '0');
        for (size_t i = digits; i-- > 0; number /= 8) text[i] = static_cast<char>('0' + number % 8);
        return text;
    }

    void addHeader(const std::string& name, size_t size, char kind) {
        std::string header(kBlock, '\0');
        const auto put = [&header](size_t offset, const std::string& text) {
            header.replace(offset, text.size(), text);
        };
        put(0, name);
        put(100, octal(0755, 7));
        put(124, octal(size, 11));
        put(148, std::string(8, ' '));
        put(156, std::string(1, kind));
        put(257, "ustar");
        put(263, "00");
        size_t sum = 0;
        for (const char byte : header) sum += static_cast<unsigned char>(byte);
        put(148, octal(sum, 6));
        bytes_.insert(bytes_.end(), header.begin(), header.end());
    }

    std::vector<unsigned char> bytes_;
    std::vector<std::string> names_;
    std::vector<size_t> offsets_;
    size_t fileSize_ = 0;
};

// With the system's calls alone; the paths are made before.
void writeFiles(const Archive& archive, const std::string& directory, const std::vector<std::string>& paths) {
    std::filesystem::create_directory(directory + "/model");
    for (size_t i = 0; i < archive.fileCount(); ++i) {
        SystemFile::toWrite(paths[i].c_str()).write(archive.data(i), archive.fileSize());
    }
}

// libarchive reads from memory; the files are written as the limit writes them, which is faster than its own writer.
void extractByLibarchive(Archive& source, const std::string& directory) {
    archive* const reader = archive_read_new();
    archive_read_support_format_tar(reader);
    archive_read_open_memory(reader, source.bytes().data(), source.bytes().size());
    archive_entry* entry = nullptr;
    while (archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
        const std::string path = directory + "/" + archive_entry_pathname(entry);
        if (archive_entry_filetype(entry) == AE_IFDIR) {
            std::filesystem::create_directory(path);
            continue;
        }
        const SystemFile file = SystemFile::toWrite(path.c_str());
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        while (archive_read_data_block(reader, &block, &size, &offset) == ARCHIVE_OK) file.write(block, size);
    }
    archive_read_free(reader);
}

void addExtraction(const std::string& sizeName, size_t files, size_t size) {
    const auto archive = std::make_shared<Archive>(files, size);
    const std::string directory = scratchDirectory() / "extracted";
    std::vector<std::string> paths;
    for (size_t i = 0; i < files; ++i) paths.push_back(directory + "/" + archive->name(i));
    const auto emptyDirectory = [=] {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directory(directory);
    };
    const auto require = [](const MireloStatus& status) {
        if (!status.ok()) throw std::runtime_error("the archive can't be extracted");
    };
    const auto add = [&](const std::string& operation, Side side, auto work) {
        measurePrepared(operation + ", " + sizeName, side, emptyDirectory, work, size > kMebibyte ? 18 : 45);
    };
    const auto addBesides = [&](const std::string& operation) {
        add(operation, Side::Limit, [=] { writeFiles(*archive, directory, paths); });
        add(operation, Side::Instead, [=] { extractByLibarchive(*archive, directory); });
    };
    add("extractTarball", Side::Ours, [=] {
        Filepath destination(directory);
        require(FileUtils().extractTarball(archive->bytes().data(), destination));
    });
    addBesides("extractTarball");
    add("extractTarballOfSize", Side::Ours, [=] {
        Filepath destination(directory);
        require(FileUtils().extractTarballOfSize(archive->bytes().data(), archive->bytes().size(), destination));
    });
    addBesides("extractTarballOfSize");
}

}  // namespace

void addFiles() {
    addReads("1 KB", 1 << 10);
    addReads("1 MiB", kMebibyte);
    addReads("64 MiB", 64 * kMebibyte);
    addReads("1 GiB", 1024 * kMebibyte);
}

void addArchives() {
    addExtraction("2,000 files of 4 KiB", 2000, 4096);
    addExtraction("a file of 256 MiB", 1, 256 * kMebibyte);
}

}  // namespace Bench
