#include <tuple>
#include <utility>

#include "include2/ClassifierDetail"
#include "include2/PatternContainer"
#include "include2/StringContainer"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;
using QuillmarkTest::slotOf;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(StringContainer, KeepsTheOrderOfAddingAndRepeats) {
    StringContainer texts;
    EXPECT_THAT(texts.values(), IsEmpty());
    for (char const* text : {"b", "a", "b"}) texts.add(text);
    EXPECT_THAT(texts.values(), ElementsAre("b", "a", "b"));
}

TEST(StringContainer, CopiesMadeBeforeTheFirstTextShareIt) {
    StringContainer const early;
    StringContainer copy(early);
    StringContainer assigned;
    assigned.add("gone");
    assigned = early;
    copy.add("seen by all");
    EXPECT_THAT(early.values(), ElementsAre("seen by all"));
    EXPECT_THAT(assigned.values(), ElementsAre("seen by all"));
}

TEST(StringContainer, IsNeverNullNotEvenMovedFrom) {
    StringContainer texts;
    StringContainer taken(std::move(texts));
    StringContainer assigned;
    assigned = std::move(taken);
    for (StringContainer* each : {&texts, &taken, &assigned})
        each->add("a");  // NOLINT(bugprone-use-after-move)
    EXPECT_THAT(assigned.values(), ElementsAre("a", "a", "a"));
}

TEST(PatternContainer, KeepsPatternsOnceAndInByteOrder) {
    PatternContainer patterns;
    for (char const* pattern : {"a*", "*.EXE", "a*", "\xc3\xa4*"}) patterns.add(pattern);
    EXPECT_THAT(patterns.patterns(), ElementsAre("*.EXE", "a*", "\xc3\xa4*"));
}

TEST(PatternContainer, CopiesMadeBeforeTheFirstPatternShareIt) {
    PatternContainer const early;
    PatternContainer copy(early);
    copy.add("*.scr");
    EXPECT_TRUE(early.match("x.scr", nullptr));
}

TEST(PatternContainer, IsNeverNullNotEvenMovedFrom) {
    PatternContainer patterns;
    PatternContainer taken(std::move(patterns));
    PatternContainer assigned;
    assigned = std::move(taken);
    patterns.add("a*");  // NOLINT(bugprone-use-after-move)
    taken.add("b*");     // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(patterns.match("bc", nullptr));
    EXPECT_TRUE(assigned.match("ac", nullptr));
}

TEST(PatternContainer, TheFirstMatchInByteOrderWins) {
    struct Row {
        char const* text;
        char const* pattern;  // null: nothing matches
    };
    PatternContainer patterns;
    for (char const* pattern : {"a*", "*.EXE", "report-?.[dx]oc"}) patterns.add(pattern);
    for (Row const& row : {Row{"setup.exe", "*.EXE"},
                           {"archive.exe", "*.EXE"},
                           {"Archive.zip", "a*"},
                           {"REPORT-1.doc", "report-?.[dx]oc"},
                           {"report-12.doc", nullptr},
                           {"b.zip", nullptr},
                           {"", nullptr},
                           {"setup.exe.txt", nullptr}}) {
        std::string const untouched = "untouched";
        std::string const* matched = &untouched;
        EXPECT_EQ(patterns.match(row.text, &matched), row.pattern != nullptr) << row.text;
        EXPECT_EQ(*matched, row.pattern ? row.pattern : "untouched") << row.text;
    }
}

TEST(PatternContainer, TakesSlashesAndLeadingDotsForOrdinaryAndBackslashesForQuotes) {
    for (auto const& [pattern, text, matches] : {std::tuple{"*.exe", "a/b.exe", true},
                                                 {"a?b", "a/b", true},
                                                 {"*rc", ".profilerc", true},
                                                 {"?a", ".a", true},
                                                 {"[.]a", ".A", true},
                                                 {"\\*", "*", true},
                                                 {"\\*", "\\x", false},
                                                 {"[!a-c]", "B", false}}) {
        PatternContainer patterns;
        patterns.add(pattern);
        EXPECT_EQ(patterns.match(text, nullptr), matches) << pattern << " against " << text;
    }
}

TEST(PatternContainer, PointsIntoItsOwnSet) {
    PatternContainer patterns;
    patterns.add("*.exe");
    std::string const* matched = nullptr;
    ASSERT_TRUE(patterns.match("a.exe", &matched));
    EXPECT_EQ(matched, &*patterns.patterns().begin());
}

TEST(PatternContainer, AnEmptyOneMatchesNothing) {
    EXPECT_FALSE(PatternContainer().match("a", nullptr));
}

// The system that opens an attachment ends its name there, too.
TEST(PatternContainer, ATextEndsAtItsFirstNul) {
    PatternContainer patterns;
    patterns.add("*.exe");
    EXPECT_TRUE(patterns.match(std::string("a.exe\0.txt", 10), nullptr));
}

namespace {

class Found : public ClassifierDetailImpl {
public:
    explicit Found(int& destroyed) : m_destroyed(destroyed) {}
    ~Found() override { ++m_destroyed; }
    bool isVirus() const override { return true; }
    std::string toString(unsigned char selector) const override {
        return "found/" + std::to_string(selector);
    }

private:
    int& m_destroyed;
};

}  // namespace

TEST(ClassifierDetail, SaysWhatTheImplementationSays) {
    int destroyed = 0;
    {
        ClassifierDetail const detail(new Found(destroyed), false);
        ClassifierDetail const copy(detail);
        ClassifierDetail assigned;
        assigned = copy;
        EXPECT_TRUE(assigned.isVirus());
        EXPECT_EQ(copy.toString(7), "found/7");
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(ClassifierDetail, ThePlainOneIsNoVirusAndSaysNothing) {
    ClassifierDetail const detail(new ClassifierDetailImpl, false);
    EXPECT_FALSE(detail.isVirus());
    EXPECT_EQ(detail.toString(255), "");
}

TEST(ClassifierDetail, ANullOneRefusesInTheNameOfTheCall) {
    for (ClassifierDetail const& null : {ClassifierDetail(), ClassifierDetail(nullptr, false)}) {
        EXPECT_EQ(failureOf([&] { null.isVirus(); }), "isVirus( 1 ) ");
        EXPECT_EQ(failureOf([&] { null.toString(0); }), "toString( 1 ) ");
    }
}

TEST(ClassifierDetail, ANullImplementationIsRefusedWhenAReferenceIsToBeTaken) {
    EXPECT_EQ(failureOf([] { ClassifierDetail(nullptr, true); }),
              "RefCounted constructor for RefImpl failed.( 4 ) ");
}

TEST(ClassifierDetail, TakesOneMoreReferenceWhenAsked) {
    int destroyed = 0;
    auto* const impl = new Found(destroyed);
    {
        ClassifierDetail const detail(impl, true);
        EXPECT_EQ(impl->count(), 2U);
    }
    EXPECT_EQ(destroyed, 0);
    impl->release();
    EXPECT_EQ(destroyed, 1);
}

TEST(ClassifierDetail, KeepsTheOrderOfVirtualOperations) {
    EXPECT_EQ(slotOf(&ClassifierDetailImpl::isVirus), 2U);
    EXPECT_EQ(slotOf(&ClassifierDetailImpl::toString), 3U);
}
