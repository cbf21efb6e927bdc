#include <TarnoMirelo/manifest.h>

#include <stdexcept>

namespace TarnoMirelo {
namespace {

// As the map's `at`, whose text differs from one standard library to another.
template <typename Targets>
auto& requiredTarget(Targets& targets, MireloModelType type) {
    const auto found = targets.find(type);
    if (found == targets.end()) throw std::out_of_range("invalid unordered_map<K, T> key");
    return found->second;
}

}  // namespace

ModelMetadata::ModelMetadata() = default;

ModelMetadata::ModelMetadata(const std::string& id, const std::string& sdkVersion, const std::string& description,
                             const std::string& name, int version, const std::string& author, const Filepath& rootDir,
                             const Targets& targets, const std::string& scripts)
    : id_(id),
      sdkVersion_(sdkVersion),
      description_(description),
      name_(name),
      version_(version),
      author_(author),
      rootDir_(rootDir),
      targets_(targets),
      scripts_(scripts) {}

ModelMetadata::ModelMetadata(const ModelMetadata& other) = default;
ModelMetadata& ModelMetadata::operator=(const ModelMetadata& other) = default;
ModelMetadata::~ModelMetadata() = default;

MireloStatus ModelMetadata::load(const Filepath& manifest) {
    try {
        return loadInternal(manifest);
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

MireloStatus ModelMetadata::validate(MireloModelType type) const {
    const auto found = targets_.find(type);
    if (found == targets_.end() || type == MireloModelType::Undefined) return {MODEL_METADATA_ERROR, ""};
    const ModelTarget& target = found->second;
    if (target.inputs.empty()) return {MODEL_METADATA_ERROR, "There must be at least one defined input name"};
    if (target.outputs.empty()) return {MODEL_METADATA_ERROR, "There must be at least one defined output name"};
    if (target.inputs.front().tensorDescriptor().shape().size() < 1) {
        return {MODEL_METADATA_ERROR, "The input shape has to be defined"};
    }
    if (target.modelType == MireloModelType::OpenVino) return {MODEL_METADATA_ERROR, "OpenVino is no longer supported"};
    return {SUCCESS, ""};
}

std::tuple<MireloModelType, ModelTarget, Filepath> ModelMetadata::getModelCompoents(MireloModelType type) const {
    return {type, requiredTarget(targets_, type), rootDir_};
}

const ModelTarget& ModelMetadata::getTargetMetadata(const MireloModelType& type) { return targets_[type]; }

void ModelMetadata::SetEncryption(const MireloModelType& type, const Encryption& encryption) {
    ModelTarget& target = requiredTarget(targets_, type);
    if (target.components.empty()) throw ModelMetaDataException("No model component found");
    target.components.front().encryption = encryption;
}

const std::string& ModelMetadata::getId() const { return id_; }
void ModelMetadata::setId(const std::string& id) { id_ = id; }
const std::string& ModelMetadata::getSdkVersion() const { return sdkVersion_; }
void ModelMetadata::setSdkVersion(const std::string& sdkVersion) { sdkVersion_ = sdkVersion; }
const std::string& ModelMetadata::getDescription() const { return description_; }
void ModelMetadata::setDescription(const std::string& description) { description_ = description; }
const std::string& ModelMetadata::getName() const { return name_; }
void ModelMetadata::setName(const std::string& name) { name_ = name; }
int ModelMetadata::getVersion() const { return version_; }
void ModelMetadata::setVersion(int version) { version_ = version; }
const std::string& ModelMetadata::getAuthor() const { return author_; }
void ModelMetadata::setAuthor(const std::string& author) { author_ = author; }
const Filepath& ModelMetadata::getRootDir() const { return rootDir_; }
void ModelMetadata::setRootDir(const Filepath& rootDir) { rootDir_ = rootDir; }
const ModelMetadata::Targets& ModelMetadata::getTargets() const { return targets_; }
void ModelMetadata::setTargets(const Targets& targets) {
    if (&targets != &targets_) targets_ = Targets(targets);  // whole or not at all
}
const std::string& ModelMetadata::getScripts() const { return scripts_; }
void ModelMetadata::setScripts(const std::string& scripts) { scripts_ = scripts; }

}  // namespace TarnoMirelo
