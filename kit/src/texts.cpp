#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <string_view>

namespace TarnoMirelo::Kit {
namespace {

struct Code {
    STATUS_CODE code;
    std::string_view name;
    std::string_view meaning;
};

constexpr Code kCodes[] = {
    {SUCCESS, "SUCCESS", "It worked"},
    {UNKNOWN_ERROR, "UNKNOWN_ERROR", "It failed for a reason that was not told"},
    {FILE_ERROR, "FILE_ERROR", "A file operation failed"},
    {INVALID_OPERATION, "INVALID_OPERATION", "The object does not allow this in its present state"},
    {INVALID_ARGUMENTS, "INVALID_ARGUMENTS", "An argument can't be accepted"},
    {INVALID_TYPE, "INVALID_TYPE", "A value is of the wrong type"},
    {INVALID_TENSOR_DATA_TYPE, "INVALID_TENSOR_DATA_TYPE", "A tensor has the wrong element type"},
    {MODEL_REFERENCE_ERROR, "MODEL_REFERENCE_ERROR", "The model could not be removed from the manager"},
    {MODEL_METADATA_ERROR, "MODEL_METADATA_ERROR", "The manifest has no target of that type"},
    {ML_FRAMEWORK_ERROR, "ML_FRAMEWORK_ERROR", "The inference engine failed"},
    {RANGE_ERROR, "RANGE_ERROR", "An index is out of range"},
    {MEMORY_CONSUMPTION_ERROR, "MEMORY_CONSUMPTION_ERROR", "The memory consumption was recorded"},
    {INVALID_SHAPE, "INVALID_SHAPE", "A tensor's shape does not fit"},
    {ALLOCATION_FAILED, "ALLOCATION_FAILED", "A buffer could not be allocated"},
    {TAR_CHECKSUM_ERROR, "TAR_CHECKSUM_ERROR", "A header of the archive does not add up"},
    {TAR_EXTRACTION_ERROR, "TAR_EXTRACTION_ERROR", "The archive could not be extracted"},
    {WARNING, "WARNING", "It worked, with a warning"},
    {NOT_IMPLEMENTED, "NOT_IMPLEMENTED", "The backend does not implement the operation"},
};

const Code* find(STATUS_CODE code) {
    const auto* const found = std::find_if(std::begin(kCodes), std::end(kCodes),
                                           [code](const Code& candidate) { return candidate.code == code; });
    return found == std::end(kCodes) ? nullptr : found;
}

// What to do about a status of that code whose description begins with that text. The first entry that fits counts.
struct Advice {
    STATUS_CODE code;
    std::string_view beginning;
    std::string_view text;
};

constexpr Advice kAdvice[] = {
    {UNKNOWN_ERROR, "std::bad_alloc", "Memory ran out: unload models that are not in use, or ask for less."},
    {UNKNOWN_ERROR, "A tensor buffer of this size", "Look at the shape: no memory holds that many elements."},
    {UNKNOWN_ERROR, "bad conversion", "Paths are UTF-8: convert the path first."},
    {UNKNOWN_ERROR, "invalid unordered_map<K, T> key", "The manifest has no target of that type: call validate first."},
    {INVALID_OPERATION, "The model is not registered", "Register the model with a ModelManager first."},
    {INVALID_OPERATION, "This tensor is not variable", "Call resize, or use a VariableTensor."},
    {INVALID_TYPE, "An uneven number of batches", "Give each input one feature for every row."},
    {INVALID_SHAPE, "Cannot resize a tensor", "Make a new tensor of the shape that is wanted."},
    {INVALID_SHAPE, "Resizing is not allowed", "Call allocateShape."},
    {INVALID_SHAPE, "No. of dimensions", "Give as many dimensions as the tensor was made with."},
    {ALLOCATION_FAILED, "Failed allocating", "Give the tensor a buffer when it is made."},
    {MODEL_REFERENCE_ERROR, "", "The model is unloaded. It was not registered with this manager exactly once."},
    {MODEL_METADATA_ERROR, "Failed to open metadata file",
     "Check that the file is there and is a JSON object in UTF-8 without a byte-order mark."},
    {MODEL_METADATA_ERROR, "No target found in root", "Give the manifest a member \"targets\"."},
    {MODEL_METADATA_ERROR, "There must be at least one defined input", "Give the target a list \"inputs\"."},
    {MODEL_METADATA_ERROR, "There must be at least one defined output", "Give the target a list \"outputs\"."},
    {MODEL_METADATA_ERROR, "The input shape has to be defined",
     "Give the first input a shape whose dimensions are all 1 or more."},
    {MODEL_METADATA_ERROR, "No model component found", "Give the target a list \"components\"."},
    {MEMORY_CONSUMPTION_ERROR, "", "This is no failure: a memory record answers so when it has taken a report."},
    {TAR_CHECKSUM_ERROR, "", "The archive is damaged, or is no tar archive: get it again."},
    {NOT_IMPLEMENTED, "Not implemented on current selected backend", "Use predict in place of bind and evaluate."},
};

std::string_view adviceOn(STATUS_CODE code, const std::string& description) {
    for (const Advice& advice : kAdvice) {
        if (advice.code == code && description.compare(0, advice.beginning.size(), advice.beginning) == 0) {
            return advice.text;
        }
    }
    // An empty description is how the validation of a manifest answers for a target that is not there.
    if (code == MODEL_METADATA_ERROR && description.empty()) return "Look at the members of its \"targets\".";
    return {};
}

}  // namespace

std::string toText(STATUS_CODE code) {
    const Code* const found = find(code);
    return found == nullptr ? "status code " + std::to_string(code) : std::string(found->name);
}

std::string toText(DataType type) {
    constexpr std::array<std::string_view, 13> kNames = {"undefined", "bool",  "int8",   "uint8", "int16",
                                                         "uint16",    "int32", "uint32", "int64", "uint64",
                                                         "float16",   "float", "double"};
    const auto index = static_cast<uint32_t>(type);
    return std::string(index < kNames.size() ? kNames[index] : kNames[0]);
}

std::string toText(const TensorShape& shape) {
    std::string text = "(";
    for (const int64_t dimension : shape.shapeVector()) {
        if (text.size() > 1) text += ", ";
        text += std::to_string(dimension);
    }
    return text + ")";
}

std::string toText(const Filepath& path) {
    constexpr auto kOwn = static_cast<char>(std::filesystem::path::preferred_separator);
    std::string text = path.c_str();
    std::replace(text.begin(), text.end(), kOwn == '/' ? '\\' : '/', kOwn);
    return text;
}

std::string describe(const MireloStatus& status) {
    const Code* const code = find(status.getCode());
    std::string text = toText(status.getCode());
    if (code != nullptr) text += " (" + std::to_string(status.getCode()) + ")";
    text += ": ";
    const std::string description = status.getDescription();
    if (description.find_first_not_of(" \t\r\n") != std::string::npos) {
        text += description;
    } else {
        text += code == nullptr ? std::string_view("No description") : code->meaning;
    }
    if (std::string_view(".!?").find(text.back()) == std::string_view::npos) text += '.';
    if (const std::string_view advice = adviceOn(status.getCode(), description); !advice.empty()) {
        text += ' ';
        text += advice;
    }
    return text;
}

}  // namespace TarnoMirelo::Kit
