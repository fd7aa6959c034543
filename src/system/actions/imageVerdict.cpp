#include "imageVerdict.h"

#include "../../lib/format.h"

namespace {

using imageCheck::FINDING;
using imageCheck::WHAT;

constexpr std::size_t MOST_LINES = 10; // of one image in the log

std::string titleOf(WHAT what) {
    switch (what) {
    case WHAT::DAMAGED:
        return "Image: damaged record: ";
    case WHAT::SEGMENT:
        return "Image: segment address, which is not applied: ";
    case WHAT::SPLIT:
        return "Image: record begins inside an instruction: ";
    case WHAT::DISORDER:
        return "Image: data out of order or twice, which goes to the page's end: ";
    case WHAT::GAP:
        return "Image: gap inside a page, what follows moves up: ";
    case WHAT::CROSSING:
        return "Image: data across the edge of the flash is dropped: ";
    case WHAT::NARROW:
        return "Image: data behind 16 address bits, which are cut: ";
    case WHAT::UNREACHED:
        return "Image: data is not reached, since the region before it has none: ";
    case WHAT::EMPTY:
        return "Image: no data for the flash: ";
    case WHAT::OUTSIDE:
        break;
    }
    return "Image: data outside of the flash is dropped: ";
}

std::string placeOf(const FINDING& found) {
    return format("page 0x%x, 0x%x to 0x%x, %u bytes, line %u", found.page, found.from, found.to, found.bytes,
                  found.line);
}

std::string restOf(std::size_t errors) {
    return "Image: more of these: " + std::to_string(errors - MOST_LINES);
}

} // namespace

bool imageVerdict::accepts(coreState& core, const std::string& prefix, const std::vector<FINDING>& findings) {
    const bool accepted = !core.strictImages || !imageCheck::hasError(findings);
    const logger::LOG_TYPE level = core.strictImages ? logger::LOG_ERROR : logger::LOG_WARNING;
    std::size_t errors = 0;
    for (const FINDING& each : findings) {
        const bool isError = each.what != WHAT::OUTSIDE;
        errors += isError ? 1 : 0;
        if (errors <= MOST_LINES || !isError) {
            core.log->log_item(prefix + titleOf(each.what) + placeOf(each),
                               isError ? level : logger::LOG_NOTICE);
        }
    }
    if (errors > MOST_LINES) {
        core.log->log_item(prefix + restOf(errors), level);
    }
    return accepted;
}
