#pragma once
// From the paths on the command line, and in lists of paths, to the files that hold messages.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace QuillmarkTool {

/// One file to read, or what stands in the way of reading it.
struct Source {
    std::string path;  ///< as it was given, or below the directory that was given; "-" is standard input
    std::uint64_t bytes = 0;  ///< its size, 0 when not known
    std::string error;        ///< not empty: there is nothing to read, and why
};

/// One of several equal heaps that a corpus is divided into.
///
/// A path belongs to one of them by itself, wherever and in whatever order it is found, so that new mail
/// moves no other: by the first eight bytes of its MD5 digest, as a number, the first byte counting most.
struct Shard {
    std::uint64_t number = 1;  ///< from 1
    std::uint64_t count = 1;

    bool holds(std::string_view path) const;
    /// Reads "K/N". @return whether it is that, with K from 1 to N
    bool read(std::string const& text);
};

struct SourceOptions {
    std::vector<std::string> paths;  ///< "-" is standard input
    std::string list;                ///< a file with more paths; "-" is standard input, empty none
    bool nulSeparated = false;       ///< the paths in the list end in NUL, not in a line end
    Shard shard;
    std::string swapTemplate;  ///< name template of the files in which large directories are sorted
};

/// Who takes the sources, one after the other.
class SourceSink {
public:
    virtual ~SourceSink() = default;
    /// @return false when no more are wanted
    virtual bool take(Source source) = 0;
    /// There are no more for the moment: the list comes from somebody who has not gone on writing it.
    virtual void pause() {}
};

/// The list of paths cannot be read. what() says why.
struct UnreadableList {
    std::string reason;
};

/// Finds what there is to read and hands it on as it finds it, so that memory stays flat however much that is:
/// first the paths, then those in the list.
///
/// Directories and Maildirs are opened up, each in the order of its names, so that the order depends on the
/// names alone. A file that was named is always read. Below a directory only what looks like mail is: a name in
/// .eml or .mbox, a file that begins as an mbox or a header does, and everything in the "cur" and "new" of a
/// Maildir. Names that begin with a dot are passed over, except for the folders of a Maildir. Links to
/// directories are not followed.
///
/// What cannot be looked at, or not far enough to tell whether it is mail, is handed on with its error. Only what
/// vanishes from a directory while that is read is left out.
///
/// @return how many files below directories were passed over, since they do not look like mail. Throws
///   UnreadableList.
std::size_t findSources(SourceOptions const& options, SourceSink& sink);

}  // namespace QuillmarkTool
