#include <cerrno>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "include2/Uri"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;

namespace {

struct Conversion {
    std::string from;
    std::string to;
};

TEST(UriTables, GiveTheValueOfEveryHexadecimalDigit) {
    for (int byte = 0; byte < 256; ++byte) {
        std::string const digits = "0123456789abcdef";
        std::size_t const value =
            digits.find(static_cast<char>(byte >= 'A' && byte <= 'F' ? byte + 32 : byte));
        EXPECT_EQ(UriImpl::s_HexValues[static_cast<std::size_t>(byte)],
                  value != std::string::npos ? static_cast<int>(value) : -1)
            << byte;
    }
}

TEST(UriTables, KeepPrintableAsciiAndDropTheRest) {
    for (std::size_t byte = 0; byte < 256; ++byte)
        EXPECT_EQ(UriImpl::s_table[byte], byte >= 0x20 && byte <= 0x7e ? byte : 0) << byte;
}

Conversion const escapes[] = {
    {"", ""},
    {"http://example.com/a b", "http://example.com/a b"},
    {"a\rb", "a\rb"},                                        // no LF: left alone
    {"htt\np://exa\r\nmple.com/\r", "http://example.com/"},  // with a LF every CR goes, too
    {"http://%77%77%77.example.com/a%20b", "http://www.example.com/a b"},
    {"http://%41host/", "http://Ahost/"},
    {"http://host/%41", "http://host/%41"},    // the first one is in the path
    {"http://host/\n%41", "http://host/%41"},  // though the line end goes
    {"/\n/host/%41", "//host/%41"},
    {"http:///%41", "http:///%41"},
    {"http://host?%41", "http://host?%41"},
    {"mailto:a?b=%41", "mailto:a?b=%41"},
    {"http://host#%41", "http://host#A"},
    {"%68ttp://host/", "http://host/"},
    {"a/b%41", "a/bA"},  // no "//", so no path
    {"http://h%6Fst%2Fx?y%3f", "http://host/x?y?"},
    {"http://%2577", "http://%77"},         // decoded once
    {"//%7e%20%7F%00%0a%80%ff.", "//~ ."},  // only printable ASCII
    {"//%4", "//"},
    {"//%", "//"},
    {"//%4zb", "//b"},
    {"//%zb", "//b"},
    {"//%%41", "//41"},
    {"//%4%41", "//41"},
    {"//%\r4\r1\r.", "//A."},  // a CR inside an escape
    {"//%\n41", "//A"},
    {"//%\xc3\xa9", "//\xa9"},
    {"//%4\xc3\xa9", "//\xa9"},
    {"//\xc3\xa9%41",
     "//\xc3\xa9"
     "A"},
};

TEST(UriCleanUp, DecodesEscapesInSchemeAndAuthority) {
    for (auto const& [from, to] : escapes) EXPECT_EQ(UriImpl::convertEscaped(from), to) << from;
}

Conversion const references[] = {
    {"", ""},
    {"a&b#c", "a&b#c"},
    {"&#104;&#116;", "ht"},
    {"&#104&#116", "ht"},
    {"x&#65;BC", "xABC"},
    {"&#65BC", "A"},  // hexadecimal digits are collected but not read
    {"&#65BC;D", "AD"},
    {"&#x68;", "x68;"},
    {"&#;", ""},
    {"&#", ""},
    {"a&#", "a"},
    {"&#0;", ""},
    {"&#300;", ""},
    {"&#255;", ""},
    {"&#254;", ""},
    {"&#31;&#32;&#126;&#127;", " ~"},
    {"&#00065;", "A"},
    {"&#18446744073709551681;", ""},
    {"&#65.", "A."},
    {"&#65\n.", "A."},  // what ends a reference is kept if it is printable
    {"&#65\xc3\xa9", "A\xa9"},
    {"&#65&b", "A&b"},
    {"&#&#65;", "A"},
    {"\xc3\xa9\n&#65;\xc3\xa9\n", "\xc3\xa9\nA\xc3\xa9\n"},  // nothing else changes
    {"&#38;#65;", "&#65;"},                                  // decoded once
};

TEST(UriCleanUp, DecodesCharacterReferences) {
    for (auto const& [from, to] : references) EXPECT_EQ(UriImpl::convertEncodedChars(from), to) << from;
}

TEST(UriCleanUp, ReadsHexadecimalDigitsOfAReferenceAsADecimalNumberForTheDaemons) {
    EXPECT_EQ(UriImpl::convertEncodedChars("&#104f;&#f104;"), "h");
}

TEST(UriCleanUp, SeesAReferenceWhereverItStands) {
    for (std::size_t length = 9; length < 80; ++length) {
        for (std::size_t at = 9; at < length; ++at) {
            std::string text = "http://a." + std::string(length - 9, 'b');
            EXPECT_EQ(Uri(text).asString(), text);
            std::string decoded = text;
            text.replace(at, 1, "&#99;");
            decoded[at] = 'c';
            EXPECT_EQ(Uri(text).asString(), decoded);
        }
    }
}

TEST(UriCleanUp, DecodesEscapesBeforeCharacterReferences) {
    EXPECT_EQ(Uri("http://%26#97;.example.com/").asString(), "http://a.example.com/");
    EXPECT_EQ(Uri("http://&#37;61.example.com/").asString(), "http://%61.example.com/");
}

TEST(Uri, IsCleanedUpWhenItIsMade) {
    EXPECT_EQ(Uri("http://www.exa\r\nmple.com/").asString(), "http://www.example.com/");
    EXPECT_EQ(Uri("http://w%77w.example.com/").asString(), "http://www.example.com/");
    EXPECT_EQ(Uri("http://&#119;ww.example.com/").asString(), "http://www.example.com/");
    EXPECT_EQ(Uri("http://www.example.com/\r").asString(), "http://www.example.com/\r");
}

TEST(UriCleanUp, FindsWhatItDecodesWhereverThatStands) {
    for (std::size_t more = 0; more <= 50; ++more) {
        std::string const link = "//a.example/" + std::string(more, 'x');
        for (std::size_t at = 0; at <= link.size(); ++at) {
            std::string const front = link.substr(0, at);
            std::string const back = link.substr(at);
            EXPECT_EQ(Uri(front + '\n' + back).asString(), link) << at;
            EXPECT_EQ(Uri("//" + front + "&#120;" + back).asString(), "//" + front + 'x' + back) << at;
            EXPECT_EQ(Uri(std::string(at, 'a') + "//%78" + std::string(more, 'b')).asString(),
                      std::string(at, 'a') + "//x" + std::string(more, 'b'));
        }
    }
}

TEST(Uri, TakesAsManyBytesAsItIsTold) {
    EXPECT_EQ(Uri("http://example.com/path", 20).asString(), "http://example.com/p");
    EXPECT_EQ(UriImpl("http://example.com/path", 19).asString(), "http://example.com/");
    EXPECT_EQ(Uri(std::string("http://example.com/\0x", 21)).path(), std::string("/\0x", 3));
}

TEST(Uri, TakesANullPointerWithoutLengthForTheEmptyText) {
    Uri const uri(nullptr, 0);
    EXPECT_FALSE(uri.isNull());
    EXPECT_EQ(failureOf([&] { uri.scheme(); }), "UriException( 5 ) , UriImpl");
}

TEST(Uri, RefusesANullPointerWithALength) {
    EXPECT_EQ(failureOf([] { Uri(nullptr, 1); }), "UriException( 2 ) , UriImpl");
}

struct Look {
    char const* accessor;
    void (*look)(Uri const& uri);
};

Look const looks[] = {
    {"asString", [](Uri const& uri) { uri.asString(); }},
    {"idn", [](Uri const& uri) { uri.idn(); }},
    {"scheme", [](Uri const& uri) { uri.scheme(); }},
    {"user", [](Uri const& uri) { uri.user(); }},
    {"password", [](Uri const& uri) { uri.password(); }},
    {"host", [](Uri const& uri) { uri.host(); }},
    {"hostname", [](Uri const& uri) { uri.hostname(); }},
    {"domain", [](Uri const& uri) { uri.domain(); }},
    {"hostnameIsAnIpAddress", [](Uri const& uri) { uri.hostnameIsAnIpAddress(); }},
    {"path", [](Uri const& uri) { uri.path(); }},
    {"query", [](Uri const& uri) { uri.query(); }},
    {"fragment", [](Uri const& uri) { uri.fragment(); }},
    {"pathQueryFragment", [](Uri const& uri) { uri.pathQueryFragment(); }},
    {"port", [](Uri const& uri) { uri.port(); }},
    {"headers", [](Uri const& uri) { uri.headers(); }},
    {"emailAddresses", [](Uri const& uri) { uri.emailAddresses(); }},
    {"comparisonString", [](Uri const& uri) { uri.comparisonString(); }},
    {"canonicalized", [](Uri const& uri) { uri.canonicalized(); }},
};

TEST(Uri, ThrowsForATextWithoutSlashesOnlyWhenItIsLookedAt) {
    Uri const uri("www.example.com");
    for (int round = 0; round < 2; ++round) {
        for (auto const& [accessor, look] : looks)
            EXPECT_EQ(failureOf([&, look = look] { look(uri); }),
                      "UriException( 5 ) , UriImpl \"www.example.com\"")
                << accessor;
    }
}

TEST(Uri, ThrowsFromEveryAccessorOfANullLink) {
    Uri const null;
    EXPECT_TRUE(null.isNull());
    for (auto const& [accessor, look] : looks)
        EXPECT_EQ(failureOf([&, look = look] { look(null); }), "( 1 ) , UriImpl") << accessor;
    EXPECT_EQ(failureOf([&] { *null; }), "( 1 ) , UriImpl");
}

TEST(Uri, SharesItsImplementationAmongCopies) {
    Uri const uri("http://example.com/");
    Uri copy(uri);
    Uri assigned;
    assigned = copy;
    EXPECT_EQ(&*assigned, &*uri);
    Uri const moved(std::move(copy));
    EXPECT_EQ(&*moved, &*uri);
    EXPECT_EQ((*uri).count(), 3u);
}

TEST(Uri, ComparesByTheComparisonString) {
    Uri const a("HTTP://Example.COM/Path?Q#F");
    Uri const b("http://example.com/Path?q#f");
    Uri const c("http://example.com/path?q#f");
    EXPECT_TRUE(a == b && !(a != b) && !(a < b) && !(b < a));
    EXPECT_TRUE(a != c && !(a == c) && a < c && !(c < a));
    EXPECT_TRUE(*a == *b && *a != *c && *a < *c);
    EXPECT_EQ(std::set<Uri>({a, b, c}).size(), 2u);
}

TEST(Uri, OrdersBytesAsUnsignedAndTheShorterFirst) {
    EXPECT_LT(Uri("http://example.com/a"), Uri("http://example.com/a\xc3\xa9"));
    EXPECT_LT(Uri("http://example.com/z"), Uri("http://example.com/\xc3\xa9"));
}

TEST(Uri, OrdersNullBeforeEverything) {
    Uri const null;
    Uri const uri("http://example.com/");
    EXPECT_TRUE(null < uri && !(uri < null) && !(null < Uri()));
    EXPECT_TRUE(null == Uri() && !(null != Uri()));
    EXPECT_TRUE(null != uri && uri != null && !(null == uri) && !(uri == null));
}

TEST(Uri, ThrowsWhenALinkThatCannotBeParsedIsCompared) {
    Uri const bad("nothing");
    Uri const good("http://example.com/");
    EXPECT_EQ(failureOf([&] { static_cast<void>(bad == good); }), "UriException( 5 ) , UriImpl \"nothing\"");
    EXPECT_EQ(failureOf([&] { static_cast<void>(good < bad); }), "UriException( 5 ) , UriImpl \"nothing\"");
    EXPECT_TRUE(Uri() < bad && bad != Uri());
}

// Any accessor prepares a link for other threads: the thread sanitizer sees that none of them writes.
TEST(Uri, WritesNothingOnASecondLook) {
    Uri const uris[] = {Uri("http://u:p@b\xc3\xbc"
                            "cher.example:80/p?q#f"),
                        Uri("mailto:a@b.example?cc=c@d.example")};
    for (Uri const& uri : uris) uri.port();
    auto const lookAtAll = [&] {
        for (Uri const& uri : uris) {
            std::string all = uri.asString() + uri.idn() + uri.scheme() + uri.user() + uri.password() +
                              uri.hostname() + uri.domain() + uri.host().host() + uri.path() + uri.query() +
                              uri.fragment() + uri.pathQueryFragment() + uri.canonicalized();
            for (EmailAddress const& address : uri.emailAddresses())
                all += address.address() + address.asString();
            for (TypeAndValue const& header : uri.headers()) all += header.type() + header.value();
            EXPECT_FALSE(all.empty());
            EXPECT_FALSE(uri.hostnameIsAnIpAddress());
            EXPECT_EQ(uri, Uri(uri));
        }
    };
    std::thread first(lookAtAll);
    std::thread second(lookAtAll);
    first.join();
    second.join();
}

std::string everythingOf(Uri const& uri) {
    std::string all = uri.asString() + '|' + uri.idn() + '|' + uri.scheme() + '|' + uri.user() + '|' +
                      uri.password() + '|' + (uri.host().isNull() ? "null" : uri.hostname()) + '|' +
                      std::to_string(uri.port()) + '|' + uri.path() + '|' + uri.query() + '|' +
                      uri.fragment() + '|' + uri.pathQueryFragment() + '|' + uri.comparisonString();
    for (EmailAddress const& address : uri.emailAddresses()) all += '|' + address.address();
    for (TypeAndValue const& header : uri.headers()) all += '|' + header.type() + '=' + header.value();
    return all;
}

TEST(Uri, HasNothingOfTheLinksBeforeIt) {
    std::string const texts[] = {
        "HTTP://u:p@Mail.Example.com:80/Path?Query#Fragment",
        "http://b\xc3\xbc"
        "cher.example.com/p?q#f",
        "mailto:a@b.example?cc=c@d.example",
        "http://192.0.2.1/",
        "http://www.example.com/" + std::string(2000, 'p'),
    };
    Conversion const rows[] = {
        {"http://", "http://||http:|||null|0|||||http://"},
        {"http://-", "http://-||http:|||null|0|||||http://"},
        {"http://mail.example.org",
         "http://mail.example.org||http:|||mail.example.org|0|||||http://mail.example.org"},
        {"mailto:?a=b", "mailto:?a=b||mailto:|||null|0|||||mailto:?a=b|a=b"},
        {"mailto:nobody", "mailto:nobody||mailto:|||null|0|||||mailto:"},
    };
    for (std::string const& before : texts)
        for (auto const& [text, all] : rows) {
            EXPECT_NE(everythingOf(Uri(before)), "");
            EXPECT_EQ(failureOf([] { Uri("nothing").path(); }), "UriException( 5 ) , UriImpl \"nothing\"");
            EXPECT_EQ(everythingOf(Uri(text)), all) << before;
        }
}

TEST(Uri, LeavesAHostToWhoeverHoldsIt) {
    HostName const kept = Uri("http://www.example.com/").host();
    EXPECT_EQ(Uri("http://192.0.2.1/").hostname(), "192.0.2.1");
    EXPECT_EQ(Uri("http://mail.example.org/").hostname(), "mail.example.org");
    EXPECT_EQ(kept.asString() + '|' + kept.host() + '|' + kept.domain(), "www.example.com|www|example.com");
}

TEST(Uri, IsReadAloneAmongOthers) {
    for (int round = 0; round < 2; ++round) {
        std::vector<Uri> uris;
        for (int i = 0; i < 100; ++i) {
            uris.emplace_back("http://www" + std::to_string(i) + ".example.com/?" + std::to_string(i));
            EXPECT_FALSE(uris.back().host().isNull());
        }
        for (int i = 0; i < 100; ++i) {
            Uri const& uri = uris[static_cast<std::size_t>(i)];
            EXPECT_EQ(uri.hostname() + uri.query(),
                      "www" + std::to_string(i) + ".example.com" + std::to_string(i));
        }
    }
}

TEST(Uri, LeavesErrnoAlone) {
    errno = EINTR;
    EXPECT_EQ(Uri("http://example.com:99999999999999999999/").port(), -1);
    EXPECT_EQ(errno, EINTR);
}

}  // namespace
