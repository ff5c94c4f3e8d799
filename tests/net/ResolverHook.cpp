#include "tests/net/ResolverHook.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <resolv.h>

namespace {

thread_local bool refused = false;
#ifdef QUILLMARK_TEST_REFUSES_ARRAYS
thread_local std::size_t refusedSize = 0;
#endif

}  // namespace

// A program's functions stand before those of its libraries. The name is what the header makes of res_ninit.
extern "C" __attribute__((visibility("default"))) int __res_ninit(res_state state) {
    static auto* const real = reinterpret_cast<int (*)(res_state)>(::dlsym(RTLD_NEXT, "__res_ninit"));
    return refused ? -1 : real(state);
}

#ifdef QUILLMARK_TEST_REFUSES_ARRAYS

extern "C" void* __libc_calloc(std::size_t count, std::size_t size);

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept {
    return size != 0 && size == refusedSize ? nullptr : ::__libc_calloc(count, size);
}

#endif

namespace QuillmarkTest {

RefusedResolver::RefusedResolver() {
    refused = true;
}

RefusedResolver::~RefusedResolver() {
    refused = false;
}

#ifdef QUILLMARK_TEST_REFUSES_ARRAYS

RefusedArrays::RefusedArrays(std::size_t elementSize) {
    refusedSize = elementSize;
}

RefusedArrays::~RefusedArrays() {
    refusedSize = 0;
}

#endif

}  // namespace QuillmarkTest
