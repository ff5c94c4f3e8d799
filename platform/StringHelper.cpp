// Letters and white space by byte value: no locale has a say.

#include "platform/quill_string.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view whiteSpace{"\t\n\v\f\r "};

constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool sameLetter(char a, char b) {
    return lower(a) == lower(b);
}

// A needle up to this length is compared at each place; that is the faster way while it is short.
constexpr std::size_t longNeedle = 16;

// The lengths of the borders of each prefix: how much of the needle still matches after a mismatch.
std::vector<std::size_t> borders(std::string_view needle) {
    std::vector<std::size_t> lengths(needle.size(), 0);
    std::size_t matched = 0;
    for (std::size_t i = 1; i < needle.size(); ++i) {
        while (matched != 0 && !sameLetter(needle[i], needle[matched])) matched = lengths[matched - 1];
        if (sameLetter(needle[i], needle[matched])) ++matched;
        lengths[i] = matched;
    }
    return lengths;
}

// Looks at each byte of the text once, whatever the needle.
std::size_t findLongNeedle(std::string_view text, std::string_view needle, std::size_t start) {
    std::vector<std::size_t> const lengths = borders(needle);
    std::size_t matched = 0;
    for (std::size_t i = start; i < text.size(); ++i) {
        while (matched != 0 && !sameLetter(text[i], needle[matched])) matched = lengths[matched - 1];
        if (sameLetter(text[i], needle[matched])) ++matched;
        if (matched == needle.size()) return i + 1 - matched;
    }
    return std::string::npos;
}

// The well-formed sequences of UTF-8 by their first byte (RFC 3629, section 4): the range of the second
// byte keeps out overlong forms, surrogates and what lies past U+10FFFF; all others are 80 to BF.
struct Sequence {
    std::uint8_t first, last;           // of the first byte
    std::uint8_t secondMin, secondMax;  // of the second byte
    std::size_t length;
};
constexpr Sequence sequences[] = {
    {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3}, {0xe1, 0xec, 0x80, 0xbf, 3},
    {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

// By first byte: the row above, counted from 1; 0 for a byte that no sequence begins with.
constexpr std::array<std::uint8_t, 256> rowByFirst = [] {
    std::array<std::uint8_t, 256> rows{};
    for (std::size_t row = 0; row != std::size(sequences); ++row)
        for (std::size_t byte = sequences[row].first; byte <= sequences[row].last; ++byte)
            rows[byte] = static_cast<std::uint8_t>(row + 1);
    return rows;
}();

// The length of the sequence that the text begins with, which is no ASCII; 0 when none is well formed.
std::size_t sequenceLength(std::string_view text) {
    auto const byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    std::size_t const row = rowByFirst[byte(0)];
    if (row == 0) return 0;
    Sequence const& sequence = sequences[row - 1];
    if (text.size() < sequence.length) return 0;
    if (byte(1) < sequence.secondMin || byte(1) > sequence.secondMax) return 0;
    for (std::size_t i = 2; i < sequence.length; ++i)
        if ((byte(i) & 0xc0) != 0x80) return 0;
    return sequence.length;
}

// How many bytes of ASCII the text begins with, eight of them a step.
std::size_t asciiLength(std::string_view text) {
    std::size_t length = 0;
    for (std::uint64_t word = 0; text.size() - length >= sizeof word; length += sizeof word) {
        std::memcpy(&word, text.data() + length, sizeof word);
        if ((word & 0x8080808080808080) != 0) break;
    }
    while (length < text.size() && static_cast<std::uint8_t>(text[length]) < 0x80) ++length;
    return length;
}

}  // namespace

void copyStringToLower(std::string const& source, std::string& destination, std::size_t start,
                       std::size_t count) {
    if (start >= source.size()) {
        destination.clear();
        return;
    }
    destination.assign(source, start, count);
    std::transform(destination.begin(), destination.end(), destination.begin(), lower);
}

int stringCompareNoCase(char const* a, char const* b, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        auto const left = static_cast<unsigned char>(lower(a[i]));
        auto const right = static_cast<unsigned char>(lower(b[i]));
        if (left != right) return left < right ? -1 : 1;
        if (left == 0) break;
    }
    return 0;
}

std::size_t stringFindNoCase(std::string const& text, std::string const& needle, std::size_t start) {
    if (start > text.size() || needle.size() > text.size() - start) return std::string::npos;
    if (needle.size() > longNeedle) return findLongNeedle(text, needle, start);
    auto const begin = text.begin() + static_cast<std::string::difference_type>(start);
    auto const found = std::search(begin, text.end(), needle.begin(), needle.end(), sameLetter);
    if (found == text.end() && !needle.empty()) return std::string::npos;
    return static_cast<std::size_t>(found - text.begin());
}

void stringLeftTrim(std::string& text) {
    text.erase(0, text.find_first_not_of(whiteSpace));
}

void stringRightTrim(std::string& text) {
    text.erase(text.find_last_not_of(whiteSpace) + 1);
}

std::size_t stringFindNonWhiteSpace(std::string const& text, std::size_t start) {
    return text.find_first_not_of(whiteSpace, start);
}

bool isValidUtf8(char const* text, std::size_t length) {
    std::string_view rest = text ? std::string_view(text, length) : std::string_view();
    for (rest.remove_prefix(asciiLength(rest)); !rest.empty(); rest.remove_prefix(asciiLength(rest))) {
        std::size_t const taken = sequenceLength(rest);
        if (taken == 0) return false;
        rest.remove_prefix(taken);
    }
    return true;
}
