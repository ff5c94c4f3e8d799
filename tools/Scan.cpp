// quillmark scan: goes through files, mailboxes and directories and reports on every message.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "include2/BufferMedia"
#include "include2/Exception"
#include "include2/FileMedia"
#include "include2/UriSniffer"
#include "tools/Arbiter.h"
#include "tools/Commands.h"
#include "tools/DomainLists.h"
#include "tools/Examine.h"
#include "tools/Json.h"
#include "tools/Mime.h"
#include "tools/Report.h"
#include "tools/Sources.h"

namespace QuillmarkTool {
namespace {

std::sig_atomic_t volatile stopped = 0;

/// The first Ctrl-C ends the scan behind the message in hand, so that no swap file is left behind. The
/// second one ends the process.
void stopWhenAsked() {
    struct sigaction action {};
    action.sa_handler = [](int number) { stopped = number; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

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

class Scanner {
public:
    Scanner(ScanOptions const& options, std::string const& temporary, Arbiter const& arbiter, Output& output)
        : m_options(options),
          m_arbiter(arbiter),
          m_examine{temporary + "/swapXXXXXX", options.memory, !options.strict},
          m_output(output),
          m_paint(wantsColour(options.colour)) {}

    int run();

private:
    void source(Source const& source);
    void messages(Source const& source, Mime::Reader& reader);
    std::unique_ptr<Mime::Reader> open(std::string const& path);
    std::unique_ptr<Mime::Reader> openPipe(int descriptor);
    void judge(MessageReport& report) const;
    void say(MessageReport const& report);
    void sayError(std::string const& path, std::string const& error);

    ScanOptions const& m_options;
    Arbiter const& m_arbiter;
    ExamineOptions const m_examine;
    Output& m_output;
    Painter const m_paint;
    Progress m_progress;
    Totals m_totals;
    std::uint64_t m_bytes = 0;  // of the files behind us
    std::uint64_t m_total = 0;  // of all files
};

int Scanner::run() {
    SourceList const list =
        findSources(m_options.paths.empty() ? std::vector<std::string>{"-"} : m_options.paths);
    m_totals.skipped = list.skipped;
    m_totals.judge = m_arbiter.name();
    for (Source const& source : list.sources) m_total += source.bytes;
    for (Source const& next : list.sources) {
        if (stopped != 0) break;
        source(next);
        m_bytes += next.bytes;
    }
    m_progress.clear();
    if (!m_options.json) m_output.say(reportOf(m_totals, m_paint));
    m_output.flush();
    return m_totals.bad == 0 ? Fine : Findings;
}

void Scanner::source(Source const& source) {
    if (!source.error.empty()) return sayError(source.path, source.error);
    try {
        if (source.path == "-" && ::isatty(STDIN_FILENO) != 0)
            complain("reading a message from the terminal; Ctrl-D ends it");
        messages(source, source.path == "-" ? *openPipe(STDIN_FILENO) : *open(source.path));
    } catch (Unreadable const& e) {
        sayError(source.path, e.reason);
    } catch (Mime::Unreadable const& e) {
        sayError(source.path, std::strerror(e.error));
    } catch (Quillmark::Exception const& e) {
        sayError(source.path, detailOf(e));
    }
}

void Scanner::messages(Source const& source, Mime::Reader& reader) {
    Mime::Message message;
    std::size_t number = 0;
    while (stopped == 0 && reader.next(message)) {
        m_progress.at(m_totals.messages, m_bytes + static_cast<std::uint64_t>(message.offset()), m_total,
                      source.path);
        MessageReport report = examine(message, m_examine);
        report.file = source.path;
        report.number = ++number;
        report.inMbox = reader.isMbox();
        judge(report);
        say(report);
    }
    if (number == 0 && stopped == 0) throw Unreadable{"empty: there is no message in it"};
}

std::unique_ptr<Mime::Reader> Scanner::open(std::string const& path) {
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) throw Unreadable{std::strerror(errno)};
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        return std::make_unique<Mime::Reader>(descriptor);
    Descriptor const closing{descriptor};
    return openPipe(descriptor);
}

// A message is read twice, for its structure and for its contents, and a pipe gives it once. So it goes
// where bodies go: into memory up to the threshold, then into a swap file, which the reader then reads.
std::unique_ptr<Mime::Reader> Scanner::openPipe(int descriptor) {
    Quillmark::SwapBufferMediaOut kept(m_options.memory, m_examine.swapTemplate.c_str());
    std::array<unsigned char, 65536> block{};
    while (stopped == 0) {
        ssize_t const count = ::read(descriptor, block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw Unreadable{std::strerror(errno)};
        if (count == 0) break;
        kept.write(block.data(), static_cast<unsigned int>(count));
    }
    kept.end();
    if (!kept.fileMedia().isNull()) return open(kept.fileMedia().tmpfile()->name());
    Quillmark::Buffer const& cache = kept.cache();
    return std::make_unique<Mime::Reader>(
        std::string_view(reinterpret_cast<char const*>(cache.data()), cache.length()));
}

void Scanner::judge(MessageReport& report) const {
    try {
        Verdict const verdict = m_arbiter.judge(report);
        report.verdict = VerdictReport{nameOf(verdict.action), verdict.score, {}, m_arbiter.name()};
        for (Quillmark::ClassifierDetail const& reason : verdict.reasons)
            report.verdict->reasons.push_back(reason.toString(0));
    } catch (NoAnswer const& e) {
        report.errors.push_back(std::string("no verdict: ") + e.what());
    }
}

void Scanner::say(MessageReport const& report) {
    m_totals.add(report);
    if (m_options.json)
        m_output.line(jsonOf(report));
    else
        m_output.say(reportOf(report, m_paint));
    m_output.flush();
}

void Scanner::sayError(std::string const& path, std::string const& error) {
    MessageReport report;
    report.file = path;
    report.errors.push_back(error);
    say(report);
}

}  // namespace

int scan(ScanOptions const& options, Output& output) {
    std::string const lists = useDomainLists(options.lists);
    if (!lists.empty()) complain(lists);
    if (!lists.empty() && !options.lists.empty()) return Failed;
    std::string const temporary = usableTemporary(options.temporary);
    if (temporary.empty()) {
        complain(options.temporary.empty()
                     ? std::string("there is no directory for swap files; name one with --tmp")
                     : options.temporary + ": cannot write swap files there");
        return Failed;
    }
    std::optional<Arbiter> arbiter;
    try {
        arbiter.emplace(options.verdict, options.policy);
    } catch (std::runtime_error const& e) {  // no daemon, or no policy
        complain(e.what());
        return Failed;
    }
    using Level = Quillmark::UriSniffer::Config;
    Level::instance(options.strict ? Level::LevelStrict : Level::LevelLiberal);
    stopWhenAsked();
    int const result = Scanner(options, temporary, *arbiter, output).run();
    if (stopped != 0) ::raise(stopped);  // the handler is gone: this ends us as the signal does
    return result;
}

}  // namespace QuillmarkTool
