#include "bootloader.h"

#include <utility>

namespace sim {

Reply Bootloader::broken(Status status, const std::string& text) {
    log_.add(text);
    return {status, 0};
}

Reply Bootloader::dataRow(std::uint16_t row, const Bytes& data) {
    beforeRow(row);
    if (rows_.take(row, data) != RowBuffer::Result::Missed)
        return {Status::Ok, row};
    log_.add(rows_.isOpen() ? format("row %u when row %u was to come", row, rows_.nextRow())
                            : format("row %u without an open page", row));
    if (dropsPage_)
        rows_.close();
    return {Status::MissedPacket, rows_.lastRow()};
}

Reply Bootloader::writePage() {
    if (!rows_.isOpen()) {
        if (lastWrite_)
            return {refusesWriteAgain_ ? Status::MissedPacket : *lastWrite_, 0};
        return broken(Status::MissedPacket, "write page before any page was written");
    }
    if (rows_.hadShortRow())
        log_.add("a row before the last one was not full");
    lastWrite_ = programRows();
    rows_.close();
    return {*lastWrite_, 0};
}

Status Bootloader::program(std::uint32_t cell, std::span<const std::uint8_t> bytes) {
    switch (flash_.program(cell, bytes)) {
    case Flash::Result::NotErased:
        log_.add(format("flash at cell %08X written without being erased", cell));
        return Status::WriteError;
    case Flash::Result::Refused:
        return Status::WriteError;
    case Flash::Result::Done:
        break;
    }
    ++written_;
    return Status::Ok;
}

Reply Bootloader::eraseBlocks(std::uint32_t address, unsigned pages) {
    for (unsigned i = 0; i < pages; ++i)
        if (!processor_.isPageStart(address + i * processor_.pageUnits))
            return broken(Status::EraseError,
                          format("erase of %u pages from %08X, which leaves the flash or is "
                                 "no start of a page",
                                 pages, address));
    if (std::exchange(refuseErase_, false))
        return {Status::EraseError, 0};
    for (unsigned i = 0; i < pages; ++i) {
        const std::uint32_t page = address + i * processor_.pageUnits;
        if (!isIgnored(page))
            flash_.erase(processor_.cellOf(page), processor_.pageBytes);
    }
    ++erases_;
    return {};
}

Reply Bootloader::eraseAll() {
    if (std::exchange(refuseErase_, false))
        return {Status::EraseError, 0};
    std::map<std::uint32_t, Bytes> kept;
    for (const std::uint32_t page : ignored_)
        kept[processor_.cellOf(page)] = flash_.read(processor_.cellOf(page), processor_.pageBytes);
    flash_.eraseAll();
    for (const auto& [cell, bytes] : kept)
        flash_.preload(cell, bytes);
    ++erases_;
    return {};
}

void Bootloader::restart() {
    rows_.clear();
    lastWrite_.reset();
}

} // namespace sim
