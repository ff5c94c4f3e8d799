#include "tests/load/Storm.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "include2/QuillIPC"
#include "tests/load/Client.h"
#include "tests/support/Support.h"

namespace QuillmarkLoad {
using namespace Quillmark;
using namespace QuillmarkTest;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t inlineType = 77;
constexpr std::uint32_t threadType = 78;

std::string bytesOf(std::uint64_t number) {
    return {reinterpret_cast<char const*>(&number), sizeof number};
}

std::string_view textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

/// Which requests came, and how often.
class Book {
public:
    explicit Book(unsigned long requests) : m_seen(requests) {}
    void enter(std::uint64_t number) {
        if (number < m_seen.size()) ++m_seen[number];
        {
            std::lock_guard const guard(m_lock);
            ++m_count;
        }
        m_changed.notify_one();
    }
    /// Waits for the request that makes it so many. @return whether it came within a minute after the one before
    bool waitFor(unsigned long count) {
        std::unique_lock lock(m_lock);
        while (m_count < count) {
            unsigned long const before = m_count;
            if (!m_changed.wait_for(lock, 1min, [&] { return m_count > before; })) return false;
        }
        return true;
    }
    unsigned long withCount(bool (*holds)(unsigned int)) const {
        return static_cast<unsigned long>(
            std::count_if(m_seen.begin(), m_seen.end(), [&](auto const& seen) { return holds(seen); }));
    }

private:
    std::vector<std::atomic<std::uint8_t>> m_seen;
    std::mutex m_lock;
    std::condition_variable m_changed;
    unsigned long m_count = 0;
};

/// Answers with the number of a request and the digest of all of it.
class DigestHandler final : public IPC::HandlerImpl {
public:
    DigestHandler(std::uint32_t type, bool threaded, Book& book) : m_book(book) {
        this->type(type);
        threadRequired(threaded);
    }
    int task(IPC::SocketIPC& connection, IPC::Pdu const& request) const override {
        std::string_view const payload = textOf(request.data());
        std::uint64_t number = ~std::uint64_t{0};
        if (payload.size() >= sizeof number) std::memcpy(&number, payload.data(), sizeof number);
        IPC::Pdu answer(type(), 24);
        answer << bytesOf(number) + bytesOf(digestOf(payload));
        connection << answer;
        m_book.enter(number);
        return 0;
    }

private:
    Book& m_book;
};

/// The dispatcher of this process. There is one, on a port that was free.
std::uint16_t dispatcherPort() {
    static std::uint16_t const port = [] {
        unsigned int free = 0;
        {
            Socket probe(Socket::Stream, false, true, AF_INET);
            probe.bind(SocketAddress(IPAddress("127.0.0.1"), 0), true);
            free = probe.localAddr().asINET().port();
        }
        if (!IPC::Dispatcher::instance(static_cast<int>(free))->waitUntilReady(30))
            throw std::runtime_error("the dispatcher does not listen");
        return static_cast<std::uint16_t>(free);
    }();
    return port;
}

// The clients' side, in a process of its own.

struct Heard {
    std::atomic<unsigned long> answered{0};
    std::atomic<unsigned long> turnedAway{0};
    std::mutex lock;
    std::vector<std::string> wrong;
};

/// One request, made again while a full queue turns it away unheard.
void ask(std::uint16_t port, std::uint64_t number, Random& random, Heard& heard) {
    std::string payload = bytesOf(number);
    payload.resize(payload.size() + random() % 1000);
    for (std::size_t i = sizeof number; i < payload.size(); ++i) payload[i] = static_cast<char>(random());
    std::uint32_t const type = random() % 8 == 0 ? threadType : inlineType;
    std::string const expected = message(type, bytesOf(number) + bytesOf(digestOf(payload)));
    std::string answer = "no connection";
    for (int attempt = 0; attempt < 1000; ++attempt) {
        Client const client(port);
        if (client.isConnected() && client.sendCut(message(type, payload), random)) {
            answer = client.answer();
            if (answer != "reset") break;
        }
        ++heard.turnedAway;
    }
    if (answer == expected) {
        ++heard.answered;
        return;
    }
    std::lock_guard const guard(heard.lock);
    if (heard.wrong.size() < 5)
        heard.wrong.push_back("request " + std::to_string(number) + ": " + hex(answer.substr(0, 40)));
}

/// Does not come back.
[[noreturn]] void beClients(std::uint16_t port, StormOptions const& options, std::string const& report) {
    Heard heard;
    std::atomic<unsigned long> next{0};
    std::vector<std::thread> threads;
    for (unsigned int client = 0; client < options.clients; ++client)
        threads.emplace_back([&, client] {
            Random random(client + 1);
            for (unsigned long number; (number = next++) < options.requests;)
                ask(port, number, random, heard);
        });
    for (auto& thread : threads) thread.join();
    {
        std::ofstream out(report);
        out << heard.answered << ' ' << heard.turnedAway << '\n';
        for (std::string const& wrong : heard.wrong) out << wrong << '\n';
    }
    ::_exit(0);
}

}  // namespace

Sample sampled(unsigned long done, char const* unit, bool isTold) {
    Usage const usage = ownUsage();
    Sample const sample{done, usage.residentKib, heapBytes(), usage.descriptors};
    if (isTold)
        say("%10s %s, VmRSS %lu KiB, heap %s bytes, %zu descriptors", grouped(done).c_str(), unit,
            sample.residentKib, grouped(sample.heap).c_str(), sample.descriptors);
    return sample;
}

bool isFlat(std::vector<Sample> const& samples, unsigned long slackKib) {
    if (samples.empty()) return false;
    Sample const& first = samples.front();
    return std::all_of(samples.begin(), samples.end(), [&](Sample const& sample) {
        return sample.residentKib <= first.residentKib + slackKib &&
               sample.heap <= first.heap + slackKib * 1024 &&
               sample.descriptors <= first.descriptors + 70;  // those who are being asked just now
    });
}

Stormed storm(StormOptions const& options) {
    TemporaryDirectory const place;
    // The clients are there first: a process with threads is no good parent.
    std::array<int, 2> begin{};
    if (::pipe2(begin.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    pid_t const clients = ::fork();
    if (clients == 0) {
        std::uint16_t port = 0;
        ::close(begin[1]);
        if (::read(begin[0], &port, sizeof port) != sizeof port) ::_exit(1);
        beClients(port, options, place.file("report"));
    }
    ::close(begin[0]);
    // The handlers outlive this call, as the dispatcher does.
    auto* const book = new Book(options.requests);
    std::uint16_t const port = dispatcherPort();
    auto* const dispatcher = IPC::Dispatcher::instance(port);
    dispatcher->add(IPC::Handler(new DigestHandler(inlineType, false, *book)));
    dispatcher->add(IPC::Handler(new DigestHandler(threadType, true, *book)));
    Stormed stormed;
    auto const start = Clock::now();
    if (::write(begin[1], &port, sizeof port) != sizeof port) throw std::runtime_error("no clients");
    ::close(begin[1]);
    for (unsigned long count = options.sampleEvery; count <= options.requests; count += options.sampleEvery) {
        if (!book->waitFor(count)) break;
        stormed.samples.push_back(sampled(count, "requests", options.isTold));
    }
    int status = 0;
    ::waitpid(clients, &status, 0);
    stormed.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (status != 0) stormed.wrong.push_back("the clients ended with " + std::to_string(status));
    std::ifstream report(place.file("report"));
    report >> stormed.answered >> stormed.turnedAway;
    report.ignore(1);
    for (std::string line; std::getline(report, line);) stormed.wrong.push_back(line);
    stormed.lost = book->withCount([](unsigned int count) { return count == 0; });
    stormed.twice = book->withCount([](unsigned int count) { return count > 1; });
    return stormed;
}

namespace {

/// A client that sends a long request byte by byte and never comes to its end.
class Walker {
public:
    explicit Walker(std::uint16_t port) : m_port(port), m_client(port) {}
    /// Sends the next byte, from a new connection if the old one was closed. @return whether it was
    bool walk() {
        bool const isClosed = m_sent != 0 && m_client.isReadable(0ms);
        if (isClosed) {
            m_client = Client(m_port);
            m_sent = 0;
        }
        if (m_sent < m_request.size() - 1) m_client.send(m_request.substr(m_sent++, 1));
        return isClosed;
    }

private:
    std::uint16_t const m_port;
    Client m_client;
    std::string const m_request = message(1, std::string(1016, 'w'));
    std::size_t m_sent = 0;
};

}  // namespace

Delays askBesideSlowClients(SlowOptions const& options) {
    std::uint16_t const port = dispatcherPort();
    IPC::Dispatcher::instance(port)->add(IPC::Handler(new IPC::HandlerPing));
    std::vector<std::unique_ptr<Client>> silent;
    std::vector<std::unique_ptr<Walker>> slow;
    // None of these is read by anybody; each is only there.
    for (unsigned int i = 0; i < options.silent; ++i) silent.push_back(std::make_unique<Client>(port));
    for (unsigned int i = 0; i < options.slow; ++i) slow.push_back(std::make_unique<Walker>(port));
    Delays delays;
    std::vector<double> waited;
    auto step = Clock::now();
    for (unsigned long ask = 0; ask < options.asks; ++ask) {
        bool const isStep = options.bytesEvery != 0 ? ask % options.bytesEvery == 0 : Clock::now() >= step;
        if (isStep) {
            step += 1s;
            for (auto const& walker : slow) {
                ++delays.slowBytes;
                if (walker->walk()) ++delays.sentAway;
            }
        }
        std::string const request = message(1, "ask " + std::to_string(ask));
        auto const start = Clock::now();
        Client const good(port);
        bool const sent = good.isConnected() && good.send(request);
        std::string const answer = sent ? good.answer() : "no connection";
        waited.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        if (answer != request && delays.wrong.size() < 5)
            delays.wrong.push_back("ask " + std::to_string(ask) + ": " + hex(answer));
        if (options.isTold && (ask + 1) % 200 == 0)
            say("%lu asks, the last one took %.6f s", ask + 1, waited.back());
        if (options.between > 0ms) std::this_thread::sleep_for(options.between);
    }
    std::sort(waited.begin(), waited.end());
    delays.asked = waited.size();
    delays.median = waited[waited.size() / 2];
    delays.most95 = waited[waited.size() * 95 / 100];
    delays.longest = waited.back();
    return delays;
}

}  // namespace QuillmarkLoad
