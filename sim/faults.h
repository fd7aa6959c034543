// Faults on request. A fault is one line of text; the grammar is told in README.md. Equal seeds and equal
// requests give equal faults.
#pragma once

#include "request.h"

#include <random>

namespace sim {

enum class FaultKind {
    LostRequest,
    Silent,
    PowerCycle,
    WriteError,
    EraseError,
    IgnorePage,
    Lost,
    Late,
    Double,
    Noise,
    WrongModule,
    WrongRow,
    WrongStatus,
    OldProtocol,
    Sync,
    Flip,
    Cut,
    DropByte,
    InsertByte,
};

class Fault {
public:
    // Throws std::invalid_argument for text that breaks the grammar.
    Fault(const std::string& text, std::uint64_t seed);

    FaultKind kind() const { return kind_; }
    // It damages the request's frame; other faults of these kinds damage the reply's.
    bool damagesRequest() const { return damagesRequest_; }
    const std::string& text() const { return text_; }

    // Whether the fault strikes this request (or the reply to it). To be asked once for every request.
    bool strikes(std::uint8_t module, const Request& request);
    void countInjection() { ++injected_; }
    unsigned injected() const { return injected_; }

    std::chrono::milliseconds delay() const { return std::chrono::milliseconds(milliseconds_); }
    unsigned requests() const { return requests_; }
    Bytes noise();

    // Changes what a reply says; nothing for a fault of another kind.
    void alter(Message& reply) const;
    // Damages a frame; nothing for a fault of another kind.
    void corrupt(Bytes& frame);

private:
    void set(const std::string& key, const std::string& value);
    bool concerns(std::uint8_t module, const Request& request) const;
    bool isTurn();
    std::size_t random(std::size_t below);
    std::size_t flippedByte(std::size_t frameSize);
    std::size_t anyByte(std::size_t frameSize);

    std::string text_;
    FaultKind kind_;
    bool damagesRequest_;
    std::mt19937_64 engine_;

    // Which requests.
    std::optional<std::uint8_t> module_;
    std::optional<RequestKind> on_;
    std::optional<std::uint32_t> row_;
    unsigned nth_ = 0;   // 0: not chosen by number
    unsigned every_ = 0; // 0: not chosen by number
    double share_ = 1;
    unsigned limit_ = 0; // strikes in all, 0: without limit

    // How.
    unsigned milliseconds_ = 0;
    unsigned requests_ = 0;
    std::optional<std::uint32_t> value_;
    unsigned byteCount_ = 8;
    Bytes noise_;
    std::optional<std::uint32_t> at_;
    std::optional<std::uint32_t> bit_;

    unsigned seen_ = 0;
    unsigned struck_ = 0;
    unsigned injected_ = 0;
};

// All faults of a run.
class FaultScript {
public:
    explicit FaultScript(std::uint64_t seed) : seed_(seed) {}

    void add(const std::string& text);
    // One fault a line. Throws std::runtime_error, naming file and line.
    void load(const std::string& file);

    // Those that strike this request, in the order in which they were added.
    std::vector<Fault*> strike(std::uint8_t module, const Request& request);
    const std::vector<Fault>& faults() const { return faults_; }

private:
    std::uint64_t seed_;
    std::vector<Fault> faults_;
};

} // namespace sim
