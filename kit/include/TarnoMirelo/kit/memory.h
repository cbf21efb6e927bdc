#pragma once

/// @file
/// Memory accounts: how a backend reports what its model takes, and what a host reads from the reports.

#include <TarnoMirelo/model.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace TarnoMirelo::Kit {

/// Reports the memory of one model through its record. The manager makes a record when the model is registered, and no
/// hook is called then: a backend reports in each operation, which costs next to nothing while nothing changes.
///
///     reporter_.report(runtimeRecord(), engine.bytes());  // in every operation that may change them
///     reporter_.report(runtimeRecord(), 0);               // in onUnload
///
/// Not locked, like the record: a backend whose operations may overlap reports under a lock of its own.
class MemoryReporter {
 public:
    /// Has the record say that the model takes `bytes` for what this reporter reports; what others have added to the
    /// record stays. A new record, of a model that was registered again, gets all of it anew.
    /// @param record  of the model, as `runtimeRecord` gives it; null while the model is not registered
    /// @return whether the record knows: false without one, and where the bytes reach the record's limit, with what the
    ///         record knew before
    bool report(const std::shared_ptr<ModelRuntimeStatus>& record, uint64_t bytes);
    /// What the last record that was reported to knows, in bytes.
    uint64_t reported() const { return bytes_; }

 private:
    std::weak_ptr<ModelRuntimeStatus> record_;  // the one that knows of bytes_
    uint64_t bytes_ = 0;
};

/// The memory of registered models against a budget. It holds the models of the snapshot, as the snapshot does.
class MemoryView {
 public:
    /// A model and what it takes.
    struct Model {
        std::shared_ptr<MireloModel> model;  ///< shared with the snapshot
        uint64_t bytes = 0;                  ///< what its record said when the snapshot was taken
    };

    /// @param status  a snapshot of `ModelManager::getRuntimeStatus`; a model that is registered twice counts once
    /// @param budget  the bytes that all models together may take
    MemoryView(RuntimeStatus status, uint64_t budget);

    /// The largest first; among equals, in the order of registration.
    const std::vector<Model>& models() const { return models_; }
    /// What all of them take, in bytes; 2^64-1 where the sum is beyond.
    uint64_t total() const { return total_; }
    /// By how many bytes they exceed the budget; 0 within it.
    uint64_t over() const { return total_ > budget_ ? total_ - budget_ : 0; }
    /// The fewest models whose unloading brings the rest within the budget, the last one the smallest that does. Empty
    /// within the budget; all of them where nothing less is enough.
    std::vector<std::shared_ptr<MireloModel>> toUnload() const;

 private:
    std::vector<Model> models_;
    uint64_t budget_;
    uint64_t total_ = 0;
};

}  // namespace TarnoMirelo::Kit
