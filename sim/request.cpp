#include "request.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

struct KindName {
    RequestKind kind;
    const char* name;
};

constexpr KindName KIND_NAMES[] = {
    {RequestKind::UpdateMode, "update-mode"},
    {RequestKind::SystemRestart, "restart"},
    {RequestKind::Enter, "enter"},
    {RequestKind::Leave, "leave"},
    {RequestKind::StartPage, "start"},
    {RequestKind::DataRow, "row"},
    {RequestKind::Status, "status"},
    {RequestKind::WritePage, "write"},
    {RequestKind::EraseBlocks, "erase"},
    {RequestKind::EraseAll, "erase-all"},
};

ParsedRequest refuse(const char* text, const Message& message) {
    return {std::nullopt, format("%s: message %u with payload ", text, message.id) + toHex(message.payload)};
}

ParsedRequest understood(RequestKind kind, std::uint8_t module) {
    Request request;
    request.kind = kind;
    request.module = module;
    return {request, ""};
}

ParsedRequest parseSystemCommand(const Message& message) {
    if (message.payload.size() != 2)
        return refuse("system command of a wrong length", message);
    const std::uint8_t module = message.payload[0];
    switch (message.payload[1]) {
    case argument::ENTER:
        return understood(RequestKind::Enter, module);
    case argument::LEAVE:
        return understood(module == CONTROL_MODULE ? RequestKind::SystemRestart : RequestKind::Leave, module);
    case argument::UPDATE_MODE:
        if (module == CONTROL_MODULE)
            return understood(RequestKind::UpdateMode, module);
        break;
    default:
        break;
    }
    return refuse("unknown system command", message);
}

// Start of page and erase blocks: the commands with an address, of 6 or 8 bytes.
ParsedRequest parseAddressed(RequestKind kind, const Message& message) {
    const Bytes& p = message.payload;
    if (p.size() != 6 && p.size() != 8)
        return refuse("bootloader command of a wrong length", message);
    ParsedRequest parsed = understood(kind, p[0]);
    Request& request = *parsed.request;
    request.wideAddress = p.size() == 8;
    request.address = static_cast<std::uint32_t>(p[2] << 8 | p[3]);
    if (request.wideAddress)
        request.address |= static_cast<std::uint32_t>(p[6]) << 16 | static_cast<std::uint32_t>(p[7]) << 24;
    if (kind == RequestKind::StartPage) {
        request.count = static_cast<unsigned>(p[4] << 8 | p[5]);
        return parsed;
    }
    request.count = p[4] == 0 ? MAX_ERASE_BLOCKS : p[4];
    if (p[5] != 0)
        parsed.breach = "erase blocks with byte 5 not zero";
    return parsed;
}

ParsedRequest parseCommand(const Message& message) {
    const Bytes& p = message.payload;
    if (p.size() == 1 && p[0] == CONTROL_MODULE)
        return understood(RequestKind::SystemRestart, CONTROL_MODULE);
    if (p.size() < 2)
        return refuse("bootloader command of a wrong length", message);
    switch (p[1]) {
    case command::START_PAGE:
        return parseAddressed(RequestKind::StartPage, message);
    case command::ERASE_BLOCKS:
        return parseAddressed(RequestKind::EraseBlocks, message);
    case command::ERASE_ALL: {
        if (p.size() != 8)
            return refuse("bootloader command of a wrong length", message);
        ParsedRequest parsed = understood(RequestKind::EraseAll, p[0]);
        if (std::any_of(p.begin() + 2, p.end(), [](std::uint8_t byte) { return byte != 0; }))
            parsed.breach = "erase all with bytes that are not zero";
        return parsed;
    }
    case command::STATUS:
    case command::WRITE_PAGE:
        if (p.size() != 2)
            return refuse("bootloader command of a wrong length", message);
        return understood(p[1] == command::STATUS ? RequestKind::Status : RequestKind::WritePage, p[0]);
    default:
        return refuse("unknown bootloader command", message);
    }
}

ParsedRequest parseRow(const Message& message) {
    const bool high = message.id == id::HIGH_ROW;
    const std::size_t numberSize = high ? 2 : 1;
    const Bytes& p = message.payload;
    if (p.size() <= numberSize || p.size() > 8)
        return refuse("data row of a wrong length", message);
    ParsedRequest parsed = understood(RequestKind::DataRow, 0);
    Request& request = *parsed.request;
    request.row = high ? static_cast<std::uint16_t>(p[0] | p[1] << 8) : p[0];
    request.data.assign(p.begin() + static_cast<std::ptrdiff_t>(numberSize), p.end());
    if (high != (request.row >= FIRST_HIGH_ROW))
        parsed.breach = format("row %u sent as message %u", request.row, message.id);
    return parsed;
}

} // namespace

const char* nameOf(RequestKind kind) {
    const auto entry = std::find_if(std::begin(KIND_NAMES), std::end(KIND_NAMES),
                                    [kind](const KindName& candidate) { return candidate.kind == kind; });
    return entry->name;
}

RequestKind requestKind(const std::string& name) {
    const auto entry = std::find_if(std::begin(KIND_NAMES), std::end(KIND_NAMES),
                                    [&name](const KindName& candidate) { return candidate.name == name; });
    if (entry == std::end(KIND_NAMES))
        throw std::invalid_argument("unknown request '" + name + "'");
    return entry->kind;
}

ParsedRequest parseRequest(const Message& message) {
    switch (message.id) {
    case id::COMMAND:
        return parseCommand(message);
    case id::ROW:
    case id::HIGH_ROW:
        return parseRow(message);
    case id::SYSTEM_COMMAND:
        return parseSystemCommand(message);
    default:
        return refuse("unknown message", message);
    }
}

} // namespace sim
