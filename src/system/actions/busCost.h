#pragma once

#include "../../lib/hexfile/hexPage.h"
#include "../../lib/hexfile/hexRecords.h"
#include "../busMessages.h"
#include "bootloadTiming.h"
#include "flashLayouts.h"

#include <cstdint>
#include <vector>

/**
 * What programming a module costs on the bus: a model of the bootloader dialogue, request by request. It
 * assumes that every request is answered at once and no byte is lost.
 */
class busCost {
public:
    // The steps of the dialogue, as docs/bus-protocol.md names them.
    void systemCommand();
    void enterBootloader(bool identifies);
    void absentModule();      ///< asked in vain
    void afterAbsentModule(); ///< what the next one waits, for answers that may still come
    void program(const hexpage::MEMORY_PAGE& page, bool wideAddress);
    void programRecord(std::size_t bytes);
    void eraseBlocks(bool wideAddress);
    void eraseAll();

    /** Programming a whole image, `identifies` as above. Both begin the walk over it anew. */
    static busCost ofImage(const flashLayouts::LAYOUT& layout, hexpage& image, bool identifies = true);
    static busCost ofRecords(hexrecords& image);

    busCost& operator+=(const busCost& other);
    double seconds(unsigned baud) const;

    std::uint32_t messages = 0; ///< in both directions
    std::uint32_t pages = 0;    ///< or records
    std::uint32_t erases = 0;   ///< requests to erase
    std::uint32_t dataBytes = 0;

private:
    static constexpr std::size_t REPLY = 4; // payload bytes
    static constexpr std::size_t IDENTIFICATION = 6;

    void exchange(const busMessages::PROCBUS_MSG& request, std::size_t reply = REPLY);
    void sendRows(const std::vector<std::uint8_t>& bytes);
    void write(std::uint32_t rows); // of what is open
    void wait(bootloadTiming::milliseconds time) { pauses += time; }
    void linger();

    std::uint64_t wireBytes = 0;
    std::uint32_t requests = 0;
    bootloadTiming::milliseconds spare =
        bootloadTiming::LONGEST_SPARE - bootloadTiming::LINGER; ///< of a session: not added up
    bool rested = false;                                        ///< the last request has a pause behind it
    bootloadTiming::milliseconds pauses{0};
};
