#include "summary.h"

#include "sim/messages.h"
#include "sim/request.h"
#include "src/system/modules.h"

#include <algorithm>

namespace trace {

namespace {

using sim::Frame;
using sim::RequestKind;

constexpr unsigned GONE_FOR = 8;         // requests in a row without an answer
constexpr double SLOW_REPLY = 0.050;     // seconds, of every twentieth reply
constexpr unsigned REPEATED_SHARE = 100; // one in so many
constexpr unsigned FEW_REPEATS = 3;
constexpr unsigned SYSTEM_ADDRESS = 0; // stands for commands to the whole system

// One visit of the panel to one module.
struct Visit {
    unsigned module = SYSTEM_ADDRESS;
    unsigned exchanges = 0; // requests that were answered
    unsigned repeats = 0;
    unsigned silent = 0;
    unsigned silentInARow = 0;
    unsigned damaged = 0;
    std::size_t noise = 0; // bytes
    unsigned pages = 0;
    unsigned retries = 0;
    std::optional<sim::Status> refusal;       // the last error that it answered with
    std::optional<std::uint32_t> answeredRow; // the last one of this page
    std::vector<double> times;                // of the replies, in seconds
};

bool isAnswer(const Frame& frame) {
    const std::uint8_t id = frame.message.id;
    return frame.kind != Frame::Kind::BadCrc && id != sim::id::MODULE_STATUS &&
           id != sim::id::MODULE_IDENTITY;
}

class Summary {
public:
    void add(const Piece& piece) {
        if (!piece.event.empty())
            return;
        if (piece.frame.kind == Frame::Kind::Noise) {
            current().noise += piece.frame.raw.size();
        } else if (piece.direction == Direction::FromPanel) {
            addRequest(piece);
        } else {
            current().damaged += piece.frame.kind == Frame::Kind::BadCrc ? 1 : 0;
            if (isAnswer(piece.frame) && asked_)
                addAnswer(piece);
        }
    }

    std::vector<Visit> take() {
        addSilence();
        return std::move(visits_);
    }

private:
    Visit& current() {
        if (visits_.empty())
            visits_.emplace_back();
        return visits_.back();
    }

    void addRequest(const Piece& piece) {
        addSilence();
        const auto parsed = sim::parseRequest(piece.frame.message);
        if (!parsed.request)
            return;
        const sim::Request& request = *parsed.request;
        turnTo(request);
        Visit& visit = current();
        const bool isStatus = request.kind == RequestKind::Status;
        visit.repeats += !isStatus && visit.module != SYSTEM_ADDRESS && piece.frame.raw == last_ ? 1 : 0;
        if (!isStatus)
            last_ = piece.frame.raw;
        if (request.kind == RequestKind::StartPage && !(address_ == request.address && !rowsSince_))
            beginPage(request.address);
        if (request.kind == RequestKind::DataRow)
            rowsSince_ = true;
        row_ =
            request.kind == RequestKind::DataRow ? std::optional<std::uint32_t>(request.row) : std::nullopt;
        asked_ = piece.when;
    }

    void turnTo(const sim::Request& request) {
        if (request.kind == RequestKind::DataRow)
            return;
        const bool isSystem =
            request.kind == RequestKind::UpdateMode || request.kind == RequestKind::SystemRestart;
        const unsigned module = isSystem ? SYSTEM_ADDRESS : request.module;
        const bool asksSystem = request.kind == RequestKind::Status && current().module == SYSTEM_ADDRESS;
        if (module == current().module || (asksSystem && request.module == sim::CONTROL_MODULE))
            return;
        visits_.push_back({});
        visits_.back().module = module;
        address_.reset();
    }

    void beginPage(std::uint32_t address) {
        (address_ == address ? current().retries : current().pages) += 1;
        address_ = address;
        rowsSince_ = false;
        begun_ = true;
    }

    void addSilence() {
        if (asked_) {
            ++current().silent;
            ++current().silentInARow;
        }
        asked_.reset();
    }

    void addAnswer(const Piece& piece) {
        Visit& visit = current();
        ++visit.exchanges;
        visit.silentInARow = 0;
        const sim::Message& message = piece.frame.message;
        const bool isReply = message.id == sim::id::REPLY || message.id == sim::id::SERIAL_REPLY;
        if (isReply && !message.payload.empty() && message.payload[0] != 0)
            visit.refusal = static_cast<sim::Status>(message.payload[0]);
        visit.times.push_back(std::chrono::duration<double>(piece.when - *asked_).count());
        if (begun_ || row_) // the module has begun the page
            visit.answeredRow = row_;
        begun_ = false;
        asked_.reset();
    }

    std::vector<Visit> visits_;
    std::optional<sim::TimePoint> asked_; // when, while there is no answer
    std::optional<std::uint32_t> row_;    // that was asked
    std::optional<std::uint32_t> address_;
    bool rowsSince_ = false;
    bool begun_ = false; // a page, and it was not answered yet
    sim::Bytes last_;
};

double share(std::vector<double>& sorted, double part) {
    return sorted.empty() ? 0
                          : sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

std::string verdict(const Visit& visit, double slowest) {
    if (visit.exchanges == 0)
        return "silent";
    if (visit.silentInARow >= GONE_FOR)
        return visit.answeredRow
                   ? sim::format("silent behind row %u of page %u", *visit.answeredRow, visit.pages)
                   : sim::format("silent behind page %u", visit.pages);
    const bool repeatsMuch = visit.repeats >= FEW_REPEATS && visit.repeats * REPEATED_SHARE > visit.exchanges;
    if (visit.damaged != 0 || visit.noise != 0 || (repeatsMuch && !visit.refusal))
        return "noisy line";
    if (visit.refusal)
        return sim::format("answers %s", sim::nameOf(*visit.refusal));
    return slowest > SLOW_REPLY ? "slow module" : "clean";
}

std::string nameOf(unsigned module) {
    if (module == SYSTEM_ADDRESS)
        return "system";
    const auto row = std::ranges::find(modules::VISITED, module, &modules::ROW::address);
    return row != modules::VISITED.end() ? row->shown : sim::format("module %u", module);
}

} // namespace

void summarize(std::ostream& out, const Recording& recording) {
    Summary summary;
    for (const Piece& piece : cut(recording))
        summary.add(piece);
    out << "module            exchanges  repeats  silent  damaged  noise  reply ms: median   95 %  longest  "
           "pages  "
           "retries  verdict\n";
    for (Visit& visit : summary.take()) {
        std::sort(visit.times.begin(), visit.times.end());
        const double slowest = share(visit.times, 0.95);
        out << sim::format("%-17s %9u  %7u  %6u  %7u  %5zu  %16.1f  %5.1f  %7.1f  %5u  %7u  ",
                           nameOf(visit.module).c_str(), visit.exchanges, visit.repeats, visit.silent,
                           visit.damaged, visit.noise, 1000 * share(visit.times, 0.5), 1000 * slowest,
                           1000 * share(visit.times, 1), visit.pages, visit.retries)
            << verdict(visit, slowest) << '\n';
    }
}

} // namespace trace
