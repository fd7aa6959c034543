#include "busModel.h"

#include "files.h"
#include "lib/hexfile/hexRecords.h"
#include "system/actions/imageCheck.h"

#include <limits>

namespace package {

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

void BusCost::exchange(const busMessages::PROCBUS_MSG& request, std::size_t reply) {
    wireBytes_ += request.length + reply + 2 * busProtocol::FRAME_OVERHEAD;
    messages += 2;
    ++requests_;
}

void BusCost::systemCommand() {
    exchange(busMessages::systemCommand(ANY, ANY));
}

void BusCost::enterBootloader(bool identifies) {
    wait(LINGER);
    exchange(busMessages::systemCommand(ANY, ANY), identifies ? IDENTIFICATION : REPLY);
    if (!identifies)
        wait(IDENTIFICATION_WAIT);
}

void BusCost::absentModule() {
    wait(LINGER + TRIES * ENTER_TRY);
    messages += ASKED_IN_VAIN;
    requests_ += ASKED_IN_VAIN;
}

void BusCost::afterAbsentModule() {
    wait(LATEST_ENTRY - ENTER_TRY - LINGER);
}

// Before a request whose reply looks like the one before it.
void BusCost::linger() {
    if (lingers_ < LINGERS) {
        ++lingers_;
        wait(LINGER);
    }
}

void BusCost::program(const hexpage::MEMORY_PAGE& page, bool wideAddress) {
    const std::uint32_t rows = busMessages::rowsOf(page.data.size());
    if (rows == 1 && !rested_)
        linger();
    exchange(busMessages::startPage(ANY, 0, 0, wideAddress));
    wait(PAUSE);
    sendRows(page.data);
    write(rows);
    wait(PAUSE);
    rested_ = true;
    dataBytes += static_cast<std::uint32_t>(page.data.size());
}

void BusCost::programRecord(std::size_t bytes) {
    const std::vector<std::uint8_t> content(bytes + RECORD_OVERHEAD);
    const std::uint32_t rows = busMessages::rowsOf(content.size());
    if (rows == 1 && !rested_)
        linger();
    rested_ = false;
    sendRows(content);
    write(rows);
    dataBytes += static_cast<std::uint32_t>(bytes);
}

void BusCost::sendRows(const std::vector<std::uint8_t>& bytes) {
    const std::uint32_t rows = busMessages::rowsOf(bytes.size());
    for (std::uint32_t row = 0; row < rows; ++row)
        exchange(busMessages::dataRow(row, bytes));
}

void BusCost::write(std::uint32_t rows) {
    if (rows == 1)
        linger();
    exchange(busMessages::writePage(ANY));
    ++pages;
}

void BusCost::eraseBlocks(bool wideAddress) {
    if (!rested_)
        linger();
    exchange(busMessages::eraseBlocks(ANY, 0, 0, wideAddress));
    wait(PAUSE);
    rested_ = true;
    ++erases;
}

void BusCost::eraseAll() {
    eraseBlocks(true);
}

BusCost& BusCost::operator+=(const BusCost& other) {
    messages += other.messages;
    pages += other.pages;
    erases += other.erases;
    dataBytes += other.dataBytes;
    wireBytes_ += other.wireBytes_;
    requests_ += other.requests_;
    pauses_ += other.pauses_;
    return *this;
}

double BusCost::seconds(unsigned baud) const {
    return static_cast<double>(wireBytes_) * BITS_PER_BYTE / baud + requests_ * OVERHEAD +
           std::chrono::duration<double>(pauses_).count();
}

namespace {

BusCost costOfRecords(const std::filesystem::path& path) {
    BusCost cost;
    hexrecords image(path.string());
    if (!image.getFileOK() || imageCheck::hasError(imageCheck::ofRecords(path.string())))
        throw Failure(path.filename().string() + ": refused by the panel");
    cost.eraseAll();
    while (const hexrecords::HEX_RECORD* record = image.getNextRecord())
        cost.programRecord(record->data.size());
    return cost;
}

} // namespace

BusCost costOfImage(const std::filesystem::path& path, const Processor& processor, bool serial) {
    if (processor.records)
        return costOfRecords(path);
    const flashLayouts::LAYOUT layout = processor.layout(serial);
    hexpage image;
    if (!acceptedByPanel(path, layout, image))
        throw Failure(path.filename().string() + ": refused by the panel");
    BusCost cost;
    if (layout.eraseAllFirst)
        cost.eraseAll();
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
    return cost;
}

} // namespace package
