// What the panel asks for, taken out of its messages.
#pragma once

#include "codec.h"

namespace sim {

enum class RequestKind {
    UpdateMode,
    SystemRestart,
    Enter,
    Leave,
    StartPage,
    DataRow,
    Status,
    WritePage,
    EraseBlocks,
    EraseAll,
};

// As fault scripts name it: update-mode, restart, enter, leave, start, row, status, write, erase, erase-all.
const char* nameOf(RequestKind kind);
// Throws std::invalid_argument for an unknown name.
RequestKind requestKind(const std::string& name);

struct Request {
    RequestKind kind = RequestKind::Status;
    std::uint8_t module = 0; // bus address; not set for a data row
    std::uint32_t address = 0;
    bool wideAddress = false; // the address came with 32 bits
    unsigned count = 0;       // start of page: bytes that follow; erase: pages
    std::uint16_t row = 0;
    Bytes data; // of a data row
};

struct ParsedRequest {
    std::optional<Request> request; // none when the message can't be understood
    std::string breach;             // what breaks the protocol; may stand beside a request
};

ParsedRequest parseRequest(const Message& message);

} // namespace sim
