#include <iterator>
#include <random>

#include "include2/Buffer"
#include "tests/foundation/BufferSupport.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

struct Pair {
    char const* plain;
    char const* encoded;
};

constexpr Pair pairs[] = {
    {"", ""},
    {"M", "TQ=="},
    {"Ma", "TWE="},
    {"Man", "TWFu"},
    {"foobar", "Zm9vYmFy"},
    {"fooba", "Zm9vYmE="},
    {"foob", "Zm9vYg=="},
    {"\xfb\xff\xbf", "+/+/"},
    {"The quick brown fox", "VGhlIHF1aWNrIGJyb3duIGZveA=="},
};

std::string decoded(std::string const& encoded) {
    return text(base64Decode(encoded));
}

std::string failureOfDecoding(std::string const& encoded) {
    return failureOf([&] { base64Decode(encoded); });
}

std::string randomBytes(std::size_t size, unsigned int seed) {
    std::mt19937 random(seed);
    std::string result(size, '\0');
    for (char& c : result) c = static_cast<char>(random());
    return result;
}

constexpr char notExpected0[] =
    "BufferException( 2 ) , BufferImpl:722,  \"Invalid Base64 Encoding: Equal not expected.\"";
constexpr char notExpected1[] =
    "BufferException( 2 ) , BufferImpl:733,  \"Invalid Base64 Encoding: Equal not expected.\"";
constexpr char expected[] =
    "BufferException( 2 ) , BufferImpl:780,  \"Invalid Base64 Encoding: Equal expected.\"";

std::string foreign(std::string const& where) {
    return "BufferException( 2 ) , BufferImpl:709,  \"Invalid Base64 Encoding at pos " + where + "\"";
}

}  // namespace

TEST(Base64, EncodesWithPaddingInOneLine) {
    for (auto const& [plain, encoded] : pairs) EXPECT_EQ(bytes(plain).toBase64String(), encoded) << plain;
    EXPECT_EQ(bytes(std::string(300, 'x')).toBase64String().find('\n'), std::string::npos);
    EXPECT_EQ(Buffer(nullptr, 0, true).toBase64String(), "");
}

TEST(Base64, DecodesWhatItEncodes) {
    for (auto const& [plain, encoded] : pairs) EXPECT_EQ(decoded(encoded), plain) << encoded;
    for (std::size_t size = 0; size < 200; ++size) {
        std::string const plain = randomBytes(size, static_cast<unsigned int>(size));
        EXPECT_EQ(decoded(bytes(plain).toBase64String()), plain) << size;
    }
}

TEST(Base64, SkipsWhiteSpaceAnywhere) {
    EXPECT_EQ(decoded("TW Fu\r\n"), "Man");
    EXPECT_EQ(decoded("\t\n\v\f\r T\tW\nF\vu\fT\rQ ="), "ManM");
    EXPECT_EQ(decoded("TQ = \n = \t"), "M");
    EXPECT_EQ(decoded(" \r\n"), "");
}

TEST(Base64, KeepsTheBytesOfAnIncompleteLastGroup) {
    EXPECT_EQ(decoded("TWFuT"), "Man");
    EXPECT_EQ(decoded("TWFuTW"), "ManM");
    EXPECT_EQ(decoded("TWFuTWE"), "ManMa");
    EXPECT_EQ(decoded("TQ="), "M") << "half the padding";
}

TEST(Base64, TakesMorePaddingThanAGroupHas) {
    EXPECT_EQ(decoded("TQ====="), "M");
    EXPECT_EQ(decoded("TWE=="), "Ma");
}

TEST(Base64, RefusesPaddingWhereAGroupHasOneCharacterOrNone) {
    EXPECT_EQ(failureOfDecoding("=AAA"), notExpected0);
    EXPECT_EQ(failureOfDecoding("TWFu="), notExpected0);
    EXPECT_EQ(failureOfDecoding("A=AA"), notExpected1);
    EXPECT_EQ(failureOfDecoding("TWFu T ="), notExpected1);
}

TEST(Base64, RefusesAnythingButPaddingBehindPadding) {
    EXPECT_EQ(failureOfDecoding("TQ==x"), expected);
    EXPECT_EQ(failureOfDecoding("TQ=x"), expected);
    EXPECT_EQ(failureOfDecoding("TQ==\r\nTWFu"), expected);
    EXPECT_EQ(failureOfDecoding("TQ==#"), foreign("4. Character=0x23"));
}

TEST(Base64, NamesTheForeignByteAndItsPosition) {
    EXPECT_EQ(failureOfDecoding("TQ#="), foreign("2. Character=0x23"));
    EXPECT_EQ(failureOfDecoding("-"), foreign("0. Character=0x2d"));
    EXPECT_EQ(failureOfDecoding("TWFu\r\nT\x7fQ="), foreign("7. Character=0x7f"));
    EXPECT_EQ(failureOfDecoding("TWFu\xc3\xa4"), foreign("4. Character=0xc3"));
    EXPECT_EQ(failureOfDecoding("\xff"), foreign("0. Character=0xff"));
    EXPECT_EQ(failureOfDecoding("\x01"), foreign("0. Character=0x1")) << "digits unpadded";
    EXPECT_EQ(failureOfDecoding(std::string(1, '\0')), foreign("0. Character=0x0"));
    std::string late(100000, 'A');
    late.push_back('_');
    EXPECT_EQ(failureOfDecoding(late), foreign("100000. Character=0x5f"));
}

TEST(Base64, ReplacesWhatTheTargetHeld) {
    Buffer out = bytes("what was there, and longer");
    bytes("TWFu").decodeBase64(out);
    EXPECT_EQ(text(out), "Man");
}

TEST(Base64, MakesRoomByTheRuleOfSize) {
    Buffer small(1, 0);
    bytes("TWFu").decodeBase64(small);
    EXPECT_EQ(small.size(), 4096u);
    Buffer enough(6, 0);
    bytes("TWFu").decodeBase64(enough);
    EXPECT_EQ(enough.size(), 6u) << "4 * 3 / 4 + 3";
    EXPECT_EQ(base64Decode("TWFuTWFuTWFu").size(), 12u);
    EXPECT_EQ(base64Decode("").size(), 1024u);
}

TEST(Base64, DecodesNothingToNothingWithAZeroBehind) {
    Buffer out = bytes("abc");
    Buffer().decodeBase64(out);
    EXPECT_TRUE(out.isEmpty());
    EXPECT_EQ(out.data()[0], 0);
    EXPECT_EQ(out.data()[1], 'b');
}

TEST(Base64, LeavesTheTargetEmptyWhenTheTextIsBad) {
    Buffer out = bytes("abc");
    EXPECT_EQ(failureOf([&] { bytes("TWFuT#").decodeBase64(out); }), foreign("5. Character=0x23"));
    EXPECT_TRUE(out.isEmpty());
}

TEST(Base64, DecodesABufferIntoItself) {
    Buffer buffer = bytes("TWFu TWFu\nTWE=");
    buffer.decodeBase64(buffer);
    EXPECT_EQ(text(buffer), "ManManMa");
    Buffer small(4, 1);
    small.append(bytes("TWFu"));
    small.decodeBase64(small);
    EXPECT_EQ(text(small), "Man") << "the array moves";
    Buffer first = bytes("TWFu");
    Buffer second(first);
    first.decodeBase64(second);
    EXPECT_EQ(text(first), "Man") << "they share the bytes";
}

TEST(Base64, DecodesAProtectedBufferIntoItself) {
    Buffer first = bytes("TWFu");
    first.protect();
    Buffer second(first);
    second.decodeBase64(second);
    EXPECT_EQ(text(second), "Man");
    EXPECT_EQ(text(first), "TWFu");
    Buffer third(first);
    first.decodeBase64(third);
    EXPECT_EQ(text(third), "Man");
    EXPECT_EQ(text(first), "TWFu");
}

TEST(Base64, DecodesIntoMemoryAheadOfTheText) {
    std::string memory = bytes(std::string(300, 'x')).toBase64String();
    auto const half = static_cast<unsigned int>(memory.size() / 2);
    memory += std::string(memory.size(), '\0');
    Buffer const source(memory.data(), half * 2, true);
    Buffer target(memory.data() + 10, half * 3, true);
    source.decodeBase64(target);
    EXPECT_EQ(text(target), std::string(300, 'x'));
}

TEST(Base64, RefusesATargetThatCannotHoldTheBytes) {
    char memory[] = "12345";
    Buffer wrapped(memory, 5, true);
    EXPECT_EQ(failureOf([&] { bytes("TWFu").decodeBase64(wrapped); }), fixedSize);
    Buffer limited(2, 0);
    limited.maxSize(3);
    bytes("TWFu").decodeBase64(limited);
    EXPECT_EQ(text(limited), "Man");
    EXPECT_EQ(failureOf([&] { bytes("TWFuTQ==").decodeBase64(limited); }),
              "BufferException( 3 ) , BufferImpl:174, ");
    EXPECT_TRUE(limited.isEmpty());
    Buffer none(nullptr, 0, true);
    none.protect();
    none.maxSize(1);
    Buffer().decodeBase64(none);
    EXPECT_TRUE(none.isEmpty());
}

TEST(Base64, TablesHoldTheAlphabetWhiteSpaceAndPadding) {
    std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    EXPECT_EQ(BufferImpl::s_Base64Chars, alphabet);
    EXPECT_EQ(std::size(BufferImpl::s_Base64Values), 256u);
    for (unsigned int c = 0; c < 256; ++c) {
        auto const at = alphabet.find(static_cast<char>(c));
        int const value =
            at != std::string::npos ? static_cast<int>(at)
            : c != 0 && std::string("\t\n\v\f\r ").find(static_cast<char>(c)) != std::string::npos ? -2
            : c == '='                                                                             ? -3
                                                                                                   : -1;
        EXPECT_EQ(BufferImpl::s_Base64Values[c], value) << c;
        EXPECT_EQ(Buffer::isValidBase64Char(static_cast<unsigned char>(c)), value != -1) << c;
    }
}
