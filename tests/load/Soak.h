#pragma once
// Programs that run for long: a daemon among clients of every kind, and a scan of mail that somebody broke.

#include <chrono>
#include <string>
#include <vector>

#include "tests/load/Meter.h"

namespace QuillmarkLoad {

/// How long and how fast. What ends first ends the soak; 0 sets no bound.
struct Pace {
    std::chrono::seconds length{0};
    unsigned long most = 0;  ///< requests or messages in all
    double perSecond = 0;    ///< of them
    bool isTold = false;     ///< a line on standard output for every minute
};

struct Soaked {
    std::vector<std::string> wrong;  ///< what was not as it has to be; the first few
    unsigned long done = 0;          ///< requests or messages
    Usage warm;                      ///< when a tenth was over
    Usage end;
    std::size_t filesLeft = 0;
};

/// `quillmark serve` among clients that ask well, in fragments, half and rubbish, that end early or say nothing,
/// while policy and lists change.
Soaked soakServe(Pace const& pace);

/// One `quillmark scan` that is given a Maildir of broken mail, path by path, as it comes.
Soaked soakScan(Pace const& pace);

}  // namespace QuillmarkLoad
