#pragma once
// All that can be read, at once: for what is small, such as one value, one request, one policy.

#include <string>

namespace QuillmarkTool {

/// What stands in the file. Throws std::system_error; what() is "path: reason".
std::string contentsOf(std::string const& path);

/// Standard input, up to its end. Throws std::system_error, which ends the command with its text.
std::string standardInput();

}  // namespace QuillmarkTool
