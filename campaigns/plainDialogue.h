#pragma once

#include "dialogueTarget.h"
#include "system/actions/bootloadHost.h"

#include <cstdint>
#include <vector>

/**
 * The bootloader dialogue in its plainest form, by which the panel's own is measured: one slot for the reply,
 * polled every millisecond, status requests after silence, four tries; nothing is doubted, nobody is waited
 * for. Whatever lets a module be flashed by this one must do so by the panel's.
 */
class PlainDialogue {
public:
    explicit PlainDialogue(bootloadHost& panel) : host_(panel) {}

    /** True when every request went well: the module should hold the image then. */
    bool flash(const DialogueTarget& target);

private:
    using Message = busMessages::PROCBUS_MSG;
    using Bytes = std::vector<std::uint8_t>;

    /** The one slot: a later answer overwrites what an earlier one said. */
    struct Record {
        bool hasResponse = false;
        std::uint8_t status = 0;
        std::uint32_t page = 0;
        std::int8_t identifiedModule = 0;
        bool blInitData = false;
        bool serialBootload = false;
        std::uint8_t reportedType = 0;
    };

    void fileAnswers();
    void clearAndSend(const Message& msg);
    bool poll(unsigned times);
    void sendReqStat();
    bool sendWithResponse(const Message& msg, unsigned timeout);
    bool sendSystemCommand(std::uint8_t arg);
    std::uint8_t requestStatus(const Message& msg, std::uint8_t failure);
    std::uint8_t sendSoh(const hexpage::MEMORY_PAGE& page);
    std::uint8_t eraseBlock(std::uint32_t address, std::uint32_t count);
    int sendDataRow(std::uint32_t row, const Bytes& data);
    int sendRows(const Bytes& data);
    bool sendPageWrite();

    bool isRightModule() const;
    bool programPages();
    bool eraseEmptyPages();
    bool programPage();
    bool programRecords();
    bool programRecord(const Bytes& record);

    bootloadHost& host_;
    DialogueTarget target_{};
    Record record_;
    flashLayouts::LAYOUT layout_{};
    hexpage image_;
    hexpage::MEMORY_PAGE* page_ = nullptr; ///< the one at hand
};
