#include <TarnoMirelo/feature.h>

#include <utility>

namespace TarnoMirelo {
namespace {

[[noreturn]] void refuse(const char* requestedKind, MireloFeatureType type) {
    throw InvalidTypeException(std::string("Attempt to interpret a feature as ") + requestedKind +
                               " while the feature's type is " + GetMireloFeatureTypeName(type));
}

std::shared_ptr<ITensor> makeTensor(const TensorDescriptor& descriptor) {
    if (descriptor.variableShape()) {
        return std::make_shared<VariableTensor>(descriptor.tensorType(), descriptor.shape());
    }
    return std::make_shared<Tensor>(descriptor.tensorType(), descriptor.shape());
}

}  // namespace

MireloFeature::MireloFeature(ModelFeatureDescriptor descriptor) : descriptor_(std::move(descriptor)) {}
MireloFeature::~MireloFeature() = default;

bool& MireloFeature::asBool() { refuse("bool", type()); }
const bool& MireloFeature::asBool() const { refuse("bool", type()); }
const uint8_t& MireloFeature::asUInt8() const { refuse("unit8", type()); }
uint8_t& MireloFeature::asUInt8() { refuse("unit8", type()); }
const int32_t& MireloFeature::asInt32() const { refuse("int32", type()); }
int32_t& MireloFeature::asInt32() { refuse("int32", type()); }
const int64_t& MireloFeature::asInt64() const { refuse("int64", type()); }
int64_t& MireloFeature::asInt64() { refuse("int64", type()); }
const double& MireloFeature::asDouble() const { refuse("double", type()); }
double& MireloFeature::asDouble() { refuse("double", type()); }
const std::string& MireloFeature::asString() const { refuse("string", type()); }
std::string& MireloFeature::asString() { refuse("string", type()); }
std::shared_ptr<const ITensor> MireloFeature::asTensor() const { refuse("tensor", type()); }
std::shared_ptr<ITensor> MireloFeature::asTensor() { refuse("tensor", type()); }
std::shared_ptr<const IImage> MireloFeature::asImage() const { refuse("video frame", type()); }
std::shared_ptr<IImage> MireloFeature::asImage() { refuse("video frame", type()); }
bool MireloFeature::hasVariableShape() const { return false; }

const ModelFeatureDescriptor& MireloFeature::featureDescriptor() const { return descriptor_; }
MireloFeatureType MireloFeature::type() const { return descriptor_.type(); }

MireloFeatureBool::MireloFeatureBool(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
MireloFeatureBool::MireloFeatureBool(ModelFeatureDescriptor descriptor, bool value)
    : MireloFeature(std::move(descriptor)), value_(value) {}
MireloFeatureBool::~MireloFeatureBool() = default;
const bool& MireloFeatureBool::asBool() const { return value_; }
bool& MireloFeatureBool::asBool() { return value_; }

MireloFeatureUInt8::MireloFeatureUInt8(const ModelFeatureDescriptor& descriptor) : MireloFeature(descriptor) {}
MireloFeatureUInt8::MireloFeatureUInt8(const ModelFeatureDescriptor& descriptor, uint8_t value)
    : MireloFeature(descriptor), value_(value) {}
MireloFeatureUInt8::~MireloFeatureUInt8() = default;
const uint8_t& MireloFeatureUInt8::asUInt8() const { return value_; }
uint8_t& MireloFeatureUInt8::asUInt8() { return value_; }

MireloFeatureInt32::MireloFeatureInt32(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
MireloFeatureInt32::MireloFeatureInt32(ModelFeatureDescriptor descriptor, int32_t value)
    : MireloFeature(std::move(descriptor)), value_(value) {}
MireloFeatureInt32::~MireloFeatureInt32() = default;
const int32_t& MireloFeatureInt32::asInt32() const { return value_; }
int32_t& MireloFeatureInt32::asInt32() { return value_; }

MireloFeatureInt64::MireloFeatureInt64(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
MireloFeatureInt64::MireloFeatureInt64(ModelFeatureDescriptor descriptor, int64_t value)
    : MireloFeature(std::move(descriptor)), value_(value) {}
MireloFeatureInt64::~MireloFeatureInt64() = default;
const int64_t& MireloFeatureInt64::asInt64() const { return value_; }
int64_t& MireloFeatureInt64::asInt64() { return value_; }

MireloFeatureDouble::MireloFeatureDouble(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
MireloFeatureDouble::MireloFeatureDouble(ModelFeatureDescriptor descriptor, double value)
    : MireloFeature(std::move(descriptor)), value_(value) {}
MireloFeatureDouble::~MireloFeatureDouble() = default;
const double& MireloFeatureDouble::asDouble() const { return value_; }
double& MireloFeatureDouble::asDouble() { return value_; }

MireloFeatureString::MireloFeatureString(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
MireloFeatureString::MireloFeatureString(ModelFeatureDescriptor descriptor, std::string value)
    : MireloFeature(std::move(descriptor)), value_(std::move(value)) {}
MireloFeatureString::~MireloFeatureString() = default;
const std::string& MireloFeatureString::asString() const { return value_; }
std::string& MireloFeatureString::asString() { return value_; }

IMireloFeatureTensor::IMireloFeatureTensor(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
IMireloFeatureTensor::~IMireloFeatureTensor() = default;

MireloFeatureTensor::MireloFeatureTensor(const ModelFeatureDescriptor& descriptor)
    : MireloFeatureTensor(descriptor, makeTensor(descriptor.tensorDescriptor())) {}
MireloFeatureTensor::MireloFeatureTensor(ModelFeatureDescriptor descriptor, std::shared_ptr<ITensor> tensor)
    : IMireloFeatureTensor(std::move(descriptor)), tensor_(std::move(tensor)) {}
MireloFeatureTensor::~MireloFeatureTensor() = default;
std::shared_ptr<const ITensor> MireloFeatureTensor::asTensor() const { return tensor_; }
std::shared_ptr<ITensor> MireloFeatureTensor::asTensor() { return tensor_; }
bool MireloFeatureTensor::hasVariableShape() const { return tensor_ != nullptr && tensor_->hasVariableShape(); }

IMireloFeatureImage::IMireloFeatureImage(ModelFeatureDescriptor descriptor) : MireloFeature(std::move(descriptor)) {}
IMireloFeatureImage::~IMireloFeatureImage() = default;

MireloFeatureImage::MireloFeatureImage(const ModelFeatureDescriptor& descriptor) : IMireloFeatureImage(descriptor) {}
MireloFeatureImage::MireloFeatureImage(ModelFeatureDescriptor descriptor, std::shared_ptr<IImage> image)
    : IMireloFeatureImage(std::move(descriptor)), image_(std::move(image)) {}
MireloFeatureImage::~MireloFeatureImage() = default;
std::shared_ptr<const IImage> MireloFeatureImage::asImage() const { return image_; }
std::shared_ptr<IImage> MireloFeatureImage::asImage() { return image_; }

}  // namespace TarnoMirelo
