#include "replay.h"

#include "sim/line.h"
#include "sim/messages.h"
#include "sim/request.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <optional>
#include <poll.h>
#include <stdexcept>

namespace trace {

namespace {

using sim::Clock;
using sim::Frame;
using sim::TimePoint;

constexpr TimePoint::duration LAST_PATIENCE = std::chrono::seconds(2);

struct Answer {
    TimePoint::duration delay; // since the request
    sim::Bytes bytes;
};

struct Step {
    Frame request;
    std::vector<Answer> answers;
};

bool isStatusRequest(const Frame& frame) {
    const sim::Bytes& payload = frame.message.payload;
    return frame.message.id == sim::id::COMMAND && payload.size() > 1 && payload[1] == sim::command::STATUS;
}

std::string describe(const Frame& frame) {
    return sim::describe(frame.message) + " " + sim::toHex(frame.raw);
}

// Begins with the panel's first frame: what the bus has said before, nobody has heard.
std::vector<Step> toSteps(const std::vector<Piece>& pieces) {
    std::vector<Step> steps;
    TimePoint asked;
    for (const Piece& piece : pieces) {
        if (!piece.event.empty())
            continue;
        if (piece.direction == Direction::ToPanel) {
            if (!steps.empty())
                steps.back().answers.push_back({piece.when - asked, piece.frame.raw});
        } else if (piece.frame.kind != Frame::Kind::Noise) {
            asked = piece.when;
            steps.push_back({piece.frame, {}});
        }
    }
    return steps;
}

bool asksFor(const Frame& frame, sim::RequestKind kind) {
    const auto parsed = sim::parseRequest(frame.message);
    return parsed.request && parsed.request->kind == kind;
}

// Leaves out what a panel can't come to, since the recording lacks what was before it.
std::vector<Step> fromBeginning(std::vector<Step> steps) {
    for (const auto kind : {sim::RequestKind::UpdateMode, sim::RequestKind::Enter}) {
        const auto first = std::find_if(steps.begin(), steps.end(),
                                        [kind](const Step& step) { return asksFor(step.request, kind); });
        if (first != steps.end()) {
            steps.erase(steps.begin(), first);
            return steps;
        }
    }
    throw std::invalid_argument(
        "no update and no module begins in this recording, so it can't be replayed; with a "
        "larger recorder_size in vx3.cfg the panel keeps more");
}

class Replay {
public:
    Replay(std::ostream& out, std::vector<Step> steps, const std::string& link, std::chrono::seconds patience)
        : out_(out),
          steps_(std::move(steps)),
          beginsLater_(!asksFor(steps_.front().request, sim::RequestKind::UpdateMode)),
          line_(link, 0),
          patience_(patience) {
        out_ << link << " -> " << line_.slaveName() << std::endl;
        if (beginsLater_)
            out_ << "the recording begins in the middle; until its first whole module, "
                 << describe(steps_.front().request) << ", no module is there" << std::endl;
    }

    bool run() {
        lastHeard_ = Clock::now();
        while (!diverged_ && !isThrough()) {
            wait(Clock::now());
            line_.receive(Clock::now(), [this](std::uint8_t byte, TimePoint arrival) {
                for (const Frame& frame : decoder_.feed(byte, arrival))
                    take(frame, arrival);
            });
            const TimePoint now = Clock::now();
            while (!pending_.empty() && pending_.front().first <= now)
                sendFirst(now);
            if (next_ < steps_.size() && now - lastHeard_ > patience_)
                diverge("the panel sends nothing");
        }
        out_ << next_ << " of " << steps_.size() << " requests as recorded, " << repeats_ << " repeated\n";
        return !diverged_;
    }

private:
    // The last answers may have to be repeated, too; a port that is closed takes along what was not read yet.
    bool isThrough() const {
        return next_ == steps_.size() && pending_.empty() &&
               (goesOn_ || Clock::now() - lastHeard_ > std::min(patience_, LAST_PATIENCE));
    }

    void take(const Frame& frame, TimePoint now) {
        if (frame.kind == Frame::Kind::Noise || diverged_)
            return;
        lastHeard_ = now;
        while (!pending_.empty())
            sendFirst(now);
        if (const auto found = find(frame)) {
            next_ = *found + 1;
            answer(now);
        } else if (next_ > 0 && (isStatusRequest(frame) || isRepeat(frame, next_ - 1))) {
            ++repeats_;
            answer(now);
        } else if (next_ == 0 && beginsLater_) {
            answerBefore(frame, now);
        } else if (next_ == steps_.size()) {
            goesOn_ = true; // behind the recording's end
        } else {
            diverge("the panel sends " + describe(frame));
        }
    }

    // The step that the frame is, behind recorded requests that may be missing.
    std::optional<std::size_t> find(const Frame& frame) const {
        for (std::size_t step = next_; step < steps_.size(); ++step) {
            if (steps_[step].request.raw == frame.raw)
                return step;
            if (!isStatusRequest(steps_[step].request) &&
                !(step > 0 && isRepeat(steps_[step].request, step - 1)))
                return {};
        }
        return {};
    }

    bool isRepeat(const Frame& frame, std::size_t step) const {
        return steps_[step].request.raw == frame.raw;
    }

    void answer(TimePoint now) {
        for (const Answer& answer : steps_[next_ - 1].answers)
            pending_.emplace_back(now + answer.delay, answer.bytes);
    }

    // The whole system switches, and nobody else is there.
    void answerBefore(const Frame& frame, TimePoint now) {
        if (asksFor(frame, sim::RequestKind::UpdateMode))
            pending_.emplace_back(now, sim::encode(sim::makeReply(sim::id::REPLY, {}, sim::CONTROL_MODULE)));
    }

    void sendFirst(TimePoint now) {
        line_.send(std::move(pending_.front().second), now);
        pending_.pop_front();
        line_.transmit(
            now, [](const sim::Bytes&, TimePoint) {}, [](std::size_t, TimePoint) {});
    }

    void wait(TimePoint now) {
        TimePoint until =
            lastHeard_ + (next_ < steps_.size() ? patience_ : std::min(patience_, LAST_PATIENCE));
        if (!pending_.empty())
            until = std::min(until, pending_.front().first);
        const auto left = std::max(until - now, TimePoint::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout{static_cast<time_t>(seconds.count()),
                               static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
        pollfd watched{line_.fd(), POLLIN, 0};
        ::ppoll(&watched, 1, &timeout, nullptr);
    }

    void diverge(const std::string& what) {
        diverged_ = true;
        out_ << what << '\n';
        if (next_ < steps_.size())
            out_ << "recorded is     " << describe(steps_[next_].request) << '\n';
    }

    std::ostream& out_;
    std::vector<Step> steps_;
    bool beginsLater_; // than the panel
    sim::Line line_;
    TimePoint::duration patience_;
    sim::Decoder decoder_;
    std::deque<std::pair<TimePoint, sim::Bytes>> pending_; // to be sent, by time
    TimePoint lastHeard_;
    std::size_t next_ = 0; // the step that is waited for
    unsigned repeats_ = 0;
    bool diverged_ = false;
    bool goesOn_ = false;
};

} // namespace

bool replay(std::ostream& out, const Recording& recording, const std::string& link,
            std::chrono::seconds patience) {
    if (!recording.timed)
        throw std::invalid_argument("raw bytes can't be replayed: they have no times");
    return Replay(out, fromBeginning(toSteps(cut(recording))), link, patience).run();
}

} // namespace trace
