#include "hexCheck.h"

#include "fileType.h"
#include "files.h"
#include "findingKinds.h"
#include "lib/format.h"

#include <algorithm>

namespace package {

using flashLayouts::BOUNDS;
using flashLayouts::LAYOUT;

namespace {

unsigned shown(std::uint64_t address) {
    return static_cast<unsigned>(address);
}

// The checks of one image for one processor's flash.
class FlashCheck {
public:
    FlashCheck(const HexFile& file, const std::string& name, const LAYOUT& layout, Findings& findings)
        : file_(file), name_(name), layout_(layout), findings_(findings) {}

    void outside();
    void gaps();
    void addresses();
    void instructions();
    void firstRegion();
    void eraseRuns(hexpage& image);

private:
    void report(const Kind& kind, unsigned line, const std::string& text) {
        findings_.add(kind, {name_, line}, text);
    }
    // The line of the first data behind an address of the target.
    unsigned lineBehind(std::uint64_t address) const {
        const auto found = file_.stretches().lower_bound(address * bytesPerAddress(layout_));
        return found != file_.stretches().end() ? found->second.line : 0;
    }
    bool isInside(std::uint64_t address) const {
        return std::any_of(layout_.regions.begin(), layout_.regions.end(), [&](const LAYOUT::REGION& region) {
            const BOUNDS bounds = boundsOf(layout_, region);
            return address >= bounds.start && address < bounds.end;
        });
    }

    const HexFile& file_;
    const std::string& name_;
    const LAYOUT& layout_;
    Findings& findings_;
};

// One finding for each stretch of bytes that no region takes.
void FlashCheck::outside() {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    unsigned line = 0;
    const auto flush = [&] {
        if (start != end)
            report(kinds::HEX_OUTSIDE, line,
                   format("0x%X to 0x%X (%u bytes) lies in no flash region", shown(start), shown(end - 1),
                          shown(end - start)));
        start = end;
    };
    for (const HexData& record : file_.records()) {
        for (std::size_t i = 0; i < record.bytes.size(); ++i) {
            const std::uint64_t address = record.address + i;
            if (isInside(address))
                continue;
            if (address != end || start == end) {
                flush();
                start = address;
                line = record.line;
            }
            end = address + 1;
        }
    }
    flush();
}

void FlashCheck::gaps() {
    for (const LAYOUT::REGION& region : layout_.regions) {
        for (const imageCheck::HOLE& gap : imageCheck::findGaps(file_.stretches(), layout_, region))
            report(kinds::HEX_GAP, gap.line,
                   format("no data from 0x%X to 0x%X (%u bytes), but behind it in the same page",
                          shown(gap.start), shown(gap.end - 1), shown(gap.end - gap.start)));
    }
}

// Requests with 16 address bits can't name every address.
void FlashCheck::addresses() {
    if (layout_.wideAddress)
        return;
    for (const LAYOUT::REGION& region : layout_.regions) {
        const BOUNDS bounds = boundsOf(layout_, region);
        const std::uint64_t reach = std::uint64_t{flashLayouts::NARROW_ADDRESSES} * bytesPerAddress(layout_);
        for (const HexData& record : file_.records()) {
            const std::uint64_t last = record.address + record.bytes.size() - 1;
            if (last < bounds.start || last >= bounds.end)
                continue;
            if (last >= reach) {
                report(kinds::HEX_TOO_LARGE, record.line,
                       format("0x%X lies behind the last address that the module's requests can name",
                              shown(last)));
                return;
            }
        }
    }
}

// A PIC24's fourth bytes are found by counting from the record's start.
void FlashCheck::instructions() {
    if (!layout_.pic24Addressing)
        return;
    for (const HexData& record : file_.records()) {
        if (record.address % 4 != 0 || record.bytes.size() % 4 != 0) {
            report(kinds::HEX_ALIGNMENT, record.line,
                   format("%u bytes at 0x%X: no whole instructions", shown(record.bytes.size()),
                          shown(record.address)));
            continue;
        }
        for (std::size_t i = 3; i < record.bytes.size(); i += 4) {
            if (record.bytes[i] != 0) {
                report(kinds::HEX_PHANTOM, record.line,
                       format("%02X at 0x%X, where an instruction's fourth byte is 00", record.bytes[i],
                              shown(record.address + i)));
                break;
            }
        }
    }
}

void FlashCheck::firstRegion() {
    const BOUNDS first = boundsOf(layout_, layout_.regions.front());
    bool inFirst = false;
    unsigned other = 0; // the first line with data for the regions behind it
    for (const HexData& record : file_.records()) {
        const bool inside = record.address >= first.start && record.address < first.end;
        inFirst = inFirst || inside;
        if (other == 0 && !inside && isInside(record.address))
            other = record.line;
    }
    if (other != 0 && !inFirst)
        report(kinds::HEX_FIRST_REGION, other,
               format("no data from 0x%X to 0x%X, but in the regions behind it", shown(first.start),
                      shown(first.end - 1)));
    if (other == 0 && !inFirst)
        report(kinds::HEX_EMPTY, file_.records().front().line, "no data for the module's flash");
}

// The number of pages to erase travels in one byte.
void FlashCheck::eraseRuns(hexpage& image) {
    constexpr unsigned LONGEST = 256;
    if (!layout_.eraseEmptyPages)
        return;
    unsigned run = 0;
    image.resetIterator();
    while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
        run = page->data.empty() ? run + 1 : 0;
        if (run == LONGEST + 1)
            report(kinds::HEX_ERASE_RUN, lineBehind(page->startAddress),
                   format("more than %u empty pages in a row, up to 0x%X", LONGEST, page->startAddress));
    }
}

} // namespace

const Processor& guessProcessor(const std::vector<HexData>& records) {
    const auto first =
        std::min_element(records.begin(), records.end(), [](const HexData& one, const HexData& other) {
            return one.address < other.address;
        });
    for (const char* name : {"stm32f0", "pic32-pages"}) {
        const LAYOUT layout = findProcessor(name)->layout(true);
        const BOUNDS flash = boundsOf(layout, layout.regions.front());
        if (!records.empty() && first->address >= flash.start && first->address < flash.end)
            return *findProcessor(name);
    }
    std::size_t zeros = 0;
    std::size_t others = 0;
    for (const HexData& record : records) {
        for (std::size_t i = 3; i < record.bytes.size(); i += 4)
            ++(record.bytes[i] == 0 ? zeros : others);
    }
    return *findProcessor(others > zeros ? "pic24-old" : "pic24");
}

const Processor* guessProcessor(const std::filesystem::path& path) {
    if (natureOf(path).type != FileType::IntelHex)
        return nullptr;
    try {
        Findings ignored;
        return &guessProcessor(HexFile(path, {}, ignored).records());
    } catch (const HugeImage&) {
        return nullptr;
    }
}

namespace {

void checkRecords(const std::filesystem::path& path, const std::string& name, const Processor* processor,
                  bool serial, Findings& findings) {
    const std::size_t before = findings.all().size();
    const HexFile file(path, name, findings);
    if (file.records().empty()) {
        findings.add(kinds::HEX_EMPTY, {name}, "no data");
        return;
    }
    if (processor == nullptr)
        processor = &guessProcessor(file.records());
    if (!serial && !processor->onCan)
        findings.add(kinds::PROCESSOR_UNSUPPORTED, {name},
                     std::string("an image for ") + processor->name + ", and the module is on CAN");
    const LAYOUT layout = processor->layout(serial);
    FlashCheck check(file, name, layout, findings);
    check.outside();
    if (processor->records)
        return;
    check.gaps();
    check.addresses();
    check.instructions();
    check.firstRegion();
    if (findings.all().size() != before)
        return; // the rest follows from what was found
    hexpage image;
    if (!acceptedByPanel(path, layout, image))
        findings.add(kinds::HEX_REFUSED, {name}, "the panel refuses the image");
    check.eraseRuns(image);
}

} // namespace

void checkHex(const std::filesystem::path& path, const std::string& name, const Processor* processor,
              bool serial, Findings& findings) {
    const FileNature nature = natureOf(path);
    if (nature.type == FileType::Empty) {
        findings.add(kinds::HEX_EMPTY, {name}, "the file is empty");
        return;
    }
    if (nature.type != FileType::IntelHex) {
        findings.add(kinds::HEX_FORMAT, {name},
                     "it is " + nature.name + ", no Intel HEX" + adviceOn(nature.type));
        return;
    }
    Findings found;
    try {
        checkRecords(path, name, processor, serial, found);
    } catch (const HugeImage& image) {
        found = {};
        found.add(kinds::HEX_HUGE, {name}, image.what());
    }
    for (const Finding& each : found.all())
        findings.add(*each.kind, each.place, each.text);
}

} // namespace package
