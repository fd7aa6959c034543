#include "uart.h"

#include <fcntl.h>
#include <iterator>
#include <termios.h>
#include <unistd.h>

namespace {

/** 500000 is left out on purpose: the bus processor has no such rate. */
constexpr struct {
    int baud;
    speed_t speed;
} RATES[] = {
    {0, B0},           {50, B50},         {75, B75},         {110, B110},       {134, B134},
    {150, B150},       {200, B200},       {300, B300},       {600, B600},       {1200, B1200},
    {1800, B1800},     {2400, B2400},     {4800, B4800},     {9600, B9600},     {19200, B19200},
    {38400, B38400},   {57600, B57600},   {115200, B115200}, {230400, B230400}, {460800, B460800},
    {576000, B576000}, {921600, B921600},
};

} // namespace

uart::~uart() {
    uart_close();
}

bool uart::uart_open(std::string port) {
    fd = open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        return false;
    }
    fcntl(fd, F_SETFD, FD_CLOEXEC); // no shell command keeps the line open
    fcntl(fd, F_SETFL, 0);
    tcflush(fd, TCIOFLUSH);
    return true;
}

bool uart::uart_set_options(int baud, int block, int timeout, bool flowControl) {
    termios line{};
    if (tcgetattr(fd, &line) != 0) {
        return false;
    }
    cfmakeraw(&line);
    const auto* rate = std::begin(RATES);
    while (rate != std::end(RATES) && rate->baud != baud) {
        ++rate;
    }
    if (rate == std::end(RATES)) {
        return false;
    }
    cfsetispeed(&line, rate->speed);
    cfsetospeed(&line, rate->speed);
    if (flowControl) {
        line.c_cflag |= CRTSCTS;
    } else {
        line.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    }
    line.c_cflag |= CLOCAL | CREAD | CS8;
    line.c_cflag &= ~static_cast<tcflag_t>(HUPCL);
    line.c_iflag &= ~static_cast<tcflag_t>(IXANY);
    line.c_oflag = 0;
    line.c_lflag = 0;
    line.c_cc[VMIN] = static_cast<cc_t>(block);
    line.c_cc[VTIME] = static_cast<cc_t>(timeout);
    tcflush(fd, TCIOFLUSH);
    tcsetattr(fd, TCSANOW, &line);
    return true;
}

int uart::uart_read(void* buf, int len) {
    if (fd == -1) {
        return -1;
    }
    return static_cast<int>(read(fd, buf, static_cast<size_t>(len)));
}

bool uart::uart_write(void* buff, int len) {
    if (fd == -1) {
        return false;
    }
    tcflush(fd, TCOFLUSH);
    return write(fd, buff, static_cast<size_t>(len)) != 0;
}

bool uart::uart_write(std::string s) {
    if (fd == -1) {
        return false;
    }
    return write(fd, s.data(), s.size()) != 0;
}

void uart::uart_close() {
    if (fd >= 0) {
        close(fd);
    }
}

void uart::uart_flush() {
    tcflush(fd, TCIOFLUSH);
}
