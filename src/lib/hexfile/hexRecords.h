#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/**
 * The records of an Intel HEX file, of whatever type, in file order; for the serial bootloader that is
 * sent one record at a time. Nothing is verified and addresses are as written: extended addresses are
 * the caller's business. Used by one action at a time, on the update thread.
 */
class hexrecords {
public:
    struct HEX_RECORD {
        std::uint32_t address = 0; ///< 16-bit address field
        std::uint8_t size = 0;     ///< byte count field; `data` may hold fewer or more
        std::uint8_t type = 0;
        std::uint8_t checksum = 0;
        bool sumsUp = false;             ///< the line's bytes, checksum included, add up to 0
        std::vector<std::uint32_t> data; ///< one byte an element
    };

    /** Reads the whole file. Lines that are no records are reported on standard output. */
    explicit hexrecords(const std::string& fileName);

    /** False when the file could not be opened or read; there are no records then. */
    bool getFileOK() const { return isInit; }

    std::uint32_t getTotal() const { return static_cast<std::uint32_t>(records.size()); }

    void resetIterator() { rPtr = 0; }

    /** Null behind the last record. The record lives as long as this object. */
    HEX_RECORD* getNextRecord();

private:
    void parseLine(std::string_view line);

    bool isInit = false;
    std::vector<HEX_RECORD> records;
    std::uint32_t rPtr = 0;
};
