// Writes the manual page or the completions of a shell to standard output, from what the commands say of themselves:
// mirelo-pages man|bash|zsh. It runs while the tool is built.

#include "commands.h"

#include <iostream>

namespace TarnoMirelo::Tool {
namespace {

std::vector<const CLI::App*> commandsOf(const Commands& commands) {
    const CLI::App& application = commands.application();
    return application.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& command, bool positional) {
    return command.get_options(
        [positional](const CLI::Option* option) { return option->get_positional() == positional; });
}

// As in "-o,--output TEXT".
std::string spellingOf(const CLI::Option& option) {
    const std::string name = option.get_name(false, true);
    return option.get_items_expected_max() == 0 ? name : name + " " + option.get_type_name();
}

// Every spelling of an option, as in "-o" and "--output".
std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::string roff(const std::string& text) { return replaced(replaced(text, "\\", "\\e"), "-", "\\-"); }

void writeMan(const Commands& commands) {
    std::cout << ".TH MIRELO 1 \"\" \"mirelo " MIRELO_VERSION
                 "\"\n.SH NAME\nmirelo \\- make and try out packaged models\n"
                 ".SH SYNOPSIS\n.B mirelo\n.I COMMAND\n[\\fIOPTION\\fR...]\n.SH DESCRIPTION\n"
              << roff(commands.application().get_description()) << "\n.SH COMMANDS\n";
    for (const CLI::App* const command : commandsOf(commands)) {
        std::cout << ".SS \"mirelo " << command->get_name();
        for (const CLI::Option* const argument : optionsOf(*command, true)) std::cout << " " << argument->get_name();
        std::cout << "\"\n" << roff(command->get_description()) << ".\n";
        for (const bool positional : {true, false}) {
            for (const CLI::Option* const option : optionsOf(*command, positional)) {
                const std::string spelling = positional ? option->get_name() : spellingOf(*option);
                std::cout << ".TP\n.B " << roff(spelling) << "\n" << roff(option->get_description()) << "\n";
            }
        }
        std::cout << ".PP\n.nf\n" << roff(command->get_footer()) << "\n.fi\n";
    }
    std::cout
        << ".SH EXIT STATUS\n0; 1 where the package, the file system or an engine refuses; 2 for a wrong command line; 130 "
           "after an interrupt.\n.SH ENVIRONMENT\n.TP\n.B NO_COLOR\nno colours\n";
}

void writeBash(const Commands& commands) {
    std::string names;
    std::string cases;
    for (const CLI::App* const command : commandsOf(commands)) {
        names += command->get_name() + " ";
        cases += "        " + command->get_name() + ") words=\"";
        for (const CLI::Option* const option : optionsOf(*command, false)) {
            for (const std::string& name : namesOf(*option)) cases += name + " ";
        }
        cases += "\" ;;\n";
    }
    std::cout
        << "# Completions of mirelo for bash.\n_mirelo() {\n    local words=\"\" word=${COMP_WORDS[COMP_CWORD]}\n"
           "    case $([ \"$COMP_CWORD\" -gt 1 ] && echo \"${COMP_WORDS[1]}\") in\n"
        << cases << "        '') words=\"" << names
        << "--help --version\" ;;\n    esac\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
           "    # What is no option is a file or a folder.\n"
           "    if [ \"$COMP_CWORD\" -gt 1 ] && [[ $word != -* ]]; then COMPREPLY=($(compgen -f -- \"$word\")); fi\n"
           "}\ncomplete -o filenames -F _mirelo mirelo\n";
}

void writeZsh(const Commands& commands) {
    const auto quoted = [](const std::string& text) { return "'" + replaced(text, "'", "'\\''") + "'"; };
    const auto inBrackets = [](const std::string& text) {
        return "[" + replaced(replaced(text, "[", "("), "]", ")") + "]";
    };
    std::cout << "#compdef mirelo\n# Completions of mirelo for zsh.\nlocal -a commands=(\n";
    for (const CLI::App* const command : commandsOf(commands)) {
        std::cout << "    " << quoted(command->get_name() + ":" + command->get_description()) << "\n";
    }
    std::cout << ")\nif (( CURRENT == 2 )); then\n    _describe command commands\n    return\nfi\n"
                 "local command=$words[2]\nshift words\n(( CURRENT-- ))\ncase $command in\n";
    for (const CLI::App* const command : commandsOf(commands)) {
        std::cout << "    " << command->get_name() << ") _arguments";
        for (const CLI::Option* const option : optionsOf(*command, false)) {
            const std::string description = inBrackets(option->get_description())
                                                .append(option->get_items_expected_max() == 0 ? "" : ":value:_files");
            for (std::string name : namesOf(*option)) std::cout << " " << quoted(name.append(description));
        }
        std::cout << " '*:file:_files' ;;\n";
    }
    std::cout << "esac\n";
}

}  // namespace
}  // namespace TarnoMirelo::Tool

int main(int argc, char** argv) {
    using namespace TarnoMirelo::Tool;
    const std::string kind = argc == 2 ? argv[1] : "";
    Commands commands;
    addCommands(commands);
    if (kind == "man") {
        writeMan(commands);
    } else if (kind == "bash") {
        writeBash(commands);
    } else if (kind == "zsh") {
        writeZsh(commands);
    } else {
        std::cerr << "mirelo-pages: wanted is man, bash or zsh" << std::endl;
        return 2;
    }
    return std::cout.flush() ? 0 : 1;
}
