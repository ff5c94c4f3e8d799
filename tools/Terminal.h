#pragma once
// What the command says, and where: colours on a terminal only, texts of strangers made harmless,
// and output that notices when nobody can read it any more.

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

/// The text without the characters that harmless() writes out. Bytes that are no UTF-8 stay.
std::string withoutHidden(std::string_view text);

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

/// The text on standard error, as it is.
void sayError(std::string_view text);

/// "quillmark: text" on standard error. Where no memory is left for that it says so, and throws nothing.
void complain(std::string_view text);

}  // namespace QuillmarkTool
