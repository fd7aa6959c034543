#include "run.h"

#include "suggest.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace commandLine {

namespace {

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& each : option->get_lnames())
            names.push_back("--" + each);
    }
    return names;
}

// The command that was begun, else the program.
const CLI::App& commandOf(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : *chosen.front();
}

// The words that nothing was found for say more than what is then missing.
void explain(const CLI::App& app) {
    const CLI::App& command = commandOf(app);
    for (const std::string& word : app.remaining(true)) {
        const std::string name = word.substr(0, word.find('='));
        if (name.starts_with("--"))
            throw CLI::ParseError("there is no option " + name + suggest(name, optionsOf(command)),
                                  CLI::ExitCodes::ExtrasError);
        std::vector<std::string> names;
        for (const CLI::App* each : commandsOf(command))
            names.push_back(each->get_name());
        if (!names.empty())
            throw CLI::ParseError("there is no command \"" + word + "\"" + suggest(word, names),
                                  CLI::ExitCodes::ExtrasError);
    }
}

void parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) // it is not what was asked for, the help
            explain(app);
        throw;
    }
}

void requireWritten() {
    std::cout.flush();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw std::runtime_error(std::string("the output can't be written: ") + std::strerror(errno));
}

} // namespace

int run(CLI::App& app, int argc, char** argv, int failed, const std::function<int()>& work) {
    app.failure_message([](const CLI::App* program, const CLI::Error& error) {
        const CLI::App& command = commandOf(*program);
        const std::string name = program->get_name();
        return name + ": " + error.what() + "\nSee " + name +
               (&command == program ? "" : " " + command.get_name()) + " --help\n";
    });
    std::string text;
    try {
        parse(app, argc, argv);
        const int status = work();
        requireWritten();
        return status;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : WRONG_LINE;
    } catch (const std::invalid_argument& error) {
        failed = WRONG_LINE;
        text = error.what();
    } catch (const std::filesystem::filesystem_error& error) {
        text = error.path1().string() + ": " + error.code().message();
    } catch (const std::exception& error) {
        text = error.what();
    }
    std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), text.c_str());
    return failed;
}

} // namespace commandLine
