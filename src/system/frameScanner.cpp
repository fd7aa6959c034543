#include "frameScanner.h"

#include <algorithm>

using namespace busProtocol;

namespace {

// Receive states.
enum STAGE : std::uint8_t { OUTSIDE = 0, LENGTH = 1, PAYLOAD = 2, CRC_LOW = 3, CRC_HIGH = 4 };

} // namespace

frameScanner::SCANNED frameScanner::scan(const std::uint8_t* buffer, std::uint32_t held, const TAKE& take) {
    busMessages::PROCBUS_MSG msg;
    std::uint32_t consumed = 0;
    for (std::uint32_t i = 0; i < held; ++i) {
        const std::uint8_t byte = buffer[i];
        // A sync sequence starts a frame wherever it stands, inside another frame too.
        if (i >= SYNC.size() && std::equal(SYNC.begin(), SYNC.end(), buffer + i - SYNC.size())) {
            msg.stage = LENGTH;
            msg.id = byte;
            continue;
        }
        switch (msg.stage) {
        case LENGTH:
            msg.length = byte;
            msg.ptr = 0;
            msg.stage = byte > MAX_RECEIVED ? OUTSIDE : PAYLOAD;
            break;
        case PAYLOAD: // stores one byte even for a length of 0, whose CRC then never matches
            msg.data[msg.ptr++] = byte;
            if (msg.ptr >= msg.length) {
                msg.stage = CRC_LOW;
            }
            break;
        case CRC_LOW:
            msg.checksum = byte;
            msg.stage = CRC_HIGH;
            break;
        case CRC_HIGH:
            msg.checksum |= static_cast<std::uint32_t>(byte) << 8;
            msg.stage = OUTSIDE;
            take(msg, i);
            consumed = i; // the frame's last byte stays and is scanned again as noise
            break;
        default:
            break;
        }
    }
    return {consumed, msg.stage == CRC_HIGH ? 1U : msg.stage == CRC_LOW ? 2U : 0U};
}
