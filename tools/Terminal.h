#pragma once
// What the command says, and where: colours on a terminal only, texts of strangers made harmless,
// a line of progress, and output that notices when nobody can read it any more.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace QuillmarkTool {

enum class Colour { Auto, Always, Never };

/// What a piece of text is to its reader. How that looks is the business of Painter alone.
enum class Style { Plain, Title, Label, Quiet, Strong, Warning, Error };

/// Puts colours around texts, or leaves them as they are.
class Painter {
public:
    explicit Painter(bool on) : m_on(on) {}
    std::string operator()(Style style, std::string_view text) const;

private:
    bool m_on;
};

/// Whether a report on standard output gets colours: always and never as said, else on a terminal that
/// can show them and whose user has not set NO_COLOR.
bool wantsColour(Colour choice);

/// The text with everything a terminal would obey, or a reader would not see, written out: control
/// bytes and bytes that are no UTF-8 as "\x1b", invisible and direction-changing characters as
/// "\u{202e}". Mail is written by strangers; none of it reaches a terminal any other way.
std::string harmless(std::string_view text);

/// How many columns of a terminal a harmless text takes.
std::size_t columnsOf(std::string_view text);

/// The text, filled up with blanks to @p columns.
std::string padded(std::string_view text, std::size_t columns);

/// A number of bytes for people: "412 B", "1.2 kB", "35 MB".
std::string bytesForPeople(std::uint64_t bytes);

/// "1 message", "2 messages".
std::string counted(std::size_t count, std::string_view one, std::string_view many);

/// Standard output. Collects what is said and writes it in one go.
class Output {
public:
    /// Nobody takes what is written: a closed pipe, a full disk. Ends the command.
    struct Closed {
        int error;
    };

    void say(std::string_view text) { m_text.append(text); }
    void line(std::string_view text) {
        m_text.append(text);
        m_text.push_back('\n');
    }
    /// Writes what was said since the last time. Throws Closed.
    void flush();

private:
    std::string m_text;
};

/// One line on standard error that is overwritten in place, for work that takes longer than a moment.
/// Silent unless standard error is a terminal and the report goes elsewhere.
class Progress {
public:
    /// @param patience  how long the work may take before anything is said
    explicit Progress(std::chrono::milliseconds patience = std::chrono::milliseconds(500));
    ~Progress() { clear(); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// Says how far the work is. @p total 0 stands for unknown.
    void at(std::size_t messages, std::uint64_t bytes, std::uint64_t total, std::string_view where);
    /// Takes the line away again.
    void clear();

private:
    using Clock = std::chrono::steady_clock;
    bool const m_on;
    bool m_shown = false;
    Clock::time_point m_next;
};

/// "quillmark: text" on standard error.
void complain(std::string_view text);

}  // namespace QuillmarkTool
