#include "binding.h"
#include "network.h"

#include <TarnoMirelo/opencv.h>

#include <chrono>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace TarnoMirelo::OpenCv {
namespace {

std::string about(const ModelComponent& component, const std::string& text) {
    return "Component \"" + component.name + "\": " + text;
}

// Whether a relative path stays under the directory it is relative to, on every system.
bool staysInside(const std::string& path) {
    if (path.find(':') != std::string::npos || path.find_first_of("/\\") == 0) return false;
    for (size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = path.find_first_of("/\\", begin);
        if (path.substr(begin, end - begin) == "..") return false;
    }
    return true;
}

std::shared_ptr<Network> readBytes(const ModelComponent& component, const char* bytes, size_t size,
                                   const ModelTarget& target) {
    const auto read = [&] {
        try {
            return readOnnxFile(bytes, size);
        } catch (const ModelMetaDataException& exception) {
            throw ModelMetaDataException(about(component, exception.what()));
        }
    };
    OnnxFile file = read();
    try {
        return std::make_shared<Network>(std::move(file), target);
    } catch (const MLFrameworkException& exception) {
        throw MLFrameworkException(about(component, exception.what()));
    }
}

std::shared_ptr<Network> readFile(const ModelComponent& component, const Filepath& rootDir, const ModelTarget& target) {
    if (component.path.empty() || !staysInside(component.path)) {
        throw ModelMetaDataException(
            about(component, "the path \"" + component.path + "\" names no file of the model"));
    }
    Filepath path = rootDir;
    path.append(Filepath(component.path));
    uint64_t size = 0;
    std::unique_ptr<char[]> bytes;
    try {
        bytes = FileUtils().readBinaryFileToBuffer(path, size);
    } catch (const std::range_error& error) {
        throw FileException(about(component, error.what()));
    }
    if (bytes == nullptr) throw FileException(about(component, "cannot open " + path.getPathString()));
    return readBytes(component, bytes.get(), static_cast<size_t>(size), target);
}

std::shared_ptr<Network> read(const ModelComponent& component, const Filepath& rootDir, const ModelTarget& target) {
    if (component.type == ComponentKind::File) return readFile(component, rootDir, target);
    if (component.type == ComponentKind::MemoryStream) {
        const auto* const bytes = reinterpret_cast<const char*>(component.buffer.data());
        return readBytes(component, bytes, component.buffer.size(), target);
    }
    throw ModelMetaDataException(about(component, "components of the kind \"" + component.type + "\" can't be run"));
}

// Deletes a binding of this backend, and tells it from those of others: also where a host was built without type
// information, which a cast would need.
struct DeleteBinding {
    void operator()(MireloModel::MireloBinding* /*bound*/) const { delete made; }

    Binding* made;
};

// The features of each row of a flat list, whose order stays within the rows.
std::vector<MireloModel::Outputs> rowsOf(const MireloModel::Outputs& features, size_t rowCount) {
    std::vector<MireloModel::Outputs> rows(rowCount);
    std::unordered_map<std::string, size_t> given;
    for (const auto& feature : features) {
        if (feature == nullptr) throw InvalidArgumentsException("Output: a feature must not be null");
        const std::string name = feature->featureDescriptor().name();
        const size_t row = given[name]++;
        if (row < rowCount) rows[row].push_back(feature);
    }
    for (const auto& [name, count] : given) {
        if (count == rowCount) continue;
        throw InvalidArgumentsException("Output \"" + name + "\": " + std::to_string(count) + " features for " +
                                        std::to_string(rowCount) + " rows of inputs");
    }
    return rows;
}

}  // namespace

Model::Model(const std::string& name, std::shared_ptr<Device> device, MireloConfig config, Options options)
    : MireloModel(name, std::move(device)), config_(std::move(config)), options_(options) {}
Model::Model(const std::string& name, Device* device, MireloConfig config, Options options)
    : MireloModel(name, device), config_(std::move(config)), options_(options) {}
Model::Model(const std::string& name, MireloModelType type, MireloConfig config, Options options)
    : MireloModel(name, type), config_(std::move(config)), options_(options) {}
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

// A failing sink must not fail the caller. Without a sink only failures are reported: hosts that asked for no log get
// none on their standard output.
void Model::log(LogSeverity severity, const std::string& message) const {
    try {
        const std::shared_ptr<ILogProcessor> sink = config_.GetLogger();
        if (sink == nullptr && severity < LogSeverity::Error) return;
        const std::string text = "OpenCV model \"" + getName() + "\": " + message;
        if (sink == nullptr) {
            _Report_(false, LogProcessorTarget::None, severity, text);
            return;
        }
        LogEntry entry;
        Logger::GenerateLogEntry(entry, text, LogProcessorTarget::None, severity, static_cast<uint64_t>(-1));
        sink->Process(entry);
    } catch (...) {
    }
}

const std::shared_ptr<Network>& Model::loadedNetwork() const {
    if (network_ == nullptr) throw InvalidOperationException("The model is not loaded");
    return network_;
}

// The model gets its record only when it is registered, and no hook is called then: every operation looks for one.
void Model::reportMemory() const {
    const std::shared_ptr<ModelRuntimeStatus>& record = runtimeRecord();
    if (record.owner_before(reportedTo_) || reportedTo_.owner_before(record)) {
        reportedTo_ = record;
        reportedBytes_ = 0;
    }
    const uint64_t bytes = network_ == nullptr ? 0 : network_->memory();
    if (record == nullptr || bytes == reportedBytes_) return;
    const MireloStatus status = record->addCurrentMemoryConsumption(bytes - reportedBytes_);
    if (status.getCode() == MEMORY_CONSUMPTION_ERROR) reportedBytes_ = bytes;  // the code that says "recorded"
}

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

MireloStatus Model::onPredict(const Inputs& inputs, Outputs& outputs) const {
    return statusOf([&] {
        const std::shared_ptr<Network>& network = loadedNetwork();
        Outputs results = outputs;
        Binding binding(network, inputs, results, network->batchSize());
        binding.prepareOutputs();
        binding.run();
        reportMemory();
        outputs = std::move(results);  // once nothing can fail any more
    });
}

MireloStatus Model::onPredictBatch(const Inputs& inputs, Outputs& outputs) const {
    return statusOf([&] {
        const std::shared_ptr<Network>& network = loadedNetwork();
        const MireloFeatureSet batch = MireloBatch(inputs).getFeatureSet();
        if (batch.features.empty()) throw InvalidArgumentsException("Input: a batch has at least one row");
        std::vector<Outputs> results = rowsOf(outputs, batch.features.size());
        std::vector<Binding> rows;
        rows.reserve(batch.features.size());
        for (size_t i = 0; i < results.size(); ++i) rows.emplace_back(network, batch.features[i], results[i], 1);
        Binding::runRows(rows, options_.rowsAreIndependent);
        reportMemory();
        if (!outputs.empty()) return;
        Outputs flat;
        for (const Outputs& row : results) flat.insert(flat.end(), row.begin(), row.end());
        outputs = std::move(flat);
    });
}

MireloStatus Model::onBind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const {
    return statusOf([&] {
        const std::shared_ptr<Network>& network = loadedNetwork();
        Outputs results = outputs;
        auto* const made = new Binding(network, inputs, results, network->batchSize());
        std::shared_ptr<MireloBinding> bound(made, DeleteBinding{made});
        made->prepareOutputs();
        reportMemory();
        outputs = std::move(results);
        binding = std::move(bound);
    });
}

MireloStatus Model::onEvaluate(std::shared_ptr<MireloBinding>& binding) const {
    return statusOf([&] {
        const auto* const own = std::get_deleter<DeleteBinding>(binding);
        if (own == nullptr || own->made != binding.get() || own->made->network() != loadedNetwork()) {
            throw InvalidOperationException("The binding was not made by this model since it was loaded");
        }
        own->made->run();
        reportMemory();
    });
}

}  // namespace TarnoMirelo::OpenCv
