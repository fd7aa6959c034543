// The word that was probably meant.
#pragma once

#include <string>
#include <vector>

namespace commandLine {

// "; did you mean \"slave\"?" for a word that is a typing mistake away from one of the known ones, else
// empty.
std::string suggest(const std::string& word, const std::vector<std::string>& known);

} // namespace commandLine
