#include "net/Wipe.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using namespace Quillmark;

// What is left of some bytes between two others, which nobody may touch.
std::string wiped(Wipe const& kernel, std::string const& bytes) {
    std::vector<unsigned char> memory{1};
    memory.insert(memory.end(), bytes.begin(), bytes.end());
    memory.push_back(2);
    kernel.wipe(memory.data() + 1, bytes.size());
    EXPECT_EQ(memory.front(), 1);
    EXPECT_EQ(memory.back(), 2);
    return {memory.begin() + 1, memory.end() - 1};
}

}  // namespace

TEST(Wipe, LeavesNoByteOfABlock) {
    for (Wipe const& kernel : wipes()) {
        if (!cpuHas(kernel.needs)) continue;
        EXPECT_EQ(wiped(kernel, ""), "");
        std::string const zeros(4 * Wipe::block, '\0');
        EXPECT_EQ(wiped(kernel, zeros), zeros);
        EXPECT_EQ(wiped(kernel, std::string(4 * Wipe::block, '\xff')), zeros);
        for (std::size_t at = 0; at < zeros.size(); ++at) {
            std::string bytes = zeros;
            bytes[at] = static_cast<char>(1 << at % 8);
            ASSERT_EQ(wiped(kernel, bytes), zeros) << at;
        }
    }
}

TEST(Wipe, LeavesNoByteWhereverSomeAre) {
    std::mt19937 random(3);
    for (Wipe const& kernel : wipes()) {
        if (!cpuHas(kernel.needs)) continue;
        for (int round = 0; round < 2000; ++round) {
            std::string bytes((1 + random() % 16) * Wipe::block, '\0');
            for (auto more = random() % 20; more != 0; --more)
                bytes[random() % bytes.size()] = static_cast<char>(random());
            ASSERT_EQ(wiped(kernel, bytes), std::string(bytes.size(), '\0'));
        }
    }
}
