#include "tests/faults/Tour.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <resolv.h>
#include <sched.h>
#include <time.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <exception>
#include <list>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "include2/Base64Media"
#include "include2/Buffer"
#include "include2/BufferMedia"
#include "include2/ClassifierDetail"
#include "include2/EmailAddress"
#include "include2/EncoderMedia"
#include "include2/Exception"
#include "include2/File"
#include "include2/FileMedia"
#include "include2/HostName"
#include "include2/IPAddress"
#include "include2/IPAddressMask"
#include "include2/Logger"
#include "include2/Md5"
#include "include2/Obfuscator"
#include "include2/PatternContainer"
#include "include2/QuillCron"
#include "include2/QuillIPC"
#include "include2/quillmark.h"
#include "include2/QuillProcess"
#include "include2/QuillTask"
#include "include2/QuillThread"
#include "include2/Resolver"
#include "include2/Socket"
#include "include2/StringContainer"
#include "include2/Time"
#include "include2/TopLevelDomain"
#include "include2/Uri"
#include "include2/UriSniffer"
#include "tests/faults/Faults.h"
#include "tests/net/DnsResponder.h"
#include "tests/net/WireMessage.h"
#include "tests/support/Support.h"

namespace QuillmarkTest {

namespace {

using namespace Quillmark;

/// "" when @p is is @p expected.
template <class A, class B>
std::string same(char const* what, A const& is, B const& expected) {
    if (is == expected) return {};
    std::ostringstream text;
    text << what << " is wrong";
    if constexpr (requires { text << is; }) text << ": " << is;
    return text.str();
}

/// Bytes of every value, with no period that a block size could hide.
std::string mixedBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

unsigned char const* bytesOf(std::string const& text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}
unsigned int sizeOf(std::string const& text) {
    return static_cast<unsigned int>(text.size());
}
Buffer bufferOf(std::string const& text) {
    Buffer buffer;
    buffer.append(bytesOf(text), sizeOf(text));
    return buffer;
}
std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(std::as_const(buffer).data()), buffer.length()};
}

/// Everything that @p in still has.
std::string readAll(MediaIn& in) {
    std::string all;
    unsigned char block[777];
    while (!in.atEnd()) {
        int const got = in.read(block, sizeof block);
        all.append(reinterpret_cast<char const*>(block), static_cast<std::size_t>(got));
    }
    return all;
}

/// What the tour itself has to do, in a world without failures.
struct Spared {
    Spared() { faultsSpare(true); }
    ~Spared() { faultsSpare(false); }
    Spared(Spared const&) = delete;
    Spared& operator=(Spared const&) = delete;
};

std::string contentOf(std::string const& path) {
    Spared const spared;
    return readFile(path);
}

void prepare(std::string const& path, std::string const& content) {
    Spared const spared;
    writeFile(path, content);
}

std::string addresses(std::string const&) {
    std::string const header =
        R"("Smith, John" <John@Mail.Example.COM>, (on leave) ann@example.org, bob <bob@[192.0.2.1]>)";
    auto const list = EmailAddress::rfc5322ParseList(header, true);
    auto const set = EmailAddress::rfc5322ParseSet(header, true, false);
    std::string all;
    for (auto const& address : list)
        all += address.asString() + ";" + emailAddressEscapedWrite(address) + ";";
    auto const envelope = EmailAddress::rfc5321Parse("<ann@example.org>", true);
    return same("the list", list.size(), 3u) + same("the set", set.size(), 3u) +
           same("the envelope", envelope.address(), "ann@example.org") + same("the text", all.empty(), false);
}

std::string addressesFromC(std::string const&) {
    int count = 0;
    std::unique_ptr<quill_emailaddress*, void (*)(void*)> const found(
        quill_emailaddress_find("ann@example.org, Bob <bob@example.com>", &count), std::free);
    if (!found) throw Refused();
    std::string wrong = same("the count", count, 2);
    for (int at = 0; at < count; ++at) {
        if (quill_emailaddress_get_email_address(found.get()[at]) == nullptr) wrong = "refused";
        quill_emailaddress_destroy(found.get()[at]);
    }
    if (wrong == "refused") throw Refused();
    return wrong;
}

std::string links(std::string const&) {
    UriContainer container;
    std::string const text =
        "see http://user:pw@www.example.com:8080/a%20b?c=d#e and mailto:ann@example.org?subject=x, "
        "bare.example.net too";
    UriSniffer::search(container, text, text.size(), true);
    std::string all;
    for (Uri const& uri : container.hrefs(0)) {
        all += uri.comparisonString() + ' ' + uri.domain() + ' ' + uri.idn() + ' ' + uri.query() + '\n';
    }
    return same("the number of links", container.size() >= 2, true) +
           same("the links", all.find("/a") != std::string::npos, true);
}

std::string hosts(std::string const&) {
    HostName const name(
        "WWW.B\xc3\xbc"
        "cher.example.co.uk",
        true, false);
    if (name.isNull()) throw Refused();  // how a host name says that it could not be made
    IPAddress const v4("192.0.2.33");
    IPAddress const v6("2001:db8::1");
    IPAddressMask const mask("192.0.2.0/24");
    return same("the name", name.asString(), "www.xn--bcher-kva.example.co.uk") +
           same("v4", v4.asString(true), "192.0.2.33") + same("v6", v6.asString(true), "2001:db8::1") +
           same("the mask", mask.matches(v4), true) +
           same("reverse", v6.asStringReversed(false).empty(), false);
}

std::string domainLists(std::string const& directory) {
    std::string zones;
    for (int at = 0; at < 500; ++at) zones += "zone" + std::to_string(at) + "\n";
    prepare(directory + "/list", zones);
    Ref<DomainNameGenericCodeContainer> const list(new DomainNameGenericCodeContainer(directory + "/list"),
                                                   false);
    // A list that cannot be read, or not whole, holds what there was: whoever looks is told by the log.
    bool const last = list->find("zone499");
    bool const firstOne = list->find("zone0");
    return same("an order of loading that cannot be", last && !firstOne, false);
}

std::string dnsMessage(std::string const&) {
    std::string const wire = header({1, 3, 0, 0}) + question(name("mail.example.org"), 1) +
                             record(pointer(12), 1, std::string("\xc0\x00\x02\x01", 4)) +
                             record(pointer(12), 15, u16(10) + pointer(17)) +
                             record(pointer(12), 16, "\x05hello\x05world");
    Handle<ResolverMessageImpl> const impl(new ResolverMessageImpl, false);
    std::memcpy(impl->data(), wire.data(), wire.size());
    impl->length(static_cast<int>(wire.size()));
    impl->parse();
    ResolverMessage const message(impl.get(), true);
    if (message.answers().size() == 3)
        return same("the address", message.getIPAddress().asString(true), "192.0.2.1");
    // An answer that was not read to its end says so.
    if (message.resolve_error() != 0 || message.answers().size() < 3) throw Refused();
    return "answers are missing";
}

/// Name servers on both kinds of address, which nothing fails for.
class NameServers {
public:
    NameServers() {
        Spared const spared;
        for (std::size_t at = 0; at < m_servers.size(); ++at)
            m_servers[at].emplace(at == 0 ? "127.0.0.1" : "::1", recordsOf, [] { faultsSpare(true); });
    }
    ~NameServers() {
        Spared const spared;
        for (auto& server : m_servers) server.reset();
    }
    NameServers(NameServers const&) = delete;
    NameServers& operator=(NameServers const&) = delete;

    std::array<std::optional<DnsResponder>, 2> const& all() const { return m_servers; }

private:
    static std::string recordsOf(Asked const& asked) {
        switch (asked.type) {
        case 1: return answer(asked, {record(pointer(12), 1, std::string("\xc0\x00\x02\x01", 4))});
        case 12: return answer(asked, {record(pointer(12), 12, name("host.example.org"))});
        case 15:
            return answer(asked, {record(pointer(12), 15, u16(20) + name("second.example.org")),
                                  record(pointer(12), 15, u16(10) + name("first.example.org"))});
        default: return noSuchName(asked);
        }
    }

    std::array<std::optional<DnsResponder>, 2> m_servers;
};

/// What every question comes to, one server after the other. A question that failed says so: the addresses and
/// names that it was to give are null, and a message holds the error.
std::string questions(NameServers const& servers) {
    Resolver* const resolver = Resolver::instance();
    std::string wrong;
    for (auto const& server : servers.all()) {
        resolver->server(server->address(), static_cast<unsigned int>(server->port()));
        _res.retrans = 1;  // seconds
        _res.retry = 1;
        HostName const name("www.example.org", true, false);
        IPAddress const address = resolver->getIPAddress(name);
        HostName const host = resolver->getHostname(IPAddress("192.0.2.1"));
        ResolverMessage const mail = resolver->submit(Resolver::TypeMX, "example.org", Resolver::ClassIN);
        ResolverMessage const none = resolver->submit(Resolver::TypeTXT, "example.org", Resolver::ClassIN);
        // An answer that was not read to its end is told by the log.
        if (address.isNull() || host.isNull() || mail.answers().size() < 2) throw Refused();
        if (none.resolve_error() != HOST_NOT_FOUND) throw Refused();
        wrong += same("the address", address.asString(true), "192.0.2.1") +
                 same("the host", host.asString(), "host.example.org") +
                 same("the best exchange", mail.mxRecords().begin()->value, "first.example.org") +
                 same("a name that is none", none.isEmpty(), true);
    }
    return wrong;
}

/// A thread asks from its first question to its end, at which what it prepared is released. What the C library
/// does without memory is its own: here counts that it comes out as one of our failures.
std::string resolver(std::string const&) {
    NameServers const servers;
    std::string wrong;
    std::exception_ptr thrown;
    auto const ask = [&] {
        try {
            wrong = questions(servers);
        } catch (...) {
            thrown = std::current_exception();
        }
    };
    std::thread thread;
    {
        Spared const spared;
        thread = std::thread(ask);
    }
    thread.join();
    if (thrown) std::rethrow_exception(thrown);
    return wrong;
}

std::string buffers(std::string const&) {
    std::string const bytes = mixedBytes(20000);
    Buffer buffer = bufferOf(bytes);
    Buffer copy(buffer);
    buffer.append('x');
    buffer.shiftRight(10, ' ');
    Buffer decoded;
    base64Decode(bufferOf(bytes).toBase64String()).append(decoded);
    Buffer back;
    bufferOf(bufferOf(bytes).toBase64String()).decodeBase64(back);
    return same("the round trip", textOf(back) == bytes, true) + same("the length", buffer.length(), 20011u);
}

std::string streams(std::string const&) {
    std::string const bytes = mixedBytes(9000);
    Buffer encoded;
    {
        BufferMediaOut sink(encoded);
        Base64MediaOut encoder(sink);
        encoder.write(bytesOf(bytes), sizeOf(bytes));
        encoder.end();
        encoded = sink.buffer();
    }
    BufferMediaIn source(encoded);
    Base64MediaIn decoder(source);
    std::string const decoded = readAll(decoder);
    BufferMediaOut first;
    BufferMediaOut second;
    TeeMediaOut tee(first, second);
    QuotedPrintableOut printable(tee);
    printable.write(bytesOf(bytes), sizeOf(bytes));
    printable.end();
    Md5Hasher hasher;
    hasher.update(bytesOf(bytes), sizeOf(bytes));
    hasher.finalize();
    return same("the round trip", decoded == bytes, true) +
           same("the tee", first.buffer() == second.buffer(), true) +
           same("the digest", hasher.digestAsHexString().size(), 32u);
}

/// Bytes beyond the cache go to a file, and come back.
std::string swapping(std::string const& directory) {
    std::string const bytes = mixedBytes(300000);
    std::string const pattern = directory + "/swap.XXXXXX";
    SwapBufferMediaOut swap(10000, pattern.c_str());
    for (std::size_t at = 0; at < bytes.size(); at += 7000) {
        auto const count = static_cast<uint_t>(std::min<std::size_t>(7000, bytes.size() - at));
        swap.write(bytesOf(bytes) + at, count);
    }
    swap.end();
    MediaIn in = createMediaInFromSwapBufferMediaOut(swap);
    std::string const back = readAll(in);
    return same("what was swapped", back == bytes, true);
}

std::string fileStreams(std::string const& directory) {
    std::string const bytes = mixedBytes(100000);
    std::string const path = directory + "/file";
    {
        FileMediaOut out(path);
        out.write(bytesOf(bytes), sizeOf(bytes));
        out.end();
        out.close();
    }
    FileMediaIn in(path);
    return same("what was written", readAll(in) == bytes, true);
}

std::string base64Files(std::string const& directory) {
    std::string const bytes = mixedBytes(45000);
    std::string const plain = directory + "/plain";
    std::string const back = directory + "/back";
    std::string encoded = directory + "/encoded";
    prepare(plain, bytes);
    if (quill_file_base64_encode(plain.c_str(), encoded.data()) != 0) throw Refused();
    if (quill_file_base64_decode(encoded.c_str(), back.c_str()) != 0) throw Refused();
    return same("the round trip", contentOf(back) == bytes, true);
}

std::string lineConversion(std::string const& directory) {
    std::string lines;
    for (int at = 0; at < 3000; ++at) lines += "line " + std::to_string(at) + "\n";
    std::string const from = directory + "/unix";
    std::string const crlf = directory + "/dos";
    std::string const back = directory + "/back";
    prepare(from, lines);
    File::unix2dos(from, crlf);
    File::dos2unix(crlf, back);
    return same("the lines", contentOf(back) == lines, true);
}

std::string trees(std::string const& directory) {
    std::string const deep = directory + "/tree/a/b/c";
    if (!File::Path::makeDirectory(deep, 0700)) throw Refused();
    for (auto const* name : {"/one", "/two", "/three"}) prepare(deep + name, "");
    struct Counter : File::Processor {
        int process(File::Path const& path) override {
            names.insert(path.name());
            return 0;
        }
        std::set<std::string> names;
    } counter;
    File::Selector selector(File::Path(directory + "/tree"), counter);
    selector.start();
    File::Path const tree(directory + "/tree");
    tree.unlink(true);  // never throws: who must know looks
    if (tree.exists() || counter.names.size() != 3) throw Refused();
    return {};
}

std::string processes(std::string const&) {
    Process::Entry const self(::getpid());
    if (self.name().empty() || self.args().empty()) throw Refused();  // readers never throw
    std::size_t const open = self.fd().size();
    return same("descriptors", open < 10000, true);
}

std::string sockets(std::string const&) {
    Socket listener(Socket::Stream, false, true, AF_INET);
    listener.bind(SocketAddress(IPAddress("127.0.0.1"), 0), true);
    listener.listen(5);
    Socket client(Socket::Stream, true, true, AF_INET);
    client.timeout(5);
    client.connect(listener.localAddr());
    Socket server = listener.accept();
    server.timeout(5);
    std::string const bytes = "a line\nand more";
    for (std::size_t at = 0; at < bytes.size();) {
        auto const sent = client.send(bytesOf(bytes) + at, sizeOf(bytes) - static_cast<unsigned int>(at));
        if (sent <= 0) throw Refused();
        at += static_cast<std::size_t>(sent);
    }
    if (client.shutdown() != 0) throw Refused();
    Buffer line;
    server.readline(line);
    std::string rest;
    unsigned char block[64];
    for (ssize_t got; (got = server.receive(block, sizeof block)) != 0;) {
        if (got < 0) throw Refused();
        rest.append(reinterpret_cast<char const*>(block), static_cast<std::size_t>(got));
    }
    server.close();
    return same("the line", textOf(line).substr(0, 6), "a line") + same("the rest", rest, "and more");
}

std::string requests(std::string const&) {
    IPC::SocketIPC listener;
    listener.socket().timeout(5);
    listener.listen(SocketAddress(IPAddress("127.0.0.1"), 0));
    IPC::SocketIPC client;
    client.connect(listener.socket().localAddr());
    client.socket().timeout(5);
    std::string const bytes = mixedBytes(3000);
    IPC::Pdu request(77, bufferOf(bytes));
    if (client.send(request) <= 0) throw Refused();
    IPC::SocketIPC server = listener.accept();
    server.socket().timeout(5);
    IPC::Pdu got(0, 4096);
    if (server.receive(got) <= 0) throw Refused();
    if (server.send(got) <= 0) throw Refused();
    IPC::Pdu answer(0, 4096);
    if (client.receive(answer) <= 0) throw Refused();
    return same("the type", answer.type(), 77u) + same("the answer", textOf(answer.data()) == bytes, true);
}

std::string threads(std::string const&) {
    struct Work : Thread {
        void run() override { done = true; }
        std::atomic<bool> done{false};
    };
    Ref<Work> const work(new Work, false);
    ThreadJoin joiner = work->start();
    joiner.join();
    if (work->tid() == 0) throw Refused();  // how a thread says that it could not be made
    Semaphore semaphore(1);
    bool const waited = semaphore.timedwait(1000);
    return same("the work", work->done.load(), true) + same("the semaphore", waited, true);
}

/// All that a process has, but for the few that the C library holds memory for in every thread.
[[maybe_unused]] bool const areKeysTaken = [] {
    constexpr int inEveryThread = 32;
    pthread_key_t key{};
    bool isTaken = true;
    for (int at = 0; at < inEveryThread; ++at) isTaken = ::pthread_key_create(&key, nullptr) == 0;
    return isTaken;
}();

/// What a thread keeps for its next objects has to be noted when it first gives one back, which takes memory.
std::string firstInThread(std::string const& directory) {
    std::string wrong;
    std::exception_ptr failure;
    auto const work = [&] {
        try {
            wrong = addresses(directory) + addressesFromC(directory) + links(directory) + hosts(directory) +
                    dnsMessage(directory);
        } catch (...) {
            failure = std::current_exception();
        }
    };
    std::optional<std::thread> thread;
    {
        Spared const spared;
        thread.emplace(work);
    }
    thread->join();
    if (failure) std::rethrow_exception(failure);
    return wrong;
}

/// Waits that nobody ends but the clock.
std::string waits(std::string const&) {
    using namespace std::chrono_literals;
    using Clock = std::chrono::steady_clock;
    Socket listener(Socket::Stream, false, true, AF_INET);
    listener.bind(SocketAddress(IPAddress("127.0.0.1"), 0), true);
    listener.listen(1);
    Socket client(Socket::Stream, true, true, AF_INET);
    client.connect(listener.localAddr());
    Semaphore none(0);
    auto const begin = Clock::now();
    bool const taken = none.timedwait(20);
    auto const waited = Clock::now();
    qm_usleep(20'000, 0);
    auto const slept = Clock::now();
    unsigned char byte = 0;
    ssize_t const received = client.receive(&byte, 1, Clock::now() + 20ms);
    auto const end = Clock::now();
    auto const isInTime = [](auto passed) { return passed >= 19ms && passed < 5s; };
    if (slept - waited < 19ms) throw Refused();  // a sleep that the system refuses ends early
    return same("the semaphore", taken, false) + same("the socket", received, -1) +
           same("the wait for a semaphore", isInTime(waited - begin), true) +
           same("the sleep", isInTime(slept - waited), true) +
           same("the wait for a socket", isInTime(end - slept), true);
}

/// The next full minute is at most a minute away, by whatever the clock says when it is asked.
std::string periods(std::string const&) {
    Cron::Period const minutely(60, 0);
    long const before = ::time(nullptr);
    minutely.reset(0, false);
    long const ahead = minutely.next() - before;
    constexpr long hour = 3600;
    if (ahead < -2 * hour || ahead == 0) throw Refused();  // a zone that cannot be asked: no date to go by
    bool const isNear = (ahead > 0 && ahead <= 61) || (ahead >= hour && ahead <= hour + 61) ||
                        (ahead >= -hour && ahead <= 61 - hour);
    return same("the next minute", isNear, true) +
           same("its text", Cron::Period::time2str(nullptr).size() <= 19, true);
}

std::string values(std::string const&) {
    PatternContainer patterns;
    patterns.add("*.exe");
    std::string const* matched = nullptr;
    bool const match = patterns.match("invoice.exe", &matched);
    StringContainer strings;
    strings.add("one");
    TypeAndValue const pair("type", "value");
    Exception inner("inner", 4, "file", 7);
    Exception outer("outer", 5, "file", 8);
    outer.cause(inner);
    std::string const line = Logger::evt_fmt(7, "context", "%s %d", "text", 5);
    std::time_t const then = Time::then(86400, false).asTimeT();
    if (then == -1) throw Refused();
    return same("the match", match, true) + same("the pair", pair.value(), "value") +
           same("the exception", outer.asString().empty(), false) + same("the time", then, 86400) +
           same("the line", line.empty(), false);
}

/// The pool is there, or the first to ask for it is told.
std::string taskPoolStart(std::string const&) {
    return same("no pool", Task::TaskMaster::instance() == nullptr, false);
}

/// A hundred elements, each exactly once, and the task is finished.
std::string taskPool(std::string const&) {
    using namespace Task;
    {
        Spared const spared;  // a pool whose start failed stays as it is
        TaskMaster::instance();
    }
    struct Work : TaskImpl {
        struct Element : ElementImpl {
            explicit Element(std::atomic<int>& counted) : count(counted) {}
            void process() override { ++count; }
            std::atomic<int>& count;
        };
        Work() { type(static_cast<Type>(7)); }
        void createElements(uint_t id) override {
            for (int at = 0; at < 100; ++at) {
                Ref<ElementImpl> const element(new Element(count), false);
                element->taskId(id);
                add(element);
                ++added;
            }
            elementCreationFinished();
        }
        static void add(Ref<ElementImpl> const& element) { TaskMaster::instance()->add(element); }
        std::atomic<int> count{0};
        int added = 0;
    };
    auto* const work = new Work;
    Ref<TaskImpl> const task(work, false);
    try {
        TaskMaster::instance()->run(task);
    } catch (...) {
        // What was queued before is worked on all the same; it counts in this task, which must not go.
        for (int spin = 0; spin < 100000 && work->count < work->added; ++spin) ::sched_yield();
        throw;
    }
    auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (work->count < 100 && std::chrono::steady_clock::now() < until) ::sched_yield();
    return same("the number of elements", work->count.load(), 100);
}

/// A job in the table of a cron whose thread runs.
std::string cron(std::string const&) {
    struct Job : Cron::JobImpl {
        Job() : JobImpl(Cron::Period("03:10")) {}
        void task() override {}
    };
    Cron::Crontab* const crontab = Cron::Crontab::instance(true);
    crontab->add(Cron::Job(new Job, false));
    int count = 0;
    crontab->dump([](Cron::Job const&, void* counted) { ++*static_cast<int*>(counted); }, &count);
    return same("the number of jobs", count, 1);
}

/// A port of loopback that nobody listens on.
int freePort() {
    Spared const spared;
    Socket probe(Socket::Stream, false, true, AF_INET);
    probe.bind(SocketAddress(IPAddress("127.0.0.1"), 0), true);
    return static_cast<int>(probe.localAddr().asINET().port());
}

int dispatcherPort = 0;

/// A ping to the dispatcher that comes back.
std::string ping() {
    std::string const bytes = mixedBytes(500);
    IPC::SocketIPC client;
    client.connect(dispatcherPort);
    client.socket().timeout(2);
    if (client.send(IPC::Pdu(1, bufferOf(bytes))) <= 0) throw Refused();
    IPC::Pdu answer(0, 1024);
    if (client.receive(answer) <= 0) throw Refused();
    return same("the answer", textOf(answer.data()) == bytes, true);
}

std::string dispatcher(std::string const&) {
    dispatcherPort = freePort();
    IPC::Dispatcher* dispatcher = nullptr;
    {
        Spared const spared;  // nobody looks whether its thread could be made
        dispatcher = IPC::Dispatcher::instance(dispatcherPort);
    }
    dispatcher->add(IPC::Handler(new IPC::HandlerPing));
    if (!dispatcher->waitUntilReady(5)) throw Refused();
    return ping();
}

/// Whatever happened: as soon as the world is good again, so is the dispatcher.
std::string dispatcherRecovers() {
    IPC::Dispatcher* const dispatcher = IPC::Dispatcher::instance(dispatcherPort);
    if (dispatcher->find(1).isNull()) dispatcher->add(IPC::Handler(new IPC::HandlerPing));
    if (!dispatcher->waitUntilReady(5)) return "not ready";
    return ping();
}

constexpr Service services[] = {
    {"Addresses", addresses},
    {"AddressesFromC", addressesFromC},
    {"Links", links},
    {"Hosts", hosts},
    {"DomainLists", domainLists},
    {"DnsMessage", dnsMessage},
    {"Resolver", resolver},
    {"Buffers", buffers},
    {"Streams", streams},
    {"Swapping", swapping},
    {"FileStreams", fileStreams},
    {"Base64Files", base64Files},
    {"LineConversion", lineConversion},
    {"Trees", trees},
    {"Processes", processes},
    {"Sockets", sockets},
    {"Requests", requests},
    {"Threads", threads},
    {"FirstInThread", firstInThread},
    {"Waits", waits},
    {"Periods", periods},
    {"Values", values},
    {"TaskPoolStart", taskPoolStart, true},
    {"TaskPool", taskPool, true, [] { return taskPool({}); }},
    {"Cron", cron, true},
    {"Dispatcher", dispatcher, true, dispatcherRecovers},
};

}  // namespace

std::span<Service const> tour() {
    return services;
}

}  // namespace QuillmarkTest
