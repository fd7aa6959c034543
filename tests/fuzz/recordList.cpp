// The list of an image's records: one for each line that is long enough and starts as a record does.

#include "input.h"
#include "lib/hexfile/hexRecords.h"

#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hexrecords image(input::file(data, size));
    input::require(image.getFileOK());

    constexpr std::size_t SHORTEST_RECORD = 11;
    std::istringstream file(input::text(data, size));
    std::string line;
    while (std::getline(file, line)) {
        if (line.size() < SHORTEST_RECORD || line.front() != ':') {
            continue;
        }
        const hexrecords::HEX_RECORD* record = image.getNextRecord();
        input::require(record != nullptr);
        // Every pair of digits between type and checksum.
        input::require(record->data.size() == (line.size() - SHORTEST_RECORD) / 2);
    }
    input::require(image.getNextRecord() == nullptr);
    return 0;
}
