#pragma once

#include <cstddef>
#include <cstdint>

namespace TarnoMirelo {

/// While one exists, what its thread allocates comes out of it, and an allocation beyond it fails as if memory had run
/// out. One at a time. Only code linked into the program is bound, not the shared libraries'.
class MemoryBudget {
 public:
    explicit MemoryBudget(int64_t bytes);
    MemoryBudget(const MemoryBudget&) = delete;
    MemoryBudget& operator=(const MemoryBudget&) = delete;
    ~MemoryBudget();

    /// How many allocations have failed.
    int refusals() const { return refusals_; }
    /// The sum of what was allocated, in bytes, whatever was released since.
    int64_t allocated() const { return allocated_; }

    bool take(size_t size);
    void giveBack(size_t size) { left_ += static_cast<int64_t>(size); }

 private:
    int64_t left_;
    int64_t allocated_ = 0;
    int refusals_ = 0;
};

}  // namespace TarnoMirelo
