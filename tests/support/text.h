#pragma once

#include <TarnoMirelo/tensor.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace TarnoMirelo {

// Values as text, for comparisons.

inline constexpr const char* kSuccess = "1: ";

/// Code and description, as in "12: No model component found".
inline std::string text(const MireloStatus& status) {
    return std::to_string(status.getCode()) + ": " + status.getDescription();
}

/// The message; without the system's reason, which differs from system to system, where `expected` stops before it.
inline std::string upToReason(const std::string& message, const std::string& expected) {
    const bool stops = expected.size() > 2 && expected.compare(expected.size() - 2, 2, ": ") == 0;
    return stops && message.size() > expected.size() ? message.substr(0, expected.size()) : message;
}

/// What `work` raises, as the status that it converts to; "nothing" when it raises nothing.
template <typename Work>
std::string raised(const Work& work) {
    try {
        work();
    } catch (...) {
        return text(getStatusFromCurrentException());
    }
    return "nothing";
}

inline std::ostream& operator<<(std::ostream& out, const TensorShape& shape) {
    for (const char* separator = "("; const int64_t dimension : shape.shapeVector()) {
        out << separator << dimension;
        separator = ",";
    }
    return out << (shape.dimension() == 0 ? "()" : ")");
}

/// Several values in a row, as in "20 1 (1,5)".
template <typename... Values>
std::string list(const Values&... values) {
    std::ostringstream out;
    const char* separator = "";
    ((out << separator << values, separator = " "), ...);
    return out.str();
}

/// One case of a file of cases: what follows a line "= title", up to a line "-", and what follows that.
struct TextCase {
    std::string title, input, expected;
};

inline std::vector<TextCase> readCases(const std::string& path) {
    std::ifstream file(path);
    std::vector<TextCase> cases;
    std::string* part = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("= ", 0) == 0) {
            part = &cases.emplace_back(TextCase{line, "", ""}).input;
        } else if (line == "-") {
            part = &cases.back().expected;
        } else if (part != nullptr) {
            *part += line + "\n";
        }
    }
    return cases;
}

}  // namespace TarnoMirelo
