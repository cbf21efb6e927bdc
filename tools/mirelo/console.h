#pragma once

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace TarnoMirelo::Tool {

/// JSON whose members keep their order.
using Json = nlohmann::ordered_json;

/// The value on several lines, but lists of numbers and the like on one. Bytes of texts that are not UTF-8 are
/// replaced.
std::string toText(const Json& value);

enum class Colour { Red, Yellow, Green, Bold };

/// Where a command's results and progress go, and in which form. Colours and progress appear on a terminal only; the
/// environment's NO_COLOR turns colours off.
class Console {
 public:
    Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    /// Clears the line of progress.
    ~Console();

    /// Whether the results are wanted as JSON: then `print` writes one value, and nothing else goes to standard output.
    bool json() const { return json_; }
    void setJson(bool json) { json_ = json; }

    /// Writes to standard output.
    void print(std::string_view text);
    /// Writes the value to standard output as `toText` has it.
    void printJson(const Json& value);
    /// Writes "mirelo: error: " and the text to standard error.
    void printError(std::string_view text);
    /// Likewise with "mirelo: warning: ".
    void printWarning(std::string_view text);
    /// The text in a colour, for standard output.
    std::string paint(Colour colour, std::string_view text) const;

    /// Shows on standard error what is being done, in one line that the next output removes. Cheap enough for each
    /// step of a loop.
    /// @param share  of the work that is done, from 0 to 1
    void progress(std::string_view work, double share);

    /// Hands everything to the system.
    /// Raises `Failure` where standard output did not take it, as on a full disk.
    void flush();

 private:
    void printMessage(Colour colour, std::string_view label, std::string_view text);
    void clearProgress();

    bool json_ = false;
    bool colours_;
    bool errorColours_;
    bool showsProgress_;
    std::string progress_;  // the line that is there
};

}  // namespace TarnoMirelo::Tool
