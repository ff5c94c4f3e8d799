#pragma once
// Which kernels this machine can run. A hot loop that has several keeps them in a list, the best first and
// the one that needs nothing last; the first that the machine has is chosen once, at the first call. Tests,
// fuzzers and benchmarks go through the list themselves.

#include <span>

#include "include2/QuillTypes"

namespace Quillmark {

/// What a kernel is compiled for.
enum class InstructionSet {
    Any,     ///< every x86-64
    Avx2,    ///< AVX2, BMI1, BMI2, POPCNT (Haswell, Zen)
    Avx512,  ///< AVX-512 F, BW, VL, VBMI and VBMI2 and what AVX2 stands for (Ice Lake, Zen 4)
};

// Stand before a function that uses them: no file needs flags of its own, and whatever such a function
// calls and wants inlined carries the same mark.
#define QUILLMARK_AVX2 [[gnu::target("avx2,bmi,bmi2,popcnt")]]
#define QUILLMARK_AVX512 \
    [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,avx2,bmi,bmi2,popcnt")]]

/// True when the processor has the set and the system saves its registers.
QUILLMARK_EXPORT bool cpuHas(InstructionSet set) noexcept;

/// The first of @p kernels that this machine can run. Each has a member `needs`, the last InstructionSet::Any.
template <class Kernel>
Kernel const& bestKernel(std::span<Kernel const> kernels) noexcept {
    for (Kernel const& kernel : kernels)
        if (cpuHas(kernel.needs)) return kernel;
    return kernels.back();
}

}  // namespace Quillmark
