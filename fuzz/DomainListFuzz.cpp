// The files of top-level domains.

#include <set>

#include "fuzz/support/Fuzz.h"
#include "include2/TopLevelDomain"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

constexpr std::size_t longestLine = 127;

/// The names of a file: line by line, up to the first line that is too long.
std::set<std::string> namesIn(std::string const& file) {
    std::set<std::string> names;
    for (std::size_t begin = 0; begin < file.size();) {
        std::size_t const end = std::min(file.find('\n', begin), file.size());
        if (end - begin > longestLine) break;
        names.insert(file.substr(begin, end - begin));
        begin = end + 1;
    }
    return names;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    // So that lines run over the end of what is read at once.
    std::string const filler(in.number(0, 3) * 1360, 'x');
    std::string file;
    for (std::size_t i = 0; i < filler.size(); i += 68) file += filler.substr(i, 67) + "\n";
    file += in.rest();

    MemoryFile const stored(file);
    Handle<DomainNameGenericCodeContainer> const list(new DomainNameGenericCodeContainer(stored.name()),
                                                      false);
    std::set<std::string> const names = namesIn(file);
    for (std::size_t begin = 0; begin <= file.size();) {
        std::size_t const end = std::min(file.find('\n', begin), file.size());
        std::string const line = file.substr(begin, end - begin);
        for (std::string const& name : {line, line + "x", line.substr(0, line.size() / 2), "." + line}) {
            claimSame("whether a name is in the list: " + shown(name), list->find(name),
                      names.count(name) != 0);
            claimSame("the same for a piece of a text", list->contains(name), list->find(name));
        }
        begin = end + 1;
    }
    claimSame("the empty name is in the list", list->find(""), names.count("") != 0);
    return 0;
}
