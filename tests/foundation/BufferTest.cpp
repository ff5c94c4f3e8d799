#include "include2/Buffer"

#include <atomic>
#include <cstring>
#include <thread>

#include "tests/foundation/BufferSupport.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

TEST(Buffer, IsBornEmptyWith1024ZeroBytes) {
    Buffer const buffer;
    EXPECT_EQ(buffer.length(), 0u);
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_EQ(buffer.size(), 1024u);
    EXPECT_EQ(buffer.maxSize(), 0u);
    EXPECT_TRUE(buffer.isResizable());
    EXPECT_FALSE(buffer.sensitiveData());
    EXPECT_EQ(std::string(reinterpret_cast<char const*>(buffer.data()), 1024), std::string(1024, '\0'));
}

TEST(Buffer, TakesZeroForTheDefaultsAndAnyOtherSizeAndStepAsGiven) {
    EXPECT_EQ(Buffer(0, 0).size(), 1024u);
    EXPECT_EQ(Buffer(7, 0).size(), 7u);
    Buffer small(10, 16);
    small.size(11);
    EXPECT_EQ(small.size(), 16u);
    Buffer negativeStep(10, -5);
    negativeStep.size(11);
    EXPECT_EQ(negativeStep.size(), 4096u);
}

TEST(Buffer, RefusesANegativeSizeAsMemoryThatIsNotToBeHad) {
    EXPECT_EQ(failureOf([] { Buffer(-1, 0); }), "BufferException( 4 ) , BufferImpl:269, ");
}

TEST(Buffer, RefusesNullBytesWithASize) {
    EXPECT_EQ(failureOf([] { Buffer(nullptr, 1, false); }), "BufferException( 2 ) , BufferImpl:70, ");
    EXPECT_EQ(failureOf([] { Buffer(nullptr, 1, true); }), "BufferException( 2 ) , BufferImpl:70, ");
    EXPECT_TRUE(Buffer(nullptr, 0, false).isEmpty());
    EXPECT_TRUE(Buffer(nullptr, 0, true).isEmpty());
}

TEST(Buffer, CopiesBytesIntoAnArrayOf1024OrTheirSize) {
    char source[] = "abc";
    Buffer const copy(source, 3, false);
    source[0] = 'x';
    EXPECT_EQ(text(copy), "abc");
    EXPECT_EQ(copy.size(), 1024u);
    EXPECT_EQ(copy.maxSize(), 0u);
    EXPECT_EQ(bytes(std::string(2000, 'a')).size(), 2000u);
}

TEST(Buffer, WrapsTheCallersMemoryAsAFixedBuffer) {
    char memory[] = "abcdefghij";
    {
        Buffer wrapped(memory, 10, true);
        EXPECT_EQ(static_cast<void const*>(wrapped.data()), memory);
        EXPECT_EQ(wrapped.length(), 10u);
        EXPECT_EQ(wrapped.size(), 10u);
        EXPECT_EQ(wrapped.maxSize(), 10u);
        EXPECT_FALSE(wrapped.isResizable());
        wrapped.at(0, 'A');
        wrapped.sensitiveData(true);
    }
    EXPECT_STREQ(memory, "Abcdefghij") << "neither wiped nor freed";
}

TEST(Buffer, SharesItsBytesWithItsCopies) {
    Buffer first = bytes("abc");
    Buffer second(first);
    Buffer third;
    third = second;
    second.append('d');
    EXPECT_EQ(text(first), "abcd");
    EXPECT_EQ(text(third), "abcd");
    EXPECT_EQ(first.data(), third.data());
}

TEST(Buffer, AssignedToItselfStaysAsItIs) {
    Buffer buffer = bytes("abc");
    Buffer const& same = buffer;
    buffer = same;
    EXPECT_EQ(text(buffer), "abc");
}

TEST(Buffer, StaysUsableWhenMovedFrom) {
    Buffer from = bytes("abc");
    Buffer const to = std::move(from);
    EXPECT_EQ(text(from), "abc");
    EXPECT_EQ(from.data(), to.data());
}

TEST(Buffer, EqualsOneWithTheSameRecordOrTheSameBytes) {
    Buffer const abc = bytes("abc");
    Buffer const copy = abc;
    EXPECT_TRUE(abc == copy);
    EXPECT_TRUE(abc == bytes("abc"));
    EXPECT_FALSE(abc == bytes("abd"));
    EXPECT_FALSE(abc == bytes("ab"));
    EXPECT_TRUE(abc != bytes("abcd"));
    EXPECT_TRUE(Buffer() == Buffer(nullptr, 0, true));
}

TEST(Buffer, AtRefusesAnIndexAtTheLength) {
    Buffer const oneByte("x", 1, false);
    EXPECT_EQ(oneByte.at(0), 'x');
    EXPECT_EQ(failureOf([&] { oneByte.at(1); }), "BufferException( 3 ) , BufferImpl:320, ");
}

TEST(Buffer, AtRefusesToSetAByteAtTheLength) {
    Buffer oneByte = bytes("x");
    oneByte.at(0, 'y');
    EXPECT_EQ(text(oneByte), "y");
    EXPECT_EQ(failureOf([&] { oneByte.at(1, 'z'); }), "BufferException( 3 ) , BufferImpl:333, ");
}

TEST(Buffer, FindsAByteAtOrAfterTheStart) {
    Buffer const buffer = bytes("abcab");
    EXPECT_EQ(buffer.find('a', 0), 0u);
    EXPECT_EQ(buffer.find('a', 1), 3u);
    EXPECT_EQ(buffer.find('b', 4), 4u);
    EXPECT_EQ(buffer.find('x', 0), 0xffffffffu);
    EXPECT_EQ(buffer.find('c', 3), Buffer::npos);
    EXPECT_EQ(buffer.find('a', 5), 0xffffffffu) << "start at the length";
    EXPECT_EQ(buffer.find('a', 50), 0xffffffffu);
    EXPECT_EQ(buffer.find('a', -1), 0xffffffffu);
    EXPECT_EQ(Buffer().find(0, 0), 0xffffffffu);
}

TEST(Buffer, FindsANeedleThatFitsWhole) {
    Buffer const buffer = bytes("ababcab");
    EXPECT_EQ(buffer.find(bytes("abc"), 0), 2u);
    EXPECT_EQ(buffer.find(bytes("ab"), 1), 2u);
    EXPECT_EQ(buffer.find(bytes("ab"), 5), 5u);
    EXPECT_EQ(buffer.find(bytes("abc"), 3), 0xffffffffu) << "the end cuts it";
    EXPECT_EQ(buffer.find(bytes("ab"), 7), 0xffffffffu) << "start at the length";
    EXPECT_EQ(buffer.find(bytes("ab"), -1), 0xffffffffu);
    EXPECT_EQ(buffer.find(bytes("ababcabx"), 0), 0xffffffffu);
}

TEST(Buffer, FindsAnEmptyNeedleAtTheStart) {
    Buffer const buffer = bytes("abc");
    EXPECT_EQ(buffer.find(Buffer(), 2), 2u);
    EXPECT_EQ(buffer.find(Buffer(), 3), 0xffffffffu);
    EXPECT_EQ(buffer.find(Buffer(), -1), 0xffffffffu);
}

TEST(Buffer, SearchesManyNearMissesInLinearTime) {
    Buffer const hay = bytes(std::string(2'000'000, 'a'));
    Buffer const needle = bytes(repeated(1'000'000, 'a', "b"));
    EXPECT_EQ(hay.find(needle, 0), Buffer::npos);
}

TEST(Buffer, KnowsSixWhiteSpaceBytes) {
    for (unsigned int c = 0; c < 256; ++c) {
        auto const byte = static_cast<unsigned char>(c);
        bool const white = std::memchr("\t\n\v\f\r ", byte, 6) != nullptr;
        Buffer const buffer(&byte, 1, false);
        EXPECT_EQ(buffer.findWhiteSpace(0), white ? 0u : Buffer::npos) << c;
        EXPECT_EQ(buffer.findNonWhiteSpace(0), white ? Buffer::npos : 0u) << c;
    }
}

TEST(Buffer, FindsWhiteSpaceAndWhatIsNoneFromTheStartOn) {
    Buffer const buffer = bytes("ab \t c ");
    EXPECT_EQ(buffer.findWhiteSpace(0), 2u);
    EXPECT_EQ(buffer.findWhiteSpace(5), 6u);
    EXPECT_EQ(buffer.findNonWhiteSpace(2), 5u);
    EXPECT_EQ(buffer.findNonWhiteSpace(6), Buffer::npos);
    EXPECT_EQ(buffer.findWhiteSpace(7), Buffer::npos);
    EXPECT_EQ(buffer.findWhiteSpace(-1), Buffer::npos);
    EXPECT_EQ(buffer.findNonWhiteSpace(-1), Buffer::npos);
}

TEST(Buffer, ComparesByTheSignOfTheFirstDifference) {
    EXPECT_EQ(bytes("abc").compare(bytes("abd")), -1);
    EXPECT_EQ(bytes("abd").compare(bytes("abc")), 1);
    EXPECT_EQ(bytes("\xff").compare(bytes("a")), 1) << "bytes are unsigned";
    EXPECT_EQ(bytes("abc").compare(bytes("abc")), 0);
}

TEST(Buffer, ComparesEqualToAPrefixAndToWhatItIsAPrefixOf) {
    EXPECT_EQ(bytes("abc").compare(bytes("abcdef")), 0);
    EXPECT_EQ(bytes("abcdef").compare(bytes("abc")), 0);
}

TEST(Buffer, ComparesEmptyBuffersWithoutALook) {
    EXPECT_EQ(Buffer().compare(bytes("a")), -1);
    EXPECT_EQ(Buffer().compare(Buffer()), 0);
    EXPECT_EQ(Buffer().compare(0, 0, raw("a"), 0, 0), 0);
    EXPECT_EQ(Buffer().compare(0, 0, raw("a"), 0, 1), -1);
}

TEST(Buffer, ComparesWithTheArrayOfAnEmptyBuffer) {
    Buffer cleared = bytes("abc");
    cleared.length(0);
    EXPECT_EQ(bytes("abc").compare(cleared), 0);
    EXPECT_EQ(bytes("abd").compare(cleared), 1);
    Buffer const nothing(nullptr, 0, true);
    EXPECT_EQ(bytes("abc").compare(nothing), 1) << "missing bytes are 0";
    EXPECT_EQ(bytes(std::string_view("\0\0", 2)).compare(nothing), 0);
    char two[] = "ab";
    Buffer shortArray(two, 2, true);
    shortArray.length(0);
    EXPECT_EQ(bytes("abc").compare(shortArray), 1);
    EXPECT_EQ(bytes("aac").compare(shortArray), -1);
    EXPECT_EQ(bytes(std::string_view("ab\0", 3)).compare(shortArray), 0);
}

TEST(Buffer, ComparesOverTheSmallerOfLengthAndCount) {
    Buffer const abc = bytes("abc");
    EXPECT_EQ(abc.compare(0, 0, raw("abX"), 0, 2), 0);
    EXPECT_EQ(abc.compare(0, 0, raw("abX"), 0, 3), 1);
    EXPECT_EQ(abc.compare(0, 0, raw("abX"), 0, 0), 1) << "0 means the whole length";
    EXPECT_EQ(abc.compare(0, 0, raw("abd"), 0, 99), -1);
    EXPECT_EQ(abc.compare(77, 0, raw("abc"), 88, 3), 0) << "the first and fourth argument do nothing";
    EXPECT_EQ(abc.compare(0, 0, nullptr, 0, 3), 1) << "null counts as zero bytes";
    EXPECT_EQ(bytes(std::string_view("\0", 1)).compare(0, 0, nullptr, 0, 1), 0);
}

TEST(Buffer, KeepsASkipInsideTheLengthFromComparingForTheDaemons) {
    Buffer const abc = bytes("abc");
    EXPECT_EQ(abc.compare(0, 1, raw("abc"), 0, 0), 0);
    EXPECT_EQ(abc.compare(0, 1, raw("abc"), 0, 3), -1);
    EXPECT_EQ(abc.compare(0, 3, raw("abc"), 0, 3), -1);
    EXPECT_EQ(abc.compare(0, 4, raw("abc"), 0, 3), 0) << "a skip above the length has no effect";
}

TEST(Buffer, SetsItsLengthUpToTheAllocatedSize) {
    Buffer buffer = bytes("abc");
    buffer.length(1);
    EXPECT_EQ(text(buffer), "a");
    buffer.length(3);
    EXPECT_EQ(text(buffer), "abc") << "bytes are not cleared";
    buffer.length(1024);
    EXPECT_EQ(failureOf([&] { buffer.length(1025); }), "BufferException( 3 ) , BufferImpl:174, ");
    EXPECT_EQ(buffer.length(), 1024u);
}

TEST(Buffer, FillsTheBytesInUse) {
    Buffer buffer = bytes("abc");
    buffer.length(2);
    buffer.fill('x');
    buffer.length(3);
    EXPECT_EQ(text(buffer), "xxc");
    Buffer(nullptr, 0, true).fill('x');
}

TEST(Buffer, AssignWritesAndRaisesTheLength) {
    Buffer buffer = bytes("abcdef");
    buffer.assign(0, raw("XY"), 2);
    EXPECT_EQ(text(buffer), "XYcdef");
    buffer.assign(0, raw("12345678"), 8);
    EXPECT_EQ(text(buffer), "12345678");
}

TEST(Buffer, KeepsTheCountOfAssignForTheDaemons) {
    Buffer buffer = bytes("abcdef");
    buffer.assign(2, raw("WXYZ"), 4);
    EXPECT_EQ(text(buffer), "abWXef") << "n - pos bytes";
    buffer.assign(4, raw("12345"), 4);
    EXPECT_EQ(text(buffer), "abWXef") << "none";
    std::string const source(1024, 's');
    buffer.assign(4, raw(source.c_str()), 3);
    EXPECT_EQ(text(buffer), "abWX" + repeated(1020, 's')) << "n below pos: up to the allocated size";
}

TEST(Buffer, AssignOfNoByteRaisesTheLengthToItsPosition) {
    Buffer buffer = bytes("ab");
    buffer.assign(5, raw("12345"), 5);
    EXPECT_EQ(text(buffer), std::string("ab\0\0\0", 5));
    buffer.assign(7, bytes("1234567"));
    EXPECT_EQ(text(buffer), std::string("ab\0\0\0\0\0", 7));
    buffer.assign(9, nullptr, 9);
    EXPECT_EQ(buffer.length(), 9u);
    buffer.assign(3, bytes("123"));
    EXPECT_EQ(buffer.length(), 9u) << "never lowers it";
    buffer.assign(1024, raw(""), 1024);
    EXPECT_EQ(buffer.length(), 9u) << "beyond the array";
}

TEST(Buffer, AssignCutsAtTheAllocatedSizeAndDoesNothingBeyond) {
    char memory[] = "abcdef";
    Buffer wrapped(memory, 6, true);
    wrapped.assign(4, raw("123456789"), 9);
    EXPECT_STREQ(memory, "abcd12");
    wrapped.assign(6, raw("xyz"), 9);
    wrapped.assign(600, nullptr, 9);
    EXPECT_STREQ(memory, "abcd12");
}

TEST(Buffer, AssignRefusesNullWithACount) {
    Buffer buffer = bytes("abc");
    EXPECT_EQ(failureOf([&] { buffer.assign(0, nullptr, 1); }), "BufferException( 2 ) , BufferImpl");
    buffer.assign(0, nullptr, 0);
    EXPECT_EQ(text(buffer), "abc");
}

TEST(Buffer, AssignOfABufferNeverReadsMoreThanItsArray) {
    char memory[] = "123";
    Buffer const source(memory, 3, true);
    Buffer buffer(8, 0);
    buffer.append(raw("abcdefgh"), 8);
    buffer.assign(4, source);  // 3 - 4 wraps: four bytes are written, three are there
    EXPECT_EQ(text(buffer), std::string("abcd123\0", 8));
    buffer.assign(0, bytes("XY"));
    EXPECT_EQ(text(buffer), std::string("XYcd123\0", 8));
    buffer.assign(7, Buffer(nullptr, 0, true));
    EXPECT_EQ(buffer.at(7), 0);
    buffer.assign(8, bytes("no"));
    EXPECT_EQ(buffer.length(), 8u);
}

TEST(Buffer, AssignsABufferToItself) {
    Buffer buffer(8, 0);
    buffer.append(raw("abcdef"), 6);
    buffer.assign(2, buffer);  // 6 - 2 bytes
    EXPECT_EQ(text(buffer), "ababcd");
}

TEST(Buffer, ErasesAndClosesTheGap) {
    Buffer buffer = bytes("abcdef");
    buffer.erase(1, 2);
    EXPECT_EQ(text(buffer), "adef");
    buffer.erase(2, 0xffffffff);
    EXPECT_EQ(text(buffer), "ad");
    buffer.erase(2, 1);
    buffer.erase(3, 1);
    buffer.erase(0, 0);
    EXPECT_EQ(text(buffer), "ad");
}

TEST(Buffer, ShiftsLeftByNoMoreThanItHolds) {
    Buffer buffer = bytes("abcdef");
    buffer.shiftLeft(0);
    buffer.shiftLeft(2);
    EXPECT_EQ(text(buffer), "cdef");
    buffer.shiftLeft(0xffffffff);
    EXPECT_TRUE(buffer.isEmpty());
}

TEST(Buffer, ShiftsRightAndFillsTheFront) {
    Buffer buffer = bytes("abc");
    buffer.shiftRight(2, '-');
    EXPECT_EQ(text(buffer), "--abc");
    buffer.shiftRight(0, '-');
    EXPECT_EQ(text(buffer), "--abc");
}

TEST(Buffer, ShiftsRightTogetherWithTheByteBehindTheLast) {
    Buffer buffer = bytes("abcd");
    buffer.length(3);
    buffer.shiftRight(1, '-');
    buffer.length(5);
    EXPECT_EQ(text(buffer), "-abcd");
}

TEST(Buffer, ShiftRightGrowsForWhatItMoves) {
    Buffer small(4, 16);
    small.append(raw("abcd"), 4);
    small.shiftRight(1, '-');
    EXPECT_EQ(text(small), "-abcd");
    EXPECT_EQ(small.size(), 16u);
    Buffer buffer = bytes("abc");
    buffer.shiftRight(4095, '-');  // the step for 4095 does not hold 4099: a second step
    EXPECT_EQ(text(buffer), repeated(4095, '-', "abc"));
    EXPECT_EQ(buffer.size(), 8192u);
    Buffer none;
    none.shiftRight(4095, '-');
    EXPECT_EQ(none.size(), 4096u);
}

TEST(Buffer, ShiftRightRefusesWhatCannotGrow) {
    char memory[] = "abcdef";
    Buffer wrapped(memory, 6, true);
    EXPECT_EQ(failureOf([&] { wrapped.shiftRight(7, '-'); }), fixedSize);
    EXPECT_EQ(failureOf([&] { wrapped.shiftRight(1, '-'); }), fixedSize);
    wrapped.shiftRight(0, '-');
    EXPECT_EQ(text(wrapped), "abcdef") << "which is nothing to grow for";
    wrapped.length(3);
    EXPECT_EQ(failureOf([&] { wrapped.shiftRight(3, '-'); }), fixedSize) << "one byte more moves along";
    wrapped.shiftRight(2, '-');
    EXPECT_STREQ(memory, "--abcd");
    Buffer limited(6, 16);
    limited.append(raw("abcdef"), 6);
    limited.maxSize(6);
    EXPECT_EQ(failureOf([&] { limited.shiftRight(1, '-'); }), fixedSize);
    EXPECT_EQ(text(limited), "abcdef");
}

TEST(Buffer, CStringEndsWithZeroAndLeavesTheLength) {
    Buffer buffer = bytes("abc");
    EXPECT_STREQ(buffer.c_str(), "abc");
    EXPECT_EQ(static_cast<void const*>(buffer.c_str()), buffer.data());
    EXPECT_EQ(buffer.length(), 3u);
    buffer.append('d');
    EXPECT_EQ(text(buffer), "abcd");
}

TEST(Buffer, CStringOfATextThatEndsWithZeroIsTheText) {
    Buffer buffer(2, 0);
    buffer.append(raw("a"), 2);
    EXPECT_STREQ(buffer.c_str(), "a");
    EXPECT_EQ(buffer.size(), 2u) << "no second 0";
}

TEST(Buffer, CStringOfAnEmptyBufferIsEmpty) {
    Buffer buffer = bytes("abc");
    buffer.length(0);
    EXPECT_STREQ(buffer.c_str(), "");
    EXPECT_EQ(buffer.length(), 0u);
    Buffer nothing(nullptr, 0, true);
    EXPECT_STREQ(nothing.c_str(), "");
    EXPECT_EQ(nothing.length(), 0u);
}

TEST(Buffer, CStringOfAFullBufferGrowsIt) {
    Buffer buffer(3, 16);
    buffer.append(raw("abc"), 3);
    EXPECT_STREQ(buffer.c_str(), "abc");
    EXPECT_EQ(buffer.size(), 16u);
}

TEST(Buffer, CStringOfAFullFixedBufferIsACopy) {
    char memory[] = {'a', 'b', 'c', '!'};
    Buffer wrapped(memory, 3, true);
    wrapped.sensitiveData(true);
    char const* const first = wrapped.c_str();
    EXPECT_STREQ(first, "abc");
    EXPECT_NE(static_cast<void const*>(first), memory);
    EXPECT_EQ(memory[3], '!');
    EXPECT_EQ(wrapped.length(), 3u);
    wrapped.at(0, 'A');
    EXPECT_STREQ(wrapped.c_str(), "Abc");
    Buffer limited(3, 16);
    limited.append(raw("abc"), 3);
    limited.maxSize(3);
    EXPECT_STREQ(limited.c_str(), "abc");
    EXPECT_EQ(limited.length(), 3u);
}

TEST(Buffer, CStringWithAMaximumBelowTheLengthKeepsEveryByte) {
    Buffer buffer = bytes("abc");
    buffer.maxSize(2);
    EXPECT_STREQ(buffer.c_str(), "abc");
    EXPECT_EQ(buffer.length(), 3u);
}

TEST(Buffer, MidCopiesThePartAndCutsTheCount) {
    Buffer const buffer = bytes("abcdef");
    Buffer part = buffer.mid(1, 2);
    EXPECT_EQ(text(part), "bc");
    EXPECT_EQ(part.size(), 1024u);
    part.at(0, 'X');
    EXPECT_EQ(text(buffer), "abcdef");
    EXPECT_EQ(text(buffer.mid(4, 0xffffffff)), "ef");
    EXPECT_EQ(text(buffer.mid(2)), "cdef");
    EXPECT_EQ(text(buffer.left(2)), "ab");
    EXPECT_EQ(text(buffer.right(2)), "ef");
    EXPECT_EQ(failureOf([&] { buffer.mid(7, 0); }), "BufferException( 3 ) , BufferImpl:552, ");
    EXPECT_EQ(failureOf([&] { buffer.mid(7); }), "BufferException( 3 ) , BufferImpl:552, ");
}

TEST(Buffer, MidOfEverythingSharesTheBytes) {
    Buffer const buffer = bytes("abc");
    EXPECT_EQ(buffer.mid(0, 3).data(), buffer.data());
    EXPECT_EQ(buffer.mid(0).data(), buffer.data());
    EXPECT_EQ(buffer.left(99).data(), buffer.data());
    EXPECT_EQ(buffer.right(3).data(), buffer.data());
    EXPECT_EQ(buffer.right(99).data(), buffer.data());
    EXPECT_EQ(Buffer(buffer).right(4).size(), 1024u);
}

TEST(Buffer, MidOfNothingIsAnEmptyWrappedBuffer) {
    Buffer const buffer = bytes("abc");
    for (Buffer const& part : {buffer.mid(1, 0), buffer.mid(3, 5), buffer.mid(3), buffer.left(0),
                               buffer.right(0), Buffer().mid(0, 7)}) {
        EXPECT_EQ(part.length(), 0u);
        EXPECT_EQ(part.size(), 0u);
        EXPECT_FALSE(part.isResizable());
    }
}

TEST(Buffer, ReadsANumberOfItsText) {
    EXPECT_EQ(bufferToInt(bytes("123"), 10), 123);
    EXPECT_EQ(bufferToInt(bytes(" -42x"), 10), -42);
    EXPECT_EQ(bufferToInt(bytes("ff"), 16), 255);
    EXPECT_EQ(bufferToInt(bytes("0x1f"), 0), 31);
    EXPECT_EQ(bufferToInt(bytes("x"), 10), 0);
    EXPECT_EQ(bufferToInt(bytes("4294967297"), 10), 1) << "cut to 32 bits";
    EXPECT_EQ(bufferToUint(bytes("4294967295"), 10), 4294967295u);
    EXPECT_EQ(bufferToUint(bytes("-1"), 10), 4294967295u);
    EXPECT_EQ(bufferToInt(bytes("99999999999999999999"), 10), -1) << "strtol's largest, cut";
}

TEST(Buffer, RefusesTheNumberOfAnEmptyText) {
    EXPECT_EQ(failureOf([] { bufferToInt(Buffer(), 10); }), "BufferException( 2 ) , BufferImpl:930, ");
    EXPECT_EQ(failureOf([] { bufferToUint(Buffer(), 10); }), "BufferException( 2 ) , BufferImpl:930, ");
}

TEST(Buffer, KeepsReadingANumberBeyondTheLengthForTheDaemons) {
    Buffer buffer = bytes("123456");
    buffer.length(3);
    EXPECT_EQ(bufferToInt(buffer, 10), 123456);
}

TEST(Buffer, ReadsANumberNotBeyondTheArray) {
    char memory[] = {'1', '2', '3', '4'};
    EXPECT_EQ(bufferToInt(Buffer(memory, 3, true), 10), 123);
    Buffer longer(memory, 4, true);
    longer.length(2);
    EXPECT_EQ(bufferToUint(longer, 10), 1234u);
}

TEST(Buffer, CopiesAndGoesOnManyThreadsAtOnce) {
    Buffer const shared = bytes("abc");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([shared, &wrong] {
            for (int round = 0; round < 2000; ++round) {
                Buffer const copy(shared);
                Buffer other;
                other = copy;
                if (text(other) != "abc") ++wrong;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(Buffer, ProtectedIsWrittenOnManyThreadsAtOnce) {
    Buffer shared = bytes("abc");
    shared.protect();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([copy = Buffer(shared), i, &wrong]() mutable {
            for (int round = 0; round < 500; ++round) {
                Buffer own(copy);
                own.append(static_cast<unsigned char>('0' + i));
                if (text(own) != "abc" + std::to_string(i)) ++wrong;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(text(shared), "abc");
}
