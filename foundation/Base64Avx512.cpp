// Base64 by 64 characters at a time: VBMI looks all of them up at once, and VBMI2 closes the gaps that
// white space leaves.

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "foundation/Avx512.h"
#include "foundation/Base64.h"
#include "include2/Buffer"

namespace Quillmark {

namespace {

using Bytes64 = std::array<unsigned char, 64>;

constexpr std::size_t blockBytes = 48;
constexpr std::size_t blockLength = 64;

template <class Value>
constexpr Bytes64 eachPlace(Value value) {
    Bytes64 bytes{};
    for (unsigned int place = 0; place < 64; ++place) bytes[place] = static_cast<unsigned char>(value(place));
    return bytes;
}

QUILLMARK_AVX512 inline __m512i load(Bytes64 const& bytes) noexcept {
    return _mm512_loadu_si512(bytes.data());
}

/// The lowest @p count bits.
QUILLMARK_AVX512 inline std::uint64_t lowest(std::size_t count) noexcept {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(count));
}

// Three bytes b0 b1 b2 are laid out as b1 b0 b2 b1, so that the bits of each of the four characters are
// neighbours; then every character is shifted down to where the look-up wants it.
constexpr unsigned int order[] = {1, 0, 2, 1};
constexpr unsigned int firstBit[] = {10, 4, 22, 16};
constexpr Bytes64 gathered = eachPlace([](unsigned int at) { return at / 4 * 3 + order[at % 4]; });
constexpr Bytes64 shifts = eachPlace([](unsigned int at) { return firstBit[at % 4] + at % 8 / 4 * 32; });

struct Encoder {
    __m512i alphabet, gather, shift;

    QUILLMARK_AVX512 Encoder() noexcept
        : alphabet(_mm512_loadu_si512(BufferImpl::s_Base64Chars)),
          gather(load(gathered)),
          shift(load(shifts)) {}

    /// The characters of 48 bytes.
    QUILLMARK_AVX512 __m512i block(__m512i bytes) const noexcept {
        __m512i const bits = _mm512_multishift_epi64_epi8(shift, _mm512_permutexvar_epi8(gather, bytes));
        return _mm512_permutexvar_epi8(bits, alphabet);
    }

    /// The last 12 characters of a line and its line feed.
    QUILLMARK_AVX512 __m128i lineEnd(__m128i bytes) const noexcept {
        __m128i const laidOut = _mm_shuffle_epi8(bytes, _mm512_castsi512_si128(gather));
        __m128i const bits = _mm_multishift_epi64_epi8(_mm512_castsi512_si128(shift), laidOut);
        return _mm512_castsi512_si128(_mm512_mask_permutexvar_epi8(_mm512_set1_epi8('\n'), 0xfff,
                                                                   _mm512_castsi128_si512(bits), alphabet));
    }
};

QUILLMARK_AVX512 void encodeGroups(unsigned char const* in, std::size_t groups, char* out) noexcept {
    Encoder const encoder;
    for (; groups >= 22; groups -= 16, in += blockBytes, out += blockLength)  // there are 64 bytes to read
        _mm512_storeu_si512(out, encoder.block(_mm512_loadu_si512(in)));
    while (groups != 0) {
        std::size_t const count = std::min<std::size_t>(groups, 16);
        __m512i const bytes = _mm512_maskz_loadu_epi8(lowest(count * 3), in);
        _mm512_mask_storeu_epi8(out, lowest(count * 4), encoder.block(bytes));
        groups -= count, in += count * 3, out += count * 4;
    }
}

// What is stored behind a line is where the next one goes.
QUILLMARK_AVX512 void encodeLines(unsigned char const* in, std::size_t lines, char* out) noexcept {
    if (lines == 0) return;
    Encoder const encoder;
    for (; lines > 1; --lines, in += base64LineBytes, out += base64LineLength + 1) {
        _mm512_storeu_si512(out, encoder.block(_mm512_loadu_si512(in)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + blockLength),
                         encoder.lineEnd(_mm_loadu_si128(reinterpret_cast<__m128i const*>(in + blockBytes))));
    }
    _mm512_storeu_si512(out, encoder.block(_mm512_maskz_loadu_epi8(lowest(blockBytes), in)));
    _mm_mask_storeu_epi8(out + blockLength, 0x1fff,
                         encoder.lineEnd(_mm_maskz_loadu_epi8(0x1ff, in + blockBytes)));
}

// What a byte below 128 stands for. White space and what is neither have a bit each that no value has.
constexpr unsigned char blank = 0x40;
constexpr unsigned char odd = 0x80;

constexpr unsigned char meaningOf(unsigned int byte) {
    if (byte >= 'A' && byte <= 'Z') return static_cast<unsigned char>(byte - 'A');
    if (byte >= 'a' && byte <= 'z') return static_cast<unsigned char>(byte - 'a' + 26);
    if (byte >= '0' && byte <= '9') return static_cast<unsigned char>(byte - '0' + 52);
    if (byte == '+') return 62;
    if (byte == '/') return 63;
    return byte == ' ' || (byte >= '\t' && byte <= '\r') ? blank : odd;
}

/// The meanings of all bytes below 128, for a look-up by the lower seven bits.
struct Meanings {
    Bytes64 low = eachPlace([](unsigned int byte) { return meaningOf(byte); });
    Bytes64 high = eachPlace([](unsigned int byte) { return meaningOf(byte + 64); });
};
constexpr Meanings meaningsInText;
constexpr Meanings meaningsInLine = [] {
    Meanings table;
    for (unsigned char& meaning : table.low)
        if (meaning == blank) meaning = odd;
    return table;
}();
constexpr Bytes64 places = eachPlace([](unsigned int at) { return at; });
// The three bytes of each word, the highest first.
constexpr Bytes64 packed = eachPlace([](unsigned int at) { return at < 48 ? at / 3 * 4 + 2 - at % 3 : 0U; });

/// Text on its way to bytes. Values that fill no block yet are carried on.
class Decoder {
public:
    QUILLMARK_AVX512 Decoder(unsigned char const* in, std::size_t size, unsigned char* out) noexcept
        : m_pack(load(packed)), m_carried(_mm512_setzero_si512()), m_in(in), m_size(size), m_out(out) {}

    QUILLMARK_AVX512 Base64Run run() noexcept {
        do {
            if (m_count == 0) lines();
        } while (m_size - m_run.read >= stretch + blockLength && blocks());
        while (m_run.read < m_size && lastBlock(std::min(m_size - m_run.read, blockLength))) {
        }
        m_run.place = static_cast<unsigned int>(m_count % 4);
        Bytes64 values;
        _mm512_storeu_si512(values.data(), m_carried);
        for (std::size_t at = m_count - m_run.place; at < m_count; ++at)
            m_run.bits = (m_run.bits << 6) | values[at];
        flush();
        return m_run;
    }

private:
    // After so many characters it is worth a look whether the lines are alike from there on.
    static constexpr std::size_t stretch = 16 * blockLength;

    __m512i m_pack;
    __m512i m_carried;
    unsigned char const* m_in;
    std::size_t m_size;
    unsigned char* m_out;
    std::size_t m_count = 0;  // of carried values, below 64
    Base64Run m_run;

    QUILLMARK_AVX512 static __m512i meanings(__m512i text, Meanings const& table) noexcept {
        return _mm512_permutex2var_epi8(load(table.low), text, load(table.high));
    }

    /// The 48 bytes of 64 values, and 16 that say nothing.
    QUILLMARK_AVX512 __m512i bytes(__m512i values) const noexcept {
        __m512i const pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi16(0x0140));
        __m512i const groups = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
        return _mm512_permutexvar_epi8(m_pack, groups);
    }

    /// The 12 bytes of 16 values, and 4 that say nothing, in each half.
    QUILLMARK_AVX512 __m256i bytes(__m256i values) const noexcept {
        __m256i const pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi16(0x0140));
        __m256i const groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        return _mm256_shuffle_epi8(groups, _mm256_broadcastsi128_si256(_mm512_castsi512_si128(m_pack)));
    }

    /// Lines that are alike, two at a time: the first 64 characters of each, and the last 16 of both.
    QUILLMARK_AVX512 void lines() noexcept {
        constexpr std::size_t rest = 16;
        if (m_size - m_run.read < 4 * blockLength) return;
        unsigned char const* text = m_in + m_run.read;
        Base64Layout const layout(text, m_size - m_run.read);
        if (layout.length == 0) return;
        unsigned char* out = m_out + m_run.written;
        std::size_t const last = layout.length - rest;
        std::size_t const pitch = layout.length + layout.lineEnd;
        std::size_t const outPitch = layout.length / 4 * 3;
        unsigned char const* const end = m_in + m_size - 4 * blockLength;
        for (; text <= end && layout.fits(text) && layout.fits(text + pitch);
             text += 2 * pitch, out += 2 * outPitch) {
            unsigned char const* const next = text + pitch;
            unsigned char* const nextOut = out + outPitch;
            __m512i const start = _mm512_loadu_si512(text);
            __m512i const nextStart = _mm512_loadu_si512(next);
            __m256i const rests = _mm256_inserti128_si256(_mm256_castsi128_si256(loadRest(text + last)),
                                                          loadRest(next + last), 1);
            __m512i const values = meanings(start, meaningsInLine);
            __m512i const nextValues = meanings(nextStart, meaningsInLine);
            __m256i const restValues =
                _mm512_castsi512_si256(meanings(_mm512_castsi256_si512(rests), meaningsInLine));
            __m512i const starts = _mm512_or_si512(start, nextStart);
            __m512i const startValues = _mm512_or_si512(values, nextValues);
            std::uint64_t const oddOnes = _mm512_movepi8_mask(_mm512_or_si512(starts, startValues));
            auto const oddRests =
                static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_or_si256(rests, restValues)));
            if ((oddOnes | oddRests) != 0) break;
            __m256i const restBytes = bytes(restValues);
            _mm512_storeu_si512(out, bytes(values));
            storeRest(out + last / 4 * 3, _mm256_castsi256_si128(restBytes));
            _mm512_storeu_si512(nextOut, bytes(nextValues));
            storeRest(nextOut + last / 4 * 3, _mm256_extracti128_si256(restBytes, 1));
        }
        m_run.read = static_cast<std::size_t>(text - m_in);
        m_run.written = static_cast<std::size_t>(out - m_out);
    }

    QUILLMARK_AVX512 static __m128i loadRest(unsigned char const* text) noexcept {
        return _mm_loadu_si128(reinterpret_cast<__m128i const*>(text));
    }

    QUILLMARK_AVX512 static void storeRest(unsigned char* out, __m128i bytes) noexcept {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    }

    /// Takes the values among @p meanings, those that @p valid names. True when they complete a block,
    /// which is @p block then.
    QUILLMARK_AVX512 bool take(__m512i meanings, std::uint64_t valid, __m512i& block) noexcept {
        __m512i const values = _mm512_maskz_compress_epi8(valid, meanings);
        // Behind what is carried; what has no room there comes round to the front.
        __m512i const turn = _mm512_sub_epi8(load(places), _mm512_set1_epi8(static_cast<char>(m_count)));
        __m512i const turned = _mm512_permutexvar_epi8(turn, values);
        block = _mm512_mask_mov_epi8(turned, lowest(m_count), m_carried);
        m_count += static_cast<std::size_t>(std::popcount(valid));
        bool const complete = m_count >= blockLength;
        m_carried = complete ? turned : block;
        m_count %= blockLength;
        return complete;
    }

    /// A stretch of text, up to its last blank in the last block if that has one. False when there is
    /// something odd.
    QUILLMARK_AVX512 bool blocks() noexcept {
        __m512i const blanks = _mm512_set1_epi8(blank);
        __m512i block;
        std::uint64_t valid = 0;
        for (std::size_t const end = m_run.read + stretch; m_run.read < end;) {
            __m512i const text = _mm512_loadu_si512(m_in + m_run.read);
            __m512i const values = meanings(text, meaningsInText);
            if (_mm512_movepi8_mask(_mm512_or_si512(text, values)) != 0) return false;
            valid = _mm512_testn_epi8_mask(values, blanks);
            m_run.read += blockLength;
            if (m_run.read == end && valid != ~std::uint64_t{0}) {
                auto const kept = 64 - static_cast<unsigned int>(std::countl_one(valid));
                valid &= lowest(kept);
                m_run.read -= blockLength - kept;
                if (take(values, valid, block)) emit(block);
                break;
            }
            if (take(values, valid, block)) emit(block);
        }
        if (m_count % 4 == 0) flush();
        return true;
    }

    QUILLMARK_AVX512 void emit(__m512i block) noexcept {
        _mm512_storeu_si512(m_out + m_run.written, bytes(block));
        m_run.written += blockBytes;
    }

    /// The next @p count characters. False when there is something odd among them: those before it are taken.
    QUILLMARK_AVX512 bool lastBlock(std::size_t count) noexcept {
        __m512i const text = _mm512_mask_loadu_epi8(_mm512_set1_epi8(' '), lowest(count), m_in + m_run.read);
        __m512i const values = meanings(text, meaningsInText);
        std::uint64_t const oddOnes = _mm512_movepi8_mask(_mm512_or_si512(text, values));
        if (oddOnes != 0) count = static_cast<std::size_t>(std::countr_zero(oddOnes));
        __m512i block;
        std::uint64_t const valid = _mm512_testn_epi8_mask(values, _mm512_set1_epi8(blank)) & lowest(count);
        if (take(values, valid, block)) {
            _mm512_mask_storeu_epi8(m_out + m_run.written, lowest(blockBytes), bytes(block));
            m_run.written += blockBytes;
        }
        m_run.read += count;
        return oddOnes == 0;
    }

    /// Stores what is carried. An incomplete group of one character gives no byte, others one less than
    /// they have.
    QUILLMARK_AVX512 void flush() noexcept {
        std::size_t const rest = m_count * 3 / 4;
        _mm512_mask_storeu_epi8(m_out + m_run.written, lowest(rest), bytes(m_carried));
        m_run.written += rest;
        m_count = 0;
    }
};

QUILLMARK_AVX512 Base64Run decode(unsigned char const* in, std::size_t size, unsigned char* out) noexcept {
    return Decoder(in, size, out).run();
}

}  // namespace

Base64Kernel const base64Avx512{"AVX-512", InstructionSet::Avx512, encodeGroups, encodeLines, decode};

}  // namespace Quillmark
