#pragma once

#include "busProtocol.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/**
 * The bus modules: whatever tells one from another stands in its row, and nowhere else. Their records are
 * the core's, coreState::module(). docs/bus-protocol.md explains the numbers.
 */
namespace modules {

enum class BOOTLOADER : std::uint8_t { NONE, CAN, SERIAL };

// What shows that a module is there, where it is no field of the status message.
constexpr std::uint8_t ITS_IDENTITY = 0xFE;
constexpr std::uint8_t NO_FIELD = 0xFF;

struct ROW {
    const char* name;      ///< in inventories
    const char* shown;     ///< to the operator
    const char* item;      ///< in manifests; may be several modules'
    std::uint8_t address;  ///< on the bus; 0 for none
    std::uint8_t number;   ///< in its identity
    std::uint8_t presence; ///< field of the status message, or one of the two above
    BOOTLOADER bootloader; ///< NONE: kept in the table, never visited
    bool resetAfterUpdate; ///< else it goes on without a restart
};

/** In the order in which an update visits them; those that it never visits stand last. */
inline constexpr std::array TABLE = {
    ROW{"mf1", "MultiFunction #1", "mf", 13, 13, ITS_IDENTITY, BOOTLOADER::CAN, true},
    ROW{"mf2", "MultiFunction #2", "mf", 14, 14, ITS_IDENTITY, BOOTLOADER::CAN, true},
    ROW{"mf3", "MultiFunction #3", "mf", 15, 15, ITS_IDENTITY, BOOTLOADER::CAN, true},
    ROW{"arts", "ARTS Sensor", "arts", 16, 50, ITS_IDENTITY, BOOTLOADER::CAN, true},
    ROW{"s1", "Secondary #1", "slave", 9, 9, 2, BOOTLOADER::CAN, true},
    ROW{"s2", "Secondary #2", "slave", 10, 10, 3, BOOTLOADER::CAN, true},
    ROW{"s3", "Secondary #3", "slave", 11, 11, 4, BOOTLOADER::CAN, true},
    ROW{"s4", "Secondary #4", "slave", 12, 12, 5, BOOTLOADER::CAN, true},
    ROW{"motor", "Motor", "motor", 8, 8, 1, BOOTLOADER::CAN, true},
    ROW{"master", "Primary", "master", 7, 7, 0, BOOTLOADER::CAN, false},
    // The others are reached through it.
    ROW{"ctrl", "CTRL", "ctrl", busProtocol::CONTROL_MODULE, busProtocol::CONTROL_MODULE, NO_FIELD,
        BOOTLOADER::SERIAL, true},
    ROW{"cy1", "", "", 0, 3, NO_FIELD, BOOTLOADER::NONE, true},
    ROW{"cy2", "", "", 0, 4, NO_FIELD, BOOTLOADER::NONE, true},
    ROW{"cy3", "", "", 0, 5, NO_FIELD, BOOTLOADER::NONE, true},
    ROW{"cy4", "", "", 0, 6, NO_FIELD, BOOTLOADER::NONE, true},
};

constexpr bool isVisited(const ROW& row) {
    return row.bootloader != BOOTLOADER::NONE;
}
static_assert(std::ranges::is_partitioned(TABLE, isVisited));

inline constexpr std::span<const ROW> VISITED(TABLE.begin(), std::ranges::partition_point(TABLE, isVisited));

/** The row of that name among the visited ones; null when there is none. */
constexpr const ROW* find(std::string_view name) {
    const auto row = std::ranges::find(VISITED, name, &ROW::name);
    return row == VISITED.end() ? nullptr : &*row;
}

} // namespace modules
