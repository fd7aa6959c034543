// Findings and plans as text for people or JSON for programs.
#pragma once

#include "finding.h"
#include "plan.h"

#include <string>

namespace package {

enum class Format {
    Text,   // for people
    Json,   // for programs: docs/package.md has the fields
    Sarif,  // for code reviews: SARIF 2.1.0
    Github, // for the log of a GitHub action
};

// `package` is what was checked; `colours` are those of a terminal, for the text.
std::string reportFindings(const Findings& findings, Format format, const std::string& package, bool colours);
std::string counts(const Findings& findings); // "1 error, 0 warnings"

// Names may hold anything: control characters are written as their number, \x07.
std::string printable(const std::string& text);

const char* nameOf(Decision decision);
std::string planText(const Plan& plan, unsigned baud);
std::string planJson(const Plan& plan, const Findings& findings, unsigned baud);

} // namespace package
