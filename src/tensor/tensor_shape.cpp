#include "tensor/data_type.h"

#include <TarnoMirelo/tensor.h>

#include <algorithm>

namespace TarnoMirelo {
namespace {

// The last `count` dimensions, right-aligned into ones.
std::vector<int64_t> lastDimensions(const std::vector<int64_t>& dimensions, size_t count) {
    std::vector<int64_t> view(count, 1);
    const size_t taken = std::min(count, dimensions.size());
    std::copy_n(dimensions.rbegin(), taken, view.rbegin());
    return view;
}

}  // namespace

TensorShape::TensorShape() = default;
TensorShape::TensorShape(const std::initializer_list<int64_t>& dimensions) : dimensions_(dimensions) {}
TensorShape::TensorShape(const std::vector<int64_t>& dimensions) : dimensions_(dimensions) {}
TensorShape::TensorShape(int64_t d0) : dimensions_{d0} {}
TensorShape::TensorShape(int64_t d0, int64_t d1) : dimensions_{d0, d1} {}
TensorShape::TensorShape(int64_t d0, int64_t d1, int64_t d2) : dimensions_{d0, d1, d2} {}
TensorShape::TensorShape(int64_t d0, int64_t d1, int64_t d2, int64_t d3) : dimensions_{d0, d1, d2, d3} {}
TensorShape::TensorShape(int64_t d0, int64_t d1, int64_t d2, int64_t d3, int64_t d4)
    : dimensions_{d0, d1, d2, d3, d4} {}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): callers ask a shape
bool TensorShape::valid() const { return true; }

int64_t TensorShape::size() const {
    int64_t count = 1;
    for (const int64_t dimension : dimensions_) count = wrappingProduct(count, dimension);
    return count;
}

uint64_t TensorShape::dimension() const { return dimensions_.size(); }

int64_t* TensorShape::data() { return dimensions_.data(); }

std::vector<int64_t> TensorShape::shapeVector() const { return dimensions_; }

int64_t& TensorShape::operator[](uint64_t index) {
    return const_cast<int64_t&>(static_cast<const TensorShape&>(*this)[index]);  // the object itself is not const
}

const int64_t& TensorShape::operator[](uint64_t index) const {
    if (index >= dimensions_.size()) {
        throw RangeException("Index was out-of-range when accessing TensorShape's dimensions");
    }
    return dimensions_[index];
}

bool TensorShape::operator==(const TensorShape& other) const { return dimensions_ == other.dimensions_; }
bool TensorShape::operator!=(const TensorShape& other) const { return !(*this == other); }
bool TensorShape::compare(const TensorShape& other) const { return *this == other; }

std::vector<int64_t> TensorShape::getHW() const { return lastDimensions(dimensions_, 2); }
std::vector<int64_t> TensorShape::getCHW() const { return lastDimensions(dimensions_, 3); }
std::vector<int64_t> TensorShape::getNCHW() const { return lastDimensions(dimensions_, 4); }
std::vector<int64_t> TensorShape::getNDCHW() const { return lastDimensions(dimensions_, 5); }

std::vector<int64_t> TensorShape::getNHWC() const {
    std::vector<int64_t> view = getNCHW();
    std::rotate(view.begin() + 1, view.begin() + 2, view.end());
    return view;
}

}  // namespace TarnoMirelo
