// Scripts that complete command lines, made from the description of the options.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace package {

// For "bash", "zsh" or "fish".
std::string completionScript(const CLI::App& app, const std::string& shell);

} // namespace package
