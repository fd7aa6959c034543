#include "hexImage.h"

#include "sim/text.h"

#include <fstream>
#include <numeric>
#include <stdexcept>

namespace panel {

namespace {

constexpr std::uint8_t ERASED = 0xFF;
constexpr std::uint32_t BANK = 0x10000; // reach of a record's 16-bit address
constexpr std::uint8_t DATA_RECORD = 0;
constexpr std::uint8_t END_RECORD = 1;
constexpr std::uint8_t UPPER_ADDRESS_RECORD = 4;

std::uint8_t at(const Memory& memory, std::uint32_t address) {
    const auto byte = memory.find(address);
    return byte == memory.end() ? ERASED : byte->second;
}

sim::Bytes bytesOf(const std::string& line, const std::string& path) {
    sim::Bytes bytes = sim::fromHex(std::string_view(line).substr(1, line.find('\r') - 1));
    const unsigned sum = std::accumulate(bytes.begin(), bytes.end(), 0U);
    if (bytes.size() < 5 || bytes.size() != bytes[0] + 5U || sum % 0x100 != 0)
        throw std::runtime_error("bad record in " + path + ": " + line);
    return bytes;
}

} // namespace

std::string hexRecord(std::uint8_t type, std::uint16_t address, const std::vector<std::uint8_t>& data) {
    std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(data.size()),
                                       static_cast<std::uint8_t>(address >> 8),
                                       static_cast<std::uint8_t>(address & 0xFF), type};
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.push_back(static_cast<std::uint8_t>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U)));
    return ":" + sim::toHex(bytes) + "\n";
}

std::string hexUpper(std::uint32_t address) {
    return hexRecord(UPPER_ADDRESS_RECORD, 0,
                     {static_cast<std::uint8_t>(address >> 24), static_cast<std::uint8_t>(address >> 16)});
}

std::string hexFile(const Memory& image, const std::function<std::size_t()>& longest) {
    std::string text;
    std::uint32_t upper = 0;
    for (auto byte = image.begin(); byte != image.end();) {
        const std::uint32_t address = byte->first;
        const std::size_t most = longest();
        std::vector<std::uint8_t> data;
        for (std::uint32_t next = address; byte != image.end() && byte->first == next && data.size() < most &&
                                           next / BANK == address / BANK;
             ++byte, ++next)
            data.push_back(byte->second);
        if (address / BANK != upper) {
            upper = address / BANK;
            text += hexUpper(address);
        }
        text += hexRecord(DATA_RECORD, static_cast<std::uint16_t>(address % BANK), data);
    }
    return text + hexRecord(END_RECORD, 0, {});
}

Memory readHexFile(const std::string& path) {
    std::ifstream in(path);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    Memory memory;
    std::uint32_t upper = 0;
    for (std::string line; std::getline(in, line);) {
        const sim::Bytes bytes = bytesOf(line, path);
        if (bytes[3] == UPPER_ADDRESS_RECORD)
            upper = static_cast<std::uint32_t>(bytes[4] << 8 | bytes[5]);
        const std::uint32_t start = upper * BANK + static_cast<std::uint32_t>(bytes[1] << 8 | bytes[2]);
        for (std::uint32_t i = 0; bytes[3] == DATA_RECORD && i < bytes[0]; ++i)
            memory[start + i] = bytes[4 + i];
    }
    return memory;
}

std::string difference(const Memory& flash, const Memory& expected, bool packed) {
    Memory all = flash;
    all.insert(expected.begin(), expected.end());
    for (const auto& [address, byte] : all)
        if (!(packed && address % 4 == 3) && at(flash, address) != at(expected, address))
            return sim::format("%08X holds %02X, not %02X", address, at(flash, address),
                               at(expected, address));
    return {};
}

} // namespace panel
