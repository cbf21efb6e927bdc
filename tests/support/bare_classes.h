#pragma once

#include <TarnoMirelo/feature.h>

#include <memory>

namespace TarnoMirelo {

/// A tensor and a feature of classes that are built without type information, as some hosts build theirs.
std::shared_ptr<ITensor> bareTensor(DataType dataType, const TensorShape& shape);
std::shared_ptr<MireloFeature> bareFeature(const ModelFeatureDescriptor& descriptor, std::shared_ptr<ITensor> tensor);

}  // namespace TarnoMirelo
