// What the bootloaders of all modules share: rows, the memory of the last write, erasing. The two kinds
// differ in what a sequence of rows is: a page, or a record of a HEX file.
#pragma once

#include "flash.h"
#include "messages.h"
#include "processor.h"
#include "rowBuffer.h"
#include "temper.h"
#include "trace.h"

#include <memory>
#include <set>

namespace sim {

// Refers to the module's parts, which must outlive it. What breaks the protocol goes to the log.
class Bootloader {
public:
    Bootloader(const Processor& processor, const Temper& temper, Flash& flash, ProtocolLog& log)
        : processor_(processor),
          flash_(flash),
          log_(log),
          rows_(temper.anyRowOrder),
          refusesWriteAgain_(temper.refusesWriteAgain),
          dropsPage_(temper.outOfOrder == Temper::OutOfOrder::Drops) {}
    virtual ~Bootloader() = default;
    Bootloader(const Bootloader&) = delete;
    Bootloader& operator=(const Bootloader&) = delete;

    virtual Reply startPage(std::uint32_t address, unsigned size) = 0;
    Reply dataRow(std::uint16_t row, const Bytes& data);
    Reply writePage();
    Reply eraseBlocks(std::uint32_t address, unsigned pages);
    Reply eraseAll();
    // Forgets the dialogue: all but the flash and the counters.
    virtual void restart();

    // The page is answered with IGNOREPG, and no erase touches it.
    void ignorePage(std::uint32_t address) { ignored_.insert(address); }
    bool isIgnored(std::uint32_t address) const { return ignored_.contains(address); }
    // The next erase fails.
    void refuseErase() { refuseErase_ = true; }

    bool isOpen() const { return rows_.isOpen(); }
    // Something was written since the last restart and nothing is left half done.
    bool isComplete() const { return !isOpen() && lastWrite_ == Status::Ok; }
    // The row accepted last of the page that is or was open, 0 for none.
    std::uint16_t lastRow() const { return rows_.lastRow(); }
    unsigned written() const { return written_; } // pages, or data records
    unsigned erases() const { return erases_; }   // erase commands carried out

protected:
    // A row arrived, before it is looked at.
    virtual void beforeRow(std::uint16_t) {}
    // All rows are there, as far as the panel knows: check them and program them.
    virtual Status programRows() = 0;
    Status program(std::uint32_t cell, std::span<const std::uint8_t> bytes);
    Reply broken(Status status, const std::string& text); // logs text and answers with row 0

    const Processor& processor_;
    Flash& flash_;
    ProtocolLog& log_;
    RowBuffer rows_;

private:
    const bool refusesWriteAgain_;
    const bool dropsPage_; // an out-of-order row makes it forget the one that is open
    std::set<std::uint32_t> ignored_;
    std::optional<Status> lastWrite_;
    bool refuseErase_ = false;
    unsigned written_ = 0;
    unsigned erases_ = 0;
};

std::unique_ptr<Bootloader> makePagedBootloader(const Processor&, const Temper&, Flash&, ProtocolLog&);
std::unique_ptr<Bootloader> makeRecordBootloader(const Processor&, const Temper&, Flash&, ProtocolLog&);

} // namespace sim
