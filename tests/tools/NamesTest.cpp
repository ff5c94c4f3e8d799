#include "tools/Names.h"

#include <algorithm>
#include <filesystem>

#include "tests/tools/Tool.h"

using namespace QuillmarkTool;
using QuillmarkTest::TemporaryDirectory;

namespace {

/// Names that share beginnings, in no order.
std::vector<std::string> someNames(unsigned int count) {
    std::vector<std::string> names;
    for (unsigned int i = 0; i < count; ++i)
        names.push_back("n" + std::to_string(i * 7919 % count) + "\xff:2,S");
    return names;
}

std::vector<std::string> allOf(Names& names) {
    std::vector<std::string> all;
    for (std::string name; names.next(name);) all.push_back(name);
    return all;
}

std::vector<std::string> sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(Names, ComeBackInBytewiseOrderWhateverFitsInMemory) {
    TemporaryDirectory const place;
    for (std::size_t const memory : {0U, 1U, 1000U, 50000U, 1U << 24})
        for (unsigned int const count : {0U, 1U, 2U, 50U, 3001U}) {
            Names names(place.file("runXXXXXX"), memory);
            std::vector<std::string> const given = someNames(count);
            EXPECT_TRUE(names.empty());
            for (std::string const& name : given) names.add(name);
            EXPECT_EQ(names.empty(), count == 0);
            EXPECT_EQ(allOf(names), sorted(given)) << memory << " bytes, " << count << " names";
            std::string more;
            EXPECT_FALSE(names.next(more));
            EXPECT_TRUE(std::filesystem::is_empty(place.path())) << "a file has a name";
        }
}

TEST(Names, LongerThanABlockComeBackWhole) {
    TemporaryDirectory const place;
    Names names(place.file("runXXXXXX"), 0);
    std::vector<std::string> given;
    for (std::size_t const length : {16383U, 16384U, 16385U, 40000U, 0U, 1U}) {
        given.push_back(std::string(length, 'x'));
        names.add(given.back());
    }
    EXPECT_EQ(allOf(names), sorted(given));
}

TEST(Names, StayInMemoryWhereNoFileCanBeMade) {
    Names names("/nonexistent/runXXXXXX", 10);
    std::vector<std::string> const given = someNames(100);
    for (std::string const& name : given) names.add(name);
    EXPECT_EQ(allOf(names), sorted(given));
}

TEST(Names, LeaveNoDescriptorBehind) {
    TemporaryDirectory const place;
    std::size_t const before = QuillmarkTest::openDescriptors();
    {
        Names first(place.file("runXXXXXX"), 0);
        first.add("b");
        first.add("a");
        Names second(std::move(first));
        EXPECT_EQ(allOf(second), (std::vector<std::string>{"a", "b"}));
        EXPECT_EQ(QuillmarkTest::openDescriptors(), before + 1);
    }
    EXPECT_EQ(QuillmarkTest::openDescriptors(), before);
}
