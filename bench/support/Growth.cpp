#include "bench/support/Growth.h"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

std::atomic<std::int64_t> live{0};
std::atomic<std::int64_t> peak{0};

void note(std::int64_t bytes) noexcept {
    auto const now = live.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    auto seen = peak.load(std::memory_order_relaxed);
    while (now > seen && !peak.compare_exchange_weak(seen, now, std::memory_order_relaxed)) {
    }
}

}  // namespace

// Every allocation of the program and of the libraries is counted, at the size that the heap gives: the C
// library lets a program put its own functions before these.
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT: their names
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT
void* __libc_realloc(void* block, std::size_t size);             // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT
void __libc_free(void* block);                                   // NOLINT

static void* counted(void* block) noexcept {
    if (block != nullptr) {
        note(static_cast<std::int64_t>(malloc_usable_size(block)));
    }
    return block;
}
void* malloc(std::size_t size) {
    return counted(__libc_malloc(size));
}
void* calloc(std::size_t count, std::size_t size) {
    return counted(__libc_calloc(count, size));
}
void* realloc(void* block, std::size_t size) {
    auto const before = static_cast<std::int64_t>(malloc_usable_size(block));
    void* const moved = __libc_realloc(block, size);
    if (moved != nullptr || size == 0) {
        note(-before);
    }
    return counted(moved);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return counted(__libc_memalign(alignment, size));
}
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = counted(__libc_memalign(alignment, size));
    return *block != nullptr ? 0 : ENOMEM;
}
void free(void* block) {
    note(-static_cast<std::int64_t>(malloc_usable_size(block)));
    __libc_free(block);
}
}

namespace Quillmark::bench {

namespace {

struct Line {
    std::size_t bytes;
    double milliseconds;
    double mebibytes;
};

/// What this process has computed so far: what others do on the machine does not count.
double milliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

/// Drives everything else out of the caches. Small inputs would be found there from round to round, and
/// large ones would not: a step that is nobody's growth.
void coolDown() {
    static std::vector<unsigned char> other(std::size_t{64} << 20);
    for (std::size_t at = 0; at < other.size(); at += 64) {
        ++other[at];
    }
}

Line measure(Growth const& growth, std::size_t size) {
    auto const input = growth.make(size);
    Line line{input.size(), 1e300, 0};
    double spent = 0;
    for (int round = 0; round < 3 || (round < 20 && spent < 100); ++round) {
        coolDown();
        auto const before = live.load();
        peak = before;
        double const start = milliseconds();
        growth.run(input);
        double const took = milliseconds() - start;
        line.milliseconds = std::min(line.milliseconds, took);
        line.mebibytes = std::max(line.mebibytes, static_cast<double>(peak - before) / 1048576.0);
        spent += took;
    }
    return line;
}

/// What it takes to copy a text so many times, and to read each copy once.
double copyingMilliseconds(std::string const& input, std::size_t copies) {
    double least = 1e300;
    for (int round = 0; round < 5; ++round) {
        coolDown();
        double const start = milliseconds();
        std::vector<std::string> const all(copies, input);
        for (std::string const& copy : all) {
            benchmark::DoNotOptimize(copy.find('\0'));
        }
        least = std::min(least, milliseconds() - start);
    }
    return least;
}

/// How much longer than twice the time that takes for twice the bytes, with as many copies as the case's memory
/// holds: what the caches cannot hold any more goes at the memory's speed, and that is nobody's growth.
double beyondTwice(Growth const& growth, std::size_t size, Line const& line) {
    auto const copies = static_cast<std::size_t>(
        std::max(1.0, std::round(line.mebibytes * 1048576.0 / static_cast<double>(line.bytes))));
    double const half = copyingMilliseconds(growth.make(size / 2), copies);
    return std::max(0.0, copyingMilliseconds(growth.make(size), copies) - 2 * half);
}

}  // namespace

std::string repeated(std::string const& piece, std::size_t bytes) {
    std::string text;
    text.reserve(bytes + piece.size());
    while (text.size() < bytes) text += piece;
    return text;
}

std::function<std::string(std::size_t)> repeated(std::string const& piece, std::string const& before,
                                                 std::string const& after) {
    return [=](std::size_t bytes) {
        std::string text = before;
        text.reserve(bytes + after.size() + piece.size());
        while (text.size() < bytes) text += piece;
        return text += after;
    };
}

int growthMain(int argc, char** argv, Growth const* cases, std::size_t count) {
    constexpr double bound = 2.3;
    // Large blocks come from the heap like small ones. Otherwise the sizes from which on each of them is
    // mapped, and its pages are cleared, would cost a step that is nobody's growth.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
    ::mallopt(M_TOP_PAD, 64 << 20);
    std::string_view filter;
    char const* jsonName = nullptr;
    for (int at = 1; at < argc; ++at) {
        if (std::string_view(argv[at]) == "--json" && at + 1 < argc) {
            jsonName = argv[++at];
        } else {
            filter = argv[at];
        }
    }
    std::string json;
    int status = 0;
    for (std::size_t at = 0; at < count; ++at) {
        auto const& growth = cases[at];
        if (growth.name.find(filter) == std::string::npos) {
            continue;
        }
        std::printf("%s\n", growth.name.c_str());
        double worst = 0;
        Line before{};
        for (auto size = growth.from; size <= growth.to; size *= 2) {
            auto line = measure(growth, size);
            double times = before.bytes != 0 ? line.milliseconds / before.milliseconds : 0;
            if (times > bound) {  // a disturbed machine is asked twice
                auto const again = measure(growth, size);
                line.milliseconds = std::min(line.milliseconds, again.milliseconds);
                times = line.milliseconds / before.milliseconds;
            }
            double const beyond = times > bound ? beyondTwice(growth, size, line) : 0;
            std::printf("  %9zu bytes %10.3f ms %9.2f MiB", line.bytes, line.milliseconds, line.mebibytes);
            if (before.bytes != 0) {
                std::printf("   time x%.2f", times);
                if (beyond > 0) {
                    times = (line.milliseconds - beyond) / before.milliseconds;
                    std::printf(" (x%.2f but for the %.3f ms that plain copies take beyond twice)", times,
                                beyond);
                }
                if (before.mebibytes > 0) {
                    std::printf("  memory x%.2f", line.mebibytes / before.mebibytes);
                }
                worst = std::max(worst, times);
            }
            std::printf("\n");
            std::fflush(stdout);
            char row[256];
            std::snprintf(
                row, sizeof row, "%s\n  {\"name\": \"%s\", \"bytes\": %zu, \"ms\": %.4f, \"MiB\": %.3f}",
                json.empty() ? "" : ",", growth.name.c_str(), line.bytes, line.milliseconds, line.mebibytes);
            json += row;
            before = line;
        }
        if (worst > bound) {
            std::printf("  grows by %.2f per doubling: not linear\n", worst);
            status = 1;
        }
    }
    if (jsonName != nullptr) {
        std::FILE* const file = std::fopen(jsonName, "w");
        if (file == nullptr) {
            std::perror(jsonName);
            return 2;
        }
        std::fprintf(file, "[%s\n]\n", json.c_str());
        std::fclose(file);
    }
    return status;
}

}  // namespace Quillmark::bench
