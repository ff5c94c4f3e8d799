#pragma once
// The local zone, which the C library has once for the process.

#include <mutex>

namespace Quillmark {

/// Held by whoever asks the C library about local time. Each of its answers may take up a changed TZ, so
/// without the lock two answers to one computation could be of two zones. Nothing else is called, and no
/// other lock taken, while it is held.
extern std::mutex zoneLock;

}  // namespace Quillmark
