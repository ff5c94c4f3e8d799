#pragma once
// Messages whose only purpose is to cost whoever reads them more than they cost to write.

#include <cstddef>
#include <span>
#include <string>

namespace QuillmarkLoad {

struct Hostile {
    char const* name;
    std::size_t most;                  ///< how often whatever it is made of is there, for a large one
    std::string (*make)(std::size_t);  ///< a message with so many
    char const* limit = nullptr;       ///< what a report on a large one says, where there is a limit
};

/// All kinds.
std::span<Hostile const> corpus();

/// What a scan of a message took, on stacks of 256 KiB.
struct Cost {
    int status = -1;     ///< 0, or 1 for a message that is reported to be bad
    double seconds = 0;  ///< of the processor
    unsigned long peakKib = 0;
    std::string errors;       ///< as the report lists them
    std::size_t reports = 0;  ///< lines of the report
};

/// @param directory  for the message, its report and swap files, which are gone afterwards; leftovers throw
Cost costOf(std::string const& message, std::string const& directory);

/// Scans messages of a quarter, half and all of the size of each kind whose name holds @p word, and prints a
/// table. @return whether each ended in a report, and doubling never cost more than 2.3 times as much
bool measureCorpus(std::string const& word);

}  // namespace QuillmarkLoad
