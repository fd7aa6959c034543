#pragma once

#include "../lib/shared.h"

#include <string>

/**
 * One Linux serial device. One thread may read while others write: the two directions are independent. No
 * operation logs or throws.
 */
class uart {
public:
    /**
     * The descriptor starts at 0, not at -1: a uart that was never opened closes descriptor 0 when it is
     * destroyed. Of no harm: standard input is not read, and the link opens its port before anything else.
     */
    uart() = default;
    uart(const uart&) = delete;
    uart& operator=(const uart&) = delete;
    ~uart();

    /**
     * Opens the device for blocking access and empties both queues. A failure leaves a negative descriptor.
     */
    bool uart_open(std::string port);
    /**
     * Raw 8-bit line at `baud` (one of the rates of the table in the source file); a read returns once
     * `block` bytes are there or `timeout` tenths of a second after the last one. False, with nothing
     * changed, when the attributes can't be read or the rate is not in the table.
     */
    bool uart_set_options(int baud, int block, int timeout, bool flowControl);
    /** One read(): a count, 0 or -1. May block. */
    int uart_read(void* buf, int len);
    /** Discards output not yet transmitted, then one write(). A failed write (-1) counts as true, too. */
    bool uart_write(void* buff, int len);
    /** One write() of the text, without discarding anything first. */
    bool uart_write(std::string s);
    /** Closes the device; the descriptor keeps its old value. */
    void uart_close();
    /** Empties both queues. */
    void uart_flush();

private:
    shared<int> fd{0}; ///< reopened by reload_uart while the link thread reads and other threads write
};
