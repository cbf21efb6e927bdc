#pragma once

#include <TarnoMirelo/tensor.h>

#include <cstddef>
#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

/// The memory of a prediction's tensors. Inputs may share theirs with each other; what an output shares would be lost,
/// or would change an input before it is read.
class MemoryRanges {
 public:
    // The names are borrowed.
    void addInput(const ITensor& tensor, const std::string& name) { tensors_.push_back({&tensor, &name, false}); }
    void addOutput(const ITensor& tensor, const std::string& name) { tensors_.push_back({&tensor, &name, true}); }
    void reserve(size_t count) { tensors_.reserve(count); }

    /// @return `SUCCESS`; `INVALID_ARGUMENTS` for an output that shares its tensor or a byte of its buffer
    MireloStatus check();

 private:
    struct Tensor {
        const ITensor* tensor;
        const std::string* name;
        bool isOutput;
        uintptr_t begin = 0;
        uintptr_t end = 0;
    };

    static MireloStatus refuse(const Tensor& one, const Tensor& other);

    std::vector<Tensor> tensors_;
};

}  // namespace TarnoMirelo::Kit
