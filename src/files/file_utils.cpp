#include "files/platform.h"

#include <TarnoMirelo/files.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

namespace TarnoMirelo {
namespace {

// A file opened for input whose size is known. Not every file has one: a pipe, for example, can't be positioned.
struct SizedFile {
    std::ifstream stream;
    uint64_t size;
};

std::optional<uint64_t> sizeOf(std::ifstream& stream) {
    stream.seekg(0, std::ios::end);
    const std::streamoff end = stream.tellg();
    stream.clear();
    stream.seekg(0);
    if (end < 0) return std::nullopt;
    return static_cast<uint64_t>(end);
}

std::optional<SizedFile> openSized(const Filepath& path) {
    std::ifstream stream = Platform::openToRead(path.c_str(), Platform::PathText::Wide);
    if (!stream.is_open()) return std::nullopt;
    const std::optional<uint64_t> size = sizeOf(stream);
    if (!size) return std::nullopt;
    return SizedFile{std::move(stream), *size};
}

// Bytes read; fewer than asked for at the end of the file or when reading fails.
uint64_t readBytes(std::ifstream& stream, char* buffer, uint64_t size) {
    stream.read(buffer, static_cast<std::streamsize>(size));
    return static_cast<uint64_t>(stream.gcount());
}

// Everything up to the end of the file. The size is only a hint: files of the system's own making have none.
template <typename Bytes>
Bytes readToEnd(std::ifstream& stream) {
    constexpr uint64_t kGrowth = uint64_t{64} * 1024;
    Bytes bytes;
    bytes.resize(sizeOf(stream).value_or(0));
    uint64_t used = readBytes(stream, reinterpret_cast<char*>(bytes.data()), bytes.size());
    while (stream.good() && stream.peek() != std::ifstream::traits_type::eof()) {
        bytes.resize(std::max(used + kGrowth, 2 * used));
        used += readBytes(stream, reinterpret_cast<char*>(bytes.data()) + used, bytes.size() - used);
    }
    bytes.resize(used);
    return bytes;
}

void write(std::ofstream& stream, const void* data, uint64_t size) {
    stream.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

}  // namespace

FileUtils::FileUtils() = default;
FileUtils::~FileUtils() = default;

void FileUtils::createDir(const Filepath& path) {
    if (pathExists(path)) return;
    if (Platform::createDirectory(path.c_str(), Platform::PathText::Narrow) == Platform::Creation::ParentMissing) {
        throw FileException("Path incorrect : " + path.getPathString());
    }
}

bool FileUtils::pathExists(const Filepath& path) { return Platform::pathExists(path.c_str()); }

std::ofstream FileUtils::openFileToStreamBinaryData(const Filepath& path) {
    return Platform::openToWrite(path.c_str(), std::ios::app);
}

bool FileUtils::streamBinaryDataToFile(void* data, uint64_t size, std::ofstream& stream) {
    if (!stream.is_open()) return false;
    write(stream, data, size);
    return stream.good();
}

std::ofstream FileUtils::openFileToWriteBinaryData(const Filepath& path) {
    return Platform::openToWrite(path.c_str(), std::ios::trunc);
}

bool FileUtils::writeBinaryDataToFile(void* data, uint64_t size, const Filepath& path) {
    std::ofstream stream = openFileToWriteBinaryData(path);
    write(stream, data, size);
    stream.close();
    return true;
}

bool FileUtils::writeStringToFile(const std::string& text, const Filepath& path) {
    Platform::writeTextFile(path.c_str(), text.c_str());
    return true;
}

std::unique_ptr<char[]> FileUtils::readBinaryFileToBuffer(const Filepath& path, uint64_t& size) {
    std::optional<SizedFile> file = openSized(path);
    if (!file) return nullptr;
    std::unique_ptr<char[]> buffer(new char[file->size]);  // not make_unique, which would fill it first
    const uint64_t read = readBytes(file->stream, buffer.get(), file->size);
    std::fill(buffer.get() + read, buffer.get() + file->size, '\0');
    size = file->size;
    return buffer;
}

std::vector<char> FileUtils::readBinaryFileToVector(const Filepath& path) {
    std::optional<SizedFile> file = openSized(path);
    if (!file) return {};
    std::vector<char> bytes(file->size);
    readBytes(file->stream, bytes.data(), bytes.size());
    return bytes;
}

std::vector<unsigned char> FileUtils::readBinaryFileToByteVector(const Filepath& path) {
    std::ifstream stream = Platform::openToRead(path.c_str(), Platform::PathText::Wide);
    if (!stream.is_open()) return {};
    return readToEnd<std::vector<unsigned char>>(stream);
}

uint64_t FileUtils::getFileSize(const Filepath& path) {
    const std::optional<SizedFile> file = openSized(path);
    if (!file) throw FileException("File error!");
    return file->size;
}

void FileUtils::readBinaryFileToAllocated(const Filepath& path, uint64_t& size, char* buffer) {
    std::optional<SizedFile> file = openSized(path);
    if (!file) throw FileException("File error!");
    size = file->size;
    readBytes(file->stream, buffer, file->size);
}

void FileUtils::deleteDir(const Filepath& /*path*/) {}

void FileUtils::deleteFile(const Filepath& path) {
    if (!Platform::deleteFile(path.c_str())) throw FileException("Could not delete file : " + path.getPathString());
}

std::string FileUtils::readBinaryFileToString(const Filepath& path) {
    std::ifstream stream = Platform::openToRead(path.c_str(), Platform::PathText::Narrow);
    if (!stream.is_open()) throw std::runtime_error("Failed to open file");
    auto text = readToEnd<std::string>(stream);
    text.resize(std::min(text.find('\0'), text.size()));
    return text;
}

std::vector<Filepath> FileUtils::findFilesByPattern(Filepath directory, std::string pattern) {
    directory.append(Filepath(pattern));
    std::vector<Filepath> files;
    for (const std::string& name : Platform::findFiles(directory.c_str())) files.emplace_back(name);
    return files;
}

}  // namespace TarnoMirelo
