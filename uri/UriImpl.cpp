#include "include2/Uri"

#include <emmintrin.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "foundation/ByteSet.h"
#include "foundation/Fail.h"
#include "foundation/SpareBlocks.h"
#include "foundation/Spares.h"
#include "uri/UriParse.h"

namespace Quillmark {

namespace {

constexpr auto npos = std::string::npos;
constexpr Site here{"UriImpl", 0};

consteval std::array<int, 256> hexValues() {
    std::array<int, 256> values{};
    for (int& value : values) value = -1;
    for (std::size_t i = 0; i < 10; ++i) values['0' + i] = static_cast<int>(i);
    for (std::size_t i = 0; i < 6; ++i) values['A' + i] = values['a' + i] = static_cast<int>(10 + i);
    return values;
}

consteval std::array<unsigned char, 256> printable() {
    std::array<unsigned char, 256> table{};
    for (unsigned char byte = 0x20; byte <= 0x7e; ++byte) table[byte] = byte;
    return table;
}

void appendPrintable(std::string& text, std::size_t byte) {
    unsigned char const kept = UriImpl::s_table[byte];
    if (kept != 0) text += static_cast<char>(kept);
}

// Only an escape in the scheme or the authority hides where a link leads; one in the path or the query
// belongs to the link.
bool escapeStandsBeforePath(std::string_view text, std::size_t escape) {
    std::size_t const slashes = text.find("//");
    return (slashes == npos || text.find('/', slashes + 2) > escape) && text.find('?') > escape;
}

// What the escapes in a text that begins with "%" and has no LF stand for; see convertEscaped.
std::string withoutEscapes(std::string_view text) {
    enum class State {
        Plain,        // outside an escape
        FirstDigit,   // past the "%"
        SecondDigit,  // past the "%" and one digit
    } state = State::Plain;
    std::string result;
    std::size_t high = 0;
    for (char const c : text) {
        if (c == '\r') continue;
        auto const byte = static_cast<unsigned char>(c);
        int const digit = UriImpl::s_HexValues[byte];
        switch (state) {
        case State::Plain:
            if (c == '%') {
                state = State::FirstDigit;
            } else {
                result += c;
            }
            break;
        case State::FirstDigit:
            high = static_cast<std::size_t>(std::max(digit, 0)) << 4;
            state = digit < 0 ? State::Plain : State::SecondDigit;
            break;
        case State::SecondDigit:
            if (digit >= 0) appendPrintable(result, high | static_cast<std::size_t>(digit));
            state = State::Plain;
            break;
        }
    }
    return result;
}

// Whether one of the bytes that a pass begins at is there. Each x86-64 compares 16 bytes at a time.
bool holdsPassMark(std::string_view text) noexcept {
    auto const marksIn = [](char const* block) {
        __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(block));
        auto const are = [bytes](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
        return _mm_movemask_epi8(_mm_or_si128(are('%'), _mm_or_si128(are('&'), are('\n'))));
    };
    if (text.size() < 16) return text.find_first_of("%&\n") != npos;
    char const* const last = text.data() + text.size() - 16;
    for (char const* block = text.data(); block < last; block += 16)
        if (marksIn(block) != 0) return true;
    return marksIn(last) != 0;
}

// Whether the text is another one after both passes. Most are not.
bool needsCleaning(std::string_view text) {
    if (!holdsPassMark(text)) return false;
    std::size_t const escape = text.find('%');
    return text.find('\n') != npos || text.find("&#") != npos ||
           (escape != npos && escapeStandsBeforePath(text, escape));
}

using SpareParts = Spares<UriParts, 256>;

// More memory for a text is not worth keeping.
constexpr std::size_t mostSpare = 512;

// Parts of a link that is not parsed yet.
std::unique_ptr<UriParts> partsOf(std::string_view text) {
    std::unique_ptr<UriParts> parts = SpareParts::take();
    if (!parts) parts = std::make_unique<UriParts>();
    if (needsCleaning(text)) {
        parts->text = UriImpl::convertEncodedChars(UriImpl::convertEscaped(std::string(text)));
    } else {
        parts->text.clear();  // to append is faster than to assign
        parts->text += text;
    }
    return parts;
}

}  // namespace

constinit std::array<int, 256> const UriImpl::s_HexValues = hexValues();
constinit std::array<unsigned char, 256> const UriImpl::s_table = printable();
static_assert(hexValues()['f'] == 15 && hexValues()['g'] == -1 && hexValues()[0xff] == -1);
static_assert(printable()[' '] == ' ' && printable()['~'] == '~' && printable()[0x7f] == 0);

UriImpl::UriImpl(std::string const& text) : m_parts(partsOf(text)) {}

UriImpl::UriImpl(char const* text, unsigned int length) {
    if (text == nullptr && length != 0) fail<UriException>(BadArgument, here);
    m_parts = partsOf(text != nullptr ? std::string_view(text, length) : std::string_view());
}

UriImpl::~UriImpl() {
    bool const isUsual = m_parts->text.capacity() <= mostSpare && m_parts->idn.empty() &&
                         m_parts->headers.empty() && m_parts->emailAddresses.empty();
    if (isUsual) SpareParts::giveBack(std::move(m_parts));
}

using SpareLinks = SpareBlocks<UriImpl, 256>;

void* UriImpl::operator new(std::size_t size) {
    return SpareLinks::take(size);
}

void UriImpl::operator delete(void* memory, std::size_t size) noexcept {
    SpareLinks::giveBack(memory, size);
}

// A link is parsed whole or not at all. The comparison string is part of it: whoever shares a link after
// any accessor shares a value that stays as it is.
void UriImpl::parse() const {
    UriParts& parts = *m_parts;
    parseUri(parts);
    if (!parts.host.isNull() && !parts.host.idn().empty()) {
        // It is there: no link whose host was converted is its own comparison string.
        parts.idn = std::exchange(parts.comparison, {});
        parts.idn.swap(parts.text);
    }
    m_parsed = true;
}

std::string UriImpl::convertEscaped(std::string const& text) {
    std::string copy = text;
    if (copy.find('\n') != npos) {
        copy.erase(std::remove_if(copy.begin(), copy.end(), [](char c) { return c == '\r' || c == '\n'; }),
                   copy.end());
    }
    std::size_t const escape = copy.find('%');
    if (escape == npos || !escapeStandsBeforePath(copy, escape)) return copy;
    return copy.substr(0, escape) + withoutEscapes(std::string_view(copy).substr(escape));
}

std::string UriImpl::convertEncodedChars(std::string const& text) {
    std::size_t reference = text.find("&#");
    if (reference == npos) return text;
    std::string result;
    std::size_t done = 0;
    for (; reference != npos; reference = text.find("&#", done)) {
        result.append(text, done, reference - done);
        // Kept for the daemons: hexadecimal digits belong to the reference, but are read as a decimal
        // number, which ends at the first letter.
        std::size_t value = 0;
        bool decimal = true;
        std::size_t i = reference + 2;
        for (; i < text.size() && s_HexValues[static_cast<unsigned char>(text[i])] >= 0; ++i) {
            int const digit = s_HexValues[static_cast<unsigned char>(text[i])];
            decimal = decimal && digit < 10;
            if (decimal && value < 255) value = value * 10 + static_cast<std::size_t>(digit);
        }
        if (value < 255) appendPrintable(result, value);
        done = i;
        if (i == text.size() || text[i] == '&') continue;
        if (text[i] != ';') appendPrintable(result, static_cast<unsigned char>(text[i]));
        ++done;
    }
    return result.append(text, done);
}

Uri::Uri(std::string const& text) : m_impl(new UriImpl(text), false) {}

Uri::Uri(char const* text, unsigned int length) : m_impl(new UriImpl(text, length), false) {}

bool Uri::operator==(Uri const& other) const {
    if (isNull() || other.isNull()) return isNull() == other.isNull();
    return *m_impl == *other.m_impl;
}

bool Uri::operator<(Uri const& other) const {
    if (isNull() || other.isNull()) return isNull() && !other.isNull();
    return *m_impl < *other.m_impl;
}

void Uri::refuseNull() {
    fail("", NullHandle, here);
}

}  // namespace Quillmark
