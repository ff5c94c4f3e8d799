#include "net/Wipe.h"

#include <immintrin.h>

#include <cstring>

namespace Quillmark {

namespace {

void wipePlain(unsigned char* bytes, std::size_t size) noexcept {
    std::memset(bytes, 0, size);
}

// To read takes half as long as to write. The zeros that are written anew are hidden from the compiler, which
// would have them written by an instruction that is slow to start.

QUILLMARK_AVX512 void wipeAvx512(unsigned char* bytes, std::size_t size) noexcept {
    constexpr std::size_t width = sizeof(__m512i);
    __m512i zeros = _mm512_setzero_si512();
    asm("" : "+v"(zeros));
    for (unsigned char* const end = bytes + size; bytes != end; bytes += Wipe::block) {
        __m512i even = zeros, odd = zeros;
#pragma GCC unroll 4
        for (std::size_t at = 0; at < Wipe::block; at += 2 * width) {
            even = _mm512_or_si512(even, _mm512_loadu_si512(bytes + at));
            odd = _mm512_or_si512(odd, _mm512_loadu_si512(bytes + at + width));
        }
        __m512i const all = _mm512_or_si512(even, odd);
        if (_mm512_test_epi64_mask(all, all) == 0) continue;
        for (std::size_t at = 0; at < Wipe::block; at += width) _mm512_storeu_si512(bytes + at, zeros);
    }
}

QUILLMARK_AVX2 void wipeAvx2(unsigned char* bytes, std::size_t size) noexcept {
    constexpr std::size_t width = sizeof(__m256i);
    __m256i zeros = _mm256_setzero_si256();
    asm("" : "+x"(zeros));
    for (unsigned char* const end = bytes + size; bytes != end; bytes += Wipe::block) {
        auto* const vectors = reinterpret_cast<__m256i*>(bytes);
        __m256i even = _mm256_setzero_si256(), odd = even;
#pragma GCC unroll 8
        for (std::size_t at = 0; at < Wipe::block / width; at += 2) {
            even = _mm256_or_si256(even, _mm256_loadu_si256(vectors + at));
            odd = _mm256_or_si256(odd, _mm256_loadu_si256(vectors + at + 1));
        }
        __m256i const all = _mm256_or_si256(even, odd);
        if (_mm256_testz_si256(all, all) != 0) continue;
        for (std::size_t at = 0; at < Wipe::block / width; ++at) _mm256_storeu_si256(vectors + at, zeros);
    }
}

constexpr Wipe kernels[] = {
    {InstructionSet::Avx512, wipeAvx512},
    {InstructionSet::Avx2, wipeAvx2},
    {InstructionSet::Any, wipePlain},
};

}  // namespace

std::span<Wipe const> wipes() noexcept {
    return kernels;
}

void wipe(std::span<unsigned char> bytes) noexcept {
    static auto const best = bestKernel(wipes()).wipe;
    best(bytes.data(), bytes.size());
}

}  // namespace Quillmark
