// The manifest as JSON: reading the file, and what each member means.

#include "feature/feature_names.h"
#include "files/platform.h"
#include "manifest/raising_allocator.h"
#include "tensor/data_type.h"

#include <TarnoMirelo/manifest.h>

#include <rapidjson/document.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace TarnoMirelo {
namespace {

using Json =
    rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<RaisingAllocator>, RaisingAllocator>;
using JsonValue = Json::ValueType;

// The text of a file and a NUL, at which the parser stops; null where the file can't be read.
std::unique_ptr<char[]> readWhole(const Filepath& path) {
    Platform::InputFile file(path.c_str(), Platform::PathText::Wide);
    const std::optional<uint64_t> size = file.size();
    if (!size) return nullptr;
    std::unique_ptr<char[]> text(new char[*size + 1]);
    const uint64_t read = file.read(text.get(), *size);
    std::fill(text.get() + read, text.get() + *size + 1, '\0');
    return text;
}

// Parses the object at the text's start and ignores what follows. Without recursion, so that no depth of nesting
// exhausts the stack, and without RapidJSON's encoded streams, so that a byte-order mark is an error. In place: the
// object's strings stay in the text, which is changed.
bool parseObject(Json& json, char* text) {
    constexpr unsigned kFlags =
        rapidjson::kParseStopWhenDoneFlag | rapidjson::kParseIterativeFlag | rapidjson::kParseInsituFlag;
    rapidjson::InsituStringStream stream(text);
    json.ParseStream<kFlags>(stream);
    return !json.HasParseError() && json.IsObject();
}

// The name of a member that is looked for. Its length is known to the compiler, which can then compare without a call.
template <size_t size>
using Name = const char (&)[size];

// The first member of that name, null where there is none.
template <size_t size>
const JsonValue* findMember(const JsonValue& object, Name<size> name) {
    for (const auto& member : object.GetObject()) {
        const bool same =
            member.name.GetStringLength() == size - 1 && std::memcmp(member.name.GetString(), name, size - 1) == 0;
        if (same) return &member.value;
    }
    return nullptr;
}

template <size_t size>
const JsonValue* findObject(const JsonValue& object, Name<size> name) {
    const JsonValue* const value = findMember(object, name);
    return value != nullptr && value->IsObject() ? value : nullptr;
}

template <size_t size>
const JsonValue* findArray(const JsonValue& object, Name<size> name) {
    const JsonValue* const value = findMember(object, name);
    return value != nullptr && value->IsArray() ? value : nullptr;
}

// A text up to its first NUL, null where there is none.
template <size_t size>
const char* findText(const JsonValue& object, Name<size> name) {
    const JsonValue* const value = findMember(object, name);
    return value != nullptr && value->IsString() ? value->GetString() : nullptr;
}

// Likewise, empty where there is none.
template <size_t size>
const char* textOf(const JsonValue& object, Name<size> name) {
    const char* const text = findText(object, name);
    return text == nullptr ? "" : text;
}

template <size_t size>
void readText(const JsonValue& object, Name<size> name, std::string& into) {
    if (const char* const text = findText(object, name)) into = text;
}

// The enumerator whose text is found under that name; `otherwise` for any other text or none.
template <typename Enum, typename Names, size_t size>
Enum readEnumerator(const JsonValue& object, Name<size> name, const Names& names, Enum otherwise) {
    const char* const text = findText(object, name);
    if (text == nullptr) return otherwise;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == text) return static_cast<Enum>(i);
    }
    return otherwise;
}

// Stores the dimensions in `shape`, whose memory is reused from one feature to the next.
void readShape(const JsonValue& tensor, TensorShape& shape) {
    const JsonValue* const elements = findArray(tensor, "shape");
    const size_t rank = elements == nullptr ? 0 : elements->Size();
    if (shape.dimension() != rank) shape = std::vector<int64_t>(rank);
    // No model has a dimension of 0, so `validate` refuses the target.
    const auto dimensionOf = [](const JsonValue& element) { return element.IsInt() ? element.GetInt() : 0; };
    if (rank != 0) std::transform(elements->Begin(), elements->End(), shape.data(), dimensionOf);
}

TensorDescriptor readTensorDescriptor(const JsonValue& feature, TensorShape& shape) {
    const JsonValue* const tensor = findObject(feature, "tensor");
    if (tensor == nullptr) return {};
    readShape(*tensor, shape);
    return {shape, findDataType(textOf(*tensor, "dataType")).value_or(DataType::Undefined)};
}

template <size_t size>
uint32_t readPixels(const JsonValue& image, Name<size> name) {
    const JsonValue* const value = findMember(image, name);
    return value != nullptr && value->IsUint() ? value->GetUint() : 0;
}

ImageDescriptor readImageDescriptor(const JsonValue& feature) {
    const JsonValue* const image = findObject(feature, "image");
    if (image == nullptr) return {};
    return {readPixels(*image, "height"), readPixels(*image, "width"),
            readEnumerator(*image, "pixelType", kPixelTypeNames, MireloPixelType::Undefined)};
}

// Reads the features of a list, with one shape's memory for all.
class FeatureReader {
 public:
    FeatureReader(std::vector<ModelFeatureDescriptor>& features, std::vector<std::string>& names)
        : features_(features), names_(names) {}

    template <size_t size>
    void read(const JsonValue& target, Name<size> list) {
        const JsonValue* const elements = findArray(target, list);
        if (elements == nullptr) return;
        features_.reserve(elements->Size());
        names_.reserve(elements->Size());
        for (const JsonValue& element : elements->GetArray()) {
            if (element.IsObject()) readFeature(element);
        }
    }

 private:
    void readFeature(const JsonValue& feature) {
        const char* const name = textOf(feature, "name");
        const char* const description = textOf(feature, "description");
        names_.emplace_back(name);
        const JsonValue* const flag = findMember(feature, "required");
        const bool required = flag == nullptr || !flag->IsBool() || flag->GetBool();
        const auto type = readEnumerator(feature, "featureType", kFeatureTypeNames, MireloFeatureType::Undefined);
        if (type == MireloFeatureType::Image) {
            features_.emplace_back(type, required, name, description, readImageDescriptor(feature));
        } else {
            features_.emplace_back(
                type, required, name, description,
                type == MireloFeatureType::Tensor ? readTensorDescriptor(feature, shape_) : TensorDescriptor());
        }
    }

    std::vector<ModelFeatureDescriptor>& features_;
    std::vector<std::string>& names_;
    TensorShape shape_;
};

// "encryption" is not read: the host sets the key later.
ModelComponent readComponent(const JsonValue& object) {
    ModelComponent component;
    readText(object, "name", component.name);
    readText(object, "path", component.path);
    readText(object, "type", component.type);
    return component;
}

ModelTarget readTarget(const JsonValue& object, MireloModelType type) {
    ModelTarget target;
    target.modelType = type;
    if (const JsonValue* const components = findArray(object, "components")) {
        target.components.reserve(components->Size());
        for (const JsonValue& element : components->GetArray()) {
            if (element.IsObject()) target.components.push_back(readComponent(element));
        }
    }
    FeatureReader(target.inputs, target.inputNames).read(object, "inputs");
    FeatureReader(target.outputs, target.outputNames).read(object, "outputs");
    return target;
}

}  // namespace

MireloStatus ModelMetadata::loadInternal(const Filepath& manifest) {
    const std::unique_ptr<char[]> text = readWhole(manifest);
    Json root;
    if (text == nullptr || !parseObject(root, text.get())) {
        throw ModelMetaDataException("Failed to open metadata file at " + manifest.getPathString());
    }
    rootDir_ = manifest.parent_path();
    readText(root, "id", id_);
    readText(root, "name", name_);
    readText(root, "author", author_);
    readText(root, "description", description_);
    readText(root, "sdkVersion", sdkVersion_);
    if (const JsonValue* const version = findMember(root, "version"); version != nullptr && version->IsInt()) {
        version_ = version->GetInt();
    }
    const JsonValue* const targets = findMember(root, "targets");
    if (targets == nullptr) throw ModelMetaDataException("No target found in root of manifest file");
    if (!targets->IsObject()) return {SUCCESS, ""};
    if (const JsonValue* const target = findObject(*targets, "WinML")) {
        // A target that is there stays: the host may have changed it.
        targets_.try_emplace(MireloModelType::WinML, readTarget(*target, MireloModelType::WinML));
    }
    return {SUCCESS, ""};
}

}  // namespace TarnoMirelo
