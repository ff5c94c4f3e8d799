#pragma once
// IPv4 and IPv6 addresses as texts, over raw bytes. The platform's address helper is made of this, so it
// stands on the ground floor and needs nothing of the house.

#include <immintrin.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Quillmark {

// ---- IPv4, read

/// Four decimal numbers up to 255 without leading zeros, joined by dots, and the end: the dotted quad as
/// inet_pton takes it.
/// @param text   ends with a NUL
/// @param bytes  4 of them, written for success only
[[gnu::noinline]] inline bool readDottedQuadPlain(char const* text, std::uint8_t* bytes) noexcept {
    std::array<std::uint8_t, 4> read{};
    for (std::size_t part = 0; part < 4; ++part) {
        if (part != 0 && *text++ != '.') return false;
        if (*text < '0' || *text > '9') return false;
        unsigned int number = static_cast<unsigned int>(*text++ - '0');
        while (*text >= '0' && *text <= '9') {
            if (number == 0) return false;
            number = number * 10 + static_cast<unsigned int>(*text++ - '0');
            if (number > 255) return false;
        }
        read[part] = static_cast<std::uint8_t>(number);
    }
    if (*text != '\0') return false;
    std::memcpy(bytes, read.data(), read.size());
    return true;
}

namespace dottedQuad {

/// For four parts of certain lengths: which character goes where, and the least number that has as many
/// digits. Each part has four places (hundreds, tens, ones, nothing).
struct Row {
    std::array<std::uint8_t, 16> places;
    std::array<std::uint8_t, 4> least;
};

/// By the lengths of the four parts in two bits each, the first part highest. An empty part asks for more
/// than it can have.
consteval std::array<Row, 256> makeRows() noexcept {
    constexpr std::uint8_t nothing = 0x80;
    constexpr std::array<std::uint8_t, 4> least{255, 0, 10, 100};
    std::array<Row, 256> rows{};
    for (std::size_t index = 0; index < rows.size(); ++index) {
        Row& row = rows[index];
        row.places.fill(nothing);
        std::size_t at = 0;
        for (std::size_t part = 0; part < 4; ++part) {
            std::size_t const length = index >> (6 - 2 * part) & 3;
            for (std::size_t digit = 0; digit < length; ++digit)
                row.places[4 * part + 3 - length + digit] = static_cast<std::uint8_t>(at + digit);
            row.least[part] = least[length];
            at += length + 1;
        }
    }
    return rows;
}

inline constexpr std::array<Row, 256> rows = makeRows();

struct alignas(16) Bytes {
    std::array<std::uint8_t, 16> bytes;
};

/// The four in each four of 16 bytes.
consteval Bytes repeated(std::array<std::uint8_t, 4> const& four) noexcept {
    Bytes all{};
    for (std::size_t i = 0; i < all.bytes.size(); ++i) all.bytes[i] = four[i % 4];
    return all;
}

inline constexpr Bytes dot = repeated({'.', '.', '.', '.'}), zero = repeated({'0', '0', '0', '0'}),
                       nine = repeated({9, 9, 9, 9}), weights = repeated({100, 10, 1, 0}),
                       ones = repeated({1, 0, 1, 0}), largest = repeated({255, 0, 0, 0}),
                       lowest = repeated({0, 4, 8, 12});

/// Whether 16 bytes from here lie on one page, so that reading them is safe whatever ends before.
inline bool isFarFromPageEnd(char const* text) noexcept {
    return (reinterpret_cast<std::uintptr_t>(text) & 4095) <= 4096 - 16;
}

}  // namespace dottedQuad

/// As readDottedQuadPlain(): all digits at once. May look at bytes behind the text, on the same page only.
__attribute__((target("avx2,bmi"), no_sanitize("address"), no_sanitize("thread"))) inline bool
readDottedQuadAvx2(char const* text, std::uint8_t* bytes) noexcept {
    if (!dottedQuad::isFarFromPageEnd(text)) return readDottedQuadPlain(text, bytes);
    auto const constant = [](dottedQuad::Bytes const& value) __attribute__((target("avx2,bmi"))) {
        return _mm_load_si128(reinterpret_cast<__m128i const*>(value.bytes.data()));
    };
    auto const placesOf = [](__m128i equal) __attribute__((target("avx2,bmi"))) {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(equal));
    };
    __m128i const characters = _mm_loadu_si128(reinterpret_cast<__m128i const*>(text));
    std::uint32_t const nuls = placesOf(_mm_cmpeq_epi8(characters, _mm_setzero_si128()));
    std::uint32_t const dots = placesOf(_mm_cmpeq_epi8(characters, constant(dottedQuad::dot)));

    // A part ends at a dot or at the end of the text, which is the fourth of them.
    std::uint32_t const end = _blsi_u32(nuls);
    std::uint32_t const first = (dots & (end - 1)) | end;
    std::uint32_t const second = _blsr_u32(first), third = _blsr_u32(second), fourth = _blsr_u32(third);
    if (end == 0 || fourth != end) return false;
    std::uint32_t const a = _tzcnt_u32(first);
    std::uint32_t const b = _tzcnt_u32(second) - _tzcnt_u32(first) - 1;
    std::uint32_t const c = _tzcnt_u32(third) - _tzcnt_u32(second) - 1;
    std::uint32_t const d = _tzcnt_u32(fourth) - _tzcnt_u32(third) - 1;
    if ((a | b | c | d) > 3) return false;

    dottedQuad::Row const& row = dottedQuad::rows[a << 6 | b << 4 | c << 2 | d];
    __m128i const places = _mm_loadu_si128(reinterpret_cast<__m128i const*>(row.places.data()));
    __m128i const digits = _mm_shuffle_epi8(_mm_sub_epi8(characters, constant(dottedQuad::zero)), places);
    __m128i const pairs = _mm_maddubs_epi16(digits, constant(dottedQuad::weights));
    __m128i const numbers = _mm_madd_epi16(pairs, constant(dottedQuad::ones));

    std::uint32_t least = 0;
    std::memcpy(&least, row.least.data(), sizeof least);
    __m128i const noDigit = _mm_subs_epu8(digits, constant(dottedQuad::nine));
    __m128i const tooSmall =
        _mm_cmpgt_epi32(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(static_cast<int>(least))), numbers);
    __m128i const tooLarge = _mm_cmpgt_epi32(numbers, constant(dottedQuad::largest));
    __m128i const wrong = _mm_or_si128(noDigit, _mm_or_si128(tooSmall, tooLarge));
    if (_mm_testz_si128(wrong, wrong) == 0) return false;

    int const quad = _mm_cvtsi128_si32(_mm_shuffle_epi8(numbers, constant(dottedQuad::lowest)));
    std::memcpy(bytes, &quad, sizeof quad);
    return true;
}

namespace dottedQuad {

#ifdef QUILLMARK_MEMCHECK
// What makes certain that bytes behind a text count for nothing is beyond what valgrind can follow.
inline constexpr bool hasAvx2 = false;
#else
inline bool const hasAvx2 = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi");
}();
#endif

}  // namespace dottedQuad

/// The faster of the two on this machine.
inline bool readDottedQuad(char const* text, std::uint8_t* bytes) noexcept {
    return dottedQuad::hasAvx2 ? readDottedQuadAvx2(text, bytes) : readDottedQuadPlain(text, bytes);
}

// ---- IPv4, written

inline constexpr std::size_t longestDottedQuad = 15;

namespace dottedQuad {

/// The text of a number up to 255 with a dot behind it, and its length with the dot.
struct Part {
    std::uint32_t text;  ///< the first character lowest
    std::uint32_t length;
};

consteval std::array<Part, 256> makeParts() noexcept {
    std::array<Part, 256> parts{};
    for (std::uint32_t number = 0; number < parts.size(); ++number) {
        Part& part = parts[number];
        auto const put = [&part](std::uint32_t c) { part.text |= c << (8 * part.length++); };
        if (number >= 100) put('0' + number / 100);
        if (number >= 10) put('0' + number / 10 % 10);
        put('0' + number % 10);
        put('.');
    }
    return parts;
}

inline constexpr std::array<Part, 256> parts = makeParts();

/// A shift of 0 to 64 bits.
constexpr std::uint64_t up(std::uint64_t value, std::uint32_t bytes) noexcept {
    return value << (4 * bytes) << (4 * bytes);
}
constexpr std::uint64_t down(std::uint64_t value, std::uint32_t bytes) noexcept {
    return value >> (4 * bytes) >> (4 * bytes);
}

/// Eight characters at most; shorter ones have zeros behind.
struct Half {
    std::uint64_t text;
    std::uint32_t length;
};

constexpr Half joined(Part const& a, Part const& b) noexcept {
    return {a.text | std::uint64_t{b.text} << (8 * a.length), a.length + b.length};
}

}  // namespace dottedQuad

/// Writes four numbers joined by dots, and the NUL behind: 8 to 16 bytes and not one more.
/// @return the length without the NUL
inline std::size_t writeDottedQuad(std::uint8_t const* bytes, char* text) noexcept {
    using namespace dottedQuad;
    Part last = parts[bytes[3]];
    last.text ^= std::uint32_t{'.'} << (8 * (last.length - 1));
    Half const a = joined(parts[bytes[0]], parts[bytes[1]]);
    Half const b = joined(parts[bytes[2]], last);
    // The first eight bytes and the last eight, which overlap.
    std::uint32_t const beyond = a.length + b.length - 8;
    std::uint64_t const head = a.text | up(b.text, a.length);
    std::uint64_t const tail = down(a.text, beyond) | up(b.text, 8 - b.length);
    std::memcpy(text, &head, sizeof head);
    std::memcpy(text + beyond, &tail, sizeof tail);
    return std::size_t{beyond} + 7;
}

// ---- IPv6, read

namespace hexDigits {

inline constexpr std::uint8_t none = 0xff;

consteval std::array<std::uint8_t, 256> makeDigits() noexcept {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(none);
    for (std::uint8_t i = 0; i < 10; ++i) digits['0' + std::size_t{i}] = i;
    for (std::uint8_t i = 0; i < 6; ++i)
        digits['a' + std::size_t{i}] = digits['A' + std::size_t{i}] = static_cast<std::uint8_t>(10 + i);
    return digits;
}

inline constexpr std::array<std::uint8_t, 256> values = makeDigits();

}  // namespace hexDigits

constexpr bool isHexDigit(char c) noexcept {
    return hexDigits::values[static_cast<unsigned char>(c)] != hexDigits::none;
}

/// Eight groups of one to four hexadecimal digits joined by colons, of which one or more zero groups may
/// be left out at one place ("::") and the last two may be a dotted quad (RFC 4291, section 2.2): what
/// inet_pton takes.
/// @param text   ends with a NUL
/// @param bytes  16 of them, written for success only
inline bool readGroups(char const* text, std::uint8_t* bytes) noexcept {
    constexpr std::size_t size = 16;
    constexpr std::size_t nowhere = size + 1;
    std::array<std::uint8_t, size> read{};
    std::size_t length = 0;     // of what was read
    std::size_t gap = nowhere;  // where "::" stands in it
    if (text[0] == ':') {
        if (text[1] != ':') return false;
        gap = 0;
        text += 2;
    }
    while (*text != '\0') {
        char const* const begin = text;
        auto const digitHere = [&text] { return hexDigits::values[static_cast<unsigned char>(*text)]; };
        unsigned int group = digitHere();
        if (group == hexDigits::none || length == size) return false;
        ++text;
        for (int more = 3; more != 0 && digitHere() != hexDigits::none; --more, ++text)
            group = group << 4 | digitHere();
        if (*text == '.') {
            if (length + 4 > size || !readDottedQuad(begin, read.data() + length)) return false;
            length += 4;
            break;
        }
        read[length++] = static_cast<std::uint8_t>(group >> 8);
        read[length++] = static_cast<std::uint8_t>(group);
        if (*text == '\0') break;
        if (*text++ != ':' || *text == '\0') return false;
        if (*text == ':') {
            if (gap != nowhere) return false;
            gap = length;
            ++text;
        }
    }
    if ((gap == nowhere) != (length == size)) return false;
    if (gap == nowhere) gap = size;
    std::size_t const behind = length - gap;
    std::memset(bytes, 0, size);
    std::memcpy(bytes, read.data(), gap);
    std::memcpy(bytes + size - behind, read.data() + gap, behind);
    return true;
}

// ---- IPv6, written

inline constexpr std::size_t longestGroups = 39;

namespace hexDigits {

/// Two digits for each byte, the first one lowest.
consteval std::array<std::uint16_t, 256> makePairs() noexcept {
    constexpr std::string_view all{"0123456789abcdef"};
    std::array<std::uint16_t, 256> pairs{};
    for (std::size_t byte = 0; byte < pairs.size(); ++byte)
        pairs[byte] = static_cast<std::uint16_t>(all[byte >> 4] | all[byte & 15] << 8);
    return pairs;
}

inline constexpr std::array<std::uint16_t, 256> pairs = makePairs();

}  // namespace hexDigits

namespace groups {

/// The groups that "::" stands for.
struct Gap {
    std::uint8_t begin;
    std::uint8_t length;  ///< more than 1 if there are any
};

/// By the set of the groups that are zero, the first group lowest: the first of the longest runs.
consteval std::array<Gap, 256> makeGaps() noexcept {
    std::array<Gap, 256> gaps{};
    gaps.fill({8, 1});
    for (std::size_t zeros = 0; zeros < gaps.size(); ++zeros)
        for (std::uint8_t i = 0; i < 8; ++i) {
            std::uint8_t const begin = i;
            while (i < 8 && (zeros >> i & 1) != 0) ++i;
            auto const length = static_cast<std::uint8_t>(i - begin);
            if (length > gaps[zeros].length) gaps[zeros] = {begin, length};
        }
    return gaps;
}

inline constexpr std::array<Gap, 256> gaps = makeGaps();

inline Gap gapOf(std::uint8_t const* bytes) noexcept {
    __m128i const all = _mm_loadu_si128(reinterpret_cast<__m128i const*>(bytes));
    __m128i const zeros = _mm_cmpeq_epi16(all, _mm_setzero_si128());
    return gaps[static_cast<std::size_t>(_mm_movemask_epi8(_mm_packs_epi16(zeros, _mm_setzero_si128())))];
}

/// Writes groups, each with a colon behind, five bytes at a time.
inline char* write(std::uint8_t const* bytes, std::size_t count, char* text) noexcept {
    for (; count != 0; --count, bytes += 2) {
        auto const value = static_cast<unsigned int>(bytes[0] << 8 | bytes[1]);
        auto const skipped = static_cast<unsigned int>(__builtin_clz(value | 1) - 16) / 4;
        std::uint32_t const digits =
            (hexDigits::pairs[bytes[0]] | std::uint32_t{hexDigits::pairs[bytes[1]]} << 16) >> (8 * skipped);
        std::memcpy(text, &digits, sizeof digits);
        text += 4 - skipped;
        *text++ = ':';
    }
    return text;
}

}  // namespace groups

/// Writes the groups in the form of RFC 5952, section 4: small letters, no leading zeros, "::" for the first
/// of the longest runs of two or more zero groups. No NUL stands behind, and no dotted quad inside.
/// @param text  with room for longestGroups + 1 bytes, of which any may be overwritten
/// @return the length
inline std::size_t writeGroups(std::uint8_t const* bytes, char* text) noexcept {
    groups::Gap const gap = groups::gapOf(bytes);
    char* end = groups::write(bytes, gap.begin, text);
    if (gap.length > 1) {
        if (gap.begin == 0) *end++ = ':';
        *end++ = ':';
        std::size_t const next = std::size_t{gap.begin} + gap.length;
        if (next == 8) return static_cast<std::size_t>(end - text);
        end = groups::write(bytes + 2 * next, 8 - next, end);
    }
    return static_cast<std::size_t>(end - text) - 1;
}

}  // namespace Quillmark
