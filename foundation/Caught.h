#pragma once
// Where services and threads report an exception that has nowhere left to go.

#include "include2/Exception"

namespace Quillmark {

/// Writes EventException with @p function (its signature, as log readers know it) and the text of
/// @p exception to the current logger. Any thread. A failure to log is nobody's failure any more: an
/// Exception or a std::exception of the logger stays here. The end of a cancelled thread passes.
void logCaught(char const* function, Exception const& exception);
/// The same with a text of the caller's.
void logCaught(char const* function, char const* detail);

/// The same for an exception that is not one of the library's: writes EventUnknownException with
/// @p function.
void logUnknown(char const* function);

}  // namespace Quillmark
