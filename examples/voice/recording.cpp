#include "recording.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

// Reads little-endian numbers and chunks, and never beyond the end.
class Reader {
 public:
    explicit Reader(std::string_view bytes) : left_(bytes) {}

    size_t left() const { return left_.size(); }

    std::string_view take(size_t size) {
        if (size > left_.size()) {
            throw std::runtime_error("the file is cut: " + std::to_string(size) + " bytes are wanted, " +
                                     std::to_string(left_.size()) + " are left");
        }
        const std::string_view taken = left_.substr(0, size);
        left_.remove_prefix(size);
        return taken;
    }

    uint32_t number(size_t bytes) {
        uint32_t value = 0;
        const std::string_view taken = take(bytes);
        for (size_t i = 0; i < bytes; ++i) value |= uint32_t{static_cast<unsigned char>(taken[i])} << (8 * i);
        return value;
    }

 private:
    std::string_view left_;
};

void want(const std::string& what, uint32_t found, uint32_t wanted) {
    if (found == wanted) return;
    throw std::runtime_error(what + " is " + std::to_string(found) + ", wanted is " + std::to_string(wanted));
}

void checkFormat(Reader format) {
    want("the format (1 for PCM)", format.number(2), 1);
    want("the number of channels", format.number(2), 1);
    want("the number of samples a second", format.number(4), static_cast<uint32_t>(kSampleRate));
    format.take(6);  // bytes a second and bytes a sample, which follow from the others
    want("the number of bits a sample", format.number(2), 16);
}

std::vector<float> toSamples(Reader data) {
    std::vector<float> samples;
    samples.reserve(data.left() / 2);
    while (data.left() >= 2) {
        const auto sample = static_cast<int16_t>(static_cast<uint16_t>(data.number(2)));
        samples.push_back(static_cast<float>(sample) / 32768);
    }
    if (samples.empty()) throw std::runtime_error("there are no samples");
    return samples;
}

std::vector<float> parse(std::string_view bytes) {
    Reader file(bytes);
    if (file.take(4) != "RIFF") throw std::runtime_error("it does not begin with \"RIFF\"");
    file.take(4);  // the size of all that follows
    if (file.take(4) != "WAVE") throw std::runtime_error("it is RIFF, but not \"WAVE\"");
    bool formatKnown = false;
    for (;;) {
        if (file.left() == 0) throw std::runtime_error("there is no chunk \"data\"");
        const std::string_view name = file.take(4);
        const uint32_t size = file.number(4);
        const Reader chunk(file.take(size));
        if (name == "fmt ") {
            checkFormat(chunk);
            formatKnown = true;
        } else if (name == "data") {
            if (!formatKnown) throw std::runtime_error(R"(the chunk "data" comes before "fmt ")");
            return toSamples(chunk);
        }
        if (size % 2 != 0 && file.left() > 0) file.take(1);  // chunks begin at even places
    }
}

}  // namespace

std::vector<float> readRecording(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("Cannot read " + path.string());
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    try {
        return parse(bytes);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path.string() + " is no WAV file of 16 kHz, 16 bits and one channel: " + error.what());
    }
}
