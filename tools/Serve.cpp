// quillmark serve: a daemon that judges messages for whoever asks over the library's protocol.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <mutex>
#include <new>

#include "include2/Exception"
#include "include2/QuillCron"
#include "include2/QuillIPC"
#include "include2/TopLevelDomain"
#include "platform/quill_cfg.h"
#include "tools/Commands.h"
#include "tools/Daemon.h"
#include "tools/DomainLists.h"
#include "tools/Judge.h"
#include "tools/Watch.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

/// What the handlers share. It is never destroyed, as the dispatcher's thread is not.
class Service {
public:
    std::shared_ptr<Judge const> judge() const {
        std::lock_guard const guard(m_lock);
        return m_judge;
    }
    void judge(std::shared_ptr<Judge const> judge) {
        std::lock_guard const guard(m_lock);
        m_judge = std::move(judge);
    }
    std::string statistics() const {
        auto const up = std::chrono::steady_clock::now() - m_start;
        std::string text =
            "seconds " + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(up).count()) + "\n";
        auto const add = [&](char const* name, std::atomic<unsigned long> const& count) {
            text += name + std::to_string(count) + "\n";
        };
        add("digests ", digests);
        add("known ", known);
        add("messages ", messages);
        add("accept ", actions[0]);
        add("review ", actions[1]);
        add("reject ", actions[2]);
        add("refused ", refused);
        return text;
    }

    /// Held while a request is handled. Whoever keeps it lets no request begin any more.
    std::mutex& turn() { return m_turn; }

    std::atomic<unsigned long> digests{0};   // looked up
    std::atomic<unsigned long> known{0};     // of those
    std::atomic<unsigned long> messages{0};  // judged
    std::array<std::atomic<unsigned long>, 3> actions{};
    std::atomic<unsigned long> refused{0};  // requests that are none

private:
    std::mutex m_turn;
    mutable std::mutex m_lock;
    std::shared_ptr<Judge const> m_judge;
    std::chrono::steady_clock::time_point const m_start = std::chrono::steady_clock::now();
};

Service& service() {
    static Service* const only = new Service;
    return *only;
}

std::string refusal(char const* reason) {
    ++service().refused;
    return std::string("error ") + reason + "\n";
}

/// Answers a text with a text, on the dispatcher's own thread: no answer takes longer than a moment.
class TextHandler final : public IPC::HandlerImpl {
public:
    using Work = std::string (*)(std::string_view request);
    TextHandler(unsigned int type, Work work) : m_work(work) { this->type(type); }
    int task(IPC::SocketIPC& connection, IPC::Pdu const& request) const override {
        std::lock_guard const turn(service().turn());
        IPC::Pdu answer(type(), 8);
        answer << answerTo(request);
        connection << answer;
        return 0;
    }

private:
    std::string answerTo(IPC::Pdu const& request) const {
        Buffer const payload = request.data();
        // A dispatcher cuts what is too long. Half a line would be answered for a whole one.
        if (payload.length() < sentLength(request)) return refusal("the request has more than 1016 bytes");
        return m_work({reinterpret_cast<char const*>(payload.data()), payload.length()});
    }

    Work m_work;
};

/// Answers a ping as the library does.
class PingHandler final : public IPC::HandlerImpl {
public:
    PingHandler() { type(AskPing); }
    int task(IPC::SocketIPC& connection, IPC::Pdu const& request) const override {
        std::lock_guard const turn(service().turn());
        return IPC::HandlerPing().task(connection, request);
    }
};

std::string lookUp(std::string_view request) {
    std::string text;
    auto const judge = service().judge();
    for (std::string_view const line : lines(request)) {
        if (!isDigest(line)) return refusal("a line is no MD5 digest");
        ++service().digests;
        auto const found = judge->policy().digests.find(std::string(line));
        if (found == judge->policy().digests.end()) continue;
        ++service().known;
        text += std::string(line) + (found->second.empty() ? "" : " ") + found->second + "\n";
    }
    return text;
}

std::string judged(std::string_view request) {
    auto const features = Features::fromText(request);
    if (!features) return refusal("a line is no feature");
    Verdict const verdict = service().judge()->judge(*features);
    ++service().messages;
    ++service().actions[static_cast<std::size_t>(verdict.action)];
    return verdict.asText();
}

std::string counts(std::string_view) {
    return service().statistics();
}

/// A port of loopback that nobody listens on just now; 0 when there is none.
unsigned short freePort() {
    int const probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    bool const bound = ::bind(probe, any, size) == 0 && ::getsockname(probe, any, &size) == 0;
    ::close(probe);
    return bound ? ntohs(address.sin_port) : static_cast<unsigned short>(0);
}

/// Whether a file that could not be read may be readable later and still look as it does. What is not there, or is
/// no file, looks different when that is mended.
bool mayPass(int error) {
    return error != ENOENT && error != ENOTDIR && error != EISDIR;
}

/// Reads policy and lists: at the start, when it is told to, and when one of their files changed.
/// It is never destroyed, as the crontab's thread is not.
class Loader {
public:
    explicit Loader(ServeOptions const& options) : m_options(options) {}

    /// What cannot be read is said, and what was read before goes on. Lists that nobody named may be missing.
    /// @return whether the daemon can begin with that
    bool load() {
        std::lock_guard const guard(m_lock);
        Loaded const loaded = loadNow();
        return loaded.policy && (loaded.lists || m_options.lists.empty());
    }
    void reload() {
        std::lock_guard const guard(m_lock);
        reloadNow();
    }
    void reloadWhatChanged() {
        std::lock_guard const guard(m_lock);
        if (m_files.changed()) reloadNow();
    }

private:
    struct Loaded {
        bool policy;
        bool lists;
    };
    Loaded loadNow();
    void reloadNow() {
        Loaded const loaded = loadNow();
        complain(loaded.policy && loaded.lists ? "policy and lists are read again"
                                               : "what was read before goes on");
    }
    void watch();
    bool loadPolicy();
    bool loadLists();
    bool done(bool (Loader::*part)());

    std::mutex m_lock;  // the crontab's thread and the one that waits for signals both load
    ServeOptions const m_options;
    WatchedFiles m_files;
};

Loader::Loaded Loader::loadNow() {
    try {
        watch();  // first: a file that changes while it is read shall be read again
    } catch (std::bad_alloc const&) {
        m_files.forget();
    }
    bool const policy = done(&Loader::loadPolicy);
    bool const lists = done(&Loader::loadLists);
    return {policy, lists};
}

void Loader::watch() {
    std::vector<std::string> files = domainListFiles(m_options.lists);
    if (!m_options.policy.empty()) files.push_back(m_options.policy);
    m_files.watch(files);
}

/// Does a part of the work, which nothing that goes wrong may end the daemon for. When what went wrong is not the
/// text's fault, the next minute tries again.
bool Loader::done(bool (Loader::*part)()) {
    try {
        return (this->*part)();
    } catch (Exception const& e) {
        m_files.forget();
        complain(e.asString());
    } catch (std::exception const& e) {
        m_files.forget();
        complain(e.what());
    }
    return false;
}

bool Loader::loadPolicy() {
    try {
        service().judge(std::make_shared<Judge const>(readPolicy(m_options.policy)));
        return true;
    } catch (UnreadablePolicy const& e) {
        if (mayPass(e.error)) m_files.forget();
        complain(e.what());
    } catch (BadPolicy const& e) {
        complain(e.what());
    }
    return false;
}

bool Loader::loadLists() {
    ListsInUse const lists = useDomainLists(m_options.lists);
    if (!lists.complaint.empty()) complain(lists.complaint);
    if (!lists.good) {
        if (mayPass(lists.error)) m_files.forget();
        return false;
    }
    // From here on the library reads the lists again. It does so when it needs them, which may be after they went
    // away: so they are needed now.
    quill_cfg_new_generation();
    DomainNameCountryCodeContainer::instance();
    DomainNameGenericCodeContainer::instance();
    DomainNameInternationalDomainNameCodeContainer::instance();
    return true;
}

}  // namespace

int serve(ServeOptions const& options, Output& output) {
    static Loader* const loader = new Loader(options);
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // who tells us early to read again does not end us
    if (!loader->load()) return Failed;
    // Before the dispatcher and the crontab make their threads, so that signals come here and nowhere else.
    for (int const number : {SIGTERM, SIGINT}) ::sigaddset(&signals, number);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    unsigned short const port = options.port != 0 ? options.port : freePort();
    IPC::Dispatcher* const dispatcher = IPC::Dispatcher::instance(port);
    dispatcher->add(IPC::Handler(new PingHandler));
    dispatcher->add(IPC::Handler(new TextHandler(AskDigests, lookUp)));
    dispatcher->add(IPC::Handler(new TextHandler(AskFeatures, judged)));
    dispatcher->add(IPC::Handler(new TextHandler(AskStatistics, counts)));
    if (!dispatcher->waitUntilReady(3)) {
        complain("cannot listen on 127.0.0.1:" + std::to_string(port));
        return Failed;
    }
    Cron::Crontab::instance(true)->add(
        Cron::Job(new EveryMinute([] { loader->reloadWhatChanged(); }), false));
    output.line("serving on 127.0.0.1:" + std::to_string(port) + " by " +
                harmless(service().judge()->policy().name));
    output.flush();
    for (int number = 0; ::sigwait(&signals, &number) == 0 && number == SIGHUP;) loader->reload();
    service().turn().lock();  // for good: what was begun is answered, and nothing else begins
    try {
        output.line("served " + counted(service().messages, "message", "messages"));
        output.flush();
    } catch (Output::Closed const&) {
        // Whoever read the first line need not stay until the last.
    }
    return Fine;
}

}  // namespace QuillmarkTool
