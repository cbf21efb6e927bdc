#pragma once

/// @file
/// The manifest of a packaged model: its loader, and what it says of the model for each backend.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/files.h>
#include <TarnoMirelo/status.h>

#include <array>
#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace TarnoMirelo {

/// The kind of backend that a model or a target is for.
enum class MireloModelType : uint64_t {
    Undefined = 0,     ///< none chosen yet; no target is of it
    CoreML = 1,        ///< Core ML models
    WinML = 2,         ///< ONNX networks: the one target that `ModelMetadata::load` reads, which both backends here run
    OpenVino = 4,      ///< no longer supported: `ModelMetadata::validate` refuses it
    TFLite = 8,        ///< TensorFlow Lite models
    OnnxRuntime = 16,  ///< a device of ONNX Runtime; no manifest has such a target, its networks are those of `WinML`
    TFJS = 32,         ///< TensorFlow.js models
};

/// "CoreML", "WinML", "OpenVino", "TF-Lite", "OnnxRuntime" or "tfjs"; "Undefined" for every other value.
MIRELO_API std::string ModelTypeToName(MireloModelType type);

/// The members of a manifest's "targets" object, one per kind of backend. The loader reads `WinML` only,
/// `Kit::AllTargetsMetadata` all of them.
namespace TargetKey {
inline constexpr const char* WinML = "WinML";                    ///< of `MireloModelType::WinML`
inline constexpr const char* CoreML = "CoreML";                  ///< of `MireloModelType::CoreML`
inline constexpr const char* OpenVino = "Openvino";              ///< of `MireloModelType::OpenVino`
inline constexpr const char* TensorflowLite = "TensorflowLite";  ///< of `MireloModelType::TFLite`
inline constexpr const char* TFJS = "TFJS";                      ///< of `MireloModelType::TFJS`
}  // namespace TargetKey

/// The kinds of component that backends know, for `ModelComponent::type`.
namespace ComponentKind {
inline constexpr const char* File = "file";                                  ///< a file in the package
inline constexpr const char* Dir = "dir";                                    ///< a directory in the package
inline constexpr const char* MemoryStream = "memory_stream";                 ///< content held in memory
inline constexpr const char* SecuredFile = "secured_file";                   ///< an encrypted file
inline constexpr const char* SecuredTar = "secured_tar";                     ///< an encrypted tar archive
inline constexpr const char* SecuredMemoryStream = "secured_memory_stream";  ///< encrypted content held in memory
}  // namespace ComponentKind

/// The key and padding that a backend decrypts a component with; this library only keeps them. A plain value.
class MIRELO_API Encryption {
 public:
    /// Kept for the backends, which give the values their meaning.
    enum class PaddingType : int32_t {
        None = 0,   ///< the plain bytes are as many as the encrypted ones
        PKCS7 = 1,  ///< the plain bytes are filled up to a whole block, as PKCS #7 says
    };

    /// An all-zero key, PKCS7.
    Encryption();
    /// That key and padding.
    /// @param key  copied; the caller's array still holds it and is the caller's to overwrite
    Encryption(std::array<unsigned char, 16>&& key, PaddingType paddingType);

    /// The 16 bytes of the key, inside this object.
    const unsigned char* getKey() const;
    /// Replaces the key; the padding stays.
    /// @param key  16 bytes, copied
    void setKey(const unsigned char* key);
    /// How the content was filled up before it was encrypted. The containers of the kit don't look at it.
    PaddingType getPaddingType() const;
    /// Replaces the padding; the key stays.
    void setPaddingType(PaddingType paddingType);

 private:
    std::array<unsigned char, 16> key_{};
    PaddingType paddingType_ = PaddingType::PKCS7;
};

/// One file, directory or block of memory that a model is made of. A plain value.
struct MIRELO_API ModelComponent {
    std::string name;             ///< for messages, and for the host to find the component by
    std::string path;             ///< as the manifest has it; backends look for it under the root directory
    Encryption encryption;        ///< the key of a protected component; the host sets it
    std::string type;             ///< one of `ComponentKind`, or whatever else the manifest says
    std::vector<uint8_t> buffer;  ///< the content, for kinds held in memory; the host fills it

    /// Replaces the key of `encryption`; the padding stays.
    /// @param key  16 bytes, copied
    void setCryptoKey(const unsigned char* key);
};

/// What makes up a model for one kind of backend. A plain value.
struct ModelTarget {
    MireloModelType modelType = MireloModelType::Undefined;  ///< the kind of backend
    std::vector<ModelComponent> components;                  ///< in the manifest's order
    std::vector<std::string> inputNames;                     ///< in the manifest's order
    std::vector<std::string> outputNames;                    ///< in the manifest's order
    std::vector<ModelFeatureDescriptor> inputs;              ///< in the order of `inputNames`
    std::vector<ModelFeatureDescriptor> outputs;             ///< in the order of `outputNames`
};

/// A packaged model as its manifest describes it, and the choice of the target to run.
///
/// A plain value: one object must not be loaded or changed from two threads at once, distinct ones are independent.
/// References that getters return are valid as long as the object, and follow its changes; those to a target, or into
/// the map of targets, until the next `setTargets` or assignment.
class MIRELO_API ModelMetadata {
 public:
    /// Targets by the kind of backend.
    using Targets = std::unordered_map<MireloModelType, ModelTarget>;

    /// Everything empty, version 0.
    ModelMetadata();
    /// The same as a default one with all setters called: nothing is checked, and no file looked at.
    /// @param targets  copied; a key that is not its target's `modelType` stays as it is
    ModelMetadata(const std::string& id, const std::string& sdkVersion, const std::string& description,
                  const std::string& name, int version, const std::string& author, const Filepath& rootDir,
                  const Targets& targets, const std::string& scripts);
    /// @{

    /// Copies everything, targets with their keys and buffers included.
    ModelMetadata(const ModelMetadata& other);
    ModelMetadata& operator=(const ModelMetadata& other);
    /// @}

    virtual ~ModelMetadata();

    /// Reads a manifest: JSON text in UTF-8 without a byte-order mark, whose root is an object; what follows the root
    /// is ignored. Members that are absent or of another type leave their field as it is, but an element of a shape
    /// that is no signed 32-bit integer becomes 0. The root directory becomes the manifest's parent path. The target
    /// under "WinML" is added unless there is one already. Never raises.
    /// @return `SUCCESS`, also when there is no "WinML" target, which `validate` then tells; or
    ///   - `MODEL_METADATA_ERROR` "Failed to open metadata file at " and the path, for a file that can't be read or is
    ///     no manifest, with nothing changed
    ///   - `MODEL_METADATA_ERROR` "No target found in root of manifest file", with everything else stored
    ///   - the status of any other exception, `UNKNOWN_ERROR` "bad conversion" for a path that is not UTF-8 among them;
    ///     what was read until then is stored, the target whole or not at all
    MireloStatus load(const Filepath& manifest);

    /// Whether the target of that type can be run: the first failure, or `SUCCESS`. Changes nothing, and raises
    /// nothing but `std::bad_alloc`.
    /// @return `MODEL_METADATA_ERROR` with
    ///   - an empty description: there is no such target, or the type is `Undefined`
    ///   - "There must be at least one defined input name"
    ///   - "There must be at least one defined output name"
    ///   - "The input shape has to be defined": the first input's tensor shape has an element count below 1
    ///   - "OpenVino is no longer supported"
    MireloStatus validate(MireloModelType type) const;
    /// What `MireloModel::load` takes: the type, a copy of its target, a copy of the root directory.
    /// Raises `std::out_of_range` "invalid unordered_map<K, T> key" when there is no such target.
    ///
    /// The spelling of the name is part of the interface: it stays.
    std::tuple<MireloModelType, ModelTarget, Filepath> getModelCompoents(MireloModelType type) const;
    /// The target of that type; where there is none, an empty one is added first.
    const ModelTarget& getTargetMetadata(const MireloModelType& type);
    /// Replaces key and padding of the target's first component; the others stay.
    /// Raises `std::out_of_range` as above, `ModelMetaDataException` "No model component found" when the target has no
    /// component.
    void SetEncryption(const MireloModelType& type, const Encryption& encryption);

    /// Tells the model from all others; "id" of the manifest.
    const std::string& getId() const;
    /// Replaces the id.
    void setId(const std::string& id);
    /// The version of this library that the package was made for, as text; "sdkVersion" of the manifest. Nothing
    /// compares it with the version at hand.
    const std::string& getSdkVersion() const;
    /// Replaces the library's version.
    void setSdkVersion(const std::string& sdkVersion);
    /// What the model does, for people; "description" of the manifest.
    const std::string& getDescription() const;
    /// Replaces the description.
    void setDescription(const std::string& description);
    /// The model's name, for people; "name" of the manifest. `MireloModel::getName` is another one, of the host's
    /// choice.
    const std::string& getName() const;
    /// Replaces the name.
    void setName(const std::string& name);
    /// The model's version, 0 until set; "version" of the manifest.
    int getVersion() const;
    /// Replaces the version.
    void setVersion(int version);
    /// Who made the model, for people; "author" of the manifest.
    const std::string& getAuthor() const;
    /// Replaces the author.
    void setAuthor(const std::string& author);
    /// After `load` the manifest's `parent_path`: its directory, if the path was joined with `Filepath::Separator`.
    const Filepath& getRootDir() const;
    /// Replaces the directory under which backends look for components.
    void setRootDir(const Filepath& rootDir);
    /// All targets.
    const Targets& getTargets() const;
    /// Replaces all targets by copies of these.
    void setTargets(const Targets& targets);
    /// For the host's own use; no manifest sets it.
    const std::string& getScripts() const;
    /// Replaces the scripts.
    void setScripts(const std::string& scripts);

 protected:
    /// Does what `load` says, except that failures are raised: `ModelMetaDataException` for the two that `load` reports
    /// as `MODEL_METADATA_ERROR`. `load` calls it once and turns into a status whatever it raises.
    virtual MireloStatus loadInternal(const Filepath& manifest);

 private:
    std::string id_;
    std::string sdkVersion_;
    std::string description_;
    std::string name_;
    int version_ = 0;
    std::string author_;
    Filepath rootDir_;
    Targets targets_;
    std::string scripts_;
};

}  // namespace TarnoMirelo
