#include "mail/PlainList.h"

#include <string>

#include "foundation/ByteSet.h"
#include "mail/PlainAddress.h"

namespace Quillmark {

namespace {

constexpr ByteSet blanks{" \t"};
constexpr ByteSet whiteSpace = blanks | ByteSet{"\r\n"};
// What a name is made of, besides quoted strings and comments: atoms, dots and white space.
constexpr ByteSet inNames = whiteSpace | ~(ByteSet::range(0x00, 0x1f) | ByteSet{"<>@,;:\\()\"[]"});

std::size_t past(std::string_view text, std::size_t at, ByteSet const& bytes) noexcept {
    while (at < text.size() && bytes.contains(text[at])) ++at;
    return at;
}

// Past a quoted string that begins here; npos when it does not end or holds a NUL.
std::size_t pastQuoted(std::string_view text, std::size_t at) noexcept {
    for (++at; at < text.size() && text[at] != '\0'; ++at) {
        if (text[at] == '"') return at + 1;
        if (text[at] == '\\' && at + 1 < text.size() && text[at + 1] != '\0') ++at;
    }
    return std::string_view::npos;
}

// Past a comment that begins here; npos when it does not end or holds a NUL.
std::size_t pastComment(std::string_view text, std::size_t at) noexcept {
    std::size_t depth = 0;
    for (; at < text.size() && text[at] != '\0'; ++at) {
        if (text[at] == '(') ++depth;
        if (text[at] == ')' && --depth == 0) return at + 1;
        if (text[at] == '\\' && at + 1 < text.size() && text[at + 1] != '\0') ++at;
    }
    return std::string_view::npos;
}

// Past the next piece of a name: a quoted string, a comment, or what stands between them. `at` where there
// is none.
std::size_t pastPiece(std::string_view text, std::size_t at) noexcept {
    if (text[at] == '"') return pastQuoted(text, at);
    if (text[at] == '(') return pastComment(text, at);
    return past(text, at, inNames);
}

// Where the name ends in front of a "<"; npos where no "<" is, or what is in no plain name comes first.
std::size_t endOfName(std::string_view text, std::size_t at) noexcept {
    while (at < text.size() && text[at] != '<') {
        std::size_t const end = pastPiece(text, at);
        if (end == at) break;
        at = end;
    }
    return at < text.size() && text[at] == '<' ? at : std::string_view::npos;
}

// Kept for the daemons: a line end in front of a name belongs to it, one behind it does not.
std::string_view trimmed(std::string_view name) noexcept {
    name.remove_prefix(past(name, 0, blanks));
    while (!name.empty() && whiteSpace.contains(name.back())) name.remove_suffix(1);
    return name;
}

// An address whose name has comments, which do not belong to it; endOfName() has seen where they end.
EmailAddress withoutComments(PlainAddress const& address, bool lowerLocal, std::string_view name) {
    std::string text;
    for (std::size_t at = 0; at < name.size();) {
        std::size_t const end = pastPiece(name, at);
        if (name[at] != '(') text += name.substr(at, end - at);
        at = end;
    }
    return address.make(lowerLocal, trimmed(text));
}

}  // namespace

// Whether the address that ends here ends as one of a list does.
bool PlainList::ended(std::size_t at) noexcept {
    if (at < m_text.size() && m_text[at] != ',') return false;
    m_at = at + 1;
    return true;
}

EmailAddress PlainList::next() {
    if (isComplete()) return {};
    std::size_t const begin = past(m_text, m_at, whiteSpace);
    PlainAddress address;
    if (address.read(m_text, begin))
        return ended(begin + address.text.size()) ? address.make(m_lowerLocal, {}) : EmailAddress();

    std::size_t const bracket = endOfName(m_text, begin);
    if (bracket == std::string_view::npos || !address.read(m_text, bracket + 1)) return {};
    std::size_t const end = bracket + 1 + address.text.size();
    std::string_view const name = m_text.substr(m_at, bracket - m_at);
    if (end == m_text.size() || m_text[end] != '>' || !ended(end + 1)) return {};
    if (name.find('(') != std::string_view::npos) return withoutComments(address, m_lowerLocal, name);
    return address.make(m_lowerLocal, trimmed(name));
}

EmailAddress readPlainPath(std::string_view text, bool requireBrackets) {
    bool const bracketed = text.starts_with('<');
    if (requireBrackets && !bracketed) return {};
    PlainAddress address;
    if (!address.read(text, bracketed ? 1 : 0)) return {};
    bool const isAll = text.substr(address.text.size() + (bracketed ? 1 : 0)) == (bracketed ? ">" : "");
    return isAll ? address.make(true, {}) : EmailAddress();
}

}  // namespace Quillmark
