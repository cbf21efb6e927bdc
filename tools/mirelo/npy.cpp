#include "npy.h"

#include "failure.h"

#include <TarnoMirelo/kit/ports.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Tool {
namespace {

constexpr std::string_view kMagic("\x93NUMPY", 6);
constexpr size_t kAlignment = 64;

struct TypeName {
    const char* npy;
    DataType type;
};
constexpr TypeName kTypes[] = {{"|b1", DataType::Bool},    {"|i1", DataType::Int8},   {"|u1", DataType::UInt8},
                               {"<i2", DataType::Int16},   {"<u2", DataType::UInt16}, {"<i4", DataType::Int32},
                               {"<u4", DataType::UInt32},  {"<i8", DataType::Int64},  {"<u8", DataType::UInt64},
                               {"<f2", DataType::Float16}, {"<f4", DataType::Float},  {"<f8", DataType::Double}};

/// The dictionary of a header, as Python writes it: {'descr': '<f4', 'fortran_order': False, 'shape': (1, 64), }
class Header {
 public:
    explicit Header(std::string_view text) : left_(text) {
        expect('{');
        while (!next('}')) {
            readMember(readText());
            if (!next(',')) {
                expect('}');
                break;
            }
        }
        skipSpaces();
        if (!left_.empty() || !descr || !fortranOrder || !shape) throw Failure("the header is malformed");
    }

    std::optional<std::string> descr;
    std::optional<bool> fortranOrder;
    std::optional<std::vector<int64_t>> shape;

 private:
    void readMember(const std::string& key) {
        expect(':');
        if (key == "descr") {
            skipSpaces();
            if (left_.starts_with('[')) throw Failure("its elements are records, wanted are numbers");
            descr = readText();
        } else if (key == "fortran_order") {
            fortranOrder = readWord() == "True";
        } else if (key == "shape") {
            shape = readShape();
        } else {
            throw Failure("the header has an unknown key: " + key);
        }
    }

    void skipSpaces() { left_.remove_prefix(std::min(left_.find_first_not_of(" \t\n"), left_.size())); }

    bool next(char wanted) {
        skipSpaces();
        if (!left_.starts_with(wanted)) return false;
        left_.remove_prefix(1);
        return true;
    }

    void expect(char wanted) {
        if (!next(wanted)) throw Failure(std::string("the header is malformed: wanted is a '") + wanted + "'");
    }

    std::string readText() {
        const char quote = next('"') ? '"' : '\'';
        if (quote == '\'') expect('\'');
        const size_t end = left_.find(quote);
        if (end == std::string_view::npos) throw Failure("the header is malformed: a text doesn't end");
        std::string text(left_.substr(0, end));
        left_.remove_prefix(end + 1);
        return text;
    }

    std::string_view readWord() {
        skipSpaces();
        const std::string_view word = left_.substr(0, left_.find_first_of(",} "));
        if (word != "True" && word != "False") throw Failure("the header is malformed: wanted is True or False");
        left_.remove_prefix(word.size());
        return word;
    }

    std::vector<int64_t> readShape() {
        std::vector<int64_t> dimensions;
        expect('(');
        while (!next(')')) {
            skipSpaces();
            int64_t dimension = -1;
            const auto [end, error] = std::from_chars(left_.data(), left_.data() + left_.size(), dimension);
            if (error != std::errc() || dimension < 0) throw Failure("the header is malformed: its shape is none");
            left_.remove_prefix(static_cast<size_t>(end - left_.data()));
            next('L');  // of Python 2
            dimensions.push_back(dimension);
            if (!next(',')) {
                expect(')');
                break;
            }
        }
        return dimensions;
    }

    std::string_view left_;
};

DataType typeOf(const std::string& descr) {
    for (const TypeName& known : kTypes) {
        if (descr == known.npy) return known.type;
    }
    if (descr.starts_with('>')) {
        throw Failure("its elements are big-endian (" + descr + "), wanted are little-endian ones");
    }
    std::string names;
    for (const TypeName& known : kTypes) names += (names.empty() ? "" : " ") + std::string(known.npy);
    throw Failure("its elements are of type " + descr + ", wanted is one of " + names);
}

std::shared_ptr<Tensor> parse(std::string_view file) {
    if (!file.starts_with(kMagic) || file.size() < 10) throw Failure("it is no NumPy array file (.npy)");
    const auto byte = [&](size_t index) { return static_cast<size_t>(static_cast<unsigned char>(file[index])); };
    const size_t major = byte(6);
    if ((major != 1 && major != 2) || byte(7) != 0) {
        throw Failure("its format is " + std::to_string(major) + "." + std::to_string(byte(7)) +
                      ", wanted is 1.0 or 2.0");
    }
    const size_t begin = major == 1 ? 10 : 12;
    if (file.size() < begin) throw Failure("it is cut short");
    const size_t length = byte(8) + (byte(9) << 8U) + (major == 1 ? 0 : (byte(10) << 16U) + (byte(11) << 24U));
    if (length > file.size() - begin) throw Failure("it is cut short");
    const Header header(file.substr(begin, length));
    const std::string_view elements = file.substr(begin + length);

    const DataType type = typeOf(*header.descr);
    if (*header.fortranOrder && header.shape->size() > 1) {
        throw Failure("its elements are in Fortran's order, wanted is C's: see numpy.ascontiguousarray");
    }
    const TensorShape shape(*header.shape);
    const std::optional<int64_t> bytes = Kit::byteCount(type, shape);
    if (!bytes || static_cast<uint64_t>(*bytes) != elements.size()) {
        throw Failure("it has " + std::to_string(elements.size()) + " bytes of elements, its header says " +
                      (bytes ? std::to_string(*bytes) : "more than can be counted"));
    }
    auto tensor = std::make_shared<Tensor>(type, shape);
    std::copy(elements.begin(), elements.end(), reinterpret_cast<char*>(tensor->buffer()));
    return tensor;
}

}  // namespace

std::shared_ptr<Tensor> readNpy(const std::filesystem::path& path) {
    uint64_t size = 0;
    const std::unique_ptr<char[]> bytes = FileUtils().readBinaryFileToBuffer(toFilepath(path), size);
    if (bytes == nullptr) throw Failure(toGenericText(path) + ": the file can't be opened");
    try {
        return parse({bytes.get(), static_cast<size_t>(size)});
    } catch (const Failure& failure) {
        throw Failure(toGenericText(path) + ": " + failure.what());
    }
}

void writeNpy(const ITensor& tensor, PartialFile& file) {
    const auto* const known = std::find_if(std::begin(kTypes), std::end(kTypes),
                                           [&](const TypeName& each) { return each.type == tensor.dataType(); });
    if (known == std::end(kTypes)) throw Failure("NumPy has no such element type");
    std::string dimensions;
    for (const int64_t dimension : tensor.shape().shapeVector()) dimensions += std::to_string(dimension) + ", ";
    // Python's tuples: a comma behind a single dimension, none behind the last of several.
    if (tensor.shape().dimension() > 0)
        dimensions.resize(dimensions.size() - (tensor.shape().dimension() == 1 ? 1 : 2));
    std::string header =
        std::string("{'descr': '") + known->npy + "', 'fortran_order': False, 'shape': (" + dimensions + "), }";
    const bool isShort = header.size() < 0xFF00;
    const size_t begin = isShort ? 10 : 12;
    header.resize((begin + header.size() + kAlignment) / kAlignment * kAlignment - begin, ' ');  // room for a line feed
    header.back() = '\n';
    std::string length;
    for (size_t i = 0, left = header.size(); i < begin - 8; ++i, left >>= 8U) length += static_cast<char>(left & 0xFFU);
    file.write(std::string(kMagic) + (isShort ? '\1' : '\2') + '\0' + length + header);
    file.write({reinterpret_cast<const char*>(tensor.buffer()), static_cast<size_t>(tensor.bytes())});
}

}  // namespace TarnoMirelo::Tool
