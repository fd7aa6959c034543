#include "ProcBusThread.h"

#include "coreState.h"
#include "frameScanner.h"
#include "threadTermination.h"

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

} // namespace

ProcBusThread::ProcBusThread(coreState* core)
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
    const std::size_t size = busMessages::encodeFrame(msg, UARTTXBUF.get());
    sys->recorder.sent(UARTTXBUF.get(), size);
    sPort.uart_write(UARTTXBUF.get(), static_cast<int>(size));
}

void ProcBusThread::run() {
    threadTermination::forbid();
    while (!haltThread) {
        // With a port that never opened this spins, but each round is a place to be terminated at.
        const int count = threadTermination::allowDuring(
            [this] { return reopening ? -1 : sPort.uart_read(UARTREAD.get(), readSize); });
        if (count > 0) {
            take(UARTREAD.get(), static_cast<std::uint32_t>(count));
        }
    }
}

void ProcBusThread::take(const std::uint8_t* bytes, std::uint32_t count) {
    sys->recorder.received(bytes, count);
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
    const std::uint32_t held = rxPtr;
    std::uint8_t* const buffer = UARTRXBUF.get();
    const frameScanner::SCANNED scanned = frameScanner::scan(
        buffer, held, [this](const PROCBUS_MSG& msg, std::uint32_t last) { takeFrame(msg, last); });
    std::memmove(buffer, buffer + scanned.consumed, held - scanned.consumed);
    rxPtr = held - scanned.consumed;
    // The next read ends with the CRC: a reply is filed while its closing bytes are still on the wire.
    readSize = scanned.missing > 0 ? static_cast<int>(scanned.missing) : READ_AT_ONCE;
}

/** Checks the frame whose last CRC byte stands at index `last` of the buffer, and passes it on. */
void ProcBusThread::takeFrame(const PROCBUS_MSG& msg, std::uint32_t last) {
    if (checker.crc16_check(msg.data, msg.length, msg.checksum)) {
        receive(msg);
        return;
    }
    sys->quality.damagedFrame();
    std::printf("CRC ERR: %d %d (%x vs %x) %d %d %d - ", msg.id, msg.length, msg.checksum,
                checker.crc16_calculate(msg.data, msg.length), UARTRXBUF[last - 1], UARTRXBUF[last],
                static_cast<int>(last));
    for (unsigned i = 0; i < msg.length; ++i) {
        std::printf("%d ", msg.data[i]);
    }
    std::printf("\n");
    std::fflush(stdout);
}

void ProcBusThread::receive(PROCBUS_MSG msg) {
    sys->ctrl.available = true; // whatever it says, a valid message shows that the control module lives
    sys->ctrl.lostCom = false;
    lastMsg = 0;
    switch (msg.id) {
    case REPLY:
    case REPLY_SERIAL:
    case IDENTIFICATION:
        fileAnswer(msg);
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

void ProcBusThread::fileAnswer(const PROCBUS_MSG& msg) {
    const auto byte = [&msg](unsigned n) { return busMessages::payloadByte(msg, n); };
    if (msg.id == IDENTIFICATION) {
        std::printf("INIT BL: %x HW: %d SW: %d.%d.%d\n", byte(4), byte(0), byte(3), byte(2), byte(1));
    }
    if (const auto answer = busMessages::decodeAnswer(msg)) {
        sys->answers.file(*answer);
    } else {
        sys->bootloader.oldProtocol = true;
    }
}

void ProcBusThread::fileStatus(const PROCBUS_MSG& msg) {
    const auto fields = busMessages::decodeStatus(msg);
    for (const modules::ROW& row : modules::TABLE) {
        if (row.presence >= fields.size()) {
            continue;
        }
        const busMessages::MODULE_STATUS& reported = fields[row.presence];
        coreState::MODULE& module = sys->module(row);
        if (reported.lost) {
            module.lostCom = true;
            continue;
        }
        module.available = reported.available;
        if (reported.available) {
            module.lostCom = false;
            module.mode = reported.mode;
        }
    }
}

void ProcBusThread::fileIdentity(const PROCBUS_MSG& msg) {
    const busMessages::MODULE_IDENTITY reported = busMessages::decodeIdentity(msg);
    if (reported.number == CONTROL_MODULE) {
        sys->ctrl.available = true;
        sys->ctrl.base.swVersion = reported.version;
        sys->ctrl.base.isAccurate = true;
        return;
    }
    for (const modules::ROW& row : modules::TABLE) {
        if (row.number != reported.number) {
            continue;
        }
        coreState::MODULE& module = sys->module(row);
        module.serial = reported.serial;
        module.base.swVersion = reported.version;
        module.base.hwRev = reported.hwRev;
        module.base.isAccurate = true;
        if (row.presence == modules::ITS_IDENTITY) {
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
    sys->recorder.mark("port reopened");
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
