// Makes the JSON Schema of manifests, and the tables of the page on them, from the table of rules:
// manifest_pages --write|--check <schema> <page>. "--check" compares, and says what differs.

#include "manifest_rules.h"

#include <TarnoMirelo/manifest.h>

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

using namespace TarnoMirelo::Kit::Rules;
using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

const ObjectRule* const kObjects[] = {&kRoot, &kTargets, &kTarget, &kComponent, &kFeature, &kTensor, &kImage};

void key(Writer& out, std::string_view name) { out.Key(name.data(), static_cast<unsigned>(name.size())); }
void text(Writer& out, std::string_view value) { out.String(value.data(), static_cast<unsigned>(value.size())); }
void member(Writer& out, std::string_view name, std::string_view value) {
    key(out, name);
    text(out, value);
}
void member(Writer& out, std::string_view name, int64_t value) {
    key(out, name);
    out.Int64(value);
}
void list(Writer& out, std::string_view name, std::span<const std::string_view> values) {
    key(out, name);
    out.StartArray();
    for (const std::string_view each : values) text(out, each);
    out.EndArray();
}

std::string reference(const ObjectRule& object) { return "#/$defs/" + std::string(object.name); }

void writeRange(Writer& out, const KeyRule& rule) {
    member(out, "minimum", rule.least);
    member(out, "maximum", rule.most);
}

void writeText(Writer& out, const KeyRule& rule) {
    if (!rule.allowed.empty()) return list(out, "enum", rule.allowed);
    member(out, "type", "string");
    member(out, "pattern", rule.pattern.empty() ? R"(^[^\u0000]*$)" : rule.pattern);
    if (rule.notEmpty) member(out, "minLength", 1);
}

void writeShape(Writer& out, const KeyRule& rule) {
    member(out, "type", "array");
    key(out, "items");
    out.StartObject();
    member(out, "type", "integer");
    writeRange(out, rule);
    key(out, "not");
    out.StartObject();
    member(out, "const", 0);
    out.EndObject();
    out.EndObject();
    key(out, "contains");
    out.StartObject();
    member(out, "const", kVariableDimension);
    out.EndObject();
    member(out, "minContains", 0);
    member(out, "maxContains", 1);
}

void writeList(Writer& out, const KeyRule& rule) {
    if (rule.object == nullptr) return writeShape(out, rule);
    member(out, "type", "array");
    if (rule.notEmpty) member(out, "minItems", 1);
    if (rule.key == "inputs") {  // `validate` looks at the first one
        key(out, "prefixItems");
        out.StartArray();
        out.StartObject();
        member(out, "$ref", "#/$defs/first input");
        out.EndObject();
        out.EndArray();
    }
    key(out, "items");
    out.StartObject();
    member(out, "$ref", reference(*rule.object));
    out.EndObject();
}

// Of a target: the backends here load no more.
void writeOneComponent(Writer& out) {
    for (const char* const each : {"properties", "components"}) {
        key(out, each);
        out.StartObject();
    }
    member(out, "maxItems", 1);
    for (int i = 0; i < 2; ++i) out.EndObject();
}

void writeValue(Writer& out, const KeyRule& rule) {
    out.StartObject();
    member(out, "description", rule.meaning);
    switch (rule.kind) {
        case Kind::Text:
            writeText(out, rule);
            break;
        case Kind::Integer:
            member(out, "type", "integer");
            writeRange(out, rule);
            break;
        case Kind::Truth:
            member(out, "type", "boolean");
            break;
        case Kind::Mark:
            key(out, "enum");
            out.StartArray();
            out.Bool(true);
            out.StartObject();
            out.EndObject();
            out.EndArray();
            break;
        case Kind::Object:
            member(out, "$ref", reference(*rule.object));
            if (rule.key == TarnoMirelo::TargetKey::WinML) writeOneComponent(out);
            break;
        case Kind::List:
            writeList(out, rule);
            break;
        case Kind::Retired:
            key(out, "not");
            out.StartObject();
            out.EndObject();
            break;
    }
    out.EndObject();
}

void writeImplication(Writer& out, std::string_view choice, std::span<const std::string_view> texts,
                      std::string_view wanted, bool isRefused) {
    out.StartObject();
    key(out, "if");
    out.StartObject();
    key(out, "properties");
    out.StartObject();
    key(out, choice);
    out.StartObject();
    list(out, "enum", texts);
    out.EndObject();
    out.EndObject();
    list(out, "required", {&choice, 1});
    out.EndObject();
    key(out, "then");
    out.StartObject();
    if (isRefused) {
        key(out, "not");
        out.StartObject();
    }
    list(out, "required", {&wanted, 1});
    if (isRefused) out.EndObject();
    out.EndObject();
    out.EndObject();
}

void writeConditions(Writer& out, const ObjectRule& object) {
    const auto hasCondition = [](const KeyRule& rule) { return rule.condition != nullptr; };
    if (std::none_of(object.keys.begin(), object.keys.end(), hasCondition)) return;
    key(out, "allOf");
    out.StartArray();
    for (const KeyRule& rule : object.keys) {
        if (!hasCondition(rule)) continue;
        const Condition& condition = *rule.condition;
        if (condition.requiredThere) writeImplication(out, condition.key, condition.texts, rule.key, false);
        if (!condition.refusedElsewhere) continue;
        std::vector<std::string_view> others;
        for (const std::string_view each : findRule(object, condition.key)->allowed) {
            const bool holds = std::find(condition.texts.begin(), condition.texts.end(), each) != condition.texts.end();
            if (!holds) others.push_back(each);
        }
        writeImplication(out, condition.key, others, rule.key, true);
    }
    out.EndArray();
}

void writeObject(Writer& out, const ObjectRule& object) {
    member(out, "type", "object");
    key(out, "properties");
    out.StartObject();
    for (const KeyRule& rule : object.keys) {
        key(out, rule.key);
        writeValue(out, rule);
    }
    out.EndObject();
    std::vector<std::string_view> required;
    for (const KeyRule& rule : object.keys) {
        if (rule.required) required.push_back(rule.key);
    }
    if (!required.empty()) list(out, "required", required);
    key(out, "additionalProperties");
    out.Bool(false);
    writeConditions(out, object);
}

// As any other, but without a variable dimension.
void writeFirstInput(Writer& out) {
    out.StartObject();
    member(out, "$ref", reference(kFeature));
    for (const char* const each : {"tensor", "shape"}) {
        key(out, "properties");
        out.StartObject();
        key(out, each);
        out.StartObject();
    }
    key(out, "items");
    out.StartObject();
    member(out, "minimum", 1);
    out.EndObject();
    for (int i = 0; i < 4; ++i) out.EndObject();
    out.EndObject();
}

std::string makeSchema() {
    rapidjson::StringBuffer buffer;
    Writer out(buffer);
    out.SetIndent(' ', 2);
    out.SetFormatOptions(rapidjson::kFormatSingleLineArray);
    out.StartObject();
    member(out, "$schema", "https://json-schema.org/draft/2020-12/schema");
    member(out, "title", "Manifest of a packaged model");
    writeObject(out, kRoot);
    key(out, "$defs");
    out.StartObject();
    for (const ObjectRule* const object : kObjects) {
        if (object == &kRoot) continue;
        key(out, object->name);
        out.StartObject();
        writeObject(out, *object);
        out.EndObject();
    }
    key(out, "first input");
    writeFirstInput(out);
    out.EndObject();
    out.EndObject();
    return buffer.GetString() + std::string("\n");
}

std::string neededText(const KeyRule& rule) {
    if (rule.required) return "yes";
    if (rule.condition == nullptr) return "";
    const Condition& condition = *rule.condition;
    const char* const when = !condition.requiredThere     ? "no; only for "
                             : condition.refusedElsewhere ? "for, and only for, "
                                                          : "for ";
    return when + quotedList(condition.texts);
}

std::string makeTables() {
    std::string out;
    for (const ObjectRule* const object : kObjects) {
        out += "\n### " + std::string(object->name) + "\n\n| key | value | needed | what it is |\n|---|---|---|---|\n";
        for (const KeyRule& rule : object->keys) {
            out += "| \"" + std::string(rule.key) + "\" | " + wantedValue(rule) + " | " + neededText(rule) + " | " +
                   std::string(rule.meaning) + " |\n";
        }
    }
    return out + "\n";
}

std::string readFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The page with the tables between its two marks.
std::string withTables(const std::string& page) {
    const std::string begin = "<!-- tables: begin -->\n";
    const size_t from = page.find(begin);
    const size_t to = page.find("<!-- tables: end -->");
    if (from == std::string::npos || to == std::string::npos) throw std::runtime_error("the page has no marks");
    return page.substr(0, from + begin.size()) + makeTables() + page.substr(to);
}

void bring(bool write, const char* path, const std::string& wanted) {
    if (readFile(path) == wanted) return;
    if (!write) throw std::runtime_error(std::string(path) + " is not what the rules make: run manifest-pages --write");
    std::ofstream(path, std::ios::binary) << wanted;
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "--write" && mode != "--check") throw std::runtime_error("--write|--check <schema> <page>");
    bring(mode == "--write", argv[2], makeSchema());
    bring(mode == "--write", argv[3], withTables(readFile(argv[3])));
    return 0;
} catch (const std::exception& error) {
    std::cerr << "manifest-pages: " << error.what() << std::endl;
    return 1;
}
