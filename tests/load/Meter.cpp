#include "tests/load/Meter.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "tests/support/Support.h"

namespace QuillmarkLoad {
namespace {

/// Processor time out of /proc/PID/stat: the fields behind the name, which may hold blanks itself.
double cpuOf(std::string const& stat) {
    std::size_t const end = stat.rfind(')');
    if (end == std::string::npos) return 0;
    std::istringstream rest(stat.substr(end + 2));
    std::string skipped;
    for (int field = 3; field < 14; ++field) rest >> skipped;
    double user = 0;
    double system = 0;
    rest >> user >> system;
    return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

}  // namespace

Usage usageOf(int process) {
    std::string const place = "/proc/" + std::to_string(process);
    Usage usage;
    std::istringstream status(QuillmarkTest::readFile(place + "/status"));
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") status >> usage.residentKib;
        if (word == "VmHWM:") status >> usage.peakKib;
        if (word == "Threads:") status >> usage.threads;
    }
    usage.cpuSeconds = cpuOf(QuillmarkTest::readFile(place + "/stat"));
    std::error_code gone;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator(place + "/fd", gone))
        ++usage.descriptors;
    return usage;
}

Usage ownUsage() {
    Usage usage = usageOf(::getpid());
    --usage.descriptors;  // the one that looked
    return usage;
}

std::size_t heapBytes() {
    struct mallinfo2 const info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

std::size_t entriesBelow(std::string const& directory) {
    std::size_t count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::recursive_directory_iterator(directory))
        ++count;
    return count;
}

std::string grouped(unsigned long number) {
    std::string text = std::to_string(number);
    for (auto at = static_cast<std::ptrdiff_t>(text.size()) - 3; at > 0; at -= 3)
        text.insert(static_cast<std::size_t>(at), ",");
    return text;
}

void say(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace QuillmarkLoad
