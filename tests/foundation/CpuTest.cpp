#include "foundation/Cpu.h"

#include <array>

#include "tests/support/Support.h"

using namespace Quillmark;

namespace {

struct Named {
    char const* name;
    InstructionSet needs;
};

}  // namespace

TEST(Cpu, CanAlwaysRunWhatNeedsNothing) {
    EXPECT_TRUE(cpuHas(InstructionSet::Any));
}

TEST(Cpu, HasTheSmallerSetWhereItHasTheLarger) {
    EXPECT_TRUE(cpuHas(InstructionSet::Avx2) || !cpuHas(InstructionSet::Avx512));
}

TEST(Cpu, ChoosesTheFirstKernelThatItCanRun) {
    std::array<Named, 3> const all{
        {{"wide", InstructionSet::Avx512}, {"middle", InstructionSet::Avx2}, {"plain", InstructionSet::Any}}};
    std::string const expected = cpuHas(InstructionSet::Avx512) ? "wide"
                                 : cpuHas(InstructionSet::Avx2) ? "middle"
                                                                : "plain";
    EXPECT_EQ(bestKernel(std::span<Named const>(all)).name, expected);
    EXPECT_STREQ(bestKernel(std::span<Named const>(all).last(1)).name, "plain");
    std::array<Named, 2> const both{{{"first", InstructionSet::Any}, {"second", InstructionSet::Any}}};
    EXPECT_STREQ(bestKernel(std::span<Named const>(both)).name, "first");
}
