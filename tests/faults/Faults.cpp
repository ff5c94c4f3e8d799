#include "tests/faults/Faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace {

std::atomic<int> kind{FaultNothing};
std::atomic<long> first{0};
std::atomic<bool> onwards{false};
std::atomic<long> seen{0};
std::atomic<char const*> last{""};
std::atomic<long> live{0};
[[gnu::tls_model("initial-exec")]] thread_local bool spared = false;  // reading it allocates nothing

/// True when this call, which is of @p of, is to fail.
bool isToFail(FaultKind of, char const* name) noexcept {
    if (kind.load(std::memory_order_relaxed) != of || spared) return false;
    long const number = seen.fetch_add(1) + 1;
    long const from = first.load(std::memory_order_relaxed);
    if (from == 0 || number < from || (number > from && !onwards.load(std::memory_order_relaxed)))
        return false;
    last = name;
    return true;
}

/// True with @p error in errno when the call is to fail.
bool fails(char const* name, int error) noexcept {
    if (!isToFail(FaultCall, name)) return false;
    errno = error;
    return true;
}

/// The same for a call to stdio, which leaves its mark in the stream.
bool failsStream(char const* name, int error, FILE* stream) noexcept {
    if (!fails(name, error)) return false;
    if (stream != nullptr) stream->_flags |= 0x20;  // what ferror() looks at
    return true;
}

bool isInterrupted() noexcept {
    if (kind.load(std::memory_order_relaxed) != FaultInterrupt || spared || seen.fetch_add(1) % 2 != 0)
        return false;
    errno = EINTR;
    return true;
}

std::size_t cut(std::size_t count) noexcept {
    if (kind.load(std::memory_order_relaxed) != FaultTrickle || spared) return count;
    seen.fetch_add(1);
    return std::min<std::size_t>(count, 1);
}

/// How far the wall clock is off at this look at it, in seconds.
long clockStep(char const* name) noexcept {
    constexpr long hour = 3600;
    if (isToFail(FaultAhead, name)) return hour;
    return isToFail(FaultBack, name) ? -hour : 0;
}

/// How many of @p count bytes the disk behind @p fd still takes, which are then taken.
std::size_t room(int fd, std::size_t count) noexcept {
    struct stat status {};
    if (kind.load(std::memory_order_relaxed) != FaultDisk || spared || ::fstat(fd, &status) != 0 ||
        !S_ISREG(status.st_mode))
        return count;
    long left = first.load();
    long taken = 0;
    do {
        taken = std::min(left, static_cast<long>(count));
    } while (!first.compare_exchange_weak(left, left - taken));
    if (taken != static_cast<long>(count)) {
        last = "a full disk";
        errno = ENOSPC;
    }
    return static_cast<std::size_t>(taken);
}

template <class Function>
Function* system(char const* name) noexcept {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void faultsArm(int what, long number, bool andOn) {
    kind = FaultNothing;
    first = number;
    onwards = andOn;
    seen = 0;
    last = "";
    kind = what;
}

long faultsDisarm() {
    kind = FaultNothing;
    return seen;
}

char const* faultsLast() {
    return last;
}

void faultsSpare(bool isSpared) {
    spared = isSpared;
}

long faultsLiveAllocations() {
    return live;
}

// The allocator. The C library's own, under the names that no program takes.

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* gone);

void* malloc(std::size_t size) {
    if (isToFail(FaultMemory, "malloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    auto* const made = __libc_malloc(size);
    live += made != nullptr;
    return made;
}

void* calloc(std::size_t count, std::size_t size) {
    if (isToFail(FaultMemory, "calloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    auto* const made = __libc_calloc(count, size);
    live += made != nullptr;
    return made;
}

void* realloc(void* old, std::size_t size) {
    if (isToFail(FaultMemory, "realloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    auto* const made = __libc_realloc(old, size);
    live += made != nullptr && old == nullptr;
    return made;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    if (isToFail(FaultMemory, "aligned_alloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    auto* const made = __libc_memalign(alignment, size);
    live += made != nullptr;
    return made;
}

int posix_memalign(void** made, std::size_t alignment, std::size_t size) {
    *made = aligned_alloc(alignment, size);
    return *made != nullptr ? 0 : ENOMEM;
}

void free(void* gone) {
    live -= gone != nullptr;
    __libc_free(gone);
}

// The system.

ssize_t read(int fd, void* bytes, std::size_t count) {
    static auto* const next = system<ssize_t(int, void*, std::size_t)>("read");
    return fails("read", EIO) || isInterrupted() ? -1 : next(fd, bytes, cut(count));
}

ssize_t write(int fd, void const* bytes, std::size_t count) {
    static auto* const next = system<ssize_t(int, void const*, std::size_t)>("write");
    if (fails("write", ENOSPC) || isInterrupted()) return -1;
    std::size_t const taken = room(fd, cut(count));
    return taken == 0 && count != 0 ? -1 : next(fd, bytes, taken);
}

ssize_t writev(int fd, iovec const* parts, int count) {
    static auto* const next = system<ssize_t(int, iovec const*, int)>("writev");
    if (fails("writev", ENOSPC) || isInterrupted()) return -1;
    for (int at = 0; at < count && (kind == FaultTrickle || kind == FaultDisk); ++at) {
        if (parts[at].iov_len != 0) return write(fd, parts[at].iov_base, parts[at].iov_len);
    }
    return next(fd, parts, count);
}

ssize_t send(int fd, void const* bytes, std::size_t count, int flags) {
    static auto* const next = system<ssize_t(int, void const*, std::size_t, int)>("send");
    return fails("send", ECONNRESET) || isInterrupted() ? -1 : next(fd, bytes, cut(count), flags);
}

ssize_t recv(int fd, void* bytes, std::size_t count, int flags) {
    static auto* const next = system<ssize_t(int, void*, std::size_t, int)>("recv");
    return fails("recv", ECONNRESET) || isInterrupted() ? -1 : next(fd, bytes, cut(count), flags);
}

int poll(pollfd* fds, nfds_t count, int timeout) {
    static auto* const next = system<int(pollfd*, nfds_t, int)>("poll");
    return fails("poll", ENOMEM) || isInterrupted() ? -1 : next(fds, count, timeout);
}

int select(int count, fd_set* in, fd_set* out, fd_set* urgent, timeval* timeout) {
    static auto* const next = system<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
    return fails("select", ENOMEM) || isInterrupted() ? -1 : next(count, in, out, urgent, timeout);
}

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    static auto* const next = system<int(int, sockaddr*, socklen_t*, int)>("accept4");
    return fails("accept4", EMFILE) || isInterrupted() ? -1 : next(fd, address, length, flags);
}

int connect(int fd, sockaddr const* address, socklen_t length) {
    static auto* const next = system<int(int, sockaddr const*, socklen_t)>("connect");
    return fails("connect", ECONNREFUSED) ? -1 : next(fd, address, length);
}

int socket(int domain, int type, int protocol) {
    static auto* const next = system<int(int, int, int)>("socket");
    return fails("socket", EMFILE) ? -1 : next(domain, type, protocol);
}

int bind(int fd, sockaddr const* address, socklen_t length) {
    static auto* const next = system<int(int, sockaddr const*, socklen_t)>("bind");
    return fails("bind", EADDRINUSE) ? -1 : next(fd, address, length);
}

int listen(int fd, int backlog) {
    static auto* const next = system<int(int, int)>("listen");
    return fails("listen", EADDRINUSE) ? -1 : next(fd, backlog);
}

int getsockname(int fd, sockaddr* address, socklen_t* length) {
    static auto* const next = system<int(int, sockaddr*, socklen_t*)>("getsockname");
    return fails("getsockname", ENOBUFS) ? -1 : next(fd, address, length);
}

int getsockopt(int fd, int level, int option, void* value, socklen_t* length) {
    static auto* const next = system<int(int, int, int, void*, socklen_t*)>("getsockopt");
    return fails("getsockopt", ENOPROTOOPT) ? -1 : next(fd, level, option, value, length);
}

int setsockopt(int fd, int level, int option, void const* value, socklen_t length) {
    static auto* const next = system<int(int, int, int, void const*, socklen_t)>("setsockopt");
    return fails("setsockopt", ENOPROTOOPT) ? -1 : next(fd, level, option, value, length);
}

int shutdown(int fd, int how) {
    static auto* const next = system<int(int, int)>("shutdown");
    return fails("shutdown", ENOTCONN) ? -1 : next(fd, how);
}

int fcntl64(int fd, int command, ...) {
    static auto* const next = system<int(int, int, long)>("fcntl64");
    std::va_list list;
    va_start(list, command);
    long const argument = va_arg(list, long);
    va_end(list);
    return fails("fcntl64", EINVAL) ? -1 : next(fd, command, argument);
}

/// The descriptor is gone whatever the answer is, as on Linux.
int close(int fd) {
    static auto* const next = system<int(int)>("close");
    int const result = next(fd);
    return fails("close", EIO) ? -1 : result;
}

int open64(char const* path, int flags, ...) {
    static auto* const next = system<int(char const*, int, mode_t)>("open64");
    std::va_list list;
    va_start(list, flags);
    auto const mode = va_arg(list, mode_t);
    va_end(list);
    return fails("open64", EMFILE) ? -1 : next(path, flags, mode);
}

int openat64(int directory, char const* path, int flags, ...) {
    static auto* const next = system<int(int, char const*, int, mode_t)>("openat64");
    std::va_list list;
    va_start(list, flags);
    auto const mode = va_arg(list, mode_t);
    va_end(list);
    return fails("openat64", EMFILE) ? -1 : next(directory, path, flags, mode);
}

int mkostemp64(char* pattern, int flags) {
    static auto* const next = system<int(char*, int)>("mkostemp64");
    return fails("mkostemp64", ENOSPC) ? -1 : next(pattern, flags);
}

int ftruncate64(int fd, off64_t length) {
    static auto* const next = system<int(int, off64_t)>("ftruncate64");
    return fails("ftruncate64", ENOSPC) ? -1 : next(fd, length);
}

int stat64(char const* path, struct stat64* status) {
    static auto* const next = system<int(char const*, struct stat64*)>("stat64");
    return fails("stat64", EIO) ? -1 : next(path, status);
}

int lstat64(char const* path, struct stat64* status) {
    static auto* const next = system<int(char const*, struct stat64*)>("lstat64");
    return fails("lstat64", EIO) ? -1 : next(path, status);
}

int fstat64(int fd, struct stat64* status) {
    static auto* const next = system<int(int, struct stat64*)>("fstat64");
    return fails("fstat64", EIO) ? -1 : next(fd, status);
}

int mkdir(char const* path, mode_t mode) {
    static auto* const next = system<int(char const*, mode_t)>("mkdir");
    return fails("mkdir", ENOSPC) ? -1 : next(path, mode);
}

int rename(char const* from, char const* to) {
    static auto* const next = system<int(char const*, char const*)>("rename");
    return fails("rename", EIO) ? -1 : next(from, to);
}

int link(char const* from, char const* to) {
    static auto* const next = system<int(char const*, char const*)>("link");
    return fails("link", EIO) ? -1 : next(from, to);
}

int unlink(char const* path) {
    static auto* const next = system<int(char const*)>("unlink");
    return fails("unlink", EIO) ? -1 : next(path);
}

int unlinkat(int directory, char const* path, int flags) {
    static auto* const next = system<int(int, char const*, int)>("unlinkat");
    return fails("unlinkat", EIO) ? -1 : next(directory, path, flags);
}

int rmdir(char const* path) {
    static auto* const next = system<int(char const*)>("rmdir");
    return fails("rmdir", EIO) ? -1 : next(path);
}

ssize_t readlink(char const* path, char* text, std::size_t size) {
    static auto* const next = system<ssize_t(char const*, char*, std::size_t)>("readlink");
    return fails("readlink", EIO) ? -1 : next(path, text, size);
}

DIR* fdopendir(int fd) {
    static auto* const next = system<DIR*(int)>("fdopendir");
    return fails("fdopendir", ENOMEM) ? nullptr : next(fd);
}

dirent64* readdir64(DIR* directory) {
    static auto* const next = system<dirent64*(DIR*)>("readdir64");
    return fails("readdir64", EIO) ? nullptr : next(directory);
}

int getentropy(void* bytes, std::size_t count) {
    static auto* const next = system<int(void*, std::size_t)>("getentropy");
    return fails("getentropy", ENOSYS) ? -1 : next(bytes, count);
}

int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*start)(void*),
                   void* argument) {
    static auto* const next =
        system<int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*)>("pthread_create");
    return isToFail(FaultCall, "pthread_create") ? EAGAIN : next(thread, attributes, start, argument);
}

int access(char const* path, int mode) {
    static auto* const next = system<int(char const*, int)>("access");
    return fails("access", EACCES) ? -1 : next(path, mode);
}

int getrlimit64(__rlimit_resource_t resource, rlimit64* limit) {
    static auto* const next = system<int(__rlimit_resource_t, rlimit64*)>("getrlimit64");
    return fails("getrlimit64", EINVAL) ? -1 : next(resource, limit);
}

int kill(pid_t process, int number) {
    static auto* const next = system<int(pid_t, int)>("kill");
    return fails("kill", EPERM) ? -1 : next(process, number);
}

int sem_init(sem_t* semaphore, int shared, unsigned int value) {
    static auto* const next = system<int(sem_t*, int, unsigned int)>("sem_init");
    return fails("sem_init", ENOSPC) ? -1 : next(semaphore, shared, value);
}

int pthread_setspecific(pthread_key_t key, void const* value) {
    static auto* const next = system<int(pthread_key_t, void const*)>("pthread_setspecific");
    return isToFail(FaultCall, "pthread_setspecific") ? ENOMEM : next(key, value);
}

tm* localtime_r(time_t const* seconds, tm* fields) {
    static auto* const next = system<tm*(time_t const*, tm*)>("localtime_r");
    return fails("localtime_r", EOVERFLOW) ? nullptr : next(seconds, fields);
}

time_t mktime(tm* fields) {
    static auto* const next = system<time_t(tm*)>("mktime");
    return fails("mktime", EOVERFLOW) ? -1 : next(fields);
}

// The wall clock.

time_t time(time_t* result) {
    timespec now{};
    static auto* const next = system<int(clockid_t, timespec*)>("clock_gettime");
    next(CLOCK_REALTIME, &now);
    time_t const seconds = now.tv_sec + clockStep("time");
    if (result != nullptr) *result = seconds;
    return seconds;
}

int gettimeofday(timeval* now, void* zone) {
    static auto* const next = system<int(timeval*, void*)>("gettimeofday");
    int const result = next(now, zone);
    now->tv_sec += clockStep("gettimeofday");
    return result;
}

int clock_gettime(clockid_t clock, timespec* now) {
    static auto* const next = system<int(clockid_t, timespec*)>("clock_gettime");
    int const result = next(clock, now);
    if (clock == CLOCK_REALTIME) now->tv_sec += clockStep("clock_gettime");
    return result;
}

/// The system itself goes by the clock that was set.
int sem_timedwait(sem_t* semaphore, timespec const* until) {
    static auto* const next = system<int(sem_t*, timespec const*)>("sem_timedwait");
    if (kind != FaultAhead && kind != FaultBack) return next(semaphore, until);
    for (;;) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        bool const hasPassed =
            now.tv_sec > until->tv_sec || (now.tv_sec == until->tv_sec && now.tv_nsec >= until->tv_nsec);
        if (::sem_trywait(semaphore) == 0) return 0;
        if (hasPassed) {
            errno = ETIMEDOUT;
            return -1;
        }
        ::poll(nullptr, 0, 1);
    }
}

int pthread_key_create(pthread_key_t* key, void (*end)(void*)) {
    static auto* const next = system<int(pthread_key_t*, void (*)(void*))>("pthread_key_create");
    return isToFail(FaultCall, "pthread_key_create") ? EAGAIN : next(key, end);
}

// Streams of the C library, whose own calls to the system nobody can stand before.

FILE* fopen64(char const* path, char const* mode) {
    static auto* const next = system<FILE*(char const*, char const*)>("fopen64");
    return fails("fopen64", EMFILE) ? nullptr : next(path, mode);
}

FILE* fdopen(int fd, char const* mode) {
    static auto* const next = system<FILE*(int, char const*)>("fdopen");
    return fails("fdopen", ENOMEM) ? nullptr : next(fd, mode);
}

std::size_t fwrite(void const* bytes, std::size_t size, std::size_t count, FILE* stream) {
    static auto* const next = system<std::size_t(void const*, std::size_t, std::size_t, FILE*)>("fwrite");
    if (failsStream("fwrite", ENOSPC, stream)) return 0;
    std::size_t const taken = size == 0 ? count : room(::fileno(stream), size * count) / size;
    std::size_t const written = next(bytes, size, taken, stream);
    if (taken != count) {
        stream->_flags |= 0x20;
        errno = ENOSPC;
    }
    return written;
}

std::size_t fread(void* bytes, std::size_t size, std::size_t count, FILE* stream) {
    static auto* const next = system<std::size_t(void*, std::size_t, std::size_t, FILE*)>("fread");
    return failsStream("fread", EIO, stream) ? 0 : next(bytes, size, count, stream);
}

int fflush(FILE* stream) {
    static auto* const next = system<int(FILE*)>("fflush");
    return failsStream("fflush", ENOSPC, stream) ? EOF : next(stream);
}

int fseeko64(FILE* stream, off64_t offset, int whence) {
    static auto* const next = system<int(FILE*, off64_t, int)>("fseeko64");
    return fails("fseeko64", EIO) ? -1 : next(stream, offset, whence);
}

/// The stream is gone whatever the answer is.
int fclose(FILE* stream) {
    static auto* const next = system<int(FILE*)>("fclose");
    int const result = next(stream);
    return fails("fclose", ENOSPC) ? EOF : result;
}

}  // extern "C"
#pragma GCC visibility pop
