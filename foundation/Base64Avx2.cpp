// Base64 by 32 characters at a time. Decoding has two steps over a stretch of text that fits the nearest
// cache: first the values of its characters, side by side, then their bytes.

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "foundation/Base64.h"
#include "include2/Buffer"

namespace Quillmark {

namespace {

constexpr std::size_t blockBytes = 24;
constexpr std::size_t blockLength = 32;

QUILLMARK_AVX2 inline __m256i each(int byte) noexcept {
    return _mm256_set1_epi8(static_cast<char>(byte));
}

/// A table that a byte is looked up in, by its lower half.
using Table = std::array<signed char, 16>;

/// The same table for both halves. It is one that stands in memory: others are made anew every time.
QUILLMARK_AVX2 inline __m256i twice(Table const& table) noexcept {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<__m128i const*>(table.data())));
}

QUILLMARK_AVX2 inline __m256i load(void const* bytes) noexcept {
    return _mm256_loadu_si256(static_cast<__m256i const*>(bytes));
}

QUILLMARK_AVX2 inline void store(void* bytes, __m256i value) noexcept {
    _mm256_storeu_si256(static_cast<__m256i*>(bytes), value);
}

/// The characters of 24 bytes, 12 in each half.
class Encoder {
public:
    /// @param lower  the first 12 bytes at its beginning
    /// @param upper  the others at its end
    QUILLMARK_AVX2 static __m256i block(__m128i lower, __m128i upper) noexcept {
        return characters(_mm256_inserti128_si256(_mm256_castsi128_si256(lower), upper, 1),
                          _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                           5, 4, 6, 5, 8, 7, 9, 8, 11, 10, 12, 11, 14, 13, 15, 14));
    }
    /// @param middle  32 bytes, of which the first and the last four do not count
    QUILLMARK_AVX2 static __m256i block(__m256i middle) noexcept {
        return characters(middle, _mm256_setr_epi8(5, 4, 6, 5, 8, 7, 9, 8, 11, 10, 12, 11, 14, 13, 15, 14,  //
                                                   1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    }

private:
    // Three bytes b0 b1 b2 are laid out as b1 b0 b2 b1, so that the bits of each of the four characters
    // are neighbours.
    QUILLMARK_AVX2 static __m256i characters(__m256i bytes, __m256i gather) noexcept {
        __m256i const laidOut = _mm256_shuffle_epi8(bytes, gather);
        // Multiplying shifts: the first and the third character down, the second and the fourth up.
        __m256i const down = _mm256_mulhi_epu16(laidOut, _mm256_set1_epi32(0x04000040));
        __m256i const up = _mm256_mullo_epi16(laidOut, _mm256_set1_epi32(0x01000010));
        __m256i const values = _mm256_and_si256(
            _mm256_blendv_epi8(down, up, _mm256_set1_epi16(static_cast<short>(0xff00))), each(63));
        // The ranges of the alphabet: 0 to 25, 26 to 51, each of 52 to 63 alone.
        __m256i const range =
            _mm256_sub_epi8(_mm256_subs_epu8(values, each(51)), _mm256_cmpgt_epi8(values, each(25)));
        return _mm256_add_epi8(values, _mm256_shuffle_epi8(twice(offsets), range));
    }

    static constexpr signed char digit = '0' - 52;
    static constexpr Table offsets = {'A',   'a' - 26, digit, digit, digit,    digit,    digit, digit,
                                      digit, digit,    digit, digit, '+' - 62, '/' - 63, 0,     0};
};

QUILLMARK_AVX2 inline __m128i half(unsigned char const* bytes) noexcept {
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(bytes));
}

QUILLMARK_AVX2 void encodeGroups(unsigned char const* in, std::size_t groups, char* out) noexcept {
    for (; groups >= 8; groups -= 8, in += blockBytes, out += blockLength)
        store(out, Encoder::block(half(in), half(in + 8)));
    base64EncodeGroupsPortable(in, groups, out);
}

QUILLMARK_AVX2 inline void storeHalf(void* to, __m128i bytes) noexcept {
    _mm_storeu_si128(static_cast<__m128i*>(to), bytes);
}

// Two lines at a time, whose last 12 characters are the halves of one block. What is stored behind a line is
// where its line feed and the next line go. The load before the end of a line reaches into the next one.
QUILLMARK_AVX2 void encodeLines(unsigned char const* in, std::size_t lines, char* out) noexcept {
    constexpr std::size_t next = base64LineBytes;
    constexpr std::size_t nextOut = base64LineLength + 1;
    for (; lines > 2; lines -= 2, in += 2 * next, out += 2 * nextOut) {
        __m256i const ends = Encoder::block(half(in + 48), half(in + next + 44));
        store(out, Encoder::block(half(in), half(in + 8)));
        store(out + 32, Encoder::block(load(in + 20)));
        storeHalf(out + 64, _mm256_castsi256_si128(ends));
        out[base64LineLength] = '\n';
        store(out + nextOut, Encoder::block(load(in + next - 4)));
        store(out + nextOut + 32, Encoder::block(load(in + next + 20)));
        storeHalf(out + nextOut + 64, _mm256_extracti128_si256(ends, 1));
        out[nextOut + base64LineLength] = '\n';
    }
    // The third block overlaps the second, and nothing is touched beyond the line.
    for (; lines != 0; --lines, in += next, out += nextOut) {
        store(out, Encoder::block(half(in), half(in + 8)));
        store(out + 32, Encoder::block(load(in + 20)));
        store(out + 44, Encoder::block(half(in + 33), half(in + 41)));
        out[base64LineLength] = '\n';
    }
}

/// What text stands for: its values, and a bit for each byte that is no character of the alphabet.
struct Meaning {
    __m256i values;
    __m256i wrong;  // 0 for a character, more for white space than for anything else
    std::uint32_t others;

    QUILLMARK_AVX2 explicit Meaning(__m256i text) noexcept {
        // By the upper half of a byte: which lower halves are characters, and how far those are from
        // their values. "/" is the one that is nearer than its neighbour.
        __m256i const upper = _mm256_and_si256(_mm256_srli_epi32(text, 4), each(15));
        __m256i const wrongUpper = _mm256_shuffle_epi8(twice(uppers), upper);
        __m256i const wrongLower = _mm256_shuffle_epi8(twice(lowers), _mm256_and_si256(text, each(15)));
        wrong = _mm256_and_si256(wrongUpper, wrongLower);
        others = above(0);
        __m256i const slash = _mm256_cmpeq_epi8(text, each('/'));
        values = _mm256_add_epi8(text, _mm256_shuffle_epi8(twice(distances), _mm256_add_epi8(upper, slash)));
    }

    QUILLMARK_AVX2 std::uint32_t whiteSpace() const noexcept { return above(0x1f); }

private:
    QUILLMARK_AVX2 std::uint32_t above(int bits) const noexcept {
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(wrong, each(bits))));
    }

    // 0x20 stands for a control character that is white space, 0x40 for the blank.
    static constexpr Table uppers = {0x30, 0x10, 0x41, 0x02, 0x04, 0x08, 0x04, 0x08,
                                     0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10};
    static constexpr Table lowers = {0x55, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                     0x11, 0x31, 0x33, 0x3a, 0x3b, 0x3b, 0x1b, 0x1a};
    static constexpr Table distances = {0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0};
};

/// For each set of bytes among eight: where they are, one behind the other; of the first eight of a half and of its
/// others.
constexpr auto gathering = [] {
    std::array<std::array<std::array<unsigned char, 8>, 256>, 2> tables{};
    for (unsigned int set = 0; set < 256; ++set) {
        std::size_t count = 0;
        for (unsigned int at = 0; at < 8; ++at) {
            if ((set >> at & 1U) == 0) continue;
            tables[0][set][count] = static_cast<unsigned char>(at);
            tables[1][set][count++] = static_cast<unsigned char>(at + 8);
        }
    }
    return tables;
}();

/// Stores the values that @p valid names; gives what comes behind them.
QUILLMARK_AVX2 inline unsigned char* storeSome(unsigned char* to, __m256i values,
                                               std::uint32_t valid) noexcept {
    __m128i const halves[] = {_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1)};
    for (__m128i const half : halves)
        for (auto const& places : gathering) {
            std::uint32_t const set = valid & 0xff;
            __m128i const eight =
                _mm_shuffle_epi8(half, _mm_loadl_epi64(reinterpret_cast<__m128i const*>(places[set].data())));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(to), eight);
            to += std::popcount(set);
            valid >>= 8;
        }
    return to;
}

/// The 12 + 12 bytes of 32 values, each behind the other at the beginning of its half.
QUILLMARK_AVX2 inline __m256i packed(__m256i values) noexcept {
    __m256i const pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi16(0x0140));
    __m256i const groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    static constexpr Table bytes = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1};
    return _mm256_shuffle_epi8(groups, twice(bytes));
}

/// Stores what 32 values stand for: 24 bytes, and 4 that say nothing.
QUILLMARK_AVX2 inline void storePacked(unsigned char* out, __m256i values) noexcept {
    __m256i const bytes = packed(values);
    storeHalf(out, _mm256_castsi256_si128(bytes));
    storeHalf(out + 12, _mm256_extracti128_si256(bytes, 1));
}

/// Lines that are alike, two at a time: the first 64 characters of each, and the last 16 of both.
QUILLMARK_AVX2 void decodeLines(unsigned char const* in, std::size_t size, unsigned char* out,
                                Base64Run& run) noexcept {
    constexpr std::size_t reach = 6 * blockLength;  // what two lines and what is stored behind them take
    if (size - run.read < reach) return;
    unsigned char const* text = in + run.read;
    Base64Layout const layout(text, size - run.read);
    if (layout.length == 0) return;
    unsigned char* to = out + run.written;
    std::size_t const last = layout.length - blockLength / 2;
    std::size_t const pitch = layout.length + layout.lineEnd;
    std::size_t const outPitch = layout.length / 4 * 3;
    unsigned char const* const end = in + size - reach;
    for (; text <= end && layout.fits(text) && layout.fits(text + pitch);
         text += 2 * pitch, to += 2 * outPitch) {
        unsigned char const* const next = text + pitch;
        unsigned char* const nextTo = to + outPitch;
        Meaning const first(load(text));
        Meaning const second(load(text + blockLength));
        Meaning const nextFirst(load(next));
        Meaning const nextSecond(load(next + blockLength));
        Meaning const rests(
            _mm256_inserti128_si256(_mm256_castsi128_si256(half(text + last)), half(next + last), 1));
        if ((first.others | second.others | nextFirst.others | nextSecond.others | rests.others) != 0) break;
        __m256i const restBytes = packed(rests.values);
        storePacked(to, first.values);
        storePacked(to + blockBytes, second.values);
        storeHalf(to + last / 4 * 3, _mm256_castsi256_si128(restBytes));
        storePacked(nextTo, nextFirst.values);
        storePacked(nextTo + blockBytes, nextSecond.values);
        storeHalf(nextTo + last / 4 * 3, _mm256_extracti128_si256(restBytes, 1));
    }
    run.read = static_cast<std::size_t>(text - in);
    run.written = static_cast<std::size_t>(to - out);
}

QUILLMARK_AVX2 Base64Run decode(unsigned char const* in, std::size_t size, unsigned char* out) noexcept {
    constexpr std::size_t stretch = 2048;
    std::array<unsigned char, stretch + 2 * blockLength> values;
    unsigned char* filled = values.data();
    Base64Run run;
    // What is stored too much has room in what the text that is left may become.
    for (bool odd = false; !odd;) {
        if (filled == values.data()) decodeLines(in, size, out, run);
        if (size - run.read < 2 * blockLength) break;
        // The values of a stretch of text, up to its last blank in the last block if that has one: then
        // lines that are alike may begin there.
        std::size_t const end =
            run.read + std::min(size - run.read - blockLength, stretch) / blockLength * blockLength;
        while (run.read < end) {
            Meaning const meaning(load(in + run.read));
            run.read += blockLength;
            if (meaning.others == 0) {
                store(filled, meaning.values);
                filled += blockLength;
                continue;
            }
            std::uint32_t valid = ~meaning.others;
            odd = meaning.others != meaning.whiteSpace();
            if (odd) {
                run.read -= blockLength;
                break;
            }
            if (run.read == end) {
                auto const behind = static_cast<unsigned int>(std::countl_zero(meaning.others));
                run.read -= behind;
                valid = valid << behind >> behind;
            }
            filled = storeSome(filled, meaning.values, valid);
            if (valid != ~meaning.others) break;
        }
        unsigned char const* taken = values.data();
        for (; filled - taken >= static_cast<std::ptrdiff_t>(blockLength); taken += blockLength) {
            storePacked(out + run.written, load(taken));
            run.written += blockBytes;
        }
        auto left = static_cast<std::size_t>(filled - taken);
        if (left % 4 == 0)
            for (; left != 0; --left) base64DecodeValue(*taken++, out, run);
        store(values.data(), load(taken));
        filled = values.data() + left;
    }
    for (unsigned char const* value = values.data(); value != filled; ++value)
        base64DecodeValue(*value, out, run);
    base64DecodePortable(in, size, out, run);
    return run;
}

}  // namespace

Base64Kernel const base64Avx2{"AVX2", InstructionSet::Avx2, encodeGroups, encodeLines, decode};

}  // namespace Quillmark
