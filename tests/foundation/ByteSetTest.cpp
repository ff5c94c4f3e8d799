#include "foundation/ByteSet.h"

#include "tests/support/Support.h"

using namespace Quillmark;

namespace {

std::string members(ByteSet const& set) {
    std::string text;
    for (int byte = 0; byte < 256; ++byte) {
        if (set.contains(byte)) text += static_cast<char>(byte);
    }
    return text;
}

TEST(ByteSet, HoldsTheBytesOfATextAndNoOthers) {
    EXPECT_EQ(members(ByteSet{"<>@"}), "<>@");
}
TEST(ByteSet, HoldsBothEndsOfARange) {
    EXPECT_EQ(members(ByteSet::range('a', 'd')), "abcd");
}
TEST(ByteSet, ReachesTheLastByteValue) {
    EXPECT_EQ(members(ByteSet::range(0xfe, 0xff)), "\xfe\xff");
}
TEST(ByteSet, JoinsTwoSets) {
    EXPECT_EQ(members(ByteSet{"ab"} | ByteSet{"bc"}), "abc");
}
TEST(ByteSet, TurnsIntoTheBytesThatItLacks) {
    EXPECT_EQ(members(~~ByteSet{"x"}), "x");
    EXPECT_EQ(members(~ByteSet{}).size(), 256u);
}
TEST(ByteSet, TakesBytesAsCharactersAndAsNumbers) {
    ByteSet const high = ByteSet::range(0x80, 0xff);
    EXPECT_TRUE(high.contains('\xe4'));
    EXPECT_TRUE(high.contains(static_cast<unsigned char>(0xe4)));
    EXPECT_TRUE(high.contains(0xe4));
    EXPECT_FALSE(high.contains('a'));
}
TEST(ByteSet, KnowsWhiteSpaceWhateverTheLocale) {
    EXPECT_EQ(members(whiteSpaceBytes), "\t\n\v\f\r ");
}
TEST(ByteSet, KnowsLettersAndDigits) {
    EXPECT_EQ(members(alphanumericBytes), "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

}  // namespace
