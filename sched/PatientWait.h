#pragma once
// A wait that signals do not end, for the library's own threads.

#include "include2/QuillThread"

namespace Quillmark {

/// Takes one unit of @p semaphore and goes on waiting after a signal. Other failures of the system throw
/// as Semaphore::wait() does.
void waitThroughSignals(Semaphore& semaphore);

}  // namespace Quillmark
