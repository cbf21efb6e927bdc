#pragma once

#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// Runs the tool: parses its arguments, in UTF-8 and without the program's name, and runs the command that they name.
/// @return the process's exit code
int runTool(const std::vector<std::string>& arguments);

}  // namespace TarnoMirelo::Tool
