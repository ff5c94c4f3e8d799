#include "tests/mail/Addresses.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

struct Row {
    std::string text, parts;
};

std::string listed(std::string const& text) {
    return parts(EmailAddress::rfc5322ParseList(text, false));
}

// Each row holds for the parse of the text and for the parser over tokens.
void expectLists(std::vector<Row> const& rows) {
    for (auto const& [text, expected] : rows) {
        EXPECT_EQ(listed(text), expected) << text;
        EXPECT_EQ(parts(listByQueue(text, false, "")), expected) << text << " by queue";
    }
}

void expectLists(std::string const& separator, std::vector<Row> const& rows) {
    for (auto const& [text, expected] : rows) {
        EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(text, separator)), expected) << text;
        EXPECT_EQ(parts(listByQueue(text, false, separator)), expected) << text << " by queue";
    }
}

std::string repeated(std::string const& piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) text += piece;
    return text;
}

}  // namespace

TEST(HeaderList, GivesNameLocalPartAndDomain) {
    expectLists({
        {"john@host.example", "john|host.example"},
        {"<John@Host.Example>", "John|host.example"},
        {"John Smith <js@example.org>", "John Smith|js|example.org"},
        {"\"Smith, John\" <John@host.example>", "\"Smith, John\"|John|host.example"},
        {"John Smith john@host.example", "John Smith|john|host.example"},
        {"  John \t Smith  <a@bb.example>  ", "John \t Smith|a|bb.example"},
        {"John (the one) Smith <a@bb.example>", "John  Smith|a|bb.example"},
        {"\"John\"<a@bb.example>", "\"John\"|a|bb.example"},
        {"\"john smith\"@host.example", "\"john smith\"|host.example"},
        {"a@[192.0.2.1]", "a|[192.0.2.1]"},
        {"jörg <jörg@host.example>", "jörg|jörg|host.example"},
    });
}

TEST(HeaderList, KeepsTheOrderAndTheRepeatedOnes) {
    expectLists({
        {"b@xx.example, a@xx.example, b@xx.example", "b|xx.example; a|xx.example; b|xx.example"},
        {"a@xx.example,b@xx.example", "a|xx.example; b|xx.example"},
        {"\"a, b\" <c@xx.example>, (d, e) f@xx.example", "\"a, b\"|c|xx.example; f|xx.example"},
        {"A <a@xx.example>,\r\n B <b@xx.example>", "A|a|xx.example; \r\n B|b|xx.example"},
    });
}

TEST(HeaderList, LeavesOutBadAddressesAndKeepsTheirNeighbours) {
    expectLists({
        {"a@x.example, bad@@y, c@z.example", "a|x.example; c|z.example"},
        {"a@x.example, b@y, c@z.example", "a|x.example; c|z.example"},
        {"a@x.example, b c, d@z.example", "a|x.example; d|z.example"},
        {"a@x.example, postmaster", "a|x.example"},
        {"postmaster, a@x.example", "postmaster|; a|x.example"},
        {"a@x.example, :, c@z.example", "a|x.example; c|z.example"},
        {"a@x.example, \"b\", c@z.example", "a|x.example; c|z.example"},
        {"a@x.example, b..c@x.example, d@z.example", "a|x.example; d|z.example"},
        {"bad@@y", ""},
        {"bad@@y,", ""},
        {",bad@@y", ""},
        {"bad@@y, a@x.example", "a|x.example"},
        {"a@x.example, bad@@y", "a|x.example"},
        {"a@x.example, b\\c, d@z.example", "a|x.example; d|z.example"},
    });
}

TEST(HeaderList, IsEmptyForTextThatCannotBeCutIntoTokens) {
    expectLists({
        {"a@x.example, b@x.example (", ""},
        {"(a@x.example, b@x.example", ""},
        {"a@x.example, \"b@x.example", ""},
        {"a@x.example, b@[x", ""},
        {"a@x.example, b@[[x]", ""},
        {"", ""},
        {"()", ""},
        {")]\x01", ""},
    });
}

TEST(HeaderList, IsEmptyForAnEmbeddedNul) {
    using namespace std::string_literals;
    EXPECT_EQ(listed("a@x.example, b@x.example\0"s), "");
    EXPECT_EQ(listed("\"a\0\"@x.example"s), "");
    EXPECT_TRUE(EmailAddress::rfc5322Parse("a\0@x.example"s, true).isNull());
    EXPECT_TRUE(EmailAddress::rfc5322ParseSet("a\0@x.example"s, true, true).empty());
    EXPECT_TRUE(EmailAddress::rfc5322ParseList("a\0@x.example"s, ";"s).empty());
}

TEST(HeaderList, DropsCommasAndDotsWithNothingToTheirRight) {
    expectLists({
        {"a@x.example,", "a|x.example"},
        {"a@x.example.", "a|x.example"},
        {"a@x.example.,.,", "a|x.example"},
        {"a@x.example, ", "a|x.example"},
        {"a@x.example ,", "a|x.example"},
        {"a@x.example , , ", "a|x.example"},
        {",a@x.example", "a|x.example"},
        {",,a@x.example", "a|x.example"},
        {" , a@x.example", "a|x.example"},
        {"a@x.example,,b@x.example", "a|x.example; b|x.example"},
        {"a@x.example, ,b@x.example", "a|x.example; b|x.example"},
        {"a@x.example,..,b@x.example", "a|x.example; b|x.example"},
        {"a . .", "a.|"},
        {"a@x.example . .", ""},
    });
}

TEST(HeaderList, HidesABracketBehindABlankThatIsNotDropped) {
    expectLists({
        {"Name <local>", "Name|local|"},
        {"Name <local> ", "Name|local|"},
        {"Name <local>,", "Name|local|"},
        {"Name <local> ,", "Namelocal|"},
        {"Name <local> .", "Namelocal|"},
        {"Name <local>.", "Name|local|"},
        {"Name <local> ,,a@x.example", "Name|local|; a|x.example"},
        {"Name <local> , ,a@x.example", "Namelocal|; a|x.example"},
        {"Name <local> ,,bad@@y", "Namelocal|"},
        {"Name <local> ,bad@@y", "Name|local|"},
        {"Name <local> ,. ,a@x.example", "Namelocal|; a|x.example"},
        {"Name <local> , .,a@x.example", "Name|local|; a|x.example"},
        {"Name <local> , , ,bad@@y", "Name|local|"},
        {"Name <local> ,.,bad@@y", "Namelocal|"},
    });
}

TEST(HeaderList, GivesAnEmptyAddressForTextOfNothingButPadding) {
    expectLists({
        {" ", "|"},
        {",", "|"},
        {".", "|"},
        {" ,., ", "|"},
        {" ,. , ", ""},
        {"<>", "|"},
        {">", "|"},
        {"Name <>", "Name||"},
        {"<>, a@x.example", "|; a|x.example"},
        {". .", ".|"},
    });
}

TEST(HeaderList, TakesTextWithoutAtForALocalPart) {
    expectLists({
        {"postmaster", "postmaster|"},
        {"John Smith", "JohnSmith|"},
        {"a(c)b", "ab|"},
        {"<postmaster>", "postmaster|"},
        {"Post <postmaster>", "Post|postmaster|"},
        {"<@b.example>", "b.example|"},
        {"Name <@b.example>", "Name|b.example|"},
        {"@b.example", "b.example|"},
        {"@", ""},
        {"a@", ""},
        {"<a@>", "a|"},
        {"a@ .", "a|"},
        {"@<a>", "@|a|"},
        {"<\"a b\">", "\"a b\"|"},
        {"\"a b\"", ""},
        {"\"a\" b", ""},
        {"a\r\n", ""},
        {"\r\na", "a|"},
        {"a..", "a|"},
        {"a..b", ""},
        {"[a]", "[a]|"},
    });
}

TEST(HeaderList, ReadsTheDomainFromTheRight) {
    expectLists({
        {"a@b . example", "a|b.example"},
        {"a@b\r\n.example", "a|b.example"},
        {"a@b.exam<ple", "a|b.example"},
        {"a@b.exam>ple", "a|b.example"},
        {"<a@b.example", "a|b.example"},
        {"a@b.example>", "a|b.example"},
        {"a@b.example\r\n", ""},
        {"<a@b.example>\r\n", ""},
        {"a@b;c.example", ""},
        {"a@b:c.example", ""},
        {"a@b\\c.example", ""},
        {"a@b.example:", ""},
        {"a@b.example;", ""},
        {"Group: a@b.example;", ""},
        {"a@b\"c\".example", ""},
        {"a@b.example\"c\"", ""},
        {"a@[ipv6:2001:DB8::1]", "a|[ipv6:2001:db8::1]"},
        {"a@[IPv6:2001:db8::1]", ""},
        {"a@b", ""},
    });
}

// Kept for the daemons: what cannot be converted to ASCII is not looked at either, and the byte that a domain
// ends in may be a special one.
TEST(HeaderList, TakesASpecialByteBehindADomainThatHasNoAsciiForm) {
    expectLists({
        {"a@b.\xd7\x90z;", "a|b.\xd7\x90z;"},
        {"a@b.\xd7\x90z@", "a|b.\xd7\x90z@"},
        {"a@b.\xd7\x90z<", "a|b.\xd7\x90z<"},
        {"a@b.\xd7\x90z\n. ", "a|b.\xd7\x90z\n"},
        {"<a@b.\xd7\x90z;>", ""},
        {"a@b\xc3\xbc;", ""},
    });
}

TEST(HeaderList, ReadsTheLocalPartUpToABlankOrABracket) {
    expectLists({
        {"a @bb.example", "a|bb.example"},
        {"a\r\n@bb.example", "a|bb.example"},
        {"< a@bb.example>", "<|a|bb.example"},
        {"N < a @ bb.example >", "N <|a|bb.example"},
        {"<  @bb.example>", "bb.example|"},
        {"x:a@bb.example", ""},
        {"x: a@bb.example", "x:|a|bb.example"},
        {"x@a@bb.example", ""},
        {"x@ a@bb.example", "x@|a|bb.example"},
        {"x@<a@bb.example>", "x@|a|bb.example"},
        {"x:<a@bb.example>", "x:|a|bb.example"},
        {"x:@bb.example", ""},
        {"x: @bb.example", ""},
        {"a;b@bb.example", ""},
        {"a>b@bb.example", ""},
        {"a\\b@bb.example", ""},
        {"; a@bb.example", ";|a|bb.example"},
        {".a.@bb.example", ".a.|bb.example"},
        {"a. b@bb.example", "a.|b|bb.example"},
        {"\"a\"\"b\"@bb.example", ""},
        {"\"a\" \"b\"@bb.example", "\"a\"|\"b\"|bb.example"},
    });
}

TEST(HeaderList, AcceptsNearlyEverythingInADisplayName) {
    expectLists({
        {"a: b@c <d@e> ; \\ f <g@host.example>", "a: b@c <d@e> ; \\ f|g|host.example"},
        {"Undisclosed: x <a@bb.example>", "Undisclosed: x|a|bb.example"},
        {"John\r\n Smith\r\n <a@bb.example>", "John\r\n Smith|a|bb.example"},
        {"\r\n John <a@bb.example>", "\r\n John|a|bb.example"},
        {"J. Smith <a@bb.example>", "J. Smith|a|bb.example"},
        {"[x] \"y\" <a@bb.example>", "[x] \"y\"|a|bb.example"},
        {"J)o]hn\x01 <a@bb.example>", "John|a|bb.example"},
        {"\r\n <a@bb.example>", "a|bb.example"},
    });
}

// Without an overload of its own a literal or a pointer would be taken for "lower-case the local parts".
TEST(AddressList, TakesALiteralAndAPointerForASeparator) {
    std::string const text = "John@xx.example; Ann@yy.example";
    char const* const constPointer = ";";
    char bytes[] = ";";
    char* const pointer = bytes;
    std::string const both = "John|xx.example; Ann|yy.example";
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(text, ";")), both);
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(text, constPointer)), both);
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(text, bytes)), both);
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(text, pointer)), both);
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList("John@xx.example", 0)), "John|xx.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList("John@xx.example", 1)), "john|xx.example");
}

TEST(HeaderList, LowersLocalPartsOnRequest) {
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList("\"A\" <JOHN@Host.Example>, X@HH.example", true)),
              "\"A\"|john|host.example; x|hh.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse("JOHN@Host.Example", true)), "john|host.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse("JOHN@Host.Example", false)), "JOHN|host.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseList("JOHN@Host.Example", std::string(";"))),
              "JOHN|host.example");
}

TEST(HeaderSet, HoldsEachAddressOnceInAscendingOrder) {
    std::string const text = "b@xx.example, a@xx.example, b@xx.example";
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseSet(text, false, false)), "a|xx.example; b|xx.example");
}

TEST(HeaderSet, IgnoresItsLastArgument) {
    for (std::string text : {"B <b@xx.example>, a@xx.example", "", "bad@@y", "a@x.example("})
        EXPECT_EQ(parts(EmailAddress::rfc5322ParseSet(text, false, true)),
                  parts(EmailAddress::rfc5322ParseSet(text, false, false)))
            << text;
}

TEST(HeaderSet, KeepsTheRightmostOfEqualAddresses) {
    std::string const text = "First <a@xx.example>, Second <a@xx.example>";
    EXPECT_EQ(parts(EmailAddress::rfc5322ParseSet(text, false, false)), "Second|a|xx.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse(text, false)), "Second|a|xx.example");
}

TEST(HeaderParse, GivesTheSmallestAddressNotTheLeftmost) {
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse("b@xx.example, a@xx.example, b@xx.example", false)),
              "a|xx.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse("a@xx.example, B@xx.example", false)), "B|xx.example");
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse("", false)), "null");
    EXPECT_EQ(parts(EmailAddress::rfc5322Parse("a@b", false)), "null");
}

TEST(SeparatedList, EndsAnAddressAtTheSeparatorAndAtCommas) {
    expectLists(";", {
                         {"a@x.example; b@x.example, C <C@x.example>;d@x.example",
                          "a|x.example; b|x.example; C|C|x.example; d|x.example"},
                         {"a@x.example;", "a|x.example"},
                         {"a;", "a|"},
                         {";", ""},
                         {";;", ""},
                         {" ; ; ", ""},
                         {"a;;b", "a|; b|"},
                         {"a; ;b", "a|; b|"},
                         {"a;,b@x.example", "a|; b|x.example"},
                         {"a;,", "a|"},
                         {"a,;", "a|"},
                         {"a@x.example;.", "a|x.example"},
                         {"a@x.example ,;b@x.example", "a|x.example; b|x.example"},
                         {"a@x.example; bad@@y; c@x.example", "a|x.example; c|x.example"},
                         {"a@x.example; b@y; c@x.example", "a|x.example; c|x.example"},
                         {"a@x.example; \"b\"; c@x.example", "a|x.example; c|x.example"},
                         {"one two; three", "onetwo|; three|"},
                         {"\"a;b\" <c@x.example>", "\"a;b\"|c|x.example"},
                         {" ", "|"},
                         {"", ""},
                         {",;a", "a|"},
                         {"a@x.example;(", ""},
                     });
}

TEST(SeparatedList, TakesEverySpecialAndBlankForASeparator) {
    expectLists(",", {{"a, b", "a|; b|"}, {"a,", "a|"}, {",", ""}});
    expectLists(" ", {{"a@x.example b@x.example", "a|x.example; b|x.example"},
                      {" a  b ", "a|; b|"},
                      {"a ,b@x.example", "a|; b|x.example"},
                      {",, ", "|"},
                      {"N\t<l>\t,, ", "Nl|"},
                      {" .", "|"},
                      {"  ", "|"}});
    expectLists("\t", {{"a\tb c", "a|; bc|"}});
    expectLists("\n", {{"a@x.example\nb@x.example\n", "a|x.example; b|x.example"}});
    expectLists(".", {{"a.b", "a|; b|"}, {"a.", "a|"}});
    expectLists("@", {{"a@b", "a|; b|"}, {"a@", "a|"}});
    expectLists(":", {{"a@x.example:b@x.example", "a|x.example; b|x.example"}});
    expectLists("<", {{"Name <a@x.example>", "Name|; a|x.example"}});
    expectLists(">", {{"<a@x.example>", "a|x.example"}});
    expectLists("\\", {{"a\\b", "a|; b|"}});
}

TEST(SeparatedList, MatchesNoTokenWithAnyOtherText) {
    for (std::string separator : {"", "b", "((", "(", "\"", "[a]", ";;", "; ", "\x01", "é"}) {
        expectLists(separator,
                    {{"a(((x)))b@x.example, c@x.example", "ab|x.example; c|x.example"}, {"a;b", ""}});
    }
}

TEST(ParseRfc5322, TakesTheLastAddressAndItsComma) {
    std::deque<Rfc822Token> tokens;
    rfc5322Lex("A@x.example, N <B@x.example>", tokens);
    EmailAddressImpl first, second;
    EXPECT_TRUE(parseRfc5322(tokens, Rfc822Token(), &second, true));
    EXPECT_EQ(tokens.back().text, "example");
    EXPECT_EQ(second.asString(), "N <b@x.example>");
    EXPECT_TRUE(parseRfc5322(tokens, Rfc822Token(), &first, false));
    EXPECT_EQ(first.asString(), "A@x.example");
    EXPECT_TRUE(tokens.empty());
    EXPECT_FALSE(parseRfc5322(tokens, Rfc822Token(), &first, false));
}

TEST(ParseRfc5322, LeavesTheTerminatorInTheQueue) {
    Rfc822Token const terminator{Rfc822Token::Special, ";"};
    std::deque<Rfc822Token> tokens;
    rfc5322Lex("a@x.example;b@x.example", tokens);
    EmailAddressImpl impl;
    EXPECT_TRUE(parseRfc5322(tokens, terminator, &impl, false));
    EXPECT_EQ(tokens.back(), terminator);
    EXPECT_EQ(impl.address(), "b@x.example");
    EmailAddressImpl nothing;
    EXPECT_TRUE(parseRfc5322(tokens, terminator, &nothing, false));
    EXPECT_EQ(tokens.back(), terminator);
    EXPECT_EQ(nothing.address(), "");
}

TEST(ParseRfc5322, LeavesTheCommaOfABadAddress) {
    for (std::string text : {"a@x.example,b@y", "a@x.example,b c"}) {
        std::deque<Rfc822Token> tokens;
        rfc5322Lex(text, tokens);
        EmailAddressImpl impl;
        EXPECT_FALSE(parseRfc5322(tokens, Rfc822Token(), &impl, false)) << text;
        ASSERT_FALSE(tokens.empty()) << text;
        EXPECT_EQ(tokens.back().text, ",") << text;
    }
}

TEST(ParseRfc5322, AlwaysTakesSomethingOfABadAddress) {
    for (std::string text : {":", "\"q\""}) {
        std::deque<Rfc822Token> tokens;
        rfc5322Lex(text, tokens);
        EmailAddressImpl impl;
        EXPECT_FALSE(parseRfc5322(tokens, Rfc822Token(), &impl, false)) << text;
        EXPECT_TRUE(tokens.empty()) << text;
    }
}

TEST(HeaderList, ReadsTextAsTheParserOverTokensDoes) {
    std::vector<std::string> const pieces{"a",
                                          "B",
                                          "x.example",
                                          "bb",
                                          "@",
                                          "@",
                                          "<",
                                          ">",
                                          ".",
                                          ",",
                                          ",",
                                          ",",
                                          ";",
                                          ";",
                                          ":",
                                          "\\",
                                          " ",
                                          " ",
                                          "\t",
                                          "\r\n",
                                          "(c)",
                                          ")",
                                          "]",
                                          "\x01",
                                          "jörg",
                                          "\"q, r\"",
                                          "[192.0.2.1]",
                                          "\xc3",
                                          "<a@x.example>",
                                          "b@x.example",
                                          "N <l>",
                                          "@x.example",
                                          "\"p\\\"\"",
                                          "<>",
                                          "[l]"};
    std::vector<std::string> const faults{"(", "\"", "[", "[[", "(\\"};
    std::string const separators[] = {"", "", ";", ",", " ", "\t", ".", "@", "<", ">", ":", "\r", "\n", "xx"};
    std::mt19937 random(5322);
    std::size_t found = 0;
    for (unsigned i = 0; i < 80'000; ++i) {
        std::string text = randomText(random, pieces, i % 2 == 0 ? 8 : 24);
        if (random() % 20 == 0) text += faults[random() % faults.size()];
        std::string const& separator = separators[random() % std::size(separators)];
        bool const lower = separator.empty() && random() % 2 == 0;
        auto const list = separator.empty() ? EmailAddress::rfc5322ParseList(text, lower)
                                            : EmailAddress::rfc5322ParseList(text, separator);
        ASSERT_EQ(parts(list), parts(listByQueue(text, lower, separator)))
            << i << ": " << text << " separated by " << separator;
        found += list.size();
        if (!separator.empty()) continue;
        auto const set = EmailAddress::rfc5322ParseSet(text, lower, false);
        auto const expected = setByQueue(text, lower);
        ASSERT_EQ(parts(set), parts(expected)) << i << ": " << text;
        ASSERT_EQ(parts(EmailAddress::rfc5322Parse(text, lower)),
                  expected.empty() ? "null" : parts(*expected.begin()))
            << i << ": " << text;
    }
    EXPECT_GT(found, 20'000u);
}

TEST(HeaderList, ReadsShortTextsOfEndsAndSeparatorsAsTheParserOverTokensDoes) {
    std::string const alphabet = "a@<> .,;";
    for (unsigned length = 1; length <= 5; ++length) {
        unsigned combinations = 1;
        for (unsigned i = 0; i < length; ++i) combinations *= static_cast<unsigned>(alphabet.size());
        for (unsigned number = 0; number < combinations; ++number) {
            std::string text;
            for (unsigned rest = number, i = 0; i < length; ++i, rest /= 8) text += alphabet[rest % 8];
            ASSERT_EQ(listed(text), parts(listByQueue(text, false, ""))) << text;
            ASSERT_EQ(parts(EmailAddress::rfc5322ParseList(text, std::string(";"))),
                      parts(listByQueue(text, false, ";")))
                << text;
        }
    }
}

TEST(HeaderList, TakesLinearTimeAndNoStackForHostileText) {
    onSmallStack(64 * 1024, [] {
        std::size_t const many = 100'000;
        EXPECT_EQ(EmailAddress::rfc5322ParseList(repeated("N <a@x.example>, ", many), false).size(), many);
        EXPECT_EQ(EmailAddress::rfc5322ParseList(repeated("a@x.example;", many), std::string(";")).size(),
                  many);
        EXPECT_EQ(listByQueue(repeated("N <a@x.example>, ", many), false, "").size(), many);
        for (std::string const piece :
             {",",  ";",  "\"\"", "\\", " ", "<",    ">",  "@",  ":",  ".",     "a,",  "a ,,",
              "[]", "()", "(",    "\"", "[", "\"\\", " ,", " .", "@,", "a\r\n", "@a ", "a@ "}) {
            std::string const text = repeated(piece, many);
            EXPECT_LE(EmailAddress::rfc5322ParseList(text + "x@y.example", false).size(), 2u) << piece;
            EXPECT_LE(EmailAddress::rfc5322ParseList("x@y.example," + text, false).size(), 2u) << piece;
            EXPECT_LE(EmailAddress::rfc5322ParseList(text + "<x@y.example>", std::string("x")).size(), 2u)
                << piece;
        }
        EXPECT_EQ(listed(repeated("(", 2 * many) + repeated(")", 2 * many) + "a@x.example"), "a|x.example");
    });
}
