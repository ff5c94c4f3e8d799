#include "mail/PlainList.h"

#include <array>
#include <cstdint>
#include <string>

#include "foundation/ByteSet.h"
#include "mail/AddressMaker.h"
#include "net/HostNameReader.h"

namespace Quillmark {

namespace {

// What a byte is; the other bytes are looked for by name, or make a text not plain.
enum Kind : std::uint8_t {
    Atom = 1,
    Dot = 2,
    Blank = 4,
    LineEnd = 8,
    InNames = Atom | Dot | Blank | LineEnd
};

constexpr std::array<std::uint8_t, 256> kinds = [] {
    constexpr ByteSet noAtom = ByteSet::range(0x00, 0x20) | ByteSet{"<>@,;:\\.()\"[]"};
    std::array<std::uint8_t, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte)
        if (!noAtom.contains(static_cast<unsigned char>(byte))) table[byte] = Atom;
    table['.'] = Dot;
    table[' '] = table['\t'] = Blank;
    table['\r'] = table['\n'] = LineEnd;
    return table;
}();

bool is(char c, unsigned kind) noexcept {
    return (kinds[static_cast<unsigned char>(c)] & kind) != 0;
}

std::size_t past(std::string_view text, std::size_t at, unsigned kind) noexcept {
    while (at < text.size() && is(text[at], kind)) ++at;
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
    return past(text, at, InNames);
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

// The name without its comments, which endOfName() has seen the end of. Most have none.
std::string withoutComments(std::string_view name) {
    std::string text;
    for (std::size_t at = 0; at < name.size();) {
        std::size_t const end = pastPiece(name, at);
        if (name[at] != '(') text += name.substr(at, end - at);
        at = end;
    }
    return text;
}

// Kept for the daemons: a line end in front of a name belongs to it.
std::string_view withoutBlanksInFront(std::string_view text) noexcept {
    return text.substr(past(text, 0, Blank));
}

std::string_view withoutBlanksBehind(std::string_view text) noexcept {
    while (!text.empty() && is(text.back(), Blank | LineEnd)) text.remove_suffix(1);
    return text;
}

}  // namespace

bool PlainAddress::read(std::string_view from, std::size_t& at) {
    std::size_t end = at;
    unsigned before = 0;
    unsigned doubled = 0;  // the kinds that stand beside their like
    for (; end < from.size(); ++end) {
        unsigned const kind = kinds[static_cast<unsigned char>(from[end])];
        if ((kind & (Atom | Dot)) == 0) break;
        doubled |= kind & before;
        before = kind;
    }
    if (end == at || end == from.size() || from[end] != '@' || (doubled & Dot) != 0) return false;
    sign = end - at;
    end = past(from, end + 1, Atom | Dot);
    text = from.substr(at, end - at);
    at = end;
    return HostNameReader::isValid(text.substr(sign + 1));
}

EmailAddress PlainList::next() {
    if (isComplete()) return {};
    std::size_t const begin = past(m_text, m_at, Blank);
    std::size_t at = past(m_text, begin, Blank | LineEnd);
    PlainAddress address;
    std::string_view name;
    std::string shortened;
    if (std::size_t end = at; address.read(m_text, end)) {
        at = end;
    } else {
        std::size_t const bracket = endOfName(m_text, at);
        if (bracket == std::string_view::npos) return {};
        name = m_text.substr(begin, bracket - begin);
        if (name.find('(') != std::string_view::npos) name = shortened = withoutComments(name);
        name = withoutBlanksBehind(withoutBlanksInFront(name));
        at = bracket + 1;
        if (!address.read(m_text, at) || at == m_text.size() || m_text[at] != '>') return {};
        ++at;
    }
    if (at < m_text.size() && m_text[at] != ',') return {};
    m_at = at + 1;
    return AddressMaker::make(address.text, address.sign, m_lowerLocal, name);
}

EmailAddress readPlainPath(std::string_view text, bool requireBrackets) {
    bool const bracketed = text.substr(0, 1) == "<";
    if (requireBrackets && !bracketed) return {};
    std::size_t at = bracketed ? 1 : 0;
    PlainAddress address;
    if (!address.read(text, at) || text.substr(at) != (bracketed ? ">" : "")) return {};
    return AddressMaker::make(address.text, address.sign, true, {});
}

}  // namespace Quillmark
