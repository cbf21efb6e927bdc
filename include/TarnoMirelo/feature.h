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
    Bool = 0,       ///< a truth value, see `MireloFeatureBool`
    UInt8 = 1,      ///< an unsigned number of 8 bits, see `MireloFeatureUInt8`
    Int32 = 2,      ///< a signed number of 32 bits, see `MireloFeatureInt32`
    Int64 = 3,      ///< a signed number of 64 bits, see `MireloFeatureInt64`
    Double = 4,     ///< a floating-point number, see `MireloFeatureDouble`
    String = 5,     ///< a text, see `MireloFeatureString`
    Tensor = 6,     ///< a tensor, see `MireloFeatureTensor`
    Image = 7,      ///< an image, see `MireloFeatureImage`
    Undefined = 8,  ///< not known, as where a manifest has no such type
};

/// The pixel format of an image feature.
enum class MireloPixelType : int32_t {
    One = 0,        ///< a single channel
    BGR = 1,        ///< blue, green, red
    RGB = 2,        ///< red, green, blue
    RGBA = 3,       ///< red, green, blue, opacity
    BGRA = 4,       ///< blue, green, red, opacity
    Undefined = 5,  ///< not known
};

/// "bool", "uint8", "int32", "int64", "double", "string", "tensor" or "image"; "unknown" for every other value.
MIRELO_API std::string GetMireloFeatureTypeName(MireloFeatureType type);
/// "one", "BGR", "RGB", "RGBA" or "BGRA"; "unknown" for every other value.
MIRELO_API std::string GetMireloPixelType(MireloPixelType type);

/// The element type and shape of a tensor feature. A plain value.
class MIRELO_API TensorDescriptor {
 public:
    /// Element type `Undefined`, no dimensions.
    TensorDescriptor();
    /// @param shape  -1 for a dimension that is known at run time only
    TensorDescriptor(const TensorShape& shape, DataType dataType);
    /// @param name  stored, but no operation gives it back: a feature's name is its descriptor's
    /// @param flag  stored, but not used: `variableShape` looks at the shape
    TensorDescriptor(std::string name, const TensorShape& shape, bool flag, DataType dataType);

    /// A copy; a dimension of -1 is known at run time only.
    TensorShape shape() const;
    /// The type of the elements; `Undefined` where the manifest does not say.
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
    /// 0 by 0 pixels of format `Undefined`.
    ImageDescriptor();
    /// Height first, as in the shape of a tensor.
    ImageDescriptor(uint32_t height, uint32_t width, MireloPixelType pixelType);

    /// In pixels.
    uint32_t height() const;
    /// In pixels.
    uint32_t width() const;
    /// What a pixel is made of.
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
    /// @{

    /// @param type         not compared with the descriptor that follows
    /// @param required     whether a prediction needs a value for it
    /// @param name         by which batches and backends tell features apart
    /// @param description  for people
    ModelFeatureDescriptor(MireloFeatureType type, bool required, std::string name, std::string description,
                           ImageDescriptor imageDescriptor);
    ModelFeatureDescriptor(MireloFeatureType type, bool required, std::string name, std::string description,
                           TensorDescriptor tensorDescriptor);
    /// @}

    /// A copy of the name, by which batches and backends tell features apart.
    std::string name() const;
    /// A copy of the description, for people.
    std::string description() const;
    /// What kind of value it is.
    MireloFeatureType type() const;
    /// Whether a prediction needs a value for it; backends refuse predictions without a required input.
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

    /// @{

    /// The value as a bool, on a `MireloFeatureBool`. The reference is to the feature's own value: valid as long as the
    /// feature, and writing through it changes it. Raises `InvalidTypeException` on every other class.
    virtual bool& asBool();
    virtual const bool& asBool() const;
    /// @}

    /// @{

    /// The value as an unsigned number of 8 bits, on a `MireloFeatureUInt8`. All else is as for `asBool`.
    virtual const uint8_t& asUInt8() const;
    virtual uint8_t& asUInt8();
    /// @}

    /// @{

    /// The value as a signed number of 32 bits, on a `MireloFeatureInt32`. All else is as for `asBool`.
    virtual const int32_t& asInt32() const;
    virtual int32_t& asInt32();
    /// @}

    /// @{

    /// The value as a signed number of 64 bits, on a `MireloFeatureInt64`. All else is as for `asBool`.
    virtual const int64_t& asInt64() const;
    virtual int64_t& asInt64();
    /// @}

    /// @{

    /// The value as a floating-point number, on a `MireloFeatureDouble`. All else is as for `asBool`.
    virtual const double& asDouble() const;
    virtual double& asDouble();
    /// @}

    /// @{

    /// The text, on a `MireloFeatureString`. All else is as for `asBool`.
    virtual const std::string& asString() const;
    virtual std::string& asString();
    /// @}

    /// @{

    /// The tensor of a tensor feature, shared with it and not copied; null where the feature holds none. Raises
    /// `InvalidTypeException` on every feature of another kind.
    virtual std::shared_ptr<const ITensor> asTensor() const;
    virtual std::shared_ptr<ITensor> asTensor();
    /// @}

    /// @{

    /// The image of an image feature, shared with it and not copied; null where the feature holds none. Raises
    /// `InvalidTypeException` on every feature of another kind.
    virtual std::shared_ptr<const IImage> asImage() const;
    virtual std::shared_ptr<IImage> asImage();
    /// @}

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

/// A feature that holds a truth value.
class MIRELO_API MireloFeatureBool : public MireloFeature {
 public:
    /// False.
    explicit MireloFeatureBool(ModelFeatureDescriptor descriptor);
    /// @param value  the first one; `asBool` gives access to it
    MireloFeatureBool(ModelFeatureDescriptor descriptor, bool value);
    ~MireloFeatureBool() override;

    bool& asBool() override;
    const bool& asBool() const override;

 private:
    bool value_ = false;
};

/// A feature that holds an unsigned number of 8 bits.
class MIRELO_API MireloFeatureUInt8 : public MireloFeature {
 public:
    /// 0.
    explicit MireloFeatureUInt8(const ModelFeatureDescriptor& descriptor);
    /// @param value  the first one; `asUInt8` gives access to it
    MireloFeatureUInt8(const ModelFeatureDescriptor& descriptor, uint8_t value);
    ~MireloFeatureUInt8() override;

    const uint8_t& asUInt8() const override;
    uint8_t& asUInt8() override;

 private:
    uint8_t value_ = 0;
};

/// A feature that holds a signed number of 32 bits.
class MIRELO_API MireloFeatureInt32 : public MireloFeature {
 public:
    /// 0.
    explicit MireloFeatureInt32(ModelFeatureDescriptor descriptor);
    /// @param value  the first one; `asInt32` gives access to it
    MireloFeatureInt32(ModelFeatureDescriptor descriptor, int32_t value);
    ~MireloFeatureInt32() override;

    const int32_t& asInt32() const override;
    int32_t& asInt32() override;

 private:
    int32_t value_ = 0;
};

/// A feature that holds a signed number of 64 bits.
class MIRELO_API MireloFeatureInt64 : public MireloFeature {
 public:
    /// 0.
    explicit MireloFeatureInt64(ModelFeatureDescriptor descriptor);
    /// @param value  the first one; `asInt64` gives access to it
    MireloFeatureInt64(ModelFeatureDescriptor descriptor, int64_t value);
    ~MireloFeatureInt64() override;

    const int64_t& asInt64() const override;
    int64_t& asInt64() override;

 private:
    int64_t value_ = 0;
};

/// A feature that holds a floating-point number.
class MIRELO_API MireloFeatureDouble : public MireloFeature {
 public:
    /// 0.
    explicit MireloFeatureDouble(ModelFeatureDescriptor descriptor);
    /// @param value  the first one; `asDouble` gives access to it
    MireloFeatureDouble(ModelFeatureDescriptor descriptor, double value);
    ~MireloFeatureDouble() override;

    const double& asDouble() const override;
    double& asDouble() override;

 private:
    double value_ = 0.0;
};

/// A feature that holds a text.
class MIRELO_API MireloFeatureString : public MireloFeature {
 public:
    /// An empty text.
    explicit MireloFeatureString(ModelFeatureDescriptor descriptor);
    /// @param value  the first one, of any bytes; `asString` gives access to it
    MireloFeatureString(ModelFeatureDescriptor descriptor, std::string value);
    ~MireloFeatureString() override;

    const std::string& asString() const override;
    std::string& asString() override;

 private:
    std::string value_;
};

/// The base of tensor features: a backend or host that derives from it decides where the tensor comes from.
class MIRELO_API IMireloFeatureTensor : public MireloFeature {
 public:
    /// @param descriptor  of type `Tensor`, which is not checked
    explicit IMireloFeatureTensor(ModelFeatureDescriptor descriptor);
    ~IMireloFeatureTensor() override;

    std::shared_ptr<const ITensor> asTensor() const override = 0;
    std::shared_ptr<ITensor> asTensor() override = 0;
};

/// A feature that holds a tensor, which may be shared with other features.
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

/// The base of image features: a backend or host that derives from it decides where the image comes from.
class MIRELO_API IMireloFeatureImage : public MireloFeature {
 public:
    /// @param descriptor  of type `Image`, which is not checked
    explicit IMireloFeatureImage(ModelFeatureDescriptor descriptor);
    ~IMireloFeatureImage() override;

    std::shared_ptr<const IImage> asImage() const override = 0;
    std::shared_ptr<IImage> asImage() override = 0;
};

/// A feature that holds an image, which may be shared with other features.
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
    /// The rows, each with one feature for every name; shared with the batch, not copied.
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
    /// @{

    /// Shares what the other batch holds: no feature is copied. A batch that was moved from keeps its features.
    MireloBatch(const MireloBatch&) = default;
    MireloBatch& operator=(const MireloBatch&) = default;
    /// @}

    /// Whether a name repeats. Raises `InvalidArgumentsException` for a null pointer before the first repetition.
    static bool isBatch(const std::vector<std::shared_ptr<const MireloFeature>>& features);

    /// The batch row by row.
    MireloFeatureSet getFeatureSet() const;
    /// The batch input by input: for each descriptor, in the order given, the features of its name from the first row
    /// to the last. They are those of the batch, not copies: a change is seen by all that share them. Names that
    /// no descriptor has are left out.
    /// Raises `std::out_of_range` for a descriptor whose name is not in the batch, before the list is allocated.
    ///
    /// The spelling of the name is part of the interface: it stays.
    std::vector<std::shared_ptr<MireloFeature>> getSortedFetures(
        const std::vector<ModelFeatureDescriptor>& descriptors) const;

 private:
    std::shared_ptr<const FeatureGroups> groups_;
};

}  // namespace TarnoMirelo
