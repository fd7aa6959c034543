#pragma once

#include "../../lib/shared.h"

#include <string>

/** Whether a program would run on this machine, as far as that shows without starting it for good. */
namespace programTrial {

/**
 * Why it would not, in a few words; empty when nothing speaks against it. Looks at the right to execute it,
 * its machine and its libraries, and has it tell its version, should it know how to: one that does not would
 * start to work. Takes 10 s at most; returns early when `cancel` is set.
 */
std::string objection(const std::string& path, const shared<bool>& cancel);

} // namespace programTrial
