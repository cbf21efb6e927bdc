#include <TarnoMirelo/kit/memory.h>

#include <algorithm>
#include <limits>
#include <unordered_set>

namespace TarnoMirelo::Kit {
namespace {

constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();

uint64_t cappedSum(uint64_t one, uint64_t other) { return one + std::min(other, kMost - one); }

}  // namespace

bool MemoryReporter::report(const std::shared_ptr<ModelRuntimeStatus>& record, uint64_t bytes) {
    // By their owners: another record may have come to the same address.
    if (record.owner_before(record_) || record_.owner_before(record)) {
        record_ = record;
        bytes_ = 0;
    }
    if (record == nullptr) return false;
    if (bytes == bytes_) return true;
    // The difference may be negative; the record's sums wrap around, as this one does. Its answer is the reverse of
    // what the codes are called: the error says that the sum was recorded, success that it was not.
    if (record->addCurrentMemoryConsumption(bytes - bytes_).getCode() != MEMORY_CONSUMPTION_ERROR) return false;
    bytes_ = bytes;
    return true;
}

MemoryView::MemoryView(RuntimeStatus status, uint64_t budget) : budget_(budget) {
    std::unordered_set<const MireloModel*> seen;
    for (const ModelRuntimeStatus& record : status.getModelsRuntimeStatus()) {
        if (!seen.insert(record.getModel().get()).second) continue;
        const uint64_t bytes = record.getCurrentMemoryConsumption();
        models_.push_back({record.getModel(), bytes});
        total_ = cappedSum(total_, bytes);
    }
    std::stable_sort(models_.begin(), models_.end(),
                     [](const Model& one, const Model& other) { return one.bytes > other.bytes; });
}

std::vector<std::shared_ptr<MireloModel>> MemoryView::toUnload() const {
    std::vector<uint64_t> rest(models_.size() + 1);  // what the models from each one on take
    for (size_t i = models_.size(); i-- > 0;) rest[i] = cappedSum(models_[i].bytes, rest[i + 1]);
    const auto count = static_cast<size_t>(
        std::find_if(rest.begin(), rest.end(), [this](uint64_t bytes) { return bytes <= budget_; }) - rest.begin());
    std::vector<std::shared_ptr<MireloModel>> chosen;
    if (count == 0) return chosen;
    for (size_t i = 0; i + 1 < count; ++i) chosen.push_back(models_[i].model);
    size_t last = count - 1;
    const uint64_t needed = rest[last] - budget_;
    while (rest[count - 1] != kMost && last + 1 < models_.size() && models_[last + 1].bytes >= needed) ++last;
    chosen.push_back(models_[last].model);
    return chosen;
}

}  // namespace TarnoMirelo::Kit
