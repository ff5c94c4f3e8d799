#include "tools/Stop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace QuillmarkTool::Stop {
namespace {

std::atomic<bool> wanted{false};
std::atomic<int> signalled{0};
// Readable once the command is to end: it wakes whoever waits for input, whichever thread got the signal.
std::atomic<int> bell{-1};

static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

void ring() noexcept {
    int const error = errno;
    wanted = true;
    std::uint64_t const one = 1;
    if (bell >= 0 && ::write(bell, &one, sizeof one) < 0) {
        // It rings already.
    }
    errno = error;
}

}  // namespace

void listen() {
    if (bell < 0) bell = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = [](int number) {
        signalled = number;
        ring();
    };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

void now() noexcept {
    ring();
}

bool isWanted() noexcept {
    return wanted;
}

int signal() noexcept {
    return signalled;
}

bool waitToRead(int descriptor) noexcept {
    std::array<pollfd, 2> both{{{descriptor, POLLIN, 0}, {bell, POLLIN, 0}}};
    while (!wanted) {
        int const ready = ::poll(both.data(), both.size(), -1);
        if (ready < 0 && errno == EINTR) continue;
        return !wanted;  // a descriptor that cannot be polled fails when it is read
    }
    return false;
}

bool canRead(int descriptor) noexcept {
    pollfd one{descriptor, POLLIN, 0};
    return ::poll(&one, 1, 0) != 0;
}

}  // namespace QuillmarkTool::Stop
