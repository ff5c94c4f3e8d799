#include "tests/net/AddressHelperHook.h"

#include <dlfcn.h>

#include <utility>

#include "platform/quill_ip.h"

namespace {

std::function<bool()> current;

bool allowed() {
    return !current || current();
}

template <class Function>
Function* next(char const* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// A program's functions stand before those of its libraries.

extern "C" char* quill_ip_to_string(ip_addr_t const* address, char* buffer, size_t length, bool dotted) {
    static auto* const helper = next<char*(ip_addr_t const*, char*, size_t, bool)>("quill_ip_to_string");
    return allowed() ? helper(address, buffer, length, dotted) : nullptr;
}

extern "C" char* quill_ipmask_to_string(ip_mask_t const* mask, char* buffer, size_t length) {
    static auto* const helper = next<char*(ip_mask_t const*, char*, size_t)>("quill_ipmask_to_string");
    return allowed() ? helper(mask, buffer, length) : nullptr;
}

namespace QuillmarkTest {

PrintingHook::PrintingHook(std::function<bool()> hook) {
    current = std::move(hook);
}

PrintingHook::~PrintingHook() {
    current = nullptr;
}

}  // namespace QuillmarkTest
