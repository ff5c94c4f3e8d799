#include "net/Wipe.h"

#include <immintrin.h>

#include <cstring>

namespace Quillmark {

namespace {

void wipePlain(unsigned char* bytes, std::size_t size) noexcept {
    std::memset(bytes, 0, size);
}

// To read takes half as long as to write.
QUILLMARK_AVX2 void wipeAvx2(unsigned char* bytes, std::size_t size) noexcept {
    constexpr std::size_t width = sizeof(__m256i);
    __m256i zeros = _mm256_setzero_si256();
    // Were they known as zeros, they would be written by an instruction that is slow to start.
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
