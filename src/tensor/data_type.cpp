#include "tensor/data_type.h"

#include <array>
#include <limits>

namespace TarnoMirelo {
namespace {

struct DataTypeFacts {
    std::string_view name;  // in a manifest
    int64_t width;          // in bytes
};

// By the values of DataType.
constexpr std::array<DataTypeFacts, 13> kDataTypes = {{{"", 0},
                                                       {"bool", 1},
                                                       {"int8", 1},
                                                       {"uint8", 1},
                                                       {"int16", 2},
                                                       {"uint16", 2},
                                                       {"int32", 4},
                                                       {"uint32", 4},
                                                       {"int64", 8},
                                                       {"uint64", 8},
                                                       {"float16", 2},
                                                       {"float", 4},
                                                       {"double", 8}}};

// Nothing where |a * b| does not fit in 63 bits.
std::optional<uint64_t> checkedMagnitudeProduct(uint64_t a, uint64_t b) {
    constexpr auto kLimit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (b != 0 && a > kLimit / b) return std::nullopt;
    return a * b;
}

uint64_t magnitude(int64_t value) {
    return value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
}

}  // namespace

int64_t GetDataTypeSize(DataType dataType) {
    const auto index = static_cast<uint32_t>(dataType);
    return index < kDataTypes.size() ? kDataTypes[index].width : 0;
}

std::optional<DataType> findDataType(std::string_view name) {
    for (size_t i = 1; i < kDataTypes.size(); ++i) {  // Undefined has no name
        if (kDataTypes[i].name == name) return static_cast<DataType>(i);
    }
    return std::nullopt;
}

int64_t wrappingProduct(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

int64_t wrappingByteCount(DataType dataType, const TensorShape& shape) {
    return wrappingProduct(GetDataTypeSize(dataType), shape.size());
}

std::optional<int64_t> checkedByteCount(DataType dataType, const TensorShape& shape) {
    bool negative = false;
    std::optional<uint64_t> count = 1;
    for (uint64_t i = 0; i < shape.dimension(); ++i) {
        const int64_t dimension = shape[i];
        if (dimension == 0) return 0;  // whatever the others are
        negative ^= dimension < 0;
        if (count) count = checkedMagnitudeProduct(*count, magnitude(dimension));
    }
    if (count) count = checkedMagnitudeProduct(*count, magnitude(GetDataTypeSize(dataType)));
    if (!count) return std::nullopt;
    return negative ? -static_cast<int64_t>(*count) : static_cast<int64_t>(*count);
}

}  // namespace TarnoMirelo
