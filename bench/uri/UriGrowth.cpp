// The worst of links and of text with links, doubled.

#include "bench/support/Growth.h"
#include "bench/uri/SuffixLists.h"
#include "include2/Exception"
#include "include2/HostName"
#include "include2/Uri"
#include "include2/UriSniffer"

namespace {

using namespace Quillmark;
using bench::repeated;

std::string distinctLinks(std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i)
        text += "http://www.example.com/" + std::to_string(i) + ' ';
    return text;
}

std::string distinctHosts(std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i) text += "host" + std::to_string(i) + ".example.com ";
    return text;
}

void parse(std::string const& text) {
    try {
        Uri(text).comparisonString();
    } catch (Exception const&) {
        // It was no link.
    }
}

void sniff(std::string const& text) {
    UriContainer found;
    UriSniffer::search(found, text, 0, true);
}

void name(std::string const& text) {
    HostName const host(text, true, true);
}

bench::Growth const cases[] = {
    {"URI: escapes in the host", repeated("%41", "http://", ".example.com/"), parse},
    {"URI: broken escapes", repeated("%", "http://", ".example.com/"), parse},
    {"URI: character references", repeated("&#65;", "http://", ".example.com/"), parse},
    {"URI: endless references", repeated("&#", "http://", ".example.com/"), parse},
    {"URI: digits of one reference", repeated("1", "http://&#"), parse},
    {"URI: line ends", repeated("\r\n", "http://www.example.com/"), parse},
    {"URI: dots behind the host", repeated(".", "http://example.com"), parse},
    {"URI: labels", repeated("a.", "http://", "example.com/"), parse},
    {"URI: slashes", repeated("/", "http:"), parse},
    {"URI: at signs", repeated("@", "http://", "example.com/"), parse},
    {"URI: colons", repeated(":", "http://", "example.com/"), parse},
    {"URI: brackets", repeated("[]", "http://", "example.com/"), parse},
    {"URI: question marks", repeated("?#", "http://example.com/"), parse},
    {"URI: digits of a port", repeated("1", "http://example.com:"), parse},
    {"URI: mailto of many addresses", repeated("a@b.example,", "mailto:"), parse},
    {"URI: mailto of many headers", repeated("cc=a@b.example&", "mailto:a@b.example?"), parse},
    {"URI: mailto of one header of addresses", repeated("a@b.example,", "mailto:a@b.example?cc="), parse},
    {"URI: mailto of blanks", repeated(" ", "mailto:a", "@b.example"), parse},
    {"sniffer: dots", repeated("."), sniff},
    {"sniffer: pairs with a dot", repeated("a."), sniff},
    {"sniffer: one run without a dot", repeated("a"), sniff},
    {"sniffer: short runs with a dot", repeated("a.b "), sniff},
    {"sniffer: opening brackets", repeated("["), sniff},
    {"sniffer: brackets and colons", repeated("[:]"), sniff},
    {"sniffer: doubled schemes", repeated("http://", {}, "www.example.com"), sniff},
    {"sniffer: schemes and question marks", repeated("http://?", {}, "www.example.com"), sniff},
    {"sniffer: scheme marks", repeated("://", "a.b"), sniff},
    {"sniffer: slashes", repeated("/", "www.example.com"), sniff},
    {"sniffer: mailto in one run", repeated("mailto:", "a@b.example/"), sniff},
    {"sniffer: almost mailto in one run", repeated("mailto", "a@b.example/"), sniff},
    {"sniffer: at signs", repeated("@", "a.b"), sniff},
    {"sniffer: href", repeated("href=", {}, "www.example.com"), sniff},
    {"sniffer: one link over and over", repeated("http://www.example.com/ "), sniff},
    {"sniffer: distinct links", distinctLinks, sniff},
    {"sniffer: distinct hosts", distinctHosts, sniff},
    {"sniffer: colons without a dot", repeated("http:/ "), sniff},
    {"sniffer: escapes in one host", repeated("%41.", "http://"), sniff},
    {"sniffer: internationalised hosts",
     repeated("http://b\xc3\xbc"
              "cher.example.com/ "),
     sniff},
    {"sniffer: combining marks", repeated("a\xcc\x81", "http://", ".example.com/ "), sniff},
    {"sniffer: broken UTF-8", repeated("a.b\xc3 "), sniff},
    {"host name: labels", repeated("a.", {}, "example.com"), name},
    {"host name: dots", repeated(".", "a", "com"), name},
    {"host name: one label", repeated("a", {}, ".com"), name},
    {"host name: combining marks in one label", repeated("a\xcc\x81", {}, ".com"), name},
    {"host name: combining marks in labels of their own", repeated("a\xcc\x81.", {}, "com"), name},
    {"host name: labels of a thousand combining marks",
     [](std::size_t bytes) {
         std::string label = "a";
         for (int i = 0; i < 500; ++i) label += i % 2 == 0 ? "\xcc\x81" : "\xcc\xa7";
         return repeated(label + '.', {}, "com")(bytes);
     },
     name},
    {"host name: ideographic full stops", repeated("\xe3\x80\x82", "a", "com"), name},
};

}  // namespace

int main(int argc, char** argv) {
    bench::usePublicSuffixes();
    return bench::growthMain(argc, argv, cases);
}
