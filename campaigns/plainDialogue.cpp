#include "plainDialogue.h"

#include "lib/hexfile/hexRecords.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace {

constexpr unsigned TRIES = 4;
constexpr unsigned PASSES = 3; // of the wait for one reply
constexpr unsigned STATUS_POLLS = 20;
constexpr unsigned POLLS_PER_UNIT = 10;
constexpr bootloadHost::milliseconds POLL{1};
constexpr bootloadHost::milliseconds PAUSE{10};

// Timeouts, in units of 10 ms.
constexpr unsigned COMMAND_TIMEOUT = 20;
constexpr unsigned PAGE_TIMEOUT = 5; // start of page, erase and data rows
constexpr unsigned WRITE_TIMEOUT = 10;

constexpr std::uint32_t NO_PAGE = 0xFFFF; // no reply yet
constexpr int NO_ANSWER = -1;

using enum busProtocol::BLSTATUS;
using enum busProtocol::PROC_TYPE;

class PlainDialogue {
public:
    explicit PlainDialogue(bootloadHost& panel) : host_(panel) {}

    bool flash(const DialogueTarget& wanted) {
        target_ = wanted;
        record_ = Record();
        if (!sendSystemCommand(busProtocol::ENTER_BOOTLOADER) || !isRightModule()) {
            return false;
        }
        const bool byRecords = target_.serial && record_.said->type == busProtocol::PIC32_REC;
        if (!(byRecords ? programRecords() : programPages())) {
            return false;
        }
        sendSystemCommand(busProtocol::RESTART);
        return true;
    }

private:
    using Message = busMessages::PROCBUS_MSG;
    using Bytes = std::vector<std::uint8_t>;

    /** The one slot: a later answer overwrites what an earlier one said. */
    struct Record {
        bool hasResponse = false;
        std::uint8_t status = 0;
        std::uint32_t page = 0;
        std::optional<busMessages::IDENTIFICATION> said;
    };

    /** Puts what has come into the record, one over the other. */
    void fileAnswers() {
        while (const auto answer = host_.receive(bootloadHost::milliseconds(0))) {
            if (answer->identification) {
                record_.said = answer->identification;
            } else {
                record_.status = answer->reply.status;
                record_.page = answer->reply.row;
            }
            record_.hasResponse = true;
        }
    }

    void clearAndSend(const Message& msg) {
        fileAnswers();
        record_.hasResponse = false;
        record_.page = NO_PAGE;
        record_.status = 0;
        host_.send(msg);
    }

    bool poll(unsigned times) {
        for (unsigned n = 0; n < times; ++n) {
            fileAnswers();
            if (record_.hasResponse) {
                return true;
            }
            host_.pause(POLL);
        }
        return false;
    }

    void sendReqStat() {
        clearAndSend(busMessages::requestStatus(target_.address));
        poll(STATUS_POLLS);
    }

    bool sendWithResponse(const Message& msg, unsigned timeout) {
        clearAndSend(msg);
        for (unsigned pass = 0; pass < PASSES; ++pass) {
            if (poll(timeout * POLLS_PER_UNIT)) {
                return true;
            }
            sendReqStat();
            host_.pause(PAUSE);
        }
        return false;
    }

    template <class Done>
    bool tryUntil(const Message& msg, unsigned timeout, Done done) {
        for (unsigned n = 0; n < TRIES; ++n) {
            if (sendWithResponse(msg, timeout) && done()) {
                return true;
            }
        }
        return false;
    }

    bool sendSystemCommand(std::uint8_t arg) {
        return tryUntil(busMessages::systemCommand(target_.address, arg), COMMAND_TIMEOUT,
                        [] { return true; });
    }

    std::uint8_t requestStatus(const Message& msg, std::uint8_t failure) {
        if (!tryUntil(msg, PAGE_TIMEOUT, [this] { return record_.page == 0; })) {
            return failure;
        }
        host_.pause(PAUSE);
        fileAnswers();
        return record_.status;
    }

    std::uint8_t sendSoh(const hexpage::MEMORY_PAGE& data) {
        const auto size = static_cast<std::uint32_t>(data.data.size());
        return requestStatus(
            busMessages::startPage(target_.address, data.startAddress, size, layout_.wideAddress),
            BADCHECKSUM);
    }

    std::uint8_t eraseBlock(std::uint32_t address, std::uint32_t count) {
        return requestStatus(busMessages::eraseBlocks(target_.address, address,
                                                      static_cast<std::uint8_t>(count % 256),
                                                      layout_.wideAddress),
                             ERASEERR);
    }

    int sendDataRow(std::uint32_t row, const Bytes& data) {
        int result = NO_ANSWER;
        tryUntil(busMessages::dataRow(row, data), PAGE_TIMEOUT, [&] {
            result = record_.page == row ? int{record_.status} : int{MISSEDPACKET};
            return record_.page == row;
        });
        return result;
    }

    /** The result of the first row that failed, else OK. */
    int sendRows(const Bytes& data) {
        int status = OK;
        for (std::uint32_t row = 0; row < busMessages::rowsOf(data.size()) && status == OK; ++row) {
            status = sendDataRow(row, data);
        }
        return status;
    }

    bool sendPageWrite() {
        return tryUntil(busMessages::writePage(target_.address), WRITE_TIMEOUT,
                        [this] { return record_.page == 0 && record_.status == OK; });
    }

    bool isRightModule() const {
        const auto& said = record_.said;
        return target_.serial
                   ? said && said->serial
                   : !said || (!said->serial && said->module == static_cast<std::int8_t>(target_.address));
    }

    bool programPages() {
        const auto chosen = target_.layout(record_.said ? std::optional(record_.said->type) : std::nullopt);
        if (!chosen || !flashLayouts::readImage(target_.image, *chosen, image_)) {
            return false;
        }
        layout_ = *chosen;
        if (layout_.eraseAllFirst && requestStatus(busMessages::eraseAll(target_.address), ERASEERR) != OK) {
            return false;
        }
        image_.resetIterator();
        page_ = image_.getNextPage();
        while (page_ != nullptr) {
            if (page_->data.empty() && layout_.eraseEmptyPages) {
                if (!eraseEmptyPages()) {
                    return false;
                }
                continue;
            }
            if (!page_->data.empty() && !programPage()) {
                return false;
            }
            page_ = image_.getNextPage();
        }
        return true;
    }

    /** Erases the run of pages without data that starts here in one request, and goes to the page behind. */
    bool eraseEmptyPages() {
        const std::uint32_t address = page_->startAddress;
        std::uint32_t count = 0;
        for (; page_ != nullptr && page_->data.empty(); page_ = image_.getNextPage()) {
            ++count;
        }
        const std::uint8_t status = eraseBlock(address, count);
        return status == OK || status == IGNOREPG;
    }

    bool programPage() {
        unsigned retries = 0;
        while (retries < TRIES) {
            const std::uint8_t status = sendSoh(*page_);
            if (status == IGNOREPG) {
                return true;
            }
            if (status == OK && sendRows(page_->data) != OK) {
                continue; // at once, and perhaps for ever
            }
            const bool written = status == OK && sendPageWrite();
            host_.pause(PAUSE);
            if (written) {
                return true;
            }
            ++retries;
        }
        return false;
    }

    bool programRecords() {
        hexrecords list(target_.image);
        if (!list.getFileOK()) {
            return false;
        }
        std::uint8_t erased = ERASEERR;
        for (unsigned n = 0; n < TRIES && erased != OK; ++n) {
            erased = requestStatus(busMessages::eraseAll(target_.address), ERASEERR);
        }
        if (erased != OK) {
            return false;
        }
        while (const hexrecords::HEX_RECORD* each = list.getNextRecord()) {
            Bytes bytes = {each->size, busProtocol::byteOf(each->address, 1),
                           busProtocol::byteOf(each->address, 0), each->type};
            for (const std::uint32_t value : each->data) {
                bytes.push_back(busProtocol::byteOf(value, 0));
            }
            bytes.push_back(each->checksum);
            if (!programRecord(bytes)) {
                return false;
            }
        }
        return true;
    }

    bool programRecord(const Bytes& bytes) {
        for (unsigned n = 0; n < TRIES; ++n) {
            if (sendRows(bytes) == OK && sendPageWrite()) {
                return true;
            }
        }
        return false;
    }

    bootloadHost& host_;
    DialogueTarget target_{};
    Record record_;
    flashLayouts::LAYOUT layout_{};
    hexpage image_;
    hexpage::MEMORY_PAGE* page_ = nullptr; ///< the one at hand
};

} // namespace

bool flashPlainly(bootloadHost& panel, const DialogueTarget& target) {
    return PlainDialogue(panel).flash(target);
}
