#pragma once
// The addresses of a header value, straight from the text.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "include2/EmailAddress"
#include "mail/LocalPart.h"

namespace Quillmark {

/// Gives the addresses that rfc5322Lex and parseRfc5322, called again and again, would give, in the same
/// order: from the last to the first. Instead of tokens it keeps where the separators stand, and of the
/// address that it is about to give, where its pieces begin and end.
///
/// Separators part the text into segments, each of them at most one address. How a segment reads is
/// settled at its right end, which is why the last one comes first.
class ListReader {
public:
    /// @param text       must outlive the reader
    /// @param separator  ends an address besides the comma, if it is the text of a special
    ListReader(std::string_view text, bool lowerLocal, std::string_view separator);

    /// The next address to the left; null when there is none any more, and none at all in a text
    /// that cannot be cut into tokens.
    EmailAddress next();

private:
    struct Range {
        std::size_t begin = 0, end = 0;
        bool empty() const noexcept { return begin == end; }
    };

    /// Where the domain, read from the right, may end: just past the last token of each kind, or 0.
    struct Stops {
        std::size_t at = 0;         ///< an "@"
        std::size_t leftAngle = 0;  ///< a "<", which counts when the address ends in ">"
        std::size_t fault = 0;      ///< what cannot stand in a domain

        // What stands to the left of the "@".
        Range local;
        std::size_t nameEnd = 0;
        bool localFails = false;
    };

    /// What there is to know of the tokens between two separators.
    struct Segment {
        std::size_t begin = 0;
        bool empty = true;
        bool onlyBlanks = true;

        // The end: the last token but for blanks and dots, and the blanks behind that one.
        Symbol last = Other;
        Range lastRange;
        std::size_t blank = 0;           ///< just past the last blank; 0 for none
        std::size_t blankBeforeDot = 0;  ///< just past the last blank that has a dot to its right

        Stops stops;            ///< of all tokens
        Stops stopsBeforeLast;  ///< without the last one

        // The tokens that are the local part if an "@" comes next.
        Range local;
        std::size_t nameEnd = 0;  ///< the display name, if there is one, stands before
        bool localFails = false;  ///< it begins at an "@" or a ":", or holds what cannot be in it
        bool afterBlank = false;

        explicit Segment(std::size_t from) noexcept : begin(from), nameEnd(from) {}
        void take(Symbol symbol, Range token) noexcept;
        void beginLocal(std::size_t end, bool fails) noexcept;

        /// Nothing but what is dropped at the right end of an address.
        /// @param fresh  blanks are dropped there too
        bool isNothing(bool fresh) const noexcept {
            return last == Other && (fresh ? blankBeforeDot : blank) == 0;
        }
    };

    enum class Edge { Start, Comma, Separator };

    Edge leftEdge() const noexcept;
    void take(Rfc822Scan const& token);
    void moveLeft();
    EmailAddress address(bool fresh) const;
    LocalPartCheck join(Range range, std::string& out) const;
    std::string name(Range range) const;

    std::string_view m_text;
    bool m_lowerLocal;
    char m_separator;  ///< NUL, which no token begins with, for none
    bool m_more = false;
    std::vector<std::size_t> m_separators;  ///< those to the left of the segment
    Segment m_segment{0};
};

}  // namespace Quillmark
