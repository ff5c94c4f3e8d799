#pragma once
// Zeros, where most of the bytes are zeros already.

#include <cstddef>
#include <span>

#include "foundation/Cpu.h"

namespace Quillmark {

/// One way of making all of some bytes 0.
struct Wipe {
    static constexpr std::size_t block = 512;

    InstructionSet needs;
    /// @param size  a multiple of block
    void (*wipe)(unsigned char* bytes, std::size_t size) noexcept;
};

/// All kernels, the best first. The last one is the plain twin.
QUILLMARK_EXPORT std::span<Wipe const> wipes() noexcept;

/// Makes all bytes 0, the fastest way this machine has.
void wipe(std::span<unsigned char> bytes) noexcept;

}  // namespace Quillmark
