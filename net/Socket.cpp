#include "include2/Socket"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <string_view>

#include "foundation/Descriptor.h"
#include "foundation/Fail.h"
#include "include2/Time"

namespace Quillmark {

namespace {

constexpr Site here{"Socket", 0};

using Clock = SocketImpl::Clock;

[[noreturn]] void failSystem(int error) {
    SocketException failure(error, here.file, here.line);
    failure.intParameter(error);
    failure.stringParameter(errnoText(error));
    throw failure;
}

/// The result of a system call that gives -1 for failure.
int checked(int result) {
    if (result == -1) failSystem(errno);
    return result;
}

void refuseNull(SocketAddress const& address) {
    if (address.isNull()) fail("Socket", Refused, here, "SocketAddress is null");
}

/// What is left of a deadline for poll: milliseconds, rounded up, and -1 for a deadline that never comes.
int millisecondsUntil(Clock::time_point until) {
    if (until == Clock::time_point::max()) return -1;
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

Clock::time_point deadlineIn(int milliseconds) {
    return milliseconds < 0 ? Clock::time_point::max()
                            : Clock::now() + std::chrono::milliseconds(milliseconds);
}

/// Where a descriptor is bound, and null if the system does not say.
SocketAddress nameOf(int descriptor) {
    sockaddr_storage record{};  // zeros behind a path end it
    auto* const address = reinterpret_cast<sockaddr*>(&record);
    socklen_t length = sizeof record;
    if (::getsockname(descriptor, address, &length) == -1) return {};
    return SocketAddress(*address, false);
}

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

SocketImpl::SocketPoll::SocketPoll(int descriptor) noexcept : m_poll{descriptor, 0, 0} {}

bool SocketImpl::SocketPoll::readable(int timeout) {
    m_poll.events = POLLIN;
    s_poll(m_poll, timeout);
    return m_poll.revents != 0;
}

bool SocketImpl::SocketPoll::writeable(int timeout) {
    m_poll.events = POLLOUT;
    s_poll(m_poll, timeout);
    return m_poll.revents != 0;
}

void SocketImpl::SocketPoll::s_poll(pollfd& poll, int timeout) {
    auto const until = deadlineIn(timeout);
    poll.revents = 0;
    int result = ::poll(&poll, 1, timeout);
    while (result == -1 && errno == EINTR) result = ::poll(&poll, 1, millisecondsUntil(until));
    if (result == -1) {
        int const error = errno;
        // Kept for log readers: the blank at the end of the title.
        Exception failure("SocketImpl::SocketPoll::s_poll ", Refused, here.file, here.line);
        failure.intParameter(error);
        failure.stringParameter(errnoText(error));
        throw failure;
    }
    if (result != 0 && result != 1)
        fail("SocketImpl::SocketPoll::s_poll", Refused, here, "Unhandled return value");
}

SocketImpl::SocketImpl(int type, bool synchronised, bool create, int domain)
    : m_lock(synchronised ? std::make_unique<Mutex>() : nullptr), m_type(type) {
    if (create) adopt(checked(::socket(domain, type | SOCK_CLOEXEC, 0)), (type & SOCK_NONBLOCK) == 0);
}

SocketImpl::~SocketImpl() {
    drop();
}

/// The descriptor for a system call.
int SocketImpl::open() const {
    if (!m_open) failSystem(EBADF);
    return m_descriptor;
}

/// Takes a new descriptor.
void SocketImpl::adopt(int descriptor, bool blocked) noexcept {
    m_descriptor = descriptor;
    m_open = true;
    m_blocked = blocked;
}

void SocketImpl::matchBlocking() {
    setBlocked(m_timeout < 0);
}

void SocketImpl::setBlocked(bool blocked) {
    int const descriptor = open();
    if (blocked == m_blocked) return;
    int const flags = checked(::fcntl(descriptor, F_GETFL));
    checked(::fcntl(descriptor, F_SETFL, blocked ? flags & ~O_NONBLOCK : flags | O_NONBLOCK));
    m_blocked = blocked;
}

bool SocketImpl::readable() const {
    return SocketPoll(open()).readable(m_timeout);
}

bool SocketImpl::writeable() const {
    return SocketPoll(open()).writeable(m_timeout);
}

bool SocketImpl::dataWaiting() const {
    return SocketPoll(open()).readable(0);
}

/// Waits for a connect that goes on. False leaves it going on.
bool SocketImpl::finishConnect() const {
    if (!writeable()) return false;
    if (int const error = socketError(); error != 0) failSystem(error);
    return true;
}

void SocketImpl::connect(SocketAddress const& address) {
    refuseNull(address);
    matchBlocking();
    if (::connect(open(), address, address.size()) == -1) {
        int const error = errno;
        bool const pending = error == EINTR || error == EINPROGRESS || error == EAGAIN;
        if (!pending && error != EISCONN) failSystem(error);
        if (pending && !finishConnect() && m_timeout != 0) failSystem(ETIME);
    }
    m_remote = address;
    m_isLocalKnown = false;  // hardly anybody asks
    if (synchronised()) learnLocal();
}

/// Where the system has bound the descriptor. A socket that threads share learns it early, since they may ask at once.
void SocketImpl::learnLocal() const {
    m_local = m_open ? nameOf(m_descriptor) : SocketAddress();
    m_isLocalKnown = true;
}

SocketAddress const& SocketImpl::localAddr() const noexcept {
    try {
        if (!m_isLocalKnown) learnLocal();
    } catch (std::bad_alloc const&) {  // null now, and asked again
        m_local = SocketAddress();
    }
    return m_local;
}

void SocketImpl::bind(SocketAddress const& address, bool reuse) {
    refuseNull(address);
    int const value = reuse ? 1 : 0;
    setOption(SO_REUSEADDR, &value, sizeof value, SOL_SOCKET);
    checked(::bind(open(), address, address.size()));
    // A port of 0 was left to the system to choose.
    m_local = address.isINET() ? nameOf(m_descriptor) : address;
    m_isLocalKnown = true;
}

void SocketImpl::listen(unsigned int backlog) {
    checked(::listen(open(), static_cast<int>(std::min<unsigned int>(backlog, INT_MAX))));
}

void SocketImpl::accept(SocketImpl& connection, bool blocked) {
    connection.close();
    matchBlocking();
    sockaddr_storage record{};
    auto* const peer = reinterpret_cast<sockaddr*>(&record);
    int const flags = SOCK_CLOEXEC | (blocked ? 0 : SOCK_NONBLOCK);
    int descriptor = -1;
    int error = EAGAIN;
    // It is tried first; with a blocking socket it waits itself. The system looks for a free descriptor before
    // it looks for a connection: to be out of them is a failure only once somebody has connected.
    for (bool isThere = false;;) {
        do {
            socklen_t length = sizeof record;
            descriptor = ::accept4(open(), peer, &length, flags);
            error = errno;
        } while (descriptor == -1 && error == EINTR);
        if (descriptor != -1 || m_timeout == 0) break;
        bool const isEarly = !isThere && (error == EMFILE || error == ENFILE);
        if (!isEarly && !wouldBlock(error) && error != ECONNABORTED) break;
        isThere = readable();  // else accept is asked all the same: it knows best
    }
    if (descriptor == -1) failSystem(error);
    connection.adopt(descriptor, blocked);
    connection.m_hasLowWater = m_hasLowWater;  // the system hands it on
    connection.m_remote = SocketAddress(*peer, false);
}

ssize_t SocketImpl::send(unsigned char const* bytes, unsigned int count) {
    constexpr unsigned int pause = 100'000;  // microseconds
    Synchronized const turn(m_lock.get());
    matchBlocking();
    unsigned int sent = 0;
    bool waited = false;
    while (sent < count) {
        ssize_t const result = ::send(open(), bytes + sent, count - sent, MSG_NOSIGNAL);
        if (result >= 0) {
            sent += static_cast<unsigned int>(result);
            waited = false;
        } else if (errno == EPERM) {
            return count;
        } else if (wouldBlock(errno)) {
            if (waited) qm_usleep(pause, 0);  // said to be writeable, and was not
            if (!writeable()) break;
            waited = true;
        } else if (errno != EINTR) {
            failSystem(errno);
        }
    }
    return sent;
}

/// One recv. It is tried first and waited for only when there is nothing; @p wait tells whether there is
/// something to receive in time. A socket of which that is said twice and not true is broken (an error queue
/// that nobody reads makes one), and would keep us busy for ever.
template <class Wait>
ssize_t SocketImpl::receiveOnce(unsigned char* bytes, unsigned int count, int flags, Wait wait) {
    constexpr int mostWaits = 2;
    bool const waitsFirst = count == 0 || m_hasLowWater;  // no bytes are received without a wait
    int waits = waitsFirst ? 1 : 0;
    bool ready = !waitsFirst || wait();
    while (ready) {
        ssize_t const result = ::recv(open(), bytes, count, flags);
        if (result >= 0) return result;
        if (errno == EINTR) continue;
        if (!wouldBlock(errno) || waits++ == mostWaits) failSystem(errno);
        ready = wait();
    }
    if (!m_blocked) errno = EAGAIN;
    return -1;
}

ssize_t SocketImpl::receive(unsigned char* bytes, unsigned int count) {
    Synchronized const turn(m_lock.get());
    matchBlocking();
    return receiveOnce(bytes, count, 0, [this] { return readable(); });
}

ssize_t SocketImpl::receive(unsigned char* bytes, unsigned int count, Clock::time_point until) {
    Synchronized const turn(m_lock.get());
    setBlocked(until == Clock::time_point::max());
    return receiveOnce(bytes, count, 0, [&] {
        // Who has no time at all was given what there is, unless there must be more of it.
        bool const isPast = until == Clock::time_point::min();
        return (!isPast || m_hasLowWater) &&
               SocketPoll(open()).readable(isPast ? 0 : millisecondsUntil(until));
    });
}

ssize_t SocketImpl::readline(unsigned char* bytes, unsigned int max) {
    unsigned int stored = 0;
    return readline(bytes, max, stored);
}

ssize_t SocketImpl::readline(unsigned char* bytes, unsigned int max, unsigned int& stored) {
    Synchronized const turn(m_lock.get());
    matchBlocking();
    auto const wait = [this] { return readable(); };
    // A stream lets us look for the newline before we take anything, so that a line need not come byte
    // by byte. Other sockets drop what they have shown.
    std::array<unsigned char, 512> seen;
    bool const canPeek = (m_type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) == SOCK_STREAM;
    stored = 0;
    while (stored < max) {
        unsigned int take = 1;
        if (canPeek) {
            auto const look = std::min<unsigned int>(max - stored, seen.size());
            ssize_t const count = receiveOnce(seen.data(), look, MSG_PEEK, wait);
            if (count <= 0) return count == 0 ? ssize_t{stored} : -1;
            auto const end = seen.begin() + count;
            auto const newline = std::find(seen.begin(), end, '\n');
            take = static_cast<unsigned int>((newline == end ? end : newline + 1) - seen.begin());
        }
        ssize_t const count = receiveOnce(bytes + stored, take, 0, wait);
        if (count <= 0) return count == 0 ? ssize_t{stored} : -1;
        stored += static_cast<unsigned int>(count);
        if (bytes[stored - 1] == '\n') break;
    }
    return stored;
}

void SocketImpl::close() noexcept {
    KeepErrno const keep;
    (void)localAddr();  // it can still be asked for
    drop();
}

void SocketImpl::drop() noexcept {
    KeepErrno const keep;
    Uncancelled const whole;
    if (m_open) ::close(m_descriptor);
    m_open = false;
    m_descriptor = 0;
}

int SocketImpl::shutdown() noexcept {
    return ::shutdown(m_open ? m_descriptor : -1, SHUT_WR);
}

void SocketImpl::timeout(int seconds) noexcept {
    constexpr int perSecond = 1000;
    m_timeout = static_cast<int>(std::clamp<long>(static_cast<long>(seconds) * perSecond, INT_MIN, INT_MAX));
}

void SocketImpl::setOption(int option, void const* value, unsigned int length, int level) {
    checked(::setsockopt(open(), level, option, value, length));
    // From now on there may be bytes that do not count yet; recv would give them.
    if (level == SOL_SOCKET && option == SO_RCVLOWAT) m_hasLowWater = true;
}

unsigned int SocketImpl::getOption(int option, void* value, unsigned int length, int level) const {
    socklen_t size = length;
    checked(::getsockopt(open(), level, option, value, &size));
    return size;
}

int SocketImpl::socketError() const {
    int error = 0;
    getOption(SO_ERROR, &error, sizeof error, SOL_SOCKET);
    return error;
}

static_assert(Socket::Stream == int{SOCK_STREAM} && Socket::Datagram == int{SOCK_DGRAM});

Socket::Socket(Type type, bool synchronised, bool create, int domain)
    : m_impl(new SocketImpl(type, synchronised, create, domain), false) {}

Socket::~Socket() = default;

SocketImpl& Socket::value() const {
    if (!m_impl) fail("Socket", NullHandle, here);
    return *m_impl;
}

void Socket::connect(SocketAddress const& address) {
    value().connect(address);
}

void Socket::bind(SocketAddress const& address, bool reuse) {
    value().bind(address, reuse);
}

void Socket::listen(unsigned int backlog) {
    value().listen(backlog);
}

Socket Socket::accept() {
    SocketImpl& listener = value();
    Socket connection(type(), listener.synchronised(), false, AF_UNSPEC);
    listener.accept(*connection.m_impl);
    return connection;
}

ssize_t Socket::send(unsigned char const* bytes, unsigned int count) {
    return value().send(bytes, count);
}

ssize_t Socket::send(Buffer const& bytes) {
    return value().send(bytes.data(), bytes.length());
}

ssize_t Socket::receive(unsigned char* bytes, unsigned int count) {
    return value().receive(bytes, count);
}

ssize_t Socket::receive(unsigned char* bytes, unsigned int count, Clock::time_point until) {
    return value().receive(bytes, count, until);
}

ssize_t Socket::receive(Buffer& buffer) {
    unsigned char* const bytes = buffer.data();  // first: a protected buffer gets bytes of its own here
    ssize_t const count = value().receive(bytes, buffer.size());
    buffer.length(static_cast<unsigned int>(std::max<ssize_t>(count, 0)));
    return count;
}

ssize_t Socket::readline(unsigned char* bytes, unsigned int max) {
    return value().readline(bytes, max);
}

ssize_t Socket::readline(Buffer& buffer) {
    unsigned int stored = 0;
    unsigned char* const bytes = buffer.data();  // first, as in receive()
    ssize_t const count = value().readline(bytes, buffer.size(), stored);
    buffer.length(stored);
    return count;
}

Socket& Socket::operator<<(std::string const& text) {
    std::string_view rest = text;
    do {  // nothing is sent as well, and refused where no socket is
        auto const piece = static_cast<unsigned int>(std::min<std::size_t>(rest.size(), INT_MAX));
        ssize_t const sent = send(reinterpret_cast<unsigned char const*>(rest.data()), piece);
        if (sent < static_cast<ssize_t>(piece)) break;
        rest.remove_prefix(piece);
    } while (!rest.empty());
    return *this;
}

Socket& Socket::operator<<(Buffer const& bytes) {
    send(bytes);
    return *this;
}

Socket& Socket::operator<<(unsigned char const* text) {
    return *this << reinterpret_cast<char const*>(text);
}

Socket& Socket::operator<<(char const* text) {
    return *this << std::string(text ? text : "");
}

Socket& Socket::operator>>(Buffer& buffer) {
    receive(buffer);
    return *this;
}

bool Socket::readable() const {
    return value().readable();
}

bool Socket::writeable() const {
    return value().writeable();
}

bool Socket::dataWaiting() const {
    return value().dataWaiting();
}

bool Socket::polling() const {
    return value().timeout() >= 0;
}

Socket::Type Socket::type() const {
    return static_cast<Type>(value().type());
}

int Socket::descriptor() const {
    return value().descriptor();
}

void Socket::close() {
    value().close();
}

int Socket::shutdown() {
    return value().shutdown();
}

void Socket::timeout(int seconds) {
    value().timeout(seconds);
}

int Socket::timeout() const {
    return value().timeout();
}

void Socket::setBlocked(bool blocked) {
    value().setBlocked(blocked);
}

void Socket::setOption(int option, void const* value, unsigned int length, int level) {
    this->value().setOption(option, value, length, level);
}

unsigned int Socket::getOption(int option, void* value, unsigned int length, int level) const {
    return this->value().getOption(option, value, length, level);
}

void Socket::reuse(bool reuse) {
    int const value = reuse ? 1 : 0;
    setOption(SO_REUSEADDR, &value, sizeof value, SOL_SOCKET);
}

void Socket::linger(unsigned int seconds) {
    ::linger const value{1, static_cast<int>(std::min<unsigned int>(seconds, INT_MAX))};
    setOption(SO_LINGER, &value, sizeof value, SOL_SOCKET);
}

int Socket::socketError() const {
    return value().socketError();
}

SocketAddress const& Socket::localAddr() const {
    return value().localAddr();
}

SocketAddress const& Socket::remoteAddr() const {
    return value().remoteAddr();
}

}  // namespace Quillmark
