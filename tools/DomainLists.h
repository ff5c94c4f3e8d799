#pragma once
// The three list files that HostName splits names with: made from the public suffix list, and shown to
// the library.

#include <cstddef>
#include <iosfwd>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace QuillmarkTool {

/// What the three files hold, and what they cannot hold.
struct DomainLists {
    std::set<std::string> gtld;    ///< suffixes of one label in ASCII, those of countries among them
    std::set<std::string> cctld;   ///< suffixes of two labels
    std::set<std::string> idntld;  ///< suffixes of one label that are internationalised, as "xn--..."

    // The library looks at the last two labels of a name and knows no patterns.
    std::size_t deeper = 0;         ///< rules of three labels and more
    std::size_t wildcards = 0;      ///< rules such as "*.ck"
    std::size_t exceptions = 0;     ///< rules such as "!www.ck"
    std::size_t unconvertible = 0;  ///< rules whose name has no ASCII form in RFC 3490
};

/// The source cannot be made into list files. what() says why, with the line.
struct UnusableList : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads a public suffix list: one rule a line up to the first blank, "//" comments, sections.
/// @param withPrivate  also take the section of suffixes that companies offer ("github.io" and its like)
/// Throws UnusableList, among others for a rule of 128 bytes or more, which no list file may have.
DomainLists readPublicSuffixes(std::istream& in, bool withPrivate);

/// Writes "gtld", "cctld" and "idntld" into @p directory, which is made when missing. Each file is
/// replaced whole or not at all. Throws UnusableList.
void writeDomainLists(DomainLists const& lists, std::string const& directory);

/// Where `quillmark lists` writes and every other command looks when nobody says otherwise: the
/// directory "quillmark/lists" among the user's data.
std::string ownListsDirectory();

/// What came of useDomainLists().
struct ListsInUse {
    bool good = true;         ///< the library is pointed to them; otherwise it is where it was before
    std::string complaint{};  ///< what a person should know, or empty
    int error = 0;            ///< why a list cannot be read, as errno
};

/// Points the library to the lists in @p directory or, when that is empty, to the first of: the
/// appliance's own lists, ownListsDirectory(), the lists installed with this program.
/// That no lists are found anywhere is good, with a complaint: no link has a registered domain then.
/// The library goes on with what it has read until a new generation of its configuration begins.
ListsInUse useDomainLists(std::string const& directory);

/// Every file that useDomainLists() may choose: when none of them changes, neither does what it does.
std::vector<std::string> domainListFiles(std::string const& directory);

}  // namespace QuillmarkTool
