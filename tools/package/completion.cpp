#include "completion.h"

#include "processors.h"

#include <algorithm>

namespace package {

namespace {

struct Choice {
    std::string names; // with blanks between
    std::string help;
    std::string values; // of an option that takes one of few, with blanks between
    bool takesValue;
};

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& each : words)
        text += (text.empty() ? "" : " ") + each;
    return text;
}

std::string valuesOf(const std::string& option) {
    if (option == "--processor")
        return joined(processorNames());
    if (option == "--arch")
        return "armhf armel arm64 amd64 i386 riscv64 any";
    return option == "--kernel"   ? "any"
           : option == "--format" ? "text json sarif github"
           : option == "--baud"   ? "19200 38400 57600 115200"
                                  : "";
}

std::vector<Choice> choicesOf(const CLI::App& command) {
    std::vector<Choice> choices;
    for (const CLI::Option* option : command.get_options()) {
        std::vector<std::string> names;
        for (const std::string& each : option->get_lnames())
            names.push_back("--" + each);
        for (const std::string& each : option->get_snames())
            names.push_back("-" + each);
        if (!names.empty()) // else it is a path
            choices.push_back({joined(names), option->get_description(), valuesOf(names.front()),
                               option->get_items_expected_max() > 0});
    }
    return choices;
}

std::string namesOf(const std::vector<Choice>& choices) {
    std::vector<std::string> names;
    for (const Choice& each : choices)
        names.push_back(each.names);
    return joined(names);
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* each : commandsOf(app))
        names.push_back(each->get_name());
    return joined(names);
}

// The values of each option are the same with every command.
std::string valueCases(const CLI::App& app) {
    std::string cases;
    for (const CLI::App* command : commandsOf(app)) {
        for (const Choice& each : choicesOf(*command)) {
            std::string pattern = each.names;
            std::replace(pattern.begin(), pattern.end(), ' ', '|');
            const std::string line = "    " + pattern + ") words=\"" + each.values + "\" ;;\n";
            if (!each.values.empty() && cases.find(line) == cases.npos)
                cases += line;
        }
    }
    return cases;
}

std::string bashScript(const CLI::App& app) {
    std::string options;
    for (const CLI::App* each : commandsOf(app))
        options += "    " + each->get_name() + ") words=\"" + namesOf(choicesOf(*each)) + "\" ;;\n";
    return "# Completion of keldra-package for bash.\n\n_keldra_package() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} words=''\n"
           "    COMPREPLY=()\n"
           "    case ${COMP_WORDS[COMP_CWORD - 1]} in\n" +
           valueCases(app) +
           "    esac\n"
           "    if [[ -z $words && $COMP_CWORD == 1 ]]; then\n        words=\"" +
           commandNames(app) + " " + namesOf(choicesOf(app)) +
           "\"\n    elif [[ -z $words && $current == -* ]]; then\n        case ${COMP_WORDS[1]} in\n" +
           options +
           "        esac\n    fi\n"
           "    if [[ $words ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "    else\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "    fi\n}\n\ncomplete -o filenames -F _keldra_package keldra-package\n";
}

// A text for people, inside of single quotes.
std::string quoted(std::string text, const std::string& special) {
    std::string safe;
    for (const char each : text)
        safe +=
            each == '\'' ? "'\\''" : (special.find(each) == special.npos ? "" : "\\") + std::string(1, each);
    return "'" + safe + "'";
}

std::string zshScript(const CLI::App& app) {
    std::string commands;
    std::string cases;
    for (const CLI::App* command : commandsOf(app)) {
        commands += "        " + quoted(command->get_name() + ":" + command->get_description(), "") + "\n";
        cases += "    " + command->get_name() + ")\n        _arguments";
        for (const Choice& each : choicesOf(*command)) {
            const std::string value = !each.takesValue      ? ""
                                      : each.values.empty() ? ":value:_files"
                                                            : ":value:(" + each.values + ")";
            for (std::size_t at = 0; at < each.names.size();) {
                const std::size_t end = std::min(each.names.find(' ', at), each.names.size());
                cases += " \\\n            " + quoted("*" + each.names.substr(at, end - at) + "[", "") +
                         quoted(each.help, "[]:") + quoted("]" + value, "");
                at = end + 1;
            }
        }
        cases += " \\\n            '*:file:_files'\n        ;;\n";
    }
    return "#compdef keldra-package\n# Completion of keldra-package for zsh.\n\n_keldra_package() {\n    "
           "local -a commands=(\n" +
           commands +
           "    )\n    if ((CURRENT == 2)); then\n        _describe command commands\n        return\n    "
           "fi\n"
           "    local command=$words[2]\n    shift words\n    ((CURRENT -= 1))\n    case $command in\n" +
           cases + "    esac\n}\n\n_keldra_package \"$@\"\n";
}

std::string fishScript(const CLI::App& app) {
    std::string script = "# Completion of keldra-package for fish.\n";
    for (const CLI::App* command : commandsOf(app)) {
        const std::string& name = command->get_name();
        script += "complete -c keldra-package -n __fish_use_subcommand -f -a " + name + " -d " +
                  quoted(command->get_description(), "") + "\n";
        for (const Choice& each : choicesOf(*command)) {
            const std::string longName = each.names.substr(0, each.names.find(' '));
            script += "complete -c keldra-package -n '__fish_seen_subcommand_from " + name + "' -l " +
                      longName.substr(longName.find_first_not_of('-')) + " -d " + quoted(each.help, "") +
                      (!each.takesValue      ? ""
                       : each.values.empty() ? " -r"
                                             : " -x -a " + quoted(each.values, "")) +
                      "\n";
        }
    }
    return script;
}

} // namespace

std::string completionScript(const CLI::App& app, const std::string& shell) {
    return shell == "zsh" ? zshScript(app) : shell == "fish" ? fishScript(app) : bashScript(app);
}

} // namespace package
