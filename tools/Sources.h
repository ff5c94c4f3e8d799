#pragma once
// From the paths on the command line to the files that hold messages.

#include <cstdint>
#include <string>
#include <vector>

namespace QuillmarkTool {

/// One file to read, or what stands in the way of reading it.
struct Source {
    std::string path;  ///< as it was given, or below the directory that was given; "-" is standard input
    std::uint64_t bytes = 0;  ///< its size, for the line of progress
    std::string error;        ///< not empty: there is nothing to read, and why
};

struct SourceList {
    std::vector<Source> sources;
    std::size_t skipped = 0;  ///< files found below directories that do not look like mail
};

/// What there is to read, directories and Maildirs opened up, each sorted by name, so that the order
/// depends on the names alone. A file that was named is always read. Below a directory only what looks
/// like mail is: a name in .eml or .mbox, a file that begins as an mbox or a header does, and everything
/// in the "cur" and "new" of a Maildir. Names that begin with a dot are passed over, except for the
/// folders of a Maildir. Links to directories are not followed.
SourceList findSources(std::vector<std::string> const& paths);

}  // namespace QuillmarkTool
