#include "binding.h"
#include "network.h"

#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/bindings.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/log.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/opencv.h>

#include <chrono>
#include <mutex>
#include <utility>

namespace TarnoMirelo::OpenCv {
namespace {

std::string about(const ModelComponent& component, const std::string& text) {
    return "Component \"" + component.name + "\": " + text;
}

std::shared_ptr<Network> read(const ModelComponent& component, const Filepath& rootDir, const ModelTarget& target) {
    Kit::ComponentFiles files;
    Kit::ComponentBytes bytes;
    if (component.type == ComponentKind::SecuredTar) {
        require(Kit::readComponentFiles(component, rootDir, files));
        std::string name;
        require(Kit::findOnlyName(component, files.names(), ".onnx", name));
        const Kit::ComponentFiles::File& network = *files.find(name);
        bytes = Kit::ComponentBytes(network.data, network.size);
    } else {
        require(Kit::readComponent(component, rootDir, bytes));
    }
    const auto readFile = [&] {
        try {
            return readOnnxFile(reinterpret_cast<const char*>(bytes.data()), bytes.size(), target);
        } catch (const ModelMetaDataException& exception) {
            throw ModelMetaDataException(about(component, exception.what()));
        }
    };
    OnnxFile file = readFile();
    try {
        return std::make_shared<Network>(std::move(file), target);
    } catch (const MLFrameworkException& exception) {
        throw MLFrameworkException(about(component, exception.what()));
    }
}

}  // namespace

Model::Model(const std::string& name, std::shared_ptr<Device> device, MireloConfig config, Options options)
    : MireloModel(name, std::move(device)),
      config_(std::move(config)),
      options_(options),
      reporter_(std::make_unique<Kit::MemoryReporter>()) {}
Model::Model(const std::string& name, Device* device, MireloConfig config, Options options)
    : MireloModel(name, device),
      config_(std::move(config)),
      options_(options),
      reporter_(std::make_unique<Kit::MemoryReporter>()) {}
Model::Model(const std::string& name, MireloModelType type, MireloConfig config, Options options)
    : MireloModel(name, type),
      config_(std::move(config)),
      options_(options),
      reporter_(std::make_unique<Kit::MemoryReporter>()) {}
Model::~Model() = default;

// The hooks raise nothing: what was refused on the way becomes their status.
template <typename Work>
MireloStatus Model::statusOf(const Work& work) const {
    MireloStatus status;
    try {
        work();
        status.setCode(SUCCESS);  // the empty description is there already
    } catch (...) {
        status = getStatusFromCurrentException();
        if (status.getCode() == ML_FRAMEWORK_ERROR) log(LogSeverity::Error, status.getDescription());
    }
    return status;
}

void Model::log(LogSeverity severity, const std::string& message) const {
    // Models on several threads may share a sink, and the logger has no lock. A sink may use a model that logs again.
    static auto* const sinks = new std::recursive_mutex;  // never destroyed: models may be used while the process ends
    const std::lock_guard<std::recursive_mutex> lock(*sinks);
    Kit::writeLog(config_.GetLogger(), severity, "OpenCV model \"" + getName() + "\": " + message);
}

const std::shared_ptr<Network>& Model::loadedNetwork() const {
    if (network_ == nullptr) throw InvalidOperationException("The model is not loaded");
    return network_;
}

void Model::reportMemory() const { reporter_->report(runtimeRecord(), network_ == nullptr ? 0 : network_->memory()); }

MireloStatus Model::onLoad(const std::vector<ModelComponent>& components) {
    network_.reset();
    MireloStatus status = statusOf([&] {
        if (components.size() > 1) {
            throw ModelMetaDataException(about(components[1], "a target has one component, a network"));
        }
        const auto start = std::chrono::steady_clock::now();
        network_ = read(components.front(), getRootDir(), getModelTarget());
        const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
        log(LogSeverity::Info, about(components.front(), "loaded in " + std::to_string(time.count()) + " ms"));
    });
    MireloStatus reported = statusOf([&] { reportMemory(); });  // of what the load before had, when this one failed
    return status.ok() ? reported : status;
}

MireloStatus Model::onUnload() {
    return statusOf([&] {
        if (network_ != nullptr) log(LogSeverity::Info, "unloaded");
        network_.reset();
        reportMemory();
    });
}

MireloStatus Model::onSetBatchSize(const unsigned int& batchSize) {
    return statusOf([&] {
        loadedNetwork()->setBatchSize(batchSize);
        reportMemory();
    });
}

void Model::predictRows(const Inputs& inputs, Outputs& outputs, int64_t rows) const {
    Outputs results = outputs;
    Binding(loadedNetwork(), inputs, results, rows).run();
    reportMemory();
    outputs = std::move(results);  // once nothing can fail any more
}

MireloStatus Model::onPredict(const Inputs& inputs, Outputs& outputs) const {
    return statusOf([&] { predictRows(inputs, outputs, loadedNetwork()->batchSize()); });
}

MireloStatus Model::onPredictBatch(const Inputs& inputs, Outputs& outputs) const {
    return statusOf([&] {
        const Network& network = *loadedNetwork();
        const auto run = [this](const Inputs& rowInputs, Outputs& rowOutputs, int64_t rows) {
            try {
                predictRows(rowInputs, rowOutputs, rows);
                return MireloStatus(SUCCESS, "");
            } catch (...) {
                return getStatusFromCurrentException();
            }
        };
        // With outputs given, no row may be written before all are checked.
        if (!outputs.empty()) checkForms(network.inputs(), inputs);
        const bool inOnePass = options_.rowsAreIndependent && network.hasRows();
        require(Kit::runBatch(network.inputs(), network.outputs(), inputs, outputs,
                              inOnePass ? Kit::Stacking::Promised : Kit::Stacking::Never, run));
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

}  // namespace TarnoMirelo::OpenCv
