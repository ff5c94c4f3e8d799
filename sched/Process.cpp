#include "include2/QuillProcess"

#include "foundation/Descriptor.h"
#include "platform/quill_cfg.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <locale>
#include <sstream>
#include <string_view>

namespace Quillmark::Process {

namespace {

constexpr std::size_t mostOfStat = 64;
constexpr std::size_t mostOfCmdline = 4096;
constexpr std::size_t mostOfLink = 512;

std::string proc() {
    return quill_path("/proc");
}

std::string pathOf(int pid, char const* file) {
    return proc() + "/" + std::to_string(pid) + "/" + file;
}

/// The first bytes of a file of /proc without the last of them, which ends the text: a line feed or a NUL.
/// Empty when the process has gone.
std::string readStart(std::string const& path, std::size_t most) {
    Descriptor const file = openFile(path.c_str(), O_RDONLY);
    if (!file.isOpen()) return {};
    std::string text(most, '\0');
    std::size_t have = 0;
    while (have < most) {
        ssize_t const got = ::read(file.number(), text.data() + have, most - have);
        if (got == -1 && errno == EINTR) continue;
        if (got <= 0) break;
        have += static_cast<std::size_t>(got);
    }
    text.resize(have == 0 ? 0 : have - 1);
    return text;
}

}  // namespace

EntryImpl::EntryImpl(int pid) : m_pid(pid) {}

EntryImpl::~EntryImpl() = default;

int EntryImpl::kill(unsigned int signal) const noexcept {
    if (m_pid > 0) return ::kill(m_pid, static_cast<int>(signal));
    errno = ESRCH;
    return -1;
}

std::string const& EntryImpl::name() const {
    if (!m_name.empty()) return m_name;
    std::string const stat = readStart(pathOf(m_pid, "stat"), mostOfStat);
    std::size_t const open = stat.find('(');
    if (open == std::string::npos) return m_name;
    std::size_t const close = stat.find(')', open);
    if (close != std::string::npos) m_name = stat.substr(open + 1, close - open - 1);
    return m_name;
}

std::string const& EntryImpl::cmdline() const {
    if (!m_cmdline.empty()) return m_cmdline;
    std::string text = readStart(pathOf(m_pid, "cmdline"), mostOfCmdline);
    if (text.empty()) return m_cmdline;
    std::list<std::string> args;
    std::string_view rest = text;
    for (std::size_t end; (end = rest.find('\0')) != std::string_view::npos; rest.remove_prefix(end + 1))
        args.emplace_back(rest.substr(0, end));
    args.emplace_back(rest);
    m_args.swap(args);
    m_cmdline = std::move(text);
    return m_cmdline;
}

std::list<std::string> const& EntryImpl::args() const {
    cmdline();
    return m_args;
}

std::map<int, std::string> const& EntryImpl::fd() const {
    FdExpansion expansion(m_fd);
    File::Selector selector(pathOf(m_pid, "fd"), expansion);
    selector.maxRecursionDepth(0);
    selector.start();
    return m_fd;
}

Entry::Entry(int pid) : m_impl(new EntryImpl(pid), false) {}

Entry::~Entry() = default;

EntryImpl const& Entry::value() const {
    if (!m_impl) refuseEmptyRef();
    return *m_impl;
}

int Entry::id() const {
    return value().id();
}

int Entry::kill(unsigned int signal) const {
    return value().kill(signal);
}

std::string const& Entry::name() const {
    return value().name();
}

std::string const& Entry::cmdline() const {
    return value().cmdline();
}

std::list<std::string> const& Entry::args() const {
    return value().args();
}

std::map<int, std::string> const& Entry::fd() const {
    return value().fd();
}

Selector::~Selector() = default;

int Selector::process(File::Path const& path) {
    int const pid = static_cast<int>(std::strtol(path.name().c_str(), nullptr, 10));
    if (pid != 0) process(Entry(pid));
    return 0;
}

Tree::Tree() = default;

Tree::~Tree() = default;

void Tree::process(Entry const& entry) {
    m_entries.push_back(entry);
}

void Tree::killAllByName(std::string const& name, unsigned int signal) const {
    if (name.empty()) return;
    for (Entry const& entry : m_entries)
        if (entry.name() == name) entry.kill(signal);
}

void Visitor::for_each(Selector& selector) {
    File::Selector walk(proc(), selector);
    walk.processRegularFiles(false);
    walk.processDirectories(true);
    walk.maxRecursionDepth(0);
    walk.start();
}

void Visitor::operator()(Selector& selector) const {
    for_each(selector);
}

FdExpansion::FdExpansion(std::map<int, std::string>& descriptors) : m_descriptors(descriptors) {}

FdExpansion::~FdExpansion() = default;

int FdExpansion::process(File::Path const& path) {
    std::istringstream name(path.name());
    name.imbue(std::locale::classic());
    int number = 0;
    if (!(name >> number) || m_descriptors.count(number) != 0) return 0;
    char target[mostOfLink];
    ssize_t const length = ::readlink(path.asString().c_str(), target, sizeof target);
    if (length > 0) m_descriptors.emplace(number, std::string(target, static_cast<std::size_t>(length)));
    return 0;
}

}  // namespace Quillmark::Process
