#pragma once
// What a process takes of its machine, and words for it.

#include <cstddef>
#include <string>

namespace QuillmarkLoad {

/// What the system says about a process; zeros for one that is gone.
struct Usage {
    unsigned long residentKib = 0;  ///< memory that is really there (VmRSS)
    unsigned long peakKib = 0;      ///< the most that ever was (VmHWM)
    unsigned long threads = 0;
    std::size_t descriptors = 0;
    double cpuSeconds = 0;
};

Usage usageOf(int process);
Usage ownUsage();

/// Bytes that this process has allocated and not freed, by the allocator's own count.
std::size_t heapBytes();

/// How many files and directories there are below @p directory.
std::size_t entriesBelow(std::string const& directory);

/// "1,234,567"
std::string grouped(unsigned long number);

/// Writes a line to standard output at once, whoever reads there.
void say(char const* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace QuillmarkLoad
