#include "completion.h"

#include "findingKinds.h"
#include "processors.h"

#include <algorithm>

namespace package {

namespace {

struct Choice {
    std::vector<std::string> names; // none for a word at its place
    std::string help;
    std::string values; // of an option that takes one of few, with blanks between
    bool takesValue;
};

std::string joined(const std::vector<std::string>& words, const char* between = " ") {
    std::string text;
    for (const std::string& each : words)
        text += (text.empty() ? "" : between) + each;
    return text;
}

// What an option is checked to be one of, else what it usually is.
std::string valuesOf(const CLI::Option& option) {
    const std::string type = option.get_type_name(); // "TEXT:{one,other}"
    const std::size_t open = type.find('{');
    std::string values;
    if (open != type.npos)
        values = type.substr(open + 1, type.find('}') - open - 1);
    else if (option.check_lname("processor"))
        values = option.get_description().starts_with("KIND of ") ? joined(processorNames()) : "";
    else if (option.check_lname("allow"))
        values = joined(kinds::names());
    else if (option.check_lname("baud"))
        values = "19200 38400 57600 115200";
    std::replace(values.begin(), values.end(), ',', ' ');
    return values;
}

std::vector<Choice> choicesOf(const CLI::App& command) {
    std::vector<Choice> choices;
    for (const CLI::Option* option : command.get_options()) {
        std::vector<std::string> names;
        for (const std::string& each : option->get_lnames())
            names.push_back("--" + each);
        for (const std::string& each : option->get_snames())
            names.push_back("-" + each);
        const std::string values = valuesOf(*option);
        if (!names.empty() || !values.empty()) // else it is a path
            choices.push_back(
                {names, option->get_description(), values, option->get_items_expected_max() > 0});
    }
    return choices;
}

std::string namesOf(const std::vector<Choice>& choices) {
    std::vector<std::string> names;
    for (const Choice& each : choices)
        names.insert(names.end(), each.names.begin(), each.names.end());
    return joined(names);
}

// What may stand there that is no option; empty when it is a path.
std::string placeValues(const std::vector<Choice>& choices) {
    std::string values;
    for (const Choice& each : choices)
        values += each.names.empty() ? each.values : "";
    return values;
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
            const std::string line =
                "    " + joined(each.names, "|") + ") words=\"" + each.values + "\" ;;\n";
            if (!each.names.empty() && !each.values.empty() && cases.find(line) == cases.npos)
                cases += line;
        }
    }
    return cases;
}

std::string bashScript(const CLI::App& app) {
    std::string options;
    std::string places;
    for (const CLI::App* each : commandsOf(app)) {
        const std::vector<Choice> choices = choicesOf(*each);
        const std::string values = placeValues(choices);
        options += "        " + each->get_name() + ") words=\"" + namesOf(choices) + "\" ;;\n";
        places += values.empty() ? "" : "        " + each->get_name() + ") words=\"" + values + "\" ;;\n";
    }
    return "# Completion of keldra-package for bash.\n\n_keldra_package() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} words=''\n"
           "    [[ $current != '=' ]] || current=''\n"
           "    [[ $before != '=' ]] || before=${COMP_WORDS[COMP_CWORD - 2]}\n"
           "    COMPREPLY=()\n"
           "    case $before in\n" +
           valueCases(app) +
           "    esac\n"
           "    if [[ -z $words && $COMP_CWORD == 1 ]]; then\n        words=\"" +
           commandNames(app) + " " + namesOf(choicesOf(app)) +
           "\"\n    elif [[ -z $words && $current == -* ]]; then\n        case ${COMP_WORDS[1]} in\n" +
           options +
           "        esac\n"
           "    elif [[ -z $words ]]; then\n        case ${COMP_WORDS[1]} in\n" +
           places +
           "        esac\n    fi\n"
           "    if [[ $words ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "    else\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
           "    fi\n}\n\ncomplete -F _keldra_package keldra-package\n";
}

// A text for people, inside of single quotes.
std::string quoted(std::string text, const std::string& special) {
    std::string safe;
    for (const char each : text)
        safe +=
            each == '\'' ? "'\\''" : (special.find(each) == special.npos ? "" : "\\") + std::string(1, each);
    return "'" + safe + "'";
}

// An argument of _arguments for each name.
std::string zshOptions(const CLI::App& command) {
    std::string lines;
    for (const Choice& each : choicesOf(command)) {
        const std::string value = !each.takesValue      ? ""
                                  : each.values.empty() ? ":value:_files"
                                                        : ":value:(" + each.values + ")";
        for (const std::string& name : each.names) {
            const char* form = !each.takesValue ? "[" : name.starts_with("--") ? "=[" : "+[";
            lines += " \\\n            " + quoted("*" + name + form, "") + quoted(each.help, "[]:") +
                     quoted("]" + value, "");
        }
    }
    return lines;
}

std::string zshScript(const CLI::App& app) {
    std::string commands;
    std::string cases;
    for (const CLI::App* command : commandsOf(app)) {
        const std::string values = placeValues(choicesOf(*command));
        commands += "        " + quoted(command->get_name() + ":" + command->get_description(), "") + "\n";
        cases += "    " + command->get_name() + ")\n        _arguments" + zshOptions(*command) +
                 " \\\n            " +
                 quoted("*:word:" + (values.empty() ? "_files" : "(" + values + ")"), "") + "\n        ;;\n";
    }
    return "#compdef keldra-package\n# Completion of keldra-package for zsh.\n\n_keldra_package() {\n    "
           "local -a commands=(\n" +
           commands +
           "    )\n    if ((CURRENT == 2)); then\n        _describe command commands\n        _arguments" +
           zshOptions(app) +
           "\n        return\n    fi\n"
           "    local command=$words[2]\n    shift words\n    ((CURRENT -= 1))\n    case $command in\n" +
           cases + "    esac\n}\n\n_keldra_package \"$@\"\n";
}

std::string fishOptions(const CLI::App& command, const std::string& condition) {
    const std::string start = "complete -c keldra-package -n " + quoted(condition, "");
    std::string lines;
    for (const Choice& each : choicesOf(command)) {
        lines += start;
        for (const std::string& name : each.names)
            lines += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
        lines += each.names.empty() ? " -f" : " -d " + quoted(each.help, "");
        lines += !each.takesValue ? ""
                 : each.values.empty()
                     ? " -r"
                     : std::string(each.names.empty() ? "" : " -x") + " -a " + quoted(each.values, "");
        lines += "\n";
    }
    return lines;
}

std::string fishScript(const CLI::App& app) {
    std::string script =
        "# Completion of keldra-package for fish.\n" + fishOptions(app, "__fish_use_subcommand");
    for (const CLI::App* command : commandsOf(app))
        script += "complete -c keldra-package -n __fish_use_subcommand -f -a " + command->get_name() +
                  " -d " + quoted(command->get_description(), "") + "\n" +
                  fishOptions(*command, "__fish_seen_subcommand_from " + command->get_name());
    return script;
}

} // namespace

std::string completionScript(const CLI::App& app, const std::string& shell) {
    return shell == "zsh" ? zshScript(app) : shell == "fish" ? fishScript(app) : bashScript(app);
}

} // namespace package
