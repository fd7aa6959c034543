// A bootloader that takes the records of a HEX file one by one, in their binary form:
// count, address bits 8-15, address bits 0-7, type, data, checksum.
#include "bootloader.h"

#include <numeric>

namespace sim {

namespace {

constexpr std::size_t DATA_OFFSET = 4;
constexpr std::size_t RECORD_OVERHEAD = 5;
constexpr std::uint8_t DATA_RECORD = 0;
constexpr std::uint8_t UPPER_ADDRESS_RECORD = 4;

class RecordBootloader : public Bootloader {
public:
    using Bootloader::Bootloader;

    Reply startPage(std::uint32_t address, unsigned size) override;
    void restart() override;

private:
    void beforeRow(std::uint16_t row) override;
    Status programRows() override;

    std::uint32_t upperAddress_ = 0;
};

Reply RecordBootloader::startPage(std::uint32_t address, unsigned) {
    return broken(Status::WriteError,
                  format("start of page at %08X on a module that takes records", address));
}

void RecordBootloader::restart() {
    Bootloader::restart();
    upperAddress_ = 0;
}

void RecordBootloader::beforeRow(std::uint16_t row) {
    if (row == 0)
        rows_.open();
}

Status RecordBootloader::programRows() {
    const Bytes record = rows_.bytes();
    const unsigned sum = std::accumulate(record.begin(), record.end(), 0U);
    if (record.size() < RECORD_OVERHEAD || record.size() != record[0] + RECORD_OVERHEAD || sum % 256 != 0) {
        log_.add("bad record " + toHex(record));
        return Status::BadChecksum;
    }
    const auto data = std::span(record).subspan(DATA_OFFSET, record[0]);
    if (record[3] == UPPER_ADDRESS_RECORD && data.size() == 2)
        upperAddress_ = static_cast<std::uint32_t>(data[0]) << 24 | static_cast<std::uint32_t>(data[1]) << 16;
    if (record[3] != DATA_RECORD)
        return Status::Ok;
    return program(upperAddress_ | static_cast<std::uint32_t>(record[1] << 8 | record[2]), data);
}

} // namespace

std::unique_ptr<Bootloader> makeRecordBootloader(const Processor& processor, const Temper& temper,
                                                 Flash& flash, ProtocolLog& log) {
    return std::make_unique<RecordBootloader>(processor, temper, flash, log);
}

} // namespace sim
