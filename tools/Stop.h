#pragma once
// How a command that takes long is ended before its time.

namespace QuillmarkTool::Stop {

/// From now on the first SIGINT or SIGTERM asks the command to end: it finishes what it has in hand, so that no
/// swap file is left behind and what was done is said. The second one ends the process. Called before the
/// command makes threads.
void listen();

/// Asks the command to end, as a signal does.
void now() noexcept;

bool isWanted() noexcept;

/// The signal that asked; 0 when none did.
int signal() noexcept;

/// Waits until @p descriptor can be read, its end included. @return false when the command is to end
bool waitToRead(int descriptor) noexcept;

/// Whether that can be read without waiting.
bool canRead(int descriptor) noexcept;

}  // namespace QuillmarkTool::Stop
