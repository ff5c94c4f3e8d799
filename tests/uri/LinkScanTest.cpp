#include "uri/LinkScan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ExactTexts.h"

namespace {

using namespace Quillmark;
using QuillmarkTest::onEveryExactText;

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

// The run around a mark: its text, with "[" for a bracket, ".." for dots side by side, and its dots.
std::string ranAt(LinkScan const& scan, std::string_view text, std::size_t from, std::size_t mark,
                  HighBytes highBytes) {
    LinkRun const run = scan.runAt(text, from, mark, highBytes);
    std::string line(text.substr(run.begin, run.end - run.begin));
    (line += run.bracketed ? " [ " : " ") += run.doubledDot ? ".. " : "";
    return line + std::to_string(run.dots) + " at " + std::to_string(run.begin);
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
    EXPECT_EQ(marked("\x80 \x7f \xff", HighBytes::Unseen), "^   ^");
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
        onEveryExactText(
            0, [&](std::size_t size) { return someText(random, size); },
            [&](std::string_view text) {
                auto const highBytes = static_cast<HighBytes>(random() % 3);
                for (std::size_t from = 0; from <= text.size();) {
                    std::size_t const mark = plain().nextMark(text, from, highBytes);
                    ASSERT_EQ(scan.nextMark(text, from, highBytes), mark)
                        << testing::PrintToString(std::string(text)) << " from " << from;
                    from = mark + 1 + random() % 4;
                }
            });
    }
}

TEST(LinkScan, FindsTheRunAroundAMark) {
    struct Row {
        std::string text;
        std::size_t from, mark;
        std::string run;
    } const rows[] = {
        {"see a.b.c now", 0, 6, "a.b.c 2 at 4"},
        {"a.b", 0, 2, "a.b 1 at 0"},
        {"aa.b", 1, 3, "a.b 1 at 1"},
        {"...a.b", 0, 5, "a.b 1 at 3"},
        {"....", 0, 2, " 0 at 4"},
        {"a..b.c", 0, 5, "a..b.c .. 3 at 0"},
        {"x.[::1]..a", 0, 2, "x.[::1]..a [ 1 at 0"},
        {"a b", 0, 1, " 0 at 1"},
        {"a.b\xc3\xbc", 0, 2, "a.b 1 at 0"},
    };
    for (auto const& [text, from, mark, run] : rows)
        EXPECT_EQ(ranAt(plain(), text, from, mark, HighBytes::Unseen), run) << text;
    EXPECT_EQ(ranAt(plain(), "a.b\xc3\xbc!", 0, 2, HighBytes::InLinks), "a.b\xc3\xbc 1 at 0");
}

TEST(LinkScan, EveryKernelFindsTheRunsOfThePlainOne) {
    std::mt19937 random(2);
    for (LinkScan const& scan : linkScans()) {
        if (!cpuHas(scan.needs)) continue;
        onEveryExactText(
            1,
            [&](std::size_t size) {
                std::string text = someText(random, size);
                for (char& c : text)
                    if (random() % 4 != 0) c = "aZ9/-~"[random() % 6];  // runs around the length of a block
                return text;
            },
            [&](std::string_view text) {
                auto const highBytes = static_cast<HighBytes>(random() % 3);
                std::size_t const mark = random() % text.size();
                std::size_t const from = random() % (mark + 1);
                ASSERT_EQ(ranAt(scan, text, from, mark, highBytes),
                          ranAt(plain(), text, from, mark, highBytes))
                    << testing::PrintToString(std::string(text)) << " from " << from << " at " << mark;
            });
    }
}
