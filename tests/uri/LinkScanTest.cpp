#include "uri/LinkScan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Quillmark;

LinkScan const& plain() {
    return linkScans().back();
}

std::string marked(std::string_view text, HighBytes highBytes = HighBytes::Unseen) {
    std::string marks(text.size(), ' ');
    for (std::size_t at = plain().nextMark(text, 0, highBytes); at < text.size();
         at = plain().nextMark(text, at + 1, highBytes))
        marks[at] = '^';
    return marks;
}

// Text in which marks are near: what makes one, what spoils one, and what no run goes on behind.
std::string someText(std::mt19937& random, std::size_t size) {
    constexpr std::string_view bytes{"......::[[//ooOOabcd09%~= \n\"!<\x7f\x80\xc3\xbc\xff"};
    bool const prose = random() % 2 == 0;
    std::string text;
    while (text.size() < size)
        text += prose && random() % 16 != 0 ? static_cast<char>('a' + random() % 26)
                                            : bytes[random() % bytes.size()];
    return text;
}

}  // namespace

TEST(LinkScan, MarksWhatIsInEveryRunThatMayBeALink) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"a.b", "  ^"},         {"end. Next", "         "}, {"wait...no", "         "},
        {".com x.", "       "}, {"a.b.c", "  ^  "},         {"http:/x", "    ^  "},
        {"to: x", "  ^  "},     {"MAILTO:x.", "      ^  "}, {"note: 3:4", "         "},
        {"x[1]", " ^  "},       {"a.\"b", "    "},          {"a.!b!.c", "       "},
    };
    for (auto const& [text, marks] : rows) EXPECT_EQ(marked(text), marks) << text;
}

TEST(LinkScan, MarksBytesOfUtf8AsLongAsNobodyKnowsThem) {
    EXPECT_EQ(marked("a\xc3\xbc.b", HighBytes::Unseen), " ^^  ");
    EXPECT_EQ(marked("a\xc3\xbc.b", HighBytes::InLinks), "    ^");
    EXPECT_EQ(marked("a\xc3\xbc.b", HighBytes::Foreign), "     ");
    EXPECT_EQ(marked("a.\xc3\xbc", HighBytes::InLinks), "  ^ ");
}

TEST(LinkScan, LooksAtNothingInFrontOfItsBeginning) {
    EXPECT_EQ(plain().nextMark("a.b", 1, HighBytes::Unseen), 3U);
    EXPECT_EQ(plain().nextMark("o:x", 1, HighBytes::Unseen), 3U);
    EXPECT_EQ(plain().nextMark("abc", 3, HighBytes::Unseen), 3U);
}

TEST(LinkScan, EveryKernelFindsTheMarksOfThePlainOne) {
    std::mt19937 random(1);
    for (LinkScan const& scan : linkScans()) {
        if (!cpuHas(scan.needs)) continue;
        for (std::size_t size = 0; size <= 300; ++size) {
            for (std::size_t offset = 0; offset < 64; ++offset) {
                std::string const held = someText(random, offset + size);
                std::vector<char> const exact(held.begin(), held.end());  // so that reading beyond shows
                std::string_view const text(exact.data() + offset, size);
                auto const highBytes = static_cast<HighBytes>(random() % 3);
                for (std::size_t from = 0; from <= size;) {
                    std::size_t const mark = plain().nextMark(text, from, highBytes);
                    ASSERT_EQ(scan.nextMark(text, from, highBytes), mark)
                        << testing::PrintToString(std::string(text)) << " from " << from;
                    from = mark + 1 + random() % 4;
                }
            }
        }
    }
}
