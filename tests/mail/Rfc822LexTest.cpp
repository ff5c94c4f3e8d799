#include "include2/Rfc822Lex"

#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::onSmallStack;

namespace {

// The kind of a token and its text: A atom, S special, Q quoted string, D domain literal.
std::string shown(std::deque<Rfc822Token> const& tokens) {
    std::string text;
    for (auto const& token : tokens) {
        if (!text.empty()) text += '|';
        text += std::string("0ASQD").at(token.type) + token.text;
    }
    return text;
}

std::string lexed(std::string const& text) {
    std::deque<Rfc822Token> tokens;
    return rfc5322Lex(text, tokens) ? shown(tokens) : "failed";
}

struct Row {
    std::string text, tokens;
};

}  // namespace

TEST(Rfc822Lex, CutsTextIntoTokens) {
    Row const rows[] = {
        {"", ""},
        {"John Smith <js@example.org>", "AJohn|S |ASmith|S |S<|Ajs|S@|Aexample|S.|Aorg|S>"},
        {"<>@,;:\\.", "S<|S>|S@|S,|S;|S:|S\\|S."},
        {"a\t \r\nb", "Aa|S\t|S |S\r|S\n|Ab"},
        {"  ", "S |S "},
        {"jörg@x", "Ajörg|S@|Ax"},
        {"!#$%&'*+-/=?^_`{|}~", "A!#$%&'*+-/=?^_`{|}~"},
        {"\\a", "S\\|Aa"},
    };
    for (auto const& [text, tokens] : rows) EXPECT_EQ(lexed(text), tokens) << text;
}

TEST(Rfc822Lex, GivesEveryByteItsPlace) {
    for (int byte = 0; byte < 256; ++byte) {
        char const c = static_cast<char>(byte);
        std::string const lone(1, c);
        std::string expected;
        if (std::string("<>@,;:\\.\t \r\n").find(c) != std::string::npos) {
            expected = "Aa|S" + lone + "|Ab";
        } else if (std::string("([\"").find(c) != std::string::npos) {
            expected = "failed";
        } else if (byte < 32 || c == ')' || c == ']') {
            expected = "Aa|Ab";
        } else {
            expected = "Aa" + lone + "b";
        }
        EXPECT_EQ(lexed("a" + lone + "b"), expected) << byte;
    }
}

TEST(Rfc822Lex, DropsClosingBracketsThatNothingOpened) {
    EXPECT_EQ(lexed("a)b]c"), "Aa|Ab|Ac");
}

TEST(Rfc822Lex, DropsControlBytesBetweenAtoms) {
    EXPECT_EQ(lexed("a\x01"
                    "b"),
              "Aa|Ab");
}

TEST(Rfc822Lex, SkipsComments) {
    Row const rows[] = {
        {"a(x)b", "Aa|Ab"},
        {"a(comment (nested) \\) still)b", "Aa|Ab"},
        {"(a)", ""},
        {"()()", ""},
        {"(\"[)a", "Aa"},
        {"(\\()a", "Aa"},
        {"((a)(b(c)))d", "Ad"},
        {"a(unclosed", "failed"},
        {"(a\\", "failed"},
        {"(a\\)", "failed"},
        {"((a)", "failed"},
    };
    for (auto const& [text, tokens] : rows) EXPECT_EQ(lexed(text), tokens) << text;
}

TEST(Rfc822Lex, KeepsQuotedStringsWhole) {
    Row const rows[] = {
        {R"("a\"b" c)", R"(Q"a\"b"|S |Ac)"},
        {R"("")", R"(Q"")"},
        {R"("a b@c,(d)[e]")", R"(Q"a b@c,(d)[e]")"},
        {"\"a\r\n\tb\x01\"", "Q\"a\r\n\tb\x01\""},
        {R"("\\")", R"(Q"\\")"},
        {R"(a"b"c)", R"(Aa|Q"b"|Ac)"},
        {R"("abc)", "failed"},
        {R"("abc\)", "failed"},
        {R"("abc\")", "failed"},
        {R"(")", "failed"},
    };
    for (auto const& [text, tokens] : rows) EXPECT_EQ(lexed(text), tokens) << text;
}

TEST(Rfc822Lex, KeepsDomainLiteralsWhole) {
    Row const rows[] = {
        {"[1.2.3.4]", "D[1.2.3.4]"},     {R"([a\]b])", R"(D[a\]b])"},
        {R"([a\[b])", R"(D[a\[b])"},     {"[]", "D[]"},
        {"[a @\"(b]c", "D[a @\"(b]|Ac"}, {"[1.2[3]", "failed"},
        {"[1.2.3.4", "failed"},          {R"([a\)", "failed"},
        {R"([a\])", "failed"},           {"[", "failed"},
    };
    for (auto const& [text, tokens] : rows) EXPECT_EQ(lexed(text), tokens) << text;
}

TEST(Rfc822Lex, KeepsEmbeddedNulInsideQuotesAndDropsItOutside) {
    using namespace std::string_literals;
    EXPECT_EQ(lexed("a\0b"s), "Aa|Ab");
    EXPECT_EQ(lexed("\"a\0b\""s), "Q\"a\0b\""s);
}

TEST(Rfc822Lex, AppendsToWhatTheQueueHolds) {
    std::deque<Rfc822Token> tokens{{Rfc822Token::Atom, "first"}};
    EXPECT_TRUE(rfc5322Lex("b@", tokens));
    EXPECT_EQ(shown(tokens), "Afirst|Ab|S@");
}

TEST(Rfc822Lex, LeavesTheTokensBeforeAFaultInTheQueue) {
    std::deque<Rfc822Token> tokens;
    EXPECT_FALSE(rfc5322Lex("a,b(c", tokens));
    EXPECT_EQ(shown(tokens), "Aa|S,|Ab");
    EXPECT_FALSE(rfc5322Lex("d[e[", tokens));
    EXPECT_EQ(shown(tokens), "Aa|S,|Ab|Ad");
}

TEST(Rfc822Lex, ComparesTokensByKindAndText) {
    Rfc822Token const comma{Rfc822Token::Special, ","};
    EXPECT_TRUE(comma == (Rfc822Token{2, ","}));
    EXPECT_TRUE(comma != (Rfc822Token{1, ","}));
    EXPECT_TRUE(comma != (Rfc822Token{2, ";"}));
    EXPECT_TRUE(Rfc822Token() == (Rfc822Token{0, ""}));
}

TEST(EatComment, MovesPastTheMatchingBracket) {
    std::string const text = "a(b)\\))c)";
    auto pos = text.begin();
    EXPECT_TRUE(eat_comment(pos, text.end()));
    EXPECT_EQ(std::string(pos, text.end()), "c)");
    EXPECT_TRUE(eat_comment(pos, text.end()));
    EXPECT_TRUE(pos == text.end());
}

TEST(EatComment, RefusesACommentThatDoesNotEnd) {
    for (std::string text : {"", "a", "(a)", "a\\", "a\\)"}) {
        auto pos = text.begin();
        EXPECT_FALSE(eat_comment(pos, text.end())) << text;
    }
}

TEST(EatComment, LooksNoFurtherThanItsEnd) {
    std::string const text = "a)";
    auto pos = text.begin();
    EXPECT_FALSE(eat_comment(pos, text.begin() + 1));
}

TEST(IsRfc5321Char, IsTrueForAsciiLettersAndDigitsOnly) {
    std::string members;
    for (int byte = 0; byte < 256; ++byte)
        if (isRfc5321Char(static_cast<char>(byte))) members += static_cast<char>(byte);
    EXPECT_EQ(members, "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

TEST(Rfc822Lex, ReadsDeepCommentsOnASmallStack) {
    onSmallStack(64 * 1024, [] {
        std::string const deep(200'000, '(');
        EXPECT_EQ(lexed(deep), "failed");
        EXPECT_EQ(lexed("a" + deep + std::string(200'000, ')') + "b"), "Aa|Ab");
        std::string const inside = deep + std::string(200'000, ')') + ")";
        auto pos = inside.begin();
        EXPECT_TRUE(eat_comment(pos, inside.end()));
        EXPECT_TRUE(pos == inside.end());
    });
}
