// What the library needs of any configuration area.

#include <gtest/gtest.h>

#include <cstdint>

#include "platform/quill_cfg.h"

namespace {

// An area that an appliance attached, until the end of the test.
class Attached {
public:
    explicit Attached(std::uint32_t volatile* area) : m_before(nCfg_debug_zone) { nCfg_debug_zone = area; }
    ~Attached() { nCfg_debug_zone = m_before; }
    Attached(Attached const&) = delete;
    Attached& operator=(Attached const&) = delete;

private:
    std::uint32_t volatile* m_before;
};

TEST(Configuration, HasNoGenerationWithoutAnArea) {
    Attached const none(nullptr);
    std::uint32_t generation = 77;
    EXPECT_EQ(quill_cfg_generation(&generation), 0);
    EXPECT_EQ(generation, 77U);
}

TEST(Configuration, ReadsTheGenerationFromWord296CountedFromZero) {
    std::uint32_t volatile area[QUILL_CFG_WORDS] = {};
    area[295] = 1;
    area[296] = 42;
    area[297] = 2;
    Attached const attached(area);
    std::uint32_t generation = 0;
    EXPECT_EQ(quill_cfg_generation(&generation), 1);
    EXPECT_EQ(generation, 42U);
}

TEST(Path, GivesThePathItselfInProduction) {
    char const path[] = "/var/spool/etc/antispam/gtld";
    EXPECT_STREQ(quill_path(path), path);
}

}  // namespace
