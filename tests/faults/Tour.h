#pragma once
// A tour of every service of the library, for whoever makes the world fail around it.

#include <ostream>
#include <span>
#include <string>

namespace QuillmarkTest {

struct Service {
    char const* name;
    /// Uses the service in @p directory, which is empty, and gives "" or what is wrong with the result.
    /// A failure that the library states comes out as its exception, as std::bad_alloc, or, from the C
    /// interface, as Refused.
    std::string (*run)(std::string const& directory);
    /// Makes something that lives as long as the process: it is run once, and leaves what it made.
    bool once = false;
    /// Uses it once more in a world that is good again.
    std::string (*after)() = nullptr;
};

/// For the tests' own messages.
inline void PrintTo(Service const& service, std::ostream* out) {
    *out << service.name;
}

/// A C function gave the value that it has for failures.
struct Refused {};

std::span<Service const> tour();

}  // namespace QuillmarkTest
