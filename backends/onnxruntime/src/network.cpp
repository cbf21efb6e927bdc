#include "network.h"

#include "cache.h"
#include "log.h"
#include "providers.h"

#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {
namespace {

constexpr int kMostThreads = 1024;  // the engine starts them all while it loads
constexpr char kTensor[] = "a tensor";
constexpr uint32_t kVersionWithStatistics = 23;  // of allocators
constexpr uint32_t kVersionWithWeightsInMemory = 18;
constexpr uint32_t kVersionWithDisabledOptimizers = 18;

// Text that the engine allocates.
std::string takeText(char* text, OrtAllocator& allocator) {
    std::string copy = text;
    check(api().AllocatorFree(&allocator, text));
    return copy;
}

std::string kindOf(const OrtTypeInfo& type) {
    ONNXType kind = ONNX_TYPE_UNKNOWN;
    check(api().GetOnnxTypeFromTypeInfo(&type, &kind));
    switch (kind) {
        case ONNX_TYPE_TENSOR:
            return kTensor;
        case ONNX_TYPE_SPARSETENSOR:
            return "a sparse tensor";
        case ONNX_TYPE_SEQUENCE:
            return "a sequence";
        case ONNX_TYPE_MAP:
            return "a map";
        case ONNX_TYPE_OPTIONAL:
            return "an optional value";
        default:
            return "a value of kind " + std::to_string(kind);
    }
}

NetworkValue describe(std::string name, const Owned<OrtTypeInfo>& type, const OnnxOutline& outline) {
    NetworkValue value;
    value.name = std::move(name);
    value.kind = kindOf(*type);
    if (value.kind != kTensor) return value;
    const OrtTensorTypeAndShapeInfo* tensor = nullptr;  // a part of the type
    check(api().CastTypeInfoToTensorInfo(type.get(), &tensor));
    check(api().GetTensorElementType(tensor, &value.type));
    size_t count = 0;
    check(api().GetDimensionsCount(tensor, &count));
    std::vector<int64_t> shape(count);
    check(api().GetDimensions(tensor, shape.data(), count));
    // The engine tells a scalar and an unknown number of dimensions alike.
    if (count > 0 || outline.valuesWithShape.contains(value.name)) value.shape = std::move(shape);
    return value;
}

using Count = OrtStatus* (*)(const OrtSession*, size_t*);
using Type = OrtStatus* (*)(const OrtSession*, size_t, OrtTypeInfo**);
using Name = OrtStatus* (*)(const OrtSession*, size_t, OrtAllocator*, char**);

void addValues(const OrtSession& session, Count count, Type type, Name name, const OnnxOutline& outline,
               std::vector<NetworkValue>& values) {
    OrtAllocator* allocator = nullptr;
    check(api().GetAllocatorWithDefaultOptions(&allocator));
    size_t size = 0;
    check(count(&session, &size));
    for (size_t i = 0; i < size; ++i) {
        char* text = nullptr;
        check(name(&session, i, allocator, &text));
        values.push_back(describe(takeText(text, *allocator), make<OrtTypeInfo>(type, &session, i), outline));
    }
}

const NetworkValue* find(const std::vector<NetworkValue>& values, const std::string& name) {
    const auto found =
        std::find_if(values.begin(), values.end(), [&](const auto& value) { return value.name == name; });
    return found == values.end() ? nullptr : &*found;
}

[[noreturn]] void refuse(const char* kind, const std::string& name, const std::string& text) {
    throw ModelMetaDataException(std::string(kind) + " \"" + name + "\": " + text);
}

// What a value is that no target can describe; empty where one can.
std::string misfitOf(const NetworkValue& value) {
    if (toDataType(value.type) != DataType::Undefined) return "";
    const bool isTensor = value.type != ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    return isTensor ? value.kind + " of elements of type " + nameOf(value.type) : value.kind;
}

// What the target says of a tensor, and where it leaves a dimension or the element type open, what the network does.
TensorDescriptor restrictedBy(const NetworkValue& value, const TensorDescriptor& declared, const char* kind) {
    DataType type = declared.tensorType();
    if (const DataType found = toDataType(value.type); found == DataType::Undefined || type != found) {
        if (found == DataType::Undefined || toEngineType(type) != ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED) {
            const bool isTensor = value.type != ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
            refuse(kind, value.name,
                   "the network has " + (isTensor ? "elements of type " + nameOf(value.type) : value.kind) +
                       ", declared is " + Kit::toText(type));
        }
        type = found;
    }
    TensorShape shape = declared.shape();
    if (value.shape) {
        bool same = shape.dimension() == value.shape->size();
        for (size_t i = 0; same && i < value.shape->size(); ++i) {
            const int64_t network = (*value.shape)[i];
            if (shape[i] == -1) shape[i] = network;
            same = network == -1 || network == shape[i];
        }
        if (!same) {
            refuse(kind, value.name,
                   "the network has the shape " + Kit::toText(*value.shape) + ", declared is " +
                       Kit::toText(declared.shape()));
        }
    }
    return {shape, type};
}

std::string listOf(const std::vector<NetworkValue>& values) {
    std::string text;
    for (const NetworkValue& value : values) text += (text.empty() ? "\"" : ", \"") + value.name + "\"";
    return text.empty() ? "none" : text;
}

void restrictBy(const std::vector<NetworkValue>& values, const char* kind,
                std::vector<ModelFeatureDescriptor>& descriptors) {
    for (ModelFeatureDescriptor& descriptor : descriptors) {
        const NetworkValue* const value = find(values, descriptor.name());
        if (value == nullptr) {
            refuse(kind, descriptor.name(), "the network has none of that name, but " + listOf(values));
        }
        if (descriptor.type() != MireloFeatureType::Tensor) continue;  // which the ports refuse
        const TensorDescriptor tensor = restrictedBy(*value, descriptor.tensorDescriptor(), kind);
        descriptor = {descriptor.type(), descriptor.required(), descriptor.name(), descriptor.description(), tensor};
    }
}

ModelTarget restrictedBy(const std::vector<NetworkValue>& inputs, const std::vector<NetworkValue>& outputs,
                         ModelTarget target) {
    restrictBy(inputs, "Input", target.inputs);
    restrictBy(outputs, "Output", target.outputs);
    for (const NetworkValue& input : inputs) {
        const auto isThis = [&](const ModelFeatureDescriptor& each) { return each.name() == input.name; };
        if (!input.isOptional && std::none_of(target.inputs.begin(), target.inputs.end(), isThis)) {
            const std::string misfit = misfitOf(input);
            refuse("Input", input.name,
                   misfit.empty() ? "the network has it, the target lacks it"
                                  : "the network has " + misfit + ", which no target can describe");
        }
    }
    return target;
}

bool isRow(const TensorShape& shape) { return shape.dimension() > 0 && (shape[0] == 1 || shape[0] == -1); }

bool leavesRowsOpen(const NetworkValue& value) {
    return !value.shape || (!value.shape->empty() && value.shape->front() == -1);
}

GraphOptimizationLevel toLevel(GraphOptimization optimization) {
    switch (optimization) {
        case GraphOptimization::None:
            return ORT_DISABLE_ALL;
        case GraphOptimization::Basic:
            return ORT_ENABLE_BASIC;
        case GraphOptimization::Extended:
            return ORT_ENABLE_EXTENDED;
        case GraphOptimization::All:
            return ORT_ENABLE_ALL;
    }
    throw InvalidArgumentsException("Options: the graph optimisation has the unknown number " +
                                    std::to_string(static_cast<int>(optimization)));
}

// Some optimisers of the engine make another network of some networks:
//   - Pad_Fusion takes a padding with zeros into the MaxPool behind it, which pads with what is below every value;
//   - GemmTransposeFusion takes any Transpose of a matrix for one that swaps the dimensions;
//   - TransposeOptimizer quantises an output of the network that goes through a Transpose and a QuantizeLinear, too;
//   - the remover of double quantisation takes one of two zero points for both.
// They are disabled. Release 1.17 can't disable the first three alone: there, networks that GemmTransposeFusion breaks
// aren't optimised at all. The other two are right in it.
GraphOptimization optimizationFor(const OnnxOutline& outline, const Options& options) {
    const bool canDisable = engine().version >= kVersionWithDisabledOptimizers;
    return canDisable || !outline.hasIdleTranspose ? options.graphOptimization : GraphOptimization::None;
}

Owned<OrtSessionOptions> toSessionOptions(const NetworkFile& file, const Options& options, OrtEP provider,
                                          const Log& log) {
    for (const int threads : {options.threadsWithinNodes, options.threadsBetweenNodes}) {
        if (threads >= 0 && threads <= kMostThreads) continue;
        throw InvalidArgumentsException("Options: a number of threads is " + std::to_string(threads) +
                                        ", wanted is 0 to " + std::to_string(kMostThreads));
    }
    if (options.copies < 1) throw InvalidArgumentsException("Options: the number of copies is below 1");
    Owned<OrtSessionOptions> made = make<OrtSessionOptions>(api().CreateSessionOptions);
    check(api().SetUserLoggingFunction(made.get(), &Log::writeEngineLine, const_cast<Log*>(&log)));  // which reads it
    check(api().SetSessionLogSeverityLevel(made.get(), log.engineLevel()));
    check(api().SetSessionGraphOptimizationLevel(made.get(), toLevel(optimizationFor(file.outline, options))));
    check(api().SetIntraOpNumThreads(made.get(), options.threadsWithinNodes));
    check(api().SetInterOpNumThreads(made.get(), options.threadsBetweenNodes));
    if (options.threadsBetweenNodes != 1) check(api().SetSessionExecutionMode(made.get(), ORT_PARALLEL));
    std::string wrong = "Pad_Fusion;GemmTransposeFusion";
    if (file.outline.isQuantised) wrong += ";TransposeOptimizer;TransposeOptimizer_CPUExecutionProvider";
    check(api().AddSessionConfigEntry(made.get(), "optimization.disable_specified_optimizers", wrong.c_str()));
    check(api().AddSessionConfigEntry(made.get(), "session.disable_double_qdq_remover", "1"));
    if (!file.weights.empty() && engine().version >= kVersionWithWeightsFolder) {
        const std::u8string folder = file.path.parent_path().u8string();  // as the engine wants it on every system
        check(api().AddSessionConfigEntry(made.get(), "session.model_external_initializers_file_folder_path",
                                          reinterpret_cast<const char*>(folder.c_str())));
    }
    appendProvider(*made, provider);
    return made;
}

// What the engine allocates for a network beside its weights and its arena. It does not tell: these are the sizes that
// the heap was seen to grow by with release 1.29.
uint64_t bytesBesideWeights(const OnnxOutline& outline) {
    constexpr uint64_t kSession = 65'536;
    constexpr uint64_t kNode = 3'072;
    constexpr uint64_t kConstant = 1'740;
    constexpr uint64_t kSubgraph = 10'240;
    return kSession + kNode * outline.nodes + kConstant * outline.constants + kSubgraph * outline.subgraphs +
           outline.subgraphWeightBytes;
}

// Raises what the engine says of a network, as what it means for a component.
template <typename Open>
Owned<OrtSession> openSession(const Open& open) {
    OrtSession* session = nullptr;
    try {
        check(open(&session));
    } catch (const EngineFailure& failure) {
        switch (failure.code) {
            case ORT_NO_SUCHFILE:
                throw FileException(failure.what());
            case ORT_ENGINE_ERROR:
            case ORT_EP_FAIL:
                throw;
            default:  // whatever it is, it is the network's: nothing else was given
                throw ModelMetaDataException(failure.what());
        }
    }
    return Owned<OrtSession>(session);
}

Owned<OrtSession> openBytes(const Kit::ComponentBytes& bytes, const OrtSessionOptions& options) {
    return openSession([&](OrtSession** session) {
        return api().CreateSessionFromArray(engine().environment, bytes.data(), static_cast<size_t>(bytes.size()),
                                            &options, session);
    });
}

// From the bytes that the target and the cache's key are about, unless the engine finds the weights only beside a file.
Owned<OrtSession> openFile(const NetworkFile& file, const OrtSessionOptions& options) {
    if (file.weights.empty() || engine().version >= kVersionWithWeightsFolder) return openBytes(file.bytes, options);
    return openSession([&](OrtSession** session) {
        return api().CreateSession(engine().environment, file.path.c_str(), &options, session);
    });
}

// Of a network that failed to load with these options, which are changed.
bool loadsUnoptimised(const NetworkFile& file, OrtSessionOptions& options) {
    check(api().SetSessionGraphOptimizationLevel(&options, ORT_DISABLE_ALL));
    check(api().SetSessionLogSeverityLevel(&options, ORT_LOGGING_LEVEL_FATAL));  // else it logs the failure twice
    try {
        openFile(file, options);
        return true;
    } catch (const Exception&) {
        return false;
    }
}

// Has the engine take weights from memory, in place of the files that the network names; it copies them.
void addArchivedWeights(const NetworkFile& file, OrtSessionOptions& options) {
    if (file.archivedWeights.empty()) return;
    if (engine().version < kVersionWithWeightsInMemory) {
        throw ModelMetaDataException("weights in files of their own within an archive need ONNX Runtime 1." +
                                     std::to_string(kVersionWithWeightsInMemory) + " or later, found is " +
                                     engine().release);
    }
    std::vector<std::filesystem::path::string_type> names;
    std::vector<char*> buffers;
    std::vector<size_t> sizes;
    for (const auto& [location, weights] : file.archivedWeights) {
        names.push_back(std::filesystem::path(std::u8string(location.begin(), location.end())).native());
        buffers.push_back(const_cast<char*>(reinterpret_cast<const char*>(weights->data)));  // only read
        sizes.push_back(static_cast<size_t>(weights->size));
    }
    std::vector<const ORTCHAR_T*> texts;
    texts.reserve(names.size());
    for (const auto& name : names) texts.push_back(name.c_str());
    check(api().AddExternalInitializersFromFilesInMemory(&options, texts.data(), buffers.data(), sizes.data(),
                                                         texts.size()));
}

struct CachedSessions {
    std::vector<Owned<OrtSession>> sessions;
    OnnxOutline outline;
};

CachedNetwork optimise(const NetworkFile& file, const Options& options, OrtEP provider, const Cache& cache,
                       const Log& log) {
    const Owned<OrtSessionOptions> sessionOptions = toSessionOptions(file, options, provider, log);
    // The engine warns that the file is for this machine alone, which the cache sees to.
    check(api().SetSessionLogSeverityLevel(sessionOptions.get(), ORT_LOGGING_LEVEL_ERROR));
    return cache.store([&](const std::filesystem::path& path) {
        check(api().SetOptimizedModelFilePath(sessionOptions.get(), path.c_str()));
        openFile(file, *sessionOptions);
    });
}

// Nothing where the cache is of no use.
// @param failure  out: why; it may be the network's, which then fails without the cache, too
std::optional<CachedSessions> openCached(const NetworkFile& file, const Options& options, OrtEP provider,
                                         const Cache& cache, const Log& log, std::string& failure) {
    try {
        std::optional<CachedNetwork> kept = cache.load();
        const bool isNew = !kept;
        if (isNew) kept = optimise(file, options, provider, cache, log);
        OnnxOutline outline = readOutline(kept->network.data(), kept->network.size());
        Options done = options;
        done.graphOptimization = GraphOptimization::None;
        const Owned<OrtSessionOptions> sessionOptions = toSessionOptions(file, done, provider, log);
        std::vector<Owned<OrtSession>> sessions;
        sessions.reserve(static_cast<size_t>(options.copies));
        for (int i = 0; i < options.copies; ++i) sessions.push_back(openBytes(kept->network, *sessionOptions));
        log.write(LogSeverity::Info, (isNew ? "The optimised network is kept in " : "Loaded from the cache: ") +
                                         Kit::toText(cache.path()));
        return CachedSessions{std::move(sessions), std::move(outline)};
    } catch (const std::exception& exception) {
        failure = "The cache file is not used: " + Kit::toText(cache.path()) + ": " + exception.what();
        return std::nullopt;
    }
}

ModelFeatureDescriptor describeValue(const char* kind, const NetworkValue& value) {
    const std::string about = std::string(kind) + " \"" + value.name + "\": ";
    if (const std::string misfit = misfitOf(value); !misfit.empty()) {
        throw ModelMetaDataException(about + "it is " + misfit + ", which no target can describe");
    }
    if (!value.shape) throw ModelMetaDataException(about + "the network doesn't say how many dimensions it has");
    return {MireloFeatureType::Tensor, true, value.name, "",
            TensorDescriptor(TensorShape(*value.shape), toDataType(value.type))};
}

}  // namespace

Network::Network(const NetworkFile& file, const ModelTarget& target, const Options& options, OrtEP provider,
                 const Cache* cache, std::shared_ptr<const Log> log)
    : Network(open(file, options, provider, cache, *log), target, log) {}

Network::Network(Opened opened, const ModelTarget& target, std::shared_ptr<const Log> log)
    : log_(std::move(log)),
      operators_(std::move(opened.operators)),
      copies_(opened.sessions.size()),
      runOptions_(make<OrtRunOptions>(api().CreateRunOptions)),
      inputs_(restrictedBy(opened.inputs, opened.outputs, target)),
      outputs_(restrictedBy(opened.inputs, opened.outputs, target)) {
    isFromCache_ = opened.isFromCache;
    for (const Kit::Ports::Port& port : inputs_) {
        const NetworkValue& value = *find(opened.inputs, port.name);
        isOptional_.push_back(value.isOptional);
        hasRows_ = hasRows_ && isRow(port.shape) && leavesRowsOpen(value);
    }
    for (const Kit::Ports::Port& port : outputs_) {
        const NetworkValue& value = *find(opened.outputs, port.name);
        handsInputsOut_ = handsInputsOut_ || find(opened.inputs, port.name) != nullptr;
        hasRows_ = hasRows_ && isRow(port.shape) && leavesRowsOpen(value);
    }
    for (size_t i = 0; i < copies_.size(); ++i) {
        Copy& copy = copies_[i];
        copy.session = std::move(opened.sessions[i]);
        if (engine().version >= kVersionWithStatistics) {
            copy.arena = make<OrtAllocator>(api().CreateAllocator, copy.session.get(), hostMemory());
        }
        // Weights that the engine packs for its kernels are in the arena, and the others, as they are, beside it.
        const uint64_t inArena = arenaBytes(copy);
        outsideArenas_ += opened.bytesBesideWeights + opened.weightBytes - std::min(opened.weightBytes, inArena);
        measureMemory(copy);
    }
}

uint64_t Network::arenaBytes(const Copy& copy) {
    if (copy.arena == nullptr) return 0;
    struct ReleasePairs {
        void operator()(OrtKeyValuePairs* pairs) const { api().ReleaseKeyValuePairs(pairs); }
    };
    OrtKeyValuePairs* statistics = nullptr;
    check(api().AllocatorGetStats(copy.arena.get(), &statistics));
    const std::unique_ptr<OrtKeyValuePairs, ReleasePairs> owned(statistics);
    const char* const total = statistics == nullptr ? nullptr : api().GetKeyValue(statistics, "TotalAllocated");
    return total == nullptr ? 0 : std::strtoull(total, nullptr, 10);
}

void Network::measureMemory(const Copy& copy) const {
    copy.inArena = arenaBytes(copy);
    uint64_t bytes = outsideArenas_;
    for (const Copy& each : copies_) bytes += each.inArena;
    memory_ = bytes;
}

const Network::Copy& Network::nextCopy() const { return copies_[nextCopy_++ % copies_.size()]; }

// Two runs that begin at once may find the same copy free, and then share it.
const Network::Copy& Network::freeCopy() const {
    for (const Copy& copy : copies_) {
        if (copy.running == 0) return copy;
    }
    return nextCopy();
}

Network::Run::Run(const Network& network, uint64_t inputBytes) : Run(network, network.freeCopy(), inputBytes) {}

Network::Run::Run(const Network& network, const Copy& copy, uint64_t inputBytes) : network_(network), copy_(copy) {
    const auto isMost = [](auto& most, auto value) {
        for (auto seen = most.load(); value > seen;) {
            if (most.compare_exchange_weak(seen, value)) return true;
        }
        return false;
    };
    mayGrow_ = isMost(copy.largestInputs, inputBytes + 1);  // so that the first run counts without inputs, too
    mayGrow_ = isMost(copy.mostRunning, ++copy.running) || mayGrow_;
}

Network::Run::~Run() {
    constexpr std::chrono::milliseconds kInterval(1);  // a measurement takes some 0.003
    --copy_.running;
    const auto now = std::chrono::steady_clock::now();
    if (!mayGrow_ && now - copy_.measured.load() < kInterval) return;
    copy_.measured = now;
    try {
        network_.measureMemory(copy_);
    } catch (...) {  // NOLINT(bugprone-empty-catch): what was measured before stays
    }
}

Network::Opened Network::open(const NetworkFile& file, const Options& options, OrtEP provider, const Cache* cache,
                              const Log& log) {
    OperatorDomains operators(file.outline);
    const Owned<OrtSessionOptions> sessionOptions = toSessionOptions(file, options, provider, log);
    operators.addTo(*sessionOptions);
    addOperatorLibraries(*sessionOptions);
    addArchivedWeights(file, *sessionOptions);
    std::optional<CachedSessions> cached;
    std::string cacheFailure;
    if (cache != nullptr) cached = openCached(file, options, provider, *cache, log, cacheFailure);
    Opened opened{std::move(operators),
                  cached ? std::move(cached->sessions) : std::vector<Owned<OrtSession>>(),
                  cached.has_value(),
                  0,
                  0,
                  {},
                  {}};
    try {
        while (opened.sessions.size() < static_cast<size_t>(options.copies)) {
            opened.sessions.push_back(openFile(file, *sessionOptions));
        }
    } catch (const Exception& exception) {
        opened.operators.raiseFailure();  // which says more
        if (options.graphOptimization == GraphOptimization::None || !loadsUnoptimised(file, *sessionOptions)) throw;
        throw Exception(
            std::string(exception.what()) + "; the network loads without optimisation: try a lower graphOptimization",
            exception.getStatusCode());
    }
    opened.operators.raiseFailure();
    if (!cacheFailure.empty()) log.write(LogSeverity::Warning, cacheFailure);
    const OnnxOutline& outline = cached ? cached->outline : file.outline;
    opened.weightBytes = outline.weightBytes;
    // The form in the cache has them at their new width.
    if (!cached && options.graphOptimization == GraphOptimization::All) opened.weightBytes += outline.widenedBytes;
    opened.bytesBesideWeights = bytesBesideWeights(outline);
    const OrtSession& session = *opened.sessions.front();
    const OrtApi& engine = api();
    addValues(session, engine.SessionGetInputCount, engine.SessionGetInputTypeInfo, engine.SessionGetInputName,
              file.outline, opened.inputs);
    const size_t required = opened.inputs.size();
    addValues(session, engine.SessionGetOverridableInitializerCount, engine.SessionGetOverridableInitializerTypeInfo,
              engine.SessionGetOverridableInitializerName, file.outline, opened.inputs);
    for (size_t i = required; i < opened.inputs.size(); ++i) opened.inputs[i].isOptional = true;
    addValues(session, engine.SessionGetOutputCount, engine.SessionGetOutputTypeInfo, engine.SessionGetOutputName,
              file.outline, opened.outputs);
    return opened;
}

NetworkDescription Network::describe(const NetworkFile& file, const Log& log) {
    const Opened opened = open(file, Options(), OrtEP::Undefined, nullptr, log);
    NetworkDescription description;
    for (const NetworkValue& value : opened.inputs) {
        if (!value.isOptional) description.inputs.push_back(describeValue("Input", value));
    }
    for (const NetworkValue& value : opened.outputs) description.outputs.push_back(describeValue("Output", value));
    description.weightFiles.assign(file.outline.weightFiles.begin(), file.outline.weightFiles.end());
    return description;
}

void Network::setBatchSize(unsigned int batchSize) {
    const int64_t rows = batchSize;
    if (rows == 0) throw InvalidArgumentsException("A batch can't have 0 rows");
    const auto countable = [&](const Kit::Ports::Port& port) {
        TensorShape shape = port.shapeOf(rows);
        for (uint64_t i = 0; i < shape.dimension(); ++i) shape[i] = std::max<int64_t>(shape[i], 1);
        return Kit::byteCount(port.dataType, shape).has_value();
    };
    if (!std::all_of(inputs_.begin(), inputs_.end(), countable) ||
        !std::all_of(outputs_.begin(), outputs_.end(), countable)) {
        throw InvalidArgumentsException("A batch of " + std::to_string(rows) + " rows is more than can be counted");
    }
    if (rows > 1 && !hasRows_) {
        throw InvalidOperationException("The model can't take " + std::to_string(rows) + " rows at once");
    }
    batchSize_ = rows;
}

}  // namespace TarnoMirelo::OnnxRuntime
