#include "system/responseSignal.h"
#include "system/termination.h"

#include <unistd.h>

/** Takes the place of the library's: the link's wake goes unheard, and a reply is found by looking every 1
 * ms. */
void responseSignal::poll() {
    termination::allowDuring([] { return usleep(1000); });
}
