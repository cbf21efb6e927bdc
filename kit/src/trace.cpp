#include <TarnoMirelo/kit/trace.h>

#include <utility>

namespace TarnoMirelo::Kit {

TraceSink::~TraceSink() = default;

template <typename DeviceOrType>
TracedModel::TracedModel(std::shared_ptr<MireloModel> inner, std::shared_ptr<TraceSink> sink, DeviceOrType device)
    : MireloModel(inner->getName(), std::move(device), inner->getModelTarget()),
      inner_(std::move(inner)),
      sink_(std::move(sink)) {}

TracedModel::~TracedModel() = default;

std::shared_ptr<TracedModel> TracedModel::wrap(std::shared_ptr<MireloModel> inner, std::shared_ptr<TraceSink> sink) {
    if (inner == nullptr) throw InvalidArgumentsException("The model to trace must not be null");
    const auto around = [&](auto device) {
        return std::shared_ptr<TracedModel>(new TracedModel(std::move(inner), std::move(sink), std::move(device)));
    };
    if (std::shared_ptr<Device> device = inner->getDevice()) return around(std::move(device));
    if (Device* const device = inner->getDeviceRawPointer()) return around(device);
    return around(inner->getModelType());
}

const std::string& TracedModel::getName() const { return inner_->getName(); }

// A manager gives its record to this model. The inner one reports memory, so it gets the record before each operation;
// while it has it, no other record comes to the same address.
void TracedModel::shareRecord() const {
    const std::shared_ptr<ModelRuntimeStatus>& record = runtimeRecord();
    if (shared_.load(std::memory_order_acquire) == record.get()) return;
    const std::lock_guard<std::mutex> lock(sharing_);
    if (shared_.load(std::memory_order_relaxed) == record.get()) return;
    inner_->setRuntimeStatus(record);
    shared_.store(record.get(), std::memory_order_release);
}

template <typename Work>
MireloStatus TracedModel::traced(const char* operation, const Work& work) const {
    shareRecord();
    if (sink_ == nullptr) return work();
    const auto start = std::chrono::steady_clock::now();
    try {
        MireloStatus status = work();
        tell(operation, start, status);
        return status;
    } catch (...) {
        tell(operation, start, getStatusFromCurrentException());
        throw;
    }
}

void TracedModel::tell(const char* operation, std::chrono::steady_clock::time_point start,
                       const MireloStatus& status) const noexcept {
    const auto duration = std::chrono::steady_clock::now() - start;
    try {
        const std::shared_ptr<ModelRuntimeStatus>& record = runtimeRecord();
        const uint64_t memory = record == nullptr ? 0 : record->getCurrentMemoryConsumption();
        sink_->record({operation, getName(), start, duration, status, memory});
    } catch (...) {  // NOLINT(bugprone-empty-catch): a failing sink must not fail the caller
    }
}

MireloStatus TracedModel::onPredict(const Inputs& inputs, Outputs& outputs) const {
    return traced("predict", [&] { return inner_->predict(inputs, outputs); });
}

MireloStatus TracedModel::onPredictBatch(const Inputs& inputs, Outputs& outputs) const {
    return traced("predictBatch", [&] { return inner_->predictBatch(inputs, outputs); });
}

MireloStatus TracedModel::onBind(const Inputs& inputs, Outputs& outputs,
                                 std::shared_ptr<MireloBinding>& binding) const {
    return traced("bind", [&] { return inner_->bind(inputs, outputs, binding); });
}

MireloStatus TracedModel::onEvaluate(std::shared_ptr<MireloBinding>& binding) const {
    return traced("evaluate", [&] { return inner_->evaluate(binding); });
}

MireloStatus TracedModel::onLoad(const std::vector<ModelComponent>& /*components*/) {
    // The components are those of the target that was adopted just now.
    MireloStatus status =
        traced("load", [&] { return inner_->load(Components(getModelType(), getModelTarget(), getRootDir())); });
    setCachedModelFilePath(inner_->getCachedModelFilePath());
    return status;
}

MireloStatus TracedModel::onUnload() {
    MireloStatus status = traced("doUnload", [&] { return inner_->doUnload(); });
    if (status.ok()) {  // the record holds this model, which holds the inner one: the circle ends here
        inner_->setRuntimeStatus(nullptr);
        shared_.store(nullptr, std::memory_order_release);
    }
    return status;
}

MireloStatus TracedModel::onSetBatchSize(const unsigned int& batchSize) {
    return traced("setBatchSize", [&] { return inner_->setBatchSize(batchSize); });
}

MireloCacheStatus TracedModel::onQueryCacheStatus(const Components& components) {
    MireloCacheStatus answer = MireloCacheStatus::NotCached;
    traced("queryCacheStatus", [&] {
        answer = inner_->queryCacheStatus(components);
        return MireloStatus(SUCCESS, "");
    });
    setCachedModelFilePath(inner_->getCachedModelFilePath());
    return answer;
}

}  // namespace TarnoMirelo::Kit
