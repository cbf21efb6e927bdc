#include "manifest_text.h"

#include "console.h"
#include "failure.h"
#include "kit/src/platform.h"

#include <TarnoMirelo/kit/check.h>

#include <algorithm>
#include <utility>

namespace TarnoMirelo::Tool {
namespace {

constexpr char kBlanks[] = " \t\r\n";

std::string readText(const std::filesystem::path& manifest, const std::string& about) {
    uint64_t size = 0;
    const std::unique_ptr<char[]> bytes = FileUtils().readBinaryFileToBuffer(toFilepath(manifest), size);
    if (bytes == nullptr) throw Failure(about + ": the file can't be opened");
    return {bytes.get(), static_cast<size_t>(size)};
}

}  // namespace

ManifestText::ManifestText(const Package& package)
    : manifest_(package.manifest()), lock_(manifest_.parent_path()), about_(package.manifestText()) {
    if (package.isArchive()) {
        throw WrongUsage(about_ + ": an archive can't be changed, wanted is a folder or a manifest");
    }
    if (lock_.isTaken()) {
        throw Failure(about_ + ": another call of mirelo is changing this folder, wanted is one at a time");
    }
    text_ = readText(manifest_, about_);
    // Below, the text is JSON of the form that a manifest has.
    if (Kit::hasErrors(Kit::checkManifestText(text_))) {
        throw Failure(about_ + ": there are mistakes in the manifest; \"mirelo check\" tells them");
    }
    for (const Member& member : readObject(skipBlanks(0)).members) {
        if (member.key != "targets") continue;
        for (const Member& target : readObject(member.valueBegin).members) readTarget(target.valueBegin);
    }
}

size_t ManifestText::skipBlanks(size_t at) const {
    return std::min(text_.find_first_not_of(kBlanks, at), text_.size());
}

size_t ManifestText::endOfValue(size_t begin) const {
    size_t depth = 0;
    for (size_t at = begin;; ++at) {
        const char each = text_.at(at);
        if (each == '"') {
            for (++at; text_.at(at) != '"'; ++at) at += text_[at] == '\\' ? 1 : 0;
        } else if (each == '{' || each == '[') {
            ++depth;
            continue;
        } else if (each == '}' || each == ']') {
            --depth;
        } else if (depth == 0) {  // a number or a word
            return text_.find_first_of(",}] \t\r\n", at);
        } else {
            continue;
        }
        if (depth == 0) return at + 1;
    }
}

std::string ManifestText::textAt(size_t begin, size_t end) const {
    try {
        return Json::parse(text_.substr(begin, end - begin)).get<std::string>();
    } catch (const Json::exception&) {
        throw Failure(about_ + ": a text in the manifest is not UTF-8; \"mirelo check\" tells where it is");
    }
}

ManifestText::Object ManifestText::readObject(size_t begin) const {
    Object object;
    object.begin = begin;
    for (size_t at = skipBlanks(begin + 1); text_.at(at) != '}';) {
        Member member;
        member.begin = at;
        const size_t keyEnd = endOfValue(at);
        member.key = textAt(at, keyEnd);
        member.valueBegin = skipBlanks(skipBlanks(keyEnd) + 1);  // behind the colon
        member.end = endOfValue(member.valueBegin);
        at = skipBlanks(member.end);
        if (text_.at(at) == ',') at = skipBlanks(at + 1);
        object.members.push_back(std::move(member));
    }
    return object;
}

void ManifestText::readTarget(size_t begin) {
    if (text_.at(begin) != '{') return;  // of a kind that is no longer supported
    for (const Member& member : readObject(begin).members) {
        if (member.key != "components") continue;
        for (size_t at = skipBlanks(member.valueBegin + 1); text_.at(at) != ']';) {
            addComponent(at);
            at = skipBlanks(endOfValue(at));
            if (text_.at(at) == ',') at = skipBlanks(at + 1);
        }
    }
}

void ManifestText::addComponent(size_t begin) {
    Component component;
    Object object = readObject(begin);
    for (const Member& member : object.members) {
        const auto text = [&] { return textAt(member.valueBegin, member.end); };
        if (member.key == "name") component.name = text();
        if (member.key == "type") component.type = text();
        if (member.key == "path") component.path = text();
        if (member.key == "size") component.hasSize = true;
        if (member.key == "sha256") component.hasDigest = true;
    }
    components_.push_back(std::move(component));
    objects_.push_back(std::move(object));
}

std::filesystem::path ManifestText::fileOf(const Component& component) const {
    std::string path = component.path;
    std::replace(path.begin(), path.end(), '\\', '/');
    return manifest_.parent_path() / toPath(path);
}

std::filesystem::path ManifestText::existingFileOf(const Component& component) const {
    std::filesystem::path file = fileOf(component);
    if (!std::filesystem::is_regular_file(file)) {
        throw Failure(about_ + ": there is no file \"" + component.path + "\"");
    }
    if (std::filesystem::equivalent(file, manifest_)) {
        throw Failure(about_ + ": the path \"" + component.path +
                      "\" is that of the manifest itself, wanted is a component's file");
    }
    return file;
}

void ManifestText::set(size_t component, const std::string& key, const std::string& json) {
    const Object& object = objects_.at(component);
    for (const Member& member : object.members) {
        if (member.key == key) return changes_.push_back({member.valueBegin, member.end, json});
    }
    // On a line of its own where the first member is.
    const Member& first = object.members.front();
    const std::string blanks = text_.substr(object.begin + 1, first.begin - object.begin - 1);
    const size_t end = object.members.back().end;
    changes_.push_back({end, end, "," + (blanks.empty() ? " " : blanks) + '"' + key + "\": " + json});
}

void ManifestText::remove(size_t component, const std::string& key) {
    const std::vector<Member>& members = objects_.at(component).members;
    for (size_t i = 0; i < members.size(); ++i) {
        if (members[i].key != key) continue;
        const size_t begin = i == 0 ? members[i].begin : members[i - 1].end;
        const size_t end = i == 0 && members.size() > 1 ? members[1].begin : members[i].end;
        changes_.push_back({begin, end, ""});
    }
}

void ManifestText::save() const {
    std::vector<Change> changes = changes_;
    std::stable_sort(changes.begin(), changes.end(),
                     [](const Change& a, const Change& b) { return a.begin < b.begin; });
    std::string text;
    size_t at = 0;
    for (const Change& change : changes) {
        text.append(text_, at, change.begin - at) += change.text;
        at = change.end;
    }
    text.append(text_, at, std::string::npos);
    Kit::Platform::NewFile file(toFilepath(realPath(manifest_)), std::filesystem::status(manifest_).permissions());
    file.write(text.data(), text.size());
    file.finish();
}

}  // namespace TarnoMirelo::Tool
