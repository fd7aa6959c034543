#pragma once

#include "action.prototype.h"
#include "coreHost.h"
#include "imageProgrammer.h"

/**
 * Reprograms a bus module over CAN, through the bus processor. Timeouts, tries and failure results are those
 * of bootloadDialogue and imageProgrammer, which conduct the dialogue.
 */
class canBootload : public action {
public:
    using BLSTATUS = busProtocol::BLSTATUS;
    using enum busProtocol::BLSTATUS;

    explicit canBootload(coreState* core) : canBootload(core, nullptr) {}
    /** `wire`: a dialogue that outlives the action and knows what was asked on this line before. */
    canBootload(coreState* core, bootloadDialogue* wire)
        : action(core),
          host(core),
          own(host),
          dialogue(wire != nullptr ? *wire : own),
          programmer(host, dialogue, "CAN: ") {}

    /**
     * Switches the module into its bootloader and compares versions. NOMODULE when it does not answer or is
     * not on CAN. Blocks for about 3 s when there is no module, 4 s behind another one that was not there.
     */
    STATUS needsUpdate(bool force) override;
    /** Programs the image of the module's hardware revision. Nothing is rolled back. */
    bool run() override;

    bool sendReqStat();
    bool sendWithResponse(busMessages::PROCBUS_MSG msg, unsigned timeout);
    bool sendSystemCommand(std::uint8_t module, std::uint8_t arg);
    std::uint8_t send_SOH(const hexpage::MEMORY_PAGE& page);
    std::uint8_t eraseBlock(std::uint32_t address, std::uint8_t count);
    std::uint8_t eraseAll();
    bool sendPageWrite();
    int sendDataRow(std::uint32_t row, const hexpage::MEMORY_PAGE& page);

private:
    STATUS compareReported(bool isOwn, bool force);
    STATUS compareRecorded(bool force);
    STATUS upToDate();
    const char* selectLayout(flashLayouts::LAYOUT& layout) const;
    imageProgrammer& addressed();
    void resetModule();
    void log(const std::string& text, logger::LOG_TYPE type) { host.log("CAN: " + text, type); }
    bool wideAddress() const { return procType != coreState::PIC24; }

    coreState::PROC_TYPE procType = coreState::UNKNOWN;
    bool pic24NewBL = false; ///< the bootloader sent its identification
    coreHost host;
    bootloadDialogue own; ///< used when none is shared
    bootloadDialogue& dialogue;
    imageProgrammer programmer;
};
