#include "manifest_rules.h"

#include "windows_names.h"

#include <TarnoMirelo/kit/components.h>

#include <algorithm>

namespace TarnoMirelo::Kit::Rules {
namespace {

constexpr int64_t kMaxInt32 = std::numeric_limits<int32_t>::max();
constexpr int64_t kMaxUint32 = std::numeric_limits<uint32_t>::max();
constexpr Severity kError = Severity::Error;
constexpr Severity kWarning = Severity::Warning;

constexpr std::string_view kKinds[] = {ComponentKind::File,         ComponentKind::Dir,
                                       ComponentKind::MemoryStream, ComponentKind::SecuredFile,
                                       ComponentKind::SecuredTar,   ComponentKind::SecuredMemoryStream};
constexpr std::string_view kKindsOnDisk[] = {ComponentKind::File, ComponentKind::Dir, ComponentKind::SecuredFile,
                                             ComponentKind::SecuredTar};
constexpr std::string_view kSecuredKinds[] = {ComponentKind::SecuredFile, ComponentKind::SecuredTar,
                                              ComponentKind::SecuredMemoryStream};
constexpr std::string_view kFeatureTypes[] = {"bool", "uint8", "int32", "int64", "double", "string", "tensor", "image"};
constexpr std::string_view kElementTypes[] = {"bool",   "int8",  "uint8",  "int16",   "uint16", "int32",
                                              "uint32", "int64", "uint64", "float16", "float",  "double"};
constexpr std::string_view kPixelTypes[] = {"one", "BGR", "RGB", "RGBA", "BGRA"};
constexpr std::string_view kTensorOnly[] = {"tensor"};
constexpr std::string_view kImageOnly[] = {"image"};

constexpr std::string_view kFileKinds[] = {ComponentKind::File, ComponentKind::SecuredFile, ComponentKind::SecuredTar};
constexpr Condition kIsFile{.key = "type", .texts = kFileKinds, .requiredThere = false, .refusedElsewhere = true};
constexpr Condition kOnDisk{.key = "type", .texts = kKindsOnDisk};
constexpr Condition kSecured{
    .key = "type", .texts = kSecuredKinds, .refusedElsewhere = true, .severity = Severity::Warning};
constexpr Condition kIsTensor{.key = "featureType", .texts = kTensorOnly, .refusedElsewhere = true};
constexpr Condition kIsImage{.key = "featureType", .texts = kImageOnly, .refusedElsewhere = true};

constexpr Refusal kUnusable;
constexpr Refusal kCharacter{.what = "Windows has no name with such a character",
                             .advice = "Rename it: none of < > \" | ? and * may be in a name."};
constexpr Refusal kEnd{.what = "Windows drops a dot or a space at the end of a name",
                       .advice = "Rename it, without the dot or space."};
constexpr Refusal kDevice{.what = "Windows takes the name for a device's, with any extension",
                          .advice = "Rename it: CON, PRN, AUX, NUL, COM1, LPT1 and their like are devices."};

const Refusal* refusalOfDigest(std::string_view text) {
    const auto isDigit = [](char each) { return (each >= '0' && each <= '9') || (each >= 'a' && each <= 'f'); };
    return text.size() == 64 && std::all_of(text.begin(), text.end(), isDigit) ? nullptr : &kUnusable;
}

// Packages are made on other systems than they are used on.
const Refusal* refusalOfPath(std::string_view text) {
    for (size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
        end = text.find_first_of("/\\", begin);
        const std::string_view name = text.substr(begin, end - begin);
        if (name.empty() || name == "." || name == "..") continue;
        if (name.find_first_of("<>\"|?*") != std::string_view::npos) return &kCharacter;
        if (name.back() == '.' || name.back() == ' ') return &kEnd;
        if (isWindowsDevice(name)) return &kDevice;
    }
    const auto isControl = [](char each) { return static_cast<unsigned char>(each) < 0x20; };
    return staysInside(std::string(text)) && std::none_of(text.begin(), text.end(), isControl) ? nullptr : &kUnusable;
}

// What `refusalOfPath` takes. Regular expressions of JSON Schemas have no mark for "in any case".
constexpr char kPathPattern[] =
    R"(^(?![\\/])(?!(?:[^\u0000]*[\\/])?(?: |[^\\/]+[. ]|(?:[Cc][Oo][Nn]|[Pp][Rr][Nn]|[Aa][Uu][Xx]|[Nn][Uu][Ll]|)"
    R"([Cc][Oo][Nn][Ii][Nn]\$|[Cc][Oo][Nn][Oo][Uu][Tt]\$|[Cc][Ll][Oo][Cc][Kk]\$|(?:[Cc][Oo][Mm]|[Ll][Pp][Tt]))"
    R"([0-9\u00b9\u00b2\u00b3]) *(?:\.[^\\/]*)?)(?:[\\/]|$))[^<>:"|?*\u0000-\u001f]+$)";

constexpr KeyRule kRootKeys[] = {
    {.key = "$schema",
     .meaning = "the address of the JSON Schema, for editors",
     .advice = "Write the path of manifest.schema.json."},
    {.key = "id", .meaning = "identifies the model", .advice = "Write the text in quotes."},
    {.key = "name", .meaning = "the model's name, for people", .advice = "Write the text in quotes."},
    {.key = "author", .meaning = "who made it", .advice = "Write the text in quotes."},
    {.key = "description", .meaning = "what it does", .advice = "Write the text in quotes."},
    {.key = "sdkVersion",
     .meaning = "the version of this library that it was made for",
     .advice = "Write the text in quotes, as in \"5.4.0\"."},
    {.key = "version",
     .kind = Kind::Integer,
     .meaning = "the model's version",
     .advice = "Write a whole number without quotes and without a point.",
     .least = std::numeric_limits<int32_t>::min(),
     .most = kMaxInt32},
    {.key = "targets",
     .kind = Kind::Object,
     .required = true,
     .meaning = "the model's files, inputs and outputs, for each kind of backend",
     .advice = R"(Add "targets" with a member "WinML".)",
     .object = &kTargets},
};

constexpr char kTargetAdvice[] = R"(Write an object with "components", "inputs" and "outputs".)";

constexpr KeyRule kTargetsKeys[] = {
    {.key = TargetKey::WinML,
     .kind = Kind::Object,
     .required = true,
     .meaning = "ONNX networks: the target that `ModelMetadata` reads",
     .advice =
         R"(Give "WinML" an object with "components", "inputs" and "outputs": no other target is read by every host.)",
     .object = &kTarget},
    {.key = TargetKey::CoreML,
     .kind = Kind::Object,
     .meaning = "only `Kit::AllTargetsMetadata` reads it",
     .advice = kTargetAdvice,
     .object = &kTarget},
    {.key = TargetKey::TensorflowLite,
     .kind = Kind::Object,
     .meaning = "only `Kit::AllTargetsMetadata` reads it",
     .advice = kTargetAdvice,
     .object = &kTarget},
    {.key = TargetKey::TFJS,
     .kind = Kind::Object,
     .meaning = "only `Kit::AllTargetsMetadata` reads it",
     .advice = kTargetAdvice,
     .object = &kTarget},
    {.key = TargetKey::OpenVino,
     .kind = Kind::Retired,
     .meaning = "no longer supported: `validate` refuses it",
     .advice = "Remove the target, or give the network as ONNX under \"WinML\"."},
};

constexpr KeyRule kTargetKeys[] = {
    {.key = "components",
     .kind = Kind::List,
     .required = true,
     .meaning = "the model's files; the backends here load one component",
     .advice = "List the model's files: a model without a component can't be loaded.",
     .object = &kComponent,
     .notEmpty = true},
    {.key = "inputs",
     .kind = Kind::List,
     .required = true,
     .meaning = "what the model takes",
     .advice = "List every input of the network, in the network's order.",
     .object = &kFeature,
     .notEmpty = true},
    {.key = "outputs",
     .kind = Kind::List,
     .required = true,
     .meaning = "what the model gives",
     .advice = "List every output of the network, in the network's order.",
     .object = &kFeature,
     .notEmpty = true},
};

constexpr KeyRule kComponentKeys[] = {
    {.key = "name",
     .meaning = "for messages, and for hosts that look for a component by its name",
     .advice = "Give each component a name of its own.",
     .repeated = &kWarning},
    {.key = "path",
     .meaning = "its file or directory, relative to the manifest's directory; slashes and backslashes both separate",
     .advice = "Write where it lies below the manifest's directory, with slashes, as in \"data/net.onnx\".",
     .refusalOf = refusalOfPath,
     .pattern = kPathPattern,
     .form = "a path that stays below the manifest's directory, of names that Windows takes",
     .notEmpty = true,
     .condition = &kOnDisk},
    {.key = "type",
     .required = true,
     .meaning = "its kind; with \"memory_stream\" the host supplies the content",
     .advice = "Write \"file\" for a file.",
     .allowed = kKinds},
    {.key = "encryption",
     .kind = Kind::Mark,
     .meaning = "marks a protected component; the host sets the key",
     .advice = "Write \"encryption\": true, and a type that begins with \"secured_\", for a protected component; "
               "neither for a plain one.",
     .condition = &kSecured},
    {.key = "size",
     .kind = Kind::Integer,
     .meaning = "the file's length in bytes, for `Kit::verifyPackage`",
     .advice = "Write the file's length in bytes, or remove the key.",
     .condition = &kIsFile},
    {.key = "sha256",
     .meaning = "the file's SHA-256, for `Kit::verifyPackage`",
     .advice = "Write the file's digest, or remove the key.",
     .refusalOf = refusalOfDigest,
     .pattern = "^[0-9a-f]{64}$",
     .form = "64 lower-case hexadecimal digits",
     .condition = &kIsFile},
};

constexpr KeyRule kFeatureKeys[] = {
    {.key = "name",
     .required = true,
     .meaning = "its name in the network",
     .advice = "Write the name that the network has for it.",
     .repeated = &kError,
     .notEmpty = true},
    {.key = "description", .meaning = "for people", .advice = "Write the text in quotes."},
    {.key = "required",
     .kind = Kind::Truth,
     .meaning = "whether the host must supply it; true if the key is missing",
     .advice = "Write true or false, without quotes."},
    {.key = "featureType",
     .required = true,
     .meaning = "the kind of value; the backends here and `MireloModel::allocateInputs` take only \"tensor\"",
     .advice = "Write \"tensor\" for a tensor.",
     .allowed = kFeatureTypes},
    {.key = "tensor",
     .kind = Kind::Object,
     .meaning = "shape and element type of a tensor",
     .advice = R"(A feature of type "tensor" has "tensor": {"shape": [...], "dataType": "..."}; others don't.)",
     .object = &kTensor,
     .condition = &kIsTensor},
    {.key = "image",
     .kind = Kind::Object,
     .meaning = "size and pixels of an image",
     .advice = "A feature of type \"image\" has \"image\": {\"height\": ..., \"width\": ..., \"pixelType\": \"...\"}; "
               "others don't.",
     .object = &kImage,
     .condition = &kIsImage},
};

constexpr KeyRule kTensorKeys[] = {
    {.key = "shape",
     .kind = Kind::List,
     .required = true,
     .meaning = "the dimensions, outermost first; -1 for one that is left open, except in the first input; [] for a "
                "single element",
     .advice = "List the dimensions as whole numbers from 1, outermost first; -1 for one that is left open.",
     .least = kVariableDimension,
     .most = kMaxInt32},
    {.key = "dataType",
     .required = true,
     .meaning = "the type of its elements",
     .advice = "Write the network's element type.",
     .allowed = kElementTypes},
};

constexpr KeyRule kImageKeys[] = {
    {.key = "height",
     .kind = Kind::Integer,
     .required = true,
     .meaning = "in pixels",
     .advice = "Write a whole number of pixels.",
     .least = 1,
     .most = kMaxUint32},
    {.key = "width",
     .kind = Kind::Integer,
     .required = true,
     .meaning = "in pixels",
     .advice = "Write a whole number of pixels.",
     .least = 1,
     .most = kMaxUint32},
    {.key = "pixelType",
     .required = true,
     .meaning = "the channels of a pixel, in this order",
     .advice = "Write the channels in their order, or \"one\" for a single channel.",
     .allowed = kPixelTypes},
};

std::string dimensionRange(const KeyRule& list) {
    return "from 1 to " + std::to_string(list.most) + ", or " + std::to_string(kVariableDimension);
}

}  // namespace

const ObjectRule kRoot{"manifest", kRootKeys};
const ObjectRule kTargets{"targets", kTargetsKeys};
const ObjectRule kTarget{"target", kTargetKeys};
const ObjectRule kComponent{"component", kComponentKeys};
const ObjectRule kFeature{"feature", kFeatureKeys};
const ObjectRule kTensor{"tensor", kTensorKeys};
const ObjectRule kImage{"image", kImageKeys};

std::string quotedList(std::span<const std::string_view> names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        if (i != 0) text += i + 1 == names.size() ? " or " : ", ";
        (text += '"').append(names[i]) += '"';
    }
    return text;
}

std::string wantedValue(const KeyRule& rule) {
    const std::string some = rule.notEmpty ? ", not empty" : "";
    switch (rule.kind) {
        case Kind::Text:
            if (!rule.allowed.empty()) return quotedList(rule.allowed);
            return rule.form.empty() ? "a text" + some : std::string(rule.form);
        case Kind::Integer:
            return "an integer from " + std::to_string(rule.least) + " to " + std::to_string(rule.most);
        case Kind::Truth:
            return "true or false";
        case Kind::Mark:
            return "true or {}";
        case Kind::Object:
            return "an object";
        case Kind::List:
            return rule.object == nullptr ? "a list of integers " + dimensionRange(rule) : "a list of objects" + some;
        case Kind::Retired:
            break;
    }
    return "no such target";
}

std::string wantedElement(const KeyRule& list) {
    if (list.object != nullptr) return "an object";
    return "an integer " + dimensionRange(list);
}

const KeyRule* findRule(const ObjectRule& object, std::string_view key) {
    const auto found =
        std::find_if(object.keys.begin(), object.keys.end(), [key](const KeyRule& rule) { return rule.key == key; });
    return found == object.keys.end() ? nullptr : &*found;
}

}  // namespace TarnoMirelo::Kit::Rules
