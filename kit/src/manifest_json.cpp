// The targets of a manifest as JSON, by the rules of the core's loader, whose own reading stops at one target.

#include "manifest_json.h"

#include "manifest/raising_allocator.h"

#include <TarnoMirelo/kit/texts.h>

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

namespace TarnoMirelo::Kit {
namespace {

using Json =
    rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<RaisingAllocator>, RaisingAllocator>;
using JsonValue = Json::ValueType;

struct Key {
    const char* name;
    MireloModelType type;
};

constexpr Key kKeys[] = {{TargetKey::WinML, MireloModelType::WinML},
                         {TargetKey::CoreML, MireloModelType::CoreML},
                         {TargetKey::OpenVino, MireloModelType::OpenVino},
                         {TargetKey::TensorflowLite, MireloModelType::TFLite},
                         {TargetKey::TFJS, MireloModelType::TFJS}};

// The first member of that name, null where there is none or where it is of another kind than `is` asks for.
const JsonValue* find(const JsonValue& object, const char* name, bool (JsonValue::*is)() const) {
    for (const auto& member : object.GetObject()) {
        if (member.name != name) continue;
        return (member.value.*is)() ? &member.value : nullptr;
    }
    return nullptr;
}

// A text up to its first NUL, empty where there is none.
std::string textOf(const JsonValue& object, const char* name) {
    const JsonValue* const value = find(object, name, &JsonValue::IsString);
    return value == nullptr ? "" : value->GetString();
}

// The enumerator of that name among the first `count`, `otherwise` where there is none.
template <typename Enum, typename NameOf>
Enum enumeratorOf(const std::string& name, int first, int count, Enum otherwise, const NameOf& nameOf) {
    for (int i = first; i < count; ++i) {
        if (nameOf(static_cast<Enum>(i)) == name) return static_cast<Enum>(i);
    }
    return otherwise;
}

TensorDescriptor tensorOf(const JsonValue& feature) {
    const JsonValue* const tensor = find(feature, "tensor", &JsonValue::IsObject);
    if (tensor == nullptr) return {};
    std::vector<int64_t> dimensions;
    if (const JsonValue* const shape = find(*tensor, "shape", &JsonValue::IsArray)) {
        for (const JsonValue& each : shape->GetArray()) dimensions.push_back(each.IsInt() ? each.GetInt() : 0);
    }
    const auto nameOf = [](DataType type) { return toText(type); };
    return {TensorShape(dimensions), enumeratorOf(textOf(*tensor, "dataType"), static_cast<int>(DataType::Bool),
                                                  static_cast<int>(DataType::Double) + 1, DataType::Undefined, nameOf)};
}

uint32_t pixelsOf(const JsonValue& image, const char* name) {
    const JsonValue* const value = find(image, name, &JsonValue::IsUint);
    return value == nullptr ? 0 : value->GetUint();
}

ImageDescriptor imageOf(const JsonValue& feature) {
    const JsonValue* const image = find(feature, "image", &JsonValue::IsObject);
    if (image == nullptr) return {};
    return {pixelsOf(*image, "height"), pixelsOf(*image, "width"),
            enumeratorOf(textOf(*image, "pixelType"), 0, static_cast<int>(MireloPixelType::Undefined),
                         MireloPixelType::Undefined, GetMireloPixelType)};
}

ModelFeatureDescriptor featureOf(const JsonValue& feature) {
    const JsonValue* const flag = find(feature, "required", &JsonValue::IsBool);
    const bool required = flag == nullptr || flag->GetBool();
    const auto type = enumeratorOf(textOf(feature, "featureType"), 0, static_cast<int>(MireloFeatureType::Undefined),
                                   MireloFeatureType::Undefined, GetMireloFeatureTypeName);
    const std::string name = textOf(feature, "name");
    const std::string description = textOf(feature, "description");
    if (type == MireloFeatureType::Image) return {type, required, name, description, imageOf(feature)};
    return {type, required, name, description,
            type == MireloFeatureType::Tensor ? tensorOf(feature) : TensorDescriptor()};
}

void readFeatures(const JsonValue& target, const char* list, std::vector<ModelFeatureDescriptor>& features,
                  std::vector<std::string>& names) {
    const JsonValue* const elements = find(target, list, &JsonValue::IsArray);
    if (elements == nullptr) return;
    for (const JsonValue& element : elements->GetArray()) {
        if (!element.IsObject()) continue;
        features.push_back(featureOf(element));
        names.push_back(features.back().name());
    }
}

ModelTarget targetOf(const JsonValue& object, MireloModelType type) {
    ModelTarget target;
    target.modelType = type;
    if (const JsonValue* const components = find(object, "components", &JsonValue::IsArray)) {
        for (const JsonValue& element : components->GetArray()) {
            if (!element.IsObject()) continue;
            ModelComponent& component = target.components.emplace_back();
            component.name = textOf(element, "name");
            component.path = textOf(element, "path");
            component.type = textOf(element, "type");
        }
    }
    readFeatures(object, "inputs", target.inputs, target.inputNames);
    readFeatures(object, "outputs", target.outputs, target.outputNames);
    return target;
}

const JsonValue* anyOf(const JsonValue& object, const char* name) {
    const auto found = object.FindMember(name);
    return found == object.MemberEnd() ? nullptr : &found->value;
}

FileStatement statementOf(const JsonValue& component) {
    FileStatement statement;
    statement.name = textOf(component, "name");
    statement.path = textOf(component, "path");
    statement.kind = textOf(component, "type");
    if (const JsonValue* const size = anyOf(component, "size")) {
        statement.hasSize = true;
        if (size->IsUint64()) statement.size = size->GetUint64();
    }
    if (const JsonValue* const digest = anyOf(component, "sha256")) {
        statement.hasDigest = true;
        if (digest->IsString()) statement.digest.assign(digest->GetString(), digest->GetStringLength());
    }
    return statement;
}

// Calls `take` with each target that has a known key, and its type.
template <typename Take>
void forEachTarget(const Filepath& manifest, const Take& take) {
    // Without recursion: no depth of nesting exhausts the stack. What follows the root is not looked at.
    constexpr unsigned kFlags = rapidjson::kParseStopWhenDoneFlag | rapidjson::kParseIterativeFlag;
    uint64_t size = 0;
    const std::unique_ptr<char[]> text = FileUtils().readBinaryFileToBuffer(manifest, size);
    Json root;
    if (text != nullptr) {
        rapidjson::MemoryStream stream(text.get(), static_cast<size_t>(size));
        root.ParseStream<kFlags>(stream);
    }
    if (text == nullptr || root.HasParseError() || !root.IsObject()) {
        throw ModelMetaDataException("Failed to open metadata file at " + manifest.getPathString());
    }
    const JsonValue* const targets = find(root, "targets", &JsonValue::IsObject);
    if (targets == nullptr) return;
    for (const Key& key : kKeys) {
        if (const JsonValue* const target = find(*targets, key.name, &JsonValue::IsObject)) take(*target, key.type);
    }
}

}  // namespace

void readTargets(const Filepath& manifest, const std::function<void(ModelTarget target)>& take) {
    forEachTarget(manifest, [&take](const JsonValue& target, MireloModelType type) { take(targetOf(target, type)); });
}

std::vector<FileStatement> readStatements(const Filepath& manifest) {
    std::vector<FileStatement> statements;
    forEachTarget(manifest, [&statements](const JsonValue& target, MireloModelType /*type*/) {
        const JsonValue* const components = find(target, "components", &JsonValue::IsArray);
        if (components == nullptr) return;
        for (const JsonValue& element : components->GetArray()) {
            if (element.IsObject()) statements.push_back(statementOf(element));
        }
    });
    return statements;
}

}  // namespace TarnoMirelo::Kit
