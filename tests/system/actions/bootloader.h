#pragma once

#include "support/hexImage.h"
#include "support/panel.h"
#include "system/actions/action.prototype.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

constexpr std::uint8_t CAN_MODULE = 9;
constexpr std::uint8_t SERIAL_MODULE = 2;

const std::string IMAGE = "/keldra/tmp/keldra_update/image.hex";

// Requests by their kind, as a fake bootloader tells them apart.
enum class Request { ENTER, LEAVE, START, STATUS, WRITE, ERASE, ERASE_ALL, ROW };
using enum Request;

/** A panel with one module in its bootloader, which answers every request well unless told otherwise. */
class BootloaderTest : public Panel {
protected:
    using Replies = std::vector<Frame>;
    /** What to answer instead; nothing for the usual. */
    using Exception = std::function<std::optional<Replies>(Request request)>;

    explicit BootloaderTest(std::uint8_t address) : module(address) {
        start();
        answer();
    }

    /** From now on. */
    void answer(Exception exception = nullptr) {
        bus.autoAnswer([this, exception](const Frame& frame) {
            const Request request = kindOf(frame);
            const auto replies = exception != nullptr ? exception(request) : std::nullopt;
            return replies.value_or(Replies{usual(request, frame)});
        });
    }

    /** Answers every request of this kind with a status of its own. */
    Exception refuse(Request which, std::uint8_t code) const {
        return [=, this](Request request) -> std::optional<Replies> {
            return request == which ? std::optional(Replies{status(code)}) : std::nullopt;
        };
    }

    /** Requests of this kind so far. */
    int sentOf(Request request) {
        const std::vector<Frame> sent = bus.sent();
        return static_cast<int>(std::count_if(
            sent.begin(), sent.end(), [request](const Frame& frame) { return kindOf(frame) == request; }));
    }
    /** The log since the last call. */
    Texts newlyLogged() {
        const Texts all = logged();
        Texts fresh(all.begin() + static_cast<std::ptrdiff_t>(seen), all.end());
        seen = all.size();
        return fresh;
    }

    /** The identification it answers "," with; an old bootloader's plain reply when there is none. */
    std::optional<Frame> identity;
    const std::uint8_t module;

    Frame status(std::uint8_t code, std::uint16_t row = 0) const {
        return {static_cast<std::uint8_t>(module == SERIAL_MODULE ? 5 : 3), reply(code, row, module).payload};
    }

    static Request kindOf(const Frame& frame) {
        if (frame.id == 16) {
            return frame.payload[1] == ENTER_BOOTLOADER ? ENTER : LEAVE;
        }
        if (frame.id != 1) {
            return ROW;
        }
        constexpr Request commands[] = {LEAVE, START, LEAVE, STATUS, WRITE, ERASE, ERASE_ALL};
        return frame.payload.size() > 1 ? commands[frame.payload[1]] : LEAVE;
    }

private:
    Frame usual(Request request, const Frame& frame) const {
        if (request == ENTER && identity) {
            return *identity;
        }
        const bool wide = frame.id == 4;
        const int row = request == ROW ? frame.payload[0] + (wide ? 256 * frame.payload[1] : 0) : 0;
        return status(0, static_cast<std::uint16_t>(row));
    }

    std::size_t seen = 0; ///< lines of the log
};

/** The same with the action that programs the module, and an image for it. */
template <class ACTION>
class ActionTest : public BootloaderTest {
protected:
    ActionTest(std::uint8_t address, updateCore::MODULE updateCore::*programmed)
        : BootloaderTest(address), item(((*core).*programmed).base) {
        act.setBase(&item);
        item.update.items = {{"image.hex", "2.0.0"}};
        item.update.resetAfterUpdate = false;
    }
    /** Makes the module one of this kind, on the new bootloader unless it is 0, and asks it. */
    action::STATUS enter(std::uint8_t kind, const std::string& version = "1.0.0") {
        answer();
        identity = kind == 0 ? std::nullopt : std::optional(identification(module, kind, version));
        return act.needsUpdate(false);
    }
    /** Runs the action; the requests that it sent. */
    std::vector<Frame> run(bool result) {
        newlyLogged();
        const auto before = static_cast<std::ptrdiff_t>(bus.sent().size());
        EXPECT_EQ(act.run(), result);
        const std::vector<Frame> sent = bus.sent();
        return {sent.begin() + before, sent.end()};
    }

    updateCore::BASE_ITEM& item;
    ACTION act{core.get()};
};
