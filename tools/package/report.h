// Findings and plans as text for people or JSON for programs.
#pragma once

#include "finding.h"
#include "plan.h"

#include <string>

namespace package {

std::string findingsText(const Findings& findings);
std::string findingsJson(const Findings& findings, const std::string& package);

std::string planText(const Plan& plan, unsigned baud);
std::string planJson(const Plan& plan, unsigned baud);

} // namespace package
