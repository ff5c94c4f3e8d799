#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "include2/QuillIPC"
#include "include2/quillmark.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace Quillmark::IPC;
using namespace std::chrono_literals;
using QuillmarkTest::failureOf;
using QuillmarkTest::LogRecorder;
using QuillmarkTest::openDescriptors;
using QuillmarkTest::slotOf;

extern "C" {
ipc_connection* ipcConnectFromC(unsigned int port);
int ipcWriteFromC(ipc_connection* connection, unsigned int type, char const* payload, unsigned int length);
int ipcReadFromC(ipc_connection* connection, unsigned int room, unsigned int* type, unsigned int* length,
                 char* payload);
int ipcPingFromC(unsigned int port, char const* payload, unsigned int length, char* answer);
int ipcNullsFromC(ipc_connection* connection);
int ipcLengthThatWrapsFromC(ipc_connection* connection, int reading);
}

namespace {

std::atomic<unsigned int> defaultPortLeadsTo{0};
thread_local int sendCalls = 0;
thread_local bool starving = false;  // no memory for this thread any more

}  // namespace

void* operator new(std::size_t size) {
    using New = void* (*)(std::size_t);
    static New const make = reinterpret_cast<New>(::dlsym(RTLD_NEXT, "_Znwm"));
    if (starving) throw std::bad_alloc();
    return make(size);
}

// These stand in the place of the C library's for this whole program: the default port may be somebody's, and
// a message that goes out in two pieces looks the same from the other end.
extern "C" __attribute__((visibility("default"))) ssize_t send(int fd, void const* bytes, std::size_t count,
                                                               int flags) {
    static auto* const system =
        reinterpret_cast<ssize_t (*)(int, void const*, std::size_t, int)>(::dlsym(RTLD_NEXT, "send"));
    ++sendCalls;
    return system(fd, bytes, count, flags);
}

extern "C" __attribute__((visibility("default"))) int connect(int fd, sockaddr const* address,
                                                              socklen_t length) {
    static auto* const system =
        reinterpret_cast<int (*)(int, sockaddr const*, socklen_t)>(::dlsym(RTLD_NEXT, "connect"));
    sockaddr_in to{};
    std::memcpy(&to, address, std::min<std::size_t>(length, sizeof to));
    bool const isDefault = length == sizeof to && to.sin_family == AF_INET && to.sin_port == htons(29001) &&
                           to.sin_addr.s_addr == htonl(INADDR_LOOPBACK);
    if (unsigned int const port = defaultPortLeadsTo; isDefault && port != 0) {
        to.sin_port = htons(static_cast<in_port_t>(port));
        return system(fd, reinterpret_cast<sockaddr*>(&to), length);
    }
    return system(fd, address, length);
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto longEnough = 30s;  // for what must happen, however busy the machine is

unsigned char const* raw(std::string const& text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}

Buffer bufferOf(std::string const& text) {
    return Buffer(text.data(), static_cast<unsigned int>(text.size()), false);
}

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

/// All bytes that a Pdu holds.
std::string bytesOf(Pdu const& pdu) {
    return {reinterpret_cast<char const*>(pdu()), pdu.length()};
}

std::uint32_t lengthField(Pdu const& pdu) {
    std::uint32_t value = 0;
    std::memcpy(&value, pdu() + 4, sizeof value);
    return value;
}

std::string numberBytes(std::uint32_t number) {
    return {reinterpret_cast<char const*>(&number), sizeof number};
}

std::string messageBytes(std::uint32_t type, std::string const& payload) {
    return numberBytes(type) + numberBytes(static_cast<std::uint32_t>(payload.size())) + payload;
}

/// A port on the loopback where nobody listens.
unsigned int freePort() {
    Socket socket(Socket::Stream, false, true, AF_INET);
    socket.bind(SocketAddress(IPAddress("127.0.0.1"), 0), true);
    return socket.localAddr().asINET().port();
}

/// Memory of a caller with room for @p room payload bytes.
struct Allocation {
    explicit Allocation(std::uint32_t type, std::uint32_t room, char fill = '.')
        : bytes(8 + room, static_cast<unsigned char>(fill)) {
        pdu()->type = type;
        pdu()->length = room;
    }
    ipc_pdu* pdu() { return reinterpret_cast<ipc_pdu*>(bytes.data()); }
    std::vector<unsigned char> bytes;
};

/// Both ends of one connection.
struct Ends {
    Ends() {
        SocketIPC listener;
        listener.listen(SocketAddress(IPAddress("127.0.0.1"), 0));
        client.connect(listener.socket().localAddr());
        server = listener.accept();
    }
    void send(std::string const& bytes) { server.socket() << bytes; }
    void sendLast(std::string const& bytes) {
        send(bytes);
        server.socket().shutdown();
    }

    SocketIPC client;
    SocketIPC server;
};

std::string caught(std::string const& exception) {
    return "300006d void Quillmark::IPC::Dispatcher::dispatcher()|" + exception;
}

std::string noHandler(unsigned int type) {
    return "300006e " + std::to_string(type);
}

std::string const foreignException = "300006f  ";

/// A place where threads wait until a test lets them go on.
class Gate {
public:
    void pass() {
        std::unique_lock lock(m_lock);
        m_peak = std::max(m_peak, ++m_inside);
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
        --m_inside;
    }
    bool waitFor(int inside, std::chrono::milliseconds limit = longEnough) {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, limit, [&] { return m_inside >= inside; });
    }
    void open() {
        std::lock_guard const lock(m_lock);
        m_open = true;
        m_changed.notify_all();
    }
    int peak() {
        std::lock_guard const lock(m_lock);
        return m_peak;
    }

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_open = false;
    int m_inside = 0;
    int m_peak = 0;
};

/// A handler that does what a test says.
class TestHandler : public HandlerImpl {
public:
    using Work = std::function<int(SocketIPC&, Pdu const&)>;
    TestHandler(unsigned int type, bool threadRequired, Work work) : m_work(std::move(work)) {
        this->type(type);
        this->threadRequired(threadRequired);
    }
    int task(SocketIPC& connection, Pdu const& request) const override { return m_work(connection, request); }

private:
    Work m_work;
};

Handler handlerOf(unsigned int type, bool threadRequired, TestHandler::Work work) {
    return Handler(new TestHandler(type, threadRequired, std::move(work)));
}

/// One request without an answer.
SocketIPC asked(unsigned int port, Pdu const& request) {
    SocketIPC connection;
    connection.connect(static_cast<int>(port));
    EXPECT_EQ(connection.send(request), static_cast<ssize_t>(request.length()));
    return connection;
}

/// What a dispatcher answers to one request: the bytes of a message, or why there is none.
std::string answerOf(SocketIPC& connection) {
    Pdu answer(0, 2048);
    ssize_t const result = connection.receive(answer);
    return result > 0 ? bytesOf(answer) : "result " + std::to_string(result);
}

std::string answerTo(unsigned int port, Pdu const& request) {
    SocketIPC connection = asked(port, request);
    return answerOf(connection);
}

/// With a dispatcher, of which a process has one.
class Served : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (s_dispatcher) return;  // the suites share it
        s_port = freePort();
        s_dispatcher = Dispatcher::instance(static_cast<int>(s_port));
        ASSERT_TRUE(s_dispatcher->waitUntilReady(30));
    }
    void SetUp() override { s_dispatcher->add(Handler(new HandlerPing)); }
    // After a ping the dispatcher is done with all that came before.
    void TearDown() override {
        EXPECT_EQ(answerTo(s_port, Pdu(1, bufferOf("the end"))), messageBytes(1, "the end"));
    }

    static unsigned int s_port;
    static Dispatcher* s_dispatcher;
    LogRecorder log;
};

unsigned int Served::s_port = 0;
Dispatcher* Served::s_dispatcher = nullptr;

using IpcDispatcher = Served;
using IpcThreads = Served;

/// A server that knows nothing of the library.
class PythonServer {
public:
    PythonServer() : m_process(::popen("exec python3 '" QUILLMARK_TEST_PROGRAMS "/ipc_server.py'", "r")) {
        if (!m_process || std::fscanf(m_process, "%u", &port) != 1) throw std::runtime_error("no server");
    }
    ~PythonServer() {
        EXPECT_EQ(answerTo(port, Pdu(105, 8)), messageBytes(105, ""));
        EXPECT_EQ(::pclose(m_process), 0);
    }
    PythonServer(PythonServer const&) = delete;
    PythonServer& operator=(PythonServer const&) = delete;

    SocketIPC asked(std::uint32_t type, std::uint32_t n) const {
        return ::asked(port, Pdu(type, bufferOf(numberBytes(n))));
    }

    unsigned int port = 0;

private:
    std::FILE* m_process;
};

std::string const pythonAnswer = messageBytes(7, "0123456789abc");

}  // namespace

TEST(Pdu, IsBornWithATypeAndNoPayload) {
    for (unsigned int const capacity : {8U, 9U, 1024U, 100'000U}) {
        Pdu const pdu(7, capacity);
        EXPECT_EQ(pdu.type(), 7U);
        EXPECT_EQ(bytesOf(pdu), messageBytes(7, "")) << capacity;
        EXPECT_EQ(pdu.data().length(), 0U);
    }
    EXPECT_EQ(Pdu(0xffffffff, 8).type(), 0xffffffff);
    EXPECT_TRUE(std::has_virtual_destructor_v<Pdu>);
}

TEST(Pdu, RefusesACapacityBelowItsHeader) {
    for (unsigned int const capacity : {0U, 1U, 7U})
        EXPECT_EQ(failureOf([&] { Pdu(7, capacity); }), "Pdu::Pdu( 4 ) , IPC:22,  \"Buffer is too small\"");
    for (unsigned int const capacity : {0x80000000U, 0xffffffffU})
        EXPECT_EQ(failureOf([&] { Pdu(7, capacity); }).substr(0, 20), "BufferException( 4 )") << capacity;
}

TEST(Pdu, CarriesAPayload) {
    for (std::string const& payload :
         {std::string(), std::string("x"), std::string("\0two", 4), std::string(5000, 'p')}) {
        Pdu const pdu(50, bufferOf(payload));
        EXPECT_EQ(bytesOf(pdu), messageBytes(50, payload));
        EXPECT_EQ(textOf(pdu.data()), payload);
        EXPECT_EQ(pdu.data().data(),
                  pdu() + 8 * (payload.empty() ? 0 : 1) + (payload.empty() ? pdu.data().data() - pdu() : 0));
    }
}

TEST(Pdu, GrowsWithWhatIsAppended) {
    Pdu pdu(9, 8);
    pdu.append(raw("ab"), 2);
    pdu.append(bufferOf("cd"));
    pdu << std::string("ef") << bufferOf("gh") << "ij";
    pdu.append(nullptr, 0);
    EXPECT_EQ(bytesOf(pdu), messageBytes(9, "abcdefghij"));
    pdu.append(pdu.data());  // its own bytes
    EXPECT_EQ(textOf(pdu.data()), "abcdefghijabcdefghij");
    std::string const large(100'000, 'l');
    pdu << large;
    EXPECT_EQ(bytesOf(pdu), messageBytes(9, "abcdefghijabcdefghij" + large));
}

TEST(Pdu, AFailedAppendChangesNothing) {
    Pdu pdu(9, bufferOf("abc"));
    EXPECT_EQ(failureOf([&] { pdu.append(nullptr, 4); }).substr(0, 20), "BufferException( 2 )");
    EXPECT_EQ(bytesOf(pdu), messageBytes(9, "abc"));
}

TEST(Pdu, CopiesAreIndependent) {
    Pdu original(9, bufferOf("abc"));
    Pdu copy(original);
    copy << "d";
    Pdu assigned(1, 8);
    assigned = original;
    original << std::string(10'000, 'x');
    EXPECT_EQ(bytesOf(copy), messageBytes(9, "abcd"));
    EXPECT_EQ(bytesOf(assigned), messageBytes(9, "abc"));
    assigned = *&assigned;
    EXPECT_EQ(bytesOf(assigned), messageBytes(9, "abc"));
    assigned << "e";
    EXPECT_EQ(bytesOf(assigned), messageBytes(9, "abce"));
}

TEST(Pdu, OverACallersMemoryWorksInPlace) {
    Allocation memory(12, 5, 'm');
    Pdu pdu(*memory.pdu());
    EXPECT_EQ(pdu(), memory.bytes.data());
    EXPECT_EQ(pdu.type(), 12U);
    EXPECT_EQ(pdu.length(), 13U);
    EXPECT_EQ(textOf(pdu.data()), "mmmmm");
    // It is full, and what is dropped is not counted.
    pdu << "more";
    EXPECT_EQ(bytesOf(pdu), messageBytes(12, "mmmmm"));
    EXPECT_EQ(memory.pdu()->length, 5U);
    Pdu copy(pdu);
    copy << "more";
    EXPECT_EQ(bytesOf(copy), messageBytes(12, "mmmmmmore"));
    EXPECT_EQ(memory.bytes.back(), 'm');
}

TEST(Pdu, OverALengthThatWrapsHoldsNothing) {
    for (std::uint32_t const length : {0xfffffff8U, 0xfffffffbU, 0xffffffffU}) {
        ipc_pdu memory{1, length};
        Pdu pdu(memory);
        EXPECT_LT(pdu.length(), 8U) << length;
        EXPECT_EQ(pdu.type(), 0U);
        EXPECT_EQ(pdu.data().length(), 0U);
        pdu << "dropped";
        EXPECT_EQ(memory.length, length);
        Pdu copy(pdu);
        copy << "dropped";
        EXPECT_EQ(copy.length(), 0U);
        Ends ends;
        EXPECT_EQ(failureOf([&] { ends.client.receive(pdu); }),
                  "SocketIPC::receive( 4 ) , IPC:214,  \"Buffer is too small\"");
        EXPECT_EQ(failureOf([&] { ends.client.send(pdu); }),
                  "SocketIPC::send( 4 ) , IPC \"Buffer is too small\"");
    }
}

TEST(PduIntValue, CarriesANumberInTheMachinesOrder) {
    for (int const value : {0, 1, -5, INT32_MAX, INT32_MIN}) {
        PduIntValue const pdu(value);
        EXPECT_EQ(pdu.type(), 3U);
        EXPECT_EQ(bytesOf(pdu), messageBytes(3, numberBytes(static_cast<std::uint32_t>(value))));
        EXPECT_EQ(pdu.value(), value);
        EXPECT_EQ(PduIntValue(pdu).value(), value);
    }
}

TEST(PduIntValue, RefusesAPayloadThatIsNotANumber) {
    std::string const refusal = "PduIntValue::value( 4 ) , IPC:152,  \"Buffer is too small\"";
    for (std::string const payload : {"", "123", "12345", "12345678"}) {
        Ends ends;
        ends.sendLast(messageBytes(3, payload));
        PduIntValue pdu(1);
        ends.client >> pdu;
        EXPECT_EQ(failureOf([&] { (void)pdu.value(); }), refusal) << payload;
    }
    PduIntValue grown(1);
    grown << "x";
    EXPECT_EQ(failureOf([&] { (void)grown.value(); }), refusal);
    Ends ends;
    ends.server << PduIntValue(-7);
    PduIntValue received(0);
    ends.client >> received;
    EXPECT_EQ(received.value(), -7);
}

TEST(SocketIPC, ConnectsWithItsTimesAndSendsWithoutDelay) {
    Ends ends;
    for (int i = 0; i < 3; ++i) ends.client << Pdu(5, 8);  // the first is never delayed
    EXPECT_EQ(ends.client.socket().type(), Socket::Stream);
    EXPECT_EQ(ends.client.socket().timeout(), 30'000);
    EXPECT_EQ(ends.server.socket().timeout(), -1);
    ::linger linger{};
    ends.client.socket().getOption(SO_LINGER, &linger, sizeof linger, SOL_SOCKET);
    EXPECT_NE(linger.l_onoff, 0);
    EXPECT_EQ(linger.l_linger, 30);
    SocketIPC const& constant = ends.server;
    for (Socket const* socket : {&std::as_const(ends.client).socket(), &constant.socket()}) {
        int noDelay = 0;
        socket->getOption(TCP_NODELAY, &noDelay, sizeof noDelay, IPPROTO_TCP);
        EXPECT_NE(noDelay, 0);
    }
}

TEST(SocketIPC, SendsAMessageInOnePiece) {
    Ends ends;
    sendCalls = 0;
    ends.client << Pdu(5, bufferOf("header and payload"));
    EXPECT_EQ(sendCalls, 1);
    EXPECT_EQ(answerOf(ends.server), messageBytes(5, "header and payload"));
}

TEST(SocketIPC, ListensOnTheLoopback) {
    SocketIPC listener;
    int const port = static_cast<int>(freePort());
    listener.listen(port);
    EXPECT_EQ(listener.socket().localAddr().asINET().address(), IPAddress("127.0.0.1"));
    int reuse = 0;
    listener.socket().getOption(SO_REUSEADDR, &reuse, sizeof reuse, SOL_SOCKET);
    EXPECT_NE(reuse, 0);
    int backlog = 0;  // of a listener the system shows it in tcp_info
    tcp_info info{};
    listener.socket().getOption(TCP_INFO, &info, sizeof info, IPPROTO_TCP);
    backlog = static_cast<int>(info.tcpi_sacked);
    EXPECT_EQ(backlog, 10);
    SocketIPC client;
    client.connect(port);
    SocketIPC server = listener.accept();
    server << Pdu(6, bufferOf("server speaks first"));
    EXPECT_EQ(answerOf(client), messageBytes(6, "server speaks first"));
}

TEST(SocketIPC, OtherFamiliesFailCleanly) {
    std::size_t const before = openDescriptors();
    for (SocketAddress const& address :
         {SocketAddress(IPAddress("::1"), 1), SocketAddress(std::string("/tmp/none"))}) {
        SocketIPC connection;
        EXPECT_EQ(failureOf([&] { connection.connect(address); }).substr(0, 16), "SocketException(");
        EXPECT_EQ(failureOf([&] { connection.listen(address); }).substr(0, 16), "SocketException(");
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(SocketIPC, SpeaksOverASocketOfThisHostAsWell) {
    QuillmarkTest::TemporaryDirectory const directory;
    SocketAddress const address(directory.file("socket"));
    auto const local = [] { return Socket(Socket::Stream, false, true, AF_UNIX); };
    SocketIPC listener;
    listener.socket() = local();
    listener.listen(address);
    SocketIPC client;
    client.socket() = local();
    client.connect(address);
    SocketIPC server = listener.accept();
    for (std::string const payload : {"first", "second", "third"}) {
        client << Pdu(7, bufferOf(payload));
        EXPECT_EQ(answerOf(server), messageBytes(7, payload));
    }
}

TEST(SocketIPC, CopiesShareTheConnection) {
    std::size_t const before = openDescriptors();
    {
        Ends ends;
        SocketIPC copy(ends.server);
        ends.server = SocketIPC();
        copy << Pdu(4, bufferOf("still there"));
        EXPECT_EQ(answerOf(ends.client), messageBytes(4, "still there"));
        copy = SocketIPC();
        EXPECT_EQ(answerOf(ends.client), "result 0");
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(SocketIPC, ReceivesAMessageWithoutPayload) {
    Ends ends;
    ends.send(messageBytes(5, ""));
    Pdu pdu(0, 8);
    EXPECT_EQ(ends.client.receive(pdu), 8);
    EXPECT_EQ(bytesOf(pdu), messageBytes(5, ""));
}

TEST(SocketIPC, ReceivesOneMessageAfterTheOther) {
    Ends ends;
    ends.sendLast(messageBytes(5, "first") + messageBytes(6, "") + messageBytes(7, "third"));
    Pdu pdu(0, 100);
    for (std::string const& expected :
         {messageBytes(5, "first"), messageBytes(6, ""), messageBytes(7, "third")}) {
        EXPECT_EQ(ends.client.receive(pdu), static_cast<ssize_t>(expected.size()));
        EXPECT_EQ(bytesOf(pdu), expected);
    }
    EXPECT_EQ(ends.client.receive(pdu), 0);
    EXPECT_EQ(bytesOf(pdu), messageBytes(7, "third"));  // nothing came, nothing changed
}

TEST(SocketIPC, FillsTheRoomAndDropsTheRest) {
    for (unsigned int const room : {8U, 9U, 12U, 1024U}) {
        for (std::size_t const size : {std::size_t{5000}, std::size_t{200'000}}) {
            Ends ends;
            std::string const payload(size, 'p');
            std::thread sender([&] { ends.sendLast(messageBytes(5, payload) + messageBytes(6, "next")); });
            Pdu pdu(0, room);
            EXPECT_EQ(ends.client.receive(pdu), room);
            EXPECT_EQ(bytesOf(pdu), messageBytes(5, payload).substr(0, room));
            EXPECT_EQ(lengthField(pdu), size);
            EXPECT_EQ(textOf(pdu.data()), payload.substr(0, room - 8));
            Pdu next(0, 100);
            ends.client >> next;
            EXPECT_EQ(bytesOf(next), messageBytes(6, "next")) << room << " " << size;
            sender.join();
        }
    }
}

TEST(SocketIPC, ReceivesIntoACallersMemory) {
    Ends ends;
    ends.send(messageBytes(5, "short") + messageBytes(6, "much too long"));
    Allocation memory(0, 10);
    Pdu pdu(*memory.pdu());
    EXPECT_EQ(ends.client.receive(pdu), 13);
    EXPECT_EQ(memory.pdu()->length, 5U);
    EXPECT_EQ(bytesOf(pdu), messageBytes(5, "short"));
    pdu << "56789dropped";  // fills the room that is left, and counts that
    EXPECT_EQ(bytesOf(pdu), messageBytes(5, "short56789"));
    EXPECT_EQ(ends.client.receive(pdu), 18);
    EXPECT_EQ(memory.pdu()->length, 13U);
    EXPECT_EQ(textOf(pdu.data()), "much too l");
    EXPECT_EQ(memory.bytes.size(), 18U);
}

TEST(SocketIPC, AMessageThatEndsEarlyIsNone) {
    std::string const whole = messageBytes(5, "0123456789");
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        Ends ends;
        ends.sendLast(whole.substr(0, cut));
        Pdu pdu(9, 100);
        EXPECT_EQ(ends.client.receive(pdu), 0) << cut;
        EXPECT_EQ(bytesOf(pdu), cut == 0 ? messageBytes(9, "") : whole.substr(0, cut));
        EXPECT_EQ(textOf(pdu.data()), cut < 8 ? "" : whole.substr(8, cut - 8));
        Ends again;
        again.sendLast(whole.substr(0, cut));
        EXPECT_EQ(failureOf([&] { again.client >> pdu; }), "nothing thrown");  // an end is no failure
    }
    Ends ends;
    ends.sendLast(messageBytes(5, std::string(5000, 'x')).substr(0, 3000));
    Pdu pdu(0, 1000);
    EXPECT_EQ(ends.client.receive(pdu), 0);  // in what is dropped
    EXPECT_EQ(pdu.length(), 1000U);
}

TEST(SocketIPC, AMessageThatDoesNotComeInTimeIsAFailure) {
    std::string const whole = messageBytes(5, "0123456789");
    for (std::size_t const cut : {std::size_t{0}, std::size_t{3}, std::size_t{8}, std::size_t{12}}) {
        Ends ends;
        ends.send(whole.substr(0, cut));
        Pdu pdu(9, 100);
        EXPECT_TRUE(cut == 0 || ends.client.socket().readable());
        ends.client.socket().timeout(0);
        errno = 0;
        EXPECT_EQ(ends.client.receive(pdu), -1) << cut;
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(failureOf([&] { ends.client >> pdu; }), "SocketIPC::receive( 4 ) , IPC:266, ");
    }
}

TEST(SocketIPC, WaitsForEverWithANegativeTimeout) {
    Ends ends;
    std::thread late([&] {
        std::this_thread::sleep_for(50ms);
        ends.client << Pdu(8, bufferOf("late"));
    });
    EXPECT_EQ(answerOf(ends.server), messageBytes(8, "late"));
    late.join();
}

TEST(SocketIPC, ALieAboutTheLengthAllocatesNothing) {
    Ends ends;
    ends.sendLast(numberBytes(5) + numberBytes(0xffffffff) + "only this");
    Pdu pdu(0, 100);
    EXPECT_EQ(ends.client.receive(pdu), 0);
    EXPECT_EQ(textOf(pdu.data()), "only this");
    EXPECT_EQ(textOf(Pdu(pdu).data()), "only this");
}

TEST(SocketIPC, UnderstandsAServerThatSplitsItsAnswersAtEveryByte) {
    PythonServer const server;
    for (std::uint32_t cut = 1; cut < pythonAnswer.size(); ++cut) {
        SocketIPC connection = server.asked(100, cut);
        EXPECT_EQ(answerOf(connection), pythonAnswer) << cut;
        EXPECT_EQ(answerOf(connection), "result 0") << cut;
    }
    for (std::uint32_t cut = 0; cut < pythonAnswer.size(); ++cut) {
        SocketIPC connection = server.asked(101, cut);
        EXPECT_EQ(answerOf(connection), "result 0") << cut;
    }
    SocketIPC bytewise = server.asked(104, 1);
    EXPECT_EQ(answerOf(bytewise), pythonAnswer);
    for (std::uint32_t const size : {0U, 1U, 2039U, 2040U, 2041U, 1'000'000U}) {
        SocketIPC connection = server.asked(102, size);
        EXPECT_EQ(answerOf(connection).size(), std::min(2048U, 8 + size)) << size;
        EXPECT_EQ(answerOf(connection), pythonAnswer) << size;
    }
    EXPECT_EQ(answerTo(server.port, Pdu(1, bufferOf("as it was"))), messageBytes(1, "as it was"));
}

TEST(SocketIPC, HasOneDeadlineForTheWholeMessage) {
    PythonServer const server;
    SocketIPC connection = server.asked(104, 400);  // 8 seconds for the whole message
    connection.socket().timeout(1);
    auto const start = Clock::now();
    EXPECT_EQ(answerOf(connection), "result -1");
    EXPECT_LT(Clock::now() - start, 6s);
}

TEST(Handler, ForwardsToItsImplementation) {
    EXPECT_EQ(slotOf(&HandlerImpl::task), 2U);
    int calls = 0;
    Handler const handler = handlerOf(77, true, [&](SocketIPC&, Pdu const& pdu) {
        ++calls;
        return static_cast<int>(pdu.type());
    });
    EXPECT_FALSE(handler.isNull());
    EXPECT_EQ(handler.type(), 77U);
    EXPECT_TRUE(handler.threadRequired());
    SocketIPC connection;
    EXPECT_EQ(handler.task(connection, Pdu(13, 8)), 13);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(std::has_virtual_destructor_v<Handler>);
}

TEST(Handler, HasType50AndNoThreadUnlessTold) {
    class Plain : public HandlerImpl {
        int task(SocketIPC&, Pdu const&) const override { return 0; }
    };
    Handler const plain(new Plain);
    EXPECT_EQ(plain.type(), 50U);
    EXPECT_FALSE(plain.threadRequired());
    Handler const ping(new HandlerPing);
    EXPECT_EQ(ping.type(), 1U);
    EXPECT_FALSE(ping.threadRequired());
}

TEST(Handler, IsOrderedByTypeAndNullComesFirst) {
    auto const nothing = [](SocketIPC&, Pdu const&) { return 0; };
    Handler const null;
    Handler const low = handlerOf(3, false, nothing);
    Handler const high = handlerOf(4, false, nothing);
    EXPECT_TRUE(low < high);
    EXPECT_FALSE(high < low);
    EXPECT_FALSE(low < handlerOf(3, true, nothing));
    EXPECT_TRUE(null < low);
    EXPECT_FALSE(low < null);
    EXPECT_FALSE(null < null);
}

TEST(Handler, NullRefusesWork) {
    Handler const null;
    SocketIPC connection;
    EXPECT_TRUE(null.isNull());
    for (auto const& operation :
         std::vector<std::function<void()>>{[&] { (void)null.type(); }, [&] { (void)null.threadRequired(); },
                                            [&] { null.task(connection, Pdu(1, 8)); }})
        EXPECT_EQ(failureOf(operation), "Handler( 1 ) , IPC");
}

TEST(Handler, PingSendsTheRequestBack) {
    Ends ends;
    EXPECT_EQ(HandlerPing().task(ends.server, Pdu(1, bufferOf("abc"))), 0);
    EXPECT_EQ(answerOf(ends.client), messageBytes(1, "abc"));
}

TEST_F(IpcDispatcher, IsOneForTheProcess) {
    EXPECT_EQ(Dispatcher::instance(1), s_dispatcher);
    EXPECT_EQ(Dispatcher::instance(SocketAddress()), s_dispatcher);
    EXPECT_TRUE(Dispatcher::s_ready);
}

TEST_F(IpcDispatcher, WaitUntilReadySleepsHalfASecondAtLeast) {
    auto const start = Clock::now();
    EXPECT_TRUE(s_dispatcher->waitUntilReady(0));
    EXPECT_GE(Clock::now() - start, 490ms);
}

TEST_F(IpcDispatcher, AnswersAPing) {
    EXPECT_EQ(answerTo(s_port, Pdu(1, bufferOf("abc"))), messageBytes(1, "abc"));
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IpcDispatcher, ClosesAfterOneRequest) {
    SocketIPC connection = asked(s_port, Pdu(1, bufferOf("abc")));
    EXPECT_EQ(answerOf(connection), messageBytes(1, "abc"));
    EXPECT_EQ(answerOf(connection), "result 0");
}

TEST_F(IpcDispatcher, LogsARequestThatNobodyHandles) {
    EXPECT_EQ(answerTo(s_port, Pdu(4711, bufferOf("abc"))), "result 0");
    EXPECT_EQ(answerTo(s_port, Pdu(0xffffffff, 8)), "result 0");
    EXPECT_EQ(log.lines(2), (std::vector<std::string>{noHandler(4711), noHandler(0xffffffff)}));
    EXPECT_TRUE(s_dispatcher->find(4711).isNull());
}

TEST_F(IpcDispatcher, ClosesARequestThatNobodyHandlesWithoutAReset) {
    SocketIPC connection;
    connection.connect(static_cast<int>(s_port));
    connection.socket() << messageBytes(4711, "abc") + std::string(1000, 'x');
    EXPECT_EQ(answerOf(connection), "result 0");
    EXPECT_EQ(log.lines(1), std::vector<std::string>{noHandler(4711)});
}

TEST_F(IpcDispatcher, GivesARequestThirtySeconds) {
    int timeout = 0;
    ::linger linger{};
    s_dispatcher->add(handlerOf(71, false, [&](SocketIPC& connection, Pdu const& pdu) {
        timeout = connection.socket().timeout();
        connection.socket().getOption(SO_LINGER, &linger, sizeof linger, SOL_SOCKET);
        connection << pdu;
        return 0;
    }));
    EXPECT_EQ(answerTo(s_port, Pdu(71, 8)), messageBytes(71, ""));
    EXPECT_EQ(timeout, 30'000);
    EXPECT_NE(linger.l_onoff, 0);
    EXPECT_EQ(linger.l_linger, 30);
}

TEST_F(IpcDispatcher, TakesHalfARequestForNone) {
    std::atomic<int> calls{0};
    for (unsigned int const type : {0U, 60U})
        s_dispatcher->add(handlerOf(type, false, [&](SocketIPC&, Pdu const&) { return ++calls; }));
    std::string const whole = messageBytes(60, "0123456789");
    for (std::size_t const cut : {std::size_t{0}, std::size_t{3}, std::size_t{8}, std::size_t{17}}) {
        SocketIPC connection;
        connection.connect(static_cast<int>(s_port));
        connection.socket() << whole.substr(0, cut);
        connection.socket().shutdown();
        EXPECT_EQ(answerOf(connection), "result 0") << cut;
    }
    EXPECT_EQ(log.lines(4), std::vector<std::string>(4, noHandler(0)));
    EXPECT_EQ(calls, 0);
}

TEST_F(IpcDispatcher, LogsAConnectionThatBreaks) {
    SocketIPC connection;
    connection.connect(static_cast<int>(s_port));
    connection.socket() << std::string("abc");
    connection.socket().linger(0);
    // A peer that is cut off while it is read. Whether the bytes or the reset comes first is the system's
    // affair; either way there is one line.
    connection.socket().close();
    auto const lines = log.lines(1);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0] == caught("SocketException( 104 ) , Socket \"Connection reset by peer\"") ||
                lines[0] == noHandler(0))
        << lines[0];
}

TEST_F(IpcDispatcher, CutsALargeRequestAndAnswersItCut) {
    std::string seen;
    std::uint32_t field = 0;
    s_dispatcher->add(handlerOf(61, false, [&](SocketIPC& connection, Pdu const& pdu) {
        seen = textOf(pdu.data());
        field = lengthField(pdu);
        connection << Pdu(61, 8);
        return 0;
    }));
    std::string const payload(5000, 'p');
    EXPECT_EQ(answerTo(s_port, Pdu(61, bufferOf(payload))), messageBytes(61, ""));
    EXPECT_EQ(seen, std::string(1016, 'p'));
    EXPECT_EQ(field, 5000U);

    SocketIPC connection = asked(s_port, Pdu(1, bufferOf(payload)));
    Pdu answer(0, 8192);
    EXPECT_EQ(connection.receive(answer), 0);  // the length field promises more
    EXPECT_EQ(bytesOf(answer), messageBytes(1, payload).substr(0, 1024));
}

TEST_F(IpcDispatcher, AnswersAClientThatSplitsItsRequestsAtEveryByte) {
    std::string const command =
        "exec python3 '" QUILLMARK_TEST_PROGRAMS "/ipc_client.py' " + std::to_string(s_port);
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IpcDispatcher, RunsInlineHandlersOnItsOwnThread) {
    std::vector<pthread_t> threads;
    for (unsigned int const type : {62U, 63U})
        s_dispatcher->add(handlerOf(type, false, [&](SocketIPC& connection, Pdu const& pdu) {
            threads.push_back(::pthread_self());
            connection << pdu << pdu << pdu;  // any number of answers
            return 0;
        }));
    for (unsigned int const type : {62U, 63U}) {
        SocketIPC connection = asked(s_port, Pdu(type, 8));
        for (int i = 0; i < 3; ++i) EXPECT_EQ(answerOf(connection), messageBytes(type, ""));
        EXPECT_EQ(answerOf(connection), "result 0");
    }
    ASSERT_EQ(threads.size(), 2U);
    EXPECT_EQ(threads[0], threads[1]);
    EXPECT_NE(threads[0], ::pthread_self());
}

TEST_F(IpcDispatcher, ALaterHandlerReplacesAnEarlierOne) {
    for (char const* name : {"first", "second"})
        s_dispatcher->add(handlerOf(64, false, [name](SocketIPC& connection, Pdu const&) {
            connection << Pdu(64, bufferOf(name));
            return 0;
        }));
    EXPECT_EQ(answerTo(s_port, Pdu(64, 8)), messageBytes(64, "second"));
    EXPECT_EQ(s_dispatcher->find(64).type(), 64U);
    EXPECT_EQ(failureOf([] { s_dispatcher->add(Handler()); }), "Handler( 1 ) , IPC");
}

TEST_F(IpcDispatcher, AddWaitsForAnInlineHandlerAndFindDoesNot) {
    Gate gate;
    s_dispatcher->add(handlerOf(65, false, [&](SocketIPC& connection, Pdu const& pdu) {
        gate.pass();
        connection << pdu;
        return 0;
    }));
    SocketIPC connection = asked(s_port, Pdu(65, 8));
    ASSERT_TRUE(gate.waitFor(1));
    std::atomic<bool> added{false};
    std::thread adder([&] {
        s_dispatcher->add(Handler(new HandlerPing));
        added = true;
    });
    EXPECT_EQ(s_dispatcher->find(65).type(), 65U);
    std::this_thread::sleep_for(50ms);  // a chance for what must not happen
    EXPECT_FALSE(added);
    gate.open();
    adder.join();
    EXPECT_EQ(answerOf(connection), messageBytes(65, ""));
}

TEST_F(IpcDispatcher, AddWaitsForARequestThatIsBeingRead) {
    SocketIPC slow;
    slow.connect(static_cast<int>(s_port));
    slow.socket() << messageBytes(1, "abc").substr(0, 9);
    // As soon as the dispatcher has taken the connection.
    std::future<void> added;
    auto const add = [] { s_dispatcher->add(Handler(new HandlerPing)); };
    bool waits = false;
    for (int i = 0; !waits && i < 50; ++i) {
        added = std::async(std::launch::async, add);
        waits = added.wait_for(100ms) == std::future_status::timeout;
    }
    EXPECT_TRUE(waits);
    slow.socket() << std::string("bc");
    added.get();
    EXPECT_EQ(answerOf(slow), messageBytes(1, "abc"));
}

TEST_F(IpcDispatcher, HandlersAreFoundWhileOthersAreAdded) {
    std::atomic<bool> enough{false};
    std::thread finder([&] {
        while (!enough) EXPECT_TRUE(Dispatcher::s_ready && !s_dispatcher->find(1).isNull());
    });
    for (unsigned int type = 1000; type < 1200; ++type)
        s_dispatcher->add(handlerOf(type, false, [](SocketIPC&, Pdu const&) { return 0; }));
    enough = true;
    finder.join();
    EXPECT_EQ(s_dispatcher->find(1199).type(), 1199U);
}

TEST_F(IpcDispatcher, AnInlineHandlerMayAddAnother) {
    s_dispatcher->add(handlerOf(66, false, [&](SocketIPC& connection, Pdu const& pdu) {
        s_dispatcher->add(handlerOf(67, false, [](SocketIPC& c, Pdu const& p) {
            c << p;
            return 0;
        }));
        connection << pdu;
        return 0;
    }));
    EXPECT_EQ(answerTo(s_port, Pdu(66, 8)), messageBytes(66, ""));
    EXPECT_EQ(answerTo(s_port, Pdu(67, 8)), messageBytes(67, ""));
}

TEST_F(IpcDispatcher, LogsWhatAnInlineHandlerThrowsAndGoesOn) {
    s_dispatcher->add(handlerOf(68, false, [](SocketIPC& connection, Pdu const& pdu) -> int {
        connection << pdu;
        throw Exception("Verdict", 3, "Scanner", 7);
    }));
    constexpr std::size_t times = 8;
    auto const start = Clock::now();
    for (std::size_t i = 0; i < times; ++i) EXPECT_EQ(answerTo(s_port, Pdu(68, 8)), messageBytes(68, ""));
    EXPECT_EQ(log.lines(times), std::vector<std::string>(times, caught("Verdict( 3 ) , Scanner:7, ")));
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(times));  // it pauses for foreign exceptions only
}

TEST_F(IpcDispatcher, LogsAForeignExceptionAndPauses) {
    s_dispatcher->add(
        handlerOf(69, false, [](SocketIPC&, Pdu const&) -> int { throw std::runtime_error("x"); }));
    EXPECT_EQ(answerTo(s_port, Pdu(69, 8)), "result 0");
    auto const closed = Clock::now();
    EXPECT_EQ(log.lines(1), std::vector<std::string>{foreignException});
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_GE(Clock::now() - closed, 900ms);
}

TEST_F(IpcDispatcher, ALoggerThatFailsDoesNotEndIt) {
    s_dispatcher->add(handlerOf(69, false, [](SocketIPC&, Pdu const&) -> int { throw 1; }));
    log.afterwards([] { throw Exception("LogRecorder", 4, nullptr, 0); });
    EXPECT_EQ(answerTo(s_port, Pdu(4712, 8)), "result 0");
    EXPECT_EQ(answerTo(s_port, Pdu(69, 8)), "result 0");
    EXPECT_EQ(log.lines(2).size(), 2U);
}

TEST_F(IpcDispatcher, PausesWhenItCannotAccept) {
    // The dispatcher may wait within the system, which has a number ready for the one who comes first.
    std::vector<SocketIPC> connections(2);
    for (SocketIPC& connection : connections) connection.connect(static_cast<int>(s_port));
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    // Three are open in any case. Others may yet be closed by the dispatcher, and free a number.
    rlimit const none{3, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    for (SocketIPC& connection : connections) connection.send(Pdu(1, bufferOf("later")));
    auto const lines = log.lines(1);
    std::this_thread::sleep_for(100ms);
    std::size_t const more = log.lines().size();
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(lines,
              std::vector<std::string>{caught("SocketException( 24 ) , Socket \"Too many open files\"")});
    EXPECT_LE(more, 2U);  // not one line after the other
    for (SocketIPC& connection : connections) EXPECT_EQ(answerOf(connection), messageBytes(1, "later"));
}

TEST_F(IpcDispatcher, SilentClientsHoldNobodyUp) {
    SocketIPC silent;
    silent.connect(static_cast<int>(s_port));
    auto const start = Clock::now();
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LT(Clock::now() - start, 10s);
    silent << Pdu(1, bufferOf("at last"));
    EXPECT_EQ(answerOf(silent), messageBytes(1, "at last"));
}

TEST_F(IpcDispatcher, TakesNobodyInWhoIsSilent) {
    std::vector<SocketIPC> silent(10);
    std::size_t const before = openDescriptors();
    for (SocketIPC& one : silent) one.connect(static_cast<int>(s_port));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LE(openDescriptors(), before + 1);  // the last one who got an answer may still be there
}

TEST_F(IpcDispatcher, ManyWhoAreSilentHoldNobodyUp) {
    // More than the queue of the system takes.
    std::vector<SocketIPC> silent(40);
    for (SocketIPC& one : silent) one.connect(static_cast<int>(s_port));
    auto const start = Clock::now();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LT(Clock::now() - start, 10s);
    for (SocketIPC& one : silent) {
        one << Pdu(1, bufferOf("at last"));
        EXPECT_EQ(answerOf(one), messageBytes(1, "at last"));
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IpcDispatcher, ManyWhoAskInPiecesHoldNobodyUp) {
    std::vector<SocketIPC> slow(40);
    std::string const whole = messageBytes(1, std::string(2000, 's'));
    std::size_t sent = 0;
    auto const sendAll = [&](std::size_t count) {
        for (SocketIPC& one : slow) {
            if (sent == 0) one.connect(static_cast<int>(s_port));
            one.socket() << whole.substr(sent, count);
        }
        sent += count;
        EXPECT_EQ(answerTo(s_port, Pdu(1, bufferOf("meanwhile"))), messageBytes(1, "meanwhile"));
    };
    for (std::size_t const count : {1U, 6U, 1U, 500U, 515U, 1U, 1U, 982U}) sendAll(count);
    sendAll(whole.size() - sent);
    for (SocketIPC& one : slow) {
        Pdu answer(0, 4096);
        one.receive(answer);  // it was cut
        EXPECT_EQ(bytesOf(answer), whole.substr(0, 1024));
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IpcDispatcher, AsksWhoCameFirstToGoWhenThereIsNoRoomForMoreHalfRequests) {
    constexpr std::size_t room = 256;
    std::vector<SocketIPC> slow(room + 2);
    for (SocketIPC& one : slow) {
        one.connect(static_cast<int>(s_port));
        one.socket() << std::string("\1");
        // When this one is answered the one before it was seen.
        EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    }
    EXPECT_EQ(log.lines(2), std::vector<std::string>(2, caught("SocketIPC::receive( 4 ) , IPC:266, ")));
    for (std::size_t const gone : {0U, 1U}) {
        Pdu answer(0, 8);
        EXPECT_NE(failureOf([&] { EXPECT_LE(slow[gone].receive(answer), 0); }), "another exception");
    }
    for (std::size_t const stays : {std::size_t{2}, room + 1}) {
        slow[stays].socket() << messageBytes(1, "abc").substr(1);
        EXPECT_EQ(answerOf(slow[stays]), messageBytes(1, "abc"));
    }
}

TEST_F(IpcDispatcher, ARequestWithoutAnEndHoldsNobodyUp) {
    SocketIPC endless;
    endless.connect(static_cast<int>(s_port));
    std::string const header = numberBytes(1) + numberBytes(0xfffffff0);
    std::atomic<bool> enough{false};
    std::thread sender([&] {
        endless.socket() << header;
        std::string const block(1U << 20, 'e');
        while (!enough) endless.socket() << block;
    });
    auto const start = Clock::now();
    for (int i = 0; i < 20; ++i) EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LT(Clock::now() - start, 10s);
    enough = true;
    sender.join();
    endless.socket().close();
    EXPECT_EQ(log.lines(1), std::vector<std::string>{noHandler(0)});
}

TEST_F(IpcDispatcher, AClientThatDoesNotTakeItsAnswerHoldsNobodyUp) {
    std::string const large(200'000, 'l');
    s_dispatcher->add(handlerOf(91, false, [&](SocketIPC& connection, Pdu const&) {
        int const room = 1 << 20;
        connection.socket().setOption(SO_SNDBUF, &room, sizeof room, SOL_SOCKET);
        connection << Pdu(91, bufferOf(large));
        return 0;
    }));
    SocketIPC deaf;
    int const little = 4096;
    deaf.socket().setOption(SO_RCVBUF, &little, sizeof little, SOL_SOCKET);
    deaf.connect(static_cast<int>(s_port));
    deaf << Pdu(91, 8);
    auto const start = Clock::now();
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LT(Clock::now() - start, 10s);
    // It is there all the same.
    Pdu answer(0, 300'000);
    EXPECT_EQ(deaf.receive(answer), static_cast<ssize_t>(large.size() + 8));
    EXPECT_EQ(textOf(answer.data()), large);
}

TEST_F(IpcDispatcher, AddDoesNotWaitForWhoHasSaidNothing) {
    SocketIPC silent;
    silent.connect(static_cast<int>(s_port));
    // The dispatcher takes the connection in the meantime.
    auto const start = Clock::now();
    while (Clock::now() - start < 300ms) s_dispatcher->add(Handler(new HandlerPing));
    EXPECT_LT(Clock::now() - start, 10s);
    silent << Pdu(1, bufferOf("at last"));
    EXPECT_EQ(answerOf(silent), messageBytes(1, "at last"));
}

TEST_F(IpcDispatcher, AddDoesNotWaitForARequestThatWasPutAside) {
    SocketIPC slow;
    slow.connect(static_cast<int>(s_port));
    slow.socket() << messageBytes(1, "abc").substr(0, 9);
    // Whoever asks after it puts it aside.
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    auto const start = Clock::now();
    s_dispatcher->add(handlerOf(90, false, [](SocketIPC&, Pdu const&) { return 0; }));
    EXPECT_LT(Clock::now() - start, 10s);
    slow.socket() << std::string("bc");
    EXPECT_EQ(answerOf(slow), messageBytes(1, "abc"));
}

TEST_F(IpcDispatcher, KeepsAConnectionThatAHandlerKeeps) {
    SocketIPC kept;
    s_dispatcher->add(handlerOf(70, false, [&](SocketIPC& connection, Pdu const&) {
        kept = connection;
        return 0;
    }));
    SocketIPC client = asked(s_port, Pdu(70, 8));
    client << Pdu(2, bufferOf("the second request is the handler's own"));
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));  // 70 is done with
    EXPECT_EQ(answerOf(kept), messageBytes(2, "the second request is the handler's own"));
    kept << Pdu(3, 8);
    EXPECT_EQ(answerOf(client), messageBytes(3, ""));
}

TEST_F(IpcThreads, RunHandlersThatRequireThem) {
    Gate gate;
    std::atomic<pthread_t> first{0};
    s_dispatcher->add(handlerOf(80, true, [&](SocketIPC& connection, Pdu const& pdu) {
        first = ::pthread_self();
        gate.pass();
        connection << pdu;
        return 0;
    }));
    SocketIPC connection = asked(s_port, Pdu(80, bufferOf("slow")));
    ASSERT_TRUE(gate.waitFor(1));
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));  // meanwhile
    s_dispatcher->add(Handler(new HandlerPing));                  // which does not wait either
    gate.open();
    EXPECT_EQ(answerOf(connection), messageBytes(80, "slow"));
    EXPECT_EQ(answerOf(connection), "result 0");
    EXPECT_NE(first.load(), ::pthread_self());
}

TEST_F(IpcThreads, KeepTheirHandlerWhenItIsReplaced) {
    Gate gate;
    s_dispatcher->add(handlerOf(81, true, [&](SocketIPC& connection, Pdu const& pdu) {
        gate.pass();
        connection << pdu;
        return 0;
    }));
    SocketIPC connection = asked(s_port, Pdu(81, bufferOf("old")));
    ASSERT_TRUE(gate.waitFor(1));
    s_dispatcher->add(handlerOf(81, true, [](SocketIPC&, Pdu const&) { return 0; }));
    gate.open();
    EXPECT_EQ(answerOf(connection), messageBytes(81, "old"));
}

TEST_F(IpcThreads, SwallowWhatTheirHandlersThrow) {
    s_dispatcher->add(handlerOf(82, true, [](SocketIPC& connection, Pdu const& pdu) -> int {
        connection << pdu;
        switch (pdu.data().length()) {
        case 0: throw Exception("Verdict", 3, "Scanner", 7);
        case 1: throw std::runtime_error("x");
        default: ::pthread_exit(nullptr);
        }
    }));
    for (std::string const payload : {"", "1", "22"}) {
        SocketIPC connection = asked(s_port, Pdu(82, bufferOf(payload)));
        EXPECT_EQ(answerOf(connection), messageBytes(82, payload));
        EXPECT_EQ(answerOf(connection), "result 0") << payload;
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IpcThreads, EndAloneWhenTheyHaveNoMemoryAndNoConnectionAnyMore) {
    std::atomic<pid_t> thread{0};
    std::function<void()> const ends[] = {[] {}, [] { ::pthread_exit(nullptr); }};
    for (std::function<void()> const& end : ends) {
        s_dispatcher->add(handlerOf(93, true, [&](SocketIPC& connection, Pdu const& pdu) {
            thread = ::gettid();
            connection << pdu;
            connection.socket().close();
            starving = true;
            end();
            return 0;
        }));
        SocketIPC connection = asked(s_port, Pdu(93, bufferOf("last")));
        EXPECT_EQ(answerOf(connection), messageBytes(93, "last"));
        EXPECT_EQ(answerOf(connection), "result 0");
        std::string const itsEntry = "/proc/self/task/" + std::to_string(thread);
        auto const deadline = Clock::now() + longEnough;
        while (::access(itsEntry.c_str(), F_OK) == 0 && Clock::now() < deadline) std::this_thread::yield();
        EXPECT_NE(::access(itsEntry.c_str(), F_OK), 0);
        EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(IpcThreads, AreNoMoreThan64AndFurtherRequestsWait) {
    constexpr int requests = 68;
    Gate gate;
    s_dispatcher->add(handlerOf(83, true, [&](SocketIPC& connection, Pdu const& pdu) {
        gate.pass();
        connection << pdu;
        return 0;
    }));
    std::vector<SocketIPC> connections;
    for (int i = 0; i < requests; ++i)
        connections.push_back(asked(s_port, Pdu(83, bufferOf(std::to_string(i)))));
    ASSERT_TRUE(gate.waitFor(64));
    EXPECT_FALSE(gate.waitFor(65, 200ms));
    gate.open();
    for (int i = 0; i < requests; ++i)
        EXPECT_EQ(answerOf(connections[static_cast<std::size_t>(i)]), messageBytes(83, std::to_string(i)));
    EXPECT_EQ(gate.peak(), 64);
}

TEST_F(IpcThreads, ThatCannotBeMadeAreLoggedAndTheirConnectionIsClosed) {
    s_dispatcher->add(handlerOf(84, true, [](SocketIPC& connection, Pdu const& pdu) {
        connection << pdu;
        return 0;
    }));
    std::size_t const before = openDescriptors();
    pthread_attr_t usual;
    ::pthread_getattr_default_np(&usual);
    pthread_attr_t tooLarge;
    ::pthread_attr_init(&tooLarge);
    ASSERT_EQ(::pthread_attr_setstacksize(&tooLarge, std::size_t{1} << 47), 0);  // all there is, and more
    ASSERT_EQ(::pthread_setattr_default_np(&tooLarge), 0);
    std::string const answer = answerTo(s_port, Pdu(84, 8));
    ::pthread_setattr_default_np(&usual);
    EXPECT_EQ(answer, "result 0");
    EXPECT_EQ(log.lines(1), std::vector<std::string>{
                                caught("IPC::Dispatcher( 4 ) , IPC \"Resource temporarily unavailable\"")});
    EXPECT_EQ(answerTo(s_port, Pdu(84, 8)), messageBytes(84, ""));
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));
    EXPECT_LE(openDescriptors(), before + 1);  // the last handler's thread may still be closing
    ::pthread_attr_destroy(&usual);
    ::pthread_attr_destroy(&tooLarge);
}

TEST_F(IpcDispatcher, AnswersTwentyThousandRequestsOfSixteenClients) {
    constexpr int clients = 16;
    constexpr int requestsEach = 1250;
    s_dispatcher->add(handlerOf(85, true, [](SocketIPC& connection, Pdu const& pdu) {
        connection << pdu;
        return 0;
    }));
    std::atomic<int> answered{0};
    std::atomic<int> refused{0};
    auto const client = [&](unsigned int seed, int count) {
        std::minstd_rand random(seed);
        for (int i = 0; i < count; ++i) {
            std::string payload(random() % 1017, '\0');
            for (char& c : payload) c = static_cast<char>(random());
            // One in eight asks for a thread.
            std::string const message = messageBytes(i % 8 == 0 ? 85 : 1, payload);
            for (int attempt = 0; attempt < 20; ++attempt) {
                try {
                    std::uint32_t type = 0;
                    std::memcpy(&type, message.data(), sizeof type);
                    if (answerTo(s_port, Pdu(type, bufferOf(payload))) == message) ++answered;
                    break;
                } catch (SocketException const&) {  // the queue of ten was full: nothing was asked yet
                    ++refused;
                }
            }
        }
    };
    auto const storm = [&](int count) {
        std::vector<std::thread> threads;
        for (unsigned int i = 0; i < clients; ++i) threads.emplace_back(client, i + 1, count);
        for (auto& thread : threads) thread.join();
        answerTo(s_port, Pdu(1, 8));
    };
    storm(20);
    answered = 0;
    std::size_t const descriptors = openDescriptors();
    std::size_t const memory = ::mallinfo2().uordblks;
    storm(requestsEach);
    EXPECT_EQ(answered, clients * requestsEach) << refused << " refused";
    EXPECT_LE(openDescriptors(), descriptors + 1);
    EXPECT_LE(::mallinfo2().uordblks, memory + 500'000);
    EXPECT_TRUE(log.lines().empty());
}

namespace {

/// A dispatcher of a new process, whose port somebody has. The number of the first thing that is wrong.
int dispatcherThatMustWait() {
    LogRecorder const& log = *new LogRecorder;  // the dispatcher goes on to the end
    SocketIPC occupant;
    occupant.listen(SocketAddress(IPAddress("127.0.0.1"), 0));
    SocketAddress const address = occupant.socket().localAddr();
    Dispatcher* const dispatcher = Dispatcher::instance(address);
    if (dispatcher->waitUntilReady(0) || Dispatcher::s_ready) return 1;
    auto const start = Clock::now();
    if (dispatcher->waitUntilReady(1) || Clock::now() - start < 950ms) return 2;
    if (!dispatcher->find(1).isNull()) return 3;  // there are no handlers at first
    auto const lines = log.lines(2);
    for (auto const& line : lines)
        if (line != caught("SocketException( 98 ) , Socket \"Address already in use\"")) return 4;
    if (lines.size() < 2 || Clock::now() - start < 400ms) return 5;
    occupant.socket().close();
    if (!dispatcher->waitUntilReady(30)) return 6;
    unsigned int const port = address.asINET().port();
    if (answerTo(port, Pdu(1, 8)) != "result 0") return 7;
    dispatcher->add(Handler(new HandlerPing));
    if (answerTo(port, Pdu(1, 8)) != messageBytes(1, "")) return 8;
    return 0;
}

}  // namespace

TEST(IpcDispatcherDeathTest, TriesAgainEverySecondWhenItCannotListen) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(dispatcherThatMustWait()), testing::ExitedWithCode(0), "");
}

namespace {

std::string logged(std::string const& function, std::string const& exception) {
    return "300006d " + function + "|" + exception;
}

std::string const connectText = "ipc_connection* ipc_connect(const sockaddr*)";
std::string const readText = "int ipc_read(ipc_connection*, ipc_pdu*)";
std::string const writeText = "int ipc_write(ipc_connection*, ipc_pdu*)";

/// A connection of a C caller with its other end.
struct EndsFromC {
    EndsFromC() {
        SocketIPC listener;
        listener.listen(SocketAddress(IPAddress("127.0.0.1"), 0));
        client = ipcConnectFromC(listener.socket().localAddr().asINET().port());
        server = listener.accept();
    }
    ~EndsFromC() { ipc_close(client); }
    EndsFromC(EndsFromC const&) = delete;
    EndsFromC& operator=(EndsFromC const&) = delete;

    /// Result, type, length field and payload of one message.
    std::string read(unsigned int room) {
        unsigned int type = 0;
        unsigned int length = 0;
        std::string payload(room, '\0');
        int const result = ipcReadFromC(client, room, &type, &length, payload.data());
        payload.resize(result > 8 ? static_cast<std::size_t>(result) - 8 : 0);
        return std::to_string(result) + " " + std::to_string(type) + " " + std::to_string(length) + " " +
               payload;
    }

    ipc_connection* client = nullptr;
    SocketIPC server;
};

}  // namespace

TEST(IpcFromC, AsksAndReads) {
    LogRecorder log;
    EndsFromC ends;
    ASSERT_NE(ends.client, nullptr);
    EXPECT_EQ(ipcWriteFromC(ends.client, 5, "abc", 3), 11);
    EXPECT_EQ(answerOf(ends.server), messageBytes(5, "abc"));
    EXPECT_EQ(ipcWriteFromC(ends.client, 6, "", 0), 8);
    EXPECT_EQ(answerOf(ends.server), messageBytes(6, ""));
    ends.server << Pdu(7, bufferOf("answer")) << Pdu(8, 8) << Pdu(9, bufferOf("too long"));
    EXPECT_EQ(ends.read(100), "14 7 6 answer");
    EXPECT_EQ(ends.read(100), "8 8 0 ");
    EXPECT_EQ(ends.read(3), "11 9 8 too");
    ends.server = SocketIPC();
    EXPECT_EQ(ends.read(5), "0 0 5 ");
    EXPECT_TRUE(log.lines().empty());
}

TEST(IpcFromC, NullsGiveZero) {
    LogRecorder log;
    EndsFromC ends;
    EXPECT_EQ(ipcNullsFromC(ends.client), 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST(IpcFromC, ConnectWithoutAnAddressGoesToTheDefaultPort) {
    SocketIPC listener;
    listener.listen(SocketAddress(IPAddress("127.0.0.1"), 0));
    defaultPortLeadsTo = listener.socket().localAddr().asINET().port();
    ipc_connection* const connection = ipc_connect(nullptr);
    defaultPortLeadsTo = 0;
    ASSERT_NE(connection, nullptr);
    SocketIPC server = listener.accept();
    EXPECT_EQ(ipcWriteFromC(connection, 5, "abc", 3), 11);
    EXPECT_EQ(answerOf(server), messageBytes(5, "abc"));
    ipc_close(connection);
    EXPECT_EQ(answerOf(server), "result 0");
}

TEST(IpcFromC, AFailedConnectIsNullLoggedAndLeavesNoDescriptor) {
    LogRecorder log;
    std::size_t const before = openDescriptors();
    EXPECT_EQ(ipcConnectFromC(freePort()), nullptr);
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    EXPECT_EQ(ipc_connect(reinterpret_cast<sockaddr*>(&v6)), nullptr);
    sockaddr const none{};
    EXPECT_EQ(ipc_connect(&none), nullptr);
    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    std::strcpy(local.sun_path, "/nowhere");
    EXPECT_EQ(ipc_connect(reinterpret_cast<sockaddr*>(&local)), nullptr);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  logged(connectText, "SocketException( 111 ) , Socket \"Connection refused\""),
                  logged(connectText,
                         "SocketException( 97 ) , Socket \"Address family not supported by protocol\""),
                  logged(connectText, "IPAddress( 1 ) , IPAddress"),
                  logged(connectText, "SocketException( 22 ) , Socket \"Invalid argument\"")}));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(IpcFromC, FailuresOfTheSystemAreMinusOneAndLogged) {
    LogRecorder log;
    EndsFromC ends;
    ends.server.socket().linger(0);
    ends.server = SocketIPC();  // a reset
    EXPECT_EQ(ends.read(5), "-1 0 5 ");
    EXPECT_EQ(log.lines(), std::vector<std::string>{logged(
                               readText, "SocketException( 104 ) , Socket \"Connection reset by peer\"")});
    EXPECT_EQ(ipcWriteFromC(ends.client, 5, "abc", 3), -1);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1], logged(writeText, "SocketException( 32 ) , Socket \"Broken pipe\""));
}

TEST(IpcFromC, ALengthThatWrapsIsRefused) {
    LogRecorder log;
    EndsFromC ends;
    EXPECT_EQ(ipcLengthThatWrapsFromC(ends.client, 0), -1);
    EXPECT_EQ(ipcLengthThatWrapsFromC(ends.client, 1), -1);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  logged(writeText, "SocketIPC::send( 4 ) , IPC \"Buffer is too small\""),
                  logged(readText, "SocketIPC::receive( 4 ) , IPC:214,  \"Buffer is too small\"")}));
}

TEST(IpcFromC, AnExpiredTimeoutIsMinusOneWithoutALine) {
    LogRecorder log;
    EndsFromC ends;
    reinterpret_cast<SocketIPC*>(ends.client)->socket().timeout(0);
    EXPECT_EQ(ends.read(5), "-1 0 5 ");
    EXPECT_TRUE(log.lines().empty());
}

TEST(IpcFromC, ReadsAnswersInPieces) {
    PythonServer const server;
    for (std::uint32_t cut = 1; cut < pythonAnswer.size(); ++cut) {
        ipc_connection* const connection = ipcConnectFromC(server.port);
        ASSERT_NE(connection, nullptr);
        std::string const n = numberBytes(cut);
        EXPECT_EQ(ipcWriteFromC(connection, 100, n.data(), 4), 12);
        unsigned int type = 0;
        unsigned int length = 0;
        std::string payload(13, '\0');
        EXPECT_EQ(ipcReadFromC(connection, 13, &type, &length, payload.data()), 21) << cut;
        EXPECT_EQ(messageBytes(type, payload), pythonAnswer) << cut;
        ipc_close(connection);
    }
}

TEST_F(IpcDispatcher, AnswersACCaller) {
    std::size_t const before = openDescriptors();
    char answer[3];
    EXPECT_EQ(ipcPingFromC(s_port, "abc", 3, answer), 11);
    EXPECT_EQ(std::string(answer, 3), "abc");
    EXPECT_EQ(answerTo(s_port, Pdu(1, 8)), messageBytes(1, ""));  // the first connection is closed
    EXPECT_EQ(openDescriptors(), before);
}
