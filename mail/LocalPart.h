#pragma once
// What may stand next to what in a local part.

#include "mail/Rfc822Scan.h"

namespace Quillmark {

/// Looks at the tokens of a local part one after the other, from either end: the rules read the same
/// both ways. A dot may stand at the start and at the end.
class LocalPartCheck {
public:
    void take(Symbol symbol) noexcept {
        switch (symbol) {
        case '.': m_valid &= m_previous != '.'; break;
        case Quoted: m_valid &= m_previous != Quoted && m_previous != Word; break;
        case Word:
        case Literal:
            symbol = Word;
            m_valid &= m_previous != Quoted;
            break;
        default: m_valid = false; break;
        }
        m_previous = symbol;
    }

    /// A special that is cut from no text, from the right end: a word that may stand in front of a quoted
    /// string.
    void takeOdd() noexcept { m_previous = Word; }

    /// False before the first token: an empty local part is none.
    bool valid() const noexcept { return m_valid && m_previous != Other; }

private:
    Symbol m_previous = Other;
    bool m_valid = true;
};

}  // namespace Quillmark
