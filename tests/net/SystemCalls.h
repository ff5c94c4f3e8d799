#pragma once
// System calls with a door for tests: an answer that no test can have from the system itself.

#include <string>

namespace QuillmarkTest {

/// As long as it lives, the next calls of one function on this thread give a prepared answer.
class Prepared {
public:
    /// @param call    "poll", "send", "recv", "accept4", "connect", "fcntl"
    /// @param result  what the call gives
    /// @param error   what errno is then
    /// @param times   how many calls; those after them go to the system
    /// @param skip    how many calls before them go to the system
    Prepared(std::string call, long result, int error, int times = 1, int skip = 0);
    ~Prepared();
    Prepared(Prepared const&) = delete;
    Prepared& operator=(Prepared const&) = delete;
    int left() const;  ///< prepared answers that nobody asked for
};

}  // namespace QuillmarkTest
