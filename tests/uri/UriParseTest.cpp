#include <algorithm>
#include <ctime>
#include <string>
#include <utility>

#include "include2/Uri"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;
using QuillmarkTest::onSmallStack;

namespace {

std::string hostOf(Uri const& uri) {
    return uri.host().isNull() ? "(null)" : uri.hostname();
}

// scheme user password host port path query fragment, as far as they are there.
std::string described(Uri const& uri) {
    std::string text = uri.scheme();
    if (!uri.user().empty()) text += " user=" + uri.user();
    if (!uri.password().empty()) text += " password=" + uri.password();
    text += " host=" + hostOf(uri);
    if (uri.port() != 0) text += " port=" + std::to_string(uri.port());
    if (!uri.path().empty()) text += " path=" + uri.path();
    if (!uri.query().empty()) text += " query=" + uri.query();
    if (!uri.fragment().empty()) text += " fragment=" + uri.fragment();
    return text;
}

struct Row {
    std::string uri;
    std::string parts;
};

Row const links[] = {
    {"HTTP://User:Pw@Example.COM:8080/Path?Q=1#Frag",
     "http: user=User password=Pw host=example.com port=8080 path=/Path query=q=1 fragment=frag"},
    {"http://example.com", "http: host=example.com"},
    {"http://", "http: host=(null)"},
    {"//", " host=(null)"},
    {"//example.com/x", " host=example.com path=/x"},
    {"odd text before//example.com/x", "odd text before host=example.com path=/x"},
    {"http:///example.com/", "http: host=(null) path=/example.com/"},
    {"ftp://a//b", "ftp: host=(null) path=//b"},

    // Where the authority ends, and what follows it.
    {"http://example.com#F", "http: host=example.com fragment=f"},
    {"http://example.com?Q", "http: host=example.com query=q"},
    {"http://example.com?Q#F?G", "http: host=example.com query=q fragment=f?g"},
    {"http://example.com/P?Q?R#F#G", "http: host=example.com path=/P query=q?r fragment=f#g"},
    {"http://example.com/P#F#G", "http: host=example.com path=/P fragment=f#g"},
    {"http://example.com/a#B?C", "http: host=example.com path=/a#B query=c"},
    {"http://example.com/a#b?c#d", "http: host=example.com path=/a#b query=c fragment=d"},
    {"http://example.com/?", "http: host=example.com path=/"},
    {"http://example.com/#", "http: host=example.com path=/"},

    // User information.
    {"http://u@example.com/", "http: user=u host=example.com path=/"},
    {"http://u:@example.com/", "http: user=u host=example.com path=/"},
    {"http://:pw@example.com/", "http: password=pw host=example.com path=/"},
    {"http://u:p:q@example.com/", "http: user=u password=p:q host=example.com path=/"},
    {"http://a@b@example.com/", "http: user=a@b host=example.com path=/"},
    {"http://a:b@c@example.com/", "http: user=a password=b@c host=example.com path=/"},
    {"http://@example.com/", "http: host=example.com path=/"},
    {"http://example.com/u@v", "http: host=example.com path=/u@v"},
    {"http://u@v:1@example.com:2/", "http: user=u@v password=1 host=example.com port=2 path=/"},

    // Ports; with a port almost any host is taken.
    {"http://example.com:/", "http: host=example.com path=/"},
    {"http://example.com:80", "http: host=example.com port=80"},
    {"http://example.com:0080x/", "http: host=example.com port=80 path=/"},
    {"http://example.com:x80/", "http: host=example.com path=/"},
    {"http://example.com:-1/", "http: host=example.com port=-1 path=/"},
    {"http://example.com:1:2/", "http: host=example.com port=1 path=/"},
    {"http://example.com:4294967297/", "http: host=example.com port=1 path=/"},
    {"http://example.com:99999999999999999999/", "http: host=example.com port=-1 path=/"},
    {"http://exa mple.COM:80/", "http: host=exa mple.com port=80 path=/"},
    {"http://exa mple.com/", "http: host=(null) path=/"},
    {"http://:80/", "http: host=(null) path=/"},
    {"http://nowhere:80/", "http: host=(null) path=/"},
    {"http://example.com/a:80", "http: host=example.com path=/a:80"},

    // Brackets.
    {"http://u@[2001:db8::1]:80/", "http: user=u host=2001:db8::1 port=80 path=/"},
    {"http://u:p@[2001:db8::1]:80/", "http: user=u password=p host=2001:db8::1 port=80 path=/"},
    {"http://[2001:db8::1]/", "http: host=2001:db8::1 path=/"},
    {"http://[::1]", "http: host=::1"},
    {"http://[2001:db8::]/",
     "http: host=2001:db8:: path=/"},  // the colons at the end are no end of a sentence
    {"http://u@[2001:db8::]:80/", "http: user=u host=2001:db8:: port=80 path=/"},
    {"http://u@[2001:db8::1]/", "http: user=u host=(null) path=/"},  // strict, as nothing like a port follows
    {"http://[192.0.2.1]/", "http: host=192.0.2.1 path=/"},
    {"http://[192.0.2.1]:80/", "http: host=192.0.2.1 port=80 path=/"},
    {"http://[example.com]x@y/", "http: host=example.com path=/"},  // an "@" behind the bracket is nothing
    {"http://u@v@[example.com]w@:8/", "http: user=u@v host=example.com port=8 path=/"},
    {"http://u@[example.com/", "http: user=u host=(null) path=/"},
    {"http://[example.com:80/]", "http: host=[example.com port=80 path=/]"},
    {"http://[]/", "http: host=(null) path=/"},
    {"http://]example.com[/", "http: host=(null) path=/"},
    {"http://[example.com]x]/", "http: host=example.com path=/"},  // the first "]" closes

    // What the text around a host left at its end.
    {"http://example.com.../x", "http: host=example.com path=/x"},
    {"http://example.com.", "http: host=example.com"},
    {"http://example.com');:80/", "http: host=example.com port=80 path=/"},
    {"http://example.com')/", "http: host=example.com path=/"},
    {"http://example.com-_/", "http: host=example.com path=/"},
    {"http://u@example.com,:80", "http: user=u host=example.com port=80"},
    {"http://example.com.:80", "http: host=example.com port=80"},
    {"http://.../", "http: host=(null) path=/"},

    // Addresses and registered domains.
    {"http://192.0.2.1/", "http: host=192.0.2.1 path=/"},
    {"http://0x7f.0.0.1/", "http: host=127.0.0.1 path=/"},
    {"http://localhost/", "http: host=(null) path=/"},
    {"http://a.b.nowhere/", "http: host=(null) path=/"},
    {"http://www.shop.co.uk/", "http: host=www.shop.co.uk path=/"},
};

TEST(UriParse, SplitsLinks) {
    for (auto const& [uri, parts] : links) EXPECT_EQ(described(Uri(uri)), parts) << uri;
}

TEST(UriParse, KeepsTheBracketedPortOddityForTheDaemons) {
    EXPECT_EQ(described(Uri("http://[2001:db8::1]:80/")), "http: host=2001:db8::1 path=/");
    EXPECT_EQ(described(Uri("http://[1:80::1]/")), "http: host=1:80::1 port=80 path=/");
}

TEST(UriParse, KeepsWhatFollowsTheAuthorityAsWritten) {
    EXPECT_EQ(Uri("http://example.com:80/Path?Query#Fragment").pathQueryFragment(), "/Path?Query#Fragment");
    EXPECT_EQ(Uri("http://example.com?Query").pathQueryFragment(), "?Query");
    EXPECT_EQ(Uri("http://example.com").pathQueryFragment(), "");
}

TEST(UriParse, GivesTheRegisteredDomain) {
    EXPECT_EQ(Uri("http://www.shop.co.uk/").domain(), "shop.co.uk");
    EXPECT_EQ(Uri("http://www.shop.example:80/").domain(), "shop.example");
}

TEST(UriParse, TellsAddressesFromNames) {
    EXPECT_TRUE(Uri("http://192.0.2.1/").hostnameIsAnIpAddress());
    EXPECT_TRUE(Uri("http://u@[::1]:80/").hostnameIsAnIpAddress());
    EXPECT_FALSE(Uri("http://example.com/").hostnameIsAnIpAddress());
}

TEST(UriParse, ThrowsAsHostNameDoesWhenThereIsNoHost) {
    Uri const uri("http://nowhere/");
    EXPECT_TRUE(uri.host().isNull());
    EXPECT_EQ(failureOf([&] { uri.hostname(); }), failureOf([] { HostName().asString(); }));
    EXPECT_EQ(failureOf([&] { uri.domain(); }), failureOf([] { HostName().domain(); }));
    EXPECT_EQ(failureOf([&] { uri.hostnameIsAnIpAddress(); }), failureOf([] { HostName().isIPAddress(); }));
}

Row const comparisons[] = {
    {"HTTP://User:Pw@Example.COM:8080/Path?Q=1#Frag", "http://User:Pw@example.com:8080/Path?q=1#frag"},
    {"HTTP://example.com/x", "http://example.com/x"},
    {"http://User@example.com", "http://User@example.com"},
    {"http://User:@example.com", "http://User@example.com"},
    {"http://:Pw@example.com", "http://:Pw@example.com"},
    {"http://example.com:80/", "http://example.com:80/"},  // written, so it stays
    {"http://example.com:/", "http://example.com/"},
    {"http://example.com:-1/", "http://example.com:-1/"},
    {"http://example.com/?#", "http://example.com/"},
    {"http://example.com/?", "http://example.com/"},
    {"http://example.com/#", "http://example.com/"},
    {"http://example.com/?q#", "http://example.com/?q"},
    {"http://example.com/a#B?C", "http://example.com/a#B?c"},
    {"http://example.com.../x", "http://example.com/x"},
    {"http://nowhere/X", "http:///X"},
    {"http://u@nowhere:80/X", "http://u@/X"},
    {"http://u@[2001:DB8:0::1]:80/", "http://u@2001:db8::1:80/"},
    {"//example.com", "//example.com"},
    {"http://B\xc3\xbc"
     "cher.example/Weg?A",
     "http://xn--bcher-kva.example/Weg?a"},
    {"mailto:A@B.example", "mailto:a@b.example"},
    {"mailto:a@b.example?Subject=Hi&X=", "mailto:a@b.example?Subject=Hi&X="},
    {"MAILTO:", "mailto:"},
};

TEST(UriParse, BuildsTheComparisonString) {
    for (auto const& [uri, comparison] : comparisons) {
        EXPECT_EQ(Uri(uri).comparisonString(), comparison) << uri;
        EXPECT_EQ(Uri(uri).canonicalized(), comparison) << uri;
    }
}

TEST(UriParse, LowersEveryLetterButThoseOfThePathAndTheUser) {
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        std::string written = "!://!@!.example/!?!#!";
        std::string comparison = "*://!@*.example/!?*#*";
        std::replace(written.begin(), written.end(), '!', letter);
        std::replace(comparison.begin(), comparison.end(), '!', letter);
        std::replace(comparison.begin(), comparison.end(), '*', static_cast<char>(letter + 32));
        EXPECT_EQ(Uri(written).canonicalized(), comparison);
    }
    EXPECT_EQ(Uri("http://a.example/?@[`{").query(), "@[`{");
}

TEST(UriParse, ShowsTheAsciiFormOfAnInternationalisedHost) {
    std::string const written =
        "HTTP://B\xc3\xbc"
        "cher.example:80/Weg?A";
    Uri const uri(written);
    EXPECT_EQ(uri.asString(), "http://xn--bcher-kva.example:80/Weg?a");
    EXPECT_EQ(uri.idn(), written);
    EXPECT_EQ(uri.hostname(), "xn--bcher-kva.example");
    EXPECT_EQ(uri, Uri("http://xn--bcher-kva.example:80/Weg?a"));
}

TEST(UriParse, ShowsAnyOtherTextAsWritten) {
    Uri const uri("HTTP://Example.com/?Q");
    EXPECT_EQ(uri.asString(), "HTTP://Example.com/?Q");
    EXPECT_EQ(uri.idn(), "");
}

TEST(UriParse, KeepsHighBytesAtTheEndOfAHost) {
    EXPECT_EQ(hostOf(Uri("http://example.\xd1\x80\xd1\x84/")), "example.xn--p1ai");
    EXPECT_EQ(hostOf(Uri("http://example.\xd1\x80\xd1\x84.../")), "example.xn--p1ai");
    EXPECT_EQ(hostOf(Uri("http://example.com\xc3\xa4./")), "(null)");
}

// user host | addresses | headers
std::string mailto(std::string const& text) {
    Uri const uri(text);
    std::string result = uri.user() + ' ' + hostOf(uri) + " |";
    for (EmailAddress const& address : uri.emailAddresses()) result += ' ' + address.address();
    result += " |";
    for (TypeAndValue const& header : uri.headers()) result += ' ' + header.type() + '=' + header.value();
    return result;
}

Row const mailtos[] = {
    {"mailto:a@b.example,c@d.example?subject=Hi&cc=e@f.example",
     "a b.example | a@b.example c@d.example e@f.example | subject=Hi cc=e@f.example"},
    {"mailto:", " (null) | |"},
    {"mailto:x", " (null) | |"},
    {"mailto:John@Example.com", "john example.com | john@example.com |"},
    {"mailto: \t\v\f\rJohn @ Example.com ", "john example.com | john@example.com |"},
    {"mailto:a@b.example, c@d.example ,e@f.example", "a b.example | a@b.example c@d.example e@f.example |"},
    {"mailto:a@b.example,", "a b.example | a@b.example |"},
    {"mailto:a@b.,c@d.example", "c d.example | c@d.example |"},
    {"mailto:,a@b.example", " (null) | |"},  // the comma begins a local part
    {"mailto:a,b@c.example", " (null) | |"},
    {"mailto:a@b@c.example", " (null) | |"},
    {"mailto:a?b@c.example", "a?b c.example | a?b@c.example |"},
    {"mailto:a?@b.example?subject=x", "a? b.example | a?@b.example | subject=x"},
    {"mailto:a,@b.example", " (null) | |"},
    {"mailto:@b.example", " (null) | |"},
    {"mailto: ?subject=x", " (null) | | subject=x"},
    {"mailto:a@b.nowhere", "a (null) | a@b.nowhere |"},
    {"mailto:a@[192.0.2.1]", "a (null) | a@[192.0.2.1] |"},
    {"mailto:a@b.example?", "a b.example | a@b.example |"},
    {"mailto:a@b.example?subject", "a b.example | a@b.example |"},
    {"mailto:a@b.example?subject=", "a b.example | a@b.example | subject="},
    {"mailto:a@b.example? Subject = Hi there & X=1=2?3,4 ",
     "a b.example | a@b.example | Subject=Hi there X=1=2?3,4"},
    {"mailto:a@b.example?x&y=1", "a b.example | a@b.example | x&y=1"},
    {"mailto:a@b.example?=1&=", "a b.example | a@b.example | =1 ="},
    {"mailto:?TO=Z@B.example,y@b.example&Cc=x@b.example&bcc=w@b.example",
     "y b.example | y@b.example z@b.example x@b.example |"
     " TO=Z@B.example,y@b.example Cc=x@b.example bcc=w@b.example"},
    {"mailto:?to=nobody@@&subject=x", " (null) | | to=nobody@@ subject=x"},
    {"mailto:?to=Name <a@b.example>", "a b.example | a@b.example | to=Name <a@b.example>"},
    {"mailto:?to=<>", " (null) |  | to=<>"},
    {"mailto:a@b.example&cc=c@d.example", " (null) | |"},
};

TEST(UriParse, ReadsAddressesAndHeadersOfMailtoLinks) {
    for (auto const& [uri, parts] : mailtos) EXPECT_EQ(mailto(uri), parts) << uri;
}

TEST(UriParse, GivesTheMailtoSchemeInLowerCaseAndNothingElse) {
    Uri const uri("MailTo:John@Example.com?subject=Hi");
    EXPECT_EQ(uri.scheme(), "mailto:");
    EXPECT_EQ(uri.asString(), "MailTo:John@Example.com?subject=Hi");
    EXPECT_EQ(uri.path() + uri.query() + uri.fragment() + uri.pathQueryFragment() + uri.password(), "");
    EXPECT_EQ(uri.port(), 0);
}

TEST(UriParse, JoinsTheAddressesOfAMailtoLinkForComparison) {
    EXPECT_EQ(Uri("mailto:a@b.example,c@d.example?subject=Hi&cc=e@f.example").comparisonString(),
              "mailto:a@b.example,c@d.example,e@f.example?subject=Hi&cc=e@f.example");
}

TEST(UriParse, TakesAMailtoLinkWithSlashesForOneWithAnAuthority) {
    Uri const uri("mailto://John@example.com/x");
    EXPECT_EQ(described(uri), "mailto: user=John host=example.com path=/x");
    EXPECT_TRUE(uri.emailAddresses().empty());
    EXPECT_EQ(uri.comparisonString(), "mailto:");
    EXPECT_EQ(described(Uri("mailto:a@b.example?body=See http://example.com/")),
              "mailto:a@b.example?body=see http: host=example.com path=/");
}

TEST(UriParse, ShowsTheAsciiFormOfAnInternationalisedMailHost) {
    Uri const uri(
        "mailto:a@b\xc3\xbc"
        "cher.example");
    EXPECT_EQ(uri.hostname(), "xn--bcher-kva.example");
    EXPECT_EQ(uri.idn(),
              "mailto:a@b\xc3\xbc"
              "cher.example");
    EXPECT_EQ(uri.asString(), uri.comparisonString());
}

Row const refusals[] = {
    {"", "UriException( 5 ) , UriImpl"},
    {"www.example.com", "UriException( 5 ) , UriImpl \"www.example.com\""},
    {"http:/example.com", "UriException( 5 ) , UriImpl \"http:/example.com\""},
    {"mailto", "UriException( 5 ) , UriImpl \"mailto\""},
    {"xmailto:a@b.example", "UriException( 5 ) , UriImpl \"xmailto:a@b.example\""},
    {"mail&#116;o", "UriException( 5 ) , UriImpl \"mailto\""},
};

TEST(UriParse, RefusesTextsWithoutSlashesThatAreNoMailtoLinks) {
    for (auto const& [uri, failure] : refusals)
        EXPECT_EQ(failureOf([&, &text = uri] { Uri(text).scheme(); }), failure) << uri;
}

std::string repeated(std::string const& text, std::size_t count) {
    std::string result;
    result.reserve(text.size() * count);
    while (count-- != 0) result += text;
    return result;
}

// Whatever is not linear in these takes minutes of the processor.
TEST(UriParse, TakesLinearTimeAndLittleStackForHostileTexts) {
    std::size_t const many = 200'000;
    std::string const texts[] = {
        repeated("http://", many),
        "http://" + repeated("[", many) + repeated("]", many) + '/',
        "http://" + repeated("@", many) + repeated(":", many),
        "http://example.com" + repeated(".", many) + '/',
        "http://" + repeated("a.", many) + "example",
        "//" + repeated("%", many) + repeated("%4", many),
        repeated("&#", many) + "//",
        "&#" + repeated("1", many) + "//",
        "http://example.com/" + repeated("?#", many),
        "mailto:" + repeated("a@b.example,", many),
        "mailto:?" + repeated("x=y&", many),
        "mailto:?to=" + repeated("a@b.example,", many),
        "mailto:?to=" + repeated("(", many),
        "mailto:" + repeated("(", many) + "@b.example",
    };
    std::clock_t const begin = std::clock();
    for (std::string const& text : texts)
        onSmallStack(64 * 1024, [&] { EXPECT_NE(Uri(text).comparisonString(), "x") << text.substr(0, 20); });
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 60);
}

TEST(UriParse, FindsTheEndOfAnAuthorityWhereverItIs) {
    for (std::size_t size = 1; size < 50; ++size) {
        std::string const host = std::string(size, 'a') + ".example.com";
        for (std::string const rest : {"", "/", "/p@:[", "?q@:[", "#f@:["})
            for (auto const& [before, behind] :
                 {std::pair<std::string, std::string>{"", ""}, {"u@", ""}, {"u:p@", ""}, {"", ":80"}}) {
                Uri const uri("http://" + before + host + behind + rest);
                EXPECT_EQ(uri.hostname(), host) << uri.asString();
                EXPECT_EQ(uri.user(), before.substr(0, 1)) << uri.asString();
                EXPECT_EQ(uri.port(), behind.empty() ? 0 : 80) << uri.asString();
                EXPECT_EQ(uri.pathQueryFragment(), rest) << uri.asString();
            }
    }
}

TEST(UriParse, FindsTheBracketsOfAHostWhereverTheyAre) {
    for (std::size_t size = 1; size < 50; ++size) {
        std::string const host = std::string(size, 'a') + ".example.com";
        Uri const uri("http://[" + host + "]/");
        ASSERT_FALSE(uri.host().isNull()) << uri.asString();
        EXPECT_EQ(uri.hostname(), host);
        EXPECT_EQ(uri.comparisonString(), "http://" + host + '/');
    }
}

}  // namespace
