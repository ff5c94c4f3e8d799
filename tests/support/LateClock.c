/* A clock that stands three seconds before the full minute when a process starts, and goes on from there.
 * Loaded before everything else it is what time() says. */

#define _POSIX_C_SOURCE 200809L
#include <time.h>

static time_t offset;

__attribute__((constructor)) static void start(void) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    offset = 57 - now.tv_sec % 60;
}

__attribute__((visibility("default"))) time_t time(time_t* result) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (result) *result = now.tv_sec + offset;
    return now.tv_sec + offset;
}
