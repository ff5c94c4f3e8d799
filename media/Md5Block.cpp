#include "media/Md5Block.h"

#include <bit>
#include <cstring>
#include <utility>

namespace Quillmark {

namespace {

using Word = std::uint32_t;

/// The whole part of 2^32 * |sin(i + 1)|, i + 1 in radians.
constexpr std::array<Word, 64> sines{
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

/// How far each step rotates: four amounts for each round, used in turn.
constexpr int rotations[4][4] = {
    {7, 12, 17, 22},
    {5, 9, 14, 20},
    {4, 11, 16, 23},
    {6, 10, 15, 21},
};

/// Which word of the block a step takes.
constexpr std::size_t wordOf(std::size_t step) {
    switch (step / 16) {
    case 0: return step;
    case 1: return (5 * step + 1) % 16;
    case 2: return (3 * step + 5) % 16;
    default: return 7 * step % 16;
    }
}

Word littleEndian(unsigned char const* bytes) noexcept {
    Word word = 0;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
    return word;
}

/// Has the compiler make the value now, and not in another order that it takes for as good.
[[gnu::always_inline]] inline void settle(Word& value) noexcept {
    asm("" : "+r"(value));
}

/// One of the 64 steps, in which @p a becomes what is nearly a new b.
///
/// The steps are one long chain, since each waits for the b that the one before has made: it takes 5, 4, 4
/// and 5 operations a step in the four rounds, and there is nothing to gain but by keeping it so short.
/// Whatever does not need b is added up first, and G's two halves, which never have a bit in common, are
/// added instead of joined.
template <std::size_t Step>
[[gnu::always_inline]] inline void mix(Word& a, Word b, Word c, Word d, unsigned char const* block) noexcept {
    constexpr std::size_t round = Step / 16;
    a += littleEndian(block + 4 * wordOf(Step)) + sines[Step];
    if constexpr (round == 1) a += c & ~d;
    settle(a);
    if constexpr (round == 0) a += d ^ (b & (c ^ d));
    if constexpr (round == 1) a += b & d;
    if constexpr (round == 2) {
        Word early = c ^ d;
        settle(early);
        a += b ^ early;
    }
    if constexpr (round == 3) a += c ^ (b | ~d);
    a = std::rotl(a, rotations[round][Step % 4]);
}

/// Four steps, after which every value has its role again. @p last is added with the last of them.
template <std::size_t Step>
[[gnu::always_inline]] inline void fourSteps(Word (&v)[4], unsigned char const* block, Word last) noexcept {
    auto& [a, b, c, d] = v;
    mix<Step>(a, b, c, d, block);
    a += b;
    mix<Step + 1>(d, a, b, c, block);
    d += a;
    mix<Step + 2>(c, d, a, b, block);
    c += d;
    last += c;
    settle(last);
    mix<Step + 3>(b, c, d, a, block);
    b += last;
}

template <std::size_t... Four>
[[gnu::always_inline]] inline void allSteps(Word (&v)[4], unsigned char const* block, Word last,
                                            std::index_sequence<Four...> /*each*/) noexcept {
    (fourSteps<4 * Four>(v, block, Four == 15 ? last : 0), ...);
}

}  // namespace

// The values stay in registers from block to block, and the next one waits for b alone: what a block began
// with is added to it in the step that makes it.
void md5Compress(Md5State& state, unsigned char const* bytes, std::size_t count) noexcept {
    Word v[4] = {state[0], state[1], state[2], state[3]};
    for (; count != 0; --count, bytes += md5BlockSize) {
        Word const before[4] = {v[0], v[1], v[2], v[3]};
        allSteps(v, bytes, before[1], std::make_index_sequence<16>());
        v[0] += before[0];
        v[2] += before[2];
        v[3] += before[3];
    }
    state = {v[0], v[1], v[2], v[3]};
}

}  // namespace Quillmark
