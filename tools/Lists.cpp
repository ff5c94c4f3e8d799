// quillmark lists: makes the domain lists.

#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/Commands.h"
#include "tools/DomainLists.h"

namespace QuillmarkTool {
namespace {

std::string row(std::string const& name, std::size_t count, std::string const& what) {
    return "  " + padded(name, 8) +
           std::string(6 - std::min<std::size_t>(6, std::to_string(count).size()), ' ') +
           std::to_string(count) + "  " + what;
}

}  // namespace

int lists(ListsOptions const& options, Output& output) {
    std::string const directory = options.out.empty() ? ownListsDirectory() : options.out;
    if (directory.empty()) {
        complain("there is no home directory to write to; name one with --out");
        return Failed;
    }
    std::ifstream in(options.source, std::ios::binary);
    if (!in) {
        complain(options.source + ": " + std::strerror(errno));
        return Failed;
    }
    DomainLists made;
    try {
        made = readPublicSuffixes(in, options.withPrivate);
    } catch (UnusableList const& e) {
        complain(options.source + ": " + e.what());
        return Failed;
    }
    try {
        writeDomainLists(made, directory);
    } catch (UnusableList const& e) {  // names the file itself
        complain(e.what());
        return Failed;
    }
    output.line(harmless(directory) + ":");
    output.line(row("gtld", made.gtld.size(), "suffixes of one label"));
    output.line(row("cctld", made.cctld.size(), "suffixes of two labels"));
    output.line(row("idntld", made.idntld.size(), "internationalised suffixes of one label"));
    std::size_t const left = made.deeper + made.wildcards + made.exceptions + made.unconvertible;
    if (left != 0) {
        output.line("Not expressible in these lists: " + std::to_string(made.deeper) +
                    " of three labels and more, " + counted(made.wildcards, "wildcard", "wildcards") + ", " +
                    counted(made.exceptions, "exception", "exceptions") + ", " +
                    std::to_string(made.unconvertible) + " without an ASCII form.");
    }
    return Fine;
}

}  // namespace QuillmarkTool
