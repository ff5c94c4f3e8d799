#pragma once
// An open file that is closed whatever happens.

#include "foundation/Fail.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Quillmark {

/// A scope in which this thread is not cancelled: of a destructor, and of whatever else may not be left halfway.
/// Opening, writing and closing files is where a cancelled thread would end.
class Uncancelled {
public:
    Uncancelled() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_former); }
    ~Uncancelled() { ::pthread_setcancelstate(m_former, nullptr); }
    Uncancelled(Uncancelled const&) = delete;
    Uncancelled& operator=(Uncancelled const&) = delete;

private:
    int m_former = PTHREAD_CANCEL_ENABLE;
};

/// Owns one descriptor, or none. Whoever destroys it finds errno as it was.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}  ///< -1 is none
    Descriptor(Descriptor&& other) noexcept : m_number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        Descriptor taken(std::move(other));
        std::swap(m_number, taken.m_number);
        return *this;
    }
    ~Descriptor() {
        if (!isOpen()) return;
        KeepErrno const keep;
        Uncancelled const whole;
        ::close(m_number);
    }

    bool isOpen() const noexcept { return m_number != -1; }
    int number() const noexcept { return m_number; }
    int release() noexcept { return std::exchange(m_number, -1); }  ///< the caller closes it
    /// False with errno when the system says only now that it could not keep what was written.
    bool close() noexcept {
        Uncancelled const whole;
        return ::close(release()) == 0 || errno == EINTR;
    }

private:
    int m_number = -1;
};

/// Opens a file, close-on-exec, as often as signals interrupt it. It may wait (for the other end of a pipe), and
/// the thread be cancelled then.
/// @return none, with errno, when the system refuses
inline Descriptor openFile(char const* path, int flags) {
    int number;
    do number = ::open(path, flags | O_CLOEXEC, 0666);
    while (number == -1 && errno == EINTR);
    return Descriptor(number);
}

}  // namespace Quillmark
