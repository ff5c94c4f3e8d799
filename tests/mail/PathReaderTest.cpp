#include "tests/mail/Addresses.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

struct Row {
    std::string text;
    bool requireBrackets;
    std::string parts;
};

std::string parsed(std::string const& text, bool requireBrackets) {
    return parts(EmailAddress::rfc5321Parse(text, requireBrackets));
}

// Each row holds for the parse of the text and for the parser over tokens.
void expectPaths(std::vector<Row> const& rows) {
    for (auto const& [text, requireBrackets, expected] : rows) {
        EXPECT_EQ(parsed(text, requireBrackets), expected) << text;
        EXPECT_EQ(parts(pathByQueue(text, requireBrackets)), expected) << text << " by queue";
    }
}

}  // namespace

TEST(EnvelopePath, GivesLocalPartAndDomainInLowerCase) {
    expectPaths({
        {"<John@Example.COM>", true, "john|example.com"},
        {"john@example.com", false, "john|example.com"},
        {"<a@b.example>", false, "a|b.example"},
        {"<a.b.c@x.example>", true, "a.b.c|x.example"},
        {"<\"John Smith\"@host.example>", true, "\"john smith\"|host.example"},
        {"<\"a\\\"@b\"@host.example>", true, "\"a\\\"@b\"|host.example"},
        {"<a.\"b\".c@host.example>", true, "a.\"b\".c|host.example"},
        {"a(comment)b@x.example", false, "ab|x.example"},
        {"<a@x(comment).example>", true, "a|x.example"},
        {"<jörg@x.example>", true, "jörg|x.example"},
        {"a\x01"
         "b@x.example",
         false, "ab|x.example"},
    });
}

TEST(EnvelopePath, GivesTheEmptyAddressForEmptyBrackets) {
    expectPaths({
        {"<>", true, "|"},
        {"<>", false, "|"},
        {" < \t> ", true, "|"},
        {"(bounce)<>", true, "|"},
        {"", false, "null"},
        {"", true, "null"},
        {" ", false, "null"},
        {"()", false, "null"},
        {">", false, "null"},
        {"<", false, "null"},
        {"><", false, "null"},
        {"<<>>", false, "null"},
        {"<@>", false, "null"},
        {"<>>", false, "null"},
        {"> >", false, "null"},
    });
}

TEST(EnvelopePath, AsksForBracketsOnlyWhenTheyAreRequired) {
    expectPaths({
        {"john@example.com", true, "null"},
        {"<john@example.com", true, "null"},
        {"john@example.com>", true, "null"},
        {"<john@example.com", false, "null"},
        {"john@example.com>", false, "john|example.com"},
        {"john>", false, "john|"},
        {"<john", false, "null"},
    });
}

TEST(EnvelopePath, AllowsNothingAroundTheBracketsButBlanks) {
    expectPaths({
        {" \t<a@b.example>\t ", true, "a|b.example"},
        {"(c) <a@b.example> (c)", true, "a|b.example"},
        {"Name <a@b.example>", false, "null"},
        {"\r\n<a@b.example>", false, "null"},
        {"<a@b.example>\r\n", false, "null"},
        {"<a@b.example> SIZE=1", false, "null"},
        {"<a@b.example>,", false, "null"},
        {"<<a@b.example>>", false, "null"},
        {"x<a@b.example>", false, "null"},
        {"\"x\"<a@b.example>", false, "null"},
    });
}

TEST(EnvelopePath, AllowsBlanksInsideTheBracketsOnlyAtTheEnds) {
    expectPaths({
        {"< a@b.example>", true, "a|b.example"},
        {"<a@b.example >", true, "a|b.example"},
        {"<a @b.example>", false, "null"},
        {"<a@ b.example>", false, "null"},
        {"<a@b .example>", false, "null"},
        {"<a@b. example>", false, "null"},
        {"<a b@c.example>", false, "null"},
        {"<a@b.example c>", false, "null"},
        {"<a\r\n@b.example>", false, "null"},
        {"a @b.example", false, "null"},
        {"a@ b.example", false, "null"},
        {" a@b.example ", false, "a|b.example"},
        {"<postmaster >", true, "postmaster|"},
        {"< postmaster>", true, "null"},
        {"< @b.example>", true, "null"},
        {" @bb.example", false, "bb.example|"},
        {"a@ ", false, "null"},
        {"<a@ >", false, "null"},
    });
}

TEST(EnvelopePath, TakesATextWithoutAtForALocalPart) {
    expectPaths({
        {"<postmaster>", true, "postmaster|"},
        {"Postmaster", false, "postmaster|"},
        {"<@b.example>", true, "b.example|"},
        {"@b.example", false, "b.example|"},
        {"<\"john smith\">", true, "\"john smith\"|"},
        {"\"john smith\"", false, "null"},
        {"[192.0.2.1]", false, "[192.0.2.1]|"},
        {"a(c)b", false, "ab|"},
        {"a b", false, "null"},
        {"<a..b>", true, "null"},
        {"<@a..b>", true, "null"},
        {"a.", false, "null"},
        {"<a.>", true, "null"},
        {".a", false, ".a|"},
        {".", false, "null"},
    });
}

TEST(EnvelopePath, RefusesSourceRoutes) {
    expectPaths({
        {"<@relay.example:a@b.example>", false, "null"},
        {"<@a.example,@b.example:user@c.example>", false, "null"},
        {"<a@b.example@c.example>", false, "null"},
        {"a@@b.example", false, "null"},
        {"<a:b@c.example>", false, "null"},
        {":a@c.example", false, "null"},
    });
}

TEST(EnvelopePath, ChecksWhatStandsNextToWhatInALocalPart) {
    expectPaths({
        {"<a..b@c.example>", false, "null"},
        {"<.a@c.example>", false, ".a|c.example"},
        {"<a.@c.example>", false, "a.|c.example"},
        {"<.a.@c.example>", false, ".a.|c.example"},
        {"<.@c.example>", false, ".|c.example"},
        {"<..@c.example>", false, "null"},
        {"<\"a\"\"b\"@c.example>", false, "null"},
        {"<\"a\".\"b\"@c.example>", false, "\"a\".\"b\"|c.example"},
        {"<a\"b\"@c.example>", false, "null"},
        {"<\"a\"b@c.example>", false, "null"},
        {"<\"a\"[b]@c.example>", false, "null"},
        {"<[b]\"a\"@c.example>", false, "null"},
        {"<a[b]@c.example>", false, "a[b]|c.example"},
        {"<[a][b]@c.example>", false, "[a][b]|c.example"},
        {"<a;b@c.example>", false, "null"},
        {"<a,b@c.example>", false, "null"},
        {"<a\\b@c.example>", false, "null"},
        {"<a>b@c.example>", false, "null"},
        {"<a\nb@c.example>", false, "null"},
        {"<a\r@c.example>", false, "null"},
    });
}

TEST(EnvelopePath, ChecksTheDomain) {
    expectPaths({
        {"<a@[192.0.2.1]>", false, "a|[192.0.2.1]"},
        {"<a@[ipv6:2001:DB8::1]>", false, "a|[ipv6:2001:db8::1]"},
        {"<a@[2001:db8::1]>", false, "a|[2001:db8::1]"},
        {"<a@[IPv6:2001:db8::1]>", false, "null"},
        {"<a@[192.0.2.1].example>", false, "null"},
        {"<a@[192.0.2.x]>", false, "null"},
        {"<a@192.0.2.1>", false, "a|192.0.2.1"},
        {"<a@b>", false, "null"},
        {"<a@bb>", false, "a|bb"},
        {"<a@bb.c>", false, "null"},
        {"<a@b.example.>", false, "null"},
        {"a@b.example.", false, "null"},
        {"<a@.b.example>", false, "null"},
        {"<a@>", false, "null"},
        {"a@", false, "null"},
        {"<a@.>", false, "null"},
        {"<a@\"b.example\">", false, "null"},
        {"a@\"b.example\"", false, "null"},
        {"<a@b!.example>", false, "null"},
        {"<a@b;example>", false, "null"},
        {"<a@b\\example>", false, "null"},
        {"<a@b,example>", false, "null"},
        {"<a@b<c.example>", false, "null"},
        {"<a@b>c.example>", false, "null"},
        {"<a@b\nc.example>", false, "null"},
    });
}

TEST(EnvelopePath, RefusesWhatCannotBeCutIntoTokens) {
    expectPaths({
        {"<a@b.example>(", false, "null"},
        {"<\"a@b.example>", false, "null"},
        {"<a@[192.0.2.1>", false, "null"},
        {"<a@b.example>[[", false, "null"},
    });
}

TEST(EnvelopePath, RefusesAnEmbeddedNul) {
    using namespace std::string_literals;
    EXPECT_EQ(parsed("a\0b@x.example"s, false), "null");
    EXPECT_EQ(parsed("<\"a\0b\"@x.example>"s, false), "null");
    EXPECT_EQ(parsed("<a@[::1\0]>"s, false), "null");
    EXPECT_EQ(parts(EmailAddress::create("a\0"s, "x.example", false)), "null");
}

TEST(EnvelopePath, IsCreatedFromItsTwoParts) {
    EXPECT_EQ(parts(EmailAddress::create("John", "Host.Example", false)), "john|host.example");
    EXPECT_EQ(parts(EmailAddress::create("<john", "host.example>", true)), "john|host.example");
    EXPECT_EQ(parts(EmailAddress::create("john", "host.example", true)), "null");
    EXPECT_EQ(parts(EmailAddress::create("", "host.example", false)), "host.example|");
    EXPECT_EQ(parts(EmailAddress::create("john", "", false)), "null");
    EXPECT_EQ(parts(EmailAddress::create("a@b.example", "c.example", false)), "null");
}

TEST(ParseRfc5321, FillsWhatItIsGivenAndItsTexts) {
    std::deque<Rfc822Token> tokens;
    rfc5322Lex("  <A.B@Host.Example> ", tokens);
    EmailAddressImpl impl;
    EXPECT_TRUE(parseRfc5321(tokens, &impl, true));
    EXPECT_TRUE(tokens.empty());
    EXPECT_EQ(impl.local(), "a.b");
    EXPECT_EQ(impl.domain(), "host.example");
    EXPECT_EQ(impl.displayName(), "");
    impl.local("later", false);
    EXPECT_EQ(impl.address(), "a.b@host.example");
    EXPECT_EQ(impl.asString(), "a.b@host.example");
}

TEST(ParseRfc5321, MayLeaveTheLocalPartBehindWhenTheDomainIsBad) {
    std::deque<Rfc822Token> tokens;
    rfc5322Lex("a@b!", tokens);
    EmailAddressImpl impl;
    EXPECT_FALSE(parseRfc5321(tokens, &impl, false));
    EXPECT_EQ(impl.local(), "a");
}

// The sanitizers see it where an address is touched that is not there.
TEST(ParseRfc5321, NeedsNoAddressWhenThereIsNoToken) {
    std::deque<Rfc822Token> none, blank{{2, " "}};
    EXPECT_FALSE(parseRfc5321(none, nullptr, false));
    EXPECT_FALSE(parseRfc5321(blank, nullptr, false));
    EXPECT_TRUE(blank.empty());
}

TEST(ParseRfc5321, RefusesTokensThatNoTextGives) {
    for (Rfc822Token const& odd : {Rfc822Token{0, ""}, Rfc822Token{5, "a"}, Rfc822Token{2, ""},
                                   Rfc822Token{2, "("}, Rfc822Token{2, "\x01"}}) {
        EmailAddressImpl impl;
        std::deque<Rfc822Token> last{{1, "a"}, {2, "@"}, {1, "host"}, odd};
        EXPECT_FALSE(parseRfc5321(last, &impl, false)) << odd.type << odd.text;
        std::deque<Rfc822Token> inDomain{{1, "a"}, {2, "@"}, odd, {1, "host"}};
        EXPECT_FALSE(parseRfc5321(inDomain, &impl, false)) << odd.type << odd.text;
        std::deque<Rfc822Token> first{odd, {1, "a"}, {2, "@"}, {1, "host"}};
        EXPECT_FALSE(parseRfc5321(first, &impl, false)) << odd.type << odd.text;
    }
    EmailAddressImpl impl;
    std::deque<Rfc822Token> wordLike{{1, "a"}, {2, "!"}, {2, "@"}, {1, "host"}};
    EXPECT_TRUE(parseRfc5321(wordLike, &impl, false));
    EXPECT_EQ(impl.local(), "a!");
    std::deque<Rfc822Token> beforeQuotes{{2, "!"}, {3, "\"b\""}, {2, "@"}, {1, "host"}};
    EXPECT_TRUE(parseRfc5321(beforeQuotes, &impl, false));
    EXPECT_EQ(impl.local(), "!\"b\"");
    std::deque<Rfc822Token> behindQuotes{{3, "\"b\""}, {2, "!"}, {2, "@"}, {1, "host"}};
    EXPECT_FALSE(parseRfc5321(behindQuotes, &impl, false));
}

TEST(DomainLiteral, IsAnAddressInBrackets) {
    for (std::string text : {"[192.0.2.1]", "[ 192.0.2.1 ]", "[\t::1\r\n]", "[ipv6:::1]", "[2001:db8::1]",
                             "[ipv6:192.0.2.1]", "[\v192.0.2.1\f]", "[123456]", "[0x7f.0.0.1]"})
        EXPECT_TRUE(s_isValidDomainLiteral(text)) << text;
    for (std::string text : {"", "[", "]", "[]", "[ ]", "192.0.2.1", "[192.0.2.1", "192.0.2.1]",
                             "[192.0.2.1]]", "[192.0.2.1] ", " [192.0.2.1]", "[192.0.2.256]", "[IPv6:::1]",
                             "[IPV6:::1]", "[ipv6: ::1]", "[ipv6 :::1]", "[ipv6:]", "[a]", "[1.2.3]"})
        EXPECT_FALSE(s_isValidDomainLiteral(text)) << text;
    EXPECT_FALSE(s_isValidDomainLiteral(std::string("[::1\0]", 6)));
}

TEST(DomainLiteral, KeepsToALowerCasePrefixForPeers) {
    EXPECT_TRUE(s_isValidDomainLiteral("[ipv6:2001:db8::1]"));
    EXPECT_FALSE(s_isValidDomainLiteral("[IPv6:2001:db8::1]"));
    EXPECT_FALSE(s_isValidDomainLiteral("[IPV6:2001:db8::1]"));
}

TEST(EnvelopePath, ReadsTextAsTheParserOverTokensDoes) {
    std::vector<std::string> const pieces{"a",           "B",
                                          "bb.example",  "example",
                                          "@",           "@",
                                          "<",           ">",
                                          ".",           ",",
                                          ";",           ":",
                                          "\\",          " ",
                                          "\t",          "\r\n",
                                          "[",           "(c)",
                                          ")",           "]",
                                          "\x01",        "jörg",
                                          "\"q\"",       "(",
                                          "\"p\\\"",     "<a@bb.example>",
                                          "[192.0.2.1]", "@x.example",
                                          "\xc3",        "<>"};
    std::mt19937 random(5321);
    unsigned good = 0;
    for (unsigned i = 0; i < 60'000; ++i) {
        std::string text = randomText(random, pieces, i % 2 == 0 ? 5 : 9);
        if (i % 3 == 0) text = "<" + text + ">";
        bool const requireBrackets = random() % 4 == 0;
        std::string const expected = parts(pathByQueue(text, requireBrackets));
        ASSERT_EQ(parsed(text, requireBrackets), expected) << i << ": " << text;
        good += expected != "null";
    }
    EXPECT_GT(good, 1'000u);
}

TEST(EnvelopePath, TakesLinearTimeAndNoStackForHostileText) {
    onSmallStack(64 * 1024, [] {
        std::size_t const many = 200'000;
        std::string dots = "<";
        for (std::size_t i = 0; i < many; ++i) dots += ".a";
        EXPECT_EQ(EmailAddress::rfc5321Parse(dots + "@x.example>", true).local().size(), 2 * many);
        for (std::string const piece :
             {"(", "<", "@", ">", "\"", "\\", "[", ",", ":", ";", "a ", "a@", "\"\""}) {
            std::string text;
            for (std::size_t i = 0; i < many; ++i) text += piece;
            EXPECT_EQ(parsed("<" + text + "x@y.example>", false), "null") << piece;
        }
    });
}
