#pragma once

#include "bootloadHost.h"

class coreState;

/** The panel as a bootloader dialogue sees it: the core's bus link, reply box, log and `cancel`. */
class coreHost : public bootloadHost {
public:
    explicit coreHost(coreState* core) : csys(core) {}

    void send(const busMessages::PROCBUS_MSG& msg) override;
    std::optional<busMessages::ANSWER> receive(milliseconds wait) override;
    void pause(milliseconds time) override;
    clock::time_point now() const override { return clock::now(); }
    bool cancelled() const override;
    void log(const std::string& text, logger::LOG_TYPE type) override;
    void progress(std::uint32_t done, std::uint32_t total) override;

private:
    coreState* csys; ///< not owned
};
