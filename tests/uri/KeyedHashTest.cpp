#include "uri/KeyedHash.h"

#include "tests/support/Support.h"

using namespace Quillmark;

namespace {

constexpr HashKey paperKey{0x0706050403020100, 0x0f0e0d0c0b0a0908};

std::string countingBytes(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>(i);
    return text;
}

TEST(KeyedHash, GivesTheValuesOfTheSipHashPaper) {
    struct Row {
        std::size_t length;
        std::uint64_t value;
    } const rows[] = {
        {0, 0x726fdb47dd0e0e31}, {1, 0x74f839c593dc67fd},  {7, 0xab0200f58b01d137},
        {8, 0x93f5f5799a932462}, {15, 0xa129ca6149be45e5},
    };
    for (auto const& [length, value] : rows)
        EXPECT_EQ((sipHash<2, 4>(paperKey, countingBytes(length))), value) << length << " bytes";
}

TEST(KeyedHash, DependsOnBothHalvesOfTheKey) {
    EXPECT_NE(keyedHash({1, 2}, "text"), keyedHash({1, 3}, "text"));
    EXPECT_NE(keyedHash({1, 2}, "text"), keyedHash({3, 2}, "text"));
}

TEST(KeyedHash, TellsTextsApartThatDifferInTrailingZeros) {
    EXPECT_NE(keyedHash(paperKey, {"a", 1}), keyedHash(paperKey, {"a\0", 2}));
}

}  // namespace
