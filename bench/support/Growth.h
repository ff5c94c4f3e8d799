#pragma once
// Cost by size: a parser's worst input is doubled from 1 to 16 MiB, and time and memory are printed per
// doubling. What grows by more than 2.3 in time is not linear any more, and the program says so and fails. Where
// a doubling takes longer than that, plain copies of as much memory are timed as well: what they take beyond
// twice the time, as they outgrow the caches, is printed and does not count.
//
// A turn of a small size reads so many texts that it takes as long as one of the largest, and all sizes take
// turns; the shortest turn of each counts.

#include <cstddef>
#include <functional>
#include <string>

namespace Quillmark::bench {

struct Growth {
    std::string name;                              ///< "lexer: nested comments"
    std::function<std::string(std::size_t)> make;  ///< the input of (about) so many bytes
    std::function<void(std::string const&)> run;   ///< what is timed
    std::size_t from = std::size_t{1} << 20;       ///< bytes of the smallest input
    std::size_t to = std::size_t{16} << 20;        ///< bytes of the largest
};

/// The piece over and over: @p bytes of it, and what completes the last one.
std::string repeated(std::string const& piece, std::size_t bytes);
/// For Growth::make: the piece over and over, between two ends.
std::function<std::string(std::size_t)> repeated(std::string const& piece, std::string const& before = {},
                                                 std::string const& after = {});

/// Runs all @p count of them: a line per size with milliseconds (best of several turns), MiB at the peak of the
/// heap beyond the input, and both ratios to the line before. Gives the exit code of main.
/// The first argument, if any, is a part of the name: only those run. With "--json FILE" the figures are
/// written there as well.
int growthMain(int argc, char** argv, Growth const* cases, std::size_t count);

template <std::size_t Count>
int growthMain(int argc, char** argv, Growth const (&cases)[Count]) {
    return growthMain(argc, argv, cases, Count);
}

}  // namespace Quillmark::bench
