#include "listing.h"

#include "sim/messages.h"

namespace trace {

namespace {

using sim::Frame;

double seconds(sim::TimePoint::duration time) {
    return std::chrono::duration<double>(time).count();
}

// What is wrong with the frame, behind its fields; empty when nothing is.
std::string damage(const Frame& frame) {
    if (frame.kind == Frame::Kind::BadClosing)
        return "  CLOSING-ERROR";
    if (frame.kind != Frame::Kind::BadCrc)
        return "";
    const auto carried =
        static_cast<unsigned>(frame.raw[frame.raw.size() - 4] | frame.raw[frame.raw.size() - 3] << 8);
    return sim::format("  CRC-ERROR carried=%04X computed=%04X", carried, sim::crc16(frame.message.payload));
}

// As much as a line can hold.
std::string startOf(const sim::Bytes& bytes) {
    constexpr std::size_t most = 64;
    if (bytes.size() <= most)
        return sim::toHex(bytes);
    return sim::toHex(sim::Bytes(bytes.begin(), bytes.begin() + most)) + "...";
}

const char* arrow(const Piece& piece) {
    switch (piece.direction) {
    case Direction::FromPanel:
        return ">";
    case Direction::ToPanel:
        return "<";
    case Direction::Unknown:
        break;
    }
    return "?";
}

bool isNoise(const Piece& piece) {
    return piece.frame.kind == Frame::Kind::Noise;
}

// Messages that the bus sends by itself answer nothing.
bool isAnswer(const Piece& piece) {
    const std::uint8_t id = piece.frame.message.id;
    return !isNoise(piece) && piece.direction == Direction::ToPanel && id != sim::id::MODULE_STATUS &&
           id != sim::id::MODULE_IDENTITY;
}

class Listing {
public:
    Listing(std::ostream& out, bool timed, std::chrono::milliseconds gap)
        : out_(out), timed_(timed), gap_(gap) {}

    void add(const Piece& piece) {
        if (!piece.event.empty()) {
            line(piece, "! " + piece.event);
            return;
        }
        noteGap(piece);
        noteSilence(piece);
        count(piece.frame);
        if (isNoise(piece))
            line(piece, sim::format("%s noise bytes=%zu ", arrow(piece), piece.frame.raw.size()) +
                            startOf(piece.frame.raw));
        else
            line(piece, arrow(piece) + (" " + sim::describe(piece.frame.message)) + damage(piece.frame));
    }

    const Summary& summary() const { return summary_; }

private:
    void line(const Piece& piece, const std::string& text) {
        if (timed_)
            out_ << sim::format("%12.6f  ", seconds(piece.when.time_since_epoch()));
        out_ << text << '\n';
    }

    void noteGap(const Piece& piece) {
        if (timed_ && piece.when - last_ > gap_) {
            ++summary_.gaps;
            out_ << sim::format("---- %.3f s of silence\n", seconds(piece.when - last_));
        }
        last_ = piece.when;
    }

    void noteSilence(const Piece& piece) {
        if (isAnswer(piece))
            waiting_ = false;
        if (isNoise(piece) || piece.direction != Direction::FromPanel)
            return;
        if (waiting_) {
            ++summary_.silent;
            out_ << "---- no answer\n";
        }
        waiting_ = true;
    }

    void count(const Frame& frame) {
        if (frame.kind == Frame::Kind::Noise) {
            summary_.noise += static_cast<unsigned>(frame.raw.size());
            return;
        }
        ++summary_.frames;
        if (frame.kind != Frame::Kind::Good)
            ++summary_.damaged;
    }

    std::ostream& out_;
    bool timed_;
    std::chrono::milliseconds gap_;
    sim::TimePoint last_; // at first the start of the recording
    bool waiting_ = false;
    Summary summary_;
};

} // namespace

Summary list(std::ostream& out, const std::vector<Piece>& pieces, bool timed, std::chrono::milliseconds gap) {
    Listing listing(out, timed, gap);
    for (const Piece& piece : pieces)
        listing.add(piece);
    return listing.summary();
}

void print(std::ostream& out, const Summary& summary) {
    out << summary.frames << " frames, " << summary.damaged << " damaged, " << summary.noise
        << " bytes of noise, " << summary.silent << " requests without an answer, " << summary.gaps
        << " gaps\n";
}

} // namespace trace
