#pragma once
// How far a long scan is, on a terminal.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

namespace QuillmarkTool {

/// How far the work is.
struct Done {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t flagged = 0;  ///< messages to review or to reject
};

/// What there is to say after so many seconds, in at most @p columns: a bar, speed, the time that is left, what
/// was found; speed and finds only while @p total, the bytes to be read, is not known (0).
std::string progressText(Done const& done, std::uint64_t total, double seconds, std::size_t columns);

/// One line on standard error that is overwritten in place, for work that takes longer than a moment. Silent
/// unless standard error is a terminal and the report goes elsewhere.
/// Threads: any, at once.
class Progress {
public:
    /// @param always    show it also when the report goes to the same terminal
    /// @param patience  how long the work may take before anything is said
    explicit Progress(bool always = false,
                      std::chrono::milliseconds patience = std::chrono::milliseconds(500));
    ~Progress() { clear(); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    bool isOn() const { return m_on; }
    /// How many bytes there are in all.
    void total(std::uint64_t bytes);
    /// More is done.
    void add(Done const& more);
    /// Writes a part of the report, out of the way of the line.
    void aside(std::function<void()> const& write);
    /// Takes the line away again.
    void clear();

private:
    using Clock = std::chrono::steady_clock;
    void hide();

    bool m_sameTerminal = false;
    bool m_on = false;
    std::mutex m_lock;
    bool m_shown = false;
    Done m_done;
    std::uint64_t m_total = 0;
    Clock::time_point const m_start = Clock::now();
    Clock::time_point m_next;
};

}  // namespace QuillmarkTool
