#pragma once
// The AVX-512 intrinsics for kernels.

// The header of g++ 12 leaves operands that are masked out unset on purpose, and the compiler complains.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include <immintrin.h>  // IWYU pragma: export
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
