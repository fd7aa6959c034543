#pragma once

#include "../../lib/hexfile/hexPage.h"
#include "../../lib/hexfile/hexRecords.h"
#include "bootloadDialogue.h"
#include "flashLayouts.h"

#include <cstdint>
#include <string>
#include <vector>

/**
 * Programs a module's flash through its bootloader: pages, rows, erases, records, and when each is begun
 * again. Runs on the thread of its host; a cancelled run ends with the failure result of what is at hand.
 */
class imageProgrammer {
public:
    using BLSTATUS = busProtocol::BLSTATUS;
    using enum busProtocol::BLSTATUS;
    using LAYOUT = flashLayouts::LAYOUT;
    using BYTES = std::vector<std::uint8_t>;

    /** `prefix` begins every log text about pages. */
    imageProgrammer(bootloadHost& panel, bootloadDialogue& talk, std::string prefix)
        : host(panel), dialogue(talk), logPrefix(prefix) {}

    /** The module that is meant from now on, and whether its requests carry 32 address bits. */
    void setTarget(std::uint8_t address, bool wide) {
        module = address;
        wideAddress = wide;
    }

    /** Announces a page. BADCHECKSUM after 4 failed tries, else the reply's status. */
    std::uint8_t startPage(const hexpage::MEMORY_PAGE& page);
    /** ERASEERR after 4 failed tries, else the reply's status. `count`: pages; 0 stands for 256. */
    std::uint8_t eraseBlock(std::uint32_t address, std::uint8_t count);
    std::uint8_t eraseAll();
    /** Sends one row, up to 4 tries: -1 without any answer, the status, or MISSEDPACKET for another row. */
    int sendDataRow(std::uint32_t row, const BYTES& data);
    /** Up to 4 tries; true only when the module confirmed that the rows it got were written. */
    bool sendPageWrite();

    /**
     * Erases as the layout asks and programs every page. False after the log has said what failed. An erase
     * names at most 256 pages: `strict` sends several requests for more, else the log warns of the rest.
     */
    bool programImage(const LAYOUT& layout, hexpage& image, bool strict);
    /** Erases everything and sends every record. Its log texts begin with "Serial: ". */
    bool programRecords(hexrecords& image);

private:
    enum class PAGE_RESULT : std::uint8_t { DONE, IGNORED, RETRY };

    bootloadDialogue::REQUEST request(bootloadTiming::KIND kind, std::uint32_t row) const;
    bootloadDialogue::REQUEST eraseAllRequest() const;
    bootloadDialogue::RESULT ask(const bootloadDialogue::REQUEST& wanted);
    std::uint8_t erase(const bootloadDialogue::REQUEST& erasure);
    int sendRow(std::uint32_t row, const BYTES& data, bootloadDialogue::PROOF proof);
    int sendRows(const BYTES& data, bootloadDialogue::PROOF proofOfOnlyRow);

    bool eraseEmptyRun(hexpage& image, hexpage::MEMORY_PAGE*& page, std::uint32_t& index, bool strict);
    bool eraseRun(std::uint32_t address, std::uint32_t count, std::uint32_t pageUnits, bool strict);
    bool eraseBlocks(std::uint32_t address, std::uint32_t count);
    PAGE_RESULT programPage(hexpage::MEMORY_PAGE& page, std::uint32_t index, std::uint32_t total);
    PAGE_RESULT attemptPage(const hexpage::MEMORY_PAGE& page, bool& started);
    PAGE_RESULT retry(const char* reason);

    bool eraseMemory();
    bool programRecord(const BYTES& bytes);

    void log(const std::string& text, logger::LOG_TYPE type) { host.log(logPrefix + text, type); }
    void logFailure(const char* reason);

    bootloadHost& host;
    bootloadDialogue& dialogue;
    std::string logPrefix;
    std::uint8_t module = 0;
    bool wideAddress = false;
    unsigned attempt = LONE;  ///< how often the page or record at hand was begun before
    bool wasAnswered = false; ///< the last request
    std::optional<busMessages::PROCBUS_MSG> onlyRow; ///< of the page at hand, once it is sent
    /** Until when an erase may go on that was answered; over at the first answer that is surely another's. */
    bootloadHost::clock::time_point erasingUntil{};

    /** Of a request that is part of no page: it waits like the first. */
    static constexpr unsigned LONE = bootloadTiming::TRIES;
};
