#include "package.h"

#include <TarnoMirelo/kit/targets.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <tuple>

namespace TarnoMirelo::Conformance {
namespace {

template <typename Element>
double readAs(const uint8_t* from) {
    Element element;
    std::memcpy(&element, from, sizeof element);
    return static_cast<double>(element);
}

template <typename Element>
void writeAs(Element element, uint8_t* to) {
    std::memcpy(to, &element, sizeof element);
}

double readHalf(const uint8_t* from) {
    uint16_t half = 0;
    std::memcpy(&half, from, sizeof half);
    const int exponent = half >> 10 & 31;
    const int fraction = half & 1023;
    const double size = exponent == 0    ? std::ldexp(fraction, -24)
                        : exponent == 31 ? (fraction == 0 ? HUGE_VAL : NAN)
                                         : std::ldexp(1024 + fraction, exponent - 25);
    return (half & 0x8000) != 0 ? -size : size;
}

// For numbers that a half precision float holds.
void writeHalf(double number, uint8_t* to) {
    int exponent = 0;
    const double fraction = std::frexp(std::fabs(number), &exponent);  // from 1/2 to 1
    int half = number < 0 ? 0x8000 : 0;
    if (!std::isfinite(number)) {
        half |= std::isnan(number) ? 0x7E00 : 0x7C00;
    } else if (number != 0 && exponent > -14) {
        half |= (exponent + 14) << 10 | (static_cast<int>(fraction * 2048) & 1023);
    }
    writeAs(static_cast<uint16_t>(half), to);
}

DataType typeOf(const std::string& name) {
    for (auto type = static_cast<int32_t>(DataType::Bool); type <= static_cast<int32_t>(DataType::Double); ++type) {
        if (Kit::toText(static_cast<DataType>(type)) == name) return static_cast<DataType>(type);
    }
    throw std::runtime_error("\"" + name + "\" is no element type");
}

// The whole text as a number of that type, if it is one.
template <typename Integer>
bool parseInteger(const std::string& text, Integer& number) {
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end;
}

bool parseFloat(const std::string& text, double largest, double& number) {
    char* end = nullptr;
    number = std::strtod(text.c_str(), &end);
    const bool isInfinite = text.find_first_of("iI") != std::string::npos;  // and not a number that is too large
    return end == text.c_str() + text.size() && (isInfinite || std::isnan(number) || std::fabs(number) <= largest);
}

TensorShape shapeOf(const std::string& text) {
    std::vector<int64_t> dimensions;
    bool isShape = text.size() >= 2 && text.front() == '[' && text.back() == ']';
    for (size_t at = 1; isShape && at + 1 < text.size();) {
        const size_t end = std::min(text.find(',', at), text.size() - 1);
        dimensions.emplace_back();
        isShape = parseInteger(text.substr(at, end - at), dimensions.back()) && dimensions.back() >= 0 &&
                  end + 2 != text.size();  // a comma at the end
        at = end + 1;
    }
    if (!isShape) throw std::runtime_error("\"" + text + "\" is no shape, wanted is one as in [1,3]");
    return dimensions;
}

template <typename Integer>
bool parseAs(const std::string& text, uint8_t* to, Integer largest = std::numeric_limits<Integer>::max()) {
    Integer number = 0;
    if (!parseInteger(text, number) || number > largest) return false;
    writeAs(number, to);
    return true;
}

bool parseElement(const std::string& text, DataType type, uint8_t* to) {
    double number = 0;
    switch (type) {
        case DataType::Bool:
            return parseAs<uint8_t>(text, to, 1);
        case DataType::UInt8:
            return parseAs<uint8_t>(text, to);
        case DataType::Int8:
            return parseAs<int8_t>(text, to);
        case DataType::Int16:
            return parseAs<int16_t>(text, to);
        case DataType::UInt16:
            return parseAs<uint16_t>(text, to);
        case DataType::Int32:
            return parseAs<int32_t>(text, to);
        case DataType::UInt32:
            return parseAs<uint32_t>(text, to);
        case DataType::Int64:
            return parseAs<int64_t>(text, to);
        case DataType::UInt64:
            return parseAs<uint64_t>(text, to);
        default:
            break;
    }
    const double largest = type == DataType::Float16 ? 65504
                           : type == DataType::Float ? std::numeric_limits<float>::max()
                                                     : std::numeric_limits<double>::max();
    if (!parseFloat(text, largest, number)) return false;
    writeElement(type, number, to);
    return true;
}

Value readValue(std::istream& line) {
    Value value;
    std::string type;
    std::string shape;
    line >> value.name >> type >> shape;
    value.type = typeOf(type);
    value.shape = shapeOf(shape);
    const size_t width = widthOf(value.type);
    value.bytes.resize(value.size() * width);
    for (size_t i = 0; i < value.size(); ++i) {
        std::string element;
        if (!(line >> element)) throw std::runtime_error("there are fewer elements than the shape says");
        if (parseElement(element, value.type, value.bytes.data() + i * width)) continue;
        throw std::runtime_error("\"" + element + "\" is no " + Kit::toText(value.type));
    }
    if (std::string more; line >> more) throw std::runtime_error("there are more elements than the shape says");
    return value;
}

void readLine(const std::string& text, Package& package) {
    std::istringstream line(text);
    std::string word;
    if (!(line >> word) || word[0] == '#') return;
    if (word == "rows") {
        std::string more;
        if (!(line >> word) || word != "independent" || line >> more) {
            throw std::runtime_error("wanted is \"rows independent\"");
        }
        package.rowsAreIndependent = true;
    } else if (word == "case") {
        package.cases.emplace_back();
        std::string more;
        if (!(line >> package.cases.back().name) || line >> more) {
            throw std::runtime_error("wanted is \"case\" and a name of one word");
        }
    } else if (package.cases.empty()) {
        throw std::runtime_error("wanted is a line \"case <name>\" before inputs and outputs");
    } else if (word == "input") {
        package.cases.back().inputs.push_back(readValue(line));
    } else if (word == "output") {
        package.cases.back().outputs.push_back(readValue(line));
    } else {
        throw std::runtime_error("\"" + word + "\" is none of rows, case, input and output");
    }
}

void readCases(const std::string& path, Package& package) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        try {
            readLine(line, package);
        } catch (const std::exception& exception) {
            throw std::runtime_error(path + ", line " + std::to_string(number) + ": " + exception.what());
        }
    }
    if (package.cases.empty()) throw std::runtime_error(path + ": there is no case");
}

// Puts the values in the order of the ports; a port that is required, or an output, has one.
void arrange(const Case& each, const std::vector<ModelFeatureDescriptor>& ports, bool all, std::vector<Value>& values) {
    std::vector<Value> arranged;
    for (const ModelFeatureDescriptor& port : ports) {
        const std::string name = port.name();
        const auto found =
            std::find_if(values.begin(), values.end(), [&](const Value& value) { return value.name == name; });
        if (found != values.end()) {
            arranged.push_back(*found);
        } else if (all || port.required()) {
            throw std::runtime_error("case " + each.name + " lacks \"" + name + "\"");
        }
    }
    if (arranged.size() != values.size()) {
        throw std::runtime_error("case " + each.name + " has what the target doesn't have, or has it twice");
    }
    values = std::move(arranged);
}

bool haveSameInputs(const Case& one, const Case& other) {
    return std::equal(one.inputs.begin(), one.inputs.end(), other.inputs.begin(), other.inputs.end(),
                      [](const Value& a, const Value& b) { return a.name == b.name; });
}

}  // namespace

size_t widthOf(DataType type) {
    constexpr size_t kWidths[] = {0, 1, 1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    return kWidths[static_cast<size_t>(type)];
}

bool isInteger(DataType type) { return type < DataType::Float16; }

double readElement(DataType type, const uint8_t* from) {
    switch (type) {
        case DataType::Bool:
        case DataType::UInt8:
            return readAs<uint8_t>(from);
        case DataType::Int8:
            return readAs<int8_t>(from);
        case DataType::Int16:
            return readAs<int16_t>(from);
        case DataType::UInt16:
            return readAs<uint16_t>(from);
        case DataType::Int32:
            return readAs<int32_t>(from);
        case DataType::UInt32:
            return readAs<uint32_t>(from);
        case DataType::Int64:
            return readAs<int64_t>(from);
        case DataType::UInt64:
            return readAs<uint64_t>(from);
        case DataType::Float16:
            return readHalf(from);
        case DataType::Float:
            return readAs<float>(from);
        case DataType::Double:
            return readAs<double>(from);
        default:
            return NAN;
    }
}

void writeElement(DataType type, double number, uint8_t* to) {
    switch (type) {
        case DataType::Bool:
        case DataType::UInt8:
            return writeAs(static_cast<uint8_t>(number), to);
        case DataType::Int8:
            return writeAs(static_cast<int8_t>(number), to);
        case DataType::Int16:
            return writeAs(static_cast<int16_t>(number), to);
        case DataType::UInt16:
            return writeAs(static_cast<uint16_t>(number), to);
        case DataType::Int32:
            return writeAs(static_cast<int32_t>(number), to);
        case DataType::UInt32:
            return writeAs(static_cast<uint32_t>(number), to);
        case DataType::Int64:
            return writeAs(static_cast<int64_t>(number), to);
        case DataType::UInt64:
            return writeAs(static_cast<uint64_t>(number), to);
        case DataType::Float16:
            return writeHalf(number, to);
        case DataType::Float:
            return writeAs(static_cast<float>(number), to);
        case DataType::Double:
            return writeAs(number, to);
        default:
            return;
    }
}

const Case& Package::fullCase() const {
    return *std::max_element(cases.begin(), cases.end(), [](const Case& one, const Case& other) {
        return one.inputs.size() < other.inputs.size();
    });
}

std::vector<Case> Package::rows() const {
    std::vector<Case> found;
    for (const Case& each : cases) {
        if (haveSameInputs(each, fullCase())) found.push_back(each);
    }
    return found;
}

Package readPackage(const std::string& folder, const std::string& name, MireloModelType type) {
    Package package;
    package.name = name;
    const std::string path = folder + "/" + name;
    Kit::AllTargetsMetadata metadata;
    const MireloStatus status = metadata.load(Filepath(path).append(Filepath("manifest.json")));
    if (!status.ok()) throw std::runtime_error("package \"" + name + "\": " + Kit::describe(status));
    if (metadata.getTargets().count(type) == 0) type = MireloModelType::WinML;
    if (metadata.getTargets().count(type) == 0) {
        throw std::runtime_error("package \"" + name + "\": no target of the backend's type or of WinML");
    }
    package.components = metadata.getModelCompoents(type);
    readCases(path + "/expected.txt", package);
    try {
        for (Case& each : package.cases) {
            arrange(each, package.target().inputs, false, each.inputs);
            arrange(each, package.target().outputs, true, each.outputs);
        }
    } catch (const std::runtime_error& exception) {
        throw std::runtime_error(path + "/expected.txt: " + exception.what());
    }
    return package;
}

}  // namespace TarnoMirelo::Conformance
