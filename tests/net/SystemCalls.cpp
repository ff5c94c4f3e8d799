#include "tests/net/SystemCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace {

struct Plan {
    std::string call;
    long result = 0;
    int error = 0;
    int times = 0;
    int skip = 0;
};

thread_local Plan* current = nullptr;

bool prepared(char const* call) {
    if (!current || current->call != call || current->times == 0) return false;
    if (current->skip != 0) {
        --current->skip;
        return false;
    }
    --current->times;
    errno = current->error;
    return true;
}

template <class Function>
Function* next(char const* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// A program's functions stand before those of its libraries, if the libraries can see them.
#pragma GCC visibility push(default)
extern "C" {

int poll(pollfd* fds, nfds_t count, int timeout) {
    static auto* const system = next<int(pollfd*, nfds_t, int)>("poll");
    return prepared("poll") ? static_cast<int>(current->result) : system(fds, count, timeout);
}

ssize_t send(int fd, void const* bytes, std::size_t count, int flags) {
    static auto* const system = next<ssize_t(int, void const*, std::size_t, int)>("send");
    return prepared("send") ? current->result : system(fd, bytes, count, flags);
}

ssize_t recv(int fd, void* bytes, std::size_t count, int flags) {
    static auto* const system = next<ssize_t(int, void*, std::size_t, int)>("recv");
    return prepared("recv") ? current->result : system(fd, bytes, count, flags);
}

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    static auto* const system = next<int(int, sockaddr*, socklen_t*, int)>("accept4");
    return prepared("accept4") ? static_cast<int>(current->result) : system(fd, address, length, flags);
}

int connect(int fd, sockaddr const* address, socklen_t length) {
    static auto* const system = next<int(int, sockaddr const*, socklen_t)>("connect");
    return prepared("connect") ? static_cast<int>(current->result) : system(fd, address, length);
}

int fcntl(int fd, int command, ...) {
    static auto* const system = next<int(int, int, long)>("fcntl");
    va_list list;
    va_start(list, command);
    long const argument = va_arg(list, long);
    va_end(list);
    return prepared("fcntl") ? static_cast<int>(current->result) : system(fd, command, argument);
}

}  // extern "C"
#pragma GCC visibility pop

namespace QuillmarkTest {

Prepared::Prepared(std::string call, long result, int error, int times, int skip) {
    current = new Plan{std::move(call), result, error, times, skip};
}

Prepared::~Prepared() {
    delete std::exchange(current, nullptr);
}

int Prepared::left() const {
    return current->times;
}

}  // namespace QuillmarkTest
