#pragma once

#include <semaphore.h>

/**
 * Wakes the thread that waits for a module's reply as soon as the link thread has filed it. Nothing here can
 * be left locked by a thread that is terminated while it waits. A reply that was filed without a wake is
 * found by the waiting thread's next poll all the same.
 */
class responseSignal {
public:
    responseSignal() { sem_init(&filed, 0, 0); }
    responseSignal(const responseSignal&) = delete;
    responseSignal& operator=(const responseSignal&) = delete;
    ~responseSignal() { sem_destroy(&filed); }

    /** Called by the link thread when it has set `hasResponse`. */
    void notify() { sem_post(&filed); }
    /** Forgets the wakes of earlier replies. */
    void clear() {
        while (sem_trywait(&filed) == 0) {
        }
    }
    /** Sleeps one poll of 1 ms, or less when a reply is filed. The thread may be terminated meanwhile. */
    void poll();

private:
    sem_t filed{};
};
