#include "engine.h"

#include <TarnoMirelo/opencv.h>

using namespace TarnoMirelo;

namespace {

class OpenCvUnitLength : public OpenCv::Operator {
 public:
    std::vector<TensorShape> outputShapes(const std::vector<TensorShape>& inputs) const override { return inputs; }
    MireloStatus forward(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                         const std::vector<std::shared_ptr<ITensor>>& outputs) override {
        return unitLength(inputs, outputs);
    }
};

}  // namespace

Engine openCv() {
    return {"opencv",
            [](const std::string& name) { return std::make_shared<OpenCv::Model>(name, MireloModelType::WinML); },
            [] { return std::make_unique<OpenCvUnitLength>(); }};
}
