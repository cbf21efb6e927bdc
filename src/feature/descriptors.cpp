#include "feature/feature_names.h"

#include <TarnoMirelo/feature.h>

#include <utility>

namespace TarnoMirelo {
namespace {

template <typename Names, typename Enum>
std::string nameOf(const Names& names, Enum value) {
    const auto index = static_cast<uint32_t>(value);
    return std::string(index < names.size() ? names[index] : "unknown");
}

}  // namespace

std::string GetMireloFeatureTypeName(MireloFeatureType type) { return nameOf(kFeatureTypeNames, type); }
std::string GetMireloPixelType(MireloPixelType type) { return nameOf(kPixelTypeNames, type); }

TensorDescriptor::TensorDescriptor() = default;

TensorDescriptor::TensorDescriptor(const TensorShape& shape, DataType dataType)
    : TensorDescriptor(std::string(), shape, false, dataType) {}

TensorDescriptor::TensorDescriptor(std::string name, const TensorShape& shape, bool flag, DataType dataType)
    : name_(std::move(name)), shape_(shape), flag_(flag), dataType_(dataType) {}

TensorShape TensorDescriptor::shape() const { return shape_; }
DataType TensorDescriptor::tensorType() const { return dataType_; }

bool TensorDescriptor::variableShape() const {
    for (uint64_t i = 0; i < shape_.dimension(); ++i) {
        if (shape_[i] == -1) return true;
    }
    return false;
}

ImageDescriptor::ImageDescriptor() = default;

ImageDescriptor::ImageDescriptor(uint32_t height, uint32_t width, MireloPixelType pixelType)
    : height_(height), width_(width), pixelType_(pixelType) {}

uint32_t ImageDescriptor::height() const { return height_; }
uint32_t ImageDescriptor::width() const { return width_; }
MireloPixelType ImageDescriptor::pixelType() const { return pixelType_; }

ModelFeatureDescriptor::ModelFeatureDescriptor() = default;

ModelFeatureDescriptor::ModelFeatureDescriptor(MireloFeatureType type) : type_(type) {}

ModelFeatureDescriptor::ModelFeatureDescriptor(MireloFeatureType type, ImageDescriptor imageDescriptor)
    : ModelFeatureDescriptor(type, false, std::string(), std::string(), imageDescriptor) {}

ModelFeatureDescriptor::ModelFeatureDescriptor(MireloFeatureType type, TensorDescriptor tensorDescriptor)
    : ModelFeatureDescriptor(type, false, std::string(), std::string(), std::move(tensorDescriptor)) {}

ModelFeatureDescriptor::ModelFeatureDescriptor(MireloFeatureType type, bool required, std::string name,
                                               std::string description, ImageDescriptor imageDescriptor)
    : type_(type),
      required_(required),
      name_(std::move(name)),
      description_(std::move(description)),
      imageDescriptor_(imageDescriptor) {}

ModelFeatureDescriptor::ModelFeatureDescriptor(MireloFeatureType type, bool required, std::string name,
                                               std::string description, TensorDescriptor tensorDescriptor)
    : type_(type),
      required_(required),
      name_(std::move(name)),
      description_(std::move(description)),
      tensorDescriptor_(std::move(tensorDescriptor)) {}

std::string ModelFeatureDescriptor::name() const { return name_; }
std::string ModelFeatureDescriptor::description() const { return description_; }
MireloFeatureType ModelFeatureDescriptor::type() const { return type_; }
bool ModelFeatureDescriptor::required() const { return required_; }
const TensorDescriptor& ModelFeatureDescriptor::tensorDescriptor() const { return tensorDescriptor_; }

}  // namespace TarnoMirelo
