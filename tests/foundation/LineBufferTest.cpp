#include "include2/Buffer"
#include "tests/foundation/BufferSupport.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

std::string nextLine(LineBuffer const& lines, unsigned char delimiter = '\n') {
    Buffer line = bytes("what was there");
    lines.getLine(line, delimiter);
    return text(line);
}

}  // namespace

TEST(LineBuffer, CutsLinesWithTheirDelimiterAndLeavesAnUnfinishedOne) {
    LineBuffer const lines(bytes("ab\ncd"));
    EXPECT_EQ(nextLine(lines), "ab\n");
    EXPECT_EQ(lines.startOfLine(), 3u);
    EXPECT_EQ(nextLine(lines), "");
    EXPECT_EQ(lines.startOfLine(), 3u);
    EXPECT_FALSE(lines.endOfBuffer());
}

TEST(LineBuffer, ReachesItsEndAfterTheLastDelimiter) {
    LineBuffer const lines(bytes("\nab;\n"));
    EXPECT_EQ(nextLine(lines), "\n");
    EXPECT_EQ(nextLine(lines, ';'), "ab;");
    EXPECT_FALSE(lines.endOfBuffer());
    EXPECT_EQ(nextLine(lines), "\n");
    EXPECT_TRUE(lines.endOfBuffer());
    EXPECT_EQ(nextLine(lines), "");
}

TEST(LineBuffer, TakesWhatIsAppendedLater) {
    LineBuffer lines;
    EXPECT_EQ(lines.size(), 0u);
    EXPECT_FALSE(lines.isResizable());
    EXPECT_TRUE(lines.endOfBuffer());
    EXPECT_EQ(nextLine(lines), "");
    lines.append(bytes("ab"));
    EXPECT_EQ(nextLine(lines), "");
    lines.append(bytes("c\n"));
    EXPECT_EQ(nextLine(lines), "abc\n");
}

TEST(LineBuffer, SharesTheRecordAndItsPositionWhenMadeFromABuffer) {
    Buffer buffer = bytes("a\nb\nc\n");
    LineBuffer const first(buffer);
    EXPECT_EQ(nextLine(first), "a\n");
    LineBuffer const second(first);
    EXPECT_EQ(nextLine(second), "b\n");
    EXPECT_EQ(first.startOfLine(), 4u);
    LineBuffer third;
    third = second;
    EXPECT_EQ(nextLine(third), "c\n");
    EXPECT_TRUE(first.endOfBuffer());
    buffer.append(bytes("d\n"));
    EXPECT_EQ(nextLine(first), "d\n");
}

TEST(LineBuffer, AssignedABufferReadsACopyOfItsOwnFromTheStart) {
    Buffer buffer = bytes("a\nb\n");
    LineBuffer const reader(buffer);
    EXPECT_EQ(nextLine(reader), "a\n");
    LineBuffer lines;
    lines = buffer;
    EXPECT_EQ(lines.startOfLine(), 0u);
    buffer.fill('x');
    EXPECT_EQ(nextLine(lines), "a\n");
    EXPECT_EQ(reader.startOfLine(), 2u);
    EXPECT_TRUE(lines.isResizable());
}

TEST(LineBuffer, KeepsItsPositionWhenBytesAreTakenOut) {
    LineBuffer lines(bytes("ab\ncd\nef\n"));
    EXPECT_EQ(nextLine(lines), "ab\n");
    lines.erase(3, 3);
    EXPECT_EQ(nextLine(lines), "ef\n");
    lines.shiftLeft(4);
    EXPECT_EQ(lines.startOfLine(), 6u);
    EXPECT_EQ(nextLine(lines), "") << "the position is beyond the length";
}

TEST(LineBuffer, GivesALineInTheProtectedBufferOfACaller) {
    LineBuffer const lines(bytes("ab\n"));
    Buffer line = bytes("old");
    line.protect();
    Buffer const sharer(line);
    lines.getLine(line, '\n');
    EXPECT_EQ(text(line), "ab\n");
    EXPECT_EQ(text(sharer), "old");
}

TEST(LineBuffer, GivesNothingIntoItself) {
    LineBuffer lines(bytes("ab\n"));
    lines.getLine(lines, '\n');
    EXPECT_TRUE(lines.isEmpty());
}

TEST(PartialBuffer, ShowsWhatWasAppendedSinceItWasMade) {
    Buffer buffer = bytes("head");
    PartialBuffer const since(buffer);
    EXPECT_EQ(text(since.buf()), "");
    buffer.append(bytes("tail"));
    Buffer const view = since.buf();
    EXPECT_EQ(text(view), "tail");
    EXPECT_FALSE(view.isResizable());
    EXPECT_EQ(view.data(), buffer.data() + 4);
    EXPECT_EQ(text(since), "headtail");
    buffer.append(bytes(std::string(5000, 'x')));
    EXPECT_EQ(since.buf().length(), 5004u);
}

TEST(PartialBuffer, ShowsNothingOfABufferThatShrank) {
    Buffer buffer = bytes("head");
    PartialBuffer const since(buffer);
    buffer.length(2);
    EXPECT_EQ(text(since.buf()), "");
    buffer.append(bytes("adXY"));
    EXPECT_EQ(text(since.buf()), "XY");
}

TEST(PartialBuffer, WithoutABufferIsEmpty) {
    PartialBuffer none;
    EXPECT_EQ(none.size(), 0u);
    EXPECT_TRUE(none.buf().isEmpty());
    none.append(bytes("abc"));
    EXPECT_EQ(text(none.buf()), "abc");
    PartialBuffer const copy(none);
    EXPECT_EQ(text(copy.buf()), "abc");
}

TEST(PartialBuffer, AppendsItsOwnView) {
    Buffer buffer(8, 16);
    buffer.append(bytes("head"));
    PartialBuffer const since(buffer);
    buffer.append(bytes("tail"));
    buffer.append(since.buf());
    EXPECT_EQ(text(buffer), "headtailtail");
}
