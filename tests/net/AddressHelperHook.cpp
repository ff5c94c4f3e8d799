#include "tests/net/AddressHelperHook.h"

#include <dlfcn.h>

#include <utility>

#include "platform/quill_ip.h"

namespace {

std::function<bool()> current;
unsigned int otherFamily = 0;

bool allowed() {
    return !current || current();
}

template <class Function>
Function* next(char const* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// A program's functions stand before those of its libraries.

extern "C" int quill_string_to_ip(char const* text, ip_addr_t* address) {
    static auto* const helper = next<int(char const*, ip_addr_t*)>("quill_string_to_ip");
    int const result = helper(text, address);
    if (result == 1 && otherFamily != 0) address->family = otherFamily;
    return result;
}

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

FamilyHook::FamilyHook(unsigned int family) {
    otherFamily = family;
}

FamilyHook::~FamilyHook() {
    otherFamily = 0;
}

}  // namespace QuillmarkTest
