#include "support/bare_classes.h"

#include <utility>

namespace TarnoMirelo {
namespace {

struct BareTensor : Tensor {
    using Tensor::Tensor;
};

struct BareFeature : MireloFeatureTensor {
    using MireloFeatureTensor::MireloFeatureTensor;
};

}  // namespace

std::shared_ptr<ITensor> bareTensor(DataType dataType, const TensorShape& shape) {
    return std::make_shared<BareTensor>(dataType, shape);
}

std::shared_ptr<MireloFeature> bareFeature(const ModelFeatureDescriptor& descriptor, std::shared_ptr<ITensor> tensor) {
    return std::make_shared<BareFeature>(descriptor, std::move(tensor));
}

}  // namespace TarnoMirelo
