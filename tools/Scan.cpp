// quillmark scan: goes through files, mailboxes and directories and reports on every message.
//
// The thread that runs the command finds the sources and makes batches of them, each an element of one task of
// the library's pool. The workers turn batches into text, which leaves in the order of the batches.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>

#include "include2/BufferMedia"
#include "include2/Exception"
#include "include2/FileMedia"
#include "include2/QuillTask"
#include "include2/QuillThread"
#include "include2/UriSniffer"
#include "tools/Arbiter.h"
#include "tools/Commands.h"
#include "tools/Counting.h"
#include "tools/DomainLists.h"
#include "tools/Examine.h"
#include "tools/InOrder.h"
#include "tools/Json.h"
#include "tools/Mime.h"
#include "tools/Progress.h"
#include "tools/Report.h"
#include "tools/Sources.h"
#include "tools/Stop.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

// A batch takes some milliseconds, beside which handing it over is nothing. The first ones are smaller, so that
// a handful of messages keeps every worker busy too.
constexpr std::size_t mostSources = 64;
constexpr std::uint64_t mostBytes = 1U << 20;
constexpr unsigned int workers = 5;
// How many batches may be worked on or wait for a worker, and how many more for their turn to be written.
constexpr unsigned int mostUnfinished = 2 * workers;
constexpr unsigned int window = 4 * workers;
// A batch speaks when it has this much to say, or has kept silent for so long.
constexpr std::size_t muchText = 32768;
constexpr std::chrono::milliseconds longSilence{100};

/// A descriptor that is closed with its scope.
struct Descriptor {
    int number;
    explicit Descriptor(int descriptor) : number(descriptor) {}
    ~Descriptor() { ::close(number); }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
};

/// Nothing to read in a file, and why.
struct Unreadable {
    std::string reason;
};

std::string usableTemporary(std::string const& wanted) {
    char const* const users = std::getenv("TMPDIR");
    for (std::string const& directory :
         {wanted, std::string("/var/spool/tmp"), std::string(users ? users : ""), std::string("/tmp")}) {
        if (!directory.empty() && ::access(directory.c_str(), W_OK | X_OK) == 0) return directory;
        if (!wanted.empty()) break;  // whoever names a place means it
    }
    return {};
}

/// What the batches of a scan share.
struct Scan {
    ScanOptions const& options;
    Arbiter const& arbiter;
    ExamineOptions const examine;
    Painter const paint;
    Progress& progress;
    InOrder& order;
    std::mutex lock{};
    Totals totals{};  // guarded by the lock
};

/// Some sources on their way to text.
class Batch final : public Task::ElementImpl {
public:
    Batch(Scan& scan, std::uint64_t number, std::vector<Source> sources)
        : m_scan(scan), m_number(number), m_sources(std::move(sources)) {}
    void process() override;

private:
    using Clock = std::chrono::steady_clock;

    void source(Source const& source);
    void messages(Source const& source, Mime::Reader& reader);
    std::unique_ptr<Mime::Reader> open(std::string const& path);
    std::unique_ptr<Mime::Reader> openPipe(int descriptor);
    void judge(MessageReport& report) const;
    void say(MessageReport const& report);
    void sayError(std::string const& path, std::string const& error);
    void speak();

    Scan& m_scan;
    std::uint64_t const m_number;
    std::vector<Source> const m_sources;
    Totals m_totals;
    std::string m_text;
    Clock::time_point m_spoken = Clock::now();
};

void Batch::process() {
    // Whatever comes, the batches behind this one wait for its end. From there on the scan may be over.
    struct End {
        InOrder& order;
        std::uint64_t const number;
        ~End() { order.end(number); }
    } const end{m_scan.order, m_number};
    try {
        for (Source const& next : m_sources) {
            if (Stop::isWanted()) break;
            source(next);
        }
        speak();
        std::lock_guard const guard(m_scan.lock);
        m_scan.totals.add(m_totals);
    } catch (...) {
        // Sources are left out: a report that goes on as if nothing had happened would be wrong.
        m_scan.order.failed(std::current_exception());
        Stop::now();
    }
}

void Batch::source(Source const& source) {
    if (!source.error.empty()) return sayError(source.path, source.error);
    try {
        if (source.path == "-" && ::isatty(STDIN_FILENO) != 0)
            complain("reading a message from the terminal; Ctrl-D ends it");
        messages(source, source.path == "-" ? *openPipe(STDIN_FILENO) : *open(source.path));
    } catch (Unreadable const& e) {
        sayError(source.path, e.reason);
    } catch (Mime::Unreadable const& e) {
        sayError(source.path, std::strerror(e.error));
    } catch (Exception const& e) {
        sayError(source.path, detailOf(e));
    } catch (std::exception const& e) {
        sayError(source.path, e.what());
    }
}

void Batch::messages(Source const& source, Mime::Reader& reader) {
    Mime::Message message;
    std::size_t number = 0;
    std::uint64_t behind = 0;  // bytes of the messages before
    while (!Stop::isWanted() && reader.next(message)) {
        auto const offset = static_cast<std::uint64_t>(message.offset());
        MessageReport report = examine(message, m_scan.examine);
        report.file = source.path;
        report.number = ++number;
        report.inMbox = reader.isMbox();
        judge(report);
        say(report);
        bool const isFlagged = report.verdict && report.verdict->action != "accept";
        m_scan.progress.add({1, offset - behind, isFlagged ? 1U : 0U});
        behind = offset;
    }
    if (number == 0 && !Stop::isWanted()) throw Unreadable{"empty: there is no message in it"};
    m_scan.progress.add({0, std::max(source.bytes, behind) - behind, 0});
}

std::unique_ptr<Mime::Reader> Batch::open(std::string const& path) {
    // A pipe whose other end nobody has opened is waited for where Ctrl-C is heard.
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) throw Unreadable{std::strerror(errno)};
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        return std::make_unique<Mime::Reader>(descriptor, m_scan.options.memory);
    Descriptor const closing{descriptor};
    return openPipe(descriptor);
}

// A message is read twice, for its structure and for its contents, and a pipe gives it once. So it goes
// where bodies go: into memory up to the threshold, then into a swap file, which the reader then reads.
std::unique_ptr<Mime::Reader> Batch::openPipe(int descriptor) {
    SwapBufferMediaOut kept(m_scan.options.memory, m_scan.examine.swapTemplate.c_str());
    std::array<unsigned char, 65536> block{};
    while (Stop::waitToRead(descriptor)) {
        ssize_t const count = ::read(descriptor, block.data(), block.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) throw Unreadable{std::strerror(errno)};
        if (count == 0) break;
        kept.write(block.data(), static_cast<unsigned int>(count));
    }
    kept.end();
    if (!kept.fileMedia().isNull()) {
        Ref<TempFile> const file = kept.fileMedia().tmpfile();
        Descriptor swapped{::open(file->name().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)};
        if (!file->isMadeFile(swapped.number)) throw Unreadable{"its swap file is not there any more"};
        return std::make_unique<Mime::Reader>(std::exchange(swapped.number, -1), m_scan.options.memory);
    }
    Buffer const& cache = kept.cache();
    return std::make_unique<Mime::Reader>(
        std::string_view(reinterpret_cast<char const*>(cache.data()), cache.length()));
}

void Batch::judge(MessageReport& report) const {
    try {
        Verdict const verdict = m_scan.arbiter.judge(report);
        report.verdict = VerdictReport{nameOf(verdict.action), verdict.score, {}, m_scan.arbiter.name()};
        for (ClassifierDetail const& reason : verdict.reasons)
            report.verdict->reasons.push_back(reason.toString(0));
    } catch (NoAnswer const& e) {
        report.errors.push_back(std::string("no verdict: ") + e.what());
    }
}

void Batch::say(MessageReport const& report) {
    m_totals.add(report);
    if (m_scan.options.json)
        m_text.append(jsonOf(report)).push_back('\n');
    else
        m_text += reportOf(report, m_scan.paint);
    if (m_text.size() >= muchText || Clock::now() - m_spoken >= longSilence) speak();
}

void Batch::sayError(std::string const& path, std::string const& error) {
    MessageReport report;
    report.file = path;
    report.errors.push_back(error);
    say(report);
}

void Batch::speak() {
    m_scan.order.say(m_number, m_text);
    m_text.clear();
    m_spoken = Clock::now();
}

/// The scan as the pool knows it: it makes its batches while it finds the sources.
class Scanning final : public Task::TaskImpl, private SourceSink {
public:
    Scanning(Scan& scan, SourceOptions const& sources) : m_scan(scan), m_sources(sources) {
        type(static_cast<Type>(1));  // the only one of this process
    }
    void createElements(uint_t taskId) override;

private:
    bool take(Source source) override;
    void pause() override { hand(); }
    void hand();

    Scan& m_scan;
    SourceOptions const& m_sources;
    uint_t m_taskId = 0;
    std::uint64_t m_batches = 0;
    std::vector<Source> m_waiting;
    std::uint64_t m_waitingBytes = 0;
};

void Scanning::createElements(uint_t taskId) {
    m_taskId = taskId;
    std::size_t const skipped = findSources(m_sources, *this);
    hand();
    {
        std::lock_guard const guard(m_scan.lock);
        m_scan.totals.skipped = skipped;
    }
    elementCreationFinished();
}

bool Scanning::take(Source source) {
    m_waitingBytes += source.bytes;
    m_waiting.push_back(std::move(source));
    bool const isFull = m_waiting.size() >= std::min<std::size_t>(mostSources, 1 + m_batches / workers);
    if (isFull || m_waitingBytes >= mostBytes) hand();
    return !Stop::isWanted();
}

/// Hands what waits to the pool, when there is room for more.
void Scanning::hand() {
    if (m_waiting.empty()) return;
    InOrder::Begun piece(m_scan.order);
    Ref<Task::ElementImpl> const batch(new Batch(m_scan, piece.number(), std::exchange(m_waiting, {})),
                                       false);
    batch->queueId(0);
    batch->taskId(m_taskId);
    batch->id(static_cast<uint_t>(piece.number()));
    Task::TaskMaster::instance()->add(batch);
    piece.takenOver();
    m_waitingBytes = 0;
    ++m_batches;
}

/// Whether standard input is one of the paths.
bool hasInput(SourceOptions const& options) {
    return std::find(options.paths.begin(), options.paths.end(), "-") != options.paths.end();
}

/// Counts as long as the object lives, if it can be counted: a pipe gives its paths and messages once.
class Counted {
public:
    Counted(SourceOptions const& options, Progress& progress)
        : m_counting([&options](SourceSink& sink) { findSources(options, sink); }, progress) {
        struct stat status {};
        bool const listIsFile =
            options.list.empty() || (::stat(options.list.c_str(), &status) == 0 && S_ISREG(status.st_mode));
        if (progress.isOn() && listIsFile && options.list != "-" && !hasInput(options))
            m_end.emplace(m_counting.start());
    }
    ~Counted() {
        m_counting.giveUp();
        if (m_end) m_end->join();
    }
    Counted(Counted const&) = delete;
    Counted& operator=(Counted const&) = delete;

private:
    Counting m_counting;
    std::optional<ThreadJoin> m_end;
};

int runScan(ScanOptions const& options, SourceOptions const& sources, Arbiter const& arbiter,
            Output& output) {
    Progress progress(options.progress);
    unsigned int const atOnce = options.jobs == 0 || options.jobs > workers ? mostUnfinished : options.jobs;
    InOrder order(atOnce, window, [&](std::string const& text) {
        progress.aside([&] {
            try {
                output.say(text);
                output.flush();
            } catch (...) {
                Stop::now();
                throw;
            }
        });
    });
    Scan scan{options,
              arbiter,
              {sources.swapTemplate, options.memory, !options.strict},
              Painter(wantsColour(options.colour)),
              progress,
              order};
    scan.totals.judge = arbiter.name();
    std::string unreadable;
    {
        Counted const counted(sources, progress);
        try {
            Task::TaskMaster::instance()->run(Ref<Task::TaskImpl>(new Scanning(scan, sources), false));
        } catch (UnreadableList const& e) {
            unreadable = e.reason;
        } catch (...) {
            Stop::now();
            try {
                order.wait();
            } catch (...) {
                // What happened first counts.
            }
            throw;
        }
        order.wait();
    }
    progress.clear();
    if (!options.json && (unreadable.empty() || scan.totals.messages + scan.totals.bad != 0))
        output.say(reportOf(scan.totals, scan.paint));
    output.flush();
    if (!unreadable.empty()) {
        complain(unreadable);
        return Failed;
    }
    return scan.totals.bad == 0 ? Fine : Findings;
}

}  // namespace

int scan(ScanOptions const& options, Output& output) {
    SourceOptions sources{options.paths, options.filesFrom, options.nul, {}, {}};
    if (sources.paths.empty() && sources.list.empty()) sources.paths.emplace_back("-");
    if (sources.list == "-" && hasInput(sources)) {
        complain("standard input cannot be a message and the list of paths at once");
        return Failed;
    }
    if (!options.shard.empty() && !sources.shard.read(options.shard)) {
        complain("--shard: " + options.shard + " is not K/N, with K from 1 to N");
        return Failed;
    }
    ListsInUse const lists = useDomainLists(options.lists);
    if (!lists.complaint.empty()) complain(lists.complaint);
    if (!lists.good && !options.lists.empty()) return Failed;
    std::string const temporary = usableTemporary(options.temporary);
    if (temporary.empty()) {
        complain(options.temporary.empty()
                     ? std::string("there is no directory for swap files; name one with --tmp")
                     : options.temporary + ": cannot write swap files there");
        return Failed;
    }
    sources.swapTemplate = temporary + "/swapXXXXXX";
    std::optional<Arbiter> arbiter;
    try {
        arbiter.emplace(options.verdict, options.policy);
    } catch (std::runtime_error const& e) {  // no daemon, or no policy
        complain(e.what());
        return Failed;
    }
    using Level = UriSniffer::Config;
    Level::instance(options.strict ? Level::LevelStrict : Level::LevelLiberal);
    // Sets the locale of the process, once, which is no work for many threads at once.
    columnsOf({});
    Stop::listen();
    int const result = runScan(options, sources, *arbiter, output);
    if (Stop::signal() != 0) ::raise(Stop::signal());  // the handler is gone: this ends us as the signal does
    return result;
}

}  // namespace QuillmarkTool
