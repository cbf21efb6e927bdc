#pragma once

#include <TarnoMirelo/feature.h>

#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

// Names and shapes of descriptors without a copy, and the dimensions of shapes without a call for each. The getters of
// the first two return copies, and a copy of a shape, or of a name of more than 15 characters, is an allocation:
// checking an input would take two in each prediction.
//
// The explicit instantiation of a template may name a private member; that is the language's one exception from access
// control, and it leaves the headers of the core as they are. A field that is renamed there no longer compiles here.

using NameField = std::string ModelFeatureDescriptor::*;
using ShapeField = TensorShape TensorDescriptor::*;
using DimensionsField = std::vector<int64_t> TensorShape::*;

NameField nameField();
ShapeField shapeField();
DimensionsField dimensionsField();

template <NameField field>
struct NameFieldIs {
    friend NameField nameField() { return field; }
};
template <ShapeField field>
struct ShapeFieldIs {
    friend ShapeField shapeField() { return field; }
};
template <DimensionsField field>
struct DimensionsFieldIs {
    friend DimensionsField dimensionsField() { return field; }
};

template struct NameFieldIs<&ModelFeatureDescriptor::name_>;
template struct ShapeFieldIs<&TensorDescriptor::shape_>;
template struct DimensionsFieldIs<&TensorShape::dimensions_>;

/// Valid as long as the descriptor or the shape.
inline const std::string& nameOf(const ModelFeatureDescriptor& descriptor) { return descriptor.*nameField(); }
inline const TensorShape& shapeOf(const TensorDescriptor& descriptor) { return descriptor.*shapeField(); }
inline const std::vector<int64_t>& dimensionsOf(const TensorShape& shape) { return shape.*dimensionsField(); }

}  // namespace TarnoMirelo::Kit
