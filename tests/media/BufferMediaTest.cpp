#include "include2/BufferMedia"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <type_traits>
#include <utility>

#include "platform/quill_cfg.h"
#include "tests/media/Limits.h"
#include "tests/media/Streams.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

std::string const nullHandle = "MediaException( 1 ) , MediaImpl";
std::string const writeFailed = "MediaException( 4097 ) ";

std::string cannotOpen(std::string const& name) {
    return "MediaException( 4099 ) , FileMediaImpl:208,  \"Could Not open " + name + "\"";
}

std::size_t filesIn(std::string const& directory) {
    std::size_t count = 0;
    DIR* const stream = ::opendir(directory.c_str());
    while (dirent const* const entry = ::readdir(stream))
        if (entry->d_name[0] != '.') ++count;
    ::closedir(stream);
    return count;
}

/// A swap output with a directory of its own for the file.
struct Swap {
    explicit Swap(unsigned int limit) : out(limit, directory.file("swapXXXXXX").c_str()) {}

    void write(std::string const& content) { out.write(buffer(content)); }
    std::string fileName() const { return out.fileMedia().tmpfile()->name(); }
    std::string readBack() const { return rest(createMediaInFromSwapBufferMediaOut(out)); }

    TemporaryDirectory directory;
    SwapBufferMediaOut out;
};

}  // namespace

TEST(BufferMediaIn, ReadsFromItsIndexOn) {
    BufferMediaIn in(buffer("abcdef"), 2);
    unsigned char into[4] = {};
    EXPECT_EQ(in.peek(), 4);
    EXPECT_EQ(in.read(into, 3), 3);
    EXPECT_EQ(std::string(into, into + 4), std::string("cde\0", 4));
    EXPECT_EQ(in.tell(), 5U);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(in.read(nullptr, 3), 0);
    EXPECT_EQ(in.read(into, UINT32_MAX), 1);
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(in.peek(), 0);
    EXPECT_EQ(in.read(into, 1), 0);
}

TEST(BufferMediaIn, ReadsAnEmptyBufferByDefault) {
    BufferMediaIn const in;
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(in.length(), 0U);
    EXPECT_EQ(in.peek(), 0);
}

TEST(BufferMediaIn, RefusesToStartAtTheEndOfTheBuffer) {
    std::string const refusal = "BufferMedia.  Attempted to set the index past end of buffer.( 3 ) ";
    Buffer const three = buffer("abc");
    EXPECT_EQ(failureOf([&] { BufferMediaIn(three, 3); }), refusal);
    EXPECT_EQ(failureOf([&] { BufferMediaIn(three, 4); }), refusal);
    EXPECT_EQ(failureOf([&] { BufferMediaIn(Buffer(), 1); }), refusal);
    EXPECT_EQ(failureOf([&] { BufferMediaIn(Buffer(), 0); }), "nothing thrown");
    EXPECT_EQ(rest(BufferMediaIn(three, 2)), "c");
}

TEST(BufferMediaIn, GivesLinesWithTheirLineFeed) {
    BufferMediaIn in(buffer("ab\ncd"));
    Buffer line;
    in.readline(line);
    EXPECT_EQ(text(line), "ab\n");
    EXPECT_EQ(in.peek(), 2);
    in.readline(line);
    EXPECT_EQ(text(line), "cd");
    in.readline(line);
    EXPECT_EQ(text(line), "");
    EXPECT_EQ(in.tell(), 5U);
}

TEST(BufferMediaIn, CutsLinesToTheAllocatedSizeOfTheirBuffer) {
    EXPECT_EQ(lines(BufferMediaIn(buffer("abcdef\ngh\n\n")), Buffer(3, 0)), "abc|def|\n|gh\n|\n|");
    unsigned char byte = 0;
    EXPECT_EQ(lines(BufferMediaIn(buffer("ab\nc")), Buffer(&byte, 1, true)), "a|b|\n|c|");
}

TEST(BufferMediaIn, CutsALongLineInLinearTime) {
    constexpr unsigned int length = 4'000'000;
    BufferMediaIn in(buffer(std::string(length, 'a')));
    Buffer piece(2, 0);
    unsigned int pieces = 0;
    for (; !in.atEnd(); ++pieces) in.readline(piece);
    EXPECT_EQ(pieces, length / 2);
}

TEST(BufferMediaIn, MovesOnWithALineBufferOfNoBytes) {
    Buffer line(nullptr, 0, true);
    BufferMediaIn in(buffer("ab\n"));
    in.readline(line);
    EXPECT_EQ(text(line), "a");
    in.readline(line);
    EXPECT_EQ(text(line), "b\n");
}

TEST(BufferMediaIn, AdvancesByWhatTheLineReallyTook) {
    Buffer line(8, 0);
    line.maxSize(2);
    EXPECT_EQ(lines(BufferMediaIn(buffer("abc\nd")), line), "ab|c\n|d|");
}

TEST(BufferMediaIn, WritesWhatIsLeftInOnePieceAndStays) {
    std::string log;
    MediaOut out = recorder(log);
    BufferMediaIn in(buffer("x" + std::string(20000, 'a')), 1);
    EXPECT_EQ(&in.write(out), &out);
    EXPECT_EQ(log, "[" + std::string(20000, 'a') + "]");
    EXPECT_EQ(in.index(), 1U);
}

TEST(BufferMediaIn, HasAnIndexThatIsCutAndAPositionThatIsNot) {
    BufferMediaIn in(buffer("abc"));
    in.index(2);
    EXPECT_EQ(in.index(), 2U);
    in.index(9);
    EXPECT_EQ(in.index(), 3U);
    in.setpos(0x100000001UL);
    EXPECT_EQ(in.tell(), 0x100000001UL);
}

TEST(BufferMediaIn, HasNothingToReadPastTheEnd) {
    std::string log;
    MediaOut out = recorder(log);
    unsigned char byte = 0;
    for (unsigned long const position : {4UL, 0x100000001UL, ~0UL}) {
        BufferMediaIn in(buffer("abc"));
        in.setpos(position);
        EXPECT_TRUE(in.atEnd()) << position;
        EXPECT_EQ(in.peek(), 0) << position;
        EXPECT_EQ(in.read(&byte, 1), 0) << position;
        EXPECT_EQ(lines(in), "") << position;
        EXPECT_EQ(in.tell(), position);
        in.write(out);
    }
    EXPECT_EQ(log, "[][][]");
}

TEST(BufferMediaIn, SharesTheBufferAsItGrowsAndShrinks) {
    Buffer shared = buffer("abc");
    BufferMediaIn in(shared, 2);
    shared.append(buffer("def"));
    EXPECT_EQ(in.peek(), 4);
    shared.length(1);
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(rest(in), "");
    EXPECT_TRUE(in.buffer() == shared);
    EXPECT_EQ(in.length(), 1U);
}

TEST(BufferMediaIn, GivesTheBytesOfItsBuffer) {
    BufferMediaIn const in(buffer("abc"), 2);
    EXPECT_EQ(in[0], 'a');
    EXPECT_EQ(in.at(2), 'c');
    EXPECT_EQ(failureOf([&] { in.at(3); }), "BufferException( 3 ) , BufferImpl:320, ");
    EXPECT_EQ(failureOf([&] { in[3]; }), "BufferException( 3 ) , BufferImpl:320, ");
}

TEST(BufferMediaIn, ReadsIntoTheBufferThatItReads) {
    Buffer shared = buffer("abcdef");
    BufferMediaIn in(shared, 2);
    EXPECT_EQ(in.MediaIn::read(shared), 4);
    EXPECT_EQ(text(shared), "cdef");
}

TEST(BufferMediaIn, CopiesIntoTheBufferThatItReads) {
    Buffer shared = buffer("abc");
    BufferMediaIn in(shared, 1);
    BufferMediaOut out(shared);
    in.write(out);
    EXPECT_EQ(text(shared), "abcbc");
}

TEST(BufferMediaIn, IsEmptiedThroughItsBase) {
    BufferMediaIn in(buffer("abc"));
    static_cast<MediaIn&>(in) = MediaIn();
    EXPECT_EQ(failureOf([&] { in.length(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.index(0); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.index(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.buffer(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.at(0); }), nullHandle);
}

TEST(BufferMediaOut, AppendsToABufferOfItsOwn) {
    BufferMediaOut out;
    EXPECT_EQ(out.buffer().size(), 8192U);
    out.buffer().size(8193);
    EXPECT_EQ(out.buffer().size(), 12288U) << "the step is 4096";
    out << "ab"
        << "cd";
    out.end();
    EXPECT_EQ(out.tell(), 4U);
    EXPECT_EQ(text(std::as_const(out).buffer()), "abcd");
}

TEST(BufferMediaOut, GoesOnAtTheEndOfTheCallersBuffer) {
    Buffer shared = buffer("abc");
    BufferMediaOut out(shared);
    EXPECT_EQ(out.tell(), 3U);
    out << "de";
    EXPECT_EQ(text(shared), "abcde");
    Buffer other = buffer("x");
    out.buffer(other);
    EXPECT_EQ(out.tell(), 1U);
    out << "y";
    EXPECT_EQ(text(other), "xy");
    EXPECT_EQ(text(shared), "abcde");
}

TEST(BufferMediaOut, OverwritesByTheRuleOfAssign) {
    struct Row {
        unsigned long position;
        std::string written, content;
        unsigned long after;
    };
    Row const rows[] = {
        {0, "ABC", "ABC3456789", 3},
        {2, "ABCDE", "01ABC56789", 7},  // n - position bytes, not n
        {3, "ABC", "0123456789", 6},    // none at all
        {8, "0123456789ABCDEF", "0123456701234567", 24},
        {10, "AB", "0123456789AB", 12},
        {30, "AB", "0123456789AB", 32},  // no gap
        {UINT64_MAX, "AB", "0123456789AB", UINT32_MAX},
        {0, "", "0123456789", 0},
    };
    for (auto const& [position, written, content, after] : rows) {
        Buffer shared = buffer("0123456789");
        BufferMediaOut out(shared);
        out.setpos(position);
        out.write(bytes(written), static_cast<unsigned int>(written.size()));
        EXPECT_EQ(text(shared), content) << position;
        EXPECT_EQ(out.tell(), after) << position;
    }
}

TEST(BufferMediaOut, PutsZerosWhereTheCountOfAssignExceedsWhatItWasGiven) {
    std::string const more(2000, 'x');  // which lies behind what is written and must not be read
    for (std::string const written : {"AB", ""}) {
        Buffer shared = buffer("0123456789");
        BufferMediaOut out(shared);
        out.setpos(8);
        out.write(bytes(written + more), static_cast<unsigned int>(written.size()));
        std::string expected = "01234567" + written;
        expected.resize(1024);
        EXPECT_EQ(text(shared), expected);
        EXPECT_EQ(out.tell(), 8 + written.size());
    }
}

TEST(BufferMediaOut, StopsItsPositionAtTheLargestNumber) {
    BufferMediaOut out;
    out.setpos(0x100000005UL);
    EXPECT_EQ(out.tell(), UINT32_MAX);
    out << "ab";
    EXPECT_EQ(out.tell(), UINT32_MAX);
    EXPECT_EQ(text(out.buffer()), "ab");
}

TEST(BufferMediaOut, CountsWhatABufferDrops) {
    unsigned char space[4] = {'a'};
    Buffer fixed(space, 4, true);
    fixed.length(1);
    BufferMediaOut out(fixed);
    out << "bcdef";
    EXPECT_EQ(text(fixed), "abcd");
    EXPECT_EQ(out.tell(), 6U);
}

TEST(BufferMediaOut, AppendsWhereTheBufferHasShrunk) {
    Buffer shared = buffer("abcdef");
    BufferMediaOut out(shared);
    shared.length(2);
    out << "x";
    EXPECT_EQ(text(shared), "abx");
    EXPECT_EQ(out.tell(), 7U);
}

TEST(BufferMediaOut, IsEmptiedThroughItsBase) {
    BufferMediaOut out;
    Buffer other;
    static_cast<MediaOut&>(out) = MediaOut();
    EXPECT_EQ(failureOf([&] { out.buffer(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.buffer(other); }), nullHandle);
}

TEST(PartialMediaIn, ReadsItsRangeFromWhereTheSourceStands) {
    BufferMediaIn source(buffer("0123456789"));
    source.setpos(3);
    PartialMediaIn in(source, 3, 4);
    EXPECT_EQ(in.peek(), 4);
    EXPECT_EQ(in.tell(), 0U);
    unsigned char into[8] = {};
    EXPECT_EQ(in.read(nullptr, 3), 0);
    EXPECT_EQ(in.read(into, 3), 3);
    EXPECT_EQ(in.tell(), 3U);
    EXPECT_EQ(in.read(into + 3, 5), 1);
    EXPECT_EQ(std::string(into, into + 4), "3456");
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(in.peek(), 0);
    EXPECT_EQ(in.read(into, 1), 0);
    EXPECT_EQ(source.tell(), 7U);
}

TEST(PartialMediaIn, DoesNotMoveTheSourceWhenMade) {
    BufferMediaIn source(buffer("0123456789"));
    PartialMediaIn in(source, 3, 2);
    EXPECT_EQ(rest(in), "01");
}

TEST(PartialMediaIn, GoesToPositionsInsideTheRange) {
    BufferMediaIn source(buffer("0123456789"));
    PartialMediaIn in(source, 3, 4);
    in.setpos(2);
    EXPECT_EQ(source.tell(), 5U);
    EXPECT_EQ(rest(in), "56");
    in.setpos(99);
    EXPECT_EQ(in.tell(), 4U);
    EXPECT_EQ(source.tell(), 7U);
    EXPECT_TRUE(in.atEnd());
    PartialMediaIn far(source, UINT64_MAX - 1, 5);
    far.setpos(3);
    EXPECT_EQ(source.tell(), UINT64_MAX);
    EXPECT_EQ(rest(far), "");
}

TEST(PartialMediaIn, WritesTheWholeRange) {
    std::string log;
    MediaOut out = recorder(log);
    BufferMediaIn source(buffer(std::string(9000, 'a') + "b"));
    PartialMediaIn in(source, 5, 8996);
    EXPECT_EQ(&in.write(out), &out);
    in.write(out);
    std::string const once = "[" + std::string(8192, 'a') + "][" + std::string(803, 'a') + "b]";
    EXPECT_EQ(log, once + once);
}

TEST(PartialMediaIn, ReadsWholeLinesEvenBeyondTheRange) {
    BufferMediaIn source(buffer("ab\ncdef\ngh\n"));
    PartialMediaIn in(source, 0, 5);
    Buffer line;
    in.readline(line);
    EXPECT_EQ(text(line), "ab\n");
    in.readline(line);
    EXPECT_EQ(text(line), "cdef\n");
    EXPECT_EQ(in.tell(), 8U);
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(in.peek(), 0);
    in.readline(line);
    EXPECT_EQ(text(line), "");
}

TEST(PartialMediaIn, EndsWhereTheSourceEnds) {
    BufferMediaIn source(buffer("abc"));
    PartialMediaIn in(source, 0, 10);
    EXPECT_EQ(rest(in), "abc");
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(in.peek(), 0);
    EXPECT_EQ(in.tell(), 3U);
    in.setpos(1);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(lines(in), "bc|");
    EXPECT_TRUE(in.atEnd());
}

TEST(PartialMediaIn, IsNotEndedByAReadOfNothing) {
    BufferMediaIn source(buffer("abc"));
    PartialMediaIn in(source, 0, 10);
    unsigned char into[1];
    EXPECT_EQ(in.read(into, 0), 0);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(rest(in), "abc");
}

TEST(PartialMediaIn, DoesNotCountAFailedRead) {
    MediaIn source = dealer({"ab"}, -1);
    PartialMediaIn in(source, 0, 10);
    unsigned char into[8];
    EXPECT_EQ(in.read(into, 8), 2);
    EXPECT_EQ(in.read(into, 8), -1);
    EXPECT_EQ(in.tell(), 2U);
    EXPECT_TRUE(in.atEnd());
}

TEST(PartialMediaIn, CutsOnlyThePeekTo32Bits) {
    BufferMediaIn source(buffer("abc"));
    PartialMediaIn in(source, 0, 0x200000000UL);
    EXPECT_EQ(in.peek(), 0);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(rest(in), "abc");
    EXPECT_EQ(PartialMediaIn(source, 0, 0x100000005UL).peek(), 5);
    EXPECT_EQ(PartialMediaIn(source, 0, 0xffffffffUL).peek(), -1);
}

TEST(PartialMediaIn, RefusesASourceThatIsNotThere) {
    MediaIn none;
    PartialMediaIn in(none, 0, 1);
    unsigned char byte = 0;
    EXPECT_EQ(failureOf([&] { in.read(&byte, 1); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.setpos(0); }), nullHandle);
}

TEST(SwapBufferMediaOut, StaysInMemoryUpToTheLimit) {
    Swap swap(100);
    EXPECT_TRUE(swap.out.empty());
    swap.write(std::string(60, 'a'));
    swap.write(std::string(40, 'b'));
    EXPECT_EQ(swap.out.cache().length(), 100U);
    EXPECT_EQ(swap.out.tell(), 100U);
    EXPECT_TRUE(swap.out.fileMedia().isNull());
    EXPECT_FALSE(swap.out.empty());
    EXPECT_EQ(filesIn(swap.directory.path()), 0U);
    swap.out.setpos(7);
    swap.out.end();
    EXPECT_EQ(swap.out.tell(), 100U);
    EXPECT_EQ(swap.readBack(), std::string(60, 'a') + std::string(40, 'b'));
}

TEST(SwapBufferMediaOut, MovesToAFileWithTheNextByte) {
    Swap swap(100);
    swap.write(std::string(100, 'a'));
    swap.write("b");
    EXPECT_EQ(swap.out.cache().length(), 0U);
    EXPECT_EQ(swap.out.tell(), 101U);
    EXPECT_EQ(swap.out.totalBytesWritten(), 101U);
    EXPECT_EQ(swap.out.fileMedia().length(), 101U);
    EXPECT_FALSE(swap.out.empty());
    EXPECT_EQ(filesIn(swap.directory.path()), 1U);
    swap.write("c");
    EXPECT_EQ(swap.readBack(), std::string(100, 'a') + "bc");
}

TEST(SwapBufferMediaOut, TakesItsOwnCache) {
    for (bool const release : {true, false}) {
        for (uint_t const limit : {100U, 1500U, 300'000U}) {
            std::string const half = "begin " + std::string(limit * 3 / 5, 'c');
            Swap swap(limit);
            swap.out.autoRelease(release);
            swap.write(half);
            swap.out.write(swap.out.cache());
            EXPECT_TRUE(swap.readBack() == half + half) << limit << ", " << release;
        }
    }
    SwapBufferMediaOut cut(100, nullptr);
    cut << "begin " << std::string(54, 'c');
    cut.write(cut.cache());
    EXPECT_EQ(text(cut.cache()), "begin " + std::string(54, 'c') + "begin " + std::string(34, 'c'));
}

TEST(SwapBufferMediaOut, LeavesAFormerReaderTheCacheThatItLetsGo) {
    Swap swap(10);
    swap.write("0123456789");
    MediaIn const former = createMediaInFromSwapBufferMediaOut(swap.out);
    swap.write("a");
    EXPECT_EQ(swap.out.cache().length(), 0U);
    EXPECT_EQ(rest(former), "0123456789");
}

TEST(SwapBufferMediaOut, StartsItsCacheWithAQuarterOfTheLimit) {
    struct Row {
        unsigned int limit, size, grown;
    };
    for (auto const& [limit, size, grown] : {Row{4000, 1000, 2000}, {40000, 10000, 20000}, {3, 1024, 1024}}) {
        Swap const swap(limit);
        Buffer cache = swap.out.cache();
        EXPECT_EQ(cache.size(), size) << limit;
        EXPECT_EQ(cache.maxSize(), limit);
        cache.size(std::max(size + 1, 1U));
        EXPECT_EQ(cache.size(), grown) << limit;
    }
}

TEST(SwapBufferMediaOut, StartsACacheWithoutAFileAtItsLimit) {
    SwapBufferMediaOut const out(5000, nullptr);
    EXPECT_EQ(out.cache().size(), 5000U);
    EXPECT_EQ(out.cache().maxSize(), 5000U);
    SwapBufferMediaOut const huge(UINT32_MAX, nullptr);
    EXPECT_EQ(huge.cache().size(), 1024U) << "sizes that the buffer's constructor does not take";
    EXPECT_EQ(huge.cache().maxSize(), UINT32_MAX);
}

TEST(SwapBufferMediaOut, DropsWhatDoesNotFitWithoutAFile) {
    SwapBufferMediaOut out(100, nullptr);
    out.write(buffer(std::string(150, 'a')));
    EXPECT_EQ(text(out.cache()), std::string(100, 'a'));
    out.write(buffer("b"));
    EXPECT_EQ(out.cache().length(), 100U);
    EXPECT_EQ(out.totalBytesWritten(), 151U);
    EXPECT_EQ(out.tell(), 100U);
    out.setpos(3);
    out.end();
    EXPECT_EQ(out.tell(), 100U);
    EXPECT_EQ(rest(createMediaInFromSwapBufferMediaOut(out)), std::string(100, 'a'));
}

TEST(SwapBufferMediaOut, IsFullOnceItHadToDropSomething) {
    SwapBufferMediaOut out(4, nullptr);
    out.write(buffer("abcde"));
    out.maxCacheSize(100);
    out.write(buffer("f"));
    EXPECT_EQ(text(out.cache()), "abcd");
}

TEST(SwapBufferMediaOut, KeepsNothingInACacheOfNothing) {
    SwapBufferMediaOut only(0, nullptr);
    only.write(buffer("abc"));
    only.write(buffer("d"));
    EXPECT_EQ(only.cache().length(), 0U);
    EXPECT_EQ(only.totalBytesWritten(), 4U);
    Swap swap(0);
    swap.write("");
    EXPECT_TRUE(swap.out.fileMedia().isNull());
    swap.write("abc");
    EXPECT_EQ(swap.out.cache().length(), 0U);
    EXPECT_EQ(swap.readBack(), "abc");
}

TEST(SwapBufferMediaOut, StillStoresTheWriteThatReachesTheOverallLimit) {
    SwapBufferMediaOut out(100, nullptr);
    out.maxSize(10);
    out.write(buffer("123456"));
    EXPECT_FALSE(out.overflow());
    out.write(buffer("789abc"));
    EXPECT_TRUE(out.overflow());
    out.write(buffer("lost"));
    EXPECT_EQ(text(out.cache()), "123456789abc");
    EXPECT_EQ(out.totalBytesWritten(), 12U) << "what comes after the limit is not counted";
}

TEST(SwapBufferMediaOut, AppliesTheOverallLimitToTheFileToo) {
    Swap swap(2);
    swap.out.maxSize(5);
    swap.write("abcde");
    swap.write("lost");
    EXPECT_EQ(swap.readBack(), "abcde");
}

TEST(SwapBufferMediaOut, CountsUpToTheLargestNumber) {
    SwapBufferMediaOut out(0, nullptr);
    unsigned char const byte = 0;
    out.write(&byte, 0x80000000U);  // dropped unread
    out.write(&byte, 0x80000000U);
    EXPECT_EQ(out.totalBytesWritten(), UINT32_MAX);
}

TEST(SwapBufferMediaOut, KeepsTheBeginningWhenItDoesNotReleaseItsCache) {
    Swap swap(10);
    swap.out.autoRelease(false);
    swap.write("1234567");
    swap.write("89abcdef");
    EXPECT_EQ(text(swap.out.cache()), "123456789a");
    swap.write("gh");
    EXPECT_EQ(text(swap.out.cache()), "123456789a");
    EXPECT_EQ(swap.readBack(), "123456789abcdefgh");
}

TEST(SwapBufferMediaOut, DiscardsACacheThatTheFileHolds) {
    Swap swap(4);
    swap.out.autoRelease(false);
    swap.write("abc");
    swap.out.discardCache();
    EXPECT_EQ(text(swap.out.cache()), "abc") << "not without a file";
    swap.write("def");
    swap.out.discardCache();
    EXPECT_EQ(swap.out.cache().length(), 0U);
    EXPECT_EQ(swap.readBack(), "abcdef");
}

TEST(SwapBufferMediaOut, RaisesTheLimitOfItsCacheOnly) {
    Swap swap(4);
    swap.out.maxCacheSize(3);
    EXPECT_EQ(swap.out.maxCacheSize(), 4U);
    swap.out.maxCacheSize(6);
    EXPECT_EQ(swap.out.maxCacheSize(), 6U);
    EXPECT_EQ(swap.out.cache().maxSize(), 6U);
    swap.write("abcdef");
    EXPECT_EQ(text(swap.out.cache()), "abcdef");
    EXPECT_TRUE(swap.out.fileMedia().isNull());
}

TEST(SwapBufferMediaOut, GrowsInOneStepToARaisedLimit) {
    Swap swap(4000);
    swap.out.maxCacheSize(100000);
    swap.write(std::string(1001, 'a'));
    EXPECT_EQ(swap.out.cache().size(), 99000U) << "steps of the limit less the 1000 bytes of the cache";
    Swap small(3);  // whose cache is larger than its limit
    small.out.maxCacheSize(10000);
    small.write(std::string(1025, 'a'));
    EXPECT_EQ(small.out.cache().size(), 8976U);
}

TEST(SwapBufferMediaOut, MovesThePositionOfItsFile) {
    Swap swap(2);
    swap.write("abcdef");
    swap.out.setpos(1);
    swap.write("X");
    EXPECT_EQ(swap.out.tell(), 7U);
    EXPECT_EQ(swap.readBack(), "aXcdef");
}

TEST(SwapBufferMediaOut, RemovesItsFileWithTheLastHolder) {
    TemporaryDirectory const directory;
    Ref<TempFile> holder;
    {
        SwapBufferMediaOut out(1, directory.file("swapXXXXXX").c_str());
        SwapBufferMediaOut const copy = out;
        out << "abc";
        out = SwapBufferMediaOut(1, nullptr);
        EXPECT_EQ(filesIn(directory.path()), 1U);
        holder = copy.fileMedia().tmpfile();
    }
    EXPECT_EQ(filesIn(directory.path()), 1U);
    holder = Ref<TempFile>();
    EXPECT_EQ(filesIn(directory.path()), 0U);
}

TEST(SwapBufferMediaOut, CanBeReadAfterItIsGone) {
    MediaIn in;
    {
        Swap swap(1);
        swap.write("abc");
        in = createMediaInFromSwapBufferMediaOut(swap.out);
    }
    EXPECT_EQ(rest(in), "abc");
}

TEST(SwapBufferMediaOut, IsOverOnceItsFileWasReadBack) {
    Swap swap(1);
    swap.write("abc");
    EXPECT_EQ(swap.readBack(), "abc");
    EXPECT_EQ(failureOf([&] { swap.write("d"); }), writeFailed);
    EXPECT_EQ(swap.readBack(), "abc") << "what was refused did no harm";
}

TEST(SwapBufferMediaOut, IsReadBackOftenFromAnUnchangedFile) {
    Swap swap(1);
    swap.write("abc");
    swap.out.end();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(swap.readBack(), "abc");
}

TEST(SwapBufferMediaOut, GoesOnInTheCacheAfterReadingBack) {
    Swap swap(10);
    swap.write("abc");
    MediaIn const in = createMediaInFromSwapBufferMediaOut(swap.out);
    swap.write("d");
    EXPECT_EQ(rest(in), "abcd") << "shared";
}

TEST(SwapBufferMediaOut, SpillsWhatItKeptWhenSpillingIsSwitchedOn) {
    TemporaryDirectory const directory;
    SwapBufferMediaOut out(4, directory.file("swapXXXXXX").c_str());
    out.cacheOnly(true);
    out << "abcdef";
    EXPECT_EQ(text(out.cache()), "abcd");
    out.cacheOnly(false);
    EXPECT_EQ(filesIn(directory.path()), 0U);
    out << "gh";
    EXPECT_EQ(rest(createMediaInFromSwapBufferMediaOut(out)), "abcdgh");
}

TEST(SwapBufferMediaOut, DropsWritesWhenSpillingIsSwitchedOff) {
    Swap swap(1);
    swap.write("abc");
    swap.out.cacheOnly(true);
    swap.write("lost");
    EXPECT_EQ(swap.readBack(), "abc");
}

TEST(SwapBufferMediaOut, HasAPlaceOfItsOwnForFiles) {
    TemporaryDirectory const root;
    for (char const* part : {"/var", "/var/spool", "/var/spool/tmp"})
        ::mkdir((root.path() + part).c_str(), 0700);
    quill_path_root(root.path().c_str());
    SwapBufferMediaOut out(1, nullptr);
    out.cacheOnly(false);
    quill_path_root(nullptr);
    out << "abc";
    std::string const name = out.fileMedia().tmpfile()->name();
    std::string const expected = root.path() + "/var/spool/tmp/swap";
    EXPECT_EQ(name.substr(0, expected.size()), expected);
    EXPECT_EQ(name.size(), expected.size() + 6);
}

TEST(SwapBufferMediaOut, KeepsItsTemplateWhenSpillingIsSwitchedOffAndOn) {
    Swap swap(1);
    swap.out.cacheOnly(true);
    swap.out.cacheOnly(false);
    swap.write("abc");
    EXPECT_EQ(filesIn(swap.directory.path()), 1U);
}

TEST(SwapBufferMediaOut, KeepsTheCacheWhenNoFileCanBeMadeAndTriesAgain) {
    TemporaryDirectory const directory;
    std::string const pattern = directory.file("later/swapXXXXXX");
    SwapBufferMediaOut out(4, pattern.c_str());
    out << "abc";
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(failureOf([&] { out << "de"; }),
                  "MediaException( 4099 ) , FileMediaImpl:519,  \"Could Not open "
                  "tempfile " +
                      pattern + "\"");
        EXPECT_EQ(text(out.cache()), "abc");
        EXPECT_EQ(out.tell(), 3U);
    }
    EXPECT_EQ(rest(createMediaInFromSwapBufferMediaOut(out)), "abc");
    ::mkdir(directory.file("later").c_str(), 0700);
    out << "d";
    EXPECT_EQ(rest(createMediaInFromSwapBufferMediaOut(out)), "abcd");
}

TEST(SwapBufferMediaOut, KeepsTheCacheWhenTheFileCannotTakeItWholeAndTriesAgain) {
    Swap swap(100);
    std::string const start(90, 'a');
    swap.write(start);
    std::size_t const descriptors = openDescriptors();
    {
        FileSizeLimit const limit(50);
        EXPECT_EQ(failureOf([&] { swap.write(std::string(20, 'b')); }), writeFailed);
    }
    EXPECT_EQ(text(swap.out.cache()), start);
    EXPECT_TRUE(swap.out.fileMedia().isNull());
    EXPECT_EQ(filesIn(swap.directory.path()), 0U);
    EXPECT_EQ(openDescriptors(), descriptors);
    swap.write("c");
    EXPECT_EQ(swap.out.cache().length(), 0U) << "the next write tries again, whatever its length";
    EXPECT_EQ(swap.readBack(), start + "c");
}

TEST(SwapBufferMediaOut, SaysSoWhenTheFileLosesBytesLater) {
    Swap swap(10);
    swap.write(std::string(20, 'a'));
    {
        FileSizeLimit const limit(15);
        EXPECT_EQ(failureOf([&] { swap.out.end(); }), writeFailed);
    }
    EXPECT_EQ(failureOf([&] { createMediaInFromSwapBufferMediaOut(swap.out); }), writeFailed);
}

TEST(SwapBufferMediaOut, ReadsBackNothingButTheFileThatItMade) {
    Swap swap(1);
    swap.write("abc");
    swap.out.end();
    std::string const name = swap.fileName();
    std::size_t const descriptors = openDescriptors();
    auto const readBack = [&] { return failureOf([&] { createMediaInFromSwapBufferMediaOut(swap.out); }); };

    std::string const elsewhere = swap.directory.file("elsewhere");
    ASSERT_EQ(::rename(name.c_str(), elsewhere.c_str()), 0);
    EXPECT_EQ(readBack(), cannotOpen(name)) << "gone";
    writeFile(name, "xyz");
    EXPECT_EQ(readBack(), cannotOpen(name)) << "another file";
    ::unlink(name.c_str());
    ASSERT_EQ(::symlink(elsewhere.c_str(), name.c_str()), 0);
    EXPECT_EQ(readBack(), cannotOpen(name)) << "a link";
    ::unlink(name.c_str());
    ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
    EXPECT_EQ(readBack(), cannotOpen(name)) << "a pipe that nobody writes to";
    ::unlink(name.c_str());
    EXPECT_EQ(openDescriptors(), descriptors);
    ASSERT_EQ(::rename(elsewhere.c_str(), name.c_str()), 0);
    EXPECT_EQ(swap.readBack(), "abc");
}

TEST(SwapBufferMediaOut, KeepsItsFileFromOtherPrograms) {
    Swap swap(1);
    int const descriptor = nextDescriptor();
    swap.write("abc");
    EXPECT_TRUE(isCloseOnExec(descriptor));
    swap.out.end();
    MediaIn const in = createMediaInFromSwapBufferMediaOut(swap.out);
    EXPECT_TRUE(isCloseOnExec(descriptor));
}

TEST(SwapBufferMediaOut, IsEmptiedThroughItsBase) {
    SwapBufferMediaOut out(1, nullptr);
    static_cast<MediaOut&>(out) = MediaOut();
    EXPECT_EQ(failureOf([&] { out.cache(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.fileMedia(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.maxCacheSize(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.maxCacheSize(1); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.totalBytesWritten(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.overflow(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.maxSize(1); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.autoRelease(true); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.cacheOnly(true); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.discardCache(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.empty(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { createMediaInFromSwapBufferMediaOut(out); }), nullHandle);
}
