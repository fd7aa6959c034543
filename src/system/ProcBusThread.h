#pragma once

#include "../drivers/uart.h"
#include "../lib/crc16.h"
#include "../lib/shared.h"
#include "busMessages.h"

#include <QThread>
#include <cstdint>
#include <memory>

class coreState;

/**
 * The sizes of a message that the steps of a run announce with setBuffSize(). Nobody reads them: the receive
 * loop finds frames without.
 */
namespace receiveSize {
constexpr std::uint8_t AT_FIRST = 14;
constexpr std::uint8_t RUN = 14;
constexpr std::uint8_t SYSTEM_COMMAND = 15;
constexpr std::uint8_t CAN_BOOTLOADER = 15; // until it has told which one it is
constexpr std::uint8_t CAN_NEW_BOOTLOADER = 14;
constexpr std::uint8_t CAN_OLD_BOOTLOADER = 12;
constexpr std::uint8_t SERIAL_MODULE = 15;
constexpr std::uint8_t SERIAL_BOOTLOADER = 5;
} // namespace receiveSize

/**
 * The link to the bus processor. Its thread cuts the serial byte stream into messages, checks them and files
 * what they say into the core's module table and reply box. Owned by the core.
 *
 * The receive loop can be terminated while it reads, nowhere else. `send` runs in the caller's thread; the
 * system has one sender at a time (loader, update run, halt message).
 */
class ProcBusThread : public QThread {
    Q_OBJECT

public:
    using PROCBUS_MSG = busMessages::PROCBUS_MSG;

    /** Opens and configures the core's `uartPort`; the log says how that went. Does not start the thread. */
    explicit ProcBusThread(coreState* sys);
    ~ProcBusThread() override;

    /** True when the port could be opened and configured. */
    bool isInit() const { return canRun; }
    /**
     * Writes one frame; does nothing before a successful isInit() or for a message longer than its record.
     * The write's result is not known: a reply, if one is due, is for the caller to wait for.
     */
    void send(PROCBUS_MSG msg);
    /** Files one valid message into the core; bytes behind its length count as 0. Link thread only. */
    void receive(PROCBUS_MSG msg);
    /** Takes in up to 100 bytes that were read; files every message that is complete by then. Link thread. */
    void take(const std::uint8_t* bytes, std::uint32_t count);
    void run() override;
    /** Only notes it: the loop waits in a read that nothing interrupts, so checkStop() is what ends it. */
    void sendStop();
    /** Ends the thread: waits 200 ms, then terminates it and waits until it is gone. */
    void checkStop();
    /**
     * Closes the port, restarts the thread and opens the port again; the new thread's first reads find the
     * port closed. Blocks until the old thread is gone.
     */
    void reload_uart();
    void setBuffSize(std::uint8_t n); ///< receiveSize

signals:
    void quitApp(); ///< never emitted

private:
    static constexpr unsigned READ_SIZE = 100;
    static constexpr unsigned RX_SIZE = 300;
    static constexpr unsigned TX_SIZE = 150;

    bool configurePort();
    void scanBuffer();
    void takeFrame(const PROCBUS_MSG& msg, std::uint32_t last);
    void fileAnswer(const PROCBUS_MSG& msg);
    void fileStatus(const PROCBUS_MSG& msg);
    void fileIdentity(const PROCBUS_MSG& msg);

    shared<bool> haltThread{false};
    shared<bool> reopening{false};               ///< the port is closed, and will be open again at once
    [[maybe_unused]] unsigned last_buff_ctr = 0; // these two and lastMsg are read by nothing
    [[maybe_unused]] unsigned last_buff_len = 0;
    bool canRun = false;
    [[maybe_unused]] std::uint8_t lastMsg = 0;
    [[maybe_unused]] std::uint8_t rxBuffSize = receiveSize::AT_FIRST;
    // What a link thread hands on to the next one.
    shared<std::uint32_t> rxPtr; ///< bytes held in UARTRXBUF
    shared<int> readSize;        ///< bytes that the next read asks for
    std::unique_ptr<std::uint8_t[]> UARTREAD;
    std::unique_ptr<std::uint8_t[]> UARTRXBUF;
    std::unique_ptr<std::uint8_t[]> UARTTXBUF;
    coreState* sys;
    uart sPort;
    crc16 checker;
};
