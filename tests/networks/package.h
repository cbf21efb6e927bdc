#pragma once

// What the programs that run packaged networks read and print.
//
// A folder holds the manifest, and the inputs of two rows as inputs-0.bin and inputs-1.bin: the elements of each
// input in the manifest's order. One line per status, with the operation, the code and the description; one per output,
// with the operation, the row, the name, the element type, the shape and the elements in hexadecimal. Tabs separate.

#include <TarnoMirelo/TarnoMirelo.h>

#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace TarnoMirelo {

using Bytes = std::vector<uint8_t>;

inline bool tell(const std::string& operation, const MireloStatus& status) {
    std::string description = status.getDescription();
    for (char& character : description) {
        if (character == '\n' || character == '\r' || character == '\t') character = ' ';
    }
    std::cout << "status\t" << operation << "\t" << status.getCode() << "\t" << description << std::endl;
    return status.ok();
}

inline void tell(const std::string& operation, size_t row, const std::string& name, DataType type,
                 const std::vector<int64_t>& shape, const uint8_t* bytes, size_t size) {
    std::cout << "output\t" << operation << "\t" << row << "\t" << name << "\t" << static_cast<int32_t>(type) << "\t";
    for (const int64_t dimension : shape) std::cout << dimension << " ";
    std::string elements;
    for (size_t i = 0; i < size; ++i) {
        elements += "0123456789abcdef"[bytes[i] >> 4];
        elements += "0123456789abcdef"[bytes[i] & 15];
    }
    std::cout << "\t" << elements << std::endl;
}

inline Filepath inside(Filepath folder, const std::string& name) { return folder.append(Filepath(name)); }

inline Bytes readFile(const Filepath& path) {
    uint64_t size = 0;
    const std::unique_ptr<char[]> bytes = FileUtils().readBinaryFileToBuffer(path, size);
    if (bytes == nullptr) throw FileException("Cannot read " + path.getPathString());
    return {bytes.get(), bytes.get() + size};
}

inline Bytes readRow(const Filepath& folder, size_t row) {
    return readFile(inside(folder, "inputs-" + std::to_string(row) + ".bin"));
}

/// Takes the bytes of one input after the other from a row.
class RowReader {
 public:
    explicit RowReader(const Bytes& row) : row_(row) {}
    void take(uint8_t* to, size_t size) {
        if (size > row_.size() - position_) throw std::length_error("A row is shorter than the inputs");
        if (size > 0) std::memcpy(to, row_.data() + position_, size);
        position_ += size;
    }
    void end() const {
        if (position_ != row_.size()) throw std::length_error("A row is longer than the inputs");
    }

 private:
    const Bytes& row_;
    size_t position_ = 0;
};

/// Calls run(folder) for each argument; the value is the program's.
template <typename Run>
int runEach(int argc, char** argv, const Run& run) {
    if (argc < 2) {
        std::cerr << "Usage: " << argv[0] << " FOLDER...\n";
        return 2;
    }
    try {
        for (int i = 1; i < argc; ++i) {
            std::cout << "network\t" << argv[i] << std::endl;
            run(Filepath(argv[i]));
        }
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << "raised " << exception.what() << std::endl;
        return 3;
    }
}

}  // namespace TarnoMirelo
