#pragma once

#include <TarnoMirelo/kit/check.h>
#include <TarnoMirelo/kit/targets.h>
#include <TarnoMirelo/kit/texts.h>

#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo {

/// What a manifest's text says, beside what loading it stored. The text is read anew, by nothing that the check or the
/// loader uses.
class KeptFields {
 public:
    /// The key of a member that is not stored as it stands, as in "author"; empty where all are.
    std::string lost(std::string_view text, const ModelMetadata& metadata) {
        Document root;
        root.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
        if (root.HasParseError() || !root.IsObject()) return "the text";
        const Texts texts = {{"id", metadata.getId()},
                             {"name", metadata.getName()},
                             {"author", metadata.getAuthor()},
                             {"description", metadata.getDescription()},
                             {"sdkVersion", metadata.getSdkVersion()}};
        readMembers(root, texts, [&](const std::string& key, const Json& value) {
            if (key == "version") return value.IsInt() && value.GetInt() == metadata.getVersion();
            return key == "$schema" || (key == "targets" && keepsTargets(value, metadata));
        });
        return lost_;
    }

 private:
    using Document = rapidjson::Document;
    using Json = rapidjson::Value;
    using Texts = std::map<std::string, std::string>;

    // Members with a text are compared with what is stored; `isKept` judges the others.
    template <typename Judge>
    void readMembers(const Json& object, const Texts& stored, const Judge& isKept) {
        for (const auto& [name, value] : object.GetObject()) {
            const std::string key = name.GetString();
            const auto text = stored.find(key);
            const bool kept =
                text == stored.end()
                    ? isKept(key, value)
                    : value.IsString() && std::string_view(value.GetString(), value.GetStringLength()) == text->second;
            if (!kept) lost_ = key;
        }
    }

    bool keepsTargets(const Json& targets, const ModelMetadata& metadata) {
        const std::map<std::string, MireloModelType> types = {{"WinML", MireloModelType::WinML},
                                                              {"CoreML", MireloModelType::CoreML},
                                                              {"TensorflowLite", MireloModelType::TFLite},
                                                              {"TFJS", MireloModelType::TFJS}};
        readMembers(targets, {}, [&](const std::string& key, const Json& target) {
            const auto type = types.find(key);
            if (type == types.end()) return false;
            const ModelTarget& stored = metadata.getTargets().at(type->second);
            readMembers(target, {}, [&](const std::string& list, const Json& elements) {
                if (list == "components") return keepsComponents(elements, stored.components);
                return keepsFeatures(elements, list == "inputs" ? stored.inputs : stored.outputs);
            });
            return true;
        });
        return targets.MemberCount() == metadata.getTargets().size();
    }

    bool keepsComponents(const Json& list, const std::vector<ModelComponent>& stored) {
        if (list.Size() != stored.size()) return false;
        for (unsigned i = 0; i < list.Size(); ++i) {
            const Texts texts = {{"name", stored[i].name}, {"path", stored[i].path}, {"type", stored[i].type}};
            readMembers(list[i], texts, [](const std::string& key, const Json& /*value*/) {
                return key == "encryption" || key == "size" || key == "sha256";
            });
        }
        return true;
    }

    bool keepsFeatures(const Json& list, const std::vector<ModelFeatureDescriptor>& features) {
        if (list.Size() != features.size()) return false;
        for (unsigned i = 0; i < list.Size(); ++i) {
            ModelFeatureDescriptor stored = features[i];
            const Texts texts = {{"name", stored.name()},
                                 {"description", stored.description()},
                                 {"featureType", GetMireloFeatureTypeName(stored.type())}};
            readMembers(list[i], texts, [&](const std::string& key, const Json& value) {
                if (key == "required") return value.IsBool() && value.GetBool() == stored.required();
                if (key == "image") return stored.type() == MireloFeatureType::Image;
                return key == "tensor" && keepsTensor(value, stored.tensorDescriptor());
            });
        }
        return true;
    }

    bool keepsTensor(const Json& tensor, TensorDescriptor stored) {
        const std::vector<int64_t> shape = stored.shape().shapeVector();
        readMembers(tensor, {{"dataType", Kit::toText(stored.tensorType())}},
                    [&](const std::string& key, const Json& value) {
                        return key == "shape" &&
                               std::equal(value.Begin(), value.End(), shape.begin(), shape.end(),
                                          [](const Json& a, int64_t b) { return a.IsInt64() && a.GetInt64() == b; });
                    });
        return true;
    }

    std::string lost_;
};

/// The first place of a finding that is no value of the text; empty where there is none. Of a text that breaks off, it
/// sees only whether a list can have as many elements.
inline std::string lostPlace(std::string_view text, const std::vector<Kit::Finding>& findings) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    rapidjson::Document root;
    root.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseCommentsFlag | rapidjson::kParseStopWhenDoneFlag>(
        text.data(), text.size());
    const auto most = static_cast<rapidjson::SizeType>(std::count(text.begin(), text.end(), ','));
    const auto canBe = [text, most](const rapidjson::Pointer::Token& token) {
        const std::string_view name(token.name, token.length);
        const bool isIndex = name.find_first_not_of("0123456789") == std::string_view::npos;
        return !isIndex || token.index <= most || text.find(name) != std::string_view::npos;
    };
    for (const Kit::Finding& each : findings) {
        if (each.where.find('?') != std::string::npos || each.where.find("...") != std::string::npos) continue;  // cut
        const rapidjson::Pointer place(each.where.data(), each.where.size());
        const auto* const tokens = place.GetTokens();
        const bool isThere = root.HasParseError() ? std::all_of(tokens, tokens + place.GetTokenCount(), canBe)
                                                  : place.Get(root) != nullptr;
        if (!place.IsValid() || !isThere) return each.where;
    }
    return "";
}

/// Holds the check of a manifest to its promises. What is broken; empty where none is.
/// @param path  of a file that holds the text
inline std::string brokenPromise(std::string_view text, const Filepath& path) {
    const std::vector<Kit::Finding> findings = Kit::checkManifestText(text);
    Kit::AllTargetsMetadata metadata;
    const bool isLoaded = metadata.load(path).ok();
    const bool isValid = isLoaded && metadata.validate(MireloModelType::WinML).ok();
    if (!isValid && !Kit::hasErrors(findings)) return "it is refused without an error";
    const std::string place = lostPlace(text, findings);
    if (!place.empty()) return "a finding's place is not there: " + place;
    if (!findings.empty()) return "";
    const std::string lost = KeptFields().lost(text, metadata);
    return lost.empty() ? "" : "there is no finding, but this is not kept: " + lost;
}

}  // namespace TarnoMirelo
