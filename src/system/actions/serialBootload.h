#pragma once

#include "action.prototype.h"
#include "coreHost.h"
#include "imageProgrammer.h"

#include <string>

/**
 * Reprograms the module on the serial bootloader, the control module, in either version of its protocol:
 * record by record or page by page. Also the sender of system commands for those who have no item (setBase()
 * is not needed for them). Timeouts, tries and failure results are those of bootloadDialogue and
 * imageProgrammer.
 */
class serialBootload : public action {
public:
    using BLSTATUS = busProtocol::BLSTATUS;
    using enum busProtocol::BLSTATUS;

    explicit serialBootload(coreState* core)
        : action(core), host(core), dialogue(host), programmer(host, dialogue, "SerialV2: ") {}

    /** As canBootload's; NOMODULE also for a module that is not on the serial bootloader. */
    STATUS needsUpdate(bool force) override;
    bool run() override;

    bool sendReqStat();
    bool sendWithResponse(busMessages::PROCBUS_MSG msg, unsigned timeout);
    bool sendSystemCommand(std::uint8_t module, std::uint8_t arg);
    /** Resets a second-generation control module: up to 4 tries with a timeout of 5. */
    bool sendResetG1();
    std::uint8_t mem_sendSOH(const hexpage::MEMORY_PAGE& page);
    std::uint8_t mem_eraseBlock(std::uint32_t address, std::uint8_t count, std::uint8_t module);
    bool mem_sendPageWrite();
    int mem_sendData(std::uint32_t row, const hexpage::MEMORY_PAGE& page);

    /** What knows of every request on this line; for the other actions of the same run. */
    bootloadDialogue& wire() { return dialogue; }

private:
    bool run_v1(const std::string& path);
    bool run_v2(const std::string& path);
    bool selectLayout(flashLayouts::LAYOUT& layout) const;
    imageProgrammer& addressed(std::uint8_t module);
    void resetModule();
    void log(const std::string& text, logger::LOG_TYPE type) { host.log(text, type); }

    coreState::PROC_TYPE procType = coreState::UNKNOWN;
    coreHost host;
    bootloadDialogue dialogue;
    imageProgrammer programmer;
};
