#include "binding.h"
#include "cache.h"
#include "log.h"
#include "network.h"

#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/bindings.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/onnxruntime.h>

#include <chrono>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {
namespace {

std::string about(const ModelComponent& component, const std::string& text) {
    return "Component \"" + component.name + "\": " + text;
}

}  // namespace

// What overlapping operations report. As long as nothing changes, none of them waits for another.
struct Model::Memory {
    bool isReported(const std::shared_ptr<ModelRuntimeStatus>& to, uint64_t bytes) {
        const std::shared_lock<std::shared_mutex> lock(mutex);
        const bool isKnown = !to.owner_before(record) && !record.owner_before(to);
        return isKnown && (to == nullptr || bytes == reporter.reported());
    }
    void report(const std::shared_ptr<ModelRuntimeStatus>& to, uint64_t bytes) {
        const std::lock_guard<std::shared_mutex> lock(mutex);
        reporter.report(to, bytes);
        record = to;
    }

    std::shared_mutex mutex;
    Kit::MemoryReporter reporter;
    std::weak_ptr<ModelRuntimeStatus> record;  // the one that was reported to last
};

Model::Model(const std::string& name, std::shared_ptr<Device> device, MireloConfig config, Options options)
    : MireloModel(name, std::move(device)),
      options_(std::move(options)),
      log_(std::make_shared<Log>(config, name)),
      memory_(std::make_unique<Memory>()) {}
Model::Model(const std::string& name, Device* device, MireloConfig config, Options options)
    : MireloModel(name, device),
      options_(std::move(options)),
      log_(std::make_shared<Log>(config, name)),
      memory_(std::make_unique<Memory>()) {}
Model::Model(const std::string& name, MireloModelType type, MireloConfig config, Options options)
    : MireloModel(name, type),
      options_(std::move(options)),
      log_(std::make_shared<Log>(config, name)),
      memory_(std::make_unique<Memory>()) {}
Model::~Model() = default;

// The hooks raise nothing: what was refused on the way becomes their status.
template <typename Work>
MireloStatus Model::statusOf(const Work& work) const {
    MireloStatus status;
    const LogScope scope(*log_);
    try {
        work();
        status.setCode(SUCCESS);  // the empty description is there already
    } catch (...) {
        status = getStatusFromCurrentException();
        if (status.getCode() == ML_FRAMEWORK_ERROR) log_->write(LogSeverity::Error, status.getDescription());
    }
    return status;
}

const std::shared_ptr<Network>& Model::loadedNetwork() const {
    if (network_ == nullptr) throw InvalidOperationException("The model is not loaded");
    return network_;
}

OrtEP Model::executionProvider() const {
    if (options_.executionProvider != OrtEP::Undefined) return options_.executionProvider;
    const Device* const device = getDevice() != nullptr ? getDevice().get() : getDeviceRawPointer();
    return device == nullptr ? OrtEP::Undefined : device->getORTType();
}

// Null for none, also where it can't be made: a cache must not fail the load. What is protected must not lie in the
// open. What operators of the host's compute may be another thing next time, and be a part of the optimised network.
std::unique_ptr<Cache> Model::cacheFor(const ModelComponent& component, const NetworkFile& network) const {
    if (options_.cacheDirectory.getPathString().empty() || usesHostOperators(network.outline)) return nullptr;
    if (network.isProtected) return nullptr;  // the file would not be
    try {
        return std::make_unique<Cache>(options_.cacheDirectory, getName(), component.name, network,
                                       options_.graphOptimization, executionProvider());
    } catch (const Exception& exception) {
        log_->write(LogSeverity::Warning, about(component, std::string("not cached: ") + exception.what()));
        return nullptr;
    }
}

void Model::reportMemory() const {
    const uint64_t bytes = network_ == nullptr ? 0 : network_->memory();
    if (!memory_->isReported(runtimeRecord(), bytes)) memory_->report(runtimeRecord(), bytes);
}

MireloStatus Model::onLoad(const std::vector<ModelComponent>& components) {
    network_.reset();
    setCachedModelFilePath(std::nullopt);
    MireloStatus status = statusOf([&] {
        if (components.size() > 1) {
            throw ModelMetaDataException(about(components[1], "a target has one component, a network"));
        }
        const auto start = std::chrono::steady_clock::now();
        const NetworkFile file = readNetworkFile(components.front(), getRootDir());
        std::unique_ptr<Cache> cache;
        try {
            cache = cacheFor(components.front(), file);
            network_ =
                std::make_shared<Network>(file, getModelTarget(), options_, executionProvider(), cache.get(), log_);
        } catch (const Exception& exception) {
            throw Exception(about(components.front(), exception.what()), exception.getStatusCode());
        }
        if (network_->isFromCache()) setCachedModelFilePath(cache->path());
        const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
        log_->write(LogSeverity::Info, about(components.front(), "loaded in " + std::to_string(time.count()) + " ms"));
    });
    MireloStatus reported = statusOf([&] { reportMemory(); });  // of what the load before had, when this one failed
    return status.ok() ? reported : status;
}

MireloStatus Model::onUnload() {
    return statusOf([&] {
        if (network_ != nullptr) log_->write(LogSeverity::Info, "unloaded");
        network_.reset();
        reportMemory();
    });
}

MireloStatus Model::onSetBatchSize(const unsigned int& batchSize) {
    return statusOf([&] { loadedNetwork()->setBatchSize(batchSize); });
}

MireloCacheStatus Model::onQueryCacheStatus(const Components& components) {
    CacheStatus found = CacheStatus::NotCached;
    statusOf([&] {
        const std::vector<ModelComponent>& all = std::get<ModelTarget>(components).components;
        if (options_.cacheDirectory.getPathString().empty() || all.size() != 1) return;
        const NetworkFile network = readNetworkFile(all.front(), std::get<Filepath>(components));
        if (const auto cache = cacheFor(all.front(), network)) found = cache->status();
    });
    return static_cast<MireloCacheStatus>(found);
}

MireloStatus Model::onPredict(const Inputs& inputs, Outputs& outputs) const {
    return statusOf([&] {
        const Network& network = *loadedNetwork();
        predictOnce(network, inputs, outputs, network.batchSize());
        reportMemory();
    });
}

MireloStatus Model::onPredictBatch(const Inputs& inputs, Outputs& outputs) const {
    return statusOf([&] {
        const Network& network = *loadedNetwork();
        const auto run = [&](const Inputs& rowInputs, Outputs& rowOutputs, int64_t rows) {
            try {
                predictOnce(network, rowInputs, rowOutputs, rows);
                return MireloStatus(SUCCESS, "");
            } catch (...) {
                return getStatusFromCurrentException();
            }
        };
        const bool inOnePass = options_.rowsAreIndependent && network.hasRows();
        require(Kit::runBatch(network.inputs(), network.outputs(), inputs, outputs,
                              inOnePass ? Kit::Stacking::Promised : Kit::Stacking::Never, run));
        reportMemory();
    });
}

MireloStatus Model::onBind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const {
    return statusOf([&] {
        const std::shared_ptr<Network>& network = loadedNetwork();
        Outputs results = outputs;
        auto bound = Kit::handOut(std::make_unique<Binding>(network, inputs, results, network->batchSize()));
        reportMemory();
        outputs = std::move(results);
        binding = std::move(bound);
    });
}

MireloStatus Model::onEvaluate(std::shared_ptr<MireloBinding>& binding) const {
    return statusOf([&] {
        if (binding == nullptr) throw InvalidOperationException("There is no binding: bind inputs and outputs first");
        auto* const own = Kit::ownBinding<Binding>(binding);
        if (own == nullptr || own->network() != loadedNetwork()) {
            throw InvalidOperationException("The binding was not made by this model since it was loaded");
        }
        own->run();
        reportMemory();
    });
}

MireloStatus describeNetwork(const ModelComponent& component, const Filepath& rootDir, NetworkDescription& description,
                             const MireloConfig& config) {
    try {
        const Log log(config, component.name);
        const LogScope scope(log);
        const NetworkFile file = readNetworkFile(component, rootDir);
        try {
            description = Network::describe(file, log);
        } catch (const Exception& exception) {
            throw Exception(about(component, exception.what()), exception.getStatusCode());
        }
        return {SUCCESS, ""};
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

}  // namespace TarnoMirelo::OnnxRuntime
