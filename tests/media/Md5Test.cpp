#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "include2/Md5"
#include "include2/quillmark.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;
using QuillmarkTest::hex;

// What a C program does with a hasher: tests/media/Md5HasherFromC.c.
extern "C" {
char const* md5HasherOfCDigestsABC(void);
char const* md5HasherOfCRefusesWhatItMust(void);
char const* md5HasherOfCCutsTheText(void);
char const* md5HasherOfCScrambles(void);
}

namespace {

unsigned char const* bytes(std::string_view text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}

void update(Md5Hasher& hasher, std::string_view text) {
    hasher.update(bytes(text), static_cast<unsigned int>(text.size()));
}

std::string digestOf(std::string_view text) {
    Md5Hasher hasher;
    update(hasher, text);
    hasher.finalize();
    return hasher.digestAsHexString();
}

std::string content(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

Md5Hasher finished(std::string_view text) {
    Md5Hasher hasher;
    update(hasher, text);
    hasher.finalize();
    return hasher;
}

/// 0, 1, 2, ... 255, 0, ...
std::string counting(std::size_t length) {
    std::string text(length, '\0');
    for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>(i);
    return text;
}

}  // namespace

TEST(Md5Hasher, DigestsTheTestSuiteOfRfc1321) {
    struct Row {
        char const* text;
        char const* digest;
    };
    Row const rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (Row const& row : rows) EXPECT_EQ(digestOf(row.text), row.digest) << row.text;
}

TEST(Md5Hasher, PadsInputsOfEveryLength) {
    // The digest of the digests of the first 0, 1, ... 300 bytes.
    std::string const text = counting(300);
    std::string all;
    for (std::size_t length = 0; length <= text.size(); ++length) all += digestOf(text.substr(0, length));
    EXPECT_EQ(digestOf(all), "27553b92d10a763e617db79795168b4a");
}

TEST(Md5Hasher, DoesNotMindHowItsInputIsCut) {
    std::string const text = counting(1000);
    std::string const whole = digestOf(text);
    for (std::size_t const piece : {1U, 3U, 55U, 56U, 63U, 64U, 65U, 127U, 128U, 999U}) {
        Md5Hasher hasher;
        for (std::size_t at = 0; at < text.size(); at += piece)
            update(hasher, std::string_view(text).substr(at, piece));
        hasher.finalize();
        EXPECT_EQ(hasher.digestAsHexString(), whole) << piece;
    }
}

TEST(Md5Hasher, ReadsInputAtAnyAddress) {
    std::string const text = counting(200);
    for (std::size_t shift = 1; shift < 8; ++shift)
        EXPECT_EQ(digestOf(std::string_view(std::string(shift, '-') + text).substr(shift)), digestOf(text));
}

TEST(Md5Hasher, CountsBeyondFourThousandMillionBits) {
    // 512 MiB in one piece are more bits than 32 can count. Nobody writes to them, so they cost no memory.
    constexpr std::size_t size = std::size_t{1} << 29;
    void* const zeros = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    std::string_view const text(static_cast<char const*>(zeros), size);
    Md5Hasher hasher;
    update(hasher, text);
    update(hasher, text.substr(0, 5));
    hasher.finalize();
    ::munmap(zeros, size);
    EXPECT_EQ(hasher.digestAsHexString(), "53f83c490b7435d7e205466bfd984882");
}

TEST(Md5Hasher, TakesBuffers) {
    Md5Hasher hasher;
    hasher.update(Buffer());
    hasher.update(Buffer("abc", 3, true));
    hasher.finalize();
    EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hex(content(hasher.digest())), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Hasher, TakesNullOnlyForNothing) {
    Md5Hasher hasher;
    hasher.update(nullptr, 0);
    EXPECT_EQ(failureOf([&] { hasher.update(nullptr, 1); }), "update( 2 )  \"No data to add\"");
    hasher.finalize();
    EXPECT_EQ(hasher.digestAsHexString(), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5Hasher, HasZerosAndNoTextBeforeItIsFinished) {
    Md5Hasher hasher;
    update(hasher, "abc");
    EXPECT_EQ(content(hasher.digest()), std::string(16, '\0'));
    EXPECT_EQ(hasher.digestAsHexString(), "");
    hasher.finalize();
    EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Hasher, TakesNothingMoreOnceItIsFinished) {
    Md5Hasher hasher = finished("abc");
    EXPECT_EQ(failureOf([&] { hasher.update(bytes("x"), 1); }),
              "update( 4 ) , Md5:269,  \"Can't update a finalized digest\"");
    EXPECT_EQ(failureOf([&] { hasher.update(nullptr, 0); }),
              "update( 4 ) , Md5:269,  \"Can't update a finalized digest\"");
    EXPECT_EQ(failureOf([&] { hasher.update(Buffer()); }),
              "update( 4 ) , Md5:269,  \"Can't update a finalized digest\"");
    EXPECT_EQ(failureOf([&] { hasher.finalize(); }),
              "finalize( 4 ) , Md5:317,  \"Already finalized this digest\"");
    EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Hasher, SharesItsDigestWithItsCopies) {
    Md5Hasher first;
    Md5Hasher second(first);
    Md5Hasher third;
    third = second;
    update(first, "a");
    update(second, "b");
    update(third, "c");
    third.finalize();
    EXPECT_EQ(first.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
    Md5Hasher moved(std::move(first));
    EXPECT_EQ(moved.digestAsHexString(), first.digestAsHexString());
}

TEST(Md5Hasher, GivesADigestThatStaysWhenItGoes) {
    Buffer digest;
    {
        Md5Hasher hasher;
        digest = hasher.digest();
        update(hasher, "abc");
        hasher.finalize();
    }
    Buffer const copy(digest);
    EXPECT_EQ(hex(content(copy)), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Hasher, FillsTheDigestThatWasAskedForBefore) {
    Md5Hasher early;
    Buffer const digest = early.digest();
    early.finalize();
    Md5Hasher late;
    late.finalize();
    EXPECT_EQ(digest, late.digest());
    EXPECT_EQ(early.digestAsHexString(), late.digestAsHexString());
}

TEST(Md5Hasher, ReadsWhatACallerMadeOfItsDigest) {
    Md5Hasher hasher;
    hasher.finalize();
    Buffer digest = hasher.digest();
    digest.fill('\x11');
    EXPECT_EQ(hasher.digestAsHexString(), "11111111111111111111111111111111");
    hasher.xorDigest(0x10101010);
    EXPECT_EQ(hasher.digestAsHexString(), "01010101111111111111111111111111");
}

TEST(Md5Hasher, GivesADigestThatCannotGrow) {
    Md5Hasher const hasher = finished("abc");
    Buffer digest = hasher.digest();
    EXPECT_EQ(digest.length(), 16U);
    EXPECT_EQ(digest.size(), 16U);
    EXPECT_FALSE(digest.isResizable());
    EXPECT_EQ(digest.maxSize(), 16U);
    digest.append('x');
    EXPECT_EQ(digest.length(), 16U);
    EXPECT_EQ(failureOf([&] { digest.size(17); }),
              "BufferException( 2 ) , BufferImpl:121,  \"Can't change the size of a fixed size buffer.\"");
    digest.length(3);
    digest.protect();
    digest.append('x');
    EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Hasher, KeptForTheDaemonsScramblesAllButTheFirstWordIntoTheFormerFirst) {
    std::string const first("\x90\x01\x50\x98", 4);
    auto const with = [&first](std::uint32_t key) {
        std::uint32_t word = 0;
        std::memcpy(&word, first.data(), 4);
        word ^= key;
        std::string text(4, '\0');
        std::memcpy(text.data(), &word, 4);
        return text;
    };
    Md5Hasher hasher = finished("abc");
    Buffer const digest = hasher.digest();
    std::uint32_t const key = 0x12345678;
    EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
    hasher.xorDigest(key);
    std::string const once = with(key) + first + first + first;
    EXPECT_EQ(hex(content(digest)), hex(once));
    EXPECT_EQ(hasher.digestAsHexString(), hex(once));
    hasher.xorDigest(key);
    std::string const twice = first + with(key) + with(key) + with(key);
    EXPECT_EQ(hasher.digestAsHexString(), hex(twice));

    Md5Hasher zero = finished("abc");
    zero.xorDigest(0);
    EXPECT_EQ(zero.digestAsHexString(), hex(first + first + first + first));
}

TEST(Md5Hasher, ScramblesOnlyWhatIsFinished) {
    Md5Hasher hasher;
    EXPECT_EQ(failureOf([&] { hasher.xorDigest(1); }),
              "xorDigest( 4 ) , Md5:365,  \"Digest not finalized.\"");
}

TEST(Md5HasherC, DigestsABC) {
    EXPECT_STREQ(md5HasherOfCDigestsABC(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5HasherC, RefusesWhatItMust) {
    EXPECT_STREQ(md5HasherOfCRefusesWhatItMust(), "");
}

TEST(Md5HasherC, CutsTheTextToItsSpace) {
    EXPECT_STREQ(md5HasherOfCCutsTheText(), "");
}

TEST(Md5HasherC, Scrambles) {
    EXPECT_STREQ(md5HasherOfCScrambles(), "");
}
