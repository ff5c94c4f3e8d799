#include "include2/QuillIPC"

#include "foundation/Caught.h"
#include "foundation/Fail.h"
#include "foundation/TryToLog.h"
#include "include2/Time"

#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

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
constexpr int patience = 30;                 // seconds, for time-outs and lingering alike
constexpr unsigned int mostWaiting = 1000;   // connections that are not accepted yet
constexpr std::uint64_t oneTurn = 1U << 20;  // bytes that are dropped before others get their turn

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

/// Receives until @p received, which it counts up, is @p length. @p buffer has the room for that.
/// @return a positive number when it is, or else what the socket gave in the end
ssize_t fill(Socket& socket, Buffer& buffer, std::uint64_t& received, unsigned int length,
             Clock::time_point until) {
    ssize_t result = 1;
    while (received < length && result > 0) {
        auto const held = static_cast<unsigned int>(received);
        result = socket.receive(buffer.data() + held, length - held, until);
        if (result <= 0) break;
        received += static_cast<std::uint64_t>(result);
        buffer.length(static_cast<unsigned int>(received));
    }
    return result;
}

/// The same for bytes that nobody keeps.
ssize_t skip(Socket& socket, std::uint64_t& received, std::uint64_t length, Clock::time_point until) {
    std::array<unsigned char, 16384> block;
    ssize_t result = 1;
    while (received < length && result > 0) {
        auto const count =
            static_cast<unsigned int>(std::min<std::uint64_t>(length - received, block.size()));
        result = socket.receive(block.data(), count, until);
        if (result > 0) received += static_cast<std::uint64_t>(result);
    }
    return result;
}

/// Messages are written whole, so there is nothing to wait for. Sockets of other kinds know no such option.
void sendAtOnce(Socket& socket) {
    int const on = 1;
    try {
        socket.setOption(TCP_NODELAY, &on, sizeof on, IPPROTO_TCP);
    } catch (SocketException const&) {  // whatever is wrong shows where it matters
    }
}

/// Takes what a peer sent beyond its request, since closing over unread bytes would take the answer back.
/// A peer that does not stop is left to its fate.
void skipUnread(SocketIPC& connection) {
    Socket& socket = connection.socket();
    if (socket.isNull() || socket.impl()->count() != 1) return;  // somebody goes on with it
    try {
        std::uint64_t skipped = 0;
        if (socket.dataWaiting()) skip(socket, skipped, oneTurn, Clock::now());
    } catch (Exception const&) {       // then there is nothing to save
    } catch (std::bad_alloc const&) {  // nor memory to say so; a handler's own failure is on its way
    }
}

/// Lets the close of a connection that nobody goes on with return at once: the system delivers what is still on its
/// way, and a peer that takes nothing holds up nobody else.
void letGo(SocketIPC& connection) noexcept {
    Socket& socket = connection.socket();
    if (socket.isNull() || socket.impl()->count() != 1) return;
    try {
        ::linger const none{0, 0};
        socket.setOption(SO_LINGER, &none, sizeof none, SOL_SOCKET);
    } catch (SocketException const&) {  // its handler has closed it
    } catch (std::bad_alloc const&) {   // and there is no memory to say so
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

/// Whether what was caught is no exception, but the end of this thread (pthread_exit, cancellation),
/// which must go on.
bool threadEnds() noexcept {
    return std::current_exception() == nullptr;
}

enum class Pause { AfterAnyFailure, AfterForeignOnes };

/// Does @p action, which must not end the dispatcher. @return whether it came to its end
template <class Action>
bool survives(Action action, Pause pause = Pause::AfterForeignOnes) {
    bool isForeign = false;
    try {
        action();
        return true;
    } catch (Exception const& e) {
        logCaught(dispatcherText, e);
    } catch (...) {
        if (threadEnds()) throw;
        tryToLog(EventUnknownException, nullptr, "%s", " ");
        isForeign = true;
    }
    if (isForeign || pause == Pause::AfterAnyFailure) qm_usleep(0, 1);
    return false;
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
    ~Request() { letGo(connection); }
    Request(Request const&) = delete;
    Request& operator=(Request const&) = delete;
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

SocketIPC::SocketIPC() : m_socket(Socket::Stream, false, true, AF_INET) {}

SocketIPC::SocketIPC(Socket socket) noexcept : m_socket(std::move(socket)) {}

SocketIPC::~SocketIPC() = default;

void SocketIPC::listen(SocketAddress const& address) {
    constexpr unsigned int backlog = 10;
    sendAtOnce(m_socket);  // connections inherit this
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
    // The first message is sent at once anyway, and most connections have no other.
    if (m_sent == Sent::One) sendAtOnce(m_socket);
    m_sent = m_sent == Sent::None ? Sent::One : Sent::More;
    return m_socket.send(pdu(), pdu.length());
}

ssize_t SocketIPC::receive(Pdu& pdu) {
    std::uint64_t received = 0;
    return receive(pdu, received, deadlineOf(m_socket), std::numeric_limits<std::uint64_t>::max());
}

/// Goes on with a message of which @p received bytes have come, by no more than @p most of those that are
/// dropped. A result of -1 leaves it to be gone on with.
ssize_t SocketIPC::receive(Pdu& pdu, std::uint64_t& received, Clock::time_point until, std::uint64_t most) {
    Buffer& buffer = pdu.m_buffer;
    if (buffer.size() < headerSize) fail("SocketIPC::receive", Refused, here(214), "Buffer is too small");
    if (auto const result = fill(m_socket, buffer, received, headerSize, until); result <= 0) return result;
    std::uint64_t const sent = pdu.payloadLength();
    auto const kept = static_cast<unsigned int>(std::min<std::uint64_t>(sent, buffer.size() - headerSize));
    if (auto const result = fill(m_socket, buffer, received, headerSize + kept, until); result <= 0)
        return result;
    // Kept for peers: what does not fit is dropped, and the length field shows it.
    std::uint64_t const end = headerSize + sent;
    std::uint64_t const now = received + std::min(end - received, most);
    if (auto const result = skip(m_socket, received, now, until); result <= 0) return result;
    return now == end ? ssize_t{buffer.length()} : -1;
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
    std::optional<SocketIPC> listener;
    auto const listen = [&] {
        SocketIPC fresh;
        fresh.listen(m_address);
        // Many may come at once. From a queue of ten that overflows the system drops what it does not bring back
        // in time.
        fresh.socket().listen(mostWaiting);
        fresh.socket().linger(patience);  // connections inherit this
        // A connection without a request is none yet: who connects and is silent costs no descriptor, and the
        // others some microseconds each.
        fresh.socket().setOption(TCP_DEFER_ACCEPT, &patience, sizeof patience, IPPROTO_TCP);
        listener = fresh;
    };
    while (!survives(listen, Pause::AfterAnyFailure)) {
    }
    return *listener;
}

/// Who is connected and has not asked whole yet. A request that comes at a walk holds up nobody but itself.
struct Dispatcher::Arrival {
    SocketIPC connection;
    Pdu request{receiveType, requestCapacity};
    std::uint64_t received = 0;
    Clock::time_point const until = Clock::now() + std::chrono::seconds(patience);

    explicit Arrival(SocketIPC&& accepted) : connection(std::move(accepted)) {}
    ~Arrival() { letGo(connection); }
    Arrival(Arrival const&) = delete;
    Arrival& operator=(Arrival const&) = delete;
    bool isLate() const { return Clock::now() >= until; }
};

/// Those whose requests are on their way, the one that came first at the front.
class Dispatcher::Arrivals {
public:
    using Place = std::unique_ptr<Arrival>;

    bool isEmpty() const noexcept { return m_places.empty(); }
    bool isFull() const noexcept { return m_places.size() >= m_most; }
    Place& oldest() noexcept { return m_places.front(); }
    void add(Place arrival) { m_places.push_back(std::move(arrival)); }
    /// Gives up the places of those who went.
    void close() noexcept {
        std::erase_if(m_places, [](Place const& place) { return !place; });
    }
    /// Waits until somebody sends, or is late, or connects to @p listener.
    /// @param ready  gets those who have sent or are late
    /// @return whether somebody has connected
    bool wait(SocketIPC& listener, std::vector<Place*>& ready) {
        m_polled.assign(1, pollfd{listener.socket().descriptor(), POLLIN, 0});
        for (Place const& place : m_places)
            m_polled.push_back({place->connection.socket().descriptor(), POLLIN, 0});
        auto const left =
            std::chrono::ceil<std::chrono::milliseconds>(oldest()->until - Clock::now()).count();
        int const result = ::poll(m_polled.data(), m_polled.size(), static_cast<int>(std::max(left, 0L)));
        if (result < 0 && errno != EINTR) fail("IPC::Dispatcher", Refused, here(0), errnoText(errno));
        bool const isNews = result > 0;
        for (std::size_t i = 0; i < m_places.size(); ++i)
            if ((isNews && m_polled[i + 1].revents != 0) || m_places[i]->isLate())
                ready.push_back(&m_places[i]);
        return isNews && m_polled[0].revents != 0;
    }

private:
    /// Most of the descriptors are the daemon's.
    static std::size_t most() noexcept {
        constexpr rlim_t enough = 256;
        rlimit limit{};
        if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return enough;
        return std::clamp<rlim_t>(limit.rlim_cur / 4, 1, enough);
    }

    std::size_t const m_most = most();
    std::vector<Place> m_places;
    std::vector<pollfd> m_polled;
};

// Whoever is accepted is read at once, and usually that is all. A request that is not whole yet waits among the
// others that are not; whoever has become whole, or late, is next.
void Dispatcher::dispatcher() {
    SocketIPC listener = listening();
    s_ready = true;
    Arrivals arrivals;
    std::vector<Arrivals::Place*> ready;
    Arrival const* inHand = nullptr;  // the one that is being read, as long as nobody else wants anything
    for (;;) {
        bool hasConnected = arrivals.isEmpty();
        ready.clear();
        if (!hasConnected) {
            Synchronized const reading(inHand != nullptr ? &m_lock : nullptr);
            survives([&] { hasConnected = arrivals.wait(listener, ready); }, Pause::AfterAnyFailure);
        }
        for (Arrivals::Place* const place : ready) {
            Arrival const* const one = place->get();
            bool const isNew = one->received == 0;
            survives([&] { attend(*place, one->isLate()); });
            bool const isWaitedFor = *place && (isNew ? one->received != 0 : one == inHand);
            inHand = isWaitedFor ? one : nullptr;
        }
        arrivals.close();
        if (!hasConnected) continue;
        inHand = nullptr;
        Arrivals::Place newcomer;
        // What cannot be accepted now, for want of descriptors, cannot be accepted at once either.
        survives([&] { newcomer = accepted(listener, !arrivals.isEmpty()); }, Pause::AfterAnyFailure);
        if (newcomer) survives([&] { attend(newcomer, false); });
        if (!newcomer) continue;
        // The time of whoever came first is over when there is no room, so that there always is some.
        if (arrivals.isFull()) survives([&] { attend(arrivals.oldest(), true); });
        arrivals.close();
        Arrival const* const slow = newcomer.get();
        if (!survives([&] { arrivals.add(std::move(newcomer)); })) continue;
        if (slow->received != 0) inHand = slow;  // who has said nothing has not asked
    }
}

/// The next connection. Where there is @p other work than to wait for it there may be none.
std::unique_ptr<Dispatcher::Arrival> Dispatcher::accepted(SocketIPC& listener, bool other) {
    listener.socket().timeout(other ? 0 : -1);
    try {
        // A connection of the dispatcher is never waited for without an end.
        Socket socket(Socket::Stream, false, false, AF_UNSPEC);
        listener.socket().impl()->accept(*socket.impl(), false);
        return std::make_unique<Arrival>(SocketIPC(std::move(socket)));
    } catch (SocketException const& e) {
        if (other && (e.error() == EAGAIN || e.error() == ECONNABORTED)) return nullptr;
        throw;
    }
}

/// Reads on, and does what is asked when that is known.
/// @param place   is left empty by who is done with, and by who fails
/// @param isLate  there is no more time for the rest
void Dispatcher::attend(std::unique_ptr<Arrival>& place, bool isLate) {
    std::unique_ptr<Arrival> arrival = std::move(place);
    SocketIPC& connection = arrival->connection;
    Pdu const& request = arrival->request;
    Handler handler;
    {
        Synchronized const busy(m_lock);
        connection.socket().timeout(patience);
        constexpr auto withoutWaiting = Clock::time_point::min();
        ssize_t const received =
            connection.receive(arrival->request, arrival->received, withoutWaiting, oneTurn);
        if (received < 0 && !isLate) {
            place = std::move(arrival);
            return;
        }
        if (received < 0) fail("SocketIPC::receive", Refused, here(266));
        // Who ends before the request is whole has asked for nothing. Kept for log readers: type 0.
        if (received > 0) handler = find(request.type());
        if (handler.isNull()) {
            tryToLog(EventNoHandler, nullptr, "%u", received > 0 ? request.type() : receiveType);
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
