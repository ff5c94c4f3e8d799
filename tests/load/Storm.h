#pragma once
// A dispatcher of the library among many clients, and among those who hold it up.

#include <chrono>
#include <string>
#include <vector>

#include "tests/load/Meter.h"

namespace QuillmarkLoad {

/// A process after so many requests or elements.
struct Sample {
    unsigned long done = 0;
    unsigned long residentKib = 0;
    std::size_t heap = 0;  ///< bytes
    std::size_t descriptors = 0;
};

/// How this process is now, told if wanted.
Sample sampled(unsigned long done, char const* unit, bool isTold);

struct StormOptions {
    unsigned long requests = 1'000'000;
    unsigned int clients = 64;
    unsigned long sampleEvery = 100'000;
    bool isTold = false;
};

struct Stormed {
    std::vector<std::string> wrong;  ///< what clients did not hear as they should; the first few
    unsigned long answered = 0;      ///< as the clients count
    unsigned long turnedAway = 0;    ///< connections that a full queue refused; they were made again
    unsigned long lost = 0;          ///< requests that no handler saw
    unsigned long twice = 0;         ///< and those that one saw more than once
    std::vector<Sample> samples;     ///< of the process with the dispatcher, which is this one
    double seconds = 0;
};

/// Requests in random pieces from clients in a process of their own. Each answer carries a digest of the request.
Stormed storm(StormOptions const& options);

struct SlowOptions {
    unsigned int silent = 100;              ///< clients that connect and say nothing
    unsigned int slow = 20;                 ///< clients that send a byte every second
    unsigned long asks = 1200;              ///< of the good client
    std::chrono::milliseconds between{50};  ///< its asks
    unsigned long bytesEvery = 0;  ///< so many asks, rather than a second, between the slow ones' bytes
    bool isTold = false;
};

struct Delays {
    std::vector<std::string> wrong;
    double median = 0;  ///< seconds
    double most95 = 0;  ///< what 95 in 100 did not exceed
    double longest = 0;
    unsigned long asked = 0;
    unsigned long slowBytes = 0;  ///< that the slow clients have sent
    unsigned long sentAway = 0;   ///< slow clients whose time was over; others took their places
};

/// How long a good client waits for its answers beside clients that never finish.
Delays askBesideSlowClients(SlowOptions const& options);

struct ElementOptions {
    unsigned long elements = 10'000'000;
    unsigned long sampleEvery = 1'000'000;
    bool isTold = false;
};

struct Worked {
    unsigned long tasks = 0;
    unsigned long never = 0;  ///< elements that were not worked on
    unsigned long twice = 0;  ///< and those that were more than once
    std::vector<Sample> samples;
    double seconds = 0;
};

/// Elements through the task pool, in tasks of every size and of four types at a time.
Worked workElements(ElementOptions const& options);

/// Whether memory, heap and descriptors have stopped to grow after the first sample.
bool isFlat(std::vector<Sample> const& samples, unsigned long slackKib);

}  // namespace QuillmarkLoad
