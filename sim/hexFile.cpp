#include "hexFile.h"

#include "text.h"

#include <fstream>
#include <numeric>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::uint32_t DUMP_ROW = 16;
constexpr std::uint8_t DATA_RECORD = 0;
constexpr std::uint8_t END_RECORD = 1;
constexpr std::uint8_t UPPER_ADDRESS_RECORD = 4;

// Instructions as a file has them and as packed flash has them.
constexpr std::uint32_t FILE_INSTRUCTION = 4;
constexpr std::uint32_t FLASH_INSTRUCTION = 3;

void preloadByte(std::uint32_t address, std::uint8_t byte, bool packsInstructions, Flash& flash) {
    if (!packsInstructions) {
        flash.preload(address, {&byte, 1});
        return;
    }
    const std::uint32_t inside = address % FILE_INSTRUCTION;
    if (inside < FLASH_INSTRUCTION)
        flash.preload(address / FILE_INSTRUCTION * FLASH_INSTRUCTION + inside, {&byte, 1});
}

std::string record(std::uint8_t type, std::uint16_t address, std::span<const std::uint8_t> data) {
    Bytes bytes{static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(address >> 8),
                static_cast<std::uint8_t>(address & 0xFF), type};
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.push_back(static_cast<std::uint8_t>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U)));
    return ":" + toHex(bytes) + "\n";
}

Bytes withFourthBytes(std::span<const std::uint8_t> cells) {
    Bytes row;
    for (std::size_t i = 0; i < cells.size(); i += FLASH_INSTRUCTION) {
        const auto instruction = cells.subspan(i, FLASH_INSTRUCTION);
        row.insert(row.end(), instruction.begin(), instruction.end());
        row.push_back(0);
    }
    return row;
}

} // namespace

void preloadHexFile(const std::string& file, bool packsInstructions, Flash& flash) {
    std::istringstream stream(readText(file));
    std::uint32_t upper = 0;
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] != ':')
            continue;
        const Bytes bytes = fromHex(std::string_view(line).substr(1));
        if (bytes.size() < 5 || bytes.size() != bytes[0] + 5U)
            throw std::runtime_error(format("bad record in %s: %s", file.c_str(), line.c_str()));
        const auto data = std::span(bytes).subspan(4, bytes[0]);
        if (bytes[3] == UPPER_ADDRESS_RECORD && data.size() == 2)
            upper = static_cast<std::uint32_t>(data[0]) << 24 | static_cast<std::uint32_t>(data[1]) << 16;
        if (bytes[3] != DATA_RECORD)
            continue;
        std::uint32_t address = upper | static_cast<std::uint32_t>(bytes[1] << 8 | bytes[2]);
        for (const std::uint8_t byte : data)
            preloadByte(address++, byte, packsInstructions, flash);
    }
}

void writeHexFile(const std::string& file, bool packsInstructions, const Flash& flash) {
    std::ofstream stream(file);
    const std::uint32_t rowCells =
        packsInstructions ? DUMP_ROW / FILE_INSTRUCTION * FLASH_INSTRUCTION : DUMP_ROW;
    std::optional<std::uint32_t> upper;
    for (const auto& [number, block] : flash.blocks()) {
        for (std::uint32_t offset = 0; offset < Flash::CELLS_PER_BLOCK; offset += rowCells) {
            const std::uint32_t cell = number * Flash::CELLS_PER_BLOCK + offset;
            if (flash.isErased(cell, rowCells))
                continue;
            const std::uint32_t address = cell / rowCells * DUMP_ROW;
            if (upper != address >> 16) {
                upper = address >> 16;
                stream << record(
                    UPPER_ADDRESS_RECORD, 0,
                    Bytes{static_cast<std::uint8_t>(*upper >> 8), static_cast<std::uint8_t>(*upper & 0xFF)});
            }
            const auto cells = std::span(block).subspan(offset, rowCells);
            stream << record(DATA_RECORD, static_cast<std::uint16_t>(address & 0xFFFF),
                             packsInstructions ? withFourthBytes(cells) : Bytes(cells.begin(), cells.end()));
        }
    }
    stream << record(END_RECORD, 0, {});
    if (!stream.flush())
        throw std::runtime_error("cannot write " + file);
}

} // namespace sim
