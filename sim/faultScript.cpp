// Reading faults from text.
#include "faults.h"

#include <charconv>
#include <sstream>
#include <stdexcept>

namespace sim {

namespace {

struct KindName {
    const char* name;
    FaultKind kind;
    bool damagesRequest = false;
};

constexpr KindName KIND_NAMES[] = {
    {"lost-request", FaultKind::LostRequest},
    {"silent", FaultKind::Silent},
    {"power-cycle", FaultKind::PowerCycle},
    {"write-error", FaultKind::WriteError},
    {"erase-error", FaultKind::EraseError},
    {"ignore-page", FaultKind::IgnorePage},
    {"lost", FaultKind::Lost},
    {"late", FaultKind::Late},
    {"double", FaultKind::Double},
    {"noise", FaultKind::Noise},
    {"wrong-module", FaultKind::WrongModule},
    {"wrong-row", FaultKind::WrongRow},
    {"wrong-status", FaultKind::WrongStatus},
    {"old-protocol", FaultKind::OldProtocol},
    {"sync", FaultKind::Sync},
    {"flip", FaultKind::Flip},
    {"cut", FaultKind::Cut},
    {"drop-byte", FaultKind::DropByte},
    {"insert-byte", FaultKind::InsertByte},
    {"flip-request", FaultKind::Flip, true},
    {"cut-request", FaultKind::Cut, true},
    {"drop-byte-request", FaultKind::DropByte, true},
    {"insert-byte-request", FaultKind::InsertByte, true},
};

const KindName& kindNamed(const std::string& name) {
    return named(KIND_NAMES, name, "fault");
}

double toShare(const std::string& text) {
    double share = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), share);
    if (error != std::errc() || end != text.data() + text.size() || share < 0 || share > 1)
        throw std::invalid_argument("not a share from 0 to 1: '" + text + "'");
    return share;
}

unsigned toCount(const std::string& text) {
    const unsigned count = toNumber(text);
    if (count == 0)
        throw std::invalid_argument("counts start at 1");
    return count;
}

std::string firstWord(const std::vector<std::string>& list) {
    if (list.empty())
        throw std::invalid_argument("a fault needs a kind");
    return list.front();
}

} // namespace

Fault::Fault(const std::string& text, std::uint64_t seed)
    : text_(firstWord(words(text))),
      kind_(kindNamed(text_).kind),
      damagesRequest_(kindNamed(text_).damagesRequest),
      engine_(seed) {
    const auto list = words(text);
    for (auto word = list.begin() + 1; word != list.end(); ++word) {
        const auto [key, value] = keyValue(*word);
        set(key, value);
        text_ += ' ' + *word;
    }
    if (nth_ != 0 && limit_ == 0)
        limit_ = 1;
    if (kind_ == FaultKind::PowerCycle && (milliseconds_ == 0) == (requests_ == 0))
        throw std::invalid_argument("power-cycle needs either ms or requests");
    if (kind_ == FaultKind::Late && milliseconds_ == 0)
        throw std::invalid_argument("late needs ms");
}

void Fault::set(const std::string& key, const std::string& value) {
    if (key == "module")
        module_ = static_cast<std::uint8_t>(toNumber(value, 10, 255));
    else if (key == "on")
        on_ = requestKind(value);
    else if (key == "row")
        row_ = toNumber(value);
    else if (key == "nth")
        nth_ = toCount(value);
    else if (key == "every")
        every_ = toCount(value);
    else if (key == "share")
        share_ = toShare(value);
    else if (key == "count")
        limit_ = toCount(value);
    else if (key == "ms")
        milliseconds_ = toCount(value);
    else if (key == "requests")
        requests_ = toCount(value);
    else if (key == "value")
        value_ = toNumber(value, 10, 0xFFFF);
    else if (key == "bytes")
        byteCount_ = toCount(value);
    else if (key == "hex")
        noise_ = fromHex(value);
    else if (key == "at")
        at_ = toCount(value);
    else if (key == "bit")
        bit_ = toNumber(value, 10, 7);
    else
        throw std::invalid_argument("unknown key '" + key + "'");
}

void FaultScript::add(const std::string& text) {
    faults_.emplace_back(text, seed_ + faults_.size());
}

void FaultScript::load(const std::string& file) {
    std::istringstream stream(readText(file));
    unsigned number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        try {
            if (!words(line).empty())
                add(line);
        } catch (const std::exception& error) {
            throw std::invalid_argument(file + ":" + std::to_string(number) + ": " + error.what());
        }
    }
}

std::vector<Fault*> FaultScript::strike(std::uint8_t module, const Request& request) {
    std::vector<Fault*> striking;
    for (Fault& fault : faults_)
        if (fault.strikes(module, request))
            striking.push_back(&fault);
    return striking;
}

} // namespace sim
