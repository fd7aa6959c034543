#include "busRecorder.h"

#include "../lib/childProcess.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <ctime>

using namespace busProtocol;

namespace {

constexpr std::uint32_t BLOCK = 2048; // slots that are written together, the newest first
constexpr std::size_t LENGTH_OFFSET = SYNC.size() + 1;
constexpr std::size_t HEAD = SYNC.size() + 2;
constexpr std::size_t CRC_SIZE = 2;
constexpr int TIME_LIMIT_MS = 950;               // of a save: the card may have stalled
constexpr std::uint64_t NOISE_PAUSE_US = 40'000; // ends noise: what comes then is something else

std::atomic<busRecorder*> atWork{nullptr};

std::uint64_t microseconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1000;
}

constexpr unsigned shiftOf(std::size_t byte) {
    return 8 * (byte % sizeof(std::uint32_t));
}

} // namespace

busRecorder::~busRecorder() {
    busRecorder* self = this;
    atWork.compare_exchange_strong(self, nullptr);
}

void busRecorder::begin(std::uint32_t bytes, const std::string& name, const std::string& told) {
    file = std::make_unique<traceFile::NAMES>(name);
    about = told;
    start = microseconds(CLOCK_MONOTONIC);
    count = std::bit_floor(std::min(bytes, LARGEST_SIZE) / static_cast<std::uint32_t>(sizeof(SLOT)));
    if (count >= SMALLEST_COUNT) {
        ring = std::make_unique<SLOT[]>(count); // zeroed: no page of it is new to the system later on
        atWork = this;
    }
}

// Recording

std::uint64_t busRecorder::now() const {
    return microseconds(CLOCK_MONOTONIC) - start;
}

/** False when another thread is at the slot, or was since: all others have been filled meanwhile. */
bool busRecorder::claim(SLOT& each, std::uint32_t number) {
    if (number == WRITTEN_NOW ||
        !each.number.compare_exchange_strong(number, WRITTEN_NOW, std::memory_order_acquire)) {
        return false;
    }
    std::atomic_thread_fence(std::memory_order_release);
    return true;
}

/** Takes slots for `room` bytes and fills them with the first `size`; the first one's index. */
std::uint32_t busRecorder::add(KIND kind, std::uint64_t time, const std::uint8_t* bytes, std::size_t size,
                               std::size_t room) {
    const auto taken =
        static_cast<std::uint32_t>(std::max<std::size_t>(1, (room + SLOT_BYTES - 1) / SLOT_BYTES));
    const std::uint32_t first = next.fetch_add(taken, std::memory_order_relaxed);
    for (std::uint32_t n = 0; n < taken; ++n) {
        SLOT& each = slot(first + n);
        const std::size_t from = std::min(size, n * SLOT_BYTES);
        const std::size_t here = std::min(SLOT_BYTES, size - from);
        std::uint32_t words[WORDS] = {};
        for (std::size_t i = 0; i < here; ++i) {
            words[i / sizeof(std::uint32_t)] |= static_cast<std::uint32_t>(bytes[from + i]) << shiftOf(i);
        }
        if (!claim(each, each.number.load(std::memory_order_relaxed))) {
            continue;
        }
        each.timeLow.store(static_cast<std::uint32_t>(time), std::memory_order_relaxed);
        each.about.store(static_cast<std::uint32_t>(time >> 32U) << 16U |
                             static_cast<std::uint32_t>(n == 0 ? kind : MORE) << 8U |
                             static_cast<std::uint32_t>(here),
                         std::memory_order_relaxed);
        for (std::size_t i = 0; i < WORDS; ++i) {
            each.words[i].store(words[i], std::memory_order_relaxed);
        }
        each.number.store(first + n + 1, std::memory_order_release);
    }
    return first;
}

/** One more byte for an entry of `size` bytes that has room for it. */
void busRecorder::append(std::uint32_t first, std::size_t size, std::uint8_t byte) {
    const std::uint32_t index = first + static_cast<std::uint32_t>(size / SLOT_BYTES);
    const std::size_t at = size % SLOT_BYTES;
    SLOT& last = slot(index);
    if (!claim(last, index + 1)) {
        return;
    }
    last.words[at / sizeof(std::uint32_t)].fetch_or(static_cast<std::uint32_t>(byte) << shiftOf(at),
                                                    std::memory_order_relaxed);
    last.about.fetch_add(1, std::memory_order_relaxed);
    last.number.store(index + 1, std::memory_order_release);
}

void busRecorder::sent(const std::uint8_t* frame, std::size_t size) {
    if (ring != nullptr) {
        add(SENT, now(), frame, size, size);
        sends.fetch_add(1, std::memory_order_relaxed);
    }
}

void busRecorder::mark(std::string_view text) {
    if (ring != nullptr) {
        const std::size_t size = std::min(text.size(), LONGEST);
        add(MARK, now(), reinterpret_cast<const std::uint8_t*>(text.data()), size, size);
    }
}

void busRecorder::received(const std::uint8_t* bytes, std::size_t size) {
    if (ring == nullptr) {
        return;
    }
    const std::uint64_t time = now();
    const std::size_t waiting = heldCount.load(std::memory_order_relaxed);
    if (waiting != 0 && time - heldAt[waiting - 1] > NOISE_PAUSE_US && !beginsFrame()) {
        giveUp(waiting);
    }
    for (std::size_t n = 0; n < size; ++n) {
        if (!takesAsClosing(bytes[n])) {
            takeByte(bytes[n], time);
        }
    }
}

/** True for a byte that belongs to the frame before. One whose closing bytes are missing has none. */
bool busRecorder::takesAsClosing(std::uint8_t byte) {
    if (closingsLeft == 0 || byte == SYNC[0]) {
        closingsLeft = 0;
        return false;
    }
    --closingsLeft;
    append(lastFrame, lastFrameSize++, byte);
    return true;
}

bool busRecorder::beginsFrame() const {
    return heldCount >= SYNC.size() && std::equal(SYNC.begin(), SYNC.end(), held.begin());
}

/** Finds frames as the link does: a sync begins one wherever it stands, and it ends with its CRC. */
void busRecorder::takeByte(std::uint8_t byte, std::uint64_t time) {
    std::size_t size = heldCount.load(std::memory_order_relaxed);
    if (size == HELD) {
        giveUp(HELD - SYNC.size());
        size = SYNC.size();
    }
    held[size].store(byte, std::memory_order_relaxed);
    heldAt[size] = time;
    heldCount.store(++size, std::memory_order_relaxed);
    if (isWholeFrame(size)) {
        const auto frame = heldBytes();
        lastFrame = add(RECEIVED, time, frame.data(), size, size + FRAME_END.size());
        lastFrameSize = size;
        closingsLeft = FRAME_END.size();
        heldCount.store(0, std::memory_order_relaxed);
    } else if (size > SYNC.size() &&
               std::equal(SYNC.begin(), SYNC.end(), held.begin() + (size - SYNC.size()))) {
        giveUp(size - SYNC.size());
    }
}

/** Up to its CRC. One that was cut takes the next one's sync for its own end, here as in the link. */
bool busRecorder::isWholeFrame(std::size_t size) const {
    const std::size_t payload = std::max<std::size_t>(1, held[LENGTH_OFFSET]);
    return size >= HEAD && beginsFrame() && payload <= MAX_RECEIVED && size == HEAD + payload + CRC_SIZE;
}

std::array<std::uint8_t, busRecorder::HELD> busRecorder::heldBytes() const {
    std::array<std::uint8_t, HELD> bytes{};
    std::copy(held.begin(), held.end(), bytes.begin());
    return bytes;
}

/** The first of the bytes that are held belong to no frame. */
void busRecorder::giveUp(std::size_t size) {
    const auto bytes = heldBytes();
    add(RECEIVED, heldAt[size - 1], bytes.data(), size, size);
    const std::size_t left = heldCount.load(std::memory_order_relaxed) - size;
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(size), left, held.begin());
    std::copy_n(heldAt.begin() + static_cast<std::ptrdiff_t>(size), left, heldAt.begin());
    heldCount.store(left, std::memory_order_relaxed);
}

// Saving

/** Reads a slot's bytes behind the first `entry.size` ones. False when it is not, or no longer, that slot. */
bool busRecorder::readSlot(std::uint32_t index, bool isFirst, ENTRY& entry) const {
    const SLOT& each = slot(index);
    if (each.number.load(std::memory_order_acquire) != index + 1) {
        return false;
    }
    const std::uint32_t said = each.about.load(std::memory_order_acquire);
    const auto kind = static_cast<KIND>(said >> 8U & 0xFFU);
    const std::size_t size = std::min<std::size_t>(said & 0xFFU, SLOT_BYTES);
    if ((kind == MORE) == isFirst || entry.size + size > entry.bytes.size()) {
        return false;
    }
    for (std::size_t n = 0; n < size; ++n) {
        const std::uint32_t word = each.words[n / sizeof(std::uint32_t)].load(std::memory_order_relaxed);
        entry.bytes[entry.size + n] = static_cast<std::uint8_t>(word >> shiftOf(n));
    }
    if (isFirst) {
        entry.kind = kind;
        entry.time =
            static_cast<std::uint64_t>(said >> 16U) << 32U | each.timeLow.load(std::memory_order_relaxed);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (each.number.load(std::memory_order_relaxed) != index + 1) {
        return false;
    }
    entry.size += size;
    return true;
}

/** Writes the entries that begin in these slots. */
void busRecorder::write(traceFile& trace, std::uint32_t from, std::uint32_t size) const {
    static constexpr char MARKS[] = {0, '>', '<', '!'};
    ENTRY entry;
    for (std::uint32_t n = 0; n < size; ++n) {
        std::uint32_t index = from + n;
        entry.size = 0;
        if (!readSlot(index, true, entry)) {
            continue;
        }
        while (readSlot(++index, false, entry)) {
        }
        trace.line(entry.time, MARKS[entry.kind], entry.bytes.data(), entry.size);
    }
    trace.flush();
}

void busRecorder::writeHead(traceFile& trace, const char* reason) const {
    char text[LONGEST];
    const int size = std::snprintf(text, sizeof text, "recording saved=%llu reason=%s %s",
                                   static_cast<unsigned long long>(microseconds(CLOCK_REALTIME) / 1'000'000),
                                   reason, about.c_str());
    const auto line = [&](char mark, const void* bytes, std::size_t length) {
        trace.line(now(), mark, static_cast<const std::uint8_t*>(bytes), length);
    };
    line('!', text, std::min(static_cast<std::size_t>(size), sizeof text - 1));
    const auto bytes = heldBytes();
    if (const std::size_t unknown = std::min<std::size_t>(heldCount, bytes.size()); unknown != 0) {
        line('<', bytes.data(), unknown); // a frame that never became whole
    }
}

/** True when it is in its place. */
bool busRecorder::writeAll(const char* reason) const {
    traceFile trace(*file);
    writeHead(trace, reason);
    const std::uint32_t end = next;
    const std::uint32_t size = std::min(BLOCK, count);
    bool holdsAny = false;
    for (std::uint32_t back = size; size != 0 && back <= count && trace.takesMore(); back += size) {
        write(trace, end - back, size);
        holdsAny = true;
    }
    return holdsAny && trace.keep(); // an empty one would push out a good one
}

/** The same, by a process that is left behind when the card has stalled; such a card is not tried again. */
busRecorder::WRITTEN busRecorder::writeAllInTime(const char* reason) const {
    static const shared<bool> never;
    const auto task = [&] { return static_cast<int>(writeAll(reason) ? WRITTEN::ALL : WRITTEN::NOTHING); };
    const int result = childProcess::run(task, &never, TIME_LIMIT_MS);
    return result == childProcess::NOT_DONE ? WRITTEN::STALLED : static_cast<WRITTEN>(result);
}

busRecorder::SAVED busRecorder::save(const char* reason, bool crashed) {
    const std::uint32_t sentNow = sends;
    if (ring == nullptr || savedTo == sentNow || saving.test_and_set()) {
        return SAVED::NOTHING;
    }
    const WRITTEN written =
        crashed ? (writeAll(reason) ? WRITTEN::ALL : WRITTEN::NOTHING) : writeAllInTime(reason);
    savedTo = written == WRITTEN::NOTHING ? savedTo.load() : sentNow;
    saving.clear();
    return written == WRITTEN::ALL ? SAVED::DONE : SAVED::FAILED;
}

busRecorder::SAVED busRecorder::save(const char* reason) {
    return save(reason, false);
}

void busRecorder::saveAtCrash() {
    if (busRecorder* const recorder = atWork) {
        recorder->save("crash", true);
    }
}
