#include "tests/tools/Tool.h"

#include <fcntl.h>
#include <pty.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>

namespace QuillmarkTest {
namespace {

/// The process that becomes the command. Does not come back.
[[noreturn]] void become(std::vector<std::string> const& arguments, Surroundings const& surroundings,
                         std::string const& home) {
    if (::chdir(QUILLMARK_SOURCE_DIR) != 0) ::_exit(126);
    ::setenv("HOME", home.c_str(), 1);
    for (char const* name : {"XDG_DATA_HOME", "TMPDIR", "NO_COLOR"}) ::unsetenv(name);
    ::setenv("TERM", "xterm", 1);
    ::setenv("LC_ALL", "C", 1);
    // Built with the thread sanitizer, a command would wait a second at its end for its threads to race.
    ::setenv("TSAN_OPTIONS", "atexit_sleep_ms=50", 0);
    for (auto const& [name, value] : surroundings.environment) ::setenv(name.c_str(), value.c_str(), 1);
    if (surroundings.fileSize != 0) {
        rlimit const limit{surroundings.fileSize, surroundings.fileSize};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> argv{const_cast<char*>("quillmark")};
    for (std::string const& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execv(surroundings.program.empty() ? QUILLMARK_TOOL : surroundings.program.c_str(), argv.data());
    ::_exit(127);
}

int opened(std::string const& path, int flags) {
    int const descriptor = ::open(path.c_str(), flags | O_CLOEXEC, 0600);
    if (descriptor < 0) throw std::runtime_error("cannot open " + path);
    return descriptor;
}

int waitedFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Everything that a terminal gets until its last writer is gone.
std::string drained(int terminal) {
    std::string text;
    std::array<char, 4096> block{};
    for (;;) {
        ssize_t const count = ::read(terminal, block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;  // a terminal without writers fails with EIO
        text.append(block.data(), static_cast<std::size_t>(count));
    }
}

/// The next line, without its end; what there is of it when nothing more comes.
/// @return whether there was one
bool nextLine(int descriptor, std::string& text) {
    text.clear();
    for (char c = 0;;) {
        ssize_t const count = ::read(descriptor, &c, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return !text.empty();
        if (c == '\n') return true;
        text += c;
    }
}

std::string withUnixLineEnds(std::string text) {
    for (std::size_t i = text.find("\r\n"); i != std::string::npos; i = text.find("\r\n", i))
        text.erase(i, 1);
    return text;
}

/// Runs @p action in a child on a terminal.
Ran onTerminal(Terminal terminal, TemporaryDirectory const& place, std::function<void()> const& action) {
    int const out = opened(place.file("out"), O_WRONLY | O_CREAT);
    winsize size{};
    size.ws_row = 30;
    size.ws_col = 100;
    int ours = -1;
    int theirs = -1;
    if (::openpty(&ours, &theirs, nullptr, nullptr, &size) != 0) throw std::runtime_error("no terminal");
    pid_t const child = ::fork();
    if (child == 0) {
        ::dup2(terminal == Terminal::Everything ? theirs : out, 1);
        ::dup2(theirs, 2);
        ::close(ours);
        ::close(theirs);
        action();
        ::_exit(0);
    }
    for (int const descriptor : {out, theirs}) ::close(descriptor);
    Ran ran;
    ran.out = withUnixLineEnds(drained(ours));
    ::close(ours);
    ran.status = waitedFor(child);
    return ran;
}

}  // namespace

Ran quillmark(std::vector<std::string> const& arguments, Surroundings const& surroundings) {
    TemporaryDirectory const place;
    std::string const inPath =
        surroundings.inputFrom.empty() ? place.write("in", surroundings.input) : surroundings.inputFrom;
    int const in = opened(inPath, O_RDONLY);
    std::string const outPath = surroundings.output.empty() ? place.file("out") : surroundings.output;
    int const out = opened(outPath, O_WRONLY | O_CREAT);
    int const err = opened(place.file("err"), O_WRONLY | O_CREAT);
    pid_t const child = ::fork();
    if (child == 0) {
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        become(arguments, surroundings, place.path());
    }
    for (int const descriptor : {in, out, err}) ::close(descriptor);
    Ran ran;
    ran.status = waitedFor(child);
    if (surroundings.output.empty()) ran.out = readFile(outPath);
    ran.err = readFile(place.file("err"));
    return ran;
}

Ran quillmarkInterrupted(std::vector<std::string> const& arguments, std::string const& input,
                         std::function<bool()> const& ready) {
    TemporaryDirectory const place;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    int const out = opened(place.file("out"), O_WRONLY | O_CREAT);
    pid_t const child = ::fork();
    if (child == 0) {
        ::dup2(ends[0], 0);
        ::dup2(out, 1);
        become(arguments, {}, place.path());
    }
    for (int const descriptor : {ends[0], out}) ::close(descriptor);
    for (std::size_t at = 0; at < input.size();) {
        ssize_t const count = ::write(ends[1], input.data() + at, input.size() - at);
        if (count < 0 && errno != EINTR) break;
        if (count > 0) at += static_cast<std::size_t>(count);
    }
    while (!ready() && ::waitpid(child, nullptr, WNOHANG) == 0) ::sched_yield();
    ::kill(child, SIGINT);
    Ran ran;
    ran.status = waitedFor(child);
    ::close(ends[1]);
    ran.out = readFile(place.file("out"));
    return ran;
}

Running::Running(std::vector<std::string> const& arguments, Surroundings const& surroundings) {
    int const in = opened("/dev/null", O_RDONLY);
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (::pipe2(out.data(), O_CLOEXEC) != 0 || ::pipe2(err.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    m_child = ::fork();
    if (m_child == 0) {
        ::dup2(in, 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        become(arguments, surroundings, m_place.path());
    }
    for (int const descriptor : {in, out[1], err[1]}) ::close(descriptor);
    m_out = out[0];
    m_err = err[0];
}

Running::~Running() {
    if (m_child > 0) {
        signal(SIGKILL);
        wait();
    }
    if (m_out >= 0) ::close(m_out);
    ::close(m_err);
}

std::string Running::line() {
    std::string text;
    nextLine(m_out, text);
    return text;
}

std::string Running::error() {
    std::string text;
    nextLine(m_err, text);
    return text;
}

bool Running::error(std::string& line) {
    return nextLine(m_err, line);
}

void Running::closeOutput() {
    ::close(std::exchange(m_out, -1));
}

void Running::signal(int number) const {
    ::kill(m_child, number);
}

int Running::wait() {
    return waitedFor(std::exchange(m_child, -1));
}

Ran quillmarkOnTerminal(Terminal terminal, std::vector<std::string> const& arguments,
                        Surroundings const& surroundings) {
    TemporaryDirectory const place;
    int const in = opened(place.write("in", surroundings.input), O_RDONLY);
    Ran const ran = onTerminal(terminal, place, [&] {
        ::dup2(in, 0);
        become(arguments, surroundings, place.path());
    });
    ::close(in);
    return ran;
}

std::string errorsOnTerminal(std::function<void()> const& action) {
    TemporaryDirectory const place;
    return onTerminal(Terminal::ErrorsOnly, place, action).out;
}

std::string const& testLists() {
    static TemporaryDirectory const place;
    static std::string const lists = [] {
        std::string const rules = place.write("rules.dat", "com\nnet\norg\nuk\nco.uk\nde\nxn--p1ai\n");
        Ran const made = quillmark({"lists", "--source", rules, "--out", place.file("lists")});
        if (made.status != 0) throw std::runtime_error("no lists: " + made.err);
        return place.file("lists");
    }();
    return lists;
}

std::vector<std::string> linesOf(std::string const& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

}  // namespace QuillmarkTest
