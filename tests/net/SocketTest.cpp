#include "include2/Socket"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/net/SystemCalls.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using namespace std::chrono_literals;
using QuillmarkTest::failureOf;
using QuillmarkTest::isCancelledIn;
using QuillmarkTest::openDescriptors;
using QuillmarkTest::Prepared;
using QuillmarkTest::slotOf;
using QuillmarkTest::TemporaryDirectory;

namespace {

using Clock = std::chrono::steady_clock;

SocketAddress loopback(unsigned int port = 0) {
    return SocketAddress(IPAddress("127.0.0.1"), port);
}

Socket stream(int domain = AF_INET, bool synchronised = false) {
    return Socket(Socket::Stream, synchronised, true, domain);
}

/// Both ends of one connection, and the listener that it came by.
struct Pair {
    explicit Pair(SocketAddress const& address = loopback(), int domain = AF_INET, bool synchronised = false)
        : listener(stream(domain, synchronised)), client(stream(domain, synchronised)) {
        listener.bind(address, true);
        listener.listen(5);
        client.connect(listener.localAddr());
        server = listener.accept();
    }

    Socket listener;
    Socket client;
    Socket server;
};

std::string received(Socket& socket, unsigned int max = 100) {
    std::vector<unsigned char> bytes(max);
    ssize_t const count = socket.receive(bytes.data(), max);
    if (count < 0) return "timed out";
    return {bytes.begin(), bytes.begin() + count};
}

std::string line(Socket& socket, unsigned int max) {
    std::vector<unsigned char> bytes(max + 1, '#');
    ssize_t const count = socket.readline(bytes.data(), max);
    if (count < 0) return "timed out";
    EXPECT_EQ(bytes[static_cast<std::size_t>(count)], '#');  // nothing is written beyond the line
    return {bytes.begin(), bytes.begin() + count};
}

unsigned char const* raw(char const* text) {
    return reinterpret_cast<unsigned char const*>(text);
}

int numberOf(std::function<void()> const& action) {
    try {
        action();
    } catch (SocketException const& e) {
        EXPECT_EQ(e.intParameter(), e.error());
        return e.error();
    }
    return 0;
}

bool blocking(Socket const& socket) {
    return (::fcntl(socket.descriptor(), F_GETFL) & O_NONBLOCK) == 0;
}

/// A signal without effect that reaches one thread again and again as long as the object lives.
class Interruptions {
public:
    explicit Interruptions(pthread_t target)
        : m_sender([this, target] {
              while (!m_done) {
                  ::pthread_kill(target, SIGUSR1);
                  std::this_thread::sleep_for(5ms);
              }
          }) {}
    ~Interruptions() {
        m_done = true;
        m_sender.join();
    }
    Interruptions(Interruptions const&) = delete;
    Interruptions& operator=(Interruptions const&) = delete;

    static void install() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &action, nullptr);  // without SA_RESTART
    }

private:
    std::atomic<bool> m_done{false};
    std::thread m_sender;
};

/// A listener whose queue is full, so that a connection to it neither succeeds nor fails.
struct FullListener {
    FullListener() : listener(stream()) {
        listener.bind(loopback(), true);
        listener.listen(0);
        for (Socket& socket : waiting) {
            socket = stream();
            socket.timeout(0);
            socket.connect(listener.localAddr());
        }
    }

    Socket listener;
    std::array<Socket, 3> waiting;
};

}  // namespace

TEST(Socket, IsNullByDefaultAndRefusesEverything) {
    Socket socket;
    EXPECT_TRUE(socket.isNull());
    EXPECT_EQ(socket.impl(), nullptr);
    Socket const& constant = socket;
    Buffer buffer;
    unsigned char byte = 0;
    std::vector<std::pair<char const*, std::function<void()>>> const operations{
        {"connect", [&] { socket.connect(loopback(1)); }},
        {"connect to null", [&] { socket.connect(SocketAddress()); }},
        {"bind", [&] { socket.bind(loopback(), true); }},
        {"bind to null", [&] { socket.bind(SocketAddress(), true); }},
        {"listen", [&] { socket.listen(1); }},
        {"accept", [&] { socket.accept(); }},
        {"send", [&] { socket.send(&byte, 1); }},
        {"send buffer", [&] { socket.send(buffer); }},
        {"receive", [&] { socket.receive(&byte, 1); }},
        {"receive until", [&] { socket.receive(&byte, 1, Clock::now()); }},
        {"receive buffer", [&] { socket.receive(buffer); }},
        {"readline", [&] { socket.readline(&byte, 1); }},
        {"readline buffer", [&] { socket.readline(buffer); }},
        {"<<", [&] { socket << "x"; }},
        {"<< nothing", [&] { socket << ""; }},
        {"<< empty buffer", [&] { socket << buffer; }},
        {">>", [&] { socket >> buffer; }},
        {"readable", [&] { (void)constant.readable(); }},
        {"writeable", [&] { (void)constant.writeable(); }},
        {"dataWaiting", [&] { (void)constant.dataWaiting(); }},
        {"polling", [&] { (void)constant.polling(); }},
        {"type", [&] { (void)constant.type(); }},
        {"descriptor", [&] { (void)constant.descriptor(); }},
        {"close", [&] { socket.close(); }},
        {"shutdown", [&] { socket.shutdown(); }},
        {"timeout", [&] { socket.timeout(1); }},
        {"get timeout", [&] { (void)constant.timeout(); }},
        {"setBlocked", [&] { socket.setBlocked(true); }},
        {"setOption", [&] { socket.setOption(SO_REUSEADDR, &byte, 1, SOL_SOCKET); }},
        {"getOption", [&] { (void)constant.getOption(SO_REUSEADDR, &byte, 1, SOL_SOCKET); }},
        {"reuse", [&] { socket.reuse(true); }},
        {"linger", [&] { socket.linger(1); }},
        {"socketError", [&] { (void)constant.socketError(); }},
        {"localAddr", [&] { (void)constant.localAddr(); }},
        {"remoteAddr", [&] { (void)constant.remoteAddr(); }},
    };
    for (auto const& [name, operation] : operations)
        EXPECT_EQ(failureOf(operation), "Socket( 1 ) , Socket") << name;
}

TEST(Socket, HasItsVirtualOperationsInTheirPlaces) {
    EXPECT_EQ(slotOf(&SocketImpl::readable), 2U);
    EXPECT_EQ(slotOf(&SocketImpl::writeable), 3U);
    EXPECT_TRUE(std::has_virtual_destructor_v<Socket>);
    EXPECT_TRUE((std::is_base_of_v<RefImpl, SocketImpl>));
}

TEST(Socket, CopiesShareTheDescriptorAndTheLastOneClosesIt) {
    std::size_t const before = openDescriptors();
    {
        Socket first = stream();
        Socket const second(first);
        Socket third(std::move(first));
        EXPECT_TRUE(first.isNull());  // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(second.descriptor(), third.descriptor());
        EXPECT_EQ(second.impl(), third.impl());
        third = Socket();
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_NE(::fcntl(second.descriptor(), F_GETFD), -1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Socket, HoldsAnImplementationThatItIsGiven) {
    Socket const socket(new SocketImpl(SOCK_DGRAM, false, true, AF_INET), false);
    EXPECT_EQ(socket.impl()->count(), 1U);
    Socket const shared(socket.impl(), true);
    EXPECT_EQ(socket.impl()->count(), 2U);
    EXPECT_EQ(shared.type(), Socket::Datagram);
}

TEST(Socket, IsMadeWithTypeAndFamilyAsTheyAre) {
    for (auto const type : {Socket::Stream, Socket::Datagram, static_cast<Socket::Type>(SOCK_SEQPACKET)}) {
        Socket const socket(type, false, true, AF_UNIX);
        int seen = 0;
        EXPECT_EQ(socket.getOption(SO_TYPE, &seen, sizeof seen, SOL_SOCKET), sizeof seen);
        EXPECT_EQ(seen, type);
        EXPECT_EQ(socket.type(), type);
    }
    EXPECT_EQ(failureOf([] { Socket(Socket::Stream, false, true, 9999); }),
              "SocketException( 97 ) , Socket \"Address family not supported by protocol\"");
}

TEST(Socket, BlocksAtFirstAndIsNotInheritedByPrograms) {
    Pair const pair;
    for (Socket const* socket : {&pair.listener, &pair.client, &pair.server}) {
        EXPECT_EQ(socket->timeout(), -1);
        EXPECT_FALSE(socket->polling());
        EXPECT_TRUE(blocking(*socket));
        EXPECT_EQ(::fcntl(socket->descriptor(), F_GETFD), FD_CLOEXEC);
    }
}

TEST(Socket, WithoutADescriptorFailsAsAClosedOneDoes) {
    Socket socket(Socket::Stream, false, false, AF_INET);
    EXPECT_EQ(socket.descriptor(), 0);
    EXPECT_EQ(numberOf([&] { socket.listen(1); }), EBADF);
}

TEST(Socket, TimeoutTakesSecondsAndGivesMilliseconds) {
    Socket socket = stream();
    for (auto const& [seconds, milliseconds] : std::vector<std::pair<int, int>>{{5, 5000},
                                                                                {0, 0},
                                                                                {-1, -1000},
                                                                                {2'147'483, 2'147'483'000},
                                                                                {2'147'484, INT_MAX},
                                                                                {INT_MAX, INT_MAX},
                                                                                {INT_MIN, INT_MIN}}) {
        socket.timeout(seconds);
        EXPECT_EQ(socket.timeout(), milliseconds) << seconds;
        EXPECT_EQ(socket.polling(), seconds >= 0) << seconds;
    }
}

TEST(Socket, KnowsItsOwnAddressAndThePeers) {
    Pair const pair;
    auto const& listening = pair.listener.localAddr().asINET();
    EXPECT_NE(listening.port(), 0U);  // the system's choice
    EXPECT_EQ(pair.client.remoteAddr().asINET().port(), listening.port());
    EXPECT_EQ(pair.client.localAddr().asINET().port(), pair.server.remoteAddr().asINET().port());
    EXPECT_EQ(pair.server.remoteAddr().asINET().address(), IPAddress("127.0.0.1"));
    EXPECT_TRUE(stream().localAddr().isNull());
    EXPECT_TRUE(stream().remoteAddr().isNull());
}

TEST(Socket, KnowsALongLocalPathWhole) {
    TemporaryDirectory const directory;
    std::string const path = directory.file(std::string(100 - directory.path().size(), 'n'));
    Pair const pair(SocketAddress(path), AF_UNIX);
    EXPECT_EQ(pair.listener.localAddr().asUNIX().path(), path);
    EXPECT_EQ(pair.client.remoteAddr().asUNIX().path(), path);
    EXPECT_EQ(pair.client.localAddr().asUNIX().path(), "");
    EXPECT_EQ(pair.server.remoteAddr().asUNIX().path(), "");
}

TEST(Socket, RefusesANullAddress) {
    Socket socket = stream();
    std::string const refusal = "Socket( 4 ) , Socket \"SocketAddress is null\"";
    EXPECT_EQ(failureOf([&] { socket.bind(SocketAddress(), true); }), refusal);
    EXPECT_EQ(failureOf([&] { socket.connect(SocketAddress()); }), refusal);
}

TEST(Socket, ConnectToAClosedPortIsRefused) {
    unsigned int port = 0;
    {
        Socket gone = stream();
        gone.bind(loopback(), true);
        port = gone.localAddr().asINET().port();
    }
    for (int const timeout : {-1, 5}) {
        Socket socket = stream();
        socket.timeout(timeout);
        EXPECT_EQ(failureOf([&] { socket.connect(loopback(port)); }),
                  "SocketException( 111 ) , Socket \"Connection refused\"")
            << timeout;
        EXPECT_TRUE(socket.remoteAddr().isNull());
    }
}

TEST(Socket, ConnectThatGetsNoAnswerFailsWithTheTimersError) {
    FullListener full;
    Socket socket = stream();
    socket.timeout(1);
    auto const start = Clock::now();
    EXPECT_EQ(failureOf([&] { socket.connect(full.listener.localAddr()); }),
              "SocketException( 62 ) , Socket \"Timer expired\"");
    EXPECT_GE(Clock::now() - start, 990ms);
    EXPECT_FALSE(blocking(socket));
}

TEST(Socket, ConnectWithoutWaitingCountsAsDone) {
    FullListener full;
    Socket socket = stream();
    socket.timeout(0);
    socket.connect(full.listener.localAddr());
    EXPECT_EQ(socket.remoteAddr().asINET().port(), full.listener.localAddr().asINET().port());
    EXPECT_NE(socket.localAddr().asINET().port(), 0U);
}

TEST(Socket, ConnectToALocalListenerThatIsFullGoesByThePendingError) {
    TemporaryDirectory const directory;
    SocketAddress const address(directory.file("socket"));
    Socket listener = stream(AF_UNIX);
    listener.bind(address, true);
    listener.listen(0);
    Socket first = stream(AF_UNIX);
    first.connect(address);
    // The system says "try again", the socket is writeable, and there is no pending error.
    for (int const timeout : {0, 1}) {
        Socket socket = stream(AF_UNIX);
        socket.timeout(timeout);
        auto const start = Clock::now();
        socket.connect(address);
        EXPECT_LT(Clock::now() - start, 900ms);
        EXPECT_EQ(socket.remoteAddr().asUNIX().path(), address.asUNIX().path());
        EXPECT_EQ(numberOf([&] { socket << "x"; }), ENOTCONN);
    }
}

TEST(Socket, ConnectThatIsMadeAlreadySucceeds) {
    Pair pair;
    pair.client.connect(pair.listener.localAddr());
    pair.client.timeout(5);
    pair.client.connect(pair.listener.localAddr());
    EXPECT_EQ(pair.client.remoteAddr().asINET().port(), pair.listener.localAddr().asINET().port());
}

TEST(Socket, ConnectThatIsInterruptedWaitsForItsEnd) {
    Pair pair;
    {
        Prepared const interrupted("connect", -1, EINTR);
        pair.client.connect(pair.listener.localAddr());  // which is connected in truth, so writeable
    }
    EXPECT_FALSE(pair.client.remoteAddr().isNull());
}

TEST(Socket, ConnectReportsWhatTheSystemReportsInTheEnd) {
    for (int const pending : {EINTR, EINPROGRESS, EAGAIN}) {
        Pair pair;
        pair.server.linger(0);
        pair.server.close();  // leaves an error with the client, as a connect that is refused late does
        EXPECT_TRUE(pair.client.readable());
        Prepared const goesOn("connect", -1, pending);
        EXPECT_EQ(failureOf([&] { pair.client.connect(loopback(1)); }),
                  "SocketException( 104 ) , Socket \"Connection reset by peer\"")
            << pending;
        EXPECT_NE(pair.client.remoteAddr().asINET().port(), 1U) << pending;
    }
}

TEST(Socket, BindFailsWithTheSystemsError) {
    Socket first = stream();
    first.bind(loopback(), false);
    Socket second = stream();
    EXPECT_EQ(failureOf([&] { second.bind(first.localAddr(), false); }),
              "SocketException( 98 ) , Socket \"Address already in use\"");
    EXPECT_TRUE(second.localAddr().isNull());
    Socket local = stream(AF_UNIX);
    EXPECT_EQ(numberOf([&] { local.bind(SocketAddress(std::string(200, 'x')), true); }), EINVAL);
}

TEST(Socket, BindSetsReuseAsItIsTold) {
    for (bool const reuse : {true, false}) {
        Socket socket = stream();
        socket.reuse(!reuse);
        socket.bind(loopback(), reuse);
        int value = -1;
        socket.getOption(SO_REUSEADDR, &value, sizeof value, SOL_SOCKET);
        EXPECT_EQ(value != 0, reuse);
    }
}

TEST(Socket, ListenFailsWithTheSystemsError) {
    Socket socket(Socket::Datagram, false, true, AF_INET);
    EXPECT_EQ(numberOf([&] { socket.listen(UINT_MAX); }), EOPNOTSUPP);
}

TEST(Socket, AcceptWithoutWaitingNeedsAConnectionNow) {
    Socket listener = stream();
    listener.bind(loopback(), true);
    listener.listen(1);
    listener.timeout(0);
    EXPECT_EQ(failureOf([&] { listener.accept(); }),
              "SocketException( 11 ) , Socket \"Resource temporarily unavailable\"");
    Socket client = stream();
    client.connect(listener.localAddr());
    EXPECT_FALSE(listener.accept().isNull());
}

TEST(Socket, AcceptWaitsOnBeyondAPositiveTimeout) {
    Socket listener = stream();
    listener.bind(loopback(), true);
    listener.listen(1);
    listener.timeout(1);
    SocketAddress const address = listener.localAddr();
    (void)static_cast<sockaddr*>(address);  // built before the second thread reads it
    std::thread late([address] {
        std::this_thread::sleep_for(1200ms);
        stream().connect(address);
    });
    auto const start = Clock::now();
    Socket const connection = listener.accept();
    EXPECT_GE(Clock::now() - start, 1100ms);
    EXPECT_TRUE(blocking(connection));
    late.join();
}

TEST(Socket, AcceptGoesOnAfterWhatPasses) {
    for (int const passing : {EINTR, ECONNABORTED, EAGAIN}) {
        Socket listener = stream();
        listener.bind(loopback(), true);
        listener.listen(1);
        Socket client = stream();
        client.connect(listener.localAddr());
        Prepared const prepared("accept4", -1, passing, 3);
        EXPECT_FALSE(listener.accept().isNull()) << passing;
        EXPECT_EQ(prepared.left(), 0) << passing;
    }
}

namespace {

/// As long as it lives, there is no free descriptor.
class NoDescriptors {
public:
    NoDescriptors() {
        int const next = ::dup(0);
        ::close(next);
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit const none{static_cast<rlim_t>(next), m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(NoDescriptors const&) = delete;
    NoDescriptors& operator=(NoDescriptors const&) = delete;

private:
    rlimit m_before{};
};

}  // namespace

TEST(Socket, AcceptOutOfDescriptorsFailsAtOnce) {
    Socket listener = stream();
    listener.bind(loopback(), true);
    listener.listen(1);
    Socket client = stream();
    client.connect(listener.localAddr());
    {
        NoDescriptors const full;
        EXPECT_EQ(numberOf([&] { listener.accept(); }), EMFILE);
    }
    EXPECT_FALSE(listener.accept().isNull());  // the connection was not lost
}

TEST(Socket, AcceptOutOfDescriptorsWaitsOnWhenNobodyConnectsInTime) {
    Socket listener = stream();
    listener.bind(loopback(), true);
    listener.listen(1);
    listener.timeout(30);
    Socket client = stream();
    client.connect(listener.localAddr());
    Prepared const nobodyTwice("poll", 0, 0, 2);
    {
        NoDescriptors const full;
        EXPECT_EQ(numberOf([&] { listener.accept(); }), EMFILE);
    }
    EXPECT_EQ(nobodyTwice.left(), 0);
}

// The system says so before anybody has connected. A daemon that goes on after a failed accept would spin.
TEST(Socket, AcceptOutOfDescriptorsWaitsForAConnectionFirst) {
    Socket listener = stream();
    listener.bind(loopback(), true);
    listener.listen(1);
    for (int const full : {EMFILE, ENFILE}) {
        Socket client = stream();
        client.connect(listener.localAddr());
        {
            Prepared const twice("accept4", -1, full, 2);
            EXPECT_EQ(numberOf([&] { listener.accept(); }), full);
            EXPECT_EQ(twice.left(), 0) << full;
        }
        Prepared const once("accept4", -1, full);
        EXPECT_FALSE(listener.accept().isNull()) << full;
        EXPECT_EQ(once.left(), 0) << full;
    }
    listener.timeout(0);
    Prepared const twice("accept4", -1, EMFILE, 2);
    EXPECT_EQ(numberOf([&] { listener.accept(); }), EMFILE) << "without waiting";
    EXPECT_EQ(twice.left(), 1);
}

TEST(Socket, IsClosedByAThreadThatIsCancelled) {
    std::size_t const before = openDescriptors();
    Socket socket = stream();
    EXPECT_FALSE(isCancelledIn([&] { socket.close(); }));
    socket = stream();
    EXPECT_FALSE(isCancelledIn([&] { socket = Socket(); }));
    EXPECT_FALSE(isCancelledIn([] { Socket const here = stream(); }));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Socket, ReceivesNoBytesThatAreFewerThanTheSystemWasToldToWaitFor) {
    Pair pair;
    pair.server.timeout(0);
    int const lowWater = 10;
    pair.server.setOption(SO_RCVLOWAT, &lowWater, sizeof lowWater, SOL_SOCKET);
    pair.client << "abc";
    errno = 0;
    EXPECT_EQ(received(pair.server), "timed out");
    EXPECT_EQ(errno, EAGAIN);
    pair.client << "defghijkl";
    pair.server.timeout(30);
    EXPECT_EQ(received(pair.server), "abcdefghijkl");
}

TEST(Socket, HandsTheCountOfBytesToWaitForToItsConnections) {
    Socket listener = stream();
    int const lowWater = 2;
    listener.setOption(SO_RCVLOWAT, &lowWater, sizeof lowWater, SOL_SOCKET);
    listener.bind(loopback(), true);
    listener.listen(1);
    Socket client = stream();
    client.connect(listener.localAddr());
    Socket server = listener.accept();
    server.timeout(0);
    client << "a";
    EXPECT_EQ(received(server), "timed out");
    client << "b";
    server.timeout(30);
    ASSERT_TRUE(server.readable());
    std::array<unsigned char, 9> bytes;
    EXPECT_EQ(server.impl()->receive(bytes.data(), bytes.size(), Clock::time_point::min()), 2);
    client << "c";
    EXPECT_EQ(server.impl()->receive(bytes.data(), bytes.size(), Clock::time_point::min()), -1);
}

TEST(Socket, AcceptThatFailsLeavesNoDescriptor) {
    Socket listener = stream();  // does not listen
    SocketImpl connection(SOCK_STREAM, false, true, AF_INET);
    EXPECT_EQ(numberOf([&] { listener.impl()->accept(connection); }), EINVAL);
    EXPECT_EQ(connection.descriptor(), 0);
}

TEST(Socket, AcceptGivesTheModeThatIsAskedFor) {
    Socket listener = stream();
    listener.bind(loopback(), true);
    listener.listen(1);
    for (bool const blocked : {true, false}) {
        Socket client = stream();
        client.connect(listener.localAddr());
        Socket const connection(new SocketImpl(SOCK_STREAM, false, false, AF_INET), false);
        listener.impl()->accept(*connection.impl(), blocked);
        EXPECT_EQ(blocking(connection), blocked);
        connection.impl()->timeout(blocked ? -1 : 0);  // which is its mode, so nothing is changed
        Prepared const unused("fcntl", -1, EIO);
        unsigned char byte = 0;
        client << "x";
        EXPECT_EQ(connection.impl()->receive(&byte, 1), 1);
        EXPECT_EQ(unused.left(), 1);
    }
}

TEST(Socket, KnowsWhereItWasConnectedFromWhenItIsClosed) {
    Pair pair;
    unsigned int const port = pair.server.remoteAddr().asINET().port();
    EXPECT_NE(port, 0U);
    pair.client.close();
    EXPECT_EQ(pair.client.localAddr().asINET().port(), port);
}

TEST(Socket, SetsItsModeByTheTimeoutAndOnlyWhenItMust) {
    Pair pair;
    pair.client << "xyz";
    pair.server.timeout(5);
    EXPECT_EQ(received(pair.server, 1), "x");
    EXPECT_FALSE(blocking(pair.server));
    {
        Prepared const unused("fcntl", -1, EIO);
        EXPECT_EQ(received(pair.server, 1), "y");
        EXPECT_EQ(unused.left(), 1);
    }
    pair.server.timeout(-1);
    EXPECT_EQ(received(pair.server, 1), "z");
    EXPECT_TRUE(blocking(pair.server));
    pair.server.setBlocked(false);
    EXPECT_FALSE(blocking(pair.server));
    pair.server << "back";
    EXPECT_TRUE(blocking(pair.server));
}

TEST(Socket, ReportsAModeThatCannotBeSet) {
    Pair pair;
    pair.client.timeout(0);
    unsigned char byte = 0;
    for (int const skip : {0, 1}) {
        Prepared const prepared("fcntl", -1, EIO, 1, skip);
        EXPECT_EQ(failureOf([&] { pair.client.receive(&byte, 1); }),
                  "SocketException( 5 ) , Socket \"Input/output error\"");
    }
}

TEST(Socket, SendsAllOfALargeText) {
    Pair pair;
    std::string text;
    for (int i = 0; text.size() < 3'000'000; ++i) text += std::to_string(i) + ",";
    for (int const timeout : {-1, 5}) {
        pair.client.timeout(timeout);
        std::string got;
        std::thread reader([&] {
            while (got.size() < text.size()) got += received(pair.server, 65536);
        });
        EXPECT_EQ(pair.client.send(raw(text.c_str()), static_cast<unsigned int>(text.size())),
                  static_cast<ssize_t>(text.size()));
        reader.join();
        EXPECT_TRUE(got == text) << timeout;
    }
}

TEST(Socket, SendStopsWhenTheWaitForRoomExpires) {
    Pair pair;
    pair.client.timeout(0);
    std::string const text(20'000'000, 'x');
    ssize_t const sent = pair.client.send(raw(text.c_str()), static_cast<unsigned int>(text.size()));
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, static_cast<ssize_t>(text.size()));
    EXPECT_EQ(pair.client.send(raw("y"), 1), 0);
    pair.client << text << Buffer("z", 1, false);  // a short send is not a failure
}

TEST(Socket, SendOfNothingIsNothing) {
    Pair pair;
    EXPECT_EQ(pair.client.send(nullptr, 0), 0);
    EXPECT_EQ(numberOf([&] { pair.client.send(nullptr, 1); }), EFAULT);
}

TEST(Socket, SendCountsWhatIsNotPermittedAsSent) {
    Pair pair;
    Prepared const prepared("send", -1, EPERM);
    EXPECT_EQ(pair.client.send(raw("12345"), 5), 5);
    EXPECT_EQ(prepared.left(), 0);
}

TEST(Socket, SendTriesAgainAfterASignal) {
    Pair pair;
    {
        Prepared const prepared("send", -1, EINTR, 3);
        EXPECT_EQ(pair.client.send(raw("12345"), 5), 5);
    }
    EXPECT_EQ(received(pair.server), "12345");
}

TEST(Socket, SendPausesWhenReadySocketsAreNot) {
    Pair pair;
    auto const start = Clock::now();
    Prepared const prepared("send", -1, EAGAIN, 2);
    EXPECT_EQ(pair.client.send(raw("12345"), 5), 5);
    EXPECT_GE(Clock::now() - start, 100ms);
    EXPECT_EQ(received(pair.server), "12345");
}

TEST(Socket, SendToAPeerThatHasGoneFailsWithoutASignal) {
    Pair pair;
    std::signal(SIGPIPE, SIG_DFL);  // would end the program
    pair.server.close();
    int error = 0;
    while (error == 0) error = numberOf([&] { pair.client << "into the void"; });
    EXPECT_TRUE(error == EPIPE || error == ECONNRESET) << error;
}

TEST(Socket, ReceivesTheEndOfTheStreamAsZero) {
    Pair pair;
    pair.client << "last";
    EXPECT_EQ(pair.client.shutdown(), 0);
    EXPECT_EQ(received(pair.server, 2), "la");
    EXPECT_EQ(received(pair.server, 10), "st");
    EXPECT_EQ(received(pair.server), "");
    EXPECT_TRUE(pair.server.readable());
    pair.server << "still open this way";
    EXPECT_EQ(received(pair.client), "still open this way");
    EXPECT_EQ(stream().shutdown(), -1);  // not connected
}

TEST(Socket, ReceiveFailsWhenItIsToldTwiceOfBytesThatAreNotThere) {
    Pair pair;
    pair.server.timeout(30);
    pair.client << "x";  // so the system says every time that there is something
    unsigned char byte = 0;
    {
        Prepared const prepared("recv", -1, EAGAIN, 3);
        EXPECT_EQ(numberOf([&] { pair.server.receive(&byte, 1); }), EAGAIN);
        EXPECT_EQ(prepared.left(), 0);
    }
    Prepared const prepared("recv", -1, EAGAIN, 2);
    EXPECT_EQ(pair.server.receive(&byte, 1), 1) << "once may be";
    EXPECT_EQ(prepared.left(), 0);
}

// With an error queue that nobody reads, the system says for ever that there is something.
TEST(Socket, ReceiveDoesNotSpinOnAnErrorQueue) {
    Socket nobody(Socket::Datagram, false, true, AF_INET);
    nobody.bind(loopback(), true);
    Socket socket(Socket::Datagram, false, true, AF_INET);
    int const on = 1;
    socket.setOption(IP_RECVERR, &on, sizeof on, IPPROTO_IP);
    socket.timeout(30);
    socket.connect(nobody.localAddr());
    nobody.close();
    socket << "x";
    unsigned char byte = 0;
    EXPECT_EQ(numberOf([&] { socket.receive(&byte, 1); }), ECONNREFUSED);
    EXPECT_EQ(numberOf([&] { socket.receive(&byte, 1); }), EAGAIN);
}

TEST(Socket, ReceiveGivesUpAfterTheTimeout) {
    Pair pair;
    unsigned char byte = 0;
    for (int const seconds : {0, 1}) {
        pair.server.timeout(seconds);
        auto const start = Clock::now();
        errno = 0;
        EXPECT_EQ(pair.server.receive(&byte, 1), -1);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(990 * seconds));
        EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(990 * seconds + 5000));
    }
    EXPECT_EQ(pair.server.receive(&byte, 0), -1);
}

TEST(Socket, ReceiveKeepsOneDeadlineThroughSignals) {
    Interruptions::install();
    Pair pair;
    pair.server.timeout(1);
    auto const start = Clock::now();
    {
        Interruptions const signals(::pthread_self());
        unsigned char byte = 0;
        errno = 0;
        EXPECT_EQ(pair.server.receive(&byte, 1), -1);
        EXPECT_EQ(errno, EAGAIN);  // not EINTR, which the last signal left there
    }
    EXPECT_GE(Clock::now() - start, 990ms);
    EXPECT_LT(Clock::now() - start, 8s);
}

TEST(Socket, ReceiveWaitsForAMomentThatTheCallerNames) {
    Pair pair;
    unsigned char byte = 0;
    auto const start = Clock::now();
    EXPECT_EQ(pair.server.receive(&byte, 1, start + 200ms), -1);
    EXPECT_GE(Clock::now() - start, 200ms);
    EXPECT_EQ(pair.server.receive(&byte, 1, start), -1);
    pair.client << "ab";
    EXPECT_TRUE(pair.server.readable());
    EXPECT_EQ(pair.server.receive(&byte, 1, start), 1);
    EXPECT_EQ(pair.server.receive(&byte, 1, Clock::time_point::max()), 1);
    EXPECT_EQ(byte, 'b');
    EXPECT_TRUE(blocking(pair.server));
}

TEST(Socket, ReceiveTriesAgainAfterASignal) {
    Pair pair;
    pair.client << "x";
    Prepared const prepared("recv", -1, EINTR, 3);
    EXPECT_EQ(received(pair.server), "x");
    EXPECT_EQ(prepared.left(), 0);
}

TEST(Socket, ReceiveReportsAConnectionThatBroke) {
    Pair pair;
    pair.server.linger(0);  // closes with a reset
    pair.server.close();
    EXPECT_TRUE(pair.client.readable());
    EXPECT_TRUE(pair.client.writeable());
    EXPECT_EQ(failureOf([&] { received(pair.client); }),
              "SocketException( 104 ) , Socket \"Connection reset by peer\"");
}

TEST(Socket, ReceivesIntoABufferUpToItsSize) {
    Pair pair;
    Buffer buffer(4, 0);
    pair.client << "abcdef";
    EXPECT_TRUE(pair.server.readable());
    EXPECT_EQ(pair.server.receive(buffer), 4);
    EXPECT_EQ(buffer, Buffer("abcd", 4, false));
    pair.server >> buffer;
    EXPECT_EQ(buffer.length(), 2U);
    EXPECT_EQ(buffer.size(), 4U);
    EXPECT_EQ(buffer.at(1), 'f');
    pair.server.timeout(0);
    EXPECT_EQ(pair.server.receive(buffer), -1);
    EXPECT_EQ(buffer.length(), 0U);
}

TEST(Socket, LeavesTheBytesOfAProtectedBuffersCopiesAlone) {
    Pair pair;
    pair.client << "new\nline\n";
    Buffer kept("old bytes", 9, false);
    kept.protect();
    Buffer buffer(kept);
    EXPECT_EQ(pair.server.readline(buffer), 4);
    EXPECT_EQ(buffer, Buffer("new\n", 4, false));
    Buffer second(kept);
    EXPECT_EQ(pair.server.receive(second), 5);
    EXPECT_EQ(second, Buffer("line\n", 5, false));
    EXPECT_EQ(kept, Buffer("old bytes", 9, false));
}

TEST(Socket, StreamOperatorsSendEveryKindOfText) {
    Pair pair;
    Buffer const bytes("\0buffer", 7, false);
    pair.client << std::string("s\0", 2) << bytes << raw("unsigned") << "signed"
                << static_cast<char const*>(nullptr) << static_cast<unsigned char const*>(nullptr);
    pair.client.shutdown();
    std::string all;
    for (std::string piece = received(pair.server); !piece.empty(); piece = received(pair.server))
        all += piece;
    EXPECT_EQ(all, std::string("s\0\0bufferunsignedsigned", 23));
}

TEST(Socket, ReadsLinesWithTheirNewline) {
    Pair pair;
    std::string const longLine(2000, 'l');
    pair.client << "one\n\ntwo\r\n" << longLine << "\nrest";
    pair.client.shutdown();
    EXPECT_EQ(line(pair.server, 100), "one\n");
    EXPECT_EQ(line(pair.server, 100), "\n");
    EXPECT_EQ(line(pair.server, 1), "t");
    EXPECT_EQ(line(pair.server, 2), "wo");
    EXPECT_EQ(line(pair.server, 0), "");
    EXPECT_EQ(line(pair.server, 100), "\r\n");
    EXPECT_EQ(line(pair.server, 3000), longLine + "\n");
    EXPECT_EQ(line(pair.server, 100), "rest");  // the end of the stream ends the line
    EXPECT_EQ(line(pair.server, 100), "");
}

TEST(Socket, ALineThatIsAsLongAsItMayBeWaitsForNothingMore) {
    Pair pair;
    pair.client << "abc";
    EXPECT_TRUE(pair.server.readable());
    pair.server.timeout(0);
    EXPECT_EQ(line(pair.server, 0), "");
    EXPECT_EQ(line(pair.server, 1), "a");
    EXPECT_EQ(line(pair.server, 2), "bc");
    EXPECT_EQ(line(pair.server, 0), "");
}

TEST(Socket, ALineThatDoesNotEndInTimeIsNone) {
    Pair pair;
    pair.client << "no newline";
    EXPECT_TRUE(pair.server.readable());
    pair.server.timeout(0);
    Buffer buffer(100, 0);
    EXPECT_EQ(pair.server.readline(buffer), -1);
    EXPECT_EQ(std::string(buffer.c_str()), "no newline");  // what came is not lost
    EXPECT_EQ(line(pair.server, 100), "timed out");
}

TEST(Socket, ReadsALineIntoABufferUpToItsSize) {
    Pair pair;
    pair.client << "abcdef\n";
    EXPECT_TRUE(pair.server.readable());
    Buffer buffer(4, 0);
    EXPECT_EQ(pair.server.readline(buffer), 4);
    EXPECT_EQ(buffer, Buffer("abcd", 4, false));
    EXPECT_EQ(pair.server.readline(buffer), 3);
    EXPECT_EQ(buffer, Buffer("ef\n", 3, false));
}

TEST(Socket, ReadsALineFromADatagramByteByByte) {
    Socket receiver(Socket::Datagram, false, true, AF_INET);
    receiver.bind(loopback(), true);
    Socket sender(Socket::Datagram, false, true, AF_INET);
    sender.connect(receiver.localAddr());
    sender << "first"
           << "second"
           << "\n";
    EXPECT_EQ(line(receiver, 100),
              "fs\n");  // the rest of each datagram goes, as a receive of one byte has it
}

TEST(Socket, SynchronisedLinesAreNotTornApart) {
    Pair pair(loopback(), AF_INET, true);
    constexpr int lines = 400;
    std::thread writer([&] {
        for (int i = 0; i < lines; ++i)
            pair.client << std::string(static_cast<std::size_t>(i % 40), 'x') + "y\n";
        pair.client.shutdown();
    });
    std::atomic<int> whole{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&] {
            std::array<unsigned char, 100> bytes{};
            for (ssize_t count = 0; (count = pair.server.readline(bytes.data(), bytes.size())) > 0;) {
                std::string const text(bytes.begin(), bytes.begin() + count);
                if (text == std::string(text.size() - 2, 'x') + "y\n") ++whole;
            }
        });
    writer.join();
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(whole, lines);
}

TEST(Socket, SynchronisedSendsAreNotMixed) {
    Pair pair(loopback(), AF_INET, true);
    EXPECT_TRUE(pair.server.impl()->synchronised());
    constexpr std::size_t size = 300'000;
    std::vector<std::thread> writers;
    for (char const c : {'a', 'b', 'c'})
        writers.emplace_back([&pair, c] { pair.client << std::string(size, c); });
    std::string all;
    while (all.size() < 3 * size) all += received(pair.server, 65536);
    for (auto& writer : writers) writer.join();
    all.erase(std::unique(all.begin(), all.end()), all.end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, "abc");
}

TEST(Socket, DataWaitingDoesNotWait) {
    Pair pair;
    EXPECT_FALSE(pair.server.dataWaiting());
    pair.client << "x";
    EXPECT_TRUE(pair.server.readable());
    EXPECT_TRUE(pair.server.dataWaiting());
}

TEST(Socket, ReadableAndWriteableWaitForTheTimeout) {
    Pair pair;
    pair.server.timeout(0);
    EXPECT_FALSE(pair.server.readable());
    EXPECT_TRUE(pair.server.writeable());
    pair.client.timeout(0);
    pair.client << std::string(20'000'000, 'x');
    EXPECT_FALSE(pair.client.writeable());
    pair.client.close();
    EXPECT_TRUE(pair.server.readable());
}

TEST(Socket, ClosedShowsDescriptorZeroAndLeavesThatAlone) {
    std::size_t const before = openDescriptors();
    Pair pair;
    Socket copy(pair.client);
    pair.client.close();
    EXPECT_EQ(copy.descriptor(), 0);
    EXPECT_EQ(received(pair.server), "");
    unsigned char byte = 0;
    Buffer buffer;
    std::vector<std::pair<char const*, std::function<void()>>> const operations{
        {"connect", [&] { copy.connect(loopback(1)); }},
        {"bind", [&] { copy.bind(loopback(), true); }},
        {"listen", [&] { copy.listen(1); }},
        {"accept", [&] { copy.accept(); }},
        {"send", [&] { copy.send(&byte, 1); }},
        {"receive", [&] { copy.receive(&byte, 1); }},
        {"receive until", [&] { copy.receive(&byte, 1, Clock::now()); }},
        {"readline", [&] { copy.readline(&byte, 1); }},
        {"readable", [&] { (void)copy.readable(); }},
        {"writeable", [&] { (void)copy.writeable(); }},
        {"dataWaiting", [&] { (void)copy.dataWaiting(); }},
        {"setBlocked", [&] { copy.setBlocked(true); }},
        {"linger", [&] { copy.linger(1); }},
        {"socketError", [&] { (void)copy.socketError(); }},
    };
    for (auto const& [name, operation] : operations)
        EXPECT_EQ(failureOf(operation), "SocketException( 9 ) , Socket \"Bad file descriptor\"") << name;
    EXPECT_EQ(copy.shutdown(), -1);
    EXPECT_EQ(errno, EBADF);
    copy.close();
    EXPECT_NE(::fcntl(0, F_GETFD), -1);
    EXPECT_EQ(openDescriptors(), before + 2);
}

TEST(Socket, MayHaveDescriptorZero) {
    int const kept = ::dup(0);
    ::close(0);
    {
        Socket socket = stream();
        EXPECT_EQ(socket.descriptor(), 0);
        socket.bind(loopback(), true);
        EXPECT_FALSE(socket.localAddr().isNull());
    }
    EXPECT_EQ(::fcntl(0, F_GETFD), -1);  // closed with the socket
    EXPECT_EQ(::dup2(kept, 0), 0);
    ::close(kept);
}

TEST(Socket, OptionsGoToTheSystemInThisOrder) {
    Socket socket = stream();
    int const on = 1;
    socket.setOption(TCP_NODELAY, &on, sizeof on, IPPROTO_TCP);
    int value = 0;
    EXPECT_EQ(socket.getOption(TCP_NODELAY, &value, sizeof value, IPPROTO_TCP), sizeof value);
    EXPECT_NE(value, 0);
    EXPECT_EQ(numberOf([&] { socket.setOption(9999, &on, sizeof on, SOL_SOCKET); }), ENOPROTOOPT);
    EXPECT_EQ(numberOf([&] { (void)socket.getOption(9999, &value, sizeof value, SOL_SOCKET); }), ENOPROTOOPT);

    socket.linger(7);
    ::linger seconds{};
    socket.getOption(SO_LINGER, &seconds, sizeof seconds, SOL_SOCKET);
    EXPECT_NE(seconds.l_onoff, 0);
    EXPECT_EQ(seconds.l_linger, 7);
    socket.reuse(true);
    socket.getOption(SO_REUSEADDR, &value, sizeof value, SOL_SOCKET);
    EXPECT_NE(value, 0);
    EXPECT_EQ(socket.socketError(), 0);
}

TEST(Socket, SocketErrorGivesThePendingErrorOnce) {
    Pair pair;
    pair.server.linger(0);
    pair.server.close();
    EXPECT_TRUE(pair.client.readable());
    EXPECT_EQ(pair.client.socketError(), ECONNRESET);
    EXPECT_EQ(pair.client.socketError(), 0);
}

namespace {

struct Family {
    char const* name;
    int domain;
};
constexpr Family families[] = {{"INET", AF_INET}, {"INET6", AF_INET6}, {"UNIX", AF_UNIX}};

void PrintTo(Family const& family, std::ostream* out) {
    *out << family.name;
}

/// What every kind of address must be able to do.
class SocketOver : public testing::TestWithParam<Family> {
protected:
    /// Where a socket of the family can be bound.
    SocketAddress place(char const* name = "socket") const {
        if (GetParam().domain == AF_UNIX) return SocketAddress(m_directory.file(name));
        return SocketAddress(IPAddress(GetParam().domain == AF_INET ? "127.0.0.1" : "::1"), 0);
    }
    Pair pair() const { return Pair(place(), GetParam().domain); }

private:
    TemporaryDirectory m_directory;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Families, SocketOver, testing::ValuesIn(families),
                         [](auto const& each) { return std::string(each.param.name); });

TEST_P(SocketOver, ConnectsAndTalksBothWays) {
    Pair pair = this->pair();
    pair.client << std::string("to the server");
    EXPECT_EQ(received(pair.server), "to the server");
    pair.server << "and back";
    EXPECT_EQ(received(pair.client), "and back");
    EXPECT_EQ(pair.client.remoteAddr().size(), pair.listener.localAddr().size());
    EXPECT_EQ(pair.client.localAddr().isUNIX(), GetParam().domain == AF_UNIX);
    EXPECT_EQ(pair.server.remoteAddr().isUNIX(), GetParam().domain == AF_UNIX);
    EXPECT_TRUE(pair.server.localAddr().isNull());
    if (GetParam().domain != AF_UNIX) {
        EXPECT_EQ(pair.client.localAddr().asINET().address(), place().asINET().address());
        EXPECT_EQ(pair.client.localAddr().asINET().port(), pair.server.remoteAddr().asINET().port());
    }
}

TEST_P(SocketOver, CarriesALargeTextWithAndWithoutATimeout) {
    Pair pair = this->pair();
    std::string text;
    for (int i = 0; text.size() < 1'000'000; ++i) text += std::to_string(i) + ",";
    for (int const timeout : {-1, 5}) {
        pair.client.timeout(timeout);
        pair.server.timeout(timeout);
        std::thread writer([&] { pair.client << text; });
        std::string got;
        while (got.size() < text.size()) {
            std::string const piece = received(pair.server, 65536);
            ASSERT_NE(piece, "timed out");
            got += piece;
        }
        writer.join();
        EXPECT_TRUE(got == text) << timeout;
    }
}

TEST_P(SocketOver, ReadsLinesUpToTheEndOfTheStream) {
    Pair pair = this->pair();
    pair.client << "one\ntwo\n"
                << "three";
    pair.client.shutdown();
    EXPECT_EQ(line(pair.server, 100), "one\n");
    EXPECT_EQ(line(pair.server, 1), "t");
    EXPECT_EQ(line(pair.server, 100), "wo\n");
    EXPECT_EQ(line(pair.server, 100), "three");
    EXPECT_EQ(line(pair.server, 100), "");
    EXPECT_EQ(received(pair.server), "");
}

TEST_P(SocketOver, GivesUpAfterTheTimeout) {
    Pair pair = this->pair();
    pair.server.timeout(0);
    unsigned char byte = 0;
    errno = 0;
    EXPECT_EQ(pair.server.receive(&byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    pair.client.timeout(0);
    std::string const text(20'000'000, 'x');
    ssize_t const sent = pair.client.send(raw(text.c_str()), static_cast<unsigned int>(text.size()));
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, static_cast<ssize_t>(text.size()));
    EXPECT_EQ(received(pair.server, 1), "x");
}

TEST_P(SocketOver, SendToAPeerThatHasGoneFailsWithoutASignal) {
    Pair pair = this->pair();
    std::signal(SIGPIPE, SIG_DFL);  // would end the program
    pair.server.close();
    int error = 0;
    while (error == 0) error = numberOf([&] { pair.client << "into the void"; });
    EXPECT_TRUE(error == EPIPE || error == ECONNRESET) << error;
}

TEST_P(SocketOver, ConnectWhereNobodyListensFails) {
    for (int const timeout : {-1, 5}) {
        Socket bound = stream(GetParam().domain);
        bound.bind(place(std::to_string(timeout).c_str()), true);
        Socket socket = stream(GetParam().domain);
        socket.timeout(timeout);
        EXPECT_EQ(numberOf([&] { socket.connect(bound.localAddr()); }), ECONNREFUSED) << timeout;
        EXPECT_TRUE(socket.remoteAddr().isNull());
    }
}

TEST_P(SocketOver, KeepsTheBordersOfDatagrams) {
    Socket receiver(Socket::Datagram, false, true, GetParam().domain);
    receiver.bind(place(), true);
    Socket sender(Socket::Datagram, false, true, GetParam().domain);
    sender.connect(receiver.localAddr());
    sender << "first"
           << "second";
    EXPECT_EQ(received(receiver), "first");
    EXPECT_EQ(received(receiver, 3), "sec");
    receiver.timeout(0);
    EXPECT_EQ(received(receiver), "timed out");
}

TEST(SocketPoll, GoesOnAfterASignal) {
    Pair pair;
    pair.client << "x";
    Prepared const prepared("poll", -1, EINTR, 5);
    EXPECT_TRUE(pair.server.readable());
    EXPECT_EQ(prepared.left(), 0);
}

TEST(SocketPoll, AFailureHasATitleWithABlankAtItsEnd) {
    Socket const socket = stream();
    Prepared const prepared("poll", -1, ENOMEM);
    try {
        (void)socket.readable();
        FAIL() << "nothing thrown";
    } catch (Exception const& e) {
        EXPECT_EQ(e.asString(), "SocketImpl::SocketPoll::s_poll ( 4 ) , Socket \"Cannot allocate memory\"");
        EXPECT_EQ(e.title(), "SocketImpl::SocketPoll::s_poll ");
        EXPECT_EQ(e.intParameter(), ENOMEM);
    }
}

TEST(SocketPoll, MoreThanOneReadyDescriptorHasATitleWithout) {
    Socket const socket = stream();
    for (int const result : {2, 3, -2}) {
        Prepared const prepared("poll", result, 0);
        try {
            (void)socket.writeable();
            FAIL() << "nothing thrown";
        } catch (Exception const& e) {
            EXPECT_EQ(e.title(), "SocketImpl::SocketPoll::s_poll");
            EXPECT_EQ(e.asString(),
                      "SocketImpl::SocketPoll::s_poll( 4 ) , Socket \"Unhandled return value\"");
            EXPECT_EQ(e.intParameter(), 0);
        }
    }
}

TEST(SocketPoll, WaitsForOneDescriptor) {
    Pair pair;
    SocketImpl::SocketPoll poll(pair.server.descriptor());
    EXPECT_FALSE(poll.readable(0));
    EXPECT_TRUE(poll.writeable(0));
    EXPECT_FALSE(poll.readable(20));  // what an earlier wait found is forgotten
    pair.client << "x";
    EXPECT_TRUE(poll.readable(-1));
}
