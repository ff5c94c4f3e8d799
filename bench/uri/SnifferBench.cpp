// Links in message text: none at all, which most text is like, and mail as it comes.

#include <re2/re2.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "bench/support/Bench.h"
#include "bench/uri/SuffixLists.h"
#include "include2/UriSniffer"

namespace {

using namespace Quillmark;

// Schemes, www, addresses, bare domains.
RE2 const& pattern() {
    static RE2 const one(
        "(?i)(?:https?|ftp)://[^\\s\"<>\\\\^`{|}]+|mailto:[^\\s\"<>\\\\^`{|}]+|"
        "www\\.[^\\s\"<>\\\\^`{|}]+|"
        "[a-z0-9._%+'-]+@[a-z0-9-]+(?:\\.[a-z0-9-]+)+|"
        "[a-z0-9-]+(?:\\.[a-z0-9-]+)*\\.[a-z]{2,}(?:[/?#:][^\\s\"<>\\\\^`{|}]*)?");
    return one;
}

std::size_t findAll(std::string_view text) {
    re2::StringPiece rest(text.data(), text.size());
    re2::StringPiece match;
    std::size_t count = 0;
    while (pattern().Match(rest, 0, rest.size(), RE2::UNANCHORED, &match, 1)) {
        ++count;
        rest.remove_prefix(static_cast<std::size_t>(match.end() - rest.begin()));
    }
    return count;
}

std::set<std::string> distinct(std::string_view text) {
    re2::StringPiece rest(text.data(), text.size());
    re2::StringPiece match;
    std::set<std::string> found;
    while (pattern().Match(rest, 0, rest.size(), RE2::UNANCHORED, &match, 1)) {
        found.insert(std::string(match));
        rest.remove_prefix(static_cast<std::size_t>(match.end() - rest.begin()));
    }
    return found;
}

std::size_t sniff(std::string const& text) {
    UriContainer found;
    UriSniffer::search(found, text, 0, true);
    return found.size();
}

constexpr std::string_view words[] = {
    "the",  "report", "that",    "you",  "asked", "for",     "is",       "ready",   "and",  "can",
    "be",   "read",   "by",      "all",  "of",    "us",      "tomorrow", "morning", "at",   "nine",
    "with", "some",   "changes", "from", "last",  "meeting", "please",   "send",    "your", "comments",
};

std::string sentence(bench::Random& random) {
    std::string text;
    auto const length = 6 + random.below(14);
    for (std::size_t i = 0; i < length; ++i) {
        if (i != 0) text += random.below(9) == 0 ? ", " : " ";
        text += words[random.below(std::size(words))];
    }
    text.front() = static_cast<char>(text.front() - 'a' + 'A');
    return text + (random.below(12) == 0 ? "? " : ". ");
}

// Wrapped like plain text, so with a line feed now and then.
std::string wrapped(std::string text) {
    std::size_t column = 0;
    for (char& c : text) {
        if (c == '\n') column = 0;
        if (++column > 68 && c == ' ') c = '\n', column = 0;
    }
    return text;
}

std::string withoutLinks(std::size_t bytes) {
    bench::Random random(1);
    std::string text;
    while (text.size() < bytes) text += sentence(random);
    return wrapped(text.substr(0, bytes));
}

std::string link(bench::Random& random) {
    std::string const number = std::to_string(random.below(40));
    switch (random.below(6)) {
    case 0: return "http://www.example.com/news/" + number;
    case 1: return "https://click.mailer.example.net/ls/click?upn=u001&id=" + number;
    case 2: return "www.example.org/offers/" + number;
    case 3: return "https://shop.example.co.uk/item/" + number + "?ref=mail";
    case 4: return "user" + number + "@example.com";
    default: return "docs" + number + ".example.org";
    }
}

// A link in every third sentence or so, many of them more than once.
std::string mailText(std::size_t bytes) {
    bench::Random random(2);
    std::string text;
    while (text.size() < bytes) {
        text += sentence(random);
        if (random.below(3) == 0) text += "See " + link(random) + " for more. ";
    }
    return wrapped(text);
}

void compare(std::string const& path, std::string const& text) {
    bench::agree(sniff(text) == distinct(text).size(), path);
    auto const bytes = static_cast<std::int64_t>(text.size());
    bench::contestant(
        path, "quillmark", [=] { return sniff(text); }, bytes);
    bench::contestant(
        path, "RE2", [=] { return findAll(text); }, bytes);
}

}  // namespace

int main(int argc, char** argv) {
    bench::usePublicSuffixes();
    compare("sniff text without links, 64 KiB", withoutLinks(std::size_t{64} << 10));
    compare("sniff mail text, 64 KiB, links built and each kept once", mailText(std::size_t{64} << 10));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
