#pragma once
// The compression function of MD5 (RFC 1321, section 3.4), over raw bytes.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "foundation/Cpu.h"
#include "include2/QuillTypes"

namespace Quillmark {

/// The chaining values A, B, C, D.
using Md5State = std::array<std::uint32_t, 4>;

inline constexpr std::size_t md5BlockSize = 64;
inline constexpr Md5State md5InitialState{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

/// One way to do the work. All give the same.
struct Md5Kernel {
    char const* name;
    InstructionSet needs;
    /// Takes @p count blocks of 64 bytes into @p state. The bytes need no alignment.
    void (*compress)(Md5State& state, unsigned char const* bytes, std::size_t count) noexcept;
};

/// Every kernel, the best first, the plain one last.
QUILLMARK_EXPORT std::span<Md5Kernel const> md5Kernels() noexcept;

/// The one for this machine.
QUILLMARK_EXPORT Md5Kernel const& md5Kernel() noexcept;

extern Md5Kernel const md5Avx512;

// The 64 steps of a block, for the kernels: 16 in each of the four rounds.

/// What a step adds: the whole part of 2^32 * |sin(i + 1)|, i + 1 in radians.
inline constexpr std::array<std::uint32_t, 64> md5Sines{
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

/// How far a step rotates: four amounts for each round, used in turn.
inline constexpr int md5Rotations[4][4] = {
    {7, 12, 17, 22},
    {5, 9, 14, 20},
    {4, 11, 16, 23},
    {6, 10, 15, 21},
};

/// Which word of the block a step takes.
constexpr std::size_t md5WordOf(std::size_t step) noexcept {
    switch (step / 16) {
    case 0: return step;
    case 1: return (5 * step + 1) % 16;
    case 2: return (3 * step + 5) % 16;
    default: return 7 * step % 16;
    }
}

}  // namespace Quillmark
