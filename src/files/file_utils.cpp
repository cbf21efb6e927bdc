#include "files/platform.h"

#include <TarnoMirelo/files.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

// Everything up to the end of the file. The size is only a hint: files of the system's own making say 0, and others
// grow.
template <typename Bytes>
Bytes readToEnd(Platform::InputFile& file) {
    constexpr uint64_t kGrowth = uint64_t{64} * 1024;
    Bytes bytes;
    bytes.resize(file.size().value_or(0));
    uint64_t used = file.read(bytes.data(), bytes.size());
    char next = 0;
    while (used == bytes.size() && file.read(&next, 1) == 1) {
        bytes.resize(std::max(used + kGrowth, 2 * used));
        bytes[used] = static_cast<typename Bytes::value_type>(next);
        ++used;
        used += file.read(bytes.data() + used, bytes.size() - used);
    }
    bytes.resize(used);
    return bytes;
}

uint64_t sizeOf(const Platform::InputFile& file) {
    const std::optional<uint64_t> size = file.size();
    if (!size) throw FileException("File error!");
    return *size;
}

void write(std::ofstream& stream, const void* data, uint64_t size) {
    stream.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

}  // namespace

FileUtils::FileUtils() = default;
FileUtils::~FileUtils() = default;

void FileUtils::createDir(const Filepath& path) {
    if (pathExists(path) || Platform::createDirectory(path.c_str())) return;
    throw FileException("Path incorrect : " + path.getPathString());
}

bool FileUtils::pathExists(const Filepath& path) { return Platform::pathExists(path.c_str()); }

std::ofstream FileUtils::openFileToStreamBinaryData(const Filepath& path) {
    return Platform::openToWrite(path.c_str(), Platform::WriteMode::Append);
}

bool FileUtils::streamBinaryDataToFile(void* data, uint64_t size, std::ofstream& stream) {
    if (!stream.is_open()) return false;
    write(stream, data, size);
    return stream.good();
}

std::ofstream FileUtils::openFileToWriteBinaryData(const Filepath& path) {
    return Platform::openToWrite(path.c_str(), Platform::WriteMode::Truncate);
}

bool FileUtils::writeBinaryDataToFile(void* data, uint64_t size, const Filepath& path) {
    std::ofstream stream = openFileToWriteBinaryData(path);
    write(stream, data, size);
    stream.close();
    return true;
}

bool FileUtils::writeStringToFile(const std::string& text, const Filepath& path) {
    std::string lines;
    lines.reserve(text.size());
    for (const char* character = text.c_str(); *character != '\0'; ++character) {
        if (*character == '\n') lines.push_back('\r');
        lines.push_back(*character);
    }
    std::ofstream stream = Platform::openToWrite(path.c_str(), Platform::WriteMode::Truncate);
    write(stream, lines.data(), lines.size());
    return true;
}

std::unique_ptr<char[]> FileUtils::readBinaryFileToBuffer(const Filepath& path, uint64_t& size) {
    Platform::InputFile file(path.c_str(), Platform::PathText::Wide);
    const std::optional<uint64_t> fileSize = file.size();
    if (!fileSize) return nullptr;
    std::unique_ptr<char[]> buffer(new char[*fileSize]);  // not make_unique, which would fill it first
    const uint64_t read = file.read(buffer.get(), *fileSize);
    std::fill(buffer.get() + read, buffer.get() + *fileSize, '\0');
    size = *fileSize;
    return buffer;
}

std::vector<char> FileUtils::readBinaryFileToVector(const Filepath& path) {
    Platform::InputFile file(path.c_str(), Platform::PathText::Wide);
    std::vector<char> bytes(file.size().value_or(0));
    file.read(bytes.data(), bytes.size());
    return bytes;
}

std::vector<unsigned char> FileUtils::readBinaryFileToByteVector(const Filepath& path) {
    Platform::InputFile file(path.c_str(), Platform::PathText::Wide);
    if (!file.isOpen()) return {};
    return readToEnd<std::vector<unsigned char>>(file);
}

uint64_t FileUtils::getFileSize(const Filepath& path) {
    return sizeOf(Platform::InputFile(path.c_str(), Platform::PathText::Wide));
}

void FileUtils::readBinaryFileToAllocated(const Filepath& path, uint64_t& size, char* buffer) {
    Platform::InputFile file(path.c_str(), Platform::PathText::Wide);
    size = sizeOf(file);
    file.read(buffer, size);
}

void FileUtils::deleteDir(const Filepath& /*path*/) {}

void FileUtils::deleteFile(const Filepath& path) {
    if (!Platform::deleteFile(path.c_str())) throw FileException("Could not delete file : " + path.getPathString());
}

std::string FileUtils::readBinaryFileToString(const Filepath& path) {
    Platform::InputFile file(path.c_str(), Platform::PathText::Narrow);
    if (!file.isOpen()) throw std::runtime_error("Failed to open file");
    auto text = readToEnd<std::string>(file);
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
