#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/kit/trace.h>

#include <fstream>
#include <initializer_list>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

using Nanoseconds = std::chrono::nanoseconds;

unsigned char byteAt(std::string_view text, size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

// The length of the UTF-8 sequence of several bytes that begins at `begin`, 0 where there is none.
size_t sequenceAt(std::string_view text, size_t begin) {
    const unsigned char lead = byteAt(text, begin);
    const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(text, begin + i) & 0xC0) != 0x80) return 0;
    }
    const unsigned char second = byteAt(text, begin + 1);
    const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
    const bool outside = (lead == 0xED && second >= 0xA0) || (lead == 0xF4 && second >= 0x90);
    return overlong || outside ? 0 : length;
}

// The text as a JSON string, in quotes.
std::string quoted(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const unsigned char byte = byteAt(text, i);
        size_t length = 1;
        if (byte == '"' || byte == '\\') {
            out += {'\\', static_cast<char>(byte)};
        } else if (byte < 0x20) {
            out += "\\u00";
            out += {kDigits[byte >> 4], kDigits[byte & 0xF]};
        } else if (byte < 0x80) {
            out += static_cast<char>(byte);
        } else if ((length = sequenceAt(text, i)) != 0) {
            out += text.substr(i, length);
        } else {
            out += "\\ufffd";
            length = 1;
        }
        i += length;
    }
    return out + "\"";
}

// A member of a JSON object, whose value is JSON already.
std::string member(std::string_view name, const std::string& value) { return quoted(name) + ": " + value; }

std::string object(std::initializer_list<std::string> members) {
    std::string text;
    for (const std::string& each : members) text += (text.empty() ? "{" : ", ") + each;
    return text + "}";
}

// In microseconds, as in "12.034".
std::string microseconds(Nanoseconds time) {
    const int64_t count = time.count();
    const uint64_t size = count < 0 ? 0 - static_cast<uint64_t>(count) : static_cast<uint64_t>(count);
    const std::string fraction = std::to_string(size % 1000);
    return (count < 0 ? "-" : "") + std::to_string(size / 1000) + "." + std::string(3 - fraction.size(), '0') +
           fraction;
}

}  // namespace

struct ChromeTraceFile::File {
    std::mutex lock;
    std::string path;
    std::ofstream stream;
    std::chrono::steady_clock::time_point origin = std::chrono::steady_clock::now();
    std::unordered_map<std::thread::id, size_t> threads;  // by the number that each one has
    std::unordered_map<std::string, uint64_t> memory;     // of each model, as it was written last
    bool failed = false;
    bool begun = false;

    std::string textOf(const TraceEvent& event);
    void write(const std::string& text) {
        if (!stream.is_open()) return;
        stream << text << std::flush;
        failed = failed || !stream.good();
    }
};

std::string ChromeTraceFile::File::textOf(const TraceEvent& event) {
    const size_t thread = threads.emplace(std::this_thread::get_id(), threads.size() + 1).first->second;
    std::string text = begun ? ",\n" : "[\n";
    const std::string process = member("pid", "1");
    text += object({member("name", quoted(event.operation)), member("cat", quoted(event.modelName)),
                    member("ph", quoted("X")), process, member("tid", std::to_string(thread)),
                    member("ts", microseconds(event.start - origin)), member("dur", microseconds(event.duration)),
                    member("args", object({member("status", quoted(toText(event.status.getCode()))),
                                           member("description", quoted(event.status.getDescription())),
                                           member("memory", std::to_string(event.memory))}))});
    const auto known = memory.emplace(event.modelName, 0).first;
    if (known->second != event.memory) {
        text += ",\n" + object({member("name", quoted("memory of " + event.modelName)), member("ph", quoted("C")),
                                process, member("ts", microseconds(event.start + event.duration - origin)),
                                member("args", object({member("bytes", std::to_string(event.memory))}))});
        known->second = event.memory;
    }
    return text;
}

ChromeTraceFile::ChromeTraceFile(const Filepath& path) : file_(std::make_unique<File>()) {
    file_->path = toText(path);
    file_->stream = FileUtils().openFileToWriteBinaryData(path);
    file_->failed = !file_->stream.is_open();
}

ChromeTraceFile::~ChromeTraceFile() {
    try {
        close();
    } catch (...) {  // NOLINT(bugprone-empty-catch): no memory for a status that nobody gets
    }
}

void ChromeTraceFile::record(const TraceEvent& event) {
    const std::lock_guard<std::mutex> lock(file_->lock);
    if (!file_->stream.is_open()) return;
    try {
        file_->write(file_->textOf(event));
        file_->begun = true;
    } catch (...) {  // no memory for the text
        file_->failed = true;
        throw;
    }
}

MireloStatus ChromeTraceFile::close() {
    {
        const std::lock_guard<std::mutex> lock(file_->lock);
        if (file_->stream.is_open()) {
            file_->write(file_->begun ? "\n]\n" : "[]\n");
            file_->stream.close();
            file_->failed = file_->failed || file_->stream.fail();
        }
    }
    return status();
}

MireloStatus ChromeTraceFile::status() const {
    const std::lock_guard<std::mutex> lock(file_->lock);
    if (!file_->failed) return {SUCCESS, ""};
    return {FILE_ERROR, "Trace: cannot write the file " + file_->path};
}

}  // namespace TarnoMirelo::Kit
