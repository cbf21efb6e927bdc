#include "commands.h"

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
}

}  // namespace TarnoMirelo::Tool
