#include "include2/Rfc822Lex"

#include <memory>

#include "foundation/ByteSet.h"
#include "mail/Rfc822Scan.h"

namespace Quillmark {

namespace {

constexpr ByteSet specials{"<>@,;:\\."};
constexpr ByteSet endsAtom = specials | ByteSet::range(0x00, 0x1f) | ByteSet{"()\"[] "};
static_assert(!endsAtom.contains(0x7f) && !endsAtom.contains(0x80));  // DEL and UTF-8 are atom bytes

/// @param pos  just past the "(" of a comment
/// @return just past its ")", or null when it does not end
char const* afterComment(char const* pos, char const* end) noexcept {
    for (std::size_t depth = 1; pos != end;) {
        switch (*pos++) {
        case '\\':
            if (pos == end) return nullptr;
            ++pos;
            break;
        case '(': ++depth; break;
        case ')':
            if (--depth == 0) return pos;
            break;
        default: break;
        }
    }
    return nullptr;
}

template <class Iterator>
bool eatComment(Iterator& pos, Iterator end) {
    char const* const first = std::to_address(pos);
    char const* const after = afterComment(first, std::to_address(end));
    pos = after ? pos + (after - first) : end;
    return after != nullptr;
}

Rfc822Token::Kind kindOf(Symbol symbol) noexcept {
    switch (symbol) {
    case Word: return Rfc822Token::Atom;
    case Quoted: return Rfc822Token::QuotedString;
    case Literal: return Rfc822Token::DomainLiteral;
    default: return Rfc822Token::Special;
    }
}

}  // namespace

bool Rfc822Scan::found(Symbol symbol, std::size_t end) noexcept {
    m_symbol = symbol;
    m_end = end;
    return true;
}

// A quoted string or a domain literal, from its opening byte at m_begin.
bool Rfc822Scan::bracketed(char closing) noexcept {
    for (std::size_t i = m_begin + 1; i < m_text.size(); ++i) {
        char const c = m_text[i];
        if (c == closing) return found(closing == '"' ? Quoted : Literal, i + 1);
        if (c == '[' && closing == ']') break;
        if (c == '\\') ++i;
    }
    m_failed = true;
    m_end = m_text.size();
    return false;
}

bool Rfc822Scan::next() noexcept {
    for (m_begin = m_end; m_begin < m_text.size(); m_begin = m_end) {
        char const c = m_text[m_begin];
        m_end = m_begin + 1;
        if (!endsAtom.contains(c)) {
            while (m_end < m_text.size() && !endsAtom.contains(m_text[m_end])) ++m_end;
            return found(Word, m_end);
        }
        if (specials.contains(c)) return found(c, m_end);
        switch (c) {
        case '\t':
        case ' ': return found(Blank, m_end);
        case '\r':
        case '\n': return found(LineEnd, m_end);
        case '"': return bracketed('"');
        case '[': return bracketed(']');
        case '(': {
            char const* const end = m_text.data() + m_text.size();
            char const* const after = afterComment(m_text.data() + m_end, end);
            m_failed = after == nullptr;
            m_end = static_cast<std::size_t>((after ? after : end) - m_text.data());
            break;
        }
        default: break;  // closing brackets that nothing opened, and control bytes
        }
    }
    return false;
}

bool rfc5322Lex(std::string const& input, std::deque<Rfc822Token>& tokens) {
    Rfc822Scan scan(input);
    while (scan.next()) tokens.push_back({kindOf(scan.symbol()), std::string(scan.text())});
    return !scan.failed();
}

bool eat_comment(std::string::const_iterator& pos, std::string::const_iterator end) {
    return eatComment(pos, end);
}

bool eat_comment(std::string::iterator& pos, std::string::iterator end) {
    return eatComment(pos, end);
}

bool isRfc5321Char(char c) {
    return alphanumericBytes.contains(c);
}

}  // namespace Quillmark
