#pragma once
// What every comparison shares. A program registers its contestants path by path and says in the same
// breath who they are; the report pairs "path/quillmark" with every other "path/..." of the same run.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace Quillmark::bench {

/// Ends the program with exit code 1 and @p what unless @p same: a ratio between two who do not do the
/// same work says nothing. Called for every pair before anything is timed.
void agree(bool same, std::string_view what);

/// Registers one contestant: @p work is called once an iteration; what it gives is kept from the optimiser.
/// @param path   the work, as the table names it: "base64 encode, 76 columns, 64 KiB". No slash.
/// @param who    "quillmark", "plain" for our own plain twin, or the peer's name
/// @param bytes  handled by one call, for a column in bytes/s; 0 for none
/// @param items  handled by one call
template <typename Work>
void contestant(std::string const& path, std::string const& who, Work work, std::int64_t bytes = 0,
                std::int64_t items = 1) {
    benchmark::RegisterBenchmark((path + "/" + who).c_str(), [=](benchmark::State& state) mutable {
        for ([[maybe_unused]] auto _ : state) {
            if constexpr (std::is_void_v<decltype(work())>) {
                work();
                benchmark::ClobberMemory();
            } else {
                auto&& result = work();
                benchmark::DoNotOptimize(result);
            }
        }
        if (bytes != 0) {
            state.SetBytesProcessed(state.iterations() * bytes);
        }
        state.SetItemsProcessed(state.iterations() * items);
    });
}

/// Letters, numbers and choices that are the same in every run (a linear congruential generator).
class Random {
public:
    explicit Random(std::uint64_t seed) noexcept : m_state(seed) {}
    /// A number below @p limit, which is not 0.
    std::uint64_t below(std::uint64_t limit) noexcept {
        m_state = m_state * 6364136223846793005u + 1442695040888963407u;
        return (m_state >> 33) % limit;
    }
    /// @p size bytes of any value.
    std::string bytes(std::size_t size);

private:
    std::uint64_t m_state;
};

}  // namespace Quillmark::bench
