// What the library needs of any configuration area.

#include <gtest/gtest.h>

#include <cstdint>

#include "platform/quill_cfg.h"

namespace {

TEST(Configuration, CountsGenerationsInWord296CountedFromZero) {
    EXPECT_EQ(QUILL_CFG_GENERATION_WORD, 296);
    EXPECT_GT(QUILL_CFG_WORDS, QUILL_CFG_GENERATION_WORD);
}

TEST(Configuration, LetsAnybodyAttachAnArea) {
    std::uint32_t volatile area[QUILL_CFG_WORDS] = {};
    std::uint32_t volatile* const before = nCfg_debug_zone;
    nCfg_debug_zone = area;
    std::uint32_t const generation = quill_cfg_new_generation();
    nCfg_debug_zone = before;
    EXPECT_EQ(generation, 1U);
    EXPECT_EQ(area[QUILL_CFG_GENERATION_WORD], 1U);
}

TEST(Path, GivesThePathItselfInProduction) {
    char const path[] = "/var/spool/etc/antispam/gtld";
    EXPECT_STREQ(quill_path(path), path);
}

}  // namespace
