#include "show.h"

#include "fileType.h"
#include "files.h"
#include "hexCheck.h"
#include "lib/format.h"

#include <algorithm>

namespace package {

using flashLayouts::LAYOUT;

namespace {

constexpr std::size_t PAGES_A_LINE = 64;

struct Mark {
    char letter;
    const char* colour;
};
constexpr Mark USED = {'#', "\033[32m"};
constexpr Mark EMPTY = {'-', "\033[2m"};
constexpr Mark GAP = {'!', "\033[31m"};
constexpr const char* PLAIN = "\033[0m";

Mark markOf(const hexpage::MEMORY_PAGE& page, const std::vector<imageCheck::HOLE>& gaps,
            std::uint32_t scale) {
    const std::uint64_t start = std::uint64_t{page.startAddress} * scale;
    const std::uint64_t end = (std::uint64_t{page.endAddress} + 1) * scale;
    const bool hasGap = std::any_of(gaps.begin(), gaps.end(), [&](const imageCheck::HOLE& gap) {
        return gap.start < end && gap.end > start;
    });
    return hasGap ? GAP : page.data.empty() ? EMPTY : USED;
}

std::string drawRegion(const hexpage::MEMORY_REGION& region, const std::vector<imageCheck::HOLE>& gaps,
                       std::uint32_t scale, bool colours) {
    std::size_t used = 0;
    std::size_t bytes = 0;
    for (const hexpage::MEMORY_PAGE& page : region.pages) {
        used += page.data.empty() ? 0 : 1;
        bytes += page.data.size();
    }
    std::string text =
        format("region 0x%08X to 0x%08X, pages of %u bytes: %zu used of %zu, %zu bytes, %zu gaps\n",
               region.startAddress, region.endAddress - 1, region.blockSize, used, region.pages.size(), bytes,
               gaps.size());
    for (std::size_t i = 0; i < region.pages.size(); ++i) {
        if (i % PAGES_A_LINE == 0)
            text += format("%s  0x%08X ", i == 0 ? "" : "\n", region.pages[i].startAddress);
        const Mark mark = markOf(region.pages[i], gaps, scale);
        text += colours ? mark.colour + std::string(1, mark.letter) + PLAIN : std::string(1, mark.letter);
    }
    return text + (region.pages.empty() ? "" : "\n");
}

} // namespace

std::string drawImage(const std::filesystem::path& path, const Processor* processor, bool serial,
                      bool colours) {
    const FileNature nature = natureOf(path);
    if (nature.type != FileType::IntelHex)
        throw Failure(path.string() + ": it is " + nature.name + ", no Intel HEX");
    Findings ignored; // the records' findings are for the check
    const std::string name = path.filename().string();
    const HexFile file(path, name, ignored);
    if (processor == nullptr)
        processor = &guessProcessor(file.records());
    if (processor->records)
        return format("%s: %zu data records, sent as they are; %s has no pages\n", name.c_str(),
                      file.records().size(), processor->name);
    const LAYOUT layout = processor->layout(serial);
    hexpage image;
    if (!readByPanel(path, layout, image) || image.getTotalPages() == 0)
        throw Failure(path.string() + ": the panel's reader refuses it for " + processor->name +
                      " (keldra-package check says why)");
    std::string text = name + " on " + processor->name + "   # used  - empty  ! gap\n";
    for (std::size_t i = 0; i < layout.regions.size(); ++i)
        text += drawRegion(image.getRegions()[i],
                           imageCheck::findGaps(file.stretches(), layout, layout.regions[i]),
                           bytesPerAddress(layout), colours);
    if (image.droppedBytes() > 0)
        text += format("%zu bytes lie outside of all regions and would be dropped\n", image.droppedBytes());
    return text;
}

} // namespace package
