#include "include2/QuillIPC"

#include "foundation/Caught.h"
#include "foundation/Fail.h"
#include "include2/Logger"
#include "include2/Time"

#include <netinet/tcp.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <utility>

namespace Quillmark::IPC {

namespace {

using Clock = SocketImpl::Clock;

constexpr Site here(unsigned int line) {
    return {"IPC", line};
}

// The header, which a caller's ipc_pdu begins with too.
constexpr unsigned int typeOffset = 0;
constexpr unsigned int lengthOffset = 4;
constexpr unsigned int headerSize = 8;

constexpr unsigned int receiveType = 0;
constexpr unsigned int pingType = 1;
constexpr unsigned int intValueType = 3;

constexpr unsigned int requestCapacity = 1024;
constexpr int patience = 30;  // seconds, for time-outs and lingering alike

char const dispatcherText[] = "void Quillmark::IPC::Dispatcher::dispatcher()";

/// A number at its place; 0 where the memory of a Pdu is too small to have one.
std::uint32_t field(Buffer const& buffer, unsigned int offset) noexcept {
    std::uint32_t value = 0;
    if (buffer.size() >= headerSize) std::memcpy(&value, buffer.data() + offset, sizeof value);
    return value;
}

void setField(Buffer& buffer, unsigned int offset, std::uint32_t value) {
    std::memcpy(buffer.data() + offset, &value, sizeof value);
}

/// The size of a Pdu with @p payload bytes. Kept for the daemons: it wraps to less than a header's size,
/// which is what sending and receiving refuse.
unsigned int sizeWith(std::uint32_t payload) {
    return payload + headerSize;
}

Buffer zeroed(unsigned int capacity) {
    if (capacity < headerSize) fail("Pdu::Pdu", Refused, here(22), "Buffer is too small");
    return Buffer(static_cast<int>(capacity), 0);
}

Buffer empty(unsigned int type, unsigned int capacity) {
    Buffer buffer = zeroed(capacity);
    buffer.length(headerSize);
    setField(buffer, typeOffset, type);
    return buffer;
}

/// Bytes of its own, as many allocated and as many in use.
Buffer independent(Buffer const& other) {
    if (other.size() < headerSize) return Buffer(nullptr, 0, true);
    Buffer copy = zeroed(other.size());
    copy.append(other.data(), other.length());
    return copy;
}

Buffer inPlace(ipc_pdu const& p) {
    std::uint32_t payload = 0;
    std::memcpy(&payload, reinterpret_cast<unsigned char const*>(&p) + lengthOffset, sizeof payload);
    return Buffer(&p, sizeWith(payload), true);
}

Clock::time_point deadlineOf(Socket const& socket) {
    if (socket.timeout() < 0) return Clock::time_point::max();
    return Clock::now() + std::chrono::milliseconds(socket.timeout());
}

/// Receives until @p buffer, which has the room, holds @p length bytes.
/// @return a positive number when it does, or else what the socket gave in the end
ssize_t fill(Socket& socket, Buffer& buffer, unsigned int held, unsigned int length,
             Clock::time_point until) {
    ssize_t result = 1;
    while (held < length && (result = socket.receive(buffer.data() + held, length - held, until)) > 0) {
        held += static_cast<unsigned int>(result);
        buffer.length(held);
    }
    return result;
}

/// Receives @p count bytes for nobody.
ssize_t skip(Socket& socket, unsigned int count, Clock::time_point until) {
    std::array<unsigned char, 16384> block;
    ssize_t result = 1;
    while (count != 0 && result > 0) {
        result = socket.receive(block.data(), std::min<unsigned int>(count, block.size()), until);
        if (result > 0) count -= static_cast<unsigned int>(result);
    }
    return result;
}

/// Takes what a peer sent beyond its request, since closing over unread bytes would take the answer back.
/// A peer that does not stop is left to its fate.
void skipUnread(SocketIPC& connection) {
    constexpr unsigned int enough = 1U << 20;
    Socket& socket = connection.socket();
    if (socket.isNull() || socket.impl()->count() != 1) return;  // somebody goes on with it
    try {
        if (socket.dataWaiting()) skip(socket, enough, Clock::now());
    } catch (SocketException const&) {  // then there is nothing to save
    }
}

/// Lets a handler answer. What it throws goes on.
void answer(Handler const& handler, SocketIPC& connection, Pdu const& request) {
    try {
        handler.task(connection, request);
    } catch (...) {
        skipUnread(connection);
        throw;
    }
    skipUnread(connection);
}

/// Writes an event. Like logCaught it lets no failure of a daemon's own logger out.
template <class Argument>
void log(LogEvent event, char const* format, Argument argument) {
    try {
        Logger::instance(false)->evt_log(event, static_cast<char const*>(nullptr), format, argument);
    } catch (Exception const&) {
    } catch (std::exception const&) {
    }
}

/// Whether what was caught is no exception, but the end of this thread (pthread_exit, cancellation),
/// which must go on.
bool threadEnds() noexcept {
    return std::current_exception() == nullptr;
}

/// The threads that handlers may have at a time. It is never destroyed: they outlive main().
class ThreadLimit {
public:
    static ThreadLimit& instance() {
        static auto* const limit = new ThreadLimit;
        return *limit;
    }
    void take() {
        std::unique_lock lock(m_lock);
        m_given.wait(lock, [this] { return m_free != 0; });
        --m_free;
    }
    void give() {
        std::lock_guard const lock(m_lock);
        ++m_free;
        m_given.notify_one();
    }

private:
    std::mutex m_lock;
    std::condition_variable m_given;
    int m_free = 64;
};

struct ThreadPlace {
    ThreadPlace() { ThreadLimit::instance().take(); }
    ~ThreadPlace() { ThreadLimit::instance().give(); }
    ThreadPlace(ThreadPlace const&) = delete;
    ThreadPlace& operator=(ThreadPlace const&) = delete;
};

/// What a handler's thread owns. The connection goes before the place that others wait for.
struct Request {
    ThreadPlace place;
    Handler handler;
    SocketIPC connection;
    Pdu pdu;

    Request(Handler h, SocketIPC&& c, Pdu const& p)
        : handler(std::move(h)), connection(std::move(c)), pdu(p) {}
};

/// Runs @p entry with @p argument on a thread that cleans up after itself.
int startDetached(void* (*entry)(void*), void* argument) {
    pthread_t thread{};
    int const result = ::pthread_create(&thread, nullptr, entry, argument);
    if (result == 0) ::pthread_detach(thread);
    return result;
}

}  // namespace

Pdu::Pdu(unsigned int type, unsigned int capacity) : m_buffer(empty(type, capacity)) {}

Pdu::Pdu(unsigned int type, Buffer const& payload) : m_buffer(empty(type, sizeWith(payload.length()))) {
    append(payload);
}

Pdu::Pdu(ipc_pdu const& p) : m_buffer(inPlace(p)) {}

Pdu::Pdu(Pdu const& other) : m_buffer(independent(other.m_buffer)) {}

Pdu& Pdu::operator=(Pdu const& other) {
    if (this != &other) m_buffer = independent(other.m_buffer);
    return *this;
}

Pdu::~Pdu() = default;

unsigned int Pdu::type() const noexcept {
    return field(m_buffer, typeOffset);
}

unsigned int Pdu::payloadLength() const noexcept {
    return field(m_buffer, lengthOffset);
}

Buffer Pdu::data() const {
    if (m_buffer.length() < headerSize) return Buffer(nullptr, 0, true);
    unsigned int const held = m_buffer.length() - headerSize;
    return Buffer(m_buffer.data() + headerSize, std::min(held, payloadLength()), true);
}

void Pdu::append(unsigned char const* bytes, unsigned int n) {
    if (m_buffer.size() < headerSize) return;
    unsigned int const before = m_buffer.length();
    m_buffer.append(bytes, n);
    setField(m_buffer, lengthOffset, payloadLength() + (m_buffer.length() - before));
}

void Pdu::append(Buffer const& bytes) {
    append(bytes.data(), bytes.length());
}

Pdu& operator<<(Pdu& pdu, std::string const& bytes) {
    constexpr std::size_t most = std::numeric_limits<unsigned int>::max();
    if (bytes.size() > most) fail("Pdu::append", Refused, here(0), "Buffer is too small");
    pdu.append(reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<unsigned int>(bytes.size()));
    return pdu;
}

Pdu& operator<<(Pdu& pdu, Buffer const& bytes) {
    pdu.append(bytes);
    return pdu;
}

PduIntValue::PduIntValue(int value) : Pdu(intValueType, sizeWith(sizeof value)) {
    append(reinterpret_cast<unsigned char const*>(&value), sizeof value);
}

PduIntValue::~PduIntValue() = default;

int PduIntValue::value() const {
    int value = 0;
    Buffer const payload = data();
    if (payload.length() != sizeof value || payloadLength() != sizeof value)
        fail("PduIntValue::value", Refused, here(152), "Buffer is too small");
    std::memcpy(&value, payload.data(), sizeof value);
    return value;
}

SocketIPC::SocketIPC() : m_socket(Socket::Stream, false, true, AF_INET) {
    // Requests and answers are written whole, so there is nothing to wait for. Connections inherit this.
    int const on = 1;
    m_socket.setOption(TCP_NODELAY, &on, sizeof on, IPPROTO_TCP);
}

SocketIPC::SocketIPC(Socket socket) noexcept : m_socket(std::move(socket)) {}

SocketIPC::~SocketIPC() = default;

void SocketIPC::listen(SocketAddress const& address) {
    constexpr unsigned int backlog = 10;
    m_socket.bind(address, true);
    m_socket.listen(backlog);
}

void SocketIPC::listen(int port) {
    listen(SocketAddress(IPAddress(INADDR_LOOPBACK, false), static_cast<unsigned int>(port)));
}

void SocketIPC::connect(SocketAddress const& address) {
    m_socket.linger(patience);
    m_socket.timeout(patience);
    m_socket.connect(address);
}

void SocketIPC::connect(int port) {
    connect(SocketAddress(IPAddress(INADDR_LOOPBACK, false), static_cast<unsigned int>(port)));
}

SocketIPC SocketIPC::accept() {
    return SocketIPC(m_socket.accept());
}

ssize_t SocketIPC::send(Pdu const& pdu) {
    if (pdu.length() < headerSize) fail("SocketIPC::send", Refused, here(0), "Buffer is too small");
    return m_socket.send(pdu(), pdu.length());
}

ssize_t SocketIPC::receive(Pdu& pdu) {
    Buffer& buffer = pdu.m_buffer;
    if (buffer.size() < headerSize) fail("SocketIPC::receive", Refused, here(214), "Buffer is too small");
    auto const until = deadlineOf(m_socket);
    if (auto const result = fill(m_socket, buffer, 0, headerSize, until); result <= 0) return result;
    unsigned int const sent = pdu.payloadLength();
    unsigned int const kept = std::min(sent, buffer.size() - headerSize);
    if (auto const result = fill(m_socket, buffer, headerSize, headerSize + kept, until); result <= 0)
        return result;
    // Kept for peers: what does not fit is dropped, and the length field shows it.
    if (auto const result = skip(m_socket, sent - kept, until); result <= 0) return result;
    return buffer.length();
}

SocketIPC& operator<<(SocketIPC& connection, Pdu const& pdu) {
    connection.send(pdu);
    return connection;
}

SocketIPC& operator>>(SocketIPC& connection, Pdu& pdu) {
    if (connection.receive(pdu) < 0) fail("SocketIPC::receive", Refused, here(266));
    return connection;
}

HandlerImpl::~HandlerImpl() = default;

HandlerPing::HandlerPing() noexcept {
    type(pingType);
}

HandlerPing::~HandlerPing() = default;

int HandlerPing::task(SocketIPC& connection, Pdu const& request) const {
    connection.send(request);
    return 0;
}

Handler::~Handler() = default;

HandlerImpl const& Handler::value() const {
    if (!m_impl) fail("Handler", NullHandle, here(0));
    return *m_impl;
}

unsigned int Handler::type() const {
    return value().type();
}

bool Handler::threadRequired() const {
    return value().threadRequired();
}

int Handler::task(SocketIPC& connection, Pdu const& request) const {
    return value().task(connection, request);
}

bool Handler::operator<(Handler const& other) const noexcept {
    if (isNull() || other.isNull()) return isNull() && !other.isNull();
    return m_impl->type() < other.m_impl->type();
}

std::atomic<bool> Dispatcher::s_ready{false};

Dispatcher::Dispatcher(SocketAddress const& address) : m_address(address) {
    // The address is shared with the caller, and this builds its system form before there are two threads.
    if (m_address.isINET() && !m_address.asINET().address().isNull()) (void)static_cast<sockaddr*>(m_address);
}

Dispatcher* Dispatcher::instance(SocketAddress const& address) {
    static Dispatcher* const dispatcher = [&] {
        auto* const made = new Dispatcher(address);
        startDetached(starter, made);
        return made;
    }();
    return dispatcher;
}

Dispatcher* Dispatcher::instance(int port) {
    return instance(SocketAddress(IPAddress(INADDR_LOOPBACK, false), static_cast<unsigned int>(port)));
}

void Dispatcher::add(Handler const& handler) {
    unsigned int const type = handler.type();
    // A Mutex does not count: a handler on the dispatcher's thread that adds another frees it early.
    Synchronized const betweenRequests(m_lock);
    Synchronized const guard(m_mapLock);
    m_handlers[type] = handler;
}

Handler Dispatcher::find(unsigned int type) const {
    Synchronized const guard(m_mapLock);
    auto const found = m_handlers.find(type);
    return found == m_handlers.end() ? Handler() : found->second;
}

bool Dispatcher::waitUntilReady(unsigned int seconds) const {
    auto const until = Clock::now() + std::chrono::seconds(seconds);
    do {
        qm_usleep(500'000, 0);
        if (s_ready) return true;
    } while (Clock::now() < until);
    return false;
}

void* Dispatcher::starter(void* dispatcher) {
    static_cast<Dispatcher*>(dispatcher)->dispatcher();
}

/// The listener, as soon as the address is to be had.
SocketIPC Dispatcher::listening() const {
    for (;; qm_usleep(0, 1)) {
        try {
            SocketIPC listener;
            listener.listen(m_address);
            // A connection without a request is none yet: who connects and is silent holds nobody up.
            listener.socket().setOption(TCP_DEFER_ACCEPT, &patience, sizeof patience, IPPROTO_TCP);
            return listener;
        } catch (Exception const& e) {
            logCaught(dispatcherText, e);
        } catch (...) {
            if (threadEnds()) throw;
            log(EventUnknownException, "%s", " ");
        }
    }
}

void Dispatcher::dispatcher() {
    SocketIPC listener = listening();
    s_ready = true;
    for (;;) {
        bool accepted = false;
        bool foreign = false;
        try {
            SocketIPC connection = listener.accept();
            accepted = true;
            serve(connection);
        } catch (Exception const& e) {
            logCaught(dispatcherText, e);
        } catch (...) {
            if (threadEnds()) throw;
            log(EventUnknownException, "%s", " ");
            foreign = true;
        }
        // What cannot be accepted now, for want of descriptors, cannot be accepted at once either.
        if (!accepted || foreign) qm_usleep(0, 1);
    }
}

void Dispatcher::serve(SocketIPC& connection) {
    Pdu request(receiveType, requestCapacity);
    Handler handler;
    {
        Synchronized const busy(m_lock);
        connection.socket().linger(patience);
        connection.socket().timeout(patience);
        ssize_t const received = connection.receive(request);
        if (received < 0) fail("SocketIPC::receive", Refused, here(266));
        // Who ends before the request is whole has asked for nothing. Kept for log readers: type 0.
        if (received > 0) handler = find(request.type());
        if (handler.isNull()) {
            log(EventNoHandler, "%u", received > 0 ? request.type() : receiveType);
            skipUnread(connection);
            return;
        }
        if (!handler.threadRequired()) {
            answer(handler, connection, request);
            return;
        }
    }
    auto record = std::make_unique<Request>(std::move(handler), std::move(connection), request);
    if (int const error = startDetached(s_threadedHandler, record.get()); error != 0)
        fail("IPC::Dispatcher", Refused, here(0), errnoText(error));
    (void)record.release();
}

void* Dispatcher::s_threadedHandler(void* record) {
    std::unique_ptr<Request> const request(static_cast<Request*>(record));
    try {
        answer(request->handler, request->connection, request->pdu);
    } catch (Exception const&) {
    } catch (...) {
        if (threadEnds()) throw;
    }
    return nullptr;
}

}  // namespace Quillmark::IPC
