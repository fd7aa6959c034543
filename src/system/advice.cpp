#include "advice.h"

#include "messages.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace {

constexpr std::string_view VARIES = "…"; ///< in the document: what differs from case to case
constexpr std::string_view CELL_END = "` |";
constexpr std::array<std::string_view, 3> BOOTLOADERS = {"CAN: ", "Serial: ", "SerialV2: "};

bool isWrittenAs(std::string_view written, std::string_view text) {
    std::size_t gap = written.find(VARIES);
    if (gap == written.npos) {
        return text == written;
    }
    if (!text.starts_with(written.substr(0, gap))) {
        return false;
    }
    text.remove_prefix(gap);
    for (;;) {
        written.remove_prefix(gap + VARIES.size());
        gap = written.find(VARIES);
        if (gap == written.npos) {
            return text.ends_with(written);
        }
        const std::size_t found = text.find(written.substr(0, gap));
        if (found == text.npos) {
            return false;
        }
        text.remove_prefix(found + gap);
    }
}

std::string_view withoutBootloader(std::string_view text) {
    for (const std::string_view name : BOOTLOADERS) {
        if (text.starts_with(name)) {
            return text.substr(name.size());
        }
    }
    return text;
}

/** The row's last cell; where it refers to the row above, with what is said there. */
std::string lastCell(std::string_view row, const std::string& above) {
    row.remove_suffix(1);
    row.remove_prefix(row.rfind('|') + 1);
    row.remove_prefix(std::min(row.find_first_not_of(' '), row.size()));
    row = row.substr(0, row.find_last_not_of(' ') + 1);
    for (const std::string_view reference : {"the same", "as above"}) {
        if (row.starts_with(reference)) {
            return above + std::string(row.substr(reference.size()));
        }
    }
    return std::string(row);
}

std::string asSentence(std::string text) {
    std::erase(text, '`');
    if (!text.empty()) {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
        text += text.ends_with('?') ? "" : ".";
    }
    return text;
}

} // namespace

std::string advice::about(const std::string& text) {
    std::string said;
    for (std::string_view rest = MESSAGES; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t end = line.find(CELL_END);
        if (!line.starts_with("| `") || end == line.npos || !line.ends_with('|')) {
            continue;
        }
        said = lastCell(line, said);
        const std::string_view written = line.substr(3, end - 3);
        if (isWrittenAs(written, text) || isWrittenAs(written, withoutBootloader(text))) {
            return asSentence(said);
        }
    }
    return {};
}
