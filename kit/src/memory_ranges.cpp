#include "memory_ranges.h"

#include <algorithm>
#include <functional>

namespace TarnoMirelo::Kit {

MireloStatus MemoryRanges::check() {
    // The same tensor twice: it may have no buffer yet.
    std::sort(tensors_.begin(), tensors_.end(),
              [](const Tensor& one, const Tensor& other) { return std::less<>()(one.tensor, other.tensor); });
    for (size_t i = 1; i < tensors_.size(); ++i) {
        const Tensor& one = tensors_[i - 1];
        const Tensor& other = tensors_[i];
        if (one.tensor == other.tensor && (one.isOutput || other.isOutput)) return refuse(one, other);
    }
    for (Tensor& each : tensors_) {
        const int64_t bytes = each.tensor->bytes();
        const uint8_t* const buffer = bytes > 0 ? each.tensor->buffer() : nullptr;
        if (buffer == nullptr) continue;
        each.begin = reinterpret_cast<uintptr_t>(buffer);
        each.end = each.begin + static_cast<uintptr_t>(bytes);
    }
    std::sort(tensors_.begin(), tensors_.end(),
              [](const Tensor& one, const Tensor& other) { return one.begin < other.begin; });
    const Tensor* input = nullptr;   // of those before, the one that ends last
    const Tensor* output = nullptr;  // likewise
    for (const Tensor& each : tensors_) {
        if (each.begin == each.end) continue;
        if (output != nullptr && each.begin < output->end) return refuse(each, *output);
        if (each.isOutput && input != nullptr && each.begin < input->end) return refuse(each, *input);
        const Tensor*& last = each.isOutput ? output : input;
        if (last == nullptr || each.end > last->end) last = &each;
    }
    return {SUCCESS, ""};
}

MireloStatus MemoryRanges::refuse(const Tensor& one, const Tensor& other) {
    const Tensor& output = one.isOutput ? one : other;
    const Tensor& with = one.isOutput ? other : one;
    return {INVALID_ARGUMENTS, "Output \"" + *output.name + "\": the tensor shares its memory with " +
                                   (with.isOutput ? "output \"" : "input \"") + *with.name +
                                   "\", wanted is memory of its own"};
}

}  // namespace TarnoMirelo::Kit
