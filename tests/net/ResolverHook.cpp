#include "tests/net/ResolverHook.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <resolv.h>

namespace {

thread_local bool refused = false;

}  // namespace

// A program's functions stand before those of its libraries. The name is what the header makes of res_ninit.
extern "C" __attribute__((visibility("default"))) int __res_ninit(res_state state) {
    static auto* const real = reinterpret_cast<int (*)(res_state)>(::dlsym(RTLD_NEXT, "__res_ninit"));
    return refused ? -1 : real(state);
}

namespace QuillmarkTest {

RefusedResolver::RefusedResolver() {
    refused = true;
}

RefusedResolver::~RefusedResolver() {
    refused = false;
}

}  // namespace QuillmarkTest
