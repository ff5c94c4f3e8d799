#pragma once
// The address helper with a door for tests: they look on while a text is made, or make it fail.

#include <functional>

namespace QuillmarkTest {

/// As long as it lives, the hook is asked before an address or a mask is printed: false makes the helper
/// fail. One at a time.
class PrintingHook {
public:
    explicit PrintingHook(std::function<bool()> hook);
    ~PrintingHook();
    PrintingHook(PrintingHook const&) = delete;
    PrintingHook& operator=(PrintingHook const&) = delete;
};

/// As long as it lives, addresses that are read are of this family, as a helper of another system may say.
class FamilyHook {
public:
    explicit FamilyHook(unsigned int family);
    ~FamilyHook();
    FamilyHook(FamilyHook const&) = delete;
    FamilyHook& operator=(FamilyHook const&) = delete;
};

}  // namespace QuillmarkTest
