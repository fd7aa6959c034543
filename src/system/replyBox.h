#pragma once

#include "../lib/shared.h"
#include "busMessages.h"
#include "busProtocol.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <semaphore.h>

/**
 * Where the link thread files what bootloaders answer, and where the thread that talks to one waits for it:
 * the last answer as a record of fields, and all that came since the last reset in their order.
 *
 * Filing, taking, copying and clearing exclude each other by a guard, which no thread holds while it can be
 * terminated. A thread may be terminated while it waits, and leaves nothing locked.
 */
class replyBox {
public:
    /**
     * The last answer. It is written field by field, `hasResponse` last; who reads more of it than that takes
     * a copy(), so that the next answer can't get between two fields.
     */
    struct RECORD {
        shared<std::uint8_t> status;                                ///< busProtocol::BLSTATUS
        shared<std::int8_t> moduleReported{busMessages::NO_MODULE}; ///< bus address, -1 for none
        shared<std::uint32_t> page; ///< row (or page) the reply refers to; 0xFFFF for none
        shared<bool> hasResponse;   ///< an answer came since reset()
        shared<std::uint8_t> hwRev;
        sharedText swVersion;
        shared<bool> blInitData; ///< an identification was received
        shared<bool> serialBootload;
        shared<bool> oldProtocol; ///< an obsolete bootloader answered, which is no response
        shared<busProtocol::PROC_TYPE> reportedType{busProtocol::UNKNOWN};
    };

    /** Answers that are kept; when there are more, the oldest are lost. */
    static constexpr std::size_t CAPACITY = 64;

    replyBox() { sem_init(&wakes, 0, 0); }
    replyBox(const replyBox&) = delete;
    replyBox& operator=(const replyBox&) = delete;
    ~replyBox() { sem_destroy(&wakes); }

    RECORD& record() { return last; }
    /** The record as one answer left it. */
    RECORD copy();

    /** Files an answer and wakes who waits for it. Link thread. */
    void file(const busMessages::ANSWER& answer);
    /**
     * Before a request: forgets every answer, and in the record `hasResponse`, `page`, `status` and
     * `moduleReported`, in this order. What an identification said stays.
     */
    void reset();
    /** Before a module is asked into its bootloader: what the one before said of itself. */
    void forgetIdentification();

    /** The oldest answer that was not taken yet. */
    std::optional<busMessages::ANSWER> take();
    /** The same, after a wait of at most `polls` polls of 1 ms. None when none came or once `cancelled`. */
    std::optional<busMessages::ANSWER> receive(unsigned polls, const shared<bool>& cancelled);
    /** Waits as long for the record: true when it has a response. */
    bool await(unsigned polls, const shared<bool>& cancelled);

private:
    void write(const busMessages::REPLY& reply);
    void write(const busMessages::IDENTIFICATION& identification);
    void forgetWakes();
    void poll();

    RECORD last;
    std::array<busMessages::ANSWER, CAPACITY> ring{};
    std::size_t first = 0; ///< index of the oldest in the ring
    std::size_t count = 0;
    std::mutex guard; ///< of all of them, and of `wakes` but for the wait
    sem_t wakes{};    ///< one for each answer that is filed
};
