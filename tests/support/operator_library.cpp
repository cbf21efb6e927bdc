// A library of operators as the engine loads them: example.Negate, of floats.

#include <onnxruntime_c_api.h>

namespace {

const OrtApi* api = nullptr;

OrtStatus* compute(void* /*kernel*/, OrtKernelContext* context) {
    const OrtValue* input = nullptr;
    OrtTensorTypeAndShapeInfo* info = nullptr;
    OrtValue* output = nullptr;
    size_t count = 0;
    int64_t shape[2] = {};
    void* from = nullptr;
    void* to = nullptr;
    if (OrtStatus* const failed = api->KernelContext_GetInput(context, 0, &input)) return failed;
    if (OrtStatus* const failed = api->GetTensorTypeAndShape(input, &info)) return failed;
    OrtStatus* failed = api->GetTensorShapeElementCount(info, &count);
    if (failed == nullptr) failed = api->GetDimensions(info, shape, 2);
    api->ReleaseTensorTypeAndShapeInfo(info);
    if (failed == nullptr) failed = api->KernelContext_GetOutput(context, 0, shape, 2, &output);
    if (failed == nullptr) failed = api->GetTensorMutableData(const_cast<OrtValue*>(input), &from);
    if (failed == nullptr) failed = api->GetTensorMutableData(output, &to);
    for (size_t i = 0; failed == nullptr && i < count; ++i) static_cast<float*>(to)[i] = -static_cast<float*>(from)[i];
    return failed;
}

OrtCustomOp makeNegate() {
    OrtCustomOp op{};
    op.version = 17;
    op.GetName = [](const OrtCustomOp*) { return "Negate"; };
    op.GetExecutionProviderType = [](const OrtCustomOp*) -> const char* { return nullptr; };
    op.GetInputType = [](const OrtCustomOp*, size_t) { return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT; };
    op.GetInputTypeCount = [](const OrtCustomOp*) -> size_t { return 1; };
    op.GetOutputType = op.GetInputType;
    op.GetOutputTypeCount = op.GetInputTypeCount;
    op.GetInputCharacteristic = [](const OrtCustomOp*, size_t) { return INPUT_OUTPUT_REQUIRED; };
    op.GetOutputCharacteristic = op.GetInputCharacteristic;
    op.GetInputMemoryType = [](const OrtCustomOp*, size_t) { return OrtMemTypeDefault; };
    op.CreateKernelV2 = [](const OrtCustomOp*, const OrtApi*, const OrtKernelInfo*, void** kernel) -> OrtStatus* {
        *kernel = nullptr;
        return nullptr;
    };
    op.KernelComputeV2 = compute;
    op.KernelDestroy = [](void*) {};
    return op;
}

// Goes with the library, which the engine unloads after the last session that uses it.
struct Domain {
    Domain() = default;
    Domain(const Domain&) = delete;
    Domain& operator=(const Domain&) = delete;
    ~Domain() { api->ReleaseCustomOpDomain(domain); }

    OrtCustomOpDomain* domain = nullptr;
};

}  // namespace

extern "C" ORT_EXPORT OrtStatus* RegisterCustomOps(OrtSessionOptions* options, const OrtApiBase* base) {
    api = base->GetApi(17);
    static const OrtCustomOp negate = makeNegate();
    static Domain own;
    if (own.domain == nullptr) {
        if (OrtStatus* const failed = api->CreateCustomOpDomain("example", &own.domain)) return failed;
        if (OrtStatus* const failed = api->CustomOpDomain_Add(own.domain, &negate)) return failed;
    }
    return api->AddCustomOpDomain(options, own.domain);
}
