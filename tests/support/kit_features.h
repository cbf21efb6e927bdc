#pragma once

#include <TarnoMirelo/feature.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo {

// Ports and features for the tests of the kit.

inline ModelFeatureDescriptor port(const std::string& name, DataType type, const TensorShape& shape,
                                   bool required = true) {
    return {MireloFeatureType::Tensor, required, name, "", TensorDescriptor(shape, type)};
}

inline std::shared_ptr<MireloFeature> feature(const std::string& name, std::shared_ptr<ITensor> tensor) {
    return std::make_shared<MireloFeatureTensor>(port(name, DataType::Float, {}), std::move(tensor));
}

template <typename... Arguments>
std::shared_ptr<MireloFeature> feature(const std::string& name, DataType type, Arguments... dimensions) {
    return feature(name, std::make_shared<Tensor>(type, TensorShape(dimensions...)));
}

/// A feature over the caller's floats.
inline std::shared_ptr<MireloFeature> wrapped(const std::string& name, float* elements, const TensorShape& shape) {
    const auto bytes = static_cast<uint64_t>(shape.size()) * sizeof(float);
    return feature(name, std::make_shared<BufferWrappedTensor>(DataType::Float, shape,
                                                               reinterpret_cast<uint8_t*>(elements), bytes));
}

/// A feature of those floats, shape (1, count).
inline std::shared_ptr<MireloFeature> floats(const std::string& name, const std::vector<float>& elements) {
    auto made = feature(name, DataType::Float, 1, static_cast<int64_t>(elements.size()));
    std::copy(elements.begin(), elements.end(), reinterpret_cast<float*>(made->asTensor()->buffer()));
    return made;
}

/// The floats that a feature holds.
inline std::vector<float> floatsOf(const std::shared_ptr<MireloFeature>& feature) {
    const auto* const first = reinterpret_cast<const float*>(feature->asTensor()->buffer());
    return {first, first + feature->asTensor()->shape().size()};
}

}  // namespace TarnoMirelo
