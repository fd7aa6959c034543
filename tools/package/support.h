// What a panel has copied to a stick, its folder "PANEL-TIME", on one page for whoever is to say what was
// wrong.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace package {

struct SupportLine {
    std::string mark; // "good", "warning" or "error"
    std::string text;
    std::vector<std::string> more;
};

struct SupportSection {
    std::string title;
    std::vector<SupportLine> lines;
    std::vector<std::string> block; // as it stands in a file
};

struct SupportPage {
    std::string title;
    std::vector<SupportSection> sections;
};

// Reads the folder, and nothing outside of it: what leads out of it, is no regular file or too large is named
// and left out. Throws Failure when none of a panel's files is there.
SupportPage readEvidence(const std::filesystem::path& folder);

// For a terminal; and self-contained HTML: no network, no script. `program` is what made it.
std::string supportText(const SupportPage& page);
std::string supportHtml(const SupportPage& page, const std::string& program);

} // namespace package
