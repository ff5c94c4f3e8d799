#pragma once
// Text files with other line ends.

#include <string_view>

namespace Quillmark {

constexpr int bothAreOneFile = -1;

/// Copies the file @p from to the file @p to, line by line, and ends each line in @p lineEnd instead of LF
/// or CR LF. A line costs its length once, however long it is, and is never held as a whole.
/// @return 0, the errno of what the system refused, or bothAreOneFile, which then stays as it is
int convertLines(char const* from, char const* to, std::string_view lineEnd);

}  // namespace Quillmark
