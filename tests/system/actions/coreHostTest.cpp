#include "system/actions/coreHost.h"

#include "support/panel.h"

namespace {

using coreHostTest = Panel;
using namespace std::chrono_literals;

TEST_F(coreHostTest, EveryAnswerToTheLastRequestIsReceivedInItsOrder) {
    start();
    coreHost host(core.get());
    bus.autoAnswer([](const Frame& request) {
        const std::uint8_t module = request.payload[0];
        return std::vector<Frame>{reply(6, 0, module), identification(module, 3, "1.2.3"),
                                  reply(0, 260, module)};
    });
    for (const std::uint8_t module : Bytes{9, 10}) {
        host.send(busMessages::requestStatus(module));
        EXPECT_EQ(host.receive(10s)->reply.status, 6);
        if (module == 9) {
            ASSERT_TRUE(awaitThat([this] { return core->bootloader.page == 260U; }));
            continue; // with answers that are not received any more
        }
        EXPECT_EQ(host.receive(10s)->identification->module, 10);
        EXPECT_EQ(host.receive(10s)->reply, (busMessages::REPLY{0, 260, 10}));
        EXPECT_FALSE(host.receive(1ms) || host.receive(-1ms));
    }
    core->cancel = true;
    EXPECT_TRUE(host.cancelled());
    EXPECT_FALSE(host.receive(24h));
}

} // namespace
