#pragma once
// A hash that a sender of mail cannot steer: SipHash-2-4 (Aumasson and Bernstein, 2012).

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Quillmark {

/// The 16 bytes of a key, as two little-endian words.
struct HashKey {
    std::uint64_t low;
    std::uint64_t high;
};

/// Hashes @p text under @p key. Who does not know the key finds no texts that share a value.
inline std::uint64_t keyedHash(HashKey key, std::string_view text) noexcept {
    std::uint64_t v0 = key.low ^ 0x736f6d6570736575;
    std::uint64_t v1 = key.high ^ 0x646f72616e646f6d;
    std::uint64_t v2 = key.low ^ 0x6c7967656e657261;
    std::uint64_t v3 = key.high ^ 0x7465646279746573;
    auto const round = [&] {
        v0 += v1, v1 = std::rotl(v1, 13) ^ v0, v0 = std::rotl(v0, 32);
        v2 += v3, v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3, v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1, v1 = std::rotl(v1, 17) ^ v2, v2 = std::rotl(v2, 32);
    };
    auto const compress = [&](std::uint64_t word) {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    };
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t const length = text.size();
    for (; text.size() >= 8; text.remove_prefix(8)) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data(), 8);
        compress(word);
    }
    std::uint64_t last = 0;
    if (!text.empty()) std::memcpy(&last, text.data(), text.size());
    compress(last | length << 56);
    v2 ^= 0xff;
    for (int i = 0; i < 4; ++i) round();
    return v0 ^ v1 ^ v2 ^ v3;
}

}  // namespace Quillmark
