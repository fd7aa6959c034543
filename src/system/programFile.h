#pragma once

#include <string>

/** What a program's file tells before anybody starts it. */
namespace programFile {

/** True when it is made for a processor; a script is not. */
bool isMachineCode(const std::string& path);
/**
 * Why it can't be started on this machine, in a few words; empty when nothing speaks against it. Looks at the
 * right to execute it, its machine, its word size, and whether all is there that its headers promise; what
 * was damaged within it does not show.
 */
std::string objection(const std::string& path);

} // namespace programFile
