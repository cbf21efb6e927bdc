#include "onnx_outline.h"

#include <TarnoMirelo/status.h>

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {
namespace {

[[noreturn]] void refuse() { throw ModelMetaDataException("the file holds no ONNX network, or only a part of one"); }

// A field of a protobuf message. Those of fixed width have no text, as nothing here is of these types.
struct Field {
    uint32_t number = 0;
    uint64_t value = 0;     // of a varint
    std::string_view text;  // of a field with a length: text, bytes or another message
    bool hasText = false;
};

// The fields of a message one by one; raises where they don't add up.
class Message {
 public:
    explicit Message(std::string_view bytes) : rest_(bytes) {}

    bool ended() const { return rest_.empty(); }
    bool next(Field& field) {
        if (ended()) return false;
        const uint64_t key = varint();
        if (key >> 3 == 0 || key >> 3 > kMostNumber) refuse();
        field = {static_cast<uint32_t>(key >> 3), 0, {}, false};
        switch (key & 7) {
            case 0:
                field.value = varint();
                return true;
            case 1:
                take(8);
                return true;
            case 2:
                field.text = take(varint());
                field.hasText = true;
                return true;
            case 5:
                take(4);
                return true;
            default:
                refuse();
        }
    }
    uint64_t varint() {
        uint64_t value = 0;
        for (unsigned int shift = 0; shift < 64; shift += 7) {
            const auto byte = static_cast<uint8_t>(take(1)[0]);
            value |= static_cast<uint64_t>(byte & 0x7F) << shift;
            if (byte < 0x80) return value;
        }
        refuse();
    }

 private:
    static constexpr uint64_t kMostNumber = (1U << 29) - 1;

    std::string_view take(uint64_t size) {
        if (size > rest_.size()) refuse();
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::string_view rest_;
};

// The product, or the largest number where it is beyond.
uint64_t multiply(uint64_t a, uint64_t b) {
    constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
    return b != 0 && a > kMost / b ? kMost : a * b;
}

uint64_t add(uint64_t a, uint64_t b) { return a + std::min(b, std::numeric_limits<uint64_t>::max() - a); }

// The bytes of elements of a type, by its number in the format. Types without a fixed width count a byte.
uint64_t widthOf(uint64_t type) {
    constexpr std::array<uint8_t, 17> kWidths = {1, 4, 1, 1, 2, 2, 4, 8, 1, 1, 2, 8, 4, 8, 8, 16, 2};
    return type < kWidths.size() ? kWidths[type] : 1;
}

// Calls read(field) for each field of a message that has a length.
template <typename Read>
void eachText(std::string_view bytes, const Read& read) {
    Message message(bytes);
    Field field;
    while (message.next(field)) {
        if (field.hasText) read(field);
    }
}

class Reader {
 public:
    explicit Reader(OnnxOutline& outline) : outline_(outline) {}

    void readModel(std::string_view bytes) {
        bool hasGraph = false;
        eachText(bytes, [&](const Field& field) {
            if (field.number == 7) {
                hasGraph = true;
                readGraph(field.text, 0);
                readPorts(field.text);
            } else if (field.number == 25) {
                readFunction(field.text);
            }
        });
        if (!hasGraph) refuse();
        for (const auto& [name, size] : halves_) {
            if (!readAsHalves_.contains(name)) outline_.widenedBytes = add(outline_.widenedBytes, size);
        }
    }

 private:
    static constexpr int kMostDepth = 100;  // as protobuf has it
    static constexpr uint64_t kHalf = 10;   // the format's number of float16

    void readGraph(std::string_view bytes, int depth) {
        if (depth > kMostDepth) refuse();
        if (depth > 0) ++outline_.subgraphs;
        eachText(bytes, [&](const Field& field) {
            if (field.number == 1) readNode(field.text, depth);
            if (field.number == 5) readTensor(field.text, depth);
            if (field.number == 15) readSparseTensor(field.text, depth);
        });
    }

    // Raises for a node that writes to an input of its function, over which the engine crashes.
    void readFunction(std::string_view bytes) {
        std::string name;
        std::string domain;
        std::set<std::string_view> inputs;
        std::set<std::string_view> results;
        eachText(bytes, [&](const Field& field) {
            if (field.number == 1) name = field.text;
            if (field.number == 4) inputs.insert(field.text);
            if (field.number == 10) domain = field.text;
            if (field.number != 7) return;
            readNode(field.text, 0);
            eachText(field.text, [&](const Field& part) {
                if (part.number == 2 && !part.text.empty()) results.insert(part.text);
            });
        });
        for (const std::string_view result : results) {
            if (!inputs.contains(result)) continue;
            std::string text = "the function \"";
            text.append(domain).append(".").append(name).append(
                "\" has a node that writes to the function's own input \"");
            text.append(result).append("\"");
            throw ModelMetaDataException(text);
        }
    }

    void readNode(std::string_view bytes, int depth) {
        std::vector<std::string> inputs;
        std::string type;
        std::string domain;
        eachText(bytes, [&](const Field& field) {
            if (field.number == 4) type = field.text;
            if (field.number == 7) domain = field.text;
            if (field.number == 5) readAttribute(field.text, depth);
            if (field.number == 1) inputs.emplace_back(field.text);
        });
        if (type == "MatMul" || type == "Gather") readAsHalves_.insert(inputs.begin(), inputs.end());
        if (type != "Constant") ++outline_.nodes;
        if (type == "QuantizeLinear") outline_.isQuantised = true;
        if (domain.empty() || domain == "ai.onnx") {
            if (type == "Transpose" && isIdleTranspose(bytes)) outline_.hasIdleTranspose = true;
        } else {
            const bool hasGap = std::find(inputs.begin(), inputs.end(), "") != inputs.end();
            if (hasGap) outline_.operatorsWithGaps.emplace(domain, type);
            outline_.operators.emplace(std::move(domain), std::move(type));
        }
    }

    // Whether a Transpose has the attribute perm = [0, 1].
    static bool isIdleTranspose(std::string_view node) {
        std::vector<uint64_t> numbers;
        eachText(node, [&](const Field& field) {
            if (field.number != 5) return;
            Message attribute(field.text);
            for (Field part; attribute.next(part);) {
                if (part.number != 8) continue;
                if (!part.hasText) numbers.push_back(part.value);
                for (Message packed(part.text); !packed.ended();) numbers.push_back(packed.varint());
            }
        });
        return numbers == std::vector<uint64_t>{0, 1};
    }

    void readAttribute(std::string_view bytes, int depth) {
        eachText(bytes, [&](const Field& field) {
            if (field.number == 5 || field.number == 10) readTensor(field.text, depth);
            if (field.number == 22 || field.number == 23) readSparseTensor(field.text, depth);
            if (field.number == 6 || field.number == 11) readGraph(field.text, depth + 1);
        });
    }

    void readSparseTensor(std::string_view bytes, int depth) {
        eachText(bytes, [&](const Field& field) {
            if (field.number == 1 || field.number == 2) readTensor(field.text, depth);
        });
    }

    void readTensor(std::string_view bytes, int depth) {
        Message message(bytes);
        Field field;
        uint64_t elements = 1;
        uint64_t type = 0;
        std::string name;
        while (message.next(field)) {
            if (field.number == 1) elements = multiply(elements, field.hasText ? productOf(field.text) : field.value);
            if (field.number == 2) type = field.value;
            if (field.number == 8) name = field.text;
            if (field.number == 13) readLocation(field.text);
        }
        ++outline_.constants;
        const uint64_t size = multiply(elements, widthOf(type));
        countWeights(size, depth);
        if (type == kHalf && depth == 0) halves_.emplace_back(std::move(name), size);
    }

    // Weights of a subgraph are in the node that it belongs to, and so in each graph around it, and in the engine's
    // form twice.
    void countWeights(uint64_t bytes, int depth) {
        uint64_t& sum = depth == 0 ? outline_.weightBytes : outline_.subgraphWeightBytes;
        sum = add(sum, depth == 0 ? bytes : multiply(bytes, static_cast<uint64_t>(depth) + 2));
    }

    static uint64_t productOf(std::string_view dimensions) {
        uint64_t product = 1;
        for (Message packed(dimensions); !packed.ended();) product = multiply(product, packed.varint());
        return product;
    }

    // An entry of what the file says of where a constant lies.
    void readLocation(std::string_view bytes) {
        std::string key;
        std::string value;
        eachText(bytes, [&](const Field& entry) {
            if (entry.number == 1) key = entry.text;
            if (entry.number == 2) value = entry.text;
        });
        if (key == "location") outline_.weightFiles.insert(value);
    }

    // The graph's inputs and outputs, of which each has a type with a shape, or one without.
    void readPorts(std::string_view graph) {
        eachText(graph, [&](const Field& field) {
            if (field.number != 11 && field.number != 12) return;
            std::string name;
            bool hasShape = false;
            eachText(field.text, [&](const Field& value) {
                if (value.number == 1) name = value.text;
                if (value.number == 2) hasShape = declaresShape(value.text);
            });
            if (hasShape) outline_.valuesWithShape.insert(name);
        });
    }

    static bool declaresShape(std::string_view type) {
        bool found = false;
        eachText(type, [&](const Field& kind) {
            if (kind.number != 1) return;  // a tensor's
            eachText(kind.text, [&](const Field& field) { found = found || field.number == 2; });
        });
        return found;
    }

    OnnxOutline& outline_;
    std::vector<std::pair<std::string, uint64_t>> halves_;  // float16 constants and their bytes
    std::set<std::string> readAsHalves_;                    // inputs of the nodes that take float16 as it is
};

}  // namespace

OnnxOutline readOutline(const uint8_t* bytes, uint64_t size) {
    OnnxOutline outline;
    Reader(outline).readModel({reinterpret_cast<const char*>(bytes), static_cast<size_t>(size)});
    return outline;
}

}  // namespace TarnoMirelo::OnnxRuntime
