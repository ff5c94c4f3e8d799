// Links in free text.

#include <set>

#include "fuzz/support/Fuzz.h"
#include "include2/UriSniffer"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::list<std::string> linksIn(std::string const& text, bool liberal) {
    UriContainer found;
    UriSniffer::search(found, text, 0, liberal);
    std::list<std::string> links;
    for (Uri const& uri : found.hrefs(0)) links.push_back(uri.comparisonString());
    claimSame("the size of a container is that of its list", found.size(), links.size());
    return links;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();
    UriSniffer::Config::instance(UriSniffer::LevelStrict);

    std::list<std::string> const liberal = linksIn(text, true);
    std::list<std::string> const strict = linksIn(text, false);
    std::set<std::string> const all(liberal.begin(), liberal.end());
    claimSame("each link is there once", all.size(), liberal.size());
    for (std::string const& link : strict)
        claim(all.contains(link), "a liberal search finds what a strict one finds");

    UriContainer inBuffer;
    UriSniffer::search(inBuffer, Buffer(text.data(), static_cast<uint_t>(text.size()), true), true);
    claimSame("the links in a buffer", inBuffer.size(), liberal.size());
    for (Uri const& uri : inBuffer.hrefs(0)) {
        claim(!uri.host().isNull(), "a link has a host");
        claim(all.contains(uri.comparisonString()), "a buffer holds the links of its text");
    }

    // Again behind a line of its own: the same links, each still once.
    UriContainer twice;
    UriSniffer::search(twice, text + "\n" + text, 0, true);
    claimSame("the links of a text that comes twice", twice.size(), liberal.size());
    UriContainer half;
    if (text.size() > 1) {
        UriSniffer::search(half, text, text.size() / 2, true);
        claimSame("the links of the first half", half.size(),
                  linksIn(text.substr(0, text.size() / 2), true).size());
    }
    return 0;
}
