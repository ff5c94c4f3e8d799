#include "media/Md5Block.h"

#include <bit>
#include <cstring>
#include <utility>

namespace Quillmark {

namespace {

using Word = std::uint32_t;

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
    a += littleEndian(block + 4 * md5WordOf(Step)) + md5Sines[Step];
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
    a = std::rotl(a, md5Rotations[round][Step % 4]);
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

// The values stay in registers from block to block, and the next one waits for b alone: what a block began
// with is added to it in the step that makes it.
void compress(Md5State& state, unsigned char const* bytes, std::size_t count) noexcept {
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

/// The same as RFC 1321 says it.
void compressPlain(Md5State& state, unsigned char const* bytes, std::size_t count) noexcept {
    for (; count != 0; --count, bytes += md5BlockSize) {
        auto [a, b, c, d] = state;
        for (std::size_t step = 0; step < 64; ++step) {
            std::size_t const round = step / 16;
            Word const mixed = round == 0   ? (b & c) | (~b & d)
                               : round == 1 ? (b & d) | (c & ~d)
                               : round == 2 ? b ^ c ^ d
                                            : c ^ (b | ~d);
            Word const sum = a + mixed + littleEndian(bytes + 4 * md5WordOf(step)) + md5Sines[step];
            a = std::exchange(d, std::exchange(c, b));
            b += std::rotl(sum, md5Rotations[round][step % 4]);
        }
        state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
    }
}

}  // namespace

std::span<Md5Kernel const> md5Kernels() noexcept {
    static Md5Kernel const kernels[] = {
        md5Avx512,
        {"portable", InstructionSet::Any, compress},
        {"plain", InstructionSet::Any, compressPlain},
    };
    return kernels;
}

Md5Kernel const& md5Kernel() noexcept {
    static Md5Kernel const& best = bestKernel(md5Kernels());
    return best;
}

}  // namespace Quillmark
