// What programming a module costs on the bus: a model of the panel's bootloader dialogue, request by request.
// It assumes that every request is answered at once and no byte is lost.
#pragma once

#include "processors.h"

#include <cstdint>
#include <filesystem>

namespace package {

// How long replies to earlier requests may still come, in seconds: the panel waits that long before requests
// that must not be confused with another.
inline constexpr double QUIET = 0.100;  // after an answer
inline constexpr double LATEST = 0.500; // after silence

class BusCost {
public:
    // The steps of the dialogue, as docs/bus-protocol.md names them.
    void systemCommand() { exchange(2, REPLY); }
    void enterBootloader(bool identifies);
    void absentModule();       // asked in vain
    void wait(double seconds); // for the line to fall quiet
    void program(const hexpage::MEMORY_PAGE& page, bool wideAddress);
    void programRecord(std::size_t bytes);
    void eraseBlocks(bool wideAddress);
    void eraseAll();

    BusCost& operator+=(const BusCost& other);
    double seconds(unsigned baud) const;

    std::uint32_t messages = 0; // in both directions
    std::uint32_t pages = 0;    // or records
    std::uint32_t erases = 0;   // requests to erase
    std::uint32_t dataBytes = 0;

private:
    static constexpr std::size_t REPLY = 4;
    static constexpr std::size_t IDENTIFICATION = 6;

    void exchange(std::size_t request, std::size_t reply);
    void sendRows(std::size_t bytes);
    void writePage();

    std::uint64_t wireBytes_ = 0;
    std::uint32_t exchanges_ = 0;
    double pauses_ = 0; // seconds
};

// Programming an image that is right. Throws Failure for one that the panel's reader refuses.
BusCost costOfImage(const std::filesystem::path& path, const Processor& processor, bool serial);

} // namespace package
