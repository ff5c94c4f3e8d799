#pragma once
// The C library's resolver and its memory with a door for tests.

#include <cstddef>

namespace QuillmarkTest {

/// As long as it lives, the system does not prepare a resolver for the thread that made it.
class RefusedResolver {
public:
    RefusedResolver();
    ~RefusedResolver();
    RefusedResolver(RefusedResolver const&) = delete;
    RefusedResolver& operator=(RefusedResolver const&) = delete;
};

// Sanitizers bring an allocator of their own, which is not replaced.
#if defined(__has_feature)
#define QUILLMARK_HAS_FEATURE(feature) __has_feature(feature)
#else
#define QUILLMARK_HAS_FEATURE(feature) 0
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && \
    !QUILLMARK_HAS_FEATURE(address_sanitizer) && !QUILLMARK_HAS_FEATURE(thread_sanitizer)
#define QUILLMARK_TEST_REFUSES_ARRAYS 1

/// As long as it lives, the thread that made it gets no zeroed memory for elements of this size.
class RefusedArrays {
public:
    explicit RefusedArrays(std::size_t elementSize);
    ~RefusedArrays();
    RefusedArrays(RefusedArrays const&) = delete;
    RefusedArrays& operator=(RefusedArrays const&) = delete;
};

#endif

}  // namespace QuillmarkTest
