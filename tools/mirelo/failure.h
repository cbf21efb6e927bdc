#pragma once

#include <TarnoMirelo/status.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Tool {

/// What the tool ends with.
enum ExitCode : int {
    kDone = 0,
    kFailed = 1,
    kWrongUsage = 2,
    kInterrupted = 130,
};

/// The text in one line of UTF-8: control characters and what is no UTF-8 become escapes, as in "\n" and "\x1b". What
/// comes out of a package or an archive could else change the terminal, or look like lines of the tool's own.
std::string printable(std::string_view text);

/// A command can't do what it was asked for. The text is for people: the thing, what was found, what is wanted.
struct Failure : std::runtime_error {
    /// The text becomes printable.
    explicit Failure(const std::string& text);
    /// @param details  each gets a line below the text
    Failure(const std::string& text, const std::vector<std::string>& details);
};

/// The command line itself is wrong, in a way that shows only when the command looks at it.
struct WrongUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What the system refused, for people: the path and the reason.
std::string reasonOf(const std::filesystem::filesystem_error& error);

/// Raises `Failure` with the thing and what the library says of it, unless that is a success or a warning.
void require(const std::string& thing, const MireloStatus& status);

}  // namespace TarnoMirelo::Tool
