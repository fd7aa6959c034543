#include "busCost.h"

#include <limits>

using namespace bootloadTiming;

namespace {

constexpr double BITS_PER_BYTE = 10;
constexpr double OVERHEAD = 0.000080; // from a reply to the next request: 10 us, on a busy machine 190
constexpr std::size_t RECORD_OVERHEAD = 5;
constexpr std::uint32_t LONGEST_ERASE = std::numeric_limits<std::uint8_t>::max(); // pages of one request
constexpr std::uint8_t ANY = 0; // module or argument: the frame is as long for every one

// A module that is asked into its bootloader is given so long to answer, each time.
constexpr milliseconds ENTER_TRY = PASSES * passOf(timeoutOf(KIND::ENTER));
constexpr unsigned ASKED_IN_VAIN = TRIES * (1 + PASSES); // requests, of status, too

} // namespace

void busCost::exchange(const busMessages::PROCBUS_MSG& request, std::size_t reply) {
    wireBytes += request.length + reply + 2 * busProtocol::FRAME_OVERHEAD;
    messages += 2;
    ++requests;
}

void busCost::systemCommand() {
    exchange(busMessages::systemCommand(ANY, ANY));
}

void busCost::enterBootloader(bool identifies) {
    wait(LINGER);
    exchange(busMessages::systemCommand(ANY, ANY), identifies ? IDENTIFICATION : REPLY);
    if (!identifies) {
        wait(IDENTIFICATION_WAIT);
    }
}

void busCost::absentModule() {
    wait(LINGER + TRIES * ENTER_TRY);
    messages += ASKED_IN_VAIN;
    requests += ASKED_IN_VAIN;
}

void busCost::afterAbsentModule() {
    wait(LATEST_ENTRY - ENTER_TRY - LINGER);
}

/** Before a request whose reply looks like the one before it. */
void busCost::linger() {
    if (spare >= LINGER) {
        spare -= LINGER;
        wait(LINGER);
    }
}

void busCost::program(const hexpage::MEMORY_PAGE& page, bool wideAddress) {
    const std::uint32_t rows = busMessages::rowsOf(page.data.size());
    if (rows == 1 && !rested) {
        linger();
    }
    exchange(busMessages::startPage(ANY, 0, 0, wideAddress));
    wait(PAUSE);
    sendRows(page.data);
    write(rows);
    wait(PAUSE);
    rested = true;
    dataBytes += static_cast<std::uint32_t>(page.data.size());
}

void busCost::programRecord(std::size_t bytes) {
    const std::vector<std::uint8_t> content(bytes + RECORD_OVERHEAD);
    const std::uint32_t rows = busMessages::rowsOf(content.size());
    if (rows == 1 && !rested) {
        linger();
    }
    rested = false;
    sendRows(content);
    write(rows);
    dataBytes += static_cast<std::uint32_t>(bytes);
}

void busCost::sendRows(const std::vector<std::uint8_t>& bytes) {
    const std::uint32_t rows = busMessages::rowsOf(bytes.size());
    for (std::uint32_t row = 0; row < rows; ++row) {
        exchange(busMessages::dataRow(row, bytes));
    }
}

void busCost::write(std::uint32_t rows) {
    if (rows == 1) {
        linger();
    }
    exchange(busMessages::writePage(ANY));
    ++pages;
}

void busCost::eraseBlocks(bool wideAddress) {
    if (!rested) {
        linger();
    }
    exchange(busMessages::eraseBlocks(ANY, 0, 0, wideAddress));
    wait(PAUSE);
    rested = true;
    ++erases;
}

void busCost::eraseAll() {
    eraseBlocks(true);
}

busCost& busCost::operator+=(const busCost& other) {
    messages += other.messages;
    pages += other.pages;
    erases += other.erases;
    dataBytes += other.dataBytes;
    wireBytes += other.wireBytes;
    requests += other.requests;
    pauses += other.pauses;
    return *this;
}

double busCost::seconds(unsigned baud) const {
    return static_cast<double>(wireBytes) * BITS_PER_BYTE / baud + requests * OVERHEAD +
           std::chrono::duration<double>(pauses).count();
}

busCost busCost::ofRecords(hexrecords& image) {
    busCost cost;
    cost.eraseAll();
    image.resetIterator();
    while (const hexrecords::HEX_RECORD* record = image.getNextRecord()) {
        cost.programRecord(record->data.size());
    }
    image.resetIterator();
    return cost;
}

busCost busCost::ofImage(const flashLayouts::LAYOUT& layout, hexpage& image, bool identifies) {
    busCost cost;
    cost.spare -= identifies ? milliseconds(0) : IDENTIFICATION_WAIT;
    if (layout.eraseAllFirst) {
        cost.eraseAll();
    }
    std::uint32_t run = 0; // empty pages in a row
    std::uint32_t next = 0;
    image.resetIterator();
    while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
        run = page->startAddress == next ? run : 0;
        next = page->endAddress + 1;
        if (!page->data.empty()) {
            cost.program(*page, layout.wideAddress);
            run = 0;
        } else if (layout.eraseEmptyPages && run++ % LONGEST_ERASE == 0) {
            cost.eraseBlocks(layout.wideAddress);
        }
    }
    image.resetIterator();
    return cost;
}
