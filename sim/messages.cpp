#include "messages.h"

#include "request.h"

#include <stdexcept>

namespace sim {

namespace {

constexpr const char* STATUS_NAMES[] = {"OK",       "BADCHECKSUM", "MISSEDPACKET", "WRONGMODULE",
                                        "WRITEERR", "ERASEERR",    "IGNOREPG"};

std::string describeRequest(const Message& message) {
    const ParsedRequest parsed = parseRequest(message);
    if (!parsed.request)
        return "unknown";
    const Request& request = *parsed.request;
    if (message.id == id::SYSTEM_COMMAND)
        return format("system-command module=%u arg=%02X", request.module, message.payload[1]);
    switch (request.kind) {
    case RequestKind::StartPage:
        return format("start module=%u address=%08X bytes=%u", request.module, request.address,
                      request.count);
    case RequestKind::EraseBlocks:
        return format("erase module=%u address=%08X pages=%u", request.module, request.address,
                      request.count);
    case RequestKind::DataRow:
        return format("row row=%u bytes=%u", request.row, static_cast<unsigned>(request.data.size()));
    default:
        return format("%s module=%u", nameOf(request.kind), request.module);
    }
}

std::string describeReply(const Message& message) {
    const Bytes& p = message.payload;
    const char* name = message.id == id::REPLY ? "reply" : "serial-reply";
    if (p.size() < 2)
        return "unknown";
    if (p.size() == 6)
        return format("obsolete-%s", name);
    const auto row = static_cast<unsigned>(p.size() > 2 ? p[1] | p[2] << 8 : p[1]);
    const std::string text = format("%s status=%s row=%u", name, nameOf(static_cast<Status>(p[0])), row);
    return p.size() > 3 ? text + format(" module=%u", p[3]) : text;
}

std::string describeIdentification(const Message& message) {
    const Bytes& p = message.payload;
    if (p.size() == 6)
        return format("identification module=%u kind=%u serial=%u version=%u.%u.%u hw=%u", p[5], p[4] & 0x7FU,
                      p[4] >> 7, p[3], p[2], p[1], p[0]);
    return p.size() == 11 ? "obsolete-identification" : "unknown";
}

std::string describeIdentity(const Message& message) {
    const Bytes& p = message.payload;
    if (p.size() < 11)
        return "unknown";
    if (p[0] == CONTROL_MODULE)
        return format("module-identity number=2 version=%u.%u.%u", p[3], p[2], p[1]);
    return format("module-identity number=%u serial=%s version=%u.%u.%u hw=%u", p[0],
                  toHex(std::span(p).subspan(1, 6)).c_str(), p[9], p[8], p[7], p.size() > 11 ? p[11] : 0U);
}

std::string describeStatus(const Message& message) {
    const Bytes& p = message.payload;
    if (p.size() < 5)
        return "unknown";
    return format("module-status master=%u motor=%u s1=%u s2=%u s3=%u s4=%u", p[2] & 15U, p[2] >> 4U,
                  p[3] & 15U, p[3] >> 4U, p[4] & 15U, p[4] >> 4U);
}

} // namespace

std::string Version::text() const {
    return format("%u.%u.%u", first, second, third);
}

Version Version::parse(const std::string& text) {
    const auto point = text.find('.');
    const auto secondPoint = text.find('.', point == std::string::npos ? point : point + 1);
    if (secondPoint == std::string::npos)
        throw std::invalid_argument("not a version: '" + text + "'");
    const auto part = [&text](std::size_t from, std::size_t to) {
        return static_cast<std::uint8_t>(toNumber(std::string_view(text).substr(from, to - from), 10, 255));
    };
    return {part(0, point), part(point + 1, secondPoint), part(secondPoint + 1, text.size())};
}

const char* nameOf(Status status) {
    const auto number = static_cast<std::size_t>(status);
    return number < std::size(STATUS_NAMES) ? STATUS_NAMES[number] : "?";
}

Message makeReply(std::uint8_t messageId, Reply reply, std::uint8_t module) {
    return {messageId,
            {static_cast<std::uint8_t>(reply.status), static_cast<std::uint8_t>(reply.row & 0xFF),
             static_cast<std::uint8_t>(reply.row >> 8), module}};
}

Message makeIdentification(std::uint8_t hardware, Version version, std::uint8_t kind, std::uint8_t module) {
    return {id::IDENTIFICATION, {hardware, version.third, version.second, version.first, kind, module}};
}

std::string describe(const Message& message) {
    switch (message.id) {
    case id::REPLY:
    case id::SERIAL_REPLY:
        return describeReply(message);
    case id::IDENTIFICATION:
        return describeIdentification(message);
    case id::MODULE_STATUS:
        return describeStatus(message);
    case id::MODULE_IDENTITY:
        return describeIdentity(message);
    default:
        return describeRequest(message);
    }
}

} // namespace sim
