// A DNS response taken apart, as it came over the wire.
#include <include2/Resolver>

#include <algorithm>
#include <iostream>
#include <string>

using namespace Quillmark;
using namespace std::string_literals;

// The answer to "example.org MX": one question, two answers and an address. \300\14 points to the name that
// stands 12 bytes behind the beginning.
static std::string const wire =
    "\x1f\x90\x84\0\0\1\0\2\0\0\0\1"                    // header: the AA flag, four counts
    "\7example\3org\0\0\17\0\1"                         // example.org MX IN
    "\300\14\0\17\0\1\0\0\16\20\0\10\0\24\3mx2\300\14"  // 20 mx2.example.org
    "\300\14\0\17\0\1\0\0\16\20\0\10\0\12\3mx1\300\14"  // 10 mx1.example.org
    "\3mx1\300\14\0\1\0\1\0\0\0\74\0\4\300\0\2\31"s;    // mx1.example.org A 192.0.2.25

static ResolverMessage parsed(std::string const& bytes) {
    auto* const impl = new ResolverMessageImpl;
    ResolverMessage const message(impl, false);  // the owner from here on
    std::size_t const count = std::min<std::size_t>(bytes.size(), impl->size());
    std::copy_n(bytes.begin(), count, impl->data());
    impl->length(static_cast<int>(count));
    return message;
}

int main() {
    ResolverMessage const message = parsed(wire);
    std::cout << (message.isAuthouritativeAnswer() ? "The server is an authority for the name.\n" : "");
    for (auto const& query : message.queries())
        std::cout << query.name << " " << Resolver::recordTypeName(query.dnsType) << "?\n";
    std::cout << "Where its mail goes, the best exchange first:\n";
    for (auto const& record : message.mxRecords())
        std::cout << "  " << record.mxRank << " " << record.value << "\n";
    for (auto const& record : message.additionalRecords())
        std::cout << record.name << " is " << record.value << " for " << record.ttl << " seconds\n";

    std::cout << std::endl;
    message.print(stdout);
}
