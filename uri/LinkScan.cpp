#include "uri/LinkScan.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>

namespace Quillmark {

namespace {

// A text looked at from some place on, byte by byte.
class Marks {
public:
    Marks(std::string_view text, std::size_t from, HighBytes highBytes) noexcept
        : m_text(text), m_from(from), m_highBytes(highBytes) {}

    bool isAt(std::size_t place) const noexcept {
        char const c = m_text[place];
        if (c == '[' || (m_highBytes == HighBytes::Unseen && isHigh(c))) return true;
        if (c == ':' && (at(place + 1) == '/' || (before(place, 1) | 0x20) == 'o')) return true;
        return before(place, 1) == '.' && inRun(c) && inRun(before(place, 2));
    }

    std::size_t next(std::size_t place) const noexcept {
        while (place < m_text.size() && !isAt(place)) ++place;
        return place;
    }

private:
    static bool isHigh(char c) noexcept { return static_cast<unsigned char>(c) >= 0x80; }
    bool inRun(char c) const noexcept {
        return c != '.' && (asciiUriBytes.contains(c) || (m_highBytes == HighBytes::InLinks && isHigh(c)));
    }
    char at(std::size_t place) const noexcept { return place < m_text.size() ? m_text[place] : '\0'; }
    char before(std::size_t place, std::size_t distance) const noexcept {
        return place - m_from >= distance ? m_text[place - distance] : '\0';
    }

    std::string_view m_text;
    std::size_t m_from;
    HighBytes m_highBytes;
};

std::size_t nextMarkPlain(std::string_view text, std::size_t from, HighBytes highBytes) noexcept {
    return Marks(text, from, highBytes).next(from);
}

LinkRun runAtPlain(std::string_view text, std::size_t from, std::size_t mark, HighBytes highBytes) noexcept {
    ByteSet const& uriBytes = highBytes == HighBytes::InLinks ? utf8UriBytes : asciiUriBytes;
    LinkRun run{mark, mark, false};
    while (run.end < text.size() && uriBytes.contains(text[run.end])) ++run.end;
    if (run.end == mark) return run;
    while (run.begin > from && uriBytes.contains(text[run.begin - 1])) --run.begin;
    while (run.begin < run.end && text[run.begin] == '.') ++run.begin;
    for (std::size_t at = run.begin; at < run.end && !run.bracketed; ++at) {
        run.bracketed = text[at] == '[';
        if (text[at] != '.') continue;
        ++run.dots;
        run.doubledDot = run.doubledDot || text[at - 1] == '.';
    }
    return run;
}

// A kernel says of a block of bytes which of them are candidates: bytes of runs behind a dot, colons,
// opening brackets, and bytes of 128 and above as long as those are unseen. There are few, and each is
// judged by the plain twin, as are the first byte, which has none before it, and the end of the text.
class BlockScan {
public:
    BlockScan(std::string_view text, std::size_t from, HighBytes highBytes) noexcept
        : m_text(text), m_marks(text, from, highBytes), m_at(from) {
        if (m_at < m_text.size() && !m_marks.isAt(m_at)) ++m_at;
        m_searching = m_at != from;
    }

    bool hasBlock(std::size_t size) const noexcept { return m_searching && m_text.size() - m_at >= size; }
    char const* block() const noexcept { return m_text.data() + m_at; }

    /// @param candidates  a bit for each byte of the block, the first byte's the lowest
    void take(std::uint64_t candidates, std::size_t size) noexcept {
        for (; candidates != 0; candidates &= candidates - 1) {
            std::size_t const place = m_at + static_cast<std::size_t>(std::countr_zero(candidates));
            if (m_marks.isAt(place)) {
                m_at = place;
                m_searching = false;
                return;
            }
        }
        m_at += size;
    }

    /// Once there is no whole block any more.
    std::size_t result() const noexcept { return m_marks.next(m_at); }

private:
    std::string_view m_text;
    Marks m_marks;
    std::size_t m_at;
    bool m_searching;
};

// By byte of ASCII: whether it stands in a run, and whether it is a candidate whatever stands before it.
constexpr std::uint8_t inRunBit = 1, aloneBit = 0x80;
constexpr std::array<std::uint8_t, 128> asciiBits = [] {
    std::array<std::uint8_t, 128> bits{};
    for (std::size_t byte = 0; byte != bits.size(); ++byte) {
        auto const c = static_cast<unsigned char>(byte);
        bool const inRun = c != '.' && asciiUriBytes.contains(c);
        bits[byte] =
            static_cast<std::uint8_t>((inRun ? inRunBit : 0) | (c == ':' || c == '[' ? aloneBit : 0));
    }
    return bits;
}();

std::uint8_t bitsOfHigh(HighBytes highBytes) noexcept {
    switch (highBytes) {
    case HighBytes::Unseen: return aloneBit;
    case HighBytes::InLinks: return inRunBit;
    case HighBytes::Foreign: break;
    }
    return 0;
}

QUILLMARK_AVX512 __m512i bitsOf(__m512i bytes, HighBytes highBytes) noexcept {
    __m512i const ofAscii = _mm512_permutex2var_epi8(_mm512_loadu_si512(asciiBits.data()), bytes,
                                                     _mm512_loadu_si512(asciiBits.data() + 64));
    return _mm512_mask_mov_epi8(ofAscii, _mm512_movepi8_mask(bytes),
                                _mm512_set1_epi8(static_cast<char>(bitsOfHigh(highBytes))));
}

QUILLMARK_AVX512 std::size_t nextMarkAvx512(std::string_view text, std::size_t from,
                                            HighBytes highBytes) noexcept {
    BlockScan scan(text, from, highBytes);
    while (scan.hasBlock(64)) {
        __m512i const bytes = _mm512_loadu_si512(scan.block());
        __m512i const before = _mm512_loadu_si512(scan.block() - 1);
        __m512i const bits = bitsOf(bytes, highBytes);
        __mmask64 const inRun = _mm512_test_epi8_mask(bits, _mm512_set1_epi8(inRunBit));
        __mmask64 const behindDot = _mm512_mask_cmpeq_epi8_mask(inRun, before, _mm512_set1_epi8('.'));
        scan.take(behindDot | _mm512_movepi8_mask(bits), 64);
    }
    return scan.result();
}

QUILLMARK_AVX512 __m512i load(std::string_view bytes) noexcept {
    return _mm512_maskz_loadu_epi8(_bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(bytes.size())),
                                   bytes.data());
}

QUILLMARK_AVX512 std::uint64_t inRuns(__m512i bytes, HighBytes highBytes) noexcept {
    return _mm512_test_epi8_mask(bitsOf(bytes, highBytes), _mm512_set1_epi8(inRunBit)) |
           _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('.'));
}

// Long runs, and those with a bracket, are the plain twin's.
QUILLMARK_AVX512 LinkRun runAtAvx512(std::string_view text, std::size_t from, std::size_t mark,
                                     HighBytes highBytes) noexcept {
    // The mark is the last of the bytes in front and the first of those behind.
    std::size_t const reach = std::min<std::size_t>(64, mark + 1 - from);
    std::uint64_t const upToMark = inRuns(load(text.substr(mark + 1 - reach, reach)), highBytes)
                                   << (64 - reach);
    std::uint64_t const fromMark = inRuns(load(text.substr(mark, 64)), highBytes);
    auto const before = static_cast<std::size_t>(std::countl_one(upToMark));
    auto const length = before + static_cast<std::size_t>(std::countr_one(fromMark)) - 1;
    if (before == 0) return {mark, mark, false};
    if (before == 64 || length >= 64) return runAtPlain(text, from, mark, highBytes);

    std::size_t const begin = mark + 1 - before;
    __m512i const bytes = load(text.substr(begin, length));
    if (_mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('[')) != 0)
        return runAtPlain(text, from, mark, highBytes);
    std::uint64_t dots = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('.'));
    auto const inFront = static_cast<std::size_t>(std::countr_one(dots));
    dots >>= inFront;
    return {begin + inFront, begin + length, false, (dots & dots << 1) != 0,
            static_cast<std::size_t>(std::popcount(dots))};
}

// The same bits by halves of a byte: it stands in a run when its row (the upper half) is among those of its
// column (the lower half).
struct Columns {
    alignas(32) std::array<std::uint8_t, 32> rows{}, bitOfRow{};  // twice, for both halves of a register
};
constexpr Columns columns = [] {
    Columns made;
    for (std::size_t byte = 0; byte != asciiBits.size(); ++byte) {
        auto const bitOfRow = static_cast<std::uint8_t>(1U << (byte >> 4));
        for (std::size_t half : {0U, 16U}) {
            std::uint8_t& rows = made.rows[half + (byte & 15)];
            made.bitOfRow[half + (byte >> 4)] = bitOfRow;
            if ((asciiBits[byte] & inRunBit) != 0) rows = static_cast<std::uint8_t>(rows | bitOfRow);
        }
    }
    return made;
}();

QUILLMARK_AVX2 __m256i load32(void const* at) noexcept {
    return _mm256_loadu_si256(static_cast<__m256i const*>(at));
}

QUILLMARK_AVX2 __m256i are(__m256i bytes, char c) noexcept {
    return _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(c));
}

QUILLMARK_AVX2 __m256i outsideRuns(__m256i bytes) noexcept {
    __m256i const upperHalves = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(15));
    __m256i const row = _mm256_shuffle_epi8(load32(columns.bitOfRow.data()), upperHalves);
    __m256i const rows = _mm256_shuffle_epi8(load32(columns.rows.data()), bytes);
    return are(_mm256_and_si256(row, rows), 0);
}

QUILLMARK_AVX2 std::size_t nextMarkAvx2(std::string_view text, std::size_t from,
                                        HighBytes highBytes) noexcept {
    __m256i const highInRun = _mm256_set1_epi8(highBytes == HighBytes::InLinks ? -128 : 0);
    __m256i const highAlone = _mm256_set1_epi8(highBytes == HighBytes::Unseen ? -128 : 0);
    BlockScan scan(text, from, highBytes);
    while (scan.hasBlock(32)) {
        __m256i const bytes = load32(scan.block());
        __m256i const dotBefore = are(load32(scan.block() - 1), '.');
        __m256i const outside = _mm256_andnot_si256(_mm256_and_si256(bytes, highInRun), outsideRuns(bytes));
        __m256i const behindDot = _mm256_andnot_si256(outside, dotBefore);
        __m256i const alone = _mm256_or_si256(_mm256_and_si256(bytes, highAlone),
                                              _mm256_or_si256(are(bytes, ':'), are(bytes, '[')));
        __m256i const candidates = _mm256_or_si256(behindDot, alone);
        scan.take(static_cast<std::uint32_t>(_mm256_movemask_epi8(candidates)), 32);
    }
    return scan.result();
}

constexpr LinkScan scans[] = {
    {InstructionSet::Avx512, nextMarkAvx512, runAtAvx512},
    {InstructionSet::Avx2, nextMarkAvx2, runAtPlain},
    {InstructionSet::Any, nextMarkPlain, runAtPlain},
};

}  // namespace

std::span<LinkScan const> linkScans() noexcept {
    return scans;
}

}  // namespace Quillmark
