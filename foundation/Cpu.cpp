#include "foundation/Cpu.h"

namespace Quillmark {

bool cpuHas(InstructionSet set) noexcept {
    __builtin_cpu_init();
    bool const avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                      __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
    switch (set) {
    case InstructionSet::Any: return true;
    case InstructionSet::Avx2: return avx2;
    case InstructionSet::Avx512: break;
    }
    return avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2");
}

}  // namespace Quillmark
