// Growth, maximum sizes, copy on write, wiping.

#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "include2/Buffer"
#include "tests/foundation/BufferSupport.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

thread_local bool recordsFail = false;

constexpr unsigned int largest = 0xffffffff;

struct Wiped {
    void const* begin;
    std::size_t size;
    bool operator==(Wiped const& other) const { return begin == other.begin && size == other.size; }
};
std::vector<Wiped> wiped;

}  // namespace

// The library wipes with this one.
extern "C" QUILLMARK_EXPORT void explicit_bzero(void* bytes, std::size_t size) noexcept {
    wiped.push_back({bytes, size});
    std::memset(bytes, 0, size);
}

// The library makes its records with this one; a test may have it fail.
void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
    if (recordsFail) return nullptr;
    try {
        return ::operator new(size);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

TEST(BufferGrowth, AppendsAllForms) {
    Buffer buffer;
    unsigned char changeable[] = {'b', 'c'};
    buffer.append('a');
    buffer.append(changeable, 2);
    buffer.append(raw("de"), 2);
    buffer.append(bytes("fg"));
    buffer.append(Buffer());
    EXPECT_EQ(text(buffer), "abcdefg");
}

TEST(BufferGrowth, AppendingNothingDoesNothingAndNullWithACountIsRefused) {
    Buffer buffer = bytes("abc");
    buffer.append(static_cast<unsigned char const*>(nullptr), 0);
    buffer.append(static_cast<unsigned char*>(nullptr), 0);
    EXPECT_EQ(failureOf([&] { buffer.append(static_cast<unsigned char const*>(nullptr), 1); }),
              "BufferException( 2 ) , BufferImpl:356, ");
    EXPECT_EQ(failureOf([&] { buffer.append(static_cast<unsigned char*>(nullptr), 1); }),
              "BufferException( 2 ) , BufferImpl:356, ");
    EXPECT_EQ(text(buffer), "abc");
}

TEST(BufferGrowth, AppendGrowsFromTheAllocatedSizeNotTheLength) {
    Buffer buffer(0, 0);
    buffer.append(bytes(std::string(1025, 'x')));
    EXPECT_EQ(buffer.size(), 4096u);  // ((1024 + 1025) / 4096 + 1) * 4096
    Buffer other(4000, 0);
    other.append(bytes(std::string(4001, 'x')));
    EXPECT_EQ(other.size(), 8192u) << "8001 bytes round to 8192";
    Buffer third(4096, 0);
    third.length(4096);
    third.append('x');
    EXPECT_EQ(third.size(), 8192u);
}

TEST(BufferGrowth, AppendsByteByByteInLinearTime) {
    Buffer buffer(1, 1);  // the smallest step there is
    for (int i = 0; i < 1'000'000; ++i) buffer.append(static_cast<unsigned char>(i));
    EXPECT_EQ(buffer.length(), 1'000'000u);
    EXPECT_EQ(buffer.at(255), 255);
    EXPECT_EQ(buffer.at(999'999), static_cast<unsigned char>(999'999 & 255));
}

TEST(BufferGrowth, AppendsTheMemoryThatItLeaves) {
    char memory[] = "abcdef";
    Buffer buffer(memory, 6, true);
    buffer.protect();
    buffer.maxSize(0);
    buffer.length(0);
    buffer.append(raw("ABCDEF"), 6);
    EXPECT_STREQ(memory, "ABCDEF") << "the wrapped memory has room";
    buffer.length(0);
    buffer.append(Buffer(memory, 7, true));
    EXPECT_EQ(text(buffer), std::string("ABCDEF\0", 7));
}

TEST(BufferGrowth, AppendsToItself) {
    Buffer buffer(4, 16);
    buffer.append(raw("abcd"), 4);
    buffer.append(buffer);
    EXPECT_EQ(text(buffer), "abcdabcd");
    buffer.append(Buffer(buffer));
    EXPECT_EQ(text(buffer), "abcdabcdabcdabcd");
    buffer.length(3);
    buffer.sensitiveData(true);
    for (int i = 0; i < 14; ++i) buffer.append(buffer.data() + 1, 2);
    EXPECT_EQ(text(buffer), "abcbcbcbcbcbcbcbcbcbcbcbcbcbcbc");
    buffer.protect();
    Buffer const sharer(buffer);
    buffer.length(3);
    buffer.append(buffer);
    EXPECT_EQ(text(buffer), "abcabc");
    EXPECT_EQ(text(sharer).substr(0, 6), "abcbcb");
}

TEST(BufferGrowth, AppendsTheBytesOfASharerThatStaysBehind) {
    Buffer first = bytes("abc");
    first.protect();
    Buffer second(first);
    second.append(first);
    EXPECT_EQ(text(second), "abcabc");
    second.append(second.data(), 3);
    EXPECT_EQ(text(second), "abcabcabc");
    EXPECT_EQ(text(first), "abc");
}

TEST(BufferGrowth, AppendsWhatGrowingClearedOfItsOwn) {
    Buffer buffer(4, 1);
    buffer.append(raw("abcd"), 4);
    buffer.length(2);
    buffer.append(buffer.data() + 1, 3);
    EXPECT_EQ(text(buffer), std::string("abb\0\0", 5));
}

TEST(BufferGrowth, HeedsAMaximumThatIsSetBetweenAppends) {
    Buffer buffer;
    buffer.append('a');
    buffer.maxSize(2);
    buffer.append('b');
    buffer.append('c');
    buffer.append(raw("de"), 2);
    EXPECT_EQ(text(buffer), "ab");
    buffer.maxSize(4);
    buffer.append(raw("cdef"), 4);
    buffer.append('g');
    EXPECT_EQ(text(buffer), "abcd");
    buffer.maxSize(1);
    buffer.append('e');
    buffer.append(raw("e"), 1);
    EXPECT_EQ(text(buffer), "abcd");
    buffer.length(0);
    buffer.append('x');
    buffer.append('y');
    EXPECT_EQ(text(buffer), "x");
}

TEST(BufferGrowth, HeedsProtectionThatComesBetweenAppends) {
    Buffer first;
    first.append('a');
    first.protect();
    Buffer second(first);
    first.append('b');
    first.append(raw("c"), 1);
    second.append('d');
    Buffer third(first);
    third.unprotect();
    third.append('e');
    Buffer const fourth(third);
    third.append('f');
    EXPECT_EQ(text(first), "abc");
    EXPECT_EQ(text(second), "ad");
    EXPECT_EQ(text(fourth), "abcef") << "shared again";
}

TEST(BufferGrowth, SizeGrowsInWholeStepsBeyondTheRequest) {
    Buffer buffer;
    buffer.size(1024);
    EXPECT_EQ(buffer.size(), 1024u);
    buffer.size(1025);
    EXPECT_EQ(buffer.size(), 4096u);
    Buffer whole;
    whole.size(4096);
    EXPECT_EQ(whole.size(), 8192u) << "always a step beyond";
    whole.size(1);
    EXPECT_EQ(whole.size(), 8192u) << "never less";
    Buffer odd(10, 7);
    odd.size(11);
    EXPECT_EQ(odd.size(), 14u);
    odd.size(28);
    EXPECT_EQ(odd.size(), 35u);
}

TEST(BufferGrowth, ClearsWhatLiesBeyondTheLength) {
    Buffer buffer(4, 16);
    buffer.append(raw("abcd"), 4);
    buffer.length(2);
    buffer.size(5);
    buffer.length(16);
    EXPECT_EQ(text(buffer), std::string("ab") + repeated(14, '\0'));
}

TEST(BufferGrowth, GrowsALittleManyTimesOverAndStaysClear) {
    Buffer buffer(1, 1);
    for (unsigned int n = 2; n < 300; n += 7) {
        buffer.size(n);
        EXPECT_EQ(buffer.size(), n + 1);
        buffer.length(buffer.size());
        EXPECT_EQ(text(buffer), std::string(n + 1, '\0'));
        buffer.fill('x');
        buffer.length(0);
    }
}

TEST(BufferGrowth, GrowSizeIsAtLeast4096) {
    Buffer buffer;
    EXPECT_EQ(buffer.growSize(1), 4096u);
    EXPECT_EQ(buffer.growSize(10000), 10000u);
    buffer.size(1025);
    EXPECT_EQ(buffer.size(), 10000u);
}

TEST(BufferGrowth, MaximumCutsWhatSizeAllocates) {
    Buffer buffer;
    buffer.maxSize(2000);
    EXPECT_EQ(buffer.maxSize(), 2000u);
    buffer.size(1500);
    EXPECT_EQ(buffer.size(), 2000u);
    buffer.size(3000);
    EXPECT_EQ(buffer.size(), 2000u);
    buffer.maxSize(10);
    EXPECT_EQ(buffer.size(), 2000u) << "never shrinks";
    buffer.size(3000);
    buffer.increaseBuffer(3000);
    EXPECT_EQ(buffer.size(), 2000u) << "not by an attempt to grow either";
}

TEST(BufferGrowth, MaximumDropsTheExcessOfAnAppend) {
    Buffer buffer(4, 4);
    buffer.maxSize(10);
    buffer.append(raw("abcdefg"), 7);
    EXPECT_EQ(text(buffer), "abcdefg");
    EXPECT_EQ(buffer.size(), 10u);
    buffer.append(raw("hijklm"), 6);
    EXPECT_EQ(text(buffer), "abcdefghij");
    buffer.append('k');
    EXPECT_EQ(text(buffer), "abcdefghij");
}

TEST(BufferGrowth, MaximumBelowTheLengthDropsEverythingAndKeepsTheLength) {
    Buffer buffer = bytes("abcdef");
    buffer.maxSize(3);
    buffer.append(raw("xyz"), 3);
    EXPECT_EQ(text(buffer), "abcdef");
}

TEST(BufferGrowth, MaximumOfZeroIsNoMaximum) {
    Buffer buffer(4, 4);
    buffer.maxSize(4);
    buffer.append(raw("abcdef"), 6);
    EXPECT_EQ(text(buffer), "abcd");
    buffer.maxSize(0);
    buffer.append(raw("ef"), 2);
    EXPECT_EQ(text(buffer), "abcdef");
}

TEST(BufferGrowth, FullWrappedMemoryDropsWhatIsAppended) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    wrapped.append(raw("xyz"), 3);
    wrapped.append('!');
    EXPECT_EQ(text(wrapped), "abcdefghij");
    wrapped.length(8);
    wrapped.append(raw("xyz"), 3);
    EXPECT_STREQ(memory, "abcdefghxy");
}

TEST(BufferGrowth, WrappedMemoryRefusesToGrow) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    wrapped.size(10);
    EXPECT_EQ(failureOf([&] { wrapped.size(20); }), fixedSize);
    EXPECT_EQ(failureOf([&] { wrapped.maxSize(20); }),
              "BufferException( 2 ) , BufferImpl:141,  "
              "\"Can't change the maximum size of a fixed size buffer.\"");
    wrapped.increaseBuffer(20);
    EXPECT_EQ(wrapped.size(), 10u) << "without a word";
}

TEST(BufferGrowth, ProtectedWrappedMemoryGrowsIntoBytesOfItsOwn) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    wrapped.protect();
    EXPECT_TRUE(wrapped.isResizable());
    wrapped.size(20);
    EXPECT_EQ(wrapped.size(), 4096u);
    EXPECT_EQ(wrapped.maxSize(), 0u);
    wrapped.at(0, 'X');
    EXPECT_EQ(text(wrapped), "Xbcdefghij");
    EXPECT_STREQ(memory, "abcdefghij");
    wrapped.append(bytes(std::string(5000, 'y')));
    EXPECT_EQ(wrapped.length(), 5010u);
}

TEST(BufferGrowth, ProtectedWrappedMemoryGrowsByTheDefaultStepWhateverItWasGiven) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    wrapped.growSize(9000);
    wrapped.protect();
    wrapped.size(20);
    EXPECT_EQ(wrapped.size(), 4096u);
    wrapped.size(5000);
    EXPECT_EQ(wrapped.size(), 8192u);
    Buffer increased(memory, 10, true);
    increased.growSize(9000);
    increased.protect();
    increased.increaseBuffer(1);
    EXPECT_EQ(increased.size(), 4096u);
}

TEST(BufferGrowth, ProtectedWrappedMemoryThatIsSharedLeavesTheCallersBytesAlone) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    Buffer other(wrapped);
    other.protect();
    other.at(0, 'X');
    other.append('k');
    EXPECT_EQ(text(other), "Xbcdefghijk");
    EXPECT_EQ(text(wrapped), "abcdefghij");
    EXPECT_FALSE(wrapped.isResizable());
}

TEST(BufferGrowth, ProtectedWrappedMemoryObeysAMaximumOfItsOwn) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    wrapped.protect();
    wrapped.maxSize(15);
    wrapped.append('k');
    EXPECT_EQ(text(wrapped), "abcdefghij") << "appending alone does not make it owned";
    wrapped.length(0);
    wrapped.append(raw("klmnopqrstu"), 11);
    EXPECT_EQ(text(wrapped), "") << "nor when it is empty";
    wrapped.length(10);
    wrapped.size(12);
    EXPECT_EQ(wrapped.size(), 15u);
    wrapped.append(raw("klmnopq"), 7);
    EXPECT_EQ(text(wrapped), "abcdefghijklmno");
}

TEST(BufferGrowth, WrappedMemoryWithoutAMaximumDropsWhatItCannotHold) {
    char memory[] = "abcdefghij";
    Buffer wrapped(memory, 10, true);
    wrapped.protect();
    wrapped.maxSize(0);
    wrapped.unprotect();
    wrapped.append('k');
    EXPECT_EQ(text(wrapped), "abcdefghij");
    wrapped.length(0);
    wrapped.append(raw("klmnopqrstu"), 11);
    EXPECT_EQ(text(wrapped), "klmnopqrstu") << "empty, it becomes owned";
    EXPECT_STREQ(memory, "abcdefghij");
}

TEST(BufferGrowth, EmptyWrappedBuffersBecomeOwnedWhenAppendedTo) {
    Buffer part = bytes("abc").mid(3, 1);
    part.append(raw("xyz"), 3);
    EXPECT_EQ(text(part), "xyz");
    EXPECT_EQ(part.size(), 4096u);
    EXPECT_TRUE(part.isResizable());
    part.append(bytes(std::string(4094, 'a')));
    EXPECT_EQ(part.size(), 8192u) << "(4096 + 4094) / 4096 + 1 steps";
}

TEST(BufferGrowth, IncreaseAddsToTheAllocatedSize) {
    Buffer buffer;
    buffer.increaseBuffer(1);
    EXPECT_EQ(buffer.size(), 4096u);
    buffer.increaseBuffer(1);
    EXPECT_EQ(buffer.size(), 8192u);
    buffer.maxSize(9000);
    buffer.increaseBuffer(1);
    EXPECT_EQ(buffer.size(), 9000u);
    buffer.increaseBuffer(1);
    EXPECT_EQ(buffer.size(), 9000u);
    char memory[] = "abc";
    Buffer wrapped(memory, 3, true);
    wrapped.protect();
    wrapped.increaseBuffer(5);
    EXPECT_EQ(wrapped.size(), 4096u);
    EXPECT_EQ(text(wrapped), "abc");
}

TEST(BufferGrowth, RefusesSizesThatRoundBeyond32Bits) {
    std::string const noMemory = "BufferException( 4 ) , BufferImpl:129, ";
    Buffer buffer = bytes("abc");
    EXPECT_EQ(failureOf([&] { buffer.size(largest); }), noMemory);
    EXPECT_EQ(failureOf([&] { buffer.size(largest - 4095); }), noMemory);
    EXPECT_EQ(failureOf([&] { buffer.shiftRight(largest, 'x'); }), noMemory);
    EXPECT_EQ(failureOf([&] { buffer.increaseBuffer(largest); }), noMemory);
    EXPECT_EQ(failureOf([&] { buffer.append(raw("x"), largest); }), noMemory) << "before a byte is read";
    EXPECT_EQ(text(buffer), "abc");
    EXPECT_EQ(buffer.size(), 1024u);
    buffer.maxSize(2048);
    buffer.size(largest);
    EXPECT_EQ(buffer.size(), 2048u) << "the maximum cuts first";
}

TEST(BufferGrowth, RefusesARecordThatCannotBeAllocated) {
    onAnotherThread([] {  // which has kept none
        auto const failing = [](std::function<void()> const& action) {
            return failureOf([&] {
                struct Fails {
                    Fails() { recordsFail = true; }
                    ~Fails() { recordsFail = false; }
                } const fails;
                action();
            });
        };
        Buffer shared = bytes("abc");
        Buffer sharer = shared;
        EXPECT_EQ(failing([] { Buffer(); }), "BufferException( 4 ) , BufferImpl:46, ");
        EXPECT_EQ(failing([] { Buffer(16, 0); }), "BufferException( 4 ) , BufferImpl:46, ");
        EXPECT_EQ(failing([] { Buffer("x", 1, false); }), "BufferException( 4 ) , BufferImpl:46, ");
        EXPECT_EQ(failing([] { Buffer("x", 1, true); }), "BufferException( 4 ) , BufferImpl:55, ");
        EXPECT_EQ(failing([&] { sharer.protect(); }), "BufferException( 4 ) , BufferImpl:46, ");
        LineBuffer line(bytes("its own"));
        EXPECT_EQ(failing([&] { line = shared; }), "BufferException( 4 ) , BufferImpl:46, ");
        EXPECT_EQ(text(line), "its own") << "and not unprotected those of another";
        EXPECT_EQ(text(sharer), "abc");
        EXPECT_EQ(sharer.data(), shared.data());
    });
}

TEST(BufferGrowth, ArraysOfEverySizeGrowAlike) {
    for (unsigned int size = 1; size <= 80; ++size) {
        Buffer buffer(static_cast<int>(size), 0);
        ASSERT_EQ(buffer.size(), size);
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(buffer.data()) % alignof(std::max_align_t), 0U);
        ASSERT_EQ(std::string(buffer.c_str(), size), std::string(size, '\0')) << size;
        std::string const all(size, 'a');
        buffer.append(bytes(all));
        ASSERT_EQ(buffer.size(), size) << "it is full";
        buffer.append('b');
        ASSERT_EQ(text(buffer), all + "b");
        ASSERT_EQ(buffer.size(), 4096U);
        auto const* const behind = std::as_const(buffer).data() + size + 1;
        ASSERT_EQ(std::count(behind, behind + 4095 - size, 0), 4095 - size) << size;
    }
}

// A sanitizer's allocator ends the process where the system's gives null.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(BufferGrowth, RefusesArraysThatCannotBeAllocated) {
    auto const limited = [] {
        Buffer buffer = bytes("abc");
        char memory[] = "wrapped";
        Buffer wrapped(memory, 7, true);
        wrapped.protect();
        rlimit const limit{std::size_t{1} << 29, std::size_t{1} << 29};
        if (::setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(2);
        std::string const noArray = "BufferException( 4 ) , BufferImpl:129, ";
        bool const right =
            failureOf([] { Buffer(2'000'000'000, 0); }) == "BufferException( 4 ) , BufferImpl:269, " &&
            failureOf([&] { buffer.size(2'000'000'000); }) == noArray && text(buffer) == "abc" &&
            failureOf([&] { wrapped.size(2'000'000'000); }) == noArray && text(wrapped) == "wrapped" &&
            wrapped.size() == 7 && wrapped.maxSize() == 7;
        // Room to spare is not to be had, but what is asked for is.
        buffer.size(200 << 20);
        bool const grown = failureOf([&] { buffer.size(300 << 20); }) == "nothing thrown";
        std::_Exit(right && grown ? 0 : 1);
    };
    EXPECT_EXIT(limited(), testing::ExitedWithCode(0), "");
}
#endif

TEST(BufferSharing, ProtectSeparatesFromThoseWhoShareNow) {
    Buffer first = bytes("abc");
    Buffer second(first);
    second.protect();
    second.append('d');
    EXPECT_EQ(text(first), "abc");
    EXPECT_EQ(text(second), "abcd");
}

TEST(BufferSharing, ProtectedCopiesSeparateWhenOneIsChanged) {
    Buffer first = bytes("abc");
    first.protect();
    auto const changed = [&](std::function<void(Buffer&)> const& change) {
        Buffer second(first);
        EXPECT_EQ(static_cast<Buffer const&>(second).data(), static_cast<Buffer const&>(first).data());
        change(second);
        EXPECT_NE(static_cast<Buffer const&>(second).data(), static_cast<Buffer const&>(first).data());
        EXPECT_EQ(text(first), "abc");
        return text(second);
    };
    EXPECT_EQ(changed([](Buffer& b) { b.append('d'); }), "abcd");
    EXPECT_EQ(changed([](Buffer& b) { b.append(raw("de"), 2); }), "abcde");
    EXPECT_EQ(changed([](Buffer& b) { b.append(bytes("de")); }), "abcde");
    EXPECT_EQ(changed([](Buffer& b) { b.assign(0, raw("X"), 1); }), "Xbc");
    EXPECT_EQ(changed([](Buffer& b) { b.assign(0, bytes("X")); }), "Xbc");
    EXPECT_EQ(changed([](Buffer& b) { b.data()[1] = 'X'; }), "aXc");
    EXPECT_EQ(changed([](Buffer& b) { b.at(2, 'X'); }), "abX");
    EXPECT_EQ(changed([](Buffer& b) { b.length(1); }), "a");
    EXPECT_EQ(changed([](Buffer& b) { b.size(5000); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.maxSize(1024); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.growSize(1024); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.fill('x'); }), "xxx");
    EXPECT_EQ(changed([](Buffer& b) { b.erase(0, 1); }), "bc");
    EXPECT_EQ(changed([](Buffer& b) { b.shiftLeft(2); }), "c");
    EXPECT_EQ(changed([](Buffer& b) { b.shiftRight(1, '-'); }), "-abc");
    EXPECT_EQ(changed([](Buffer& b) { b.sensitiveData(true); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.protect(); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.unprotect(); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.c_str(); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { b.increaseBuffer(1); }), "abc");
    EXPECT_EQ(changed([](Buffer& b) { bytes("WFla").decodeBase64(b); }), "XYZ");
}

TEST(BufferSharing, ProtectedCopiesSeparateAlsoWhenAChangeChangesNothing) {
    Buffer const first = [] {
        Buffer limited = bytes("abc");
        limited.maxSize(2000);
        limited.protect();
        return limited;
    }();
    auto const limitAfter = [&](std::function<void(Buffer&)> const& change) {
        Buffer second(first);
        change(second);
        EXPECT_EQ(text(second), "abc");
        return second.maxSize();
    };
    EXPECT_EQ(limitAfter([](Buffer& b) { b.append(Buffer()); }), 0u);
    EXPECT_EQ(limitAfter([](Buffer& b) { b.erase(4, 1); }), 0u) << "beyond the length";
    EXPECT_EQ(limitAfter([](Buffer& b) { b.erase(0, 0); }), 0u);
    EXPECT_EQ(limitAfter([](Buffer& b) { b.assign(5000, raw("x"), 1); }), 0u) << "beyond the size";
    EXPECT_EQ(limitAfter([](Buffer& b) { b.shiftLeft(0); }), 0u);
    EXPECT_EQ(limitAfter([](Buffer& b) { b.shiftRight(0, 'x'); }), 0u);
    EXPECT_EQ(limitAfter([](Buffer& b) { failureOf([&] { b.at(3, 'x'); }); }), 0u);
    EXPECT_EQ(limitAfter([](Buffer& b) { b.append(raw(""), 0); }), 2000u) << "no bytes are no change";
}

TEST(BufferSharing, ABufferThatIsAssignedToItselfIsReadAsItWas) {
    Buffer first = bytes("abcdef");
    first.length(2);
    first.protect();
    Buffer second(first);
    second.assign(4, second);  // as far as the buffer goes: two less four bytes wrap
    EXPECT_EQ(text(second).substr(4, 7), std::string("abcdef\0", 7)) << "with what lay beyond its length";
    EXPECT_EQ(second.length(), 1024u);
    EXPECT_EQ(text(first), "ab");
}

TEST(BufferSharing, ACopyThatSeparatedIsProtectedAsWell) {
    Buffer first = bytes("abc");
    first.protect();
    Buffer second(first);
    second.append('d');
    Buffer third(second);
    third.append('e');
    third.append(raw("f"), 1);
    EXPECT_EQ(text(first), "abc");
    EXPECT_EQ(text(second), "abcd");
    EXPECT_EQ(text(third), "abcdef");
}

TEST(BufferSharing, UnprotectSharesAgain) {
    Buffer first = bytes("abc");
    first.protect();
    first.unprotect();
    Buffer second(first);
    second.append('d');
    EXPECT_EQ(text(first), "abcd");
}

TEST(BufferSharing, ASeparatedCopyKeepsSizeStepAndFlagsButNotTheMaximum) {
    Buffer first(100, 10);
    first.append(raw("abc"), 3);
    first.maxSize(200);
    first.sensitiveData(true);
    Buffer second(first);
    second.protect();
    EXPECT_EQ(second.size(), 100u);
    EXPECT_EQ(second.maxSize(), 0u);
    EXPECT_TRUE(second.sensitiveData());
    EXPECT_EQ(first.maxSize(), 200u);
    second.size(101);
    EXPECT_EQ(second.size(), 110u);
    Buffer third(second);
    third.append('d');
    EXPECT_EQ(text(second), "abc") << "it is protected as well";
}

TEST(BufferSharing, ASeparatedCopyOfAnEmptyWrappedBufferHasTheDefaults) {
    Buffer const empty(nullptr, 0, true);
    Buffer copy(empty);
    copy.protect();
    EXPECT_EQ(copy.size(), 1024u);
    copy.size(1025);
    EXPECT_EQ(copy.size(), 4096u);
}

TEST(BufferWiping, SensitiveDataIsAFlagOfTheRecord) {
    Buffer first;
    Buffer second(first);
    second.sensitiveData(true);
    EXPECT_TRUE(first.sensitiveData());
    first.sensitiveData(false);
    EXPECT_FALSE(second.sensitiveData());
}

TEST(BufferWiping, EraseAndShiftLeftZeroTheBytesThatTheyFree) {
    char memory[] = "abcdef";
    Buffer wrapped(memory, 6, true);
    wrapped.sensitiveData(true);
    wrapped.erase(1, 2);
    EXPECT_EQ(std::string(memory, 6), std::string("adef\0\0", 6));
    wrapped.shiftLeft(3);
    EXPECT_EQ(std::string(memory, 6), std::string("f\0\0\0\0\0", 6));
}

TEST(BufferWiping, WithoutTheFlagTheFreedBytesStay) {
    char memory[] = "abcdef";
    Buffer wrapped(memory, 6, true);
    wrapped.erase(1, 2);
    EXPECT_STREQ(memory, "adefef");
    wrapped.shiftLeft(1);
    EXPECT_STREQ(memory, "deffef");
}

TEST(BufferWiping, TheLastCopyWipesTheWholeArray) {
    wiped.clear();
    Wiped array{};
    {
        Buffer buffer = bytes("secret");
        buffer.sensitiveData(true);
        array = {buffer.data(), buffer.size()};
        buffer.length(2);
        { Buffer const copy(buffer); }
        EXPECT_THAT(wiped, testing::IsEmpty());
    }
    EXPECT_THAT(wiped, testing::ElementsAre(array));
}

TEST(BufferWiping, GrowthWipesTheArrayThatItLeaves) {
    wiped.clear();
    Buffer buffer = bytes("secret");
    buffer.sensitiveData(true);
    Wiped const former{buffer.data(), 1024};
    buffer.size(1025);
    EXPECT_EQ(text(buffer), "secret");
    EXPECT_THAT(wiped, testing::ElementsAre(former));
}

TEST(BufferWiping, SmallArraysAreWipedWhenTheyAreLeft) {
    wiped.clear();
    Wiped former{}, last{};
    {
        Buffer buffer(16, 0);
        buffer.append(bytes("secret"));
        buffer.sensitiveData(true);
        former = {buffer.data(), 16};
        buffer.size(17);
        EXPECT_EQ(text(buffer), "secret");
        EXPECT_THAT(wiped, testing::ElementsAre(former));
        Buffer small(16, 0);
        small.sensitiveData(true);
        last = {small.data(), 16};
    }
    EXPECT_THAT(wiped, testing::Contains(last));
}

TEST(BufferWiping, ARecordThatItsLastSharerLeavesIsWiped) {
    wiped.clear();
    Buffer buffer = bytes("secret");
    buffer.sensitiveData(true);
    Wiped const former{buffer.data(), 1024};
    Buffer copy(buffer);
    copy.protect();
    EXPECT_THAT(wiped, testing::IsEmpty());
    buffer = copy;
    EXPECT_THAT(wiped, testing::ElementsAre(former));
}

TEST(BufferWiping, TheTerminatedCopyOfAFullFixedBufferIsWiped) {
    wiped.clear();
    char memory[] = {'k', '\0', 'y'};
    void const* copy = nullptr;
    {
        Buffer wrapped(memory, 3, true);
        wrapped.sensitiveData(true);
        copy = wrapped.c_str();
    }
    EXPECT_THAT(wiped, testing::ElementsAre(Wiped{copy, 3}));
    EXPECT_EQ(memory[2], 'y') << "wrapped memory is not";
}

TEST(BufferWiping, TheCopyThatANumberIsReadFromIsWiped) {
    wiped.clear();
    char memory[] = {'4', '2'};
    Buffer pin(memory, 2, true);
    pin.sensitiveData(true);
    EXPECT_EQ(bufferToInt(pin, 10), 42);
    EXPECT_EQ(wiped.size(), 1u);
}

TEST(BufferWiping, OrdinaryBuffersAreNotWiped) {
    wiped.clear();
    {
        Buffer buffer = bytes("plain");
        buffer.size(1025);
    }
    EXPECT_THAT(wiped, testing::IsEmpty());
}
