#pragma once

#include "console.h"
#include "failure.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// The tool's commands. Each is added by a function below, in a file of its own.
class Commands {
 public:
    /// Does what the command is for. May raise any exception: `Failure`, and what else derives from std::exception,
    /// ends the tool with its text and `kFailed`, `WrongUsage` with `kWrongUsage`.
    using Work = std::function<ExitCode(Console& console)>;

    Commands();

    /// Adds a command with the option --json.
    /// @param summary  one line, for the list of commands
    /// @param example  lines of a shell; each begins with "mirelo"
    /// @return to add further options to
    CLI::App& add(const std::string& name, const std::string& summary, const std::string& example, Work work);

    CLI::App& application() { return application_; }
    const CLI::App& application() const { return application_; }
    /// Of the command that was parsed.
    ExitCode run(Console& console) const;

 private:
    CLI::App application_;
    Work chosen_;
    bool json_ = false;
};

/// Adds every command.
void addCommands(Commands& commands);

void addBench(Commands& commands);
void addCheck(Commands& commands);
void addDigest(Commands& commands);
void addInspect(Commands& commands);
void addKeygen(Commands& commands);
void addNew(Commands& commands);
void addPack(Commands& commands);
void addProtect(Commands& commands);
void addRun(Commands& commands);
void addUnpack(Commands& commands);
void addUnprotect(Commands& commands);

}  // namespace TarnoMirelo::Tool
