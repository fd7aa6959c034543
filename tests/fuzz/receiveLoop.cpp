// The bus link's receive loop: any bytes, in reads of the size that the first byte chooses. They never deafen
// the link: of two good frames that follow, one is filed.

#include "input.h"
#include "panelCore.h"
#include "system/ProcBusThread.h"
#include "system/updateCore.h"

#include <algorithm>

namespace {

// A reply: status 0, row 0x1234 of module 9.
constexpr std::uint8_t REPLY[] = {0x4B, 0x2B, 0x4D, 0x42, 3, 4, 0, 0x34, 0x12, 9, 0x9D, 0x69, 0x0D, 0x0A};

void take(ProcBusThread& link, const std::uint8_t* data, std::size_t size, std::size_t atOnce) {
    for (std::size_t taken = 0; taken < size; taken += atOnce) {
        link.take(data + taken, static_cast<std::uint32_t>(std::min(atOnce, size - taken)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    updateCore& core = panelCore();
    ProcBusThread& link = *core.comBus;
    const std::size_t atOnce = 1 + data[0] % 100;
    take(link, data + 1, size - 1, atOnce);
    core.busResetResponse();
    take(link, REPLY, sizeof REPLY, 3);
    take(link, REPLY, sizeof REPLY, 3);
    input::require(core.bootloader.hasResponse && core.bootloader.page == 0x1234);
    input::require(core.bootloader.moduleReported == 9 && core.bootloader.status == 0);
    return 0;
}
