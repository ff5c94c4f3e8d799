#pragma once
// Limits of this process that last as long as an object, so that writing and opening fail on purpose.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

namespace QuillmarkTest {

/// A lower soft limit.
class ResourceLimit {
public:
    ResourceLimit(__rlimit_resource resource, rlim_t most) : m_resource(resource) {
        ::getrlimit(m_resource, &m_former);
        rlimit lowered = m_former;
        lowered.rlim_cur = most;
        ::setrlimit(m_resource, &lowered);
    }
    ~ResourceLimit() { ::setrlimit(m_resource, &m_former); }
    ResourceLimit(ResourceLimit const&) = delete;
    ResourceLimit& operator=(ResourceLimit const&) = delete;

private:
    __rlimit_resource m_resource;
    rlimit m_former = {};
};

/// A signal that is ignored.
class IgnoredSignal {
public:
    explicit IgnoredSignal(int number) : m_number(number), m_former(std::signal(number, SIG_IGN)) {}
    ~IgnoredSignal() { std::signal(m_number, m_former); }
    IgnoredSignal(IgnoredSignal const&) = delete;
    IgnoredSignal& operator=(IgnoredSignal const&) = delete;

private:
    int m_number;
    void (*m_former)(int);
};

/// No file grows beyond a size: what would be written there fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t most) : m_quiet(SIGXFSZ), m_limit(RLIMIT_FSIZE, most) {}

private:
    IgnoredSignal m_quiet;
    ResourceLimit m_limit;
};

/// The number that the next descriptor will have.
inline int nextDescriptor() {
    int const probe = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(probe);
    return probe;
}

/// No descriptor can be opened.
class NoDescriptors : public ResourceLimit {
public:
    NoDescriptors() : ResourceLimit(RLIMIT_NOFILE, static_cast<rlim_t>(nextDescriptor())) {}
};

inline bool isCloseOnExec(int descriptor) {
    return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

}  // namespace QuillmarkTest
