// What the library needs of any string-helper library.

#include "platform/quill_string.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string lowered(std::string const& source, std::size_t start = 0, std::size_t count = std::string::npos) {
    std::string destination = "what was there before";
    copyStringToLower(source, destination, start, count);
    return destination;
}

std::string leftTrimmed(std::string text) {
    stringLeftTrim(text);
    return text;
}

std::string rightTrimmed(std::string text) {
    stringRightTrim(text);
    return text;
}

bool isUtf8(std::string const& bytes) {
    return isValidUtf8(bytes.data(), bytes.size());
}

int sign(int number) {
    return (number > 0) - (number < 0);
}

TEST(StringHelper, LowersCapitalsOfAsciiOnly) {
    EXPECT_EQ(lowered("Mail.Example.COM @[`{ 09"), "mail.example.com @[`{ 09");
    EXPECT_EQ(lowered("\xc3\x84\xff\x80"), "\xc3\x84\xff\x80");
    EXPECT_EQ(lowered(std::string("A\0B", 3)), std::string("a\0b", 3));
    EXPECT_EQ(lowered(""), "");
}

TEST(StringHelper, LowersTheBytesThatWereAskedFor) {
    EXPECT_EQ(lowered("ABCDEF", 2), "cdef");
    EXPECT_EQ(lowered("ABCDEF", 2, 3), "cde");
    EXPECT_EQ(lowered("ABCDEF", 4, 100), "ef");
    EXPECT_EQ(lowered("ABCDEF", 2, 0), "");
    EXPECT_EQ(lowered("ABCDEF", 6), "");
    EXPECT_EQ(lowered("ABCDEF", 7), "");
}

TEST(StringHelper, LowersATextIntoItself) {
    std::string text = "ABCDEF";
    copyStringToLower(text, text);
    EXPECT_EQ(text, "abcdef");
    copyStringToLower(text, text, 1, 2);
    EXPECT_EQ(text, "bc");
}

TEST(StringHelper, ComparesWithoutCaseUpToTheCount) {
    struct Row {
        char const *a, *b;
        std::size_t count;
        int sign;
    };
    for (auto const& [a, b, count, expected] : std::vector<Row>{
             {"mailto:", "MAILTO:", 7, 0},
             {"http", "https", 4, 0},
             {"http", "https", 5, -1},
             {"https", "http", 5, 1},
             {"a", "B", 1, -1},
             {"Z", "_", 1, 1},  // a capital counts as its small letter, which stands behind "_"
             {"a", "\xe4", 1, -1},
             {"\xc4", "\xe4", 1, -1},
             {"same", "same", 100, 0},
             {"", "", 1, 0},
             {"x", "y", 0, 0},
         }) {
        EXPECT_EQ(sign(stringCompareNoCase(a, b, count)), expected) << a << " and " << b << ", " << count;
        EXPECT_EQ(sign(stringCompareNoCase(b, a, count)), -expected) << b << " and " << a << ", " << count;
    }
}

TEST(StringHelper, ComparesTextThatIsNotTerminated) {
    char const text[] = {'H', 'R', 'E', 'F'};
    EXPECT_EQ(stringCompareNoCase(text, "href", sizeof text), 0);
}

TEST(StringHelper, FindsWithoutCase) {
    struct Row {
        char const *text, *needle;
        std::size_t start, position;
    };
    constexpr std::size_t none = std::string::npos;
    for (auto const& [text, needle, start, position] : std::vector<Row>{
             {"<a HREF=x href=y>", "href", 0, 3},
             {"<a HREF=x href=y>", "href", 4, 10},
             {"<a HREF=x href=y>", "hReF", 11, none},
             {"hre", "href", 0, none},
             {"", "href", 0, none},
             {"text", "", 2, 2},
             {"text", "", 4, 4},
             {"text", "", 5, none},
             {"text", "t", 100, none},
             {"ababac", "ABAC", 0, 2},
             {"\xc4", "\xe4", 0, none},
             {"a very long haystack", "THE LONGEST NEEDLE OF THEM ALL", 0, none},
             {"xababababababababababababababac", "ABABABABABABABABABAC", 0, 11},
             {"xababababababababababababababac", "ABABABABABABABABABAC", 12, none},
             {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "AAAAAAAAAAAAAAAAAAAA", 3, 3},
         })
        EXPECT_EQ(stringFindNoCase(text, needle, start), position) << text << ", " << needle << ", " << start;
}

TEST(StringHelper, FindsALongNeedleInTimeInProportionToTheText) {
    std::string const text(1'000'000, 'a');
    std::string const needle = std::string(100'000, 'A') + 'b';
    EXPECT_EQ(stringFindNoCase(text, needle), std::string::npos);
    EXPECT_EQ(stringFindNoCase(text + 'B', needle), 900'000U);
}

TEST(StringHelper, TrimsTheSixWhiteBytesInPlace) {
    EXPECT_EQ(leftTrimmed("\t\n\v\f\r  a b \t"), "a b \t");
    EXPECT_EQ(rightTrimmed("\t a b\t\n\v\f\r "), "\t a b");
    for (char const* const white : {"", " ", "\r\n\t "}) {
        EXPECT_EQ(leftTrimmed(white), "");
        EXPECT_EQ(rightTrimmed(white), "");
    }
    // A no-break space, in Latin-1 and in UTF-8, a NUL and 0x1c to 0x1f are not white.
    for (std::string const& other : {std::string("\xa0"), std::string("\xc2\xa0"), std::string(1, '\0'),
                                     std::string("\x1c"), std::string("\x1f"), std::string("\x85")}) {
        EXPECT_EQ(leftTrimmed(other), other);
        EXPECT_EQ(rightTrimmed(other), other);
    }
}

TEST(StringHelper, FindsTheFirstByteThatIsNotWhite) {
    EXPECT_EQ(stringFindNonWhiteSpace("\t\n\v\f\r x"), 6U);
    EXPECT_EQ(stringFindNonWhiteSpace("a  b", 1), 3U);
    EXPECT_EQ(stringFindNonWhiteSpace("ab", 1), 1U);
    EXPECT_EQ(stringFindNonWhiteSpace("a  ", 1), std::string::npos);
    EXPECT_EQ(stringFindNonWhiteSpace(""), std::string::npos);
    EXPECT_EQ(stringFindNonWhiteSpace("a", 2), std::string::npos);
}

TEST(StringHelper, KeepsOutOfTheLocale) {
    // Whether the machine has this locale or not, the answers are the same.
    std::string const before = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "tr_TR.ISO-8859-9");
    EXPECT_EQ(lowered("TITLE\xdd"), "title\xdd");
    EXPECT_EQ(stringCompareNoCase("TITLE", "title", 5), 0);
    EXPECT_EQ(leftTrimmed("\xa0x"), "\xa0x");
    std::setlocale(LC_ALL, before.c_str());
}

TEST(StringHelper, TakesWellFormedUtf8) {
    for (std::string const& bytes :
         {std::string(), std::string("ascii"), std::string(1, '\0'), std::string("\x7f"),
          std::string("\xc2\x80"), std::string("\xdf\xbf"), std::string("\xe0\xa0\x80"),
          std::string("\xec\xbf\xbf"), std::string("\xed\x9f\xbf"), std::string("\xee\x80\x80"),
          std::string("\xef\xbf\xbf"), std::string("\xf0\x90\x80\x80"), std::string("\xf3\xbf\xbf\xbf"),
          std::string("\xf4\x8f\xbf\xbf"),
          std::string("b\xc3\xbc"
                      "cher.example/\xe2\x82\xac")})
        EXPECT_TRUE(isUtf8(bytes)) << testing::PrintToString(bytes);
}

TEST(StringHelper, RefusesMalformedUtf8) {
    for (auto const& [what, bytes] : std::vector<std::pair<char const*, std::string>>{
             {"a continuation alone", "\x80"},
             {"a continuation after a character", "\xc3\xbc\xbf"},
             {"a first byte alone", "\xc3"},
             {"three bytes cut to two", "\xe2\x82"},
             {"four bytes cut to three", "\xf0\x9f\x98"},
             {"a first byte before ASCII",
              "\xc3"
              "a"},
             {"ASCII as third byte",
              "\xe2\x82"
              "a"},
             {"ASCII as fourth byte",
              "\xf0\x9f\x98"
              "a"},
             {"a first byte as third byte", "\xe2\x82\xc3"},
             {"an overlong slash in two bytes", "\xc0\xaf"},
             {"the last overlong form of two bytes", "\xc1\xbf"},
             {"the last overlong form of three bytes", "\xe0\x9f\xbf"},
             {"the last overlong form of four bytes", "\xf0\x8f\xbf\xbf"},
             {"the first surrogate", "\xed\xa0\x80"},
             {"the last surrogate", "\xed\xbf\xbf"},
             {"U+110000", "\xf4\x90\x80\x80"},
             {"a first byte for U+140000", "\xf5\x80\x80\x80"},
             {"five bytes", "\xf8\x88\x80\x80\x80"},
             {"0xfe", "\xfe"},
             {"0xff", "\xff"},
             {"an error behind good text", "good \xe2\x82\xac, bad \xff, good"},
         })
        EXPECT_FALSE(isUtf8(bytes)) << what;
}

TEST(StringHelper, ReadsNoByteBeyondTheLengthOfAUtf8Text) {
    std::string const euro = "\xe2\x82\xac";
    EXPECT_FALSE(isValidUtf8(euro.data(), 2));
    EXPECT_TRUE(isValidUtf8(nullptr, 0));
}

}  // namespace
