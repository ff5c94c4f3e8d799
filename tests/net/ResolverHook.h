#pragma once
// The C library's resolver with a door for tests.

namespace QuillmarkTest {

/// As long as it lives, the system does not prepare a resolver for the thread that made it.
class RefusedResolver {
public:
    RefusedResolver();
    ~RefusedResolver();
    RefusedResolver(RefusedResolver const&) = delete;
    RefusedResolver& operator=(RefusedResolver const&) = delete;
};

}  // namespace QuillmarkTest
