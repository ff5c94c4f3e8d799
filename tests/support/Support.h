#pragma once
// What every test may use: failures as text, a directory of its own, the descriptors that are open.

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "include2/Exception"

namespace QuillmarkTest {

/// The text of the library's exception that @p action throws, "nothing thrown" when it returns, or
/// "another exception" for one that is not the library's.
std::string failureOf(std::function<void()> const& action);

/// A directory that exists as long as the object, below the system's directory for temporary files.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;

    std::string const& path() const { return m_path; }
    std::string file(std::string_view name) const { return m_path + "/" + std::string(name); }
    /// Writes a file below the directory and returns its path.
    std::string write(std::string_view name, std::string_view content) const;

private:
    std::string m_path;
};

std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string_view content);

/// How many descriptors this process has open.
std::size_t openDescriptors();

/// Runs @p action on a thread whose stack has @p bytes, and waits for it. Whoever recurses on input
/// does not come back from here.
void onSmallStack(std::size_t bytes, std::function<void()> const& action);

/// The place of a virtual operation in the table of its class. The destructor takes 0 and 1.
template <class Operation>
std::size_t slotOf(Operation operation) {
    std::ptrdiff_t word = 0;  // the platform's C++ ABI: one more than the distance into the table
    static_assert(sizeof operation >= sizeof word);
    std::memcpy(&word, &operation, sizeof word);
    return static_cast<std::size_t>(word - 1) / sizeof(void*);
}

/// A text that came from malloc, which is given back.
std::string taken(char* text);

/// The bytes as lower-case hexadecimal digits.
std::string hex(std::string_view bytes);

}  // namespace QuillmarkTest
