#include "commands.h"

#include <set>
#include <utility>

namespace TarnoMirelo::Tool {

Commands::Commands() : application_("Makes, checks, looks into and tries out packaged models.", "mirelo") {
    application_.set_version_flag("--version", "mirelo " MIRELO_VERSION, "Print the version and exit");
    application_.set_help_flag("-h,--help", "Print this help and exit");
    application_.require_subcommand(1);
    application_.allow_windows_style_options(false);  // "/x" is a path
    application_.footer("\"mirelo COMMAND --help\" tells more of a command, with an example.");
}

CLI::App& Commands::add(const std::string& name, const std::string& summary, const std::string& example, Work work) {
    CLI::App* const command = application_.add_subcommand(name, summary);
    command->set_help_flag("-h,--help", "Print this help and exit");
    command->add_flag("--json", json_, "Print the results as JSON");
    command->footer("Example:\n" + example);
    command->final_callback([this, work = std::move(work)] { chosen_ = work; });
    return *command;
}

ExitCode Commands::run(Console& console) const {
    console.setJson(json_);
    return chosen_(console);
}

namespace {

// A shell's variable that is not set must not pass for an option that is left out. Texts for people may be empty.
void refuseEmptyValues(CLI::App& application) {
    const std::set<std::string> texts = {"--id", "--name", "--author", "--description"};
    for (CLI::App* const command : application.get_subcommands([](const CLI::App*) { return true; })) {
        for (CLI::Option* const option : command->get_options()) {
            if (option->get_items_expected_max() == 0 || texts.contains(option->get_name())) continue;
            option->check(
                [](const std::string& value) { return std::string(value.empty() ? "the value is empty" : ""); });
        }
    }
}

}  // namespace

void addCommands(Commands& commands) {
    addBench(commands);
    addCheck(commands);
    addDigest(commands);
    addInspect(commands);
    addKeygen(commands);
    addNew(commands);
    addPack(commands);
    addProtect(commands);
    addRun(commands);
    addUnpack(commands);
    addUnprotect(commands);
    refuseEmptyValues(commands.application());
}

}  // namespace TarnoMirelo::Tool
