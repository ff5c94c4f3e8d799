#include "bench/support/Growth.h"

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
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

constexpr double bound = 2.3;  // times as long, for twice the bytes

struct Line {
    std::size_t bytes = 0;
    double milliseconds = 0;
    double mebibytes = 0;
    double beyondTwice = 0;  ///< milliseconds that are the memory's

    double timesOf(Line const& half) const { return (milliseconds - beyondTwice) / half.milliseconds; }
};

/// What this process has computed so far: what others do on the machine does not count.
double milliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

/// Drives everything else out of the caches. It only reads: what it wrote would have to be written back while
/// the clock runs.
void coolDown() {
    static std::vector<unsigned char> const other(std::size_t{64} << 20, 1);
    unsigned int sum = 0;
    for (std::size_t at = 0; at < other.size(); at += 64) sum += other[at];
    benchmark::DoNotOptimize(sum);
}

/// One size of a case. A turn reads several texts of it, one after the other, so that it takes as long as a turn
/// of the largest size: in turns that are over at once, a small size would find the quiet moments of the machine
/// that a large one never finds.
class Size {
public:
    Size(Growth const& growth, std::size_t bytes)
        : m_run(growth.run), m_smallText(growth.make(256)), m_texts(1, growth.make(bytes)) {
        m_line.bytes = m_texts.front().size();
        m_line.milliseconds = time(m_texts.front());  // its memory is there from now on
    }

    /// @param total  of the bytes that a turn reads, unless it takes longer than a turn has to
    void copyTexts(std::size_t total) {
        constexpr double longEnough = 40;  // milliseconds
        double const wanted = std::min(static_cast<double>(total) / static_cast<double>(m_line.bytes),
                                       longEnough / m_line.milliseconds);
        auto const count = static_cast<std::size_t>(std::max(1.0, std::round(wanted)));
        // A single text has been read just as it is in a turn.
        if (count > 1) m_line.milliseconds = 1e300;
        m_texts.resize(count, m_texts.front());
    }

    /// True when it was faster than ever, by more than a hundredth.
    bool takeTurn() {
        coolDown();
        m_run(m_smallText);  // the code is there in any case
        double took = 0;
        // Each text finds memory that the one before has not just used, as each part of a large one does.
        std::vector<std::unique_ptr<char[]>> used;
        auto const size = static_cast<std::size_t>(m_line.mebibytes * 1048576.0);
        for (std::string const& text : m_texts) {
            took += time(text);
            used.emplace_back(new char[size]);
        }
        took /= static_cast<double>(m_texts.size());
        bool const isFaster = took < 0.99 * m_line.milliseconds;
        m_line.milliseconds = std::min(m_line.milliseconds, took);
        return isFaster;
    }

    Line const& line() const { return m_line; }

private:
    double time(std::string const& text) {
        auto const before = live.load();
        peak = before;
        double const start = milliseconds();
        m_run(text);
        double const took = milliseconds() - start;
        m_line.mebibytes = std::max(m_line.mebibytes, static_cast<double>(peak - before) / 1048576.0);
        return took;
    }

    std::function<void(std::string const&)> const& m_run;
    std::string m_smallText;
    std::vector<std::string> m_texts;
    Line m_line;
};

/// The worst step of time from one size to its double.
double worstOf(std::vector<Line> const& lines) {
    double worst = 0;
    for (std::size_t at = 1; at < lines.size(); ++at)
        worst = std::max(worst, lines[at].timesOf(lines[at - 1]));
    return worst;
}

/// The least times of all sizes, smallest first. The sizes take turns in an order that is drawn by lot, so that a
/// disturbance meets each of them.
std::vector<Line> measureHere(Growth const& growth, unsigned int seed) {
    constexpr double patience = 1500;  // milliseconds
    double const start = milliseconds();
    std::vector<Size> sizes;
    for (auto bytes = growth.from; bytes <= growth.to; bytes *= 2) sizes.emplace_back(growth, bytes);
    for (Size& size : sizes) size.copyTexts(growth.to);

    std::mt19937 lot(seed);
    std::vector<std::size_t> order(sizes.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    // Until nothing has become faster for three rounds.
    int quiet = 0;
    for (int round = 0; round < 2 || (quiet < 3 && milliseconds() - start < patience); ++round) {
        std::shuffle(order.begin(), order.end(), lot);
        ++quiet;
        for (std::size_t const at : order)
            if (sizes[at].takeTurn()) quiet = 0;
    }
    std::vector<Line> lines;
    for (Size const& size : sizes) lines.push_back(size.line());
    return lines;
}

/// The same in a process of its own, whose heap has no past.
std::vector<Line> measureApart(Growth const& growth, unsigned int seed) {
    std::array<int, 2> ends{};
    growth.run(
        growth.make(256));  // what a program makes once, and the memory below, is there for all processes
    coolDown();
    std::fflush(stdout);
    pid_t const child = ::pipe(ends.data()) == 0 ? ::fork() : -1;
    if (child == -1) {
        std::perror("no process");
        std::exit(2);
    }
    if (child == 0) {
        auto const lines = measureHere(growth, seed);
        auto const size = lines.size() * sizeof(Line);
        ::_exit(::write(ends[1], lines.data(), size) == static_cast<ssize_t>(size) ? 0 : 2);
    }
    ::close(ends[1]);
    std::vector<Line> lines;
    for (Line line; ::read(ends[0], &line, sizeof line) == sizeof line;) lines.push_back(line);
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (status != 0) {
        std::fprintf(stderr, "%s: ended with %d\n", growth.name.c_str(), status);
        std::exit(2);
    }
    return lines;
}

/// What looks bad is looked at again: in another process, the same bytes lie in other places of the machine's memory,
/// some of which get into each other's way in the caches.
std::vector<Line> measure(Growth const& growth) {
    auto lines = measureApart(growth, 1);
    for (unsigned int again = 2; again <= 4 && worstOf(lines) > bound; ++again) {
        auto const others = measureApart(growth, again);
        for (std::size_t at = 0; at < lines.size(); ++at)
            lines[at].milliseconds = std::min(lines[at].milliseconds, others[at].milliseconds);
    }
    return lines;
}

/// Takes note of how much longer than twice the time plain copies take for twice the bytes: with as many copies
/// of the text as the case's memory holds, each read once. What the caches cannot hold any more goes at the
/// memory's speed, and that is nobody's growth.
void lookBeyondTwice(Growth const& growth, std::vector<Line>& lines) {
    auto const copies = static_cast<std::size_t>(std::max(
        1.0, std::round(lines.back().mebibytes * 1048576.0 / static_cast<double>(lines.back().bytes))));
    Growth plain = growth;
    plain.run = [copies](std::string const& text) {
        std::vector<std::string> const all(copies, text);
        for (std::string const& copy : all) benchmark::DoNotOptimize(copy.find('\0'));
    };
    auto const copying = measure(plain);
    for (std::size_t at = 1; at < lines.size(); ++at)
        lines[at].beyondTwice = std::max(0.0, copying[at].milliseconds - 2 * copying[at - 1].milliseconds);
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
        auto lines = measure(growth);
        if (worstOf(lines) > bound) lookBeyondTwice(growth, lines);
        Line before;
        for (Line const& line : lines) {
            std::printf("  %9zu bytes %10.3f ms %9.2f MiB", line.bytes, line.milliseconds, line.mebibytes);
            if (before.bytes != 0) {
                std::printf("   time x%.2f", line.milliseconds / before.milliseconds);
                if (line.beyondTwice > 0)
                    std::printf(" (x%.2f but for the %.3f ms that plain copies take beyond twice)",
                                line.timesOf(before), line.beyondTwice);
                if (before.mebibytes > 0) std::printf("  memory x%.2f", line.mebibytes / before.mebibytes);
            }
            std::printf("\n");
            char row[256];
            std::snprintf(
                row, sizeof row,
                "%s\n  {\"name\": \"%s\", \"bytes\": %zu, \"ms\": %.4f, \"MiB\": %.3f, \"beyond\": %.4f}",
                json.empty() ? "" : ",", growth.name.c_str(), line.bytes, line.milliseconds, line.mebibytes,
                line.beyondTwice);
            json += row;
            before = line;
        }
        std::fflush(stdout);
        if (double const worst = worstOf(lines); worst > bound) {
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
