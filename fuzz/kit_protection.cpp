// Containers that were changed after they were made, and bytes as containers: none opens but the one that was made, in
// whatever way it is read.

#include "support/protection.h"
#include "support/require.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace TarnoMirelo {
namespace {

constexpr size_t kHeader = 32;
constexpr size_t kSealed = (1 << 20) + 16;

// The input, byte by byte; zeros behind its end.
class Script {
 public:
    Script(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

    bool atEnd() const { return next_ == end_; }
    uint8_t byte() { return atEnd() ? uint8_t{0} : *next_++; }
    size_t number() { return byte() | size_t{byte()} << 8 | size_t{byte()} << 16; }

 private:
    const uint8_t* next_;
    const uint8_t* end_;
};

// Where chunks and header begin, and a few bytes around.
size_t placeIn(const Bytes& container, Script& script) {
    const size_t boundary = kHeader + script.byte() % 4 * kSealed;
    return std::min(container.size(), boundary + script.number() % (kSealed + 1));
}

void change(Bytes& container, const Bytes& other, Script& script) {
    const auto at = [](Bytes& bytes, size_t place) { return bytes.begin() + static_cast<std::ptrdiff_t>(place); };
    const uint8_t kind = script.byte() % 6;
    const size_t first = placeIn(container, script);
    const size_t second = placeIn(container, script);
    const auto [begin, end] = std::minmax(first, second);
    if (kind == 0 && first < container.size()) container[first] ^= script.byte();
    if (kind == 1) container.erase(at(container, begin), at(container, end));
    if (kind == 2) container.resize(begin);
    if (kind == 3) container.insert(container.end(), script.byte(), script.byte());
    if (kind == 4 && begin < other.size()) {  // a piece of another container of the same content
        const size_t size = std::min({end - begin, other.size() - begin, container.size() - begin});
        std::copy_n(other.begin() + static_cast<std::ptrdiff_t>(begin), size, at(container, begin));
    }
    if (kind == 5 && container.size() >= kHeader + 2 * kSealed) {
        std::swap_ranges(at(container, kHeader), at(container, kHeader + kSealed), at(container, kHeader + kSealed));
    }
}

// The content, or nothing where the container does not open.
bool opens(const Bytes& container, const unsigned char* key, std::string& content) {
    Kit::SecretBytes plain;
    const MireloStatus status = Kit::unprotect(container.data(), container.size(), key, plain);
    require(status.ok() || status.getCode() == MODEL_METADATA_ERROR, "the status is a documented one");
    require(status.ok() || plain.data() == nullptr, "nothing is given out of what does not open");
    std::istringstream from(stringOf(container));
    std::ostringstream to;
    const MireloStatus streamed = Kit::unprotectStream(from, key, to);
    require(streamed.getCode() == status.getCode() && streamed.getDescription() == status.getDescription(),
            "memory and streams agree");
    content = to.str();
    if (status.ok()) {
        require(content.size() == plain.size() && std::memcmp(content.data(), plain.data(), content.size()) == 0,
                "memory and streams give the same");
    }
    return status.ok();
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    std::string content;
    if (size > 0 && data[0] == 0xFF) {  // the rest as it is, under a key that nothing was protected with
        const unsigned char key[16] = {0xFF};
        require(!opens(Bytes(data + 1, data + size), key, content), "nobody makes a container without the key");
        return 0;
    }
    Script script(data, size);
    const uint8_t shape = script.byte();
    std::string plain(size_t{shape & 3U} * (1 << 20) + (shape >> 2) - std::min<size_t>(shape & 3U, 1) * 8, '\0');
    for (size_t i = 0; i < plain.size(); ++i) plain[i] = static_cast<char>(i >> (i % 3 * 8));
    const Bytes made = protectedBytes(plain);
    const Bytes other = protectedBytes(plain);
    Bytes container = made;
    while (!script.atEnd()) change(container, other, script);
    const bool opened = opens(container, kTestKey, content);
    // Where all of the other container took the place of this one, it is the other one.
    require(opened == (container == made || container == other), "what was changed does not open");
    require(plain.compare(0, content.size(), content) == 0, "a stream gives what was protected, and nothing else");
    require(!opened || content == plain, "what opens is whole");
    return 0;
}
