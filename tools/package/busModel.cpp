#include "busModel.h"

#include "files.h"
#include "lib/hexfile/hexRecords.h"
#include "system/actions/imageCheck.h"
#include "system/busProtocol.h"

#include <algorithm>

namespace package {

namespace {

using namespace busProtocol;

constexpr double BITS_PER_BYTE = 10;
constexpr double PAUSE = 0.010;          // behind a start of page, an erase and a written page
constexpr double OVERHEAD = 0.000080;    // from a reply to the next request: 10 us, on a busy machine 190
constexpr double UNANSWERED = 0.240;     // 200 polls, a status request with 20 more, a pause
constexpr unsigned UNANSWERED_ASKS = 12; // 4 tries of 3 passes
constexpr std::size_t RECORD_OVERHEAD = 5;

constexpr std::size_t addressedRequest(bool wide) {
    return wide ? 8 : 6;
}

} // namespace

void BusCost::exchange(std::size_t request, std::size_t reply) {
    wireBytes_ += request + reply + 2 * FRAME_OVERHEAD;
    messages += 2;
    ++exchanges_;
}

void BusCost::enterBootloader(bool identifies) {
    exchange(2, identifies ? IDENTIFICATION : REPLY);
    if (!identifies)
        wait(QUIET); // for the identification that does not come
}

void BusCost::absentModule() {
    messages += 2 * UNANSWERED_ASKS;
    wait(UNANSWERED * UNANSWERED_ASKS);
}

void BusCost::wait(double seconds) {
    pauses_ += seconds;
}

void BusCost::sendRows(std::size_t bytes) {
    for (std::uint32_t row = 0; rowOffset(row) < bytes; ++row) {
        const std::size_t data = std::min<std::size_t>(rowOffset(row + 1), bytes) - rowOffset(row);
        exchange(data + (row < FIRST_WIDE_ROW ? 1 : 2), REPLY);
    }
    if (bytes <= ROW_BYTES)
        wait(QUIET); // the reply to the only row looks like the one to the page write
}

void BusCost::writePage() {
    exchange(2, REPLY);
    ++pages;
}

void BusCost::program(const hexpage::MEMORY_PAGE& page, bool wideAddress) {
    exchange(addressedRequest(wideAddress), REPLY);
    wait(PAUSE);
    sendRows(page.data.size());
    writePage();
    wait(PAUSE);
    dataBytes += static_cast<std::uint32_t>(page.data.size());
}

void BusCost::programRecord(std::size_t bytes) {
    if (bytes + RECORD_OVERHEAD <= ROW_BYTES)
        wait(QUIET); // and like the one to the record before
    sendRows(bytes + RECORD_OVERHEAD);
    writePage();
    dataBytes += static_cast<std::uint32_t>(bytes);
}

void BusCost::eraseBlocks(bool wideAddress) {
    wait(QUIET);
    exchange(addressedRequest(wideAddress), REPLY);
    wait(PAUSE);
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
    exchanges_ += other.exchanges_;
    pauses_ += other.pauses_;
    return *this;
}

double BusCost::seconds(unsigned baud) const {
    return static_cast<double>(wireBytes_) * BITS_PER_BYTE / baud + exchanges_ * OVERHEAD + pauses_;
}

namespace {

BusCost costOfRecords(const std::filesystem::path& path) {
    BusCost cost;
    hexrecords image(path.string());
    if (!image.getFileOK() || imageCheck::hasFault(imageCheck::ofRecords(path.string())))
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
    std::uint32_t runs = 0; // of empty pages: a request each, once a page with data follows
    bool inRun = false;
    std::uint32_t next = 0;
    image.resetIterator();
    while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
        if (page->data.empty()) {
            runs += inRun && page->startAddress == next ? 0 : 1;
        } else {
            for (; runs > 0 && layout.eraseEmptyPages; --runs)
                cost.eraseBlocks(layout.wideAddress);
            cost.program(*page, layout.wideAddress);
        }
        inRun = page->data.empty();
        next = page->endAddress + 1;
    }
    return cost;
}

} // namespace package
