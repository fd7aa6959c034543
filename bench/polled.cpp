#include <semaphore.h>

/**
 * Takes the place of sem_post(): the link's wake goes unheard, and a reply is found by looking every 1 ms.
 */
// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name for it
extern "C" int __wrap_sem_post(sem_t* /*unused*/) {
    return 0;
}
