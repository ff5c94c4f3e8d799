#include "tools/Progress.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "tools/Terminal.h"

namespace QuillmarkTool {
namespace {

constexpr std::size_t widestBar = 30;
constexpr std::size_t narrowestBar = 8;

std::size_t terminalWidth() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20 ? size.ws_col : 80U;
}

/// Whether both descriptors lead to one terminal.
bool isOneTerminal(int one, int other) {
    struct stat a {};
    struct stat b {};
    return ::isatty(one) != 0 && ::isatty(other) != 0 && ::fstat(one, &a) == 0 && ::fstat(other, &b) == 0 &&
           a.st_rdev == b.st_rdev;
}

std::string twoDigits(std::uint64_t number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

/// "7 s", "3:05 min", "2:05 h".
std::string duration(double seconds) {
    auto const whole = static_cast<std::uint64_t>(std::ceil(std::min(seconds, 1e9)));
    if (whole < 60) return std::to_string(whole) + " s";
    if (whole < 3600) return std::to_string(whole / 60) + ":" + twoDigits(whole % 60) + " min";
    return std::to_string(whole / 3600) + ":" + twoDigits(whole / 60 % 60) + " h";
}

std::uint64_t perSecond(std::uint64_t count, double seconds) {
    return static_cast<std::uint64_t>(static_cast<double>(count) / std::max(seconds, 0.001));
}

std::string bar(double part, std::size_t columns) {
    auto const filled = static_cast<std::size_t>(part * static_cast<double>(columns));
    return "[" + std::string(filled, '=') + std::string(columns - filled, ' ') + "] ";
}

}  // namespace

std::string progressText(Done const& done, std::uint64_t total, double seconds, std::size_t columns) {
    std::string text = counted(done.messages, "message", "messages");
    if (total == 0) text += ", " + bytesForPeople(done.bytes);
    text += "  " + std::to_string(perSecond(done.messages, seconds)) + "/s  " +
            bytesForPeople(perSecond(done.bytes, seconds)) + "/s";
    double const part =
        total == 0 ? 0 : std::min(1.0, static_cast<double>(done.bytes) / static_cast<double>(total));
    if (part > 0) text += "  " + duration(seconds / part - seconds) + " left";
    if (done.flagged != 0) text += "  " + std::to_string(done.flagged) + " flagged";
    if (total != 0) {
        std::string percent = std::to_string(static_cast<int>(part * 100)) + "%  ";
        text = std::string(5 - std::min<std::size_t>(5, percent.size() - 1), ' ') + percent + text;
        std::size_t const left = columns > text.size() + 3 ? columns - text.size() - 3 : 0;
        if (left >= narrowestBar) text = bar(part, std::min(left, widestBar)) + text;
    }
    return text.substr(0, columns);
}

Progress::Progress(bool always, std::chrono::milliseconds patience)
    : m_sameTerminal(isOneTerminal(STDERR_FILENO, STDOUT_FILENO)),
      m_on(::isatty(STDERR_FILENO) != 0 && (always || !m_sameTerminal)),
      m_next(m_start + patience) {}

void Progress::total(std::uint64_t bytes) {
    std::lock_guard const guard(m_lock);
    m_total = bytes;
}

void Progress::add(Done const& more) {
    if (!m_on) return;
    std::lock_guard const guard(m_lock);
    m_done.messages += more.messages;
    m_done.bytes += more.bytes;
    m_done.flagged += more.flagged;
    auto const now = Clock::now();
    if (now < m_next) return;
    m_next = now + std::chrono::milliseconds(100);
    std::chrono::duration<double> const seconds = now - m_start;
    sayError("\r\x1b[K" + progressText(m_done, m_total, seconds.count(), terminalWidth() - 1));
    m_shown = true;
}

void Progress::aside(std::function<void()> const& write) {
    std::lock_guard const guard(m_lock);
    if (m_sameTerminal) hide();
    write();
}

void Progress::clear() {
    std::lock_guard const guard(m_lock);
    hide();
}

void Progress::hide() {
    if (m_shown) sayError("\r\x1b[K");
    m_shown = false;
}

}  // namespace QuillmarkTool
