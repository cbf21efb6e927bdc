#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace TarnoMirelo {

/// Writes a tar archive in the ustar layout, block by block.
class TarBuilder {
 public:
    TarBuilder& entry(char kind, const std::string& name, const std::string& data = "",
                      const std::string& prefix = "") {
        std::string header(512, '\0');
        header.replace(0, name.size(), name);
        header.replace(124, 11, formatted("%011lo", static_cast<unsigned long>(data.size())));
        header.replace(257, 8, std::string("ustar\0", 6) + "00");
        header.replace(345, prefix.size(), prefix);
        header[156] = kind;
        lastHeader_ = bytes_.size();
        bytes_ += header + data + std::string((512 - data.size() % 512) % 512, '\0');
        return changed(0, "");
    }
    TarBuilder& file(const std::string& name, const std::string& data) { return entry('0', name, data); }
    TarBuilder& directory(const std::string& name) { return entry('5', name); }
    /// An extended header of one record, without its length.
    TarBuilder& extended(const std::string& record, char kind = 'x') {
        size_t length = record.size() + 3;
        while (std::to_string(length).size() + record.size() + 2 != length) ++length;
        return entry(kind, "extended", std::to_string(length) + " " + record + "\n");
    }
    /// The last header with other bytes at an offset, and the checksum of what it then holds.
    TarBuilder& changed(size_t offset, const std::string& bytes) {
        bytes_.replace(lastHeader_ + offset, bytes.size(), bytes);
        return checksum("%06lo", std::string("\0 ", 2));
    }
    /// The last header with its checksum in another spelling.
    TarBuilder& checksum(const char* format, const std::string& tail = "") {
        bytes_.replace(lastHeader_ + 148, 8, 8, ' ');
        unsigned long sum = 0;
        for (size_t i = 0; i < 512; ++i) sum += static_cast<unsigned char>(bytes_[lastHeader_ + i]);
        const std::string text = formatted(format, sum) + tail;
        bytes_.replace(lastHeader_ + 148, text.size(), text);
        return *this;
    }

    std::vector<unsigned char> withoutEnd() const { return {bytes_.begin(), bytes_.end()}; }
    std::vector<unsigned char> whole() const {
        std::vector<unsigned char> archive = withoutEnd();
        archive.resize(archive.size() + 512);
        return archive;
    }

 private:
    static std::string formatted(const char* format, unsigned long number) {
        char text[32];
        std::snprintf(text, sizeof text, format, number);
        return text;
    }

    std::string bytes_;
    size_t lastHeader_ = 0;
};

}  // namespace TarnoMirelo
