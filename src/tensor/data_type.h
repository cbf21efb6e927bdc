#pragma once

#include <TarnoMirelo/tensor.h>

#include <optional>
#include <string_view>

namespace TarnoMirelo {

/// Bytes of one element; 0 for every value that names no element type.
int64_t GetDataTypeSize(DataType dataType);

/// The element type that a manifest calls `name`.
std::optional<DataType> findDataType(std::string_view name);

/// The product of two counts, wrapping around where it does not fit.
int64_t wrappingProduct(int64_t a, int64_t b);

/// Bytes of a dense tensor of that shape, wrapping around where they do not fit; meaningless for shapes that hold -1.
int64_t wrappingByteCount(DataType dataType, const TensorShape& shape);

/// The one gate for sizes from outside: bytes of a dense tensor of that shape. Nothing where the element count or the
/// byte count does not fit in 63 bits and a sign.
std::optional<int64_t> checkedByteCount(DataType dataType, const TensorShape& shape);

}  // namespace TarnoMirelo
