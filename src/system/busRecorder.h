#pragma once

#include "busProtocol.h"
#include "traceFile.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/**
 * The bus link's flight recorder: the last minutes of the line in memory, for the day on which a run fails.
 * Each frame of both directions, bytes that belong to no frame, and marks of the run, all with their time.
 *
 * A ring of slots of one size. Recording takes slots by one atomic step and fills them: it takes no memory,
 * no lock and no system call but the clock, whichever thread does it. What is overwritten while it is read is
 * known by the slot's number and left out.
 *
 * save() writes what `bus-trace` reads: a line for each entry, "SECONDS.MICROSECONDS > HEX" from the panel,
 * "<" to it, "! TEXT" a mark. The newest part comes first, so that it is there when the time is up; a reader
 * goes by the times. A frame from the bus has the time at which its CRC was read, one to it that at which it
 * was handed to the port.
 */
class busRecorder {
public:
    enum class SAVED : std::uint8_t {
        NOTHING, ///< nothing was sent since the last time, another save is under way, or the recorder is off
        DONE,
        FAILED
    };
    static constexpr std::uint32_t USUAL_SIZE = 4U << 20U;
    static constexpr std::uint32_t LARGEST_SIZE = 64U << 20U;

    busRecorder() = default;
    busRecorder(const busRecorder&) = delete;
    busRecorder& operator=(const busRecorder&) = delete;
    ~busRecorder();

    /**
     * Takes the memory, the largest power of two that `bytes` allows, and begins; without it nothing is
     * recorded. `file` is what save() writes; `about` stands in it. Before any other thread.
     */
    void begin(std::uint32_t bytes, const std::string& file, const std::string& about);

    /** A frame that is about to be written. Any thread. */
    void sent(const std::uint8_t* frame, std::size_t size);
    /** Bytes as they were read, before anybody acts on them. Link thread. */
    void received(const std::uint8_t* bytes, std::size_t count);
    /** Something worth knowing of the run; what is longer than 200 bytes is cut. Any thread. */
    void mark(std::string_view text);

    /**
     * Writes the recording and keeps two older ones, ".0" and ".1": into at most half of what the card has to
     * spare; what does not fit is the oldest part. A process of its own does it, which has a second.
     */
    SAVED save(const char* reason);
    /**
     * The same of the recorder that has begun, from a signal's handler: in this process, without asking for
     * memory or taking a lock.
     */
    static void saveAtCrash();

private:
    enum KIND : std::uint8_t { MORE, SENT, RECEIVED, MARK };
    static constexpr std::uint32_t SMALLEST_COUNT = 128; ///< of slots, far more than one entry has
    static constexpr std::uint32_t WRITTEN_NOW = UINT32_MAX;
    static constexpr std::size_t WORDS = 5;
    static constexpr std::size_t SLOT_BYTES = WORDS * sizeof(std::uint32_t);
    static constexpr std::size_t LONGEST = 200; // bytes of an entry
    static constexpr std::size_t HELD = 80;     // more than the longest frame that is received

    /** An entry, or its next bytes. All is atomic, since it may be read while it is written anew. */
    struct SLOT {
        std::atomic<std::uint32_t> number;  ///< 1 more than its index among all slots, or WRITTEN_NOW
        std::atomic<std::uint32_t> timeLow; ///< microseconds since the recorder began
        std::atomic<std::uint32_t> about;   ///< the time's next 16 bits, KIND, and bytes from here on
        std::array<std::atomic<std::uint32_t>, WORDS> words;
    };
    struct ENTRY {
        std::uint64_t time;
        KIND kind;
        std::size_t size;
        std::array<std::uint8_t, LONGEST> bytes;
    };

    std::uint64_t now() const;
    static bool claim(SLOT& each, std::uint32_t number);
    SLOT& slot(std::uint32_t index) const { return ring[index & (count - 1)]; }
    std::uint32_t add(KIND kind, std::uint64_t time, const std::uint8_t* bytes, std::size_t size,
                      std::size_t room);
    void append(std::uint32_t first, std::size_t size, std::uint8_t byte);

    void takeByte(std::uint8_t byte, std::uint64_t time);
    bool takesAsClosing(std::uint8_t byte);
    bool beginsFrame() const;
    bool isWholeFrame(std::size_t size) const;
    std::array<std::uint8_t, HELD> heldBytes() const;
    void giveUp(std::size_t size);

    bool readSlot(std::uint32_t index, bool isFirst, ENTRY& entry) const;
    void write(traceFile& trace, std::uint32_t from, std::uint32_t size) const;
    void writeHead(traceFile& trace, const char* reason) const;
    bool writeAll(const char* reason) const;
    enum class WRITTEN : std::uint8_t { ALL, NOTHING, STALLED };
    WRITTEN writeAllInTime(const char* reason) const;
    SAVED save(const char* reason, bool crashed);

    std::unique_ptr<SLOT[]> ring;
    std::uint32_t count = 0;            ///< of slots, a power of two
    std::atomic<std::uint32_t> next{0}; ///< index of the next slot to be taken; runs on behind the ring's end
    std::atomic<std::uint32_t> sends{0};   ///< frames sent
    std::atomic<std::uint32_t> savedTo{0}; ///< `sends` when the last recording was saved
    std::atomic_flag saving = ATOMIC_FLAG_INIT;
    std::uint64_t start = 0; ///< by the monotonic clock
    std::unique_ptr<traceFile::NAMES> file;
    std::string about;

    // Of the link thread: bytes of which it is not known yet what they are. save() looks at them, too.
    std::array<std::atomic<std::uint8_t>, HELD> held{};
    std::array<std::uint64_t, HELD> heldAt{};
    std::atomic<std::size_t> heldCount{0};
    std::uint32_t lastFrame = 0;   ///< whose closing bytes are still to come
    std::size_t lastFrameSize = 0; ///< what there is of it so far
    std::size_t closingsLeft = 0;
};
