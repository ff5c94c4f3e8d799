#include "mail/PlainAddress.h"

#include <algorithm>
#include <array>
#include <bit>
#include <string>

#include "foundation/Avx512.h"
#include "foundation/ByteSet.h"
#include "mail/AddressMaker.h"
#include "net/HostNameReader.h"

namespace Quillmark {

namespace {

// What a byte of an address is, or of what stands before it.
enum Kind : std::uint8_t {
    Atom = 1,
    Dot = 2,
    Capital = 4,     ///< an atom's
    InHostName = 8,  ///< in a common one
    NoAddress = 16,  ///< in no text of an IPv4 address, hexadecimal ones included
    Blank = 32,
    White = 64,  ///< blanks and the bytes of line ends
};

constexpr ByteSet blanks{" \t"};
constexpr ByteSet whiteSpace = blanks | ByteSet{"\r\n"};
constexpr ByteSet inAtoms = ~(ByteSet::range(0x00, 0x20) | ByteSet{"<>@,;:\\.()\"[]"});
// What a name is made of, besides quoted strings and comments.
constexpr ByteSet inNames = whiteSpace | inAtoms | ByteSet{"."};

constexpr std::array<std::uint8_t, 256> kinds = [] {
    constexpr ByteSet inHostName = alphanumericBytes | ByteSet{"-._"};
    constexpr ByteSet inAddress = digitBytes | ByteSet{"abcdefABCDEFxX."};
    std::array<std::uint8_t, 256> table{};
    for (int byte = 0; byte < 256; ++byte) {
        int const atom = inAtoms.contains(byte) ? Atom : 0;
        int const dot = byte == '.' ? Dot : 0;
        int const capital = byte >= 'A' && byte <= 'Z' ? Capital : 0;
        int const host = inHostName.contains(byte) ? InHostName : 0;
        int const address = inAddress.contains(byte) ? 0 : NoAddress;
        int const blank = blanks.contains(byte) ? Blank : 0;
        int const white = whiteSpace.contains(byte) ? White : 0;
        table[static_cast<std::size_t>(byte)] =
            static_cast<std::uint8_t>(atom | dot | capital | host | address | blank | white);
    }
    return table;
}();
constexpr std::uint8_t ofHigh = Atom | NoAddress;
static_assert(kinds[0x80] == ofHigh && kinds[0xff] == ofHigh);

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

// A name that HostNameReader::isValid() accepts without a second look, from what its bytes are.
bool isCommon(std::string_view domain, bool allInHostName, bool someInNoAddress) noexcept {
    return domain.size() >= 2 && allInHostName && someInNoAddress && domain.front() != '.' &&
           domain[domain.size() - 1] != '.' && domain[domain.size() - 2] != '.';
}

// What stands between the angle brackets, or alone.
bool scanBare(std::string_view text, PlainAddress& address) noexcept {
    auto const kindAt = [text](std::size_t at) -> unsigned {
        return at < text.size() ? kinds[static_cast<unsigned char>(text[at])] : 0;
    };
    std::size_t end = 0;
    unsigned some = 0;
    for (unsigned kind, before = 0; ((kind = kindAt(end)) & (Atom | Dot)) != 0; ++end) {
        if ((kind & before & Dot) != 0) return false;
        some |= kind;
        before = kind;
    }
    if (end == 0 || end == text.size() || text[end] != '@') return false;
    bool hasCapitals = (some & Capital) != 0;
    address.sign = end;
    unsigned all = ~0U;
    some = 0;
    for (unsigned kind; ((kind = kindAt(++end)) & (Atom | Dot)) != 0;) {
        some |= kind;
        all &= kind;
    }
    address.text = text.substr(0, end);
    address.hasCapitals = hasCapitals || (some & Capital) != 0;
    address.hasCommonDomain = isCommon(address.domain(), (all & InHostName) != 0, (some & NoAddress) != 0);
    return true;
}

bool scanPlain(std::string_view text, PlainAddress& address) noexcept {
    std::size_t const begin = past(text, 0, whiteSpace);
    if (scanBare(text.substr(begin), address)) {
        address.name = {};
        address.hasParentheses = false;
        address.end = begin + address.text.size();
        return true;
    }
    std::size_t const bracket = endOfName(text, begin);
    if (bracket == std::string_view::npos || !scanBare(text.substr(bracket + 1), address)) return false;
    std::size_t const end = bracket + 1 + address.text.size();
    if (end == text.size() || text[end] != '>') return false;
    address.name = trimmed(text.substr(0, bracket));
    address.hasParentheses = address.name.find('(') != std::string_view::npos;
    address.end = end + 1;
    return true;
}

enum class Glance { Found, Nothing, Unknown };

QUILLMARK_AVX512 std::uint64_t firstBits(std::size_t count) noexcept {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(count));
}

QUILLMARK_AVX512 std::uint64_t bitsOf(int wanted, __m512i kind) noexcept {
    return _mm512_test_epi8_mask(kind, _mm512_set1_epi8(static_cast<char>(wanted)));
}

QUILLMARK_AVX512 std::uint64_t bitsOf(char wanted, __m512i bytes) noexcept {
    return _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(wanted));
}

// Past those of the bits that are set from this one on; 64 when they are set to the end.
QUILLMARK_AVX512 std::size_t past(std::uint64_t bits, std::size_t at) noexcept {
    return at + static_cast<std::size_t>(std::countr_one(bits >> at));
}

constexpr bool has(std::uint64_t bits, std::size_t at) noexcept {
    return (bits >> at & 1) != 0;
}

// The same for what ends within 64 bytes: a bit for each byte, the first byte's the lowest. Comments, and
// backslashes in quoted strings, are left to others.
QUILLMARK_AVX512 Glance glance(std::string_view text, PlainAddress& address) noexcept {
    std::uint64_t const there = firstBits(std::min<std::size_t>(64, text.size()));
    __m512i const bytes = _mm512_maskz_loadu_epi8(there, text.data());
    __m512i const ofAscii = _mm512_permutex2var_epi8(_mm512_loadu_si512(kinds.data()), bytes,
                                                     _mm512_loadu_si512(kinds.data() + 64));
    __m512i const kind = _mm512_mask_mov_epi8(ofAscii, _mm512_movepi8_mask(bytes), _mm512_set1_epi8(ofHigh));

    std::uint64_t const white = bitsOf(White, kind);
    std::uint64_t const parts = bitsOf(Atom | Dot, kind);
    std::uint64_t const signs = bitsOf('@', bytes);
    std::size_t local = past(white, 0);
    if (local == 64) return Glance::Unknown;
    std::size_t sign = past(parts, local);
    if (sign >= 63) return Glance::Unknown;
    bool const isBare = has(signs, sign);
    address.name = {};
    address.hasParentheses = false;
    if (!isBare) {
        std::uint64_t const inName = white | parts;
        std::uint64_t const quotes = bitsOf('"', bytes);
        std::size_t bracket = past(inName, sign);
        while (bracket < 63 && has(quotes, bracket)) {
            std::uint64_t const stops = quotes | bitsOf('\\', bytes) | bitsOf('\0', bytes);
            auto const close = static_cast<std::size_t>(std::countr_zero(stops & ~firstBits(bracket + 1)));
            if (close >= 63 || !has(quotes, close)) return Glance::Unknown;
            bracket = past(inName, close + 1);
        }
        if (bracket >= 63) return Glance::Unknown;
        std::uint64_t const parentheses = bitsOf('(', bytes);
        if (!has(bitsOf('<', bytes), bracket))
            return has(parentheses, bracket) ? Glance::Unknown : Glance::Nothing;
        auto const begin = static_cast<std::size_t>(std::countr_one(bitsOf(Blank, kind)));
        std::size_t const end = 64 - static_cast<std::size_t>(std::countl_zero(~white & firstBits(bracket)));
        if (begin < end) address.name = text.substr(begin, end - begin);
        address.hasParentheses = (parentheses & firstBits(bracket)) != 0;
        local = bracket + 1;
        sign = past(parts, local);
        if (sign >= 63) return Glance::Unknown;
        if (!has(signs, sign)) return Glance::Nothing;
    }
    std::size_t const end = past(parts, sign + 1);
    if (end == 64) return Glance::Unknown;

    std::uint64_t const dots = bitsOf(Dot, kind) & firstBits(sign) & ~firstBits(local);
    if (sign == local || (dots & dots << 1) != 0) return Glance::Nothing;
    if (!isBare && !has(bitsOf('>', bytes), end)) return Glance::Nothing;
    std::uint64_t const domain = firstBits(end) & ~firstBits(sign + 1);
    std::uint64_t const all = firstBits(end) & ~firstBits(local);
    address.text = text.substr(local, end - local);
    address.sign = sign - local;
    address.end = isBare ? end : end + 1;
    address.hasCapitals = (bitsOf(Capital, kind) & all) != 0;
    address.hasCommonDomain = isCommon(address.domain(), (bitsOf(InHostName, kind) & domain) == domain,
                                       (bitsOf(NoAddress, kind) & domain) != 0);
    return Glance::Found;
}

bool scanAvx512(std::string_view text, PlainAddress& address) noexcept {
    Glance const first = glance(text, address);
    if (first != Glance::Unknown) return first == Glance::Found;
    std::size_t const bracket = endOfName(text, past(text, 0, whiteSpace));
    if (bracket == std::string_view::npos) return scanPlain(text, address);
    Glance const second = glance(text.substr(bracket), address);
    if (second == Glance::Unknown) return scanPlain(text, address);
    address.name = trimmed(text.substr(0, bracket));
    address.hasParentheses = address.name.find('(') != std::string_view::npos;
    address.end += bracket;
    return second == Glance::Found;
}

constexpr AddressScan scans[] = {
    {InstructionSet::Avx512, scanAvx512},
    {InstructionSet::Any, scanPlain},
};

// Comments do not belong to a name.
std::string withoutComments(std::string_view name) {
    std::string text;
    for (std::size_t at = 0; at < name.size();) {
        std::size_t const end = pastPiece(name, at);
        if (name[at] != '(') text += name.substr(at, end - at);
        at = end;
    }
    return std::string(trimmed(text));
}

}  // namespace

std::span<AddressScan const> addressScans() noexcept {
    return scans;
}

bool PlainAddress::read(std::string_view from) {
    static auto const scan = bestKernel(addressScans()).scan;
    return scan(from, *this) && (hasCommonDomain || HostNameReader::isValid(domain()));
}

EmailAddress PlainAddress::makeChanged(bool lowerLocal) const {
    return AddressMaker::make(AddressMaker::lowered(text, sign, lowerLocal), sign, withoutComments(name));
}

}  // namespace Quillmark
