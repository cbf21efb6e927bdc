#include "tool.h"

#include "commands.h"
#include "console.h"
#include "failure.h"
#include "interrupt.h"
#include "platform.h"

#include <algorithm>
#include <iostream>
#include <new>

namespace TarnoMirelo::Tool {
namespace {

std::string refusalOfCommand(const CLI::App& application) {
    const std::vector<std::string> remaining = application.remaining();
    std::string names;
    for (const CLI::App* const command : application.get_subcommands({})) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    const std::string found =
        remaining.empty() ? "no command is given" : "there is no command \"" + remaining.front() + "\"";
    return found + ", wanted is one of " + names;
}

// Nothing where a command is to be run.
std::optional<ExitCode> parse(Commands& commands, std::vector<std::string> arguments, Console& console) {
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    CLI::App& application = commands.application();
    try {
        application.parse(arguments);
        return std::nullopt;
    } catch (const CLI::CallForHelp&) {
        CLI::App* const command =
            application.get_subcommands().empty() ? &application : application.get_subcommands().front();
        console.print(command->help(command == &application ? "" : "mirelo"));
        console.flush();
        return kDone;
    } catch (const CLI::CallForVersion& version) {
        console.print(std::string(version.what()) + "\n");
        console.flush();
        return kDone;
    } catch (const CLI::ParseError& error) {
        const std::vector<CLI::App*> parsed = application.get_subcommands();
        if (parsed.empty()) throw WrongUsage(refusalOfCommand(application));
        throw WrongUsage(std::string(error.what()) + "\n\"mirelo " + parsed.front()->get_name() +
                         " --help\" tells what is wanted.");
    }
}

}  // namespace

int runTool(const std::vector<std::string>& arguments) {
    Platform::prepareStandardStreams();
    catchInterrupts();
    Console console;
    try {
        Commands commands;
        addCommands(commands);
        if (const std::optional<ExitCode> done = parse(commands, arguments, console)) return *done;
        const ExitCode code = commands.run(console);
        console.flush();
        return code;
    } catch (const Interrupted&) {
        return kInterrupted;
    } catch (const WrongUsage& wrong) {
        console.printError(wrong.what());
        return kWrongUsage;
    } catch (const std::filesystem::filesystem_error& error) {
        console.printError(printable(reasonOf(error)));
        return kFailed;
    } catch (const std::bad_alloc&) {
        console.printError("there is not enough memory");
        return kFailed;
    } catch (const Failure& failure) {
        console.printError(failure.what());
        return kFailed;
    } catch (const std::exception& failure) {
        console.printError(printable(failure.what()));
        return kFailed;
    }
}

}  // namespace TarnoMirelo::Tool
