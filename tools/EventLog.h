#pragma once
// What the library logs belongs to the person at the terminal here, not to the mail server's log.

namespace QuillmarkTool {

/// From now on the library's events are lines on standard error. Called before anything is logged.
void logToStandardError();

}  // namespace QuillmarkTool
