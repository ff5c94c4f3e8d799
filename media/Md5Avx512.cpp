// MD5 with a vector for each number, of which one lane counts: a step waits for the one before, so that what
// matters is how many operations it takes from b to b. They are four here, in every round.

#include <cstring>
#include <utility>

#include "foundation/Avx512.h"
#include "media/Md5Block.h"

namespace Quillmark {

namespace {

#define QUILLMARK_INLINE QUILLMARK_AVX512 [[gnu::always_inline]] inline

/// Has the compiler make the value now: it takes orders for equally good that are not. A processor that has
/// four pipes finds the four operations of the chain waiting behind those that nobody waits for.
QUILLMARK_INLINE void settle(__m128i& value) noexcept {
    asm volatile("" : "+v"(value));
}

QUILLMARK_INLINE __m128i word(void const* bytes) noexcept {
    int word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return _mm_set1_epi32(word);
}

QUILLMARK_INLINE std::uint32_t number(__m128i value) noexcept {
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(value));
}

// What a round makes of the bits of b, c and d, as the tables that the instruction takes.
constexpr int functions[] = {
    0xca,  // b ? c : d
    0xe4,  // d ? b : c
    0x96,  // b ^ c ^ d
    0x39,  // c ^ (b | ~d)
};

/// One block on its way through the steps.
struct Block {
    unsigned char const* bytes;
    std::uint32_t const* sines;

    /// Begins a step: adds up what is known of its sum long before.
    template <std::size_t Step>
    QUILLMARK_INLINE void begin(__m128i& a) const noexcept {
        a = _mm_add_epi32(a, word(bytes + 4 * md5WordOf(Step)));
        settle(a);
        a = _mm_add_epi32(a, word(sines + Step));
        settle(a);
    }

    /// Makes a new b of @p a. Rotating a vector takes as long as two operations, so the rotation by n is taken
    /// apart. The sum that is rotated is a + f: its upper part, shifted down, has to wait for that, but
    /// its lower part, shifted up, is (a << n) + (f << n), to which b comes as well.
    template <std::size_t Step>
    QUILLMARK_INLINE void finish(__m128i& a, __m128i b, __m128i c, __m128i& d) const noexcept {
        constexpr int n = md5Rotations[Step / 16][Step % 4];
        __m128i const f = _mm_ternarylogic_epi32(b, c, d, functions[Step / 16]);
        __m128i up = _mm_add_epi32(b, _mm_slli_epi32(a, n));
        settle(up);
        a = _mm_add_epi32(a, f);
        settle(a);
        up = _mm_add_epi32(up, _mm_slli_epi32(f, n));
        settle(up);
        if constexpr (Step + 1 < 64) begin<Step + 1>(d);
        a = _mm_add_epi32(up, _mm_srli_epi32(a, 32 - n));
    }

    /// Four steps, after which every value has its role again.
    template <std::size_t Step>
    QUILLMARK_INLINE void four(__m128i& a, __m128i& b, __m128i& c, __m128i& d) const noexcept {
        finish<Step>(a, b, c, d);
        finish<Step + 1>(d, a, b, c);
        finish<Step + 2>(c, d, a, b);
        finish<Step + 3>(b, c, d, a);
    }

    template <std::size_t... Four>
    QUILLMARK_INLINE void all(__m128i& a, __m128i& b, __m128i& c, __m128i& d,
                              std::index_sequence<Four...> /*each*/) const noexcept {
        begin<0>(a);
        (four<4 * Four>(a, b, c, d), ...);
    }
};

QUILLMARK_AVX512 void compress(Md5State& state, unsigned char const* bytes, std::size_t count) noexcept {
    __m128i a = word(&state[0]), b = word(&state[1]), c = word(&state[2]), d = word(&state[3]);
    for (; count != 0; --count, bytes += md5BlockSize) {
        Block block{bytes, md5Sines.data()};
        asm volatile("" : "+r"(block.sines));  // unknown to the compiler, which would keep all 64 as vectors
        __m128i const before[] = {a, b, c, d};
        block.all(a, b, c, d, std::make_index_sequence<16>());
        a = _mm_add_epi32(a, before[0]);
        b = _mm_add_epi32(b, before[1]);
        c = _mm_add_epi32(c, before[2]);
        d = _mm_add_epi32(d, before[3]);
    }
    state = {number(a), number(b), number(c), number(d)};
}

#undef QUILLMARK_INLINE

}  // namespace

Md5Kernel const md5Avx512{"AVX-512", InstructionSet::Avx512, compress};

}  // namespace Quillmark
