#include "ProcBusThread.h"

#include "termination.h"
#include "updateCore.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

using namespace busProtocol;

namespace {

constexpr int READ_AT_ONCE = 3;          // bytes at most; small, so that a short reply is not held back
constexpr std::uint32_t SCAN_ABOVE = 10; // bytes buffered before frames are searched
constexpr int VMIN_BYTES = 100;
constexpr int VTIME_TENTHS = 1;
constexpr unsigned long STOP_WAIT_MS = 200;

// Receive states.
enum STAGE : std::uint8_t { OUTSIDE = 0, LENGTH = 1, PAYLOAD = 2, CRC_LOW = 3, CRC_HIGH = 4 };

/** Which module's record a message 22 belongs to, and whether it shows that the module is there. */
constexpr struct {
    std::uint8_t number;
    updateCore::MODULE updateCore::*module;
    bool showsPresence; // the others' presence is known from message 21 alone
} IDENTITIES[] = {
    {3, &updateCore::cy1, false}, {4, &updateCore::cy2, false},    {5, &updateCore::cy3, false},
    {6, &updateCore::cy4, false}, {7, &updateCore::master, false}, {8, &updateCore::motor, false},
    {9, &updateCore::s1, false},  {10, &updateCore::s2, false},    {11, &updateCore::s3, false},
    {12, &updateCore::s4, false}, {13, &updateCore::mf1, true},    {14, &updateCore::mf2, true},
    {15, &updateCore::mf3, true}, {50, &updateCore::arts, true},
};

/** The six 4-bit fields of message 21, low half of each byte first. */
constexpr struct {
    std::uint8_t byte;
    std::uint8_t shift;
    updateCore::MODULE updateCore::*module;
} STATUS_FIELDS[] = {
    {2, 0, &updateCore::master}, {2, 4, &updateCore::motor}, {3, 0, &updateCore::s1},
    {3, 4, &updateCore::s2},     {4, 0, &updateCore::s3},    {4, 4, &updateCore::s4},
};

std::string versionText(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
    return std::to_string(first) + "." + std::to_string(second) + "." + std::to_string(third);
}

std::string serialText(const std::uint8_t* bytes) {
    char text[13];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2], bytes[3],
                  bytes[4], bytes[5]);
    return text;
}

} // namespace

ProcBusThread::ProcBusThread(updateCore* core)
    : readSize{READ_AT_ONCE},
      UARTREAD(new std::uint8_t[READ_SIZE]()),
      UARTRXBUF(new std::uint8_t[RX_SIZE]()),
      UARTTXBUF(new std::uint8_t[TX_SIZE]()),
      sys(core) {
    if (!sPort.uart_open(sys->uartPort)) {
        sys->log->log_item("Could not Start MicroBus: Could not open UART", logger::LOG_ERROR);
        return;
    }
    if (!configurePort()) {
        sys->log->log_item("Could not Start MicroBus: Could not init UART", logger::LOG_ERROR);
        return;
    }
    canRun = true;
    sys->log->log_item("MicroBus Processor Running on " + sys->uartPort + " at Baud " +
                           std::to_string(sys->uartBaud),
                       logger::LOG_NOTICE);
}

ProcBusThread::~ProcBusThread() = default; // the port closes with its member

bool ProcBusThread::configurePort() {
    return sPort.uart_set_options(static_cast<int>(sys->uartBaud), VMIN_BYTES, VTIME_TENTHS, false);
}

void ProcBusThread::send(PROCBUS_MSG msg) {
    if (!canRun || msg.length > MAX_PAYLOAD) {
        return;
    }
    const std::uint32_t crc = checker.crc16_calculate(msg.data, msg.length);
    std::uint8_t* out = std::copy(SYNC.begin(), SYNC.end(), UARTTXBUF.get());
    *out++ = msg.id;
    *out++ = msg.length;
    out = std::copy(msg.data, msg.data + msg.length, out);
    *out++ = byteOf(crc, 0);
    *out++ = byteOf(crc, 1);
    out = std::copy(FRAME_END.begin(), FRAME_END.end(), out);
    sPort.uart_write(UARTTXBUF.get(), static_cast<int>(out - UARTTXBUF.get()));
}

void ProcBusThread::run() {
    termination::forbid();
    while (!haltThread) {
        // With a port that never opened this spins, but each round is a place to be terminated at.
        const int count = termination::allowDuring(
            [this] { return reopening ? -1 : sPort.uart_read(UARTREAD.get(), readSize); });
        if (count > 0) {
            take(UARTREAD.get(), static_cast<std::uint32_t>(count));
        }
    }
}

void ProcBusThread::take(const std::uint8_t* bytes, std::uint32_t count) {
    if (rxPtr + count > RX_SIZE) {
        rxPtr = 0;
    }
    std::copy_n(bytes, count, UARTRXBUF.get() + rxPtr);
    rxPtr = rxPtr + count;
    if (rxPtr > SCAN_ABOVE) {
        scanBuffer();
    }
}

/** Dispatches every complete frame in the buffer and keeps what follows the last of them. */
void ProcBusThread::scanBuffer() {
    PROCBUS_MSG msg;
    std::uint32_t consumed = 0;
    const std::uint8_t* buffer = UARTRXBUF.get();
    const std::uint32_t held = rxPtr;
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
            finishFrame(msg, i);
            consumed = i; // the frame's last byte stays and is scanned again as noise
            break;
        default:
            break;
        }
    }
    std::memmove(UARTRXBUF.get(), buffer + consumed, held - consumed);
    rxPtr = held - consumed;
    // The next read ends with the CRC: a reply is filed while its closing bytes are still on the wire.
    readSize = msg.stage == CRC_HIGH ? 1 : msg.stage == CRC_LOW ? 2 : READ_AT_ONCE;
}

/** Checks the frame whose last CRC byte stands at index `last` of the buffer, and passes it on. */
void ProcBusThread::finishFrame(PROCBUS_MSG& msg, unsigned last) {
    const std::uint8_t byte = UARTRXBUF[last];
    msg.stage = OUTSIDE;
    msg.checksum |= static_cast<std::uint32_t>(byte) << 8;
    if (checker.crc16_check(msg.data, msg.length, msg.checksum)) {
        receive(msg);
        return;
    }
    std::printf("CRC ERR: %d %d (%x vs %x) %d %d %d - ", msg.id, msg.length, msg.checksum,
                checker.crc16_calculate(msg.data, msg.length), UARTRXBUF[last - 1], byte,
                static_cast<int>(last));
    for (unsigned i = 0; i < msg.length; ++i) {
        std::printf("%d ", msg.data[i]);
    }
    std::printf("\n");
    std::fflush(stdout);
}

void ProcBusThread::receive(PROCBUS_MSG msg) {
    if (msg.length < MAX_PAYLOAD) {
        std::fill(msg.data + msg.length, msg.data + MAX_PAYLOAD, std::uint8_t{0});
    }
    sys->ctrl.available = true; // whatever it says, a valid message shows that the control module lives
    sys->ctrl.lostCom = false;
    lastMsg = 0;
    switch (msg.id) {
    case REPLY:
    case REPLY_SERIAL:
        fileReply(msg);
        break;
    case IDENTIFICATION:
        fileIdentification(msg);
        break;
    case MODULE_STATUS:
        fileStatus(msg);
        break;
    case MODULE_IDENTITY:
        fileIdentity(msg);
        break;
    default:
        break;
    }
}

void ProcBusThread::fileReply(const PROCBUS_MSG& msg) {
    if (msg.length == OLD_REPLY_LENGTH) {
        sys->bootloader.oldProtocol = true;
        return;
    }
    sys->fileResponse([&msg](auto& record) {
        record.status = msg.data[0];
        if (msg.length == SHORT_REPLY_LENGTH) {
            record.page = msg.data[1] <= SHORT_REPLY_LAST_PAGE ? msg.data[1] : 0U;
            record.moduleReported = -1;
        } else {
            record.page = msg.data[1] + 256U * msg.data[2];
            record.moduleReported = static_cast<std::int8_t>(msg.data[3]);
        }
    });
}

void ProcBusThread::fileIdentification(const PROCBUS_MSG& msg) {
    std::printf("INIT BL: %x HW: %d SW: %d.%d.%d\n", msg.data[4], msg.data[0], msg.data[3], msg.data[2],
                msg.data[1]);
    if (msg.length == OLD_IDENTIFICATION_LENGTH) {
        sys->bootloader.oldProtocol = true;
        return;
    }
    sys->fileResponse([&msg](auto& record) {
        record.hwRev = msg.data[0] <= LAST_HW_REV ? msg.data[0] : std::uint8_t{0};
        record.swVersion = versionText(msg.data[3], msg.data[2], msg.data[1]);
        record.moduleReported = static_cast<std::int8_t>(msg.data[5]);
        record.serialBootload = (msg.data[4] & SERIAL_BOOTLOADER_BIT) != 0;
        record.reportedType = static_cast<updateCore::PROC_TYPE>(msg.data[4] & ~SERIAL_BOOTLOADER_BIT);
        record.blInitData = true;
    });
}

void ProcBusThread::fileStatus(const PROCBUS_MSG& msg) {
    for (const auto& field : STATUS_FIELDS) {
        updateCore::MODULE& module = sys->*field.module;
        const unsigned value = (msg.data[field.byte] >> field.shift) & 0x0FU;
        if (value == STATUS_LOST) {
            module.lostCom = true;
        } else if ((value & 1U) == 0) {
            module.available = true;
            module.lostCom = false;
            module.mode = static_cast<std::uint8_t>(value >> 1);
        } else {
            module.available = false;
        }
    }
}

void ProcBusThread::fileIdentity(const PROCBUS_MSG& msg) {
    if (msg.data[0] == CONTROL_MODULE) {
        sys->ctrl.available = true;
        sys->ctrl.base.swVersion = versionText(msg.data[3], msg.data[2], msg.data[1]);
        sys->ctrl.base.isAccurate = true;
        return;
    }
    for (const auto& identity : IDENTITIES) {
        if (identity.number != msg.data[0]) {
            continue;
        }
        updateCore::MODULE& module = sys->*identity.module;
        module.serial = serialText(msg.data + 1);
        module.base.swVersion = versionText(msg.data[9], msg.data[8], msg.data[7]);
        module.base.hwRev = msg.data[11];
        module.base.isAccurate = true;
        if (identity.showsPresence) {
            module.available = true;
        }
    }
}

void ProcBusThread::sendStop() {
    haltThread = false;
}

void ProcBusThread::checkStop() {
    if (!wait(STOP_WAIT_MS)) {
        terminate();
        wait();
    }
}

void ProcBusThread::reload_uart() {
    // Nobody may read between close and open: another file may have been given the number by then.
    reopening = true;
    terminate();
    wait(); // start() on a thread that still ends would be ignored and leave the link dead
    sPort.uart_close();
    start(QThread::InheritPriority);
    if (sPort.uart_open(sys->uartPort)) {
        configurePort();
    }
    reopening = false;
}

void ProcBusThread::setBuffSize(std::uint8_t n) {
    rxBuffSize = n;
}
