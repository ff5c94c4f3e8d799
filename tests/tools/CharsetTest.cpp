#include "tools/Charset.h"

#include "tests/support/Support.h"

using QuillmarkTool::ToUtf8;

namespace {

std::string converted(std::string const& charset, std::vector<std::string> const& pieces) {
    ToUtf8 toUtf8(charset);
    std::string all;
    for (std::string const& piece : pieces) all += toUtf8.convert(piece);
    return all;
}

}  // namespace

TEST(Charset, ConvertsWhatMailIsWrittenIn) {
    EXPECT_EQ(converted("iso-8859-1", {"b\xfc"
                                       "cher"}),
              "b\xc3\xbc"
              "cher");
    EXPECT_EQ(converted("utf-16le", {std::string("h\0t\0", 4)}), "ht");
    EXPECT_EQ(converted("utf-7", {"+AGgAdAB0AHA-"}), "http");
    EXPECT_EQ(converted("iso-2022-jp", {"\x1b$B$\"\x1b(B"}), "\xe3\x81\x82");
}

TEST(Charset, JoinsACharacterThatIsCutInTwo) {
    EXPECT_EQ(converted("utf-16be", {std::string("\0", 1), "a", std::string("\0", 1), "b"}), "ab");
}

TEST(Charset, MarksWhatIsNoCharacter) {
    EXPECT_EQ(converted("shift_jis", {"a\xff"
                                      "b"}),
              "a?b");
}

TEST(Charset, GoesOnBehindWhatIsNoCharacterWhereTheNextOneBegins) {
    EXPECT_EQ(converted("utf-16le", {std::string("a\0\0\xd8"
                                                 "b\0c\0",
                                                 8)}),
              "a?bc");
    EXPECT_EQ(converted("utf-32be", {std::string("\0\0\0a\xff\xff\xff\xff\0\0\0b", 12)}), "a?b");
}

TEST(Charset, KnowsTheWideOnesByAnyOfTheirNames) {
    for (char const* charset :
         {"utf16le", "utf_16", "ucs2", "ucs-2", "iso-10646-ucs-2", "csunicode", "unicode"})
        EXPECT_EQ(converted(charset, {std::string("h\0t\0", 4)}), "ht") << charset;
    for (char const* charset : {"utf32le", "ucs-4le"})
        EXPECT_EQ(converted(charset, {std::string("h\0\0\0", 4)}), "h") << charset;
    for (char const* charset : {"utf32be", "ucs4", "iso-10646-ucs-4", "csucs4"})
        EXPECT_EQ(converted(charset, {std::string("\0\0\0h", 4)}), "h") << charset;
}

TEST(Charset, LeavesOtherTextAsItIs) {
    for (char const* charset :
         {"", "utf-8", "us-ascii", "x-unknown", "../../etc/passwd", "utf-16//translit", "iso-2022-cn-ext"})
        EXPECT_EQ(converted(charset, {"b\xfc"
                                      "cher"}),
                  "b\xfc"
                  "cher")
            << charset;
}

TEST(Charset, ConvertsMoreThanFitsInOneGo) {
    EXPECT_EQ(converted("iso-8859-1", {std::string(10000, '\xfc')}).size(), 20000U);
}
