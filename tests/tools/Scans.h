#pragma once
// Scans, and messages made for them.

#include <string>
#include <vector>

#include "tests/tools/Tool.h"

namespace QuillmarkTest {

/// Runs "quillmark scan" with the lists of the tests.
inline Ran scan(std::vector<std::string> const& more, Surroundings const& surroundings = {}) {
    std::vector<std::string> arguments{"scan", "--lists", testLists()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return quillmark(arguments, surroundings);
}

/// A message from, about and with a link to @p name.
inline std::string message(std::string const& name) {
    return "From: " + name + "@example.com\nSubject: " + name + "\n\nSee http://" + name + ".example.org/\n";
}

}  // namespace QuillmarkTest
