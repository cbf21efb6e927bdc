#include "affine_model.h"

#include <gtest/gtest.h>

using namespace TarnoMirelo;

namespace {

TEST(AffineModel, RefusesInputsOfTwoShapes) {
    ModelMetadata metadata;
    const Filepath manifest = Filepath(PACKAGES).append(Filepath("open_shape")).append(Filepath("manifest.json"));
    ASSERT_TRUE(metadata.load(manifest).ok());
    AffineModel model("open_shape", MireloModelType::WinML);
    ASSERT_TRUE(model.load(metadata.getModelCompoents(MireloModelType::WinML)).ok());

    MireloModel::Inputs inputs;
    for (const int64_t width : {3, 4}) {
        const auto tensor = std::make_shared<Tensor>(DataType::Float, TensorShape{2, width});
        const auto& descriptor = model.getModelTarget().inputs[inputs.size()];
        inputs.push_back(std::make_shared<MireloFeatureTensor>(descriptor, tensor));
    }
    MireloModel::Outputs outputs;
    const MireloStatus status = model.predict(inputs, outputs);
    EXPECT_EQ(status.getCode(), INVALID_SHAPE);
    EXPECT_EQ(status.getDescription(), "Input \"right\": the shape is (2, 4), wanted is (2, 3)");
    EXPECT_TRUE(outputs.empty());
}

}  // namespace
