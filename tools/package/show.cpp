#include "show.h"

#include "fileType.h"
#include "files.h"
#include "flashMap.h"
#include "lib/format.h"
#include "report.h"

namespace package {

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

const Mark& markOf(const FlashPage& page) {
    return page.use == FlashPage::Use::Gap ? GAP : page.use == FlashPage::Use::Used ? USED : EMPTY;
}

// The panel's address, and the file's where that is another one.
std::string addressOf(const FlashRegion& region, std::uint32_t address) {
    return format("0x%08X", address) +
           (region.scale == 1
                ? ""
                : format(" (file: 0x%08llX)", static_cast<unsigned long long>(address) * region.scale));
}

std::string drawRegion(const FlashRegion& region, bool colours) {
    std::string text =
        format("region %s to %s, pages of %u bytes: %zu used of %zu, %zu bytes, gaps: %zu\n",
               addressOf(region, region.start).c_str(), addressOf(region, region.end - 1).c_str(),
               region.pageSize, region.used(), region.pages.size(), region.bytes(), region.gaps);
    for (std::size_t i = 0; i < region.pages.size(); ++i) {
        if (i % PAGES_A_LINE == 0)
            text += (i == 0 ? "  " : "\n  ") + addressOf(region, region.pages[i].address) + " ";
        const Mark& mark = markOf(region.pages[i]);
        text += colours ? mark.colour + std::string(1, mark.letter) + PLAIN : std::string(1, mark.letter);
    }
    return text + (region.pages.empty() ? "" : "\n");
}

} // namespace

std::string drawImage(const std::filesystem::path& path, const Processor* processor, bool serial,
                      bool colours) {
    const FileNature nature = natureOf(path);
    if (sizeOf(path) > LARGEST_IMAGE)
        throw Failure(path.string() + ": " + shownSize(sizeOf(path)) + ", and no module has so much flash");
    if (nature.type != FileType::IntelHex)
        throw Failure(path.string() + ": it is " + nature.name + ", no Intel HEX" + adviceOn(nature.type));
    Findings findings;
    const std::string name = path.filename().string();
    const HexFile file(path, name, findings);
    if (file.records().empty())
        throw Failure(path.string() + ": there is no data in it");
    if (processor == nullptr)
        processor = &guessProcessor(file.records());
    if (processor->records)
        return format("%s: %zu data records, sent as they are; %s has no pages\n", name.c_str(),
                      file.records().size(), processor->name);
    const FlashMap map = mapOf(file, *processor, serial || !processor->onCan);
    std::string text = name + " on " + processor->name + "   # used  - empty  ! gap\n";
    for (const FlashRegion& region : map.regions)
        text += drawRegion(region, colours);
    if (map.outside > 0)
        text += format("%zu bytes lie outside of all regions and would be dropped\n", map.outside);
    if (findings.errors() != 0)
        text += counts(findings) + " (keldra-package check tells them)\n";
    return text;
}

} // namespace package
