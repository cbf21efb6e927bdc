#pragma once

/// @file
/// A model's inputs and outputs: their descriptors, their values, and batches of values.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/tensor.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo {

/// What kind of value a feature is.
enum class MireloFeatureType : int32_t {
    Bool = 0,
    UInt8 = 1,
    Int32 = 2,
    Int64 = 3,
    Double = 4,
    String = 5,
    Tensor = 6,
    Image = 7,
    Undefined = 8,
};

/// The pixel format of an image feature.
enum class MireloPixelType : int32_t {
    One = 0,  ///< a single channel
    BGR = 1,
    RGB = 2,
    RGBA = 3,
    BGRA = 4,
    Undefined = 5,
};

/// "bool", "uint8", "int32", "int64", "double", "string", "tensor" or "image"; "unknown" for every other value.
MIRELO_API std::string GetMireloFeatureTypeName(MireloFeatureType type);
/// "one", "BGR", "RGB", "RGBA" or "BGRA"; "unknown" for every other value.
MIRELO_API std::string GetMireloPixelType(MireloPixelType type);

/// The element type and shape of a tensor feature. A plain value.
class MIRELO_API TensorDescriptor {
 public:
    TensorDescriptor();
    TensorDescriptor(const TensorShape& shape, DataType dataType);
    /// @param flag  stored, but not used: `variableShape` looks at the shape
    TensorDescriptor(std::string name, const TensorShape& shape, bool flag, DataType dataType);

    /// A copy; a dimension of -1 is known at run time only.
    TensorShape shape() const;
    DataType tensorType() const;
    /// Whether a dimension is -1.
    bool variableShape() const;

 private:
    std::string name_;
    TensorShape shape_;
    [[maybe_unused]] bool flag_ = false;
    DataType dataType_ = DataType::Undefined;
};

/// The geometry, in pixels, and format of an image feature. A plain value.
class MIRELO_API ImageDescriptor {
 public:
    ImageDescriptor();
    ImageDescriptor(uint32_t height, uint32_t width, MireloPixelType pixelType);

    uint32_t height() const;
    uint32_t width() const;
    MireloPixelType pixelType() const;

 private:
    uint32_t height_ = 0;
    uint32_t width_ = 0;
    MireloPixelType pixelType_ = MireloPixelType::Undefined;
};

/// What a manifest says of one input or output. A plain value.
class MIRELO_API ModelFeatureDescriptor {
 public:
    /// Type `Undefined`, required.
    ModelFeatureDescriptor();
    /// Required.
    explicit ModelFeatureDescriptor(MireloFeatureType type);
    /// Not required.
    ModelFeatureDescriptor(MireloFeatureType type, ImageDescriptor imageDescriptor);
    /// Not required.
    ModelFeatureDescriptor(MireloFeatureType type, TensorDescriptor tensorDescriptor);
    ModelFeatureDescriptor(MireloFeatureType type, bool required, std::string name, std::string description,
                           ImageDescriptor imageDescriptor);
    ModelFeatureDescriptor(MireloFeatureType type, bool required, std::string name, std::string description,
                           TensorDescriptor tensorDescriptor);

    /// A copy of the name, by which batches and backends tell features apart.
    std::string name() const;
    /// A copy of the description, for people.
    std::string description() const;
    MireloFeatureType type() const;
    bool required() const;
    /// Meaningful for tensor features; valid as long as this descriptor.
    const TensorDescriptor& tensorDescriptor() const;

 private:
    friend class FeatureGroups;  // reads names without a copy

    MireloFeatureType type_ = MireloFeatureType::Undefined;
    bool required_ = true;
    std::string name_;
    std::string description_;
    TensorDescriptor tensorDescriptor_;
    ImageDescriptor imageDescriptor_;
};

/// An image of the host's or the backend's making; they define it, this library only passes it on.
class IImage;

/// One input or output value together with its descriptor.
///
/// Features are held by `std::shared_ptr`. The class of a feature says which pair of typed accessors answers; every
/// other raises `InvalidTypeException`. The descriptor says what `type` answers; nobody compares the two.
///
/// A feature is not locked: while its value is being changed, no other thread may read it.
class MIRELO_API MireloFeature : public std::enable_shared_from_this<MireloFeature> {
 public:
    /// A feature without a value.
    explicit MireloFeature(ModelFeatureDescriptor descriptor);
    MireloFeature(const MireloFeature&) = delete;
    MireloFeature& operator=(const MireloFeature&) = delete;
    virtual ~MireloFeature();

    // References are to the feature's own value: valid as long as the feature, and writing through them changes it.
    virtual bool& asBool();
    virtual const bool& asBool() const;
    virtual const uint8_t& asUInt8() const;
    virtual uint8_t& asUInt8();
    virtual const int32_t& asInt32() const;
    virtual int32_t& asInt32();
    virtual const int64_t& asInt64() const;
    virtual int64_t& asInt64();
    virtual const double& asDouble() const;
    virtual double& asDouble();
    virtual const std::string& asString() const;
    virtual std::string& asString();
    // Tensors and images are shared, not copied; null where the feature holds none.
    virtual std::shared_ptr<const ITensor> asTensor() const;
    virtual std::shared_ptr<ITensor> asTensor();
    virtual std::shared_ptr<const IImage> asImage() const;
    virtual std::shared_ptr<IImage> asImage();
    /// Whether the feature holds a tensor whose shape is fixed with `allocateShape`.
    virtual bool hasVariableShape() const;

    /// Valid as long as the feature.
    const ModelFeatureDescriptor& featureDescriptor() const;
    /// The descriptor's type.
    MireloFeatureType type() const;

 private:
    friend class FeatureGroups;  // reads names without a copy

    ModelFeatureDescriptor descriptor_;
};

class MIRELO_API MireloFeatureBool : public MireloFeature {
 public:
    explicit MireloFeatureBool(ModelFeatureDescriptor descriptor);
    MireloFeatureBool(ModelFeatureDescriptor descriptor, bool value);
    ~MireloFeatureBool() override;

    bool& asBool() override;
    const bool& asBool() const override;

 private:
    bool value_ = false;
};

class MIRELO_API MireloFeatureUInt8 : public MireloFeature {
 public:
    explicit MireloFeatureUInt8(const ModelFeatureDescriptor& descriptor);
    MireloFeatureUInt8(const ModelFeatureDescriptor& descriptor, uint8_t value);
    ~MireloFeatureUInt8() override;

    const uint8_t& asUInt8() const override;
    uint8_t& asUInt8() override;

 private:
    uint8_t value_ = 0;
};

class MIRELO_API MireloFeatureInt32 : public MireloFeature {
 public:
    explicit MireloFeatureInt32(ModelFeatureDescriptor descriptor);
    MireloFeatureInt32(ModelFeatureDescriptor descriptor, int32_t value);
    ~MireloFeatureInt32() override;

    const int32_t& asInt32() const override;
    int32_t& asInt32() override;

 private:
    int32_t value_ = 0;
};

class MIRELO_API MireloFeatureInt64 : public MireloFeature {
 public:
    explicit MireloFeatureInt64(ModelFeatureDescriptor descriptor);
    MireloFeatureInt64(ModelFeatureDescriptor descriptor, int64_t value);
    ~MireloFeatureInt64() override;

    const int64_t& asInt64() const override;
    int64_t& asInt64() override;

 private:
    int64_t value_ = 0;
};

class MIRELO_API MireloFeatureDouble : public MireloFeature {
 public:
    explicit MireloFeatureDouble(ModelFeatureDescriptor descriptor);
    MireloFeatureDouble(ModelFeatureDescriptor descriptor, double value);
    ~MireloFeatureDouble() override;

    const double& asDouble() const override;
    double& asDouble() override;

 private:
    double value_ = 0.0;
};

class MIRELO_API MireloFeatureString : public MireloFeature {
 public:
    explicit MireloFeatureString(ModelFeatureDescriptor descriptor);
    MireloFeatureString(ModelFeatureDescriptor descriptor, std::string value);
    ~MireloFeatureString() override;

    const std::string& asString() const override;
    std::string& asString() override;

 private:
    std::string value_;
};

/// What every tensor feature answers.
class MIRELO_API IMireloFeatureTensor : public MireloFeature {
 public:
    explicit IMireloFeatureTensor(ModelFeatureDescriptor descriptor);
    ~IMireloFeatureTensor() override;

    std::shared_ptr<const ITensor> asTensor() const override = 0;
    std::shared_ptr<ITensor> asTensor() override = 0;
};

class MIRELO_API MireloFeatureTensor : public IMireloFeatureTensor {
 public:
    /// A new tensor of the descriptor's shape: a `VariableTensor` without a buffer where a dimension is -1, else a
    /// zeroed `Tensor`, whose allocation may raise as its constructor says.
    explicit MireloFeatureTensor(const ModelFeatureDescriptor& descriptor);
    /// @param tensor  shared with the feature; with null, `asTensor` is null and `hasVariableShape` false
    MireloFeatureTensor(ModelFeatureDescriptor descriptor, std::shared_ptr<ITensor> tensor);
    ~MireloFeatureTensor() override;

    std::shared_ptr<const ITensor> asTensor() const override;
    std::shared_ptr<ITensor> asTensor() override;
    bool hasVariableShape() const override;

 private:
    std::shared_ptr<ITensor> tensor_;
};

/// What every image feature answers.
class MIRELO_API IMireloFeatureImage : public MireloFeature {
 public:
    explicit IMireloFeatureImage(ModelFeatureDescriptor descriptor);
    ~IMireloFeatureImage() override;

    std::shared_ptr<const IImage> asImage() const override = 0;
    std::shared_ptr<IImage> asImage() override = 0;
};

class MIRELO_API MireloFeatureImage : public IMireloFeatureImage {
 public:
    /// No image.
    explicit MireloFeatureImage(const ModelFeatureDescriptor& descriptor);
    /// @param image  shared with the feature
    MireloFeatureImage(ModelFeatureDescriptor descriptor, std::shared_ptr<IImage> image);
    ~MireloFeatureImage() override;

    std::shared_ptr<const IImage> asImage() const override;
    std::shared_ptr<IImage> asImage() override;

 private:
    std::shared_ptr<IImage> image_;
};

/// The rows of a batch. Row i holds the i-th feature of every name; the order of the names is the same in all rows.
struct MireloFeatureSet {
    std::vector<std::vector<std::shared_ptr<const MireloFeature>>> features;
};

/// What a batch holds; internal.
class FeatureGroups;

/// A flat list of input features in which names repeat, grouped by name: several values for each input of a model.
///
/// A batch does not change once it is built, so several threads may read one, and copies share what they hold. It
/// shares the features.
class MIRELO_API MireloBatch {
 public:
    /// @param features  no null pointers; the n-th feature of a name belongs to row n
    /// Raises `Exception` with `INVALID_TYPE` when one name has more features than another, `InvalidArgumentsException`
    /// for a null pointer.
    explicit MireloBatch(std::vector<std::shared_ptr<const MireloFeature>> features);
    // No moves: no batch is ever without its features.
    MireloBatch(const MireloBatch&) = default;
    MireloBatch& operator=(const MireloBatch&) = default;

    /// Whether a name repeats. Raises `InvalidArgumentsException` for a null pointer before the first repetition.
    static bool isBatch(const std::vector<std::shared_ptr<const MireloFeature>>& features);

    /// The batch row by row.
    MireloFeatureSet getFeatureSet() const;
    /// The batch input by input: for each descriptor, in the order given, the features of its name from the first row
    /// to the last. They are those of the batch, not copies: a change is seen by all that share them. Names that
    /// no descriptor has are left out.
    /// Raises `std::out_of_range` for a descriptor whose name is not in the batch, before the list is allocated.
    std::vector<std::shared_ptr<MireloFeature>> getSortedFetures(
        const std::vector<ModelFeatureDescriptor>& descriptors) const;

 private:
    std::shared_ptr<const FeatureGroups> groups_;
};

}  // namespace TarnoMirelo
