#include "drivers/uart.h"

#include "support/panel.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

/** A line whose far end nobody reads unless the test does. */
class uartTest : public testing::Test {
protected:
    uartTest() {
        char name[64];
        if (openpty(&farEnd, &nearEnd, name, nullptr, nullptr) == 0) {
            port = name;
        }
    }
    ~uartTest() override {
        close(farEnd);
        close(nearEnd);
    }
    termios settings() const {
        termios now{};
        tcgetattr(nearEnd, &now);
        return now;
    }
    /**
     * Whether output was discarded before the next bytes that come out at the far end, in its packet mode.
     */
    bool discardedBeforeData() const {
        bool discarded = false;
        char packet[64];
        while (read(farEnd, packet, sizeof packet) > 0 && packet[0] != TIOCPKT_DATA) {
            discarded = discarded || (packet[0] & TIOCPKT_FLUSHWRITE) != 0;
        }
        return discarded;
    }
    int farEnd = -1;
    int nearEnd = -1;
    std::string port;
    uart line;
};

TEST_F(uartTest, SetsTheRate) {
    ASSERT_TRUE(line.uart_open(port));
    const struct {
        int baud;
        speed_t speed;
    } rows[] = {{50, B50},         {134, B134},       {9600, B9600}, {115200, B115200},
                {576000, B576000}, {921600, B921600}, {0, B0}};
    for (const auto& row : rows) {
        EXPECT_TRUE(line.uart_set_options(row.baud, 100, 1, false)) << row.baud;
        const termios now = settings();
        EXPECT_EQ(cfgetospeed(&now), row.speed) << row.baud;
    }
}

TEST_F(uartTest, TheLineIsRaw) {
    ASSERT_TRUE(line.uart_open(port));
    EXPECT_EQ(fcntl(nearEnd, F_GETFL) & O_NONBLOCK, 0);
    ASSERT_TRUE(line.uart_set_options(115200, 100, 1, true));
    for (const int unknown : {500000, 115201, -1}) { // changes nothing
        EXPECT_FALSE(line.uart_set_options(unknown, 5, 7, false)) << unknown;
    }
    const termios now = settings();
    EXPECT_EQ(cfgetospeed(&now), B115200);
    EXPECT_NE(now.c_cflag & CRTSCTS, 0U);
    EXPECT_EQ(now.c_cflag & (CLOCAL | CREAD | CS8 | HUPCL), static_cast<tcflag_t>(CLOCAL | CREAD | CS8));
    EXPECT_EQ(now.c_oflag, 0U);
    EXPECT_EQ(now.c_lflag, 0U);
    EXPECT_EQ(now.c_iflag & (IXON | IXANY | ICRNL), 0U);
    EXPECT_EQ(now.c_cc[VMIN], 100);
    EXPECT_EQ(now.c_cc[VTIME], 1);
    ASSERT_EQ(write(farEnd, "\x03\r\x11", 3), 3);
    char text[10];
    EXPECT_EQ(line.uart_read(text, 3), 3);
    EXPECT_EQ(std::string(text, 3), "\x03\r\x11");
}

TEST_F(uartTest, ABinaryWriteDiscardsWhatHasNotLeft) {
    ASSERT_TRUE(line.uart_open(port) && line.uart_set_options(115200, 100, 1, false));
    const int on = 1;
    ASSERT_EQ(ioctl(farEnd, TIOCPKT, &on), 0);
    char text[] = "text";
    EXPECT_TRUE(line.uart_write(text, 4));
    EXPECT_TRUE(discardedBeforeData());
    EXPECT_TRUE(line.uart_write(std::string("text")));
    EXPECT_FALSE(discardedBeforeData());
}

TEST_F(uartTest, ResultsOfABrokenPort) {
    char byte = 0;
    EXPECT_FALSE(line.uart_open("/dev/none"));
    EXPECT_EQ(line.uart_read(&byte, 1), -1);
    EXPECT_FALSE(line.uart_write(&byte, 1) || line.uart_write(std::string("a")));
    ASSERT_TRUE(line.uart_open("/dev/full"));
    EXPECT_FALSE(line.uart_set_options(115200, 100, 1, false)); // no line
    EXPECT_TRUE(line.uart_write(&byte, 1) &&
                line.uart_write(std::string("a"))); // a failed write counts as done
}

} // namespace
