#include "tools/Terminal.h"

#include "tests/tools/Tool.h"

using namespace QuillmarkTool;

TEST(Harmless, KeepsTextAndWritesOutTheRest) {
    struct {
        std::string text;
        std::string harmless;
    } const rows[] = {
        {"", ""},
        {"Gr\xc3\xbc\xc3\x9f"
         "e \xf0\x9f\x93\x9a",
         "Gr\xc3\xbc\xc3\x9f"
         "e \xf0\x9f\x93\x9a"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\x1b[2J\x7f\t\n", "\\x1b[2J\\x7f\\x09\\x0a"},
        {"\xc2\x9b"
         "31m",
         "\\u{9b}31m"},
        {"a\xe2\x80\x8b"
         "b\xe2\x80\xae"
         "c\xef\xbb\xbf\xc2\xad",
         "a\\u{200b}b\\u{202e}c\\u{feff}\\u{ad}"},
        {"\xf3\xa0\x81\x81", "\\u{e0041}"},
        {"\xff\xc3", "\\xff\\xc3"},  // no lead byte, and one whose character is cut
        {"\xc0\x80\xe0\x80\x80", "\\xc0\\x80\\xe0\\x80\\x80"},                    // longer than need be
        {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},  // a surrogate, past the end
        {"\xe2\x82", "\\xe2\\x82"},
    };
    for (auto const& row : rows) EXPECT_EQ(harmless(row.text), row.harmless) << QuillmarkTest::hex(row.text);
}

TEST(Harmless, WritesOutEveryCharacterThatNobodySees) {
    struct {
        char32_t first, last;
    } const ranges[] = {
        {0xad, 0xad},       {0x34f, 0x34f},     {0x61c, 0x61c},   {0x115f, 0x1160}, {0x17b4, 0x17b5},
        {0x180b, 0x180f},   {0x200b, 0x200f},   {0x2028, 0x202e}, {0x2060, 0x206f}, {0x3164, 0x3164},
        {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},   {0xffa0, 0xffa0}, {0xfff0, 0xfffb}, {0x1bca0, 0x1bca3},
        {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff},
    };
    auto const utf8 = [](char32_t code) {
        auto const byte = [](char32_t bits) { return static_cast<char>(bits); };
        std::string text;
        if (code < 0x800)
            text = {byte(0xc0 | code >> 6)};
        else if (code < 0x10000)
            text = {byte(0xe0 | code >> 12), byte(0x80 | (code >> 6 & 0x3f))};
        else
            text = {byte(0xf0 | code >> 18), byte(0x80 | (code >> 12 & 0x3f)),
                    byte(0x80 | (code >> 6 & 0x3f))};
        return text + byte(0x80 | (code & 0x3f));
    };
    auto const writtenOut = [](char32_t code) {
        char text[16];
        std::snprintf(text, sizeof text, "\\u{%x}", static_cast<unsigned int>(code));
        return std::string(text);
    };
    for (auto const& [first, last] : ranges) {
        for (char32_t code = first; code <= last; ++code) {
            ASSERT_EQ(harmless("a" + utf8(code) + "b"), "a" + writtenOut(code) + "b");
            ASSERT_EQ(withoutHidden("a" + utf8(code) + "b"), "ab") << writtenOut(code);
        }
        for (char32_t const seen : {first - 1, last + 1})
            EXPECT_EQ(withoutHidden(utf8(seen)), utf8(seen)) << writtenOut(seen);
    }
}

TEST(Columns, CountWhatATerminalShows) {
    EXPECT_EQ(columnsOf("abc"), 3U);
    EXPECT_EQ(columnsOf("\xc3\xbc"), 1U);
    EXPECT_EQ(columnsOf("\xe4\xbe\x8b\xe3\x81\x88"), 4U);  // two wide characters
    EXPECT_EQ(columnsOf("e\xcc\x81"), 1U);                 // a letter and its accent
    EXPECT_EQ(padded("\xe4\xbe\x8b", 4), "\xe4\xbe\x8b  ");
    EXPECT_EQ(padded("long", 2), "long");
}

TEST(BytesForPeople, HaveTwoDigitsAndAUnit) {
    struct {
        std::uint64_t bytes;
        char const* text;
    } const rows[] = {
        {0, "0 B"},
        {999, "999 B"},
        {1000, "1.0 kB"},
        {1049, "1.0 kB"},
        {1050, "1.1 kB"},
        {9949, "9.9 kB"},
        {9950, "10 kB"},
        {10499, "10 kB"},
        {999499, "999 kB"},
        {999500, "1.0 MB"},
        {35000000, "35 MB"},
        {1500000000, "1.5 GB"},
        {18000000000000000000U, "18 EB"},
    };
    for (auto const& row : rows) EXPECT_EQ(bytesForPeople(row.bytes), row.text) << row.bytes;
}

TEST(Counted, KnowsOneAndMany) {
    EXPECT_EQ(counted(0, "part", "parts"), "0 parts");
    EXPECT_EQ(counted(1, "part", "parts"), "1 part");
    EXPECT_EQ(counted(2, "part", "parts"), "2 parts");
}
