/* A disk with a bad place. Loaded before everything else it is what read() says about regular files whose names end
 * with ".bad": they fail with EIO from the offset on that the environment names. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int isBad(int descriptor) {
    char link[64];
    char name[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    ssize_t const length = readlink(link, name, sizeof name);
    return length > 4 && memcmp(name + length - 4, ".bad", 4) == 0;
}

__attribute__((visibility("default"))) ssize_t read(int descriptor, void* bytes, size_t count) {
    ssize_t (*next)(int, void*, size_t);
    *(void**)&next = dlsym(RTLD_NEXT, "read");
    char const* const place = getenv("QUILLMARK_READ_FAILS_AT");
    off_t const offset = lseek(descriptor, 0, SEEK_CUR);
    if (!place || offset < 0 || !isBad(descriptor)) return next(descriptor, bytes, count);
    off_t const end = atol(place);
    if (offset >= end) {
        errno = EIO;
        return -1;
    }
    size_t const left = (size_t)(end - offset);
    return next(descriptor, bytes, count < left ? count : left);
}
