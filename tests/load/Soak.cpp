#include "tests/load/Soak.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tests/load/Mutations.h"
#include "tests/tools/Tool.h"

namespace QuillmarkLoad {
using namespace QuillmarkTest;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// Counts what is done, holds it to its pace, and looks at the process whenever a minute is over.
class Watched {
public:
    Watched(Pace const& pace, int process, char const* unit)
        : m_pace(pace), m_process(process), m_unit(unit) {}

    bool isOver() const {
        return (m_pace.length > 0s && Clock::now() - m_start >= m_pace.length) ||
               (m_pace.most != 0 && done() >= m_pace.most);
    }
    unsigned long done() const { return m_soaked.done; }
    /// One more is done. Comes back when it is time for the next.
    void count() {
        ++m_soaked.done;
        look();
        if (m_pace.perSecond <= 0) return;
        m_next +=
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / m_pace.perSecond));
        // Who fell behind does not storm to catch up.
        m_next = std::max(m_next, Clock::now() - 1s);
        std::this_thread::sleep_until(m_next);
    }
    void wrong(std::string const& what) {
        std::lock_guard const guard(m_lock);
        if (m_soaked.wrong.size() < 10) m_soaked.wrong.push_back(what);
        if (m_pace.isTold) say("wrong: %s", what.c_str());
    }
    /// What is wrong is no single answer any more.
    bool isBroken() const {
        std::lock_guard const guard(m_lock);
        return m_soaked.wrong.size() >= 10;
    }
    /// The figures, with the process as it is now.
    Soaked finish() {
        std::lock_guard const guard(m_lock);
        m_soaked.end = usageOf(m_process);
        if (m_soaked.warm.residentKib == 0) m_soaked.warm = m_soaked.end;
        return m_soaked;
    }

private:
    void look() {
        auto const passed = Clock::now() - m_start;
        bool const isWarm = m_pace.length > 0s ? passed * 10 >= m_pace.length : done() * 10 >= m_pace.most;
        if (isWarm && m_soaked.warm.residentKib == 0) m_soaked.warm = usageOf(m_process);
        auto const minutes = std::chrono::duration_cast<std::chrono::minutes>(passed).count();
        if (!m_pace.isTold || minutes == m_minutes) return;
        m_minutes = minutes;
        Usage const usage = usageOf(m_process);
        say("minute %2ld: %9s %s, VmRSS %lu KiB, %zu descriptors, %lu threads, %.1f s of processor time",
            static_cast<long>(minutes), grouped(done()).c_str(), m_unit, usage.residentKib, usage.descriptors,
            usage.threads, usage.cpuSeconds);
    }

    Pace const m_pace;
    int const m_process;
    char const* const m_unit;
    Clock::time_point const m_start = Clock::now();
    Clock::time_point m_next = m_start;
    long m_minutes = 0;
    mutable std::mutex m_lock;
    Soaked m_soaked;
};

// The daemon.

std::string const eicar = "44d88612fea8a8f36de82e1278abb02f";

/// Policy and lists of a daemon, which change all the time.
class Changes {
public:
    explicit Changes(TemporaryDirectory const& place) : m_place(place) {
        policy(60);
        lists("com\n");
    }
    std::string policyFile() const { return m_place.file("policy"); }
    std::string listsDirectory() const { return m_place.file("lists"); }
    /// @return whether the daemon can read what there is now
    bool change(unsigned long number) {
        if (number % 6 == 5) return replace("rule private-link sixty\n");
        if (number % 3 == 0) lists(number % 2 == 0 ? "com\n" : "com\nnet\norg\nco.uk\n");
        return policy(60 + static_cast<int>(number % 2));
    }

private:
    bool policy(int score) {
        replace("rule private-link " + std::to_string(score) + "\naction review 40\ndigest " + eicar +
                "  the EICAR test file\n");
        return true;
    }
    bool replace(std::string const& policy) {
        std::filesystem::rename(m_place.write("policy.new", policy), policyFile());
        return false;
    }
    void lists(char const* rules) {
        std::string const source = m_place.write("rules", rules);
        Ran const made = quillmark({"lists", "--source", source, "--out", listsDirectory()});
        if (made.status != 0) throw std::runtime_error("no lists: " + made.err);
    }

    TemporaryDirectory const& m_place;
};

/// What a client asks, and the answers of which it must hear one.
struct Question {
    std::string request;
    std::array<std::string, 2> answers;
};

Question question(unsigned long number, Random& random) {
    switch (random() % 3) {
    case 0: {
        std::string bytes(random() % 1017, '\0');
        for (char& c : bytes) c = static_cast<char>(random());
        return {message(1, bytes), {message(1, bytes), ""}};
    }
    case 1: {
        std::array<char, 33> unknown{};
        std::snprintf(unknown.data(), unknown.size(), "%032lx", number);
        return {message(51, std::string(unknown.data()) + "\n" + eicar + "\n"),
                {message(51, eicar + " the EICAR test file\n"), ""}};
    }
    default: {
        std::string const host =
            "10.0." + std::to_string(number >> 8 & 255) + "." + std::to_string(number & 255);
        auto const verdict = [&](char const* score) {
            return message(52, std::string("score ") + score + "\naction review\nreason private-link " +
                                   score + " " + host + "\n");
        };
        return {message(52, "sender example.com\nlink " + host + "\n"), {verdict("60"), verdict("61")}};
    }
    }
}

/// What no request is like, and what it is answered with.
struct Rubbish {
    std::string bytes;
    std::string answer;
};

std::vector<Rubbish> const& rubbish() {
    static std::vector<Rubbish> const rows = {
        {"", ""},
        {"GET / HTTP/1.0\r\n\r\n", ""},
        {message(4711, "x"), ""},
        {message(0xffffffff, ""), ""},
        {message(52, "link 10.0.0.1\n", 0xffffffff), ""},
        {message(1, "x", 0xfffffff8), ""},
        {message(53, "xyz", 4), ""},
        {message(1, "a") + message(1, "b"), message(1, "a")},
        {message(1, std::string(5000, 'p')), message(1, std::string(1016, 'p'), 5000)},
        {message(52, std::string(100'000, 'x')), message(52, "error the request has more than 1016 bytes\n")},
        {message(51, std::string(1016, '\0')), message(51, "error a line is no MD5 digest\n")},
    };
    return rows;
}

/// One visit to the daemon, of whatever kind.
class Visitor {
public:
    Visitor(std::uint16_t port, Watched& watched) : m_port(port), m_watched(watched) {}

    void visit(unsigned long number) {
        Question const asking = question(number, m_random);
        switch (auto const kind = m_random() % 20) {
        case 0:
        case 1: {  // half a request that ends, or breaks
            Client const client = reach();
            client.sendCut(asking.request.substr(0, m_random() % asking.request.size()), m_random);
            if (kind == 0) client.resetAtTheEnd();
            break;
        }
        case 2: {  // who does not wait for the answer
            Client const client = reach();
            if (client.send(asking.request)) ++m_unheard;
            break;
        }
        case 3:  // silence
            m_silent.push_back(reach());
            if (m_silent.size() > 20) m_silent.pop_front();
            break;
        case 4:
        case 5: {
            Rubbish const& row = rubbish()[m_random() % rubbish().size()];
            hear(row.bytes, {row.answer, row.answer}, false);
            break;
        }
        default: hear(asking.request, asking.answers, kind % 2 == 0); break;
        }
    }
    unsigned long unheard() const { return m_unheard; }
    unsigned long judged() const { return m_judged; }
    void leave() { m_silent.clear(); }

private:
    /// A queue of ten may be full for a moment.
    Client reach() const {
        for (int attempt = 0; attempt < 100; ++attempt) {
            Client client(m_port);
            if (client.isConnected()) return client;
        }
        throw std::runtime_error("the daemon cannot be reached");
    }
    void hear(std::string const& request, std::array<std::string, 2> const& answers, bool isCut) {
        std::string heard;
        for (int attempt = 0; attempt < 100; ++attempt) {
            Client const client = reach();
            bool const sent = isCut ? client.sendCut(request, m_random) : client.send(request);
            if (sent) client.endSending();
            heard = client.answer();
            if (heard != "reset") break;  // turned away before it was heard
        }
        if (heard != answers[0] && heard != answers[1])
            m_watched.wrong("asked " + hex(request.substr(0, 60)) + ", heard " + hex(heard.substr(0, 60)));
        if (heard.find("private-link") != std::string::npos) ++m_judged;
    }

    std::uint16_t const m_port;
    Watched& m_watched;
    Random m_random{1};
    std::deque<Client> m_silent;
    unsigned long m_unheard = 0;
    unsigned long m_judged = 0;
};

/// What a program says on standard error, read as it comes, so that it never waits for us.
class Errors {
public:
    explicit Errors(Running& run)
        : m_reader([&run, this] {
              for (std::string line; run.error(line);) {
                  if (line == "quillmark: policy and lists are read again") ++readAgain;
                  if (line == "quillmark: what was read before goes on") ++refused;
              }
          }) {}
    ~Errors() { m_reader.join(); }  // the program has ended
    Errors(Errors const&) = delete;
    Errors& operator=(Errors const&) = delete;

    std::atomic<unsigned long> readAgain{0};
    std::atomic<unsigned long> refused{0};

private:
    std::thread m_reader;
};

std::uint16_t portIn(std::string const& greeting) {
    std::size_t const at = greeting.find("127.0.0.1:");
    if (at == std::string::npos) throw std::runtime_error("the daemon does not serve: " + greeting);
    return static_cast<std::uint16_t>(std::stoul(greeting.substr(at + 10)));
}

}  // namespace

Soaked soakServe(Pace const& pace) {
    TemporaryDirectory const place;
    TemporaryDirectory const temporary;
    Changes changes(place);
    Running daemon(
        {"serve", "--port", "0", "--policy", changes.policyFile(), "--lists", changes.listsDirectory()},
        {{}, {{"TMPDIR", temporary.path()}}});
    std::uint16_t const port = portIn(daemon.line());
    std::size_t const files = entriesBelow(place.path());
    Watched watched(pace, daemon.process(), "requests");
    Visitor visitor(port, watched);
    unsigned long const changeEvery =
        pace.perSecond > 0 ? static_cast<unsigned long>(pace.perSecond * 10) : 200;
    unsigned long changed = 0;
    {
        Errors errors(daemon);
        try {
            while (!watched.isOver()) {
                visitor.visit(watched.done());
                // A change in four is left to the daemon to find, at the next full minute.
                if (watched.done() % changeEvery == changeEvery - 1) {
                    changes.change(changed);
                    if (changed++ % 4 != 3) daemon.signal(SIGHUP);
                }
                watched.count();
            }
            visitor.leave();
            // The daemon is asked for its counts last, so that all before is done with.
            Client const last(port);
            last.send(message(53, ""));
            std::string const counts = last.answer();
            std::size_t const at = counts.find("\nmessages ");
            unsigned long const judged = at == std::string::npos ? 0 : std::stoul(counts.substr(at + 10));
            if (judged < visitor.judged() || judged > visitor.judged() + visitor.unheard())
                watched.wrong("judged " + std::to_string(judged) + ", heard " +
                              std::to_string(visitor.judged()));
        } catch (std::exception const& e) {
            watched.wrong(e.what());
        }
        Soaked soaked = watched.finish();
        daemon.signal(SIGTERM);
        std::string const farewell = daemon.line();
        if (!farewell.starts_with("served "))
            soaked.wrong.push_back("the daemon took leave with: " + farewell);
        if (int const status = daemon.wait(); status != 0)
            soaked.wrong.push_back("the daemon ended with " + std::to_string(status));
        if (pace.isTold)
            say("%s; policy and lists changed %lu times, read again %lu times, refused %lu times",
                farewell.c_str(), changed, errors.readAgain.load(), errors.refused.load());
        soaked.filesLeft = entriesBelow(temporary.path()) + entriesBelow(place.path()) - files;
        return soaked;
    }
}

// The scan.

namespace {

/// The paths that a scan was given, in whose order it has to report.
class Given {
public:
    void add(std::string const& path) {
        std::lock_guard const guard(m_lock);
        m_paths.push_back(path);
    }
    /// The report of @p path is here. An mbox has several, one after the other.
    /// @return "" or what is wrong
    std::string reported(std::string const& path) {
        std::lock_guard const guard(m_lock);
        if (path == m_last) return {};
        if (m_paths.empty() || m_paths.front() != path)
            return "reported on " + path + " instead of " + (m_paths.empty() ? "nothing" : m_paths.front());
        std::filesystem::remove(path);
        m_last = path;
        m_paths.pop_front();
        return {};
    }
    std::size_t waiting() const {
        std::lock_guard const guard(m_lock);
        return m_paths.size();
    }

private:
    mutable std::mutex m_lock;
    std::deque<std::string> m_paths;
    std::string m_last;
};

/// The path in a line of the report.
std::string pathIn(std::string const& line) {
    static constexpr std::string_view key = "\"file\":\"";
    std::size_t const at = line.find(key);
    if (at == std::string::npos) return "a line without a file";
    return line.substr(at + key.size(), line.find('"', at + key.size()) - at - key.size());
}

}  // namespace

Soaked soakScan(Pace const& pace) {
    TemporaryDirectory const place;
    for (char const* part : {"mail/cur", "mail/new", "mail/tmp", "swap"})
        std::filesystem::create_directories(place.file(part));
    std::string const queue = place.file("queue");
    if (::mkfifo(queue.c_str(), 0600) != 0) throw std::runtime_error("no pipe");
    // A small threshold, so that nearly every body goes through a swap file.
    Running scan({"scan", "--json", "--lists", testLists(), "--memory", "2000", "--tmp", place.file("swap"),
                  "--files-from", queue});
    Watched watched(pace, scan.process(), "messages");
    Given given;
    std::thread reader([&] {
        for (std::string line; !(line = scan.line()).empty();)
            if (std::string const wrong = given.reported(pathIn(line)); !wrong.empty()) watched.wrong(wrong);
    });
    std::thread errors([&] {
        for (std::string line; scan.error(line);) watched.wrong("said: " + line);
    });
    Random random(1);
    int const paths = ::open(queue.c_str(), O_WRONLY | O_CLOEXEC);
    while (!watched.isOver() && !watched.isBroken()) {
        std::string const path = place.file("mail/cur/" + std::to_string(watched.done()) + ":2,");
        writeFile(path, brokenMessage(random));
        given.add(path);
        std::string const line = path + "\n";
        if (::write(paths, line.data(), line.size()) != static_cast<ssize_t>(line.size())) break;
        watched.count();
        while (given.waiting() > 500 && !watched.isBroken()) std::this_thread::sleep_for(1ms);
    }
    // Everything that was given is reported on while the scan still waits for more.
    auto const until = Clock::now() + 1min;
    while (given.waiting() != 0 && Clock::now() < until) std::this_thread::sleep_for(1ms);
    Soaked soaked = watched.finish();
    ::close(paths);
    reader.join();
    errors.join();
    int const status = scan.wait();
    soaked.wrong = watched.finish().wrong;
    if (status > 1) soaked.wrong.push_back("the scan ended with " + std::to_string(status));
    if (std::size_t const waiting = given.waiting(); waiting != 0)
        soaked.wrong.push_back(std::to_string(waiting) + " messages without a report");
    soaked.filesLeft = entriesBelow(place.file("swap")) + entriesBelow(place.file("mail")) - 3;
    return soaked;
}

}  // namespace QuillmarkLoad
