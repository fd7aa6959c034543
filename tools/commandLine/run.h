// A program's main().
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace commandLine {

constexpr int WRONG_LINE = 2; // exit status

// Parses the words, works, and says on standard error what went wrong. Returns the exit status: what `work`
// returns; WRONG_LINE for words that the app does not take, and when `work` throws CLI::ParseError or
// std::invalid_argument; `failed` for all other exceptions, and when standard output could not be written.
int run(CLI::App& app, int argc, char** argv, int failed, const std::function<int()>& work);

} // namespace commandLine
