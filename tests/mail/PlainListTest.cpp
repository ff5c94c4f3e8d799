// Addresses that are read without a grammar, held against the one that works over tokens.

#include <random>

#include "tests/mail/Addresses.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

// What plain lists are made of, and what makes them not plain.
std::vector<std::string> const pieces{
    "a@b.example",
    "John.Smith@Mail.Example",
    "<c@d.example>",
    "Name <n@e.example>",
    "\"Last, First\" <l.f@e.example>",
    "J. R. <j@r.example>",
    "a..b@c.example",
    ".a.@c.example",
    "x@y",
    "x@192.0.2.1",
    ", ",
    ",",
    ", ",
    ",",
    " ",
    "\r\n ",
    "\t",
    ".",
    "(c)",
    "Peter (by way of \"Ben\") <p@q.example>",
    "(a (b) \\) c) Name \"(d)\" <n@e.example>",
    "\"",
    "\\",
    ">",
    ";",
    std::string(1, '\0'),
};

}  // namespace

// What may stand in front of an address that is plain but for it.
TEST(PlainList, FindsNoAddressBehindACommentOrAStringThatHoldsNul) {
    std::string const nul(1, '\0');
    for (auto const& [comment, addresses] : std::vector<std::pair<std::string, std::string>>{
             {"(a)", parts(EmailAddress::rfc5322ParseList("N <x@y.example>", false))},
             {"(" + nul + ")", ""},
             {"(a" + nul + ")", ""},
             {"(\\" + nul + ")", ""},
             {"(\\", ""},
             {"(", ""},
             {"((a)", ""},
             {")((a)", ""},
             {")(a)", "N|x|y.example"},
             {"\"a\" ", "\"a\" N|x|y.example"},
             {"\"a" + nul + "\" ", ""},
             {"\"a\\" + nul + "\" ", ""},
             {"\"a\\\" ", ""},
         })
        EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(comment + "N <x@y.example>", false)), addresses)
            << testing::PrintToString(comment);
}

TEST(PlainList, ReadsWhatTheGrammarReads) {
    std::mt19937 random(5);
    for (int round = 0; round < 60000; ++round) {
        std::string const text = randomText(random, pieces, 7);
        bool const hasNul = text.find('\0') != std::string::npos;
        bool const lower = random() % 2 == 0;
        ASSERT_EQ(parts(EmailAddress::rfc5322ParseList(text, lower)),
                  hasNul ? "" : parts(listByQueue(text, lower, "")))
            << testing::PrintToString(text);
        ASSERT_EQ(parts(EmailAddress::rfc5322ParseSet(text, lower, false)),
                  hasNul ? "" : parts(setByQueue(text, lower)))
            << testing::PrintToString(text);
        ASSERT_EQ(parts(EmailAddress::rfc5321Parse(text, lower)),
                  hasNul ? "null" : parts(pathByQueue(text, lower)))
            << testing::PrintToString(text);
    }
}

TEST(PlainList, ReadsWhateverByteStandsAroundAnAddress) {
    for (int byte = 1; byte < 256; ++byte) {
        std::string const c(1, static_cast<char>(byte));
        for (std::string const& text : {
                 "<a@b.example>" + c + "d@e.example",
                 "N <a@b.example>" + c + "d@e.example",
                 "a@b.example" + c + "d@e.example",
                 "N <a@b.example" + c,
                 "N <a@b.example" + c + ",d@e.example",
                 "N " + c + "a@b.example>",
                 c + "N" + c + "<a@b.example>",
                 "a" + c + "@b" + c + "example",
             }) {
            EXPECT_EQ(parts(EmailAddress::rfc5322ParseList(text, false)), parts(listByQueue(text, false, "")))
                << testing::PrintToString(text);
            EXPECT_EQ(parts(EmailAddress::rfc5321Parse(text, false)), parts(pathByQueue(text, false)))
                << testing::PrintToString(text);
        }
    }
}

TEST(PlainList, KeepsTheRightmostOfEqualAddresses) {
    auto const set = EmailAddress::rfc5322ParseSet("One <a@b.example>, Two <a@b.example>", false, false);
    ASSERT_EQ(set.size(), 1U);
    EXPECT_EQ(set.begin()->displayName(), "Two");
    EXPECT_EQ(EmailAddress::rfc5322Parse("One <a@b.example>, Two <a@b.example>", false).displayName(), "Two");
}

TEST(PlainList, GivesAddressesWhoseTextsAreMade) {
    EmailAddress const named = EmailAddress::rfc5322Parse("\"J\" <John@B.Example>", true);
    EXPECT_EQ(named.address(), "john@b.example");
    EXPECT_EQ(named.asString(), "\"J\" <john@b.example>");
    EmailAddress const bare = EmailAddress::rfc5322Parse("John@B.Example", false);
    EXPECT_EQ(bare.address(), "John@b.example");
    EXPECT_EQ(bare.asString(), "John@b.example");
}

TEST(PlainList, LowersEveryLetterAndNothingElse) {
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        std::string const capital(1, letter);
        std::string const small(1, static_cast<char>(letter + 32));
        // The second needs the grammar.
        for (std::string const before : {"", "\"q\"."}) {
            std::string const text = before + capital + "@" + capital + ".example";
            EXPECT_EQ(EmailAddress::rfc5322Parse(text, false).address(),
                      before + capital + "@" + small + ".example");
            EXPECT_EQ(EmailAddress::rfc5322Parse(text, true).address(),
                      before + small + "@" + small + ".example");
        }
    }
    EXPECT_EQ(EmailAddress::rfc5322Parse("`{@b.example", true).address(), "`{@b.example");
    EXPECT_EQ(EmailAddress::rfc5322Parse("\"@[\".A@b.example", true).address(), "\"@[\".a@b.example");
}
