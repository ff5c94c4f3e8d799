#pragma once
// The compression function of MD5 (RFC 1321, section 3.4), over raw bytes.

#include <array>
#include <cstddef>
#include <cstdint>

namespace Quillmark {

/// The chaining values A, B, C, D.
using Md5State = std::array<std::uint32_t, 4>;

inline constexpr std::size_t md5BlockSize = 64;
inline constexpr Md5State md5InitialState{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

/// Takes @p count blocks of 64 bytes into @p state. The bytes need no alignment.
void md5Compress(Md5State& state, unsigned char const* bytes, std::size_t count) noexcept;

}  // namespace Quillmark
