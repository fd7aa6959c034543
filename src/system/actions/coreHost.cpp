#include "coreHost.h"

#include "../ProcBusThread.h"
#include "../coreState.h"

#include <algorithm>

void coreHost::send(const busMessages::PROCBUS_MSG& msg) {
    csys->busResetResponse();
    csys->quality.sent(msg);
    csys->comBus->send(msg);
}

std::optional<busMessages::ANSWER> coreHost::receive(milliseconds wait) {
    const auto polls = static_cast<unsigned>(std::max(wait.count(), milliseconds::rep{0}));
    auto answer = csys->answers.receive(polls, csys->cancel);
    if (answer) {
        csys->quality.answered();
    }
    return answer;
}

void coreHost::pause(milliseconds time) {
    csys->pause(static_cast<unsigned>(time.count()));
}

bool coreHost::cancelled() const {
    return csys->cancel;
}

void coreHost::log(const std::string& text, logger::LOG_TYPE type) {
    csys->recorder.mark(text);
    csys->log->log_item(text, type);
}

void coreHost::progress(std::uint32_t done, std::uint32_t total) {
    csys->progress.reached(done, total);
}
