#pragma once

#include <TarnoMirelo/tensor.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// Writes small ONNX networks, whole or with a fault, as the bytes of their files.
namespace TarnoMirelo::OnnxWriter {

inline std::string varint(uint64_t value) {
    std::string bytes;
    for (; value >= 0x80; value >>= 7) bytes += static_cast<char>(value | 0x80);
    return bytes + static_cast<char>(value);
}

inline std::string number(uint32_t field, uint64_t value) { return varint(field << 3) + varint(value); }
inline std::string message(uint32_t field, const std::string& bytes) {
    return varint(field << 3 | 2) + varint(bytes.size()) + bytes;
}

/// The format's number of an element type.
inline uint64_t typeNumber(DataType type) {
    constexpr std::array<uint64_t, 13> kNumbers = {0, 9, 3, 2, 5, 4, 6, 12, 7, 13, 10, 1, 11};
    return kNumbers.at(static_cast<size_t>(type));
}

/// An input or output; -1 for an open dimension.
inline std::string port(const std::string& name, DataType type, const std::vector<int64_t>& shape) {
    std::string dimensions;
    for (const int64_t size : shape) {
        dimensions += message(1, size < 0 ? std::string() : number(1, static_cast<uint64_t>(size)));
    }
    return message(1, name) + message(2, message(1, number(1, typeNumber(type)) + message(2, dimensions)));
}

/// A constant without its elements, and with them.
inline std::string constant(const std::string& name, DataType type, const std::vector<int64_t>& shape) {
    std::string bytes;
    for (const int64_t size : shape) bytes += number(1, static_cast<uint64_t>(size));
    return bytes + number(2, typeNumber(type)) + message(8, name);
}
template <typename Element>
std::string constant(const std::string& name, DataType type, const std::vector<int64_t>& shape,
                     const std::vector<Element>& elements) {
    return constant(name, type, shape) +
           message(9, std::string(reinterpret_cast<const char*>(elements.data()), elements.size() * sizeof(Element)));
}
inline std::string constant(const std::string& name, const std::vector<int64_t>& shape,
                            const std::vector<float>& elements) {
    return constant(name, DataType::Float, shape, elements);
}

/// A constant whose elements lie in another file.
inline std::string outside(const std::string& constant, const std::string& location) {
    return constant + message(13, message(1, "location") + message(2, location)) + number(14, 1);
}

inline std::string node(const std::string& type, const std::vector<std::string>& inputs,
                        const std::vector<std::string>& outputs, const std::string& domain = "") {
    std::string bytes;
    for (const std::string& input : inputs) bytes += message(1, input);
    for (const std::string& output : outputs) bytes += message(2, output);
    return bytes + message(3, outputs.front()) + message(4, type) + message(7, domain);
}

/// An attribute that is a list of integers, behind its node.
inline std::string ints(const std::string& name, const std::vector<uint64_t>& values) {
    std::string bytes = message(1, name) + number(20, 7);
    for (const uint64_t value : values) bytes += number(8, value);
    return message(5, bytes);
}

inline std::string network(const std::vector<std::string>& nodes, const std::vector<std::string>& inputs,
                           const std::vector<std::string>& outputs, const std::vector<std::string>& constants = {},
                           const std::string& domain = "example") {
    std::string graph = message(2, "graph");
    for (const std::string& each : nodes) graph += message(1, each);
    for (const std::string& each : constants) graph += message(5, each);
    for (const std::string& each : inputs) graph += message(11, each);
    for (const std::string& each : outputs) graph += message(12, each);
    return number(1, 7) + message(7, graph) + message(8, number(2, 13)) + message(8, message(1, domain) + number(2, 1));
}

}  // namespace TarnoMirelo::OnnxWriter
