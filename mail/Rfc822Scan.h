#pragma once
// Mail-address text, token by token, as ranges of the text.

#include <cstddef>
#include <string_view>

#include "include2/Rfc822Lex"

namespace Quillmark {

/// What a grammar sees of a token: a special stands for itself (`<>@,;:\.`), the rest is below.
using Symbol = char;
constexpr Symbol Word = 'w';      ///< an atom
constexpr Symbol Quoted = '"';    ///< a quoted string
constexpr Symbol Literal = '[';   ///< a domain literal
constexpr Symbol Blank = ' ';     ///< TAB or SPACE
constexpr Symbol LineEnd = '\n';  ///< CR or LF
constexpr Symbol Other = '\0';    ///< no token that is ever cut from text

/// One pass over a text, from left to right, without copying anything.
class Rfc822Scan {
public:
    /// @param text  must outlive the scan
    /// @param from  where a token begins, or anything between two tokens
    explicit Rfc822Scan(std::string_view text, std::size_t from = 0) noexcept : m_text(text), m_end(from) {}

    /// Moves to the next token. False at the end of the text, and at a construct that does not end:
    /// then failed() is true.
    bool next() noexcept;
    bool failed() const noexcept { return m_failed; }

    // The token that next() moved to.
    Symbol symbol() const noexcept { return m_symbol; }
    std::size_t begin() const noexcept { return m_begin; }
    std::size_t end() const noexcept { return m_end; }
    std::string_view text() const noexcept { return m_text.substr(m_begin, m_end - m_begin); }

private:
    bool found(Symbol symbol, std::size_t end) noexcept;
    bool bracketed(char closing) noexcept;

    std::string_view m_text;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;  ///< the scan goes on here
    Symbol m_symbol = Other;
    bool m_failed = false;
};

}  // namespace Quillmark
