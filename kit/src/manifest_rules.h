#pragma once

#include <TarnoMirelo/kit/check.h>

#include <cstdint>
#include <limits>
#include <span>
#include <string_view>

/// What a manifest may hold: one table for the strict reader, the JSON Schema and the tables of docs/manifest.md.
namespace TarnoMirelo::Kit::Rules {

enum class Kind {
    Text,
    Integer,
    Truth,  ///< true or false
    Mark,   ///< only its presence counts: true, or an object without members
    Object,
    List,     ///< of objects, or of integers where `KeyRule::object` is null
    Retired,  ///< once in use, no longer supported
};

/// What a key depends on: whether another key of the same object has one of these texts.
struct Condition {
    std::string_view key;
    std::span<const std::string_view> texts;
    bool requiredThere = true;
    bool refusedElsewhere = false;
    Severity severity = Severity::Error;  ///< where it is missing, and where it is refused
};

/// What is wrong with a text.
struct Refusal {
    std::string_view what = "The text can't be used";
    std::string_view advice;  ///< empty: that of the key
};

struct ObjectRule;

struct KeyRule {
    std::string_view key;
    Kind kind = Kind::Text;
    bool required = false;
    std::string_view meaning;
    std::string_view advice;  ///< for a value that is missing or can't be taken

    // For texts.
    std::span<const std::string_view> allowed = {};  ///< empty: any
    /// Why a text can't be used, null where it can. No function: any can.
    const Refusal* (*refusalOf)(std::string_view text) = nullptr;
    std::string_view pattern = {};       ///< what it accepts, as a regular expression
    std::string_view form = {};          ///< and in words
    const Severity* repeated = nullptr;  ///< of a text that an earlier element of the list has

    // For integers and lists of them.
    int64_t least = 0;
    int64_t most = std::numeric_limits<int64_t>::max();

    const ObjectRule* object = nullptr;  ///< the value, or each element
    bool notEmpty = false;               ///< of texts and lists
    const Condition* condition = nullptr;
};

struct ObjectRule {
    std::string_view name;  ///< as in "component"
    std::span<const KeyRule> keys;
};

extern const ObjectRule kRoot;
extern const ObjectRule kTargets;
extern const ObjectRule kTarget;
extern const ObjectRule kComponent;
extern const ObjectRule kFeature;
extern const ObjectRule kTensor;
extern const ObjectRule kImage;

/// The one dimension below 1 that a shape may have.
inline constexpr int64_t kVariableDimension = -1;

/// What a value has to be, as in `one of "file", "dir"`.
std::string wantedValue(const KeyRule& rule);

/// What an element of a list has to be.
std::string wantedElement(const KeyRule& list);

/// Names in quotes, as in `"one", "BGR" or "RGB"`.
std::string quotedList(std::span<const std::string_view> names);

/// The rule of a key; null where the object has no such key.
const KeyRule* findRule(const ObjectRule& object, std::string_view key);

}  // namespace TarnoMirelo::Kit::Rules
