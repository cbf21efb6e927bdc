#include "operator_domain.h"

#include "engine.h"
#include "network_file.h"

#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/onnxruntime.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <limits>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {

Operator::Operator() = default;
Operator::~Operator() = default;

namespace {

constexpr char kStatusBegin[] = "[operator status ";
constexpr char kStatusEnd[] = "] ";

// A tensor over memory of the engine's.
class BorrowedTensor final : public ITensor {
 public:
    BorrowedTensor(const TensorDescriptor& descriptor, uint8_t* buffer)
        : ITensor(descriptor.tensorType(), descriptor.shape()), buffer_(buffer) {}

    const uint8_t* buffer() const override { return buffer_; }
    uint8_t* buffer() override { return buffer_; }

 protected:
    bool allocateBufferOfSize(uint64_t /*size*/) override { return false; }

 private:
    uint8_t* buffer_;
};

// The operator of that name, null where it is none of this backend's.
std::unique_ptr<Operator> createOperator(const std::string& name) {
    std::unique_ptr<CustomOperators::Operator> created = CustomOperators::getOperatorRegistry().createOperator(name);
    std::unique_ptr<Operator> ours(dynamic_cast<Operator*>(created.get()));
    if (ours != nullptr) (void)created.release();  // owned by the other pointer now
    return ours;
}

TensorDescriptor describe(const OrtTensorTypeAndShapeInfo& info) {
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    check(api().GetTensorElementType(&info, &type));
    size_t count = 0;
    check(api().GetDimensionsCount(&info, &count));
    std::vector<int64_t> shape(count);
    check(api().GetDimensions(&info, shape.data(), count));
    return {shape, toDataType(type)};
}

// Runs a part of an operator and gives the engine what it raised as a status.
template <typename Work>
OrtStatus* statusOf(const std::string& name, const Work& work) noexcept {
    const auto fail = [&](STATUS_CODE code, const std::string& text) {
        return api().CreateStatus(ORT_FAIL,
                                  (kStatusBegin + std::to_string(code) + kStatusEnd + name + ": " + text).c_str());
    };
    try {
        try {
            work();
            return nullptr;
        } catch (const Exception& exception) {
            return fail(exception.getStatusCode(), exception.what());
        } catch (const std::exception& exception) {
            const char* const what = exception.what();
            return fail(ML_FRAMEWORK_ERROR, what == nullptr ? "" : what);
        } catch (...) {
            return fail(ML_FRAMEWORK_ERROR, "it raised something unknown");
        }
    } catch (...) {
        return api().CreateStatus(ORT_FAIL, "An operator failed, and there is no memory to say how");
    }
}

// What the engine calls for all nodes of a type.
struct EngineOperator : OrtCustomOp {
    EngineOperator(std::string domain, std::string type, std::unique_ptr<Operator> prototype);

    std::string name() const { return domain_ + "." + type_; }

    std::string domain_;
    std::string type_;
    std::unique_ptr<Operator> prototype_;  // asked for the outputs while the network is loaded
    mutable std::exception_ptr failure_;   // the first of these questions that failed; the engine may go on without it
};

const EngineOperator& ownOf(const OrtCustomOp* op) { return *static_cast<const EngineOperator*>(op); }

// What the engine calls for a node.
struct Kernel {
    std::string name;
    std::unique_ptr<Operator> operation;
};

std::vector<TensorDescriptor> outputsOf(const Operator& operation, const std::vector<TensorDescriptor>& inputs) {
    std::vector<TensorDescriptor> outputs = operation.outputs(inputs);
    for (const TensorDescriptor& output : outputs) {
        if (toEngineType(output.tensorType()) == ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED) {
            throw InvalidTensorDataTypeException("an output has no element type");
        }
    }
    return outputs;
}

// The tensor of a value, and its description.
std::shared_ptr<BorrowedTensor> borrow(const OrtValue* value, TensorDescriptor& descriptor) {
    int isTensor = 0;
    check(api().IsTensor(value, &isTensor));
    if (isTensor == 0) throw InvalidTypeException("an input is no tensor");
    const auto info = make<OrtTensorTypeAndShapeInfo>(api().GetTensorTypeAndShape, value);
    descriptor = describe(*info);
    if (descriptor.tensorType() == DataType::Undefined) {
        throw InvalidTensorDataTypeException("an input has elements of a type that tensors don't have");
    }
    void* elements = nullptr;
    check(api().GetTensorMutableData(const_cast<OrtValue*>(value), &elements));  // an operator gets it as const
    return std::make_shared<BorrowedTensor>(descriptor, static_cast<uint8_t*>(elements));
}

std::shared_ptr<ITensor> makeOutput(OrtKernelContext& context, size_t index, const TensorDescriptor& descriptor) {
    std::vector<int64_t> shape = descriptor.shape().shapeVector();
    if (!Kit::byteCount(descriptor.tensorType(), shape)) {
        throw Exception("an output can't have the shape " + Kit::toText(shape), INVALID_SHAPE);
    }
    OrtValue* value = nullptr;
    const size_t count = shape.size();
    if (shape.empty()) shape.push_back(0);  // the engine wants an address
    check(api().KernelContext_GetOutput(&context, index, shape.data(), count, &value));
    if (value == nullptr) return std::make_shared<Tensor>(descriptor.tensorType(), descriptor.shape());  // unused
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    const auto info = make<OrtTensorTypeAndShapeInfo>(api().GetTensorTypeAndShape, value);
    check(api().GetTensorElementType(info.get(), &type));
    if (toDataType(type) != descriptor.tensorType()) {
        throw InvalidTensorDataTypeException("an output has elements of type " + Kit::toText(descriptor.tensorType()) +
                                             ", the network's are of type " + nameOf(type));
    }
    void* elements = nullptr;
    check(api().GetTensorMutableData(value, &elements));
    return std::make_shared<BorrowedTensor>(descriptor, static_cast<uint8_t*>(elements));
}

// To where the model's own lines go.
void logWarning(const OrtKernelContext& context, const std::string& text) {
    const OrtLogger* logger = nullptr;
    check(api().KernelContext_GetLogger(&context, &logger));
    check(api().Logger_LogMessage(logger, ORT_LOGGING_LEVEL_WARNING, text.c_str(), ORT_TSTR("operator"), 0, ""));
}

void compute(const std::string& name, Operator& operation, OrtKernelContext& context) {
    size_t inputCount = 0;
    size_t outputCount = 0;
    check(api().KernelContext_GetInputCount(&context, &inputCount));
    check(api().KernelContext_GetOutputCount(&context, &outputCount));
    std::vector<std::shared_ptr<const ITensor>> inputs(inputCount);
    std::vector<TensorDescriptor> descriptors(inputCount);
    for (size_t i = 0; i < inputCount; ++i) {
        const OrtValue* value = nullptr;
        check(api().KernelContext_GetInput(&context, i, &value));
        inputs[i] = borrow(value, descriptors[i]);
    }
    const std::vector<TensorDescriptor> results = outputsOf(operation, descriptors);
    if (results.size() < outputCount) {
        throw MLFrameworkException("it has " + std::to_string(results.size()) + " outputs, the network takes " +
                                   std::to_string(outputCount));
    }
    std::vector<std::shared_ptr<ITensor>> outputs;
    outputs.reserve(outputCount);
    for (size_t i = 0; i < outputCount; ++i) outputs.push_back(makeOutput(context, i, results[i]));
    const MireloStatus status = operation.forward(inputs, outputs);
    require(status);
    if (status.warn()) logWarning(context, name + ": " + status.getDescription());
}

// Each dimension that is not known gets a name of its own: the engine takes those of one name for equal.
void setOutput(OrtShapeInferContext& context, size_t index, const TensorDescriptor& output) {
    static std::atomic<uint64_t> unknown{0};
    const auto info = make<OrtTensorTypeAndShapeInfo>(api().CreateTensorTypeAndShapeInfo);
    check(api().SetTensorElementType(info.get(), toEngineType(output.tensorType())));
    const std::vector<int64_t> shape = output.shape().shapeVector();
    check(api().SetDimensions(info.get(), shape.data(), shape.size()));
    std::vector<std::string> names;
    names.reserve(shape.size());
    for (const int64_t size : shape) {
        names.push_back(size < 0 ? "operator_dimension_" + std::to_string(++unknown) : std::string());
    }
    std::vector<const char*> texts;
    texts.reserve(names.size());
    for (const std::string& name : names) texts.push_back(name.c_str());
    check(api().SetSymbolicDimensions(info.get(), texts.data(), texts.size()));
    check(api().ShapeInferContext_SetOutputTypeShape(&context, index, info.get()));
}

void inferOutputs(const Operator& operation, OrtShapeInferContext& context) {
    size_t count = 0;
    check(api().ShapeInferContext_GetInputCount(&context, &count));
    std::vector<TensorDescriptor> inputs;
    for (size_t i = 0; i < count; ++i) {
        OrtTensorTypeAndShapeInfo* info = nullptr;  // the context's
        check(api().ShapeInferContext_GetInputTypeShape(&context, i, &info));
        inputs.push_back(info == nullptr ? TensorDescriptor({}, DataType::Undefined) : describe(*info));
    }
    const std::vector<TensorDescriptor> outputs = outputsOf(operation, inputs);
    if (outputs.empty()) throw MLFrameworkException("it has no outputs");
    for (size_t i = 0; i < outputs.size(); ++i) {
        try {
            setOutput(context, i, outputs[i]);
        } catch (const EngineFailure&) {
            if (i == 0) throw;
            return;  // the node takes fewer; the context does not tell how many
        }
    }
}

EngineOperator::EngineOperator(std::string domain, std::string type, std::unique_ptr<Operator> prototype)
    : OrtCustomOp(), domain_(std::move(domain)), type_(std::move(type)), prototype_(std::move(prototype)) {
    version = engine().version;
    GetName = [](const OrtCustomOp* op) { return ownOf(op).type_.c_str(); };
    GetExecutionProviderType = [](const OrtCustomOp*) -> const char* { return nullptr; };  // the CPU's
    // Any number of inputs and outputs of any types.
    GetInputType = [](const OrtCustomOp*, size_t) { return ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED; };
    GetInputTypeCount = [](const OrtCustomOp*) -> size_t { return 1; };
    GetOutputType = GetInputType;
    GetOutputTypeCount = GetInputTypeCount;
    GetInputCharacteristic = [](const OrtCustomOp*, size_t) { return INPUT_OUTPUT_VARIADIC; };
    GetOutputCharacteristic = GetInputCharacteristic;
    GetInputMemoryType = [](const OrtCustomOp*, size_t) { return OrtMemTypeDefault; };
    GetVariadicInputMinArity = [](const OrtCustomOp*) { return 0; };
    GetVariadicOutputMinArity = [](const OrtCustomOp*) { return 1; };
    GetVariadicInputHomogeneity = [](const OrtCustomOp*) { return 0; };
    GetVariadicOutputHomogeneity = GetVariadicInputHomogeneity;
    GetStartVersion = [](const OrtCustomOp*) { return 1; };
    GetEndVersion = [](const OrtCustomOp*) { return std::numeric_limits<int>::max(); };
    CreateKernelV2 = [](const OrtCustomOp* op, const OrtApi*, const OrtKernelInfo*, void** kernel) {
        const EngineOperator& own = ownOf(op);
        return statusOf(own.name(), [&] {
            std::unique_ptr<Operator> created = createOperator(own.name());
            if (created == nullptr) throw InvalidOperationException("it is gone from the registry");
            *kernel = new Kernel{own.name(), std::move(created)};
        });
    };
    KernelComputeV2 = [](void* kernel, OrtKernelContext* context) {
        Kernel& own = *static_cast<Kernel*>(kernel);
        return statusOf(own.name, [&] { compute(own.name, *own.operation, *context); });
    };
    KernelDestroy = [](void* kernel) { delete static_cast<Kernel*>(kernel); };
    InferOutputShapeFn = [](const OrtCustomOp* op, OrtShapeInferContext* context) {
        const EngineOperator& own = ownOf(op);
        return statusOf(own.name(), [&] {
            try {
                inferOutputs(*own.prototype_, *context);
            } catch (...) {
                if (own.failure_ == nullptr) own.failure_ = std::current_exception();
                throw;
            }
        });
    };
}

}  // namespace

struct OperatorDomains::Domain {
    explicit Domain(std::string ofName) : name(std::move(ofName)) {
        check(api().CreateCustomOpDomain(name.c_str(), &domain));
    }
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;
    ~Domain() { api().ReleaseCustomOpDomain(domain); }

    std::string name;
    OrtCustomOpDomain* domain = nullptr;
    std::vector<std::shared_ptr<const OrtCustomOp>> operators;
};

OperatorDomains::OperatorDomains(const OnnxOutline& outline) {
    for (const auto& [domain, type] : outline.operators) {  // in the order of the domains
        std::unique_ptr<Operator> prototype = createOperator(std::string(domain).append(".").append(type));
        if (prototype == nullptr) continue;
        if (outline.operatorsWithGaps.contains({domain, type})) {  // over which release 1.17 of the engine crashes
            throw ModelMetaDataException(std::string(domain).append(".").append(type) +
                                         ": a node leaves out an input, which operators of the host can't do");
        }
        if (domains_.empty() || domains_.back()->name != domain) domains_.push_back(std::make_unique<Domain>(domain));
        Domain& last = *domains_.back();
        last.operators.push_back(std::make_shared<EngineOperator>(domain, type, std::move(prototype)));
        check(api().CustomOpDomain_Add(last.domain, last.operators.back().get()));
    }
}

OperatorDomains::OperatorDomains(OperatorDomains&& other) noexcept = default;
OperatorDomains& OperatorDomains::operator=(OperatorDomains&& other) noexcept = default;
OperatorDomains::~OperatorDomains() = default;

void OperatorDomains::addTo(OrtSessionOptions& options) const {
    for (const auto& domain : domains_) check(api().AddCustomOpDomain(&options, domain->domain));
}

void OperatorDomains::raiseFailure() const {
    for (const auto& domain : domains_) {
        for (const auto& each : domain->operators) {
            const EngineOperator& own = ownOf(each.get());
            if (own.failure_ != nullptr) check(statusOf(own.name(), [&] { std::rethrow_exception(own.failure_); }));
        }
    }
}

void addOperatorLibraries(OrtSessionOptions& options) {
    for (const Filepath& library : CustomOperators::getOperatorRegistry().getCustomOperatorDLLList()) {
        try {
            check(api().RegisterCustomOpsLibrary_V2(&options, toSystemPath(library).c_str()));
        } catch (const EngineFailure& failure) {
            throw MLFrameworkException("Operator library \"" + Kit::toText(library) + "\": " + failure.what());
        }
    }
}

bool usesHostOperators(const OnnxOutline& outline) {
    return !CustomOperators::getOperatorRegistry().getCustomOperatorDLLList().empty() ||
           !OperatorDomains(outline).empty();
}

std::optional<MireloStatus> operatorStatusIn(const std::string& engineText) {
    const size_t begin = engineText.rfind(kStatusBegin);
    const size_t end = begin == std::string::npos ? begin : engineText.find(kStatusEnd, begin);
    if (end == std::string::npos) return std::nullopt;
    // The text may be anybody's: a failure never becomes a success.
    auto code =
        static_cast<STATUS_CODE>(std::strtol(engineText.c_str() + begin + sizeof kStatusBegin - 1, nullptr, 10));
    if (code == SUCCESS || code == WARNING || code == 0) code = ML_FRAMEWORK_ERROR;
    return MireloStatus(code, engineText.substr(end + sizeof kStatusEnd - 1));
}

}  // namespace TarnoMirelo::OnnxRuntime
