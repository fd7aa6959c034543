#include "replyBox.h"

#include "threadTermination.h"

#include <ctime>

using busMessages::ANSWER;

namespace {

constexpr std::uint32_t NO_PAGE = 0xFFFF;
constexpr long POLL_NS = 1'000'000;
constexpr long SECOND_NS = 1'000'000'000;

} // namespace

replyBox::RECORD replyBox::copy() {
    const std::lock_guard<std::mutex> held(guard);
    return last;
}

void replyBox::file(const ANSWER& answer) {
    const std::lock_guard<std::mutex> held(guard);
    if (answer.identification) {
        write(*answer.identification);
    } else {
        write(answer.reply);
    }
    last.hasResponse = true;
    if (count == CAPACITY) {
        first = (first + 1) % CAPACITY;
        --count;
    }
    ring[(first + count) % CAPACITY] = answer;
    ++count;
    sem_post(&wakes);
}

void replyBox::write(const busMessages::REPLY& reply) {
    last.status = reply.status;
    last.page = reply.row;
    last.moduleReported = reply.module;
}

void replyBox::write(const busMessages::IDENTIFICATION& identification) {
    last.hwRev = identification.hwRev;
    last.swVersion = identification.versionText();
    last.moduleReported = identification.module;
    last.serialBootload = identification.serial;
    last.reportedType = static_cast<busProtocol::PROC_TYPE>(identification.type);
    last.blInitData = true;
}

void replyBox::forgetIdentification() {
    const std::lock_guard<std::mutex> held(guard);
    last.blInitData = false;
    last.hwRev = 0;
    last.swVersion = std::string();
    last.serialBootload = false;
}

void replyBox::reset() {
    const std::lock_guard<std::mutex> held(guard);
    last.hasResponse = false;
    last.page = NO_PAGE;
    last.status = 0;
    last.moduleReported = busMessages::NO_MODULE;
    count = 0;
    forgetWakes();
}

std::optional<ANSWER> replyBox::take() {
    const std::lock_guard<std::mutex> held(guard);
    if (count == 0) {
        forgetWakes(); // of answers that are gone: each would cost the wait a poll
        return {};
    }
    const ANSWER oldest = ring[first];
    first = (first + 1) % CAPACITY;
    --count;
    return oldest;
}

std::optional<ANSWER> replyBox::receive(unsigned polls, const shared<bool>& cancelled) {
    std::optional<ANSWER> answer = take();
    for (unsigned i = 0; i < polls && !answer && !cancelled; ++i) {
        poll();
        answer = take();
    }
    return cancelled ? std::nullopt : answer;
}

bool replyBox::await(unsigned polls, const shared<bool>& cancelled) {
    for (unsigned i = 0; i < polls && !last.hasResponse && !cancelled; ++i) {
        poll();
    }
    return last.hasResponse;
}

void replyBox::forgetWakes() {
    while (sem_trywait(&wakes) == 0) {
    }
}

/** Sleeps 1 ms, or less when an answer is filed. The thread may be terminated meanwhile. */
void replyBox::poll() {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_nsec += POLL_NS;
    if (deadline.tv_nsec >= SECOND_NS) {
        deadline.tv_nsec -= SECOND_NS;
        ++deadline.tv_sec;
    }
    threadTermination::allowDuring([&] { return sem_clockwait(&wakes, CLOCK_MONOTONIC, &deadline); });
}
