#pragma once
// A hash that a sender of mail cannot steer: SipHash (Aumasson and Bernstein, 2012).

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

/// SipHash-c-d: so many rounds for each word of a text, and at its end.
template <int wordRounds, int lastRounds>
std::uint64_t sipHash(HashKey key, std::string_view text) noexcept {
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
        for (int i = 0; i < wordRounds; ++i) round();
        v0 ^= word;
    };
    static_assert(std::endian::native == std::endian::little);
    char const* at = text.data();
    std::size_t left = text.size();
    auto const wordAt = [](char const* place) {
        std::uint64_t word = 0;
        std::memcpy(&word, place, 8);
        return word;
    };
    for (; left >= 8; at += 8, left -= 8) compress(wordAt(at));
    std::uint64_t last = 0;
    if (left != 0 && text.size() >= 8) {
        last = wordAt(at + left - 8) >> (64 - 8 * left);
    } else if (left != 0) {
        std::memcpy(&last, at, left);
    }
    compress(last | std::uint64_t{text.size()} << 56);
    v2 ^= 0xff;
    for (int i = 0; i < lastRounds; ++i) round();
    return v0 ^ v1 ^ v2 ^ v3;
}

/// Hashes @p text under @p key, for a table that shows its values to nobody: who does not know the key finds
/// no texts that share one.
inline std::uint64_t keyedHash(HashKey key, std::string_view text) noexcept {
    return sipHash<1, 3>(key, text);
}

}  // namespace Quillmark
