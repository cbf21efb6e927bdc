// A manifest, read as the loader reads it, but with a word on all that the loader passes over.

#include "strict_reader.h"

#include "manifest/raising_allocator.h"
#include "manifest_rules.h"
#include "nearest_name.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/manifest.h>

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <array>
#include <unordered_set>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

using Rules::KeyRule;
using Rules::Kind;
using Rules::ObjectRule;
using Words = FindingList::Words;

constexpr size_t kMostKeys = 8;  // of one object

constexpr char kRefusedShape[] = "validate refuses it: the product of the first input's dimensions is below 1";

// Below the arrays, the rule of each key is known by its index.
size_t indexOf(const ObjectRule& object, const KeyRule& rule) {
    return static_cast<size_t>(&rule - object.keys.data());
}

std::vector<std::string_view> keysOf(const ObjectRule& object) {
    std::vector<std::string_view> keys;
    for (const KeyRule& rule : object.keys) {
        if (rule.kind != Kind::Retired) keys.push_back(rule.key);
    }
    return keys;
}

int64_t bytesOf(std::string_view elementType) {
    if (elementType.ends_with("64") || elementType == "double") return 8;
    if (elementType.ends_with("32") || elementType == "float") return 4;
    return elementType.ends_with("16") ? 2 : 1;
}

// Whether an escape may stand for half a character, which RapidJSON takes in one case.
bool mayHoldSurrogates(std::string_view text) {
    return text.find("\\ud") != std::string_view::npos || text.find("\\uD") != std::string_view::npos;
}

// One value of the text, as far as it is scalar.
struct Value {
    enum class Type { Null, Truth, Integer, Number, Text, Object, List };

    Type type;
    size_t offset;
    int64_t integer = 0;         // of an Integer, and 0 or 1 of a Truth
    std::string_view text = {};  // of a Text; valid for the event
};

// The product of a shape's dimensions, as far as it matters.
struct ShapeState {
    size_t offset = 0;
    size_t variable = 0;  // dimensions
    int64_t elements = 1;
    bool overflows = false;

    void add(int64_t dimension) {
        if (dimension == Rules::kVariableDimension) {
            ++variable;
        } else if (dimension > std::numeric_limits<int64_t>::max() / elements) {
            overflows = true;
        } else {
            elements *= dimension;
        }
    }
    bool fits(int64_t elementBytes) const {
        return !overflows && elements <= std::numeric_limits<int64_t>::max() / elementBytes;
    }
};

// An open object or list that the rules know.
struct Frame {
    const ObjectRule* object = nullptr;  // null for a list
    const KeyRule* rule = nullptr;       // of the member that is being read; of a list, its own
    size_t offset = 0;
    uint32_t seen = 0;                           // a bit for each rule of the object
    std::array<size_t, kMostKeys> keyOffsets{};  // of those seen
    std::string_view choice;                     // the text of the key that has a list of allowed ones
    size_t elements = 0;                         // so far
    bool isInElement = false;                    // the last of them is being read
};

// Takes the events of RapidJSON's reader.
class StrictReader {
 public:
    StrictReader(std::string_view text, const rapidjson::MemoryStream& stream, size_t begin, FindingList& findings,
                 std::vector<ComponentEntry>& components)
        : text_(text),
          stream_(stream),
          begin_(begin),
          lastEnd_(begin),
          isUtf8_(validUtf8(text) == text.size() && !mayHoldSurrogates(text)),
          findings_(findings),
          components_(components) {}

    bool Null() { return scalar({Value::Type::Null, nextToken()}); }
    bool Bool(bool truth) { return scalar({Value::Type::Truth, nextToken(), truth ? 1 : 0}); }
    bool Int(int number) { return Int64(number); }
    bool Uint(unsigned number) { return Int64(number); }
    bool Int64(int64_t number) { return scalar({Value::Type::Integer, nextToken(), number}); }
    bool Uint64(uint64_t number) {
        constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
        return number <= kMost ? Int64(static_cast<int64_t>(number)) : scalar({Value::Type::Number, nextToken()});
    }
    bool Double(double /*number*/) { return scalar({Value::Type::Number, nextToken()}); }
    static bool RawNumber(const char* /*text*/, size_t /*length*/, bool /*copy*/) { return false; }  // not asked for
    bool String(const char* text, size_t length, bool /*copy*/) {
        return scalar({Value::Type::Text, nextToken(), 0, {text, length}});
    }
    bool StartObject() { return container({Value::Type::Object, nextToken()}); }
    bool StartArray() { return container({Value::Type::List, nextToken()}); }
    bool EndObject(size_t /*members*/) {
        lastEnd_ = nextToken() + 1;
        if (leaveUntracked()) return true;
        checkObject(stack_.back());
        stack_.pop_back();
        endValue();
        return true;
    }
    bool EndArray(size_t /*elements*/) {
        lastEnd_ = nextToken() + 1;
        if (leaveUntracked()) return true;
        const Frame frame = stack_.back();
        stack_.pop_back();
        if (frame.elements == 0 && frame.rule->notEmpty) {
            report(Severity::Error, frame.offset, [&] {
                return Words{"The list is empty", "[]", Rules::wantedValue(*frame.rule),
                             std::string(frame.rule->advice)};
            });
        }
        if (frame.rule->key == "components" && frame.elements > 1) onSeveralComponents(frame);
        endValue();
        return true;
    }
    bool Key(const char* text, size_t length, bool /*copy*/) {
        const size_t offset = nextToken();
        lastEnd_ = stream_.Tell() + begin_;
        if (untracked_ == 0) onKey({text, length}, offset);
        return true;
    }

    // Where the innermost value is that the rules know.
    std::string pointer() const { return pointerTo(stack_.size()); }
    size_t end() const { return lastEnd_; }

 private:
    // The place of the next token's first byte. What stands before it is white space, separators and comments.
    size_t nextToken() {
        size_t at = lastEnd_;
        for (;;) {
            at = text_.find_first_not_of(" \t\r\n,:", at);
            if (at == std::string_view::npos || text_[at] != '/') break;
            const bool isLine = text_.compare(at, 2, "//") == 0;
            const size_t end = text_.find(isLine ? "\n" : "*/", at + 2);
            const size_t next = end == std::string_view::npos ? text_.size() : end + (isLine ? 0 : 2);
            report(Severity::Error, at, [&] {
                return Words{"The loader refuses comments", quotedExcerpt(text_.substr(at, next - at)),
                             "JSON without comments", "Remove the comment."};
            });
            at = next;
        }
        return std::min(at, text_.size());
    }

    bool scalar(const Value& value) {
        lastEnd_ = stream_.Tell() + begin_;
        if (untracked_ != 0) return true;
        onValue(value);
        endValue();
        return true;
    }
    bool container(const Value& value) {
        lastEnd_ = value.offset + 1;
        if (untracked_ != 0) {
            ++untracked_;
        } else if (!onValue(value)) {
            untracked_ = 1;
        }
        return true;
    }
    bool leaveUntracked() {
        if (untracked_ == 0) return false;
        if (--untracked_ == 0) endValue();
        return true;
    }
    // What follows is no longer in this member or element.
    void endValue() {
        if (stack_.empty()) return;
        Frame& frame = stack_.back();
        frame.isInElement = false;
        if (frame.object != nullptr) frame.rule = nullptr;
    }

    std::string pointerTo(size_t depth) const {
        std::string pointer;
        for (size_t i = 0; i < depth; ++i) {
            const Frame& frame = stack_[i];
            if (frame.isInElement) {
                pointer += '/' + std::to_string(frame.elements - 1);
            } else if (frame.object != nullptr && frame.rule != nullptr) {
                (pointer += '/') += frame.rule->key;
            }
        }
        return pointer;
    }

    template <typename Compose>
    void report(Severity severity, size_t offset, const Compose& compose) {
        if (findings_.count(severity)) findings_.add(severity, offset, pointer(), compose());
    }
    // Of a member of the innermost object.
    template <typename Compose>
    void reportMember(Severity severity, size_t offset, std::string_view key, const Compose& compose) {
        if (!findings_.count(severity)) return;
        std::string where = pointerTo(stack_.size() - 1) + '/';
        for (const char each : excerpt(key)) where += each == '~' ? "~0" : each == '/' ? "~1" : std::string(1, each);
        findings_.add(severity, offset, std::move(where), compose());
    }

    void onKey(std::string_view key, size_t offset) {
        Frame& frame = stack_.back();
        frame.rule = Rules::findRule(*frame.object, key);
        if (frame.rule == nullptr) {
            return reportMember(Severity::Error, offset, key, [&] { return unknownKey(*frame.object, key); });
        }
        const size_t index = indexOf(*frame.object, *frame.rule);
        if ((frame.seen >> index & 1U) == 0) {
            frame.seen |= 1U << index;
            frame.keyOffsets[index] = offset;
            return;
        }
        frame.rule = nullptr;
        reportMember(Severity::Error, offset, key, [&] {
            return Words{"The key is here a second time, and only the first one counts", quotedExcerpt(key),
                         "each key once in an object", "Remove one of the two."};
        });
    }

    static Words unknownKey(const ObjectRule& object, std::string_view key) {
        const std::vector<std::string_view> keys = keysOf(object);
        const std::string_view meant = nearestName(key, keys);
        return {"The key is not known", quotedExcerpt(key), Rules::quotedList(keys),
                meant.empty() ? "Remove it: nothing reads it." : "Write \"" + std::string(meant) + "\"."};
    }

    // Whether what follows in it is looked at, for an object or a list.
    bool onValue(const Value& value) {
        if (stack_.empty()) return onRoot(value);
        Frame& frame = stack_.back();
        if (frame.object == nullptr) {
            ++frame.elements;
            frame.isInElement = true;
            return onElement(*frame.rule, value);
        }
        return frame.rule != nullptr && onMember(*frame.rule, value);
    }

    bool onRoot(const Value& value) {
        if (value.type == Value::Type::Object) return open(Rules::kRoot, value);
        report(Severity::Error, value.offset, [&] {
            return Words{"A manifest is an object", found(value), "an object", "Write { before it and } behind it."};
        });
        return false;
    }

    bool onElement(const KeyRule& rule, const Value& value) {
        if (rule.object == nullptr) {
            onDimension(rule, value);
            return false;
        }
        if (value.type == Value::Type::Object) return open(*rule.object, value);
        report(Severity::Error, value.offset, [&] {
            return Words{"The element is ignored", found(value), "an object",
                         "Write an object, or remove the element."};
        });
        return false;
    }

    bool onMember(const KeyRule& rule, const Value& value) {
        const char* what = "The value is ignored";
        switch (rule.kind) {
            case Kind::Text:
                if (value.type == Value::Type::Text) return onText(rule, value);
                break;
            case Kind::Integer:
                if (isInRange(rule, value)) return onInteger(rule, value);
                if (value.type == Value::Type::Integer && value.integer == 0) what = "The number can't be used";
                break;
            case Kind::Truth:
                if (value.type == Value::Type::Truth) return false;
                break;
            case Kind::Mark:
                return onMark(rule, value);
            case Kind::Object:
                if (value.type == Value::Type::Object) return open(*rule.object, value);
                break;
            case Kind::List:
                if (value.type == Value::Type::List) return openList(rule, value);
                break;
            case Kind::Retired:
                return onRetired(rule);
        }
        reportValue(Severity::Error, rule, value, what);
        return false;
    }

    void reportValue(Severity severity, const KeyRule& rule, const Value& value, const char* what) {
        report(severity, value.offset, [&] {
            return Words{what, found(value), Rules::wantedValue(rule), std::string(rule.advice)};
        });
    }

    bool open(const ObjectRule& object, const Value& value) {
        if (&object == &Rules::kComponent) component_ = {};
        if (&object == &Rules::kTensor) shape_ = {};
        Frame& frame = stack_.emplace_back();
        frame.object = &object;
        frame.offset = value.offset;
        return true;
    }

    bool openList(const KeyRule& rule, const Value& value) {
        if (rule.object != nullptr) names_.clear();
        if (rule.object == nullptr) shape_.offset = value.offset;
        Frame& frame = stack_.emplace_back();
        frame.rule = &rule;
        frame.offset = value.offset;
        return true;
    }

    static bool isInRange(const KeyRule& rule, const Value& value) {
        return value.type == Value::Type::Integer && value.integer >= rule.least && value.integer <= rule.most;
    }

    void onDimension(const KeyRule& rule, const Value& value) {
        if (!isInRange(rule, value)) {
            return report(Severity::Error, value.offset, [&] {
                return Words{"The dimension can't be used", found(value), Rules::wantedElement(rule),
                             std::string(rule.advice)};
            });
        }
        if (value.integer != 0) return shape_.add(value.integer);
        const bool isRefused = isOfFirstInput(stack_.size() - 2);
        report(isRefused ? Severity::Error : Severity::Warning, value.offset, [&] {
            return isRefused ? Words{kRefusedShape, "0", Rules::wantedElement(rule),
                                     "Write a number from 1, or list an input without 0 first: the order is free."}
                             : Words{"The tensor has no element", "0", Rules::wantedElement(rule),
                                     "Write a number from 1, unless the network's tensor is always empty."};
        });
    }

    // Another target's backends are not known.
    void onSeveralComponents(const Frame& list) {
        if (stack_[1].rule->key != TargetKey::WinML) return;
        report(Severity::Warning, list.offset, [&] {
            return Words{"The backends here load one component", std::to_string(list.elements) + " components", "one",
                         "List the network alone. If it needs files beside it, put all into a folder and list that as "
                         "a \"dir\"."};
        });
    }

    bool onInteger(const KeyRule& rule, const Value& value) {
        if (rule.key == "size") {
            component_.size = static_cast<uint64_t>(value.integer);
            component_.sizeOffset = value.offset;
        }
        return false;
    }

    bool onText(const KeyRule& rule, const Value& value) {
        const size_t end = value.text.find('\0');
        const std::string_view text = value.text.substr(0, end);
        if (end != std::string_view::npos) {
            report(Severity::Error, value.offset, [&] {
                return Words{"The text ends at its NUL, and the rest is lost", found(value), "a text without \\u0000",
                             "Remove \\u0000."};
            });
        }
        if (!isUtf8_ && validUtf8(text) != text.size()) {
            report(Severity::Warning, value.offset, [&] {
                const std::string raw = found(value);
                return raw.find("\\u") == std::string::npos
                           ? Words{"The text is not UTF-8", raw, "UTF-8", "Save the manifest as UTF-8."}
                           : Words{"The text is not UTF-8", raw, "UTF-8",
                                   "Save the manifest as UTF-8, and write a character itself, not its \\u."};
            });
        }
        if (!rule.allowed.empty()) {
            onChoice(rule, text, value);
        } else if (const Rules::Refusal* const refusal = refusalOf(rule, text)) {
            report(Severity::Error, value.offset, [&] {
                return Words{std::string(refusal->what), found(value), Rules::wantedValue(rule),
                             std::string(refusal->advice.empty() ? rule.advice : refusal->advice)};
            });
        } else if (rule.repeated != nullptr && !names_.emplace(text).second) {
            report(*rule.repeated, value.offset, [&] {
                return Words{"The name is here a second time", quotedExcerpt(text), "a name of its own for each",
                             "Rename one of the two."};
            });
        } else if (rule.key == "path") {
            component_.path = text;
            component_.pathOffset = value.offset;
        } else if (rule.key == "sha256") {
            component_.sha256 = text;
            component_.sha256Offset = value.offset;
        }
        return false;
    }

    static const Rules::Refusal* refusalOf(const KeyRule& rule, std::string_view text) {
        static constexpr Rules::Refusal kEmpty;
        if (rule.notEmpty && text.empty()) return &kEmpty;
        return rule.refusalOf == nullptr ? nullptr : rule.refusalOf(text);
    }

    void onChoice(const KeyRule& rule, std::string_view text, const Value& value) {
        const auto allowed = std::find(rule.allowed.begin(), rule.allowed.end(), text);
        if (allowed != rule.allowed.end()) {
            stack_.back().choice = *allowed;
            return;
        }
        report(Severity::Error, value.offset, [&] {
            const std::string_view meant = nearestType(text, rule.allowed);
            return Words{"The text is not known", found(value), Rules::wantedValue(rule),
                         meant.empty() ? std::string(rule.advice) : "Write \"" + std::string(meant) + "\"."};
        });
    }

    bool onMark(const KeyRule& rule, const Value& value) {
        const bool isEmptyObject = value.type == Value::Type::Object &&
                                   text_.find_first_not_of(" \t\r\n", value.offset + 1) != std::string_view::npos &&
                                   text_[text_.find_first_not_of(" \t\r\n", value.offset + 1)] == '}';
        if (isEmptyObject || (value.type == Value::Type::Truth && value.integer == 1)) return false;
        reportValue(Severity::Error, rule, value, "The value is not read, only that there is one");
        return false;
    }

    bool onRetired(const KeyRule& rule) {
        const Frame& frame = stack_.back();
        report(Severity::Warning, frame.keyOffsets[indexOf(*frame.object, rule)], [&] {
            return Words{"The target can't be run", quotedExcerpt(rule.key), Rules::wantedValue(rule),
                         std::string(rule.advice)};
        });
        return false;
    }

    // What can be told only at the object's end.
    void checkObject(Frame& frame) {
        for (const KeyRule& rule : frame.object->keys) checkPresence(frame, rule);
        if (frame.object == &Rules::kTensor) checkShape(frame);
        if (frame.object != &Rules::kComponent || frame.choice.empty() || component_.path.empty()) return;
        component_.type = frame.choice;
        component_.pointer = pointerTo(stack_.size() - 1);
        components_.push_back(std::move(component_));
    }

    void checkPresence(const Frame& frame, const KeyRule& rule) {
        const size_t index = indexOf(*frame.object, rule);
        const bool isThere = (frame.seen >> index & 1U) != 0;
        const Rules::Condition* const condition = rule.condition;
        const bool isDecided = condition != nullptr && !frame.choice.empty();
        const bool holds = isDecided && std::find(condition->texts.begin(), condition->texts.end(), frame.choice) !=
                                            condition->texts.end();
        const Severity severity = condition == nullptr ? Severity::Error : condition->severity;
        if (!isThere && (rule.required || (holds && condition->requiredThere))) {
            if (!findings_.count(severity)) return;
            const std::string key = '"' + std::string(rule.key) + '"';
            const std::string because = holds ? " where " + chosen(*condition, frame.choice) : "";
            findings_.add(severity, frame.offset, pointerTo(stack_.size() - 1),
                          {"A key is missing" + because, "no " + key, key + ": " + Rules::wantedValue(rule),
                           std::string(rule.advice)});
        } else if (isThere && isDecided && !holds && condition->refusedElsewhere) {
            reportMember(severity, frame.keyOffsets[index], rule.key, [&] {
                return Words{
                    "The key is not read where " + chosen(*condition, frame.choice), quotedExcerpt(rule.key),
                    "the key only where " + std::string(condition->key) + " is " + Rules::quotedList(condition->texts),
                    std::string(rule.advice)};
            });
        }
    }

    static std::string chosen(const Rules::Condition& condition, std::string_view choice) {
        return std::string(condition.key) + " is \"" + std::string(choice) + '"';
    }

    // Of the tensor whose object ends.
    void checkShape(const Frame& tensor) {
        const bool isFirstInput = isOfFirstInput(stack_.size() - 1);
        const auto shape = [&](Severity severity, Words words) {
            if (findings_.count(severity)) {
                findings_.add(severity, shape_.offset, pointerTo(stack_.size() - 1) + "/shape", std::move(words));
            }
        };
        if (!shape_.fits(bytesOf(tensor.choice))) {
            shape(Severity::Error, {"The tensor is too large for any memory", "more than 2^63-1 bytes",
                                    "at most 2^63-1 bytes", "Write the network's own dimensions."});
        } else if (isFirstInput && shape_.variable > 0) {
            const bool isRefused = shape_.variable % 2 == 1;
            shape(isRefused ? Severity::Error : Severity::Warning,
                  {isRefused ? kRefusedShape : "Dimensions of the first input are left open", countOf(shape_.variable),
                   "no -1 in the first input",
                   "Write a number from 1 in place of each -1, or list an input without -1 first: the order is free."});
        } else if (shape_.variable > 1) {
            shape(Severity::Warning, {"Several dimensions are left open", countOf(shape_.variable), "one at most",
                                      "Fix all but one: few hosts know how to choose several."});
        }
    }

    static std::string countOf(size_t variable) {
        return variable == 1 ? "one -1" : std::to_string(variable) + " of -1";
    }

    // Whether the tensor at this place of the stack is that of the first input.
    bool isOfFirstInput(size_t tensor) const {
        const Frame& list = stack_[tensor - 2];
        return list.object == nullptr && list.elements == 1 && list.rule->key == "inputs";
    }

    std::string found(const Value& value) const {
        if (value.type == Value::Type::Object) return "an object";
        if (value.type == Value::Type::List) return "a list";
        return excerpt(text_.substr(value.offset, lastEnd_ - value.offset));
    }

    std::string_view text_;
    const rapidjson::MemoryStream& stream_;
    size_t begin_;    // where the stream begins in the text
    size_t lastEnd_;  // of the last token
    bool isUtf8_;     // certainly, every text in it
    FindingList& findings_;
    std::vector<ComponentEntry>& components_;

    std::vector<Frame> stack_;
    size_t untracked_ = 0;  // open objects and lists that nothing reads
    ShapeState shape_;
    ComponentEntry component_;
    std::unordered_set<std::string> names_;  // of the elements of the list
};

struct BreakText {
    rapidjson::ParseErrorCode code;
    const char* wanted;
    const char* advice;
};

constexpr BreakText kBreaks[] = {
    {rapidjson::kParseErrorDocumentEmpty, "an object", "Write the manifest: the file holds nothing."},
    {rapidjson::kParseErrorValueInvalid, "a value",
     "Write a text in quotes, a number, true, false, null, an object or a list."},
    {rapidjson::kParseErrorObjectMissName, "a key in double quotes", "Put the key in double quotes."},
    {rapidjson::kParseErrorObjectMissColon, "a colon behind the key", "Write a colon between key and value."},
    {rapidjson::kParseErrorObjectMissCommaOrCurlyBracket, "a comma or }",
     "Write a comma between members, and } at the end."},
    {rapidjson::kParseErrorArrayMissCommaOrSquareBracket, "a comma or ]",
     "Write a comma between elements, and ] at the end."},
    {rapidjson::kParseErrorStringUnicodeEscapeInvalidHex, "four hexadecimal digits behind \\u",
     "Write all four digits."},
    {rapidjson::kParseErrorStringUnicodeSurrogateInvalid, "both halves of a surrogate pair",
     "Write the character itself."},
    {rapidjson::kParseErrorStringEscapeInvalid, R"(\", \\, \/, \b, \f, \n, \r, \t or \u)",
     "Write a backslash as \\\\."},
    {rapidjson::kParseErrorStringMissQuotationMark, "a double quote at the text's end",
     "Close the text with a double quote."},
    {rapidjson::kParseErrorStringInvalidEncoding, "a text without control characters",
     "Write a line break as \\n, a tab as \\t."},
    {rapidjson::kParseErrorUnspecificSyntaxError, "JSON without comments",
     "Remove the comment: it does not end, or does not begin with // or /*."},
    {rapidjson::kParseErrorNumberTooBig, "a number below 1.8e308", "Write a smaller number."},
    {rapidjson::kParseErrorNumberMissFraction, "a digit behind the point", "Write a digit behind the point."},
    {rapidjson::kParseErrorNumberMissExponent, "a digit behind the e", "Write a digit behind the e."},
};

std::string restOfLine(std::string_view text, size_t offset) {
    return quotedExcerpt(text.substr(offset, text.find_first_of("\r\n", offset) - offset));
}

std::string foundAt(std::string_view text, size_t offset) {
    if (offset >= text.size()) return "the end of the text";
    switch (text[offset]) {
        case '\r':
        case '\n':
            return "the end of the line";
        case '\t':
            return "a tab";
        case '\0':
            return "a NUL byte";
        default:
            return restOfLine(text, offset);
    }
}

// Whether it looks like UTF-16 from there: by its mark, or by the NUL in each letter of the Latin alphabet.
bool isUtf16(std::string_view text, size_t offset) {
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") ||
           (offset < text.size() && text[offset] == '\0');
}

// RapidJSON speaks of an escape where a control character stands in a text.
rapidjson::ParseErrorCode codeOf(rapidjson::ParseErrorCode code, std::string_view text, size_t offset) {
    const bool isControl = offset < text.size() && static_cast<unsigned char>(text[offset]) < 0x20;
    return isControl && code == rapidjson::kParseErrorStringEscapeInvalid ? rapidjson::kParseErrorStringInvalidEncoding
                                                                          : code;
}

Words brokenJson(rapidjson::ParseErrorCode code, std::string_view text, size_t offset) {
    const auto* const entry =
        std::find_if(std::begin(kBreaks), std::end(kBreaks),
                     [code = codeOf(code, text, offset)](const BreakText& each) { return each.code == code; });
    const size_t last = text.substr(0, offset).find_last_not_of(" \t\r\n");
    const std::string found = foundAt(text, offset);
    Words words{"The text is no JSON", found, "JSON", "Look at the text just before."};
    if (entry != std::end(kBreaks)) words = {words.what, found, entry->wanted, entry->advice};
    if (isUtf16(text, offset)) {
        words.wanted = "UTF-8";
        words.advice = "Save the manifest as UTF-8, not as UTF-16; if it is UTF-8 already, remove the NUL.";
    }
    const bool closes = offset < text.size() && (text[offset] == '}' || text[offset] == ']');
    if (closes && last != std::string_view::npos && text[last] == ',') words.advice = "Remove the comma before it.";
    return words;
}

}  // namespace

void readStrictly(std::string_view text, FindingList& findings, std::vector<ComponentEntry>& components) {
    // Without recursion, so that no depth of nesting exhausts the stack. Comments are taken to find what follows them.
    constexpr unsigned kFlags =
        rapidjson::kParseStopWhenDoneFlag | rapidjson::kParseIterativeFlag | rapidjson::kParseCommentsFlag;
    size_t begin = 0;
    if (text.starts_with(kByteOrderMark)) {
        begin = kByteOrderMark.size();
        if (findings.count(Severity::Error)) {
            findings.add(Severity::Error, 0, "",
                         {"The loader refuses a byte-order mark", "the bytes EF BB BF", "UTF-8 without one",
                          R"(Save the manifest as "UTF-8", not as "UTF-8 with BOM".)"});
        }
    }
    rapidjson::MemoryStream stream(text.data() + begin, text.size() - begin);
    StrictReader reader(text, stream, begin, findings, components);
    rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, RaisingAllocator> parser;
    const rapidjson::ParseResult result = parser.Parse<kFlags>(stream, reader);
    if (result.IsError()) {
        const size_t offset = begin + result.Offset();
        if (findings.count(Severity::Error)) {
            findings.add(Severity::Error, offset, reader.pointer(), brokenJson(result.Code(), text, offset));
        }
        return;
    }
    const size_t rest = text.find_first_not_of(" \t\r\n", reader.end());
    if (rest != std::string_view::npos && findings.count(Severity::Error)) {
        findings.add(Severity::Error, rest, "",
                     {"What follows the manifest's end is ignored", restOfLine(text, rest), "nothing behind the last }",
                      "Remove it, or move it before the last }."});
    }
}

}  // namespace TarnoMirelo::Kit
