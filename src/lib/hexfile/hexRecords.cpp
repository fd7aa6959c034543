#include "hexRecords.h"

#include "hexText.h"

#include <cstdio>
#include <utility>

hexrecords::hexrecords(const std::string& fileName) {
    isInit = hexText::forEachLine(fileName, [this](std::string_view line) {
        if (hexText::isRecord(line)) {
            parseLine(line);
        } else {
            std::puts("discarded line");
        }
    });
    if (!isInit) {
        records.clear();
    }
}

hexrecords::HEX_RECORD* hexrecords::getNextRecord() {
    return rPtr < records.size() ? &records[rPtr++] : nullptr;
}

namespace {

/** A carriage return at the line's end is none of the record's. */
bool addsUp(std::string_view line) {
    if (line.back() == '\r') {
        line.remove_suffix(1);
    }
    unsigned sum = 0;
    for (std::size_t position = hexText::COUNT; position + 1 < line.size(); position += 2) {
        sum += hexText::byteAt(line, position);
    }
    return line.size() % 2 == 1 && sum % 0x100 == 0;
}

} // namespace

// The data is what lies between the type and the last two characters, whatever the count says. The last
// two characters are taken for the checksum also when the very last is a '\r': the checksum is then
// wrong, and the data still whole.
void hexrecords::parseLine(std::string_view line) {
    HEX_RECORD record;
    record.sumsUp = addsUp(line);
    record.size = hexText::byteAt(line, hexText::COUNT);
    record.type = hexText::byteAt(line, hexText::TYPE);
    record.address = hexText::convertHex(line.substr(hexText::ADDRESS, hexText::ADDRESS_DIGITS));
    record.checksum = hexText::byteAt(line, line.size() - 2);
    record.data.reserve((line.size() - hexText::DATA) / 2);
    for (std::size_t position = hexText::DATA; position < line.size() - 3; position += 2) {
        record.data.push_back(hexText::byteAt(line, position));
    }
    records.push_back(std::move(record));
}
