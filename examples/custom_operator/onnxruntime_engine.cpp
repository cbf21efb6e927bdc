#include "engine.h"

#include <TarnoMirelo/onnxruntime.h>

using namespace TarnoMirelo;

namespace {

class OnnxRuntimeUnitLength : public OnnxRuntime::Operator {
 public:
    std::vector<TensorDescriptor> outputs(const std::vector<TensorDescriptor>& inputs) const override { return inputs; }
    MireloStatus forward(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                         const std::vector<std::shared_ptr<ITensor>>& outputs) override {
        return unitLength(inputs, outputs);
    }
};

}  // namespace

Engine onnxRuntime() {
    return {"onnxruntime",
            [](const std::string& name) { return std::make_shared<OnnxRuntime::Model>(name, MireloModelType::WinML); },
            [] { return std::make_unique<OnnxRuntimeUnitLength>(); }};
}
