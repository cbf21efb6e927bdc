#pragma once

#include <TarnoMirelo/feature.h>

#include <string>

namespace TarnoMirelo::Kit {

// Names and shapes of descriptors without a copy. Their getters return copies, and a copy of a shape, or of a name of
// more than 15 characters, is an allocation: checking an input would take two in each prediction.
//
// The explicit instantiation of a template may name a private member; that is the language's one exception from access
// control, and it leaves the descriptors' headers as they are. A field that is renamed there no longer compiles here.

using NameField = std::string ModelFeatureDescriptor::*;
using ShapeField = TensorShape TensorDescriptor::*;

NameField nameField();
ShapeField shapeField();

template <NameField field>
struct NameFieldIs {
    friend NameField nameField() { return field; }
};
template <ShapeField field>
struct ShapeFieldIs {
    friend ShapeField shapeField() { return field; }
};

template struct NameFieldIs<&ModelFeatureDescriptor::name_>;
template struct ShapeFieldIs<&TensorDescriptor::shape_>;

/// Valid as long as the descriptor.
inline const std::string& nameOf(const ModelFeatureDescriptor& descriptor) { return descriptor.*nameField(); }
inline const TensorShape& shapeOf(const TensorDescriptor& descriptor) { return descriptor.*shapeField(); }

}  // namespace TarnoMirelo::Kit
