#include "include2/FileMedia"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/filtering_stream.hpp>
#include <boost/iostreams/stream.hpp>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>
#include <type_traits>

#include "include2/BufferMedia"
#include "include2/MediaInSource"
#include "tests/media/Limits.h"
#include "tests/media/Streams.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

std::string const nullHandle = "MediaException( 1 ) , MediaImpl";
std::string const writeFailed = "MediaException( 4097 ) ";
std::string const badState =
    "IStreamMediaInImpl::readline( 4 ) , FileMediaImpl:75,  \"Stream is state is undefined.\"";

bool exists(std::string const& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

std::string cannotOpen(int line, std::string const& name) {
    return "MediaException( 4099 ) , FileMediaImpl:" + std::to_string(line) + ",  \"Could Not open " + name +
           "\"";
}

/// A source without positions that takes nothing back. After its text comes the end, or an error.
class OneWay : public std::streambuf {
public:
    explicit OneWay(std::string content, bool breaks = false)
        : m_text(std::move(content)), m_breaks(breaks) {}

protected:
    int_type underflow() override {
        if (m_next < m_text.size()) return traits_type::to_int_type(m_text[m_next]);
        if (m_breaks) throw std::runtime_error("read error");
        return traits_type::eof();
    }
    int_type uflow() override {
        int_type const byte = underflow();
        ++m_next;
        return byte;
    }

private:
    std::string m_text;
    bool m_breaks;
    std::size_t m_next = 0;
};

/// Throws when it is asked to move or to take a byte back, or does then what it was given to do.
class Stubborn : public OneWay {
public:
    explicit Stubborn(
        std::string content, std::function<void()> act = [] { throw 42; })
        : OneWay(std::move(content)), m_act(std::move(act)) {}

    std::string written;

protected:
    int_type pbackfail(int_type /*byte*/) override { return m_act(), traits_type::eof(); }
    pos_type seekoff(off_type, std::ios::seekdir, std::ios::openmode) override {
        return m_act(), pos_type(-1);
    }
    pos_type seekpos(pos_type, std::ios::openmode) override { return m_act(), pos_type(-1); }
    int_type overflow(int_type byte) override {
        written += traits_type::to_char_type(byte);
        return byte;
    }

private:
    std::function<void()> m_act;
};

/// Runs @p action on a thread. @return what that ends with: "returned" when the action does
std::string endOfThread(std::function<void()> const& action) {
    pthread_t thread{};
    ::pthread_create(
        &thread, nullptr,
        [](void* argument) -> void* {
            (*static_cast<std::function<void()>*>(argument))();
            return const_cast<char*>("returned");
        },
        const_cast<std::function<void()>*>(&action));
    void* end = nullptr;
    ::pthread_join(thread, &end);
    return static_cast<char const*>(end);
}

/// The lines of @p content through a buffer of @p room bytes.
std::string linesOf(std::string const& content, int room, bool crlf) {
    std::istringstream stream(content);
    IStreamMediaIn in(stream);
    in.convertToCRLF(crlf);
    return lines(in, Buffer(room, 0));
}

}  // namespace

static_assert(!std::is_copy_constructible_v<TempFile> && !std::is_copy_assignable_v<TempFile>);

TEST(TempFile, IsNamedForItsPrefixProcessAndThread) {
    std::string const expected =
        "/nowhere/x" + std::to_string(::getpid()) + "." + std::to_string(::pthread_self());
    EXPECT_EQ(TempFile("/nowhere/x").name(), expected);
    EXPECT_EQ(TempFile(std::string("/nowhere/x")).name(), expected) << "the same thread gets the same name";
    std::string other;
    std::thread([&] { other = TempFile("/nowhere/x").name(); }).join();
    EXPECT_NE(other, expected);
    EXPECT_EQ(TempFile(true).name(), "");
    EXPECT_EQ(TempFile(static_cast<char const*>(nullptr)).name(), expected.substr(10));
}

TEST(TempFile, RemovesTheFileOfAPrefix) {
    TemporaryDirectory const directory;
    std::string name;
    {
        TempFile const file(directory.file("x"));
        name = file.name();
        writeFile(name, "abc");
    }
    EXPECT_FALSE(exists(name));
}

TEST(TempFile, MakesAFileFromATemplate) {
    TemporaryDirectory const directory;
    for (bool const removed : {true, false}) {
        std::string name;
        {
            TempFile file(removed);
            int const descriptor = file.open(directory.file("aXXXXXX"));
            name = file.name();
            EXPECT_NE(descriptor, -1);
            EXPECT_TRUE(isCloseOnExec(descriptor));
            EXPECT_EQ(::write(descriptor, "abc", 3), 3);
            ::close(descriptor);
            EXPECT_EQ(name.size(), directory.file("aXXXXXX").size());
            EXPECT_NE(name, directory.file("aXXXXXX"));
            EXPECT_EQ(readFile(name), "abc");
        }
        EXPECT_EQ(exists(name), !removed);
    }
}

TEST(TempFile, KeepsItsNameWhenNoFileCanBeMade) {
    TemporaryDirectory const directory;
    std::string const refused[] = {
        directory.file("missing/aXXXXXX"),
        directory.file("without"),
        directory.file(std::string("nulXXXXXX\0XXXXXX", 16)),
        directory.file(std::string(4096, 'a') + "XXXXXX"),
        "",
    };
    TempFile file(directory.file("kept"));
    std::string const name = file.name();
    for (auto const& pattern : refused) {
        EXPECT_EQ(file.open(pattern), -1) << pattern;
        EXPECT_EQ(file.name(), name);
    }
}

TEST(TempFile, RemovesTheFormerFileWhenOpenedAgain) {
    TemporaryDirectory const directory;
    for (bool const removed : {true, false}) {
        TempFile file(removed);
        ::close(file.open(directory.file("aXXXXXX")));
        std::string const former = file.name();
        ::close(file.open(directory.file("aXXXXXX")));
        EXPECT_EQ(exists(former), !removed);
        EXPECT_TRUE(exists(file.name()));
    }
}

TEST(TempFile, KnowsTheFileThatItMade) {
    TemporaryDirectory const directory;
    TempFile file(true);
    EXPECT_FALSE(file.isMadeFile(0));
    int const descriptor = file.open(directory.file("aXXXXXX"));
    int const other = TempFile(false).open(directory.file("aXXXXXX"));
    EXPECT_TRUE(file.isMadeFile(descriptor));
    EXPECT_FALSE(file.isMadeFile(other));
    EXPECT_FALSE(file.isMadeFile(-1));
    ::close(descriptor);
    ::close(other);
}

TEST(TempFile, LeavesErrnoAloneWhenItGoes) {
    errno = 7777;
    { TempFile const file("/nowhere/x"); }
    EXPECT_EQ(errno, 7777);
}

TEST(TempFile, LeavesTheFileThatStandsBeforeANulByteOfItsPrefix) {
    TemporaryDirectory const directory;
    std::string const other = directory.write("other", "kept");
    { TempFile const named(other + std::string("\0x", 2)); }
    EXPECT_EQ(readFile(other), "kept");
}

TEST(TempFileMediaOut, WritesAFileThatIsRemovedWithItsLastHolder) {
    TemporaryDirectory const directory;
    Ref<TempFile> holder;
    std::string name;
    {
        TempFileMediaOut out(directory.file("aXXXXXX"), true);
        name = out.tmpfile()->name();
        out << "abc"
            << "de";
        EXPECT_EQ(out.tell(), 5U);
        EXPECT_EQ(out.length(), 5U);
        out.flush();
        EXPECT_EQ(readFile(name), "abcde");
        holder = out.tmpfile();
    }
    EXPECT_TRUE(exists(name));
    holder = Ref<TempFile>();
    EXPECT_FALSE(exists(name));
}

TEST(TempFileMediaOut, LeavesTheFileWhenNotAskedToRemoveIt) {
    TemporaryDirectory const directory;
    std::string name;
    {
        TempFileMediaOut out(directory.file("aXXXXXX"), false);
        name = out.tmpfile()->name();
        out << "abc";
    }
    EXPECT_EQ(readFile(name), "abc");
}

TEST(TempFileMediaOut, ClosesOnceAndRefusesWritesFromThenOn) {
    TemporaryDirectory const directory;
    for (bool const end : {true, false}) {
        TempFileMediaOut out(directory.file("aXXXXXX"), true);
        out << "abc";
        std::size_t const descriptors = openDescriptors();
        end ? out.end() : out.close();
        EXPECT_EQ(openDescriptors(), descriptors - 1);
        EXPECT_EQ(failureOf([&] { out.close(); }), "nothing thrown");
        EXPECT_EQ(readFile(out.tmpfile()->name()), "abc");
        EXPECT_EQ(out.tell(), 3U);
        EXPECT_EQ(failureOf([&] { out << "d"; }), writeFailed);
        EXPECT_EQ(failureOf([&] { out << ""; }), writeFailed);
        EXPECT_EQ(failureOf([&] { out.flush(); }), writeFailed);
        EXPECT_EQ(failureOf([&] { out.setpos(0); }), writeFailed);
        EXPECT_EQ(failureOf([&] { out.close(); }), "nothing thrown") << "nothing that was taken is lost";
    }
}

TEST(TempFileMediaOut, MovesTheStreamButNotTheCount) {
    TemporaryDirectory const directory;
    TempFileMediaOut out(directory.file("aXXXXXX"), true);
    out << "abcdef";
    out.setpos(1);
    out << "X";
    EXPECT_EQ(out.tell(), 7U);
    out.close();
    EXPECT_EQ(readFile(out.tmpfile()->name()), "aXcdef");
}

TEST(TempFileMediaOut, KeepsTheOrderOfSmallAndLargeWrites) {
    TemporaryDirectory const directory;
    TempFileMediaOut out(directory.file("aXXXXXX"), true);
    std::string expected;
    char letter = 'a';
    for (std::size_t const size : {1U, 4094U, 1U, 4095U, 4096U, 3U, 4097U, 2048U, 2048U, 100000U, 5U}) {
        expected += std::string(size, letter);
        out << std::string(size, letter++);
        EXPECT_EQ(out.tell(), expected.size());
    }
    out.flush();
    EXPECT_TRUE(readFile(out.tmpfile()->name()) == expected);
    out.setpos(1);
    out << std::string(5000, 'X');
    out << "Y";
    out.setpos(expected.size() - 1);
    out << "Z";
    out.close();
    expected.replace(1, 5001, std::string(5000, 'X') + "Y");
    expected.back() = 'Z';
    EXPECT_TRUE(readFile(out.tmpfile()->name()) == expected);
}

TEST(TempFileMediaOut, TellsOfALargeWriteThatFailsAtOnce) {
    TemporaryDirectory const directory;
    TempFileMediaOut out(directory.file("aXXXXXX"), true);
    out << "abc";
    FileSizeLimit const limit(50);
    EXPECT_EQ(failureOf([&] { out << std::string(5000, 'a'); }), writeFailed);
    EXPECT_EQ(out.tell(), 3U);
}

TEST(TempFileMediaOut, RefusesATemplateThatMakesNoFile) {
    TemporaryDirectory const directory;
    std::size_t const descriptors = openDescriptors();
    std::string const refused[] = {directory.file("missing/aXXXXXX"), directory.file("without"),
                                   directory.file(std::string(4096, 'a') + "XXXXXX"), ""};
    for (auto const& pattern : refused)
        EXPECT_EQ(failureOf([&] { TempFileMediaOut(pattern, true); }),
                  cannotOpen(519, "tempfile " + pattern));
    std::string const good = directory.file("aXXXXXX");
    {
        NoDescriptors const none;
        EXPECT_EQ(failureOf([&] { TempFileMediaOut(good, true); }), cannotOpen(519, "tempfile " + good));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(TempFileMediaOut, StaysBrokenOnceBytesWereLost) {
    TemporaryDirectory const directory;
    TempFileMediaOut out(directory.file("aXXXXXX"), true);
    {
        FileSizeLimit const limit(50);
        EXPECT_EQ(failureOf([&] { out.write(buffer(std::string(100000, 'a'))); }), writeFailed);
    }
    EXPECT_EQ(out.tell(), 0U) << "counted are writes that succeed";
    EXPECT_EQ(failureOf([&] { out << "b"; }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.flush(); }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.setpos(0); }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.close(); }), writeFailed);
    EXPECT_EQ(failureOf([&] { out << "b"; }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.close(); }), "nothing thrown") << "it is closed and has said so";
    EXPECT_EQ(failureOf([&] { out.end(); }), writeFailed) << "who asks for the end asks for the whole";
}

TEST(TempFileMediaOut, GoesOnAfterAPositionThatNoFileHas) {
    TemporaryDirectory const directory;
    TempFileMediaOut out(directory.file("aXXXXXX"), true);
    out << "ab";
    bool const isRefused = failureOf([&] { out.setpos(UINT64_MAX); }) == writeFailed;
    if (!isRefused) out.setpos(2);  // tmpfs has that position
    out << "c";
    out.close();
    EXPECT_EQ(readFile(out.tmpfile()->name()), "abc");
}

TEST(TempFileMediaOut, FailsToFlushMoveAndCloseWhatTheDiskDoesNotTake) {
    TemporaryDirectory const directory;
    std::function<void(TempFileMediaOut&)> const steps[] = {
        [](TempFileMediaOut& out) { out.flush(); },
        [](TempFileMediaOut& out) { out.setpos(0); },
        [](TempFileMediaOut& out) { out.close(); },
        [](TempFileMediaOut& out) { out.end(); },
    };
    for (auto const& step : steps) {
        TempFileMediaOut out(directory.file("aXXXXXX"), true);
        out << std::string(100, 'a');
        FileSizeLimit const limit(50);
        EXPECT_EQ(failureOf([&] { step(out); }), writeFailed);
    }
}

TEST(TempFileMediaOut, GoesQuietly) {
    TemporaryDirectory const directory;
    std::size_t const descriptors = openDescriptors();
    FileSizeLimit const limit(2);
    EXPECT_EQ(failureOf([&] { TempFileMediaOut(directory.file("aXXXXXX"), true).write(buffer("abc")); }),
              "nothing thrown");
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(TempFileMediaOut, RefusesBytesThatAreNotThere) {
    TemporaryDirectory const directory;
    TempFileMediaOut out(directory.file("aXXXXXX"), true);
    EXPECT_EQ(failureOf([&] { out.write(nullptr, 1); }), "MediaException( 2 ) ");
    EXPECT_EQ(failureOf([&] { out.write(nullptr, 0); }), "nothing thrown");
}

TEST(TempFileMediaOut, IsNullByDefault) {
    TempFileMediaOut out;
    EXPECT_TRUE(out.isNull());
    EXPECT_EQ(failureOf([&] { out.close(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.flush(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.length(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.tmpfile(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.end(); }), nullHandle);
}

TEST(IStreamMediaIn, ReadsTheStreamsBytes) {
    std::istringstream stream("abcdef");
    IStreamMediaIn in(stream);
    unsigned char into[8] = {};
    EXPECT_EQ(in.peek(), 'a');
    EXPECT_EQ(in.read(nullptr, 3), 0);
    EXPECT_EQ(in.read(into, 0), 0);
    EXPECT_EQ(in.read(into, 4), 4);
    EXPECT_EQ(in.tell(), 4U);
    EXPECT_EQ(in.read(into + 4, 4), 2);
    EXPECT_EQ(std::string(into, into + 6), "abcdef");
    EXPECT_EQ(in.read(into, 1), 0);
    EXPECT_EQ(in.peek(), -1);
}

TEST(IStreamMediaIn, IsAtItsEndOnceTheStreamSaysSo) {
    std::istringstream stream("abc");
    IStreamMediaIn in(stream);
    unsigned char into[8];
    EXPECT_EQ(in.read(into, 3), 3);
    EXPECT_FALSE(in.atEnd()) << "after exactly the last byte";
    EXPECT_EQ(in.read(into, 1), 0);
    EXPECT_TRUE(in.atEnd());
    stream.clear();
    EXPECT_TRUE(in.atEnd()) << "remembered";
    in.setpos(2);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(in.peek(), 'c');
    EXPECT_EQ(in.read(into, 2), 1);
    EXPECT_TRUE(in.atEnd());
    in.setpos(3);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(in.peek(), -1);
    EXPECT_TRUE(in.atEnd()) << "a look at the next byte says so as well";
}

TEST(IStreamMediaIn, KnowsItsPositionAtTheEnd) {
    std::istringstream stream("abc");
    IStreamMediaIn in(stream);
    EXPECT_EQ(rest(in), "abc");
    EXPECT_EQ(in.tell(), 3U);
}

TEST(IStreamMediaIn, GoesBackAfterTheEnd) {
    std::istringstream stream("abc");
    IStreamMediaIn in(stream);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(rest(in), "abc");
        in.setpos(0);
        EXPECT_EQ(in.tell(), 0U);
    }
}

TEST(IStreamMediaIn, EndsAtAPositionThatTheStreamCannotGoTo) {
    std::istringstream stream("abc");
    for (unsigned long const position : {4UL, ~0UL}) {
        IStreamMediaIn in(stream);
        in.setpos(position);
        EXPECT_EQ(rest(in), "") << position;
        EXPECT_TRUE(in.atEnd()) << position;
        in.setpos(position);
        EXPECT_EQ(lines(in), "") << position;
        EXPECT_TRUE(in.atEnd()) << position;
    }
}

TEST(IStreamMediaIn, HasNoPositionWhereTheStreamHasNone) {
    OneWay source("abc");
    std::istream stream(&source);
    EXPECT_EQ(IStreamMediaIn(stream).tell(), UINT64_MAX);
}

TEST(IStreamMediaIn, HasNoPositionWhereTheStreamThrowsForOne) {
    Stubborn source("ab\ncd\n");
    std::istream stream(&source);
    IStreamMediaIn in(stream);
    Buffer line;
    in.readline(line);
    EXPECT_EQ(in.tell(), UINT64_MAX);
    EXPECT_TRUE(stream.good());
    in.readline(line);
    EXPECT_EQ(text(line), "cd\n");
}

TEST(IStreamMediaIn, ReadsOnInASourceOfBoostThatWasAskedForItsPosition) {
    Buffer content = buffer("ab\ncd\nef\n");
    BufferMediaIn medium(content);
    boost::iostreams::stream<MediaInSource> stream(medium);
    IStreamMediaIn in(stream);
    EXPECT_EQ(in.tell(), UINT64_MAX) << "before anything was read";
    Buffer line;
    in.readline(line);
    EXPECT_EQ(text(line), "ab\n");
    EXPECT_EQ(in.tell(), UINT64_MAX);
    EXPECT_EQ(lines(in, line), "cd\n|ef\n|");
    EXPECT_EQ(in.tell(), UINT64_MAX) << "at the end";
}

TEST(IStreamMediaIn, LetsTheEndOfItsThreadPass) {
    std::function<void()> const end = [] { ::pthread_exit(const_cast<char*>("ended")); };
    EXPECT_EQ(endOfThread([&] {
                  Stubborn source("ab\n", end);
                  std::istream stream(&source);
                  IStreamMediaIn(stream).tell();
              }),
              "ended");
    EXPECT_EQ(endOfThread([&] {
                  Stubborn source("abcd\n", end);
                  std::istream stream(&source);
                  IStreamMediaIn in(stream);
                  in.convertToCRLF(true);
                  Buffer line(5, 0);
                  in.readline(line);
              }),
              "ended");
}

TEST(IStreamMediaIn, WritesItselfInBlocks) {
    std::string log;
    MediaOut out = recorder(log);
    std::istringstream stream(std::string(4096, 'a') + "bc");
    IStreamMediaIn in(stream);
    EXPECT_EQ(&in.write(out), &out);
    EXPECT_EQ(log, "[" + std::string(4096, 'a') + "][bc]");
    stream.clear();
    stream.seekg(0);
    in.write(out);
    EXPECT_EQ(log, "[" + std::string(4096, 'a') + "][bc]") << "not once it was at the end";
}

TEST(IStreamMediaIn, StopsWritingAtAnEndThatFallsOnABlock) {
    std::string log;
    MediaOut out = recorder(log);
    std::istringstream stream(std::string(4096, 'a'));
    IStreamMediaIn(stream).write(out);
    EXPECT_EQ(log, "[" + std::string(4096, 'a') + "]");
}

TEST(IStreamMediaIn, GivesLinesWithTheirEnds) {
    struct Row {
        std::string content;
        int room;
        std::string plain, crlf;
    };
    Row const rows[] = {
        {"a\n", 100, "a\n|", "a\r\n|"},
        {"", 100, "", ""},
        {"\n\n", 100, "\n|\n|", "\r\n|\r\n|"},
        {"ab\ncd", 100, "ab\n|cd|", "ab\r\n|cd|"},
        {"a\r\nb\r\n", 100, "a\r\n|b\r\n|", "a\r\r\n|b\r\r\n|"},
        {std::string("a\0b\n", 4), 100, std::string("a\0b\n|", 5), std::string("a\0b\r\n|", 6)},
        // A buffer of n bytes takes n - 1 in one go, and a line feed that follows them.
        {"abcde\nf\n", 5, "abcd|e\n|f\n|", "abcd|e\r\n|f\r\n|"},
        {"abcd\nef\n", 5, "abcd\n|ef\n|", "abcd|\r\n|ef\r\n|"},
        {"abc\nef\n", 5, "abc\n|ef\n|", "abc\r\n|ef\r\n|"},
        {"abcd", 5, "abcd|", "abcd|"},
        {"abcde", 5, "abcd|e|", "abcd|e|"},
        {"ab\n", 2, "a|b\n|", "a|b|\r\n|"},
        {"\n", 2, "\n|", "\r\n|"},
    };
    for (auto const& [content, room, plain, crlf] : rows) {
        EXPECT_EQ(linesOf(content, room, false), plain) << hex(content) << " in " << room;
        EXPECT_EQ(linesOf(content, room, true), crlf) << hex(content) << " in " << room << ", CR LF";
    }
}

TEST(IStreamMediaIn, IsAtItsEndAfterALastLineWithoutLineFeed) {
    std::istringstream stream("a\nb");
    IStreamMediaIn in(stream);
    Buffer line;
    in.readline(line);
    EXPECT_FALSE(in.atEnd());
    in.readline(line);
    EXPECT_EQ(text(line), "b");
    EXPECT_TRUE(in.atEnd());
    EXPECT_TRUE(stream.good()) << "a line clears the state of the stream";
}

TEST(IStreamMediaIn, GrowsALineBufferOfNextToNothing) {
    EXPECT_EQ(linesOf("ab\ncd\n", 1, false), "ab\n|cd\n|");
    std::istringstream stream("ab\ncd\n");
    EXPECT_EQ(lines(IStreamMediaIn(stream), Buffer(nullptr, 0, true)), "ab\n|cd\n|");
}

TEST(IStreamMediaIn, GivesLinesOfOneByteWhereThereIsNoRoomForMore) {
    for (bool const crlf : {false, true}) {
        unsigned char byte = 0;
        std::istringstream stream("ab\nc");
        IStreamMediaIn in(stream);
        in.convertToCRLF(crlf);
        EXPECT_EQ(lines(in, Buffer(&byte, 1, true)), "a|b|\n|c|");
        EXPECT_TRUE(in.atEnd());
    }
}

TEST(IStreamMediaIn, TakesTheRoomOfALineFromTheAllocatedSize) {
    Buffer line(8, 0);
    line.maxSize(2);
    std::istringstream stream("abcdef\n");
    IStreamMediaIn in(stream);
    in.convertToCRLF(true);
    EXPECT_EQ(lines(in, line), "abcdef\r\n|");
}

TEST(IStreamMediaIn, SwitchesItsLineEnds) {
    std::istringstream stream("a\nb\n");
    IStreamMediaIn in(stream);
    Buffer line;
    EXPECT_FALSE(in.convertToCRLF());
    in.readline(line);
    EXPECT_EQ(text(line), "a\n");
    in.convertToCRLF(true);
    EXPECT_TRUE(in.convertToCRLF());
    in.readline(line);
    EXPECT_EQ(text(line), "b\r\n");
}

TEST(IStreamMediaIn, PushesALineFeedBackThatHasNoRoom) {
    std::istringstream stream("abcd\nef\n");
    IStreamMediaIn in(stream);
    in.convertToCRLF(true);
    Buffer line(5, 0);
    in.readline(line);
    EXPECT_EQ(text(line), "abcd");
    EXPECT_EQ(stream.peek(), '\n');
    EXPECT_EQ(in.tell(), 4U);
}

TEST(IStreamMediaIn, RemembersALineFeedThatTheStreamDoesNotTakeBack) {
    auto const afterFirstLine = [](auto check) {
        OneWay source("abcd\nef\n");
        std::istream stream(&source);
        IStreamMediaIn in(stream);
        in.convertToCRLF(true);
        Buffer line(5, 0);
        in.readline(line);
        EXPECT_EQ(text(line), "abcd");
        check(in, line);
    };
    afterFirstLine([](IStreamMediaIn& in, Buffer& line) { EXPECT_EQ(lines(in, line), "\r\n|ef\r\n|"); });
    afterFirstLine([](IStreamMediaIn& in, Buffer& line) {
        in.convertToCRLF(false);
        EXPECT_EQ(lines(in, line), "\n|ef\n|");
    });
    afterFirstLine([](IStreamMediaIn& in, Buffer&) {
        EXPECT_EQ(in.peek(), '\n');
        EXPECT_FALSE(in.atEnd());
        EXPECT_EQ(rest(in), "\nef\n");
    });
    afterFirstLine([](IStreamMediaIn& in, Buffer&) {
        unsigned char byte = 0;
        EXPECT_EQ(in.read(&byte, 0), 0);
        EXPECT_EQ(byte, 0);
        EXPECT_EQ(in.read(&byte, 1), 1);
        EXPECT_EQ(byte, '\n');
        EXPECT_EQ(in.peek(), 'e');
    });
    afterFirstLine([](IStreamMediaIn& in, Buffer&) {
        in.setpos(0);
        EXPECT_EQ(rest(in), "") << "the stream cannot go back, and nothing is owed any more";
    });
}

TEST(IStreamMediaIn, RemembersALineFeedThatTheStreamThrowsFor) {
    Stubborn source("abcd\nef\n");
    std::istream stream(&source);
    IStreamMediaIn in(stream);
    in.convertToCRLF(true);
    EXPECT_EQ(lines(in, Buffer(5, 0)), "abcd|\r\n|ef\r\n|");
}

TEST(IStreamMediaIn, CountsARememberedLineFeedAsUnread) {
    // Knows where it stands, but takes nothing back.
    class Counting : public OneWay {
    public:
        using OneWay::OneWay;

    protected:
        int_type uflow() override {
            ++m_position;
            return OneWay::uflow();
        }
        pos_type seekoff(off_type, std::ios::seekdir, std::ios::openmode) override { return m_position; }

    private:
        off_type m_position = 0;
    };
    Counting source("abcd\nef\n");
    std::istream stream(&source);
    IStreamMediaIn in(stream);
    in.convertToCRLF(true);
    Buffer line(5, 0);
    in.readline(line);
    EXPECT_EQ(in.tell(), 4U);
}

TEST(IStreamMediaIn, RefusesAStreamInTheBadState) {
    std::istringstream stream("abc");
    stream.setstate(std::ios::badbit);
    IStreamMediaIn in(stream);
    Buffer line = buffer("old");
    unsigned char byte = 0;
    EXPECT_EQ(failureOf([&] { in.readline(line); }), badState);
    EXPECT_EQ(text(line), "");
    EXPECT_EQ(failureOf([&] { in.read(&byte, 1); }), badState);
    std::istream nothing(nullptr);
    IStreamMediaIn none(nothing);
    EXPECT_EQ(failureOf([&] { none.read(&byte, 1); }), badState);
    EXPECT_EQ(none.tell(), UINT64_MAX);
}

TEST(IStreamMediaIn, DoesNotTakeAReadErrorForTheEnd) {
    OneWay source("abc", true);
    std::istream stream(&source);
    IStreamMediaIn in(stream);
    unsigned char into[8] = {};
    EXPECT_EQ(in.read(into, 3), 3);
    EXPECT_EQ(failureOf([&] { in.read(into, 1); }), badState);
    EXPECT_FALSE(in.atEnd());
    EXPECT_EQ(failureOf([&] { in.read(into, 1); }), badState);
}

TEST(IStreamMediaIn, GivesNoHalfLineAtAReadError) {
    OneWay source("a\nbc", true);
    std::istream stream(&source);
    IStreamMediaIn in(stream);
    Buffer line;
    in.readline(line);
    EXPECT_EQ(text(line), "a\n");
    EXPECT_EQ(failureOf([&] { in.readline(line); }), badState);
}

TEST(IStreamMediaIn, IsEmptiedThroughItsBase) {
    std::istringstream stream;
    IStreamMediaIn in(stream);
    static_cast<MediaIn&>(in) = MediaIn();
    EXPECT_EQ(failureOf([&] { in.convertToCRLF(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.convertToCRLF(true); }), nullHandle);
}

TEST(FileMediaIn, ReadsAFile) {
    TemporaryDirectory const directory;
    std::string const name = directory.write("a", "ab\nc");
    FileMediaIn in(name);
    EXPECT_EQ(in.name(), name);
    EXPECT_EQ(in.length(), 4U);
    EXPECT_EQ(in.peek(), 'a');
    EXPECT_EQ(lines(in), "ab\n|c|");
    in.setpos(1);
    EXPECT_EQ(in.tell(), 1U);
    in.convertToCRLF(true);
    EXPECT_EQ(lines(in), "b\r\n|c|");
    EXPECT_TRUE(in.atEnd());
    EXPECT_EQ(in.tell(), 4U);
    in.setpos(100);
    EXPECT_EQ(rest(in), "");
    in.setpos(0);
    EXPECT_EQ(rest(in), "ab\nc");
}

TEST(FileMediaIn, PushesLineFeedsBackAcrossItsBlocks) {
    TemporaryDirectory const directory;
    for (std::size_t const length : {8190U, 8191U, 8192U, 8193U, 16384U}) {
        std::string const line(length, 'a');
        FileMediaIn in(directory.write("a", line + "\nb\n"));
        in.convertToCRLF(true);
        EXPECT_EQ(lines(in, Buffer(static_cast<int>(length) + 1, 0)), line + "|\r\n|b\r\n|") << length;
    }
}

TEST(FileMediaIn, RefusesAFileThatCannotBeOpened) {
    TemporaryDirectory const directory;
    std::string const missing = directory.file("missing");
    std::string const file = directory.write("a", "abc");
    std::string const below = file + "/b";
    std::string const cut = file + std::string("\0b", 2);
    for (auto const& name : {missing, below, cut, std::string()})
        EXPECT_EQ(failureOf([&] { FileMediaIn{name}; }), cannotOpen(208, name));
    std::size_t const descriptors = openDescriptors();
    {
        NoDescriptors const none;
        EXPECT_EQ(failureOf([&] { FileMediaIn{file}; }), cannotOpen(208, file));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(FileMediaIn, CannotReadADirectory) {
    TemporaryDirectory const directory;
    FileMediaIn in(directory.path());
    std::string log;
    MediaOut out = recorder(log);
    Buffer line;
    unsigned char byte = 0;
    EXPECT_EQ(failureOf([&] { in.readline(line); }), badState);
    EXPECT_EQ(failureOf([&] { in.read(&byte, 1); }), badState);
    EXPECT_EQ(failureOf([&] { in.write(out); }), badState);
    EXPECT_EQ(failureOf([&] { FileMediaIn(directory.path()).write(out); }), badState);
    EXPECT_EQ(failureOf([&] { FileMediaIn(directory.path()).read(&byte, 1); }), badState);
}

TEST(FileMediaIn, GivesTheLengthOfWhatIsAtItsName) {
    TemporaryDirectory const directory;
    std::string const name = directory.write("a", "abc");
    std::string const link = directory.file("link");
    ASSERT_EQ(::symlink("a", link.c_str()), 0);
    FileMediaIn in(link);
    EXPECT_EQ(in.length(), 1U) << "the link's own";
    EXPECT_EQ(rest(in), "abc");
    ::unlink(link.c_str());
    EXPECT_EQ(failureOf([&] { in.length(); }), "MediaException( 4100 ) ");
}

TEST(FileMediaIn, CutsTheLengthTo32Bits) {
    TemporaryDirectory const directory;
    std::string const name = directory.write("a", "");
    ASSERT_EQ(::truncate(name.c_str(), 0x100000005L), 0);
    EXPECT_EQ(FileMediaIn(name).length(), 5U);
}

TEST(FileMediaIn, KeepsItsDescriptorFromOtherPrograms) {
    TemporaryDirectory const directory;
    std::string const name = directory.write("a", "abc");
    std::size_t const descriptors = openDescriptors();
    int const descriptor = nextDescriptor();
    {
        FileMediaIn const in(name);
        EXPECT_TRUE(isCloseOnExec(descriptor));
        FileMediaIn const copy = in;
        EXPECT_EQ(openDescriptors(), descriptors + 1);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(FileMediaIn, IsEmptiedThroughItsBase) {
    TemporaryDirectory const directory;
    FileMediaIn in(directory.write("a", "abc"));
    std::istringstream stream;
    static_cast<MediaIn&>(in) = IStreamMediaIn(stream);
    EXPECT_EQ(failureOf([&] { in.name(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.length(); }), nullHandle);
    EXPECT_FALSE(in.convertToCRLF());
}

TEST(StreamMediaOut, EndsAndClosesInTheSlotsOfTheFileOutput) {
    EXPECT_EQ(slot(&StreamMediaOutImpl::end), 4);
    EXPECT_EQ(slot(&FileMediaOutImpl::end), 4);
    EXPECT_EQ(slot(&StreamMediaOutImpl::close), 8);
    EXPECT_EQ(slot(&FileMediaOutImpl::close), 8);
    EXPECT_EQ(slot(&StreamMediaOut::close), slot(&FileMediaOut::close));
}

TEST(StreamMediaOut, WritesAndFlushesTheCallersStream) {
    // Counts the times that it is flushed.
    class Counting : public std::stringbuf {
    public:
        int m_flushes = 0;

    protected:
        int sync() override { return ++m_flushes, 0; }
    };
    Counting sink;
    std::ostream stream(&sink);
    StreamMediaOut out(stream);
    out << "ab" << std::string("c\0d", 3);
    out.write(nullptr, 0);
    EXPECT_EQ(sink.m_flushes, 0);
    out.end();
    out.close();
    EXPECT_EQ(sink.m_flushes, 2);
    out << "e";
    EXPECT_EQ(sink.str(), std::string("abc\0de", 6));
    EXPECT_EQ(out.tell(), 0U);
}

TEST(StreamMediaOut, SaysSoWhenTheStreamDoesNotTakeTheBytes) {
    std::ostream stream(nullptr);
    StreamMediaOut out(stream);
    EXPECT_EQ(failureOf([&] { out << "a"; }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.end(); }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.close(); }), writeFailed);
    std::ofstream full("/dev/full");
    StreamMediaOut late(full);
    late << "a";
    EXPECT_EQ(failureOf([&] { late.end(); }), writeFailed);
}

TEST(StreamMediaOut, RefusesBytesThatAreNotThere) {
    std::ostringstream stream;
    StreamMediaOut out(stream);
    EXPECT_EQ(failureOf([&] { out.write(nullptr, 1); }), "MediaException( 2 ) ");
}

TEST(StreamMediaOut, IsEmptiedThroughItsBase) {
    std::ostringstream stream;
    StreamMediaOut out(stream);
    static_cast<MediaOut&>(out) = MediaOut();
    EXPECT_EQ(failureOf([&] { out.close(); }), nullHandle);
}

TEST(FileMediaOut, MakesOrEmptiesItsFile) {
    TemporaryDirectory const directory;
    std::string const name = directory.write("a", "former content");
    FileMediaOut out(name);
    EXPECT_EQ(readFile(name), "");
    EXPECT_EQ(out.name(), name);
    out << "abc";
    EXPECT_EQ(out.tell(), 3U);
    out.end();
    EXPECT_EQ(readFile(name), "abc");
    out << "de";
    out.setpos(1);
    EXPECT_EQ(out.tell(), 1U);
    out << "X";
    out.close();
    EXPECT_EQ(readFile(name), "aXcde");
    FileMediaOut fresh(directory.file("fresh"));
    EXPECT_EQ(readFile(directory.file("fresh")), "");
}

TEST(FileMediaOut, WritesOutWhatIsLeftWhenItGoes) {
    TemporaryDirectory const directory;
    FileMediaOut(directory.file("a")).write(buffer("abc"));
    EXPECT_EQ(readFile(directory.file("a")), "abc");
}

TEST(FileMediaOut, ClosesOnceAndRefusesWritesFromThenOn) {
    TemporaryDirectory const directory;
    std::size_t const descriptors = openDescriptors();
    int const descriptor = nextDescriptor();
    FileMediaOut out(directory.file("a"));
    EXPECT_TRUE(isCloseOnExec(descriptor));
    out << "abc";
    out.close();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(readFile(directory.file("a")), "abc");
    EXPECT_EQ(failureOf([&] { out.close(); }), "nothing thrown");
    EXPECT_EQ(failureOf([&] { out.end(); }), "nothing thrown");
    out.setpos(0);
    EXPECT_EQ(failureOf([&] { out.close(); }), "nothing thrown") << "there is nothing to move in";
    EXPECT_EQ(failureOf([&] { out << "d"; }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.close(); }), writeFailed);
    EXPECT_EQ(failureOf([&] { out.end(); }), writeFailed);
}

TEST(FileMediaOut, RefusesAFileThatCannotBeOpened) {
    TemporaryDirectory const directory;
    std::string const file = directory.write("a", "abc");
    std::string const cut = file + std::string("\0b", 2);
    for (auto const& name : {directory.path(), directory.file("missing/b"), file + "/b", cut, std::string()})
        EXPECT_EQ(failureOf([&] { FileMediaOut{name}; }), cannotOpen(296, name));
    EXPECT_EQ(readFile(file), "abc");
}

TEST(FileMediaOut, SaysSoWhenTheDiskIsFull) {
    std::function<void(FileMediaOut&)> const steps[] = {
        [](FileMediaOut& out) { out.end(); },
        [](FileMediaOut& out) { out.close(); },
        [](FileMediaOut& out) { out.setpos(0); },
        [](FileMediaOut& out) { out << std::string(100000, 'b'); },
    };
    for (auto const& step : steps) {
        FileMediaOut out("/dev/full");
        out << "a";
        EXPECT_EQ(failureOf([&] { step(out); }), writeFailed);
        EXPECT_EQ(failureOf([&] { out << "c"; }), writeFailed);
        EXPECT_EQ(failureOf([&] { out.close(); }), writeFailed);
        EXPECT_EQ(failureOf([&] { out.close(); }), writeFailed) << "what was lost stays known";
        EXPECT_EQ(failureOf([&] { out.end(); }), writeFailed);
    }
}

TEST(FileMediaOut, GoesQuietly) {
    std::size_t const descriptors = openDescriptors();
    EXPECT_EQ(failureOf([&] { FileMediaOut("/dev/full").write(buffer("a")); }), "nothing thrown");
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(FileMediaOut, WritesOverAfterGoingBackFromAFailure) {
    TemporaryDirectory const directory;
    FileMediaOut out(directory.file("a"));
    {
        FileSizeLimit const limit(50);
        EXPECT_EQ(failureOf([&] { out << std::string(100000, 'a'); }), writeFailed);
        EXPECT_EQ(failureOf([&] { out << "b"; }), writeFailed);
    }
    out.setpos(0);
    out << "again";
    out.close();
    EXPECT_EQ(readFile(directory.file("a")).substr(0, 6), "againa");
}

TEST(FileMediaOut, WrapsTheCallersStream) {
    std::ostringstream stream;
    FileMediaOut out(stream);
    EXPECT_EQ(out.name(), "");
    out << "abc";
    EXPECT_EQ(out.tell(), 3U);
    out.setpos(1);
    out << "X";
    out.close();
    out << "Y";
    out.end();
    EXPECT_EQ(stream.str(), "aXY");
    stream.setstate(std::ios::badbit);
    EXPECT_EQ(failureOf([&] { out.close(); }), writeFailed) << "a close is a flush";
}

TEST(FileMediaOut, HasNoPositionWhereTheStreamHasNone) {
    std::ostream stream(nullptr);
    EXPECT_EQ(FileMediaOut(stream).tell(), UINT64_MAX);
}

TEST(FileMediaOut, WritesOnAfterAskingAStreamThatThrowsForItsPosition) {
    Stubborn sink("");
    std::ostream stream(&sink);
    FileMediaOut out(stream);
    out << "ab";
    EXPECT_EQ(out.tell(), UINT64_MAX);
    out << "cd";
    EXPECT_EQ(sink.written, "abcd");
    std::string filtered;
    boost::iostreams::filtering_ostream filter(boost::iostreams::back_inserter(filtered));
    FileMediaOut filtering(filter);
    filtering << "ab";
    EXPECT_EQ(filtering.tell(), UINT64_MAX);
    filtering << "cd";
    filtering.end();
    EXPECT_EQ(filtered, "abcd");
}

TEST(FileMediaOut, RefusesToWriteAfterAPositionThatTheStreamCannotGoTo) {
    Stubborn throws(""), refuses("", [] {});
    for (Stubborn* const sink : {&throws, &refuses}) {
        std::ostream stream(sink);
        FileMediaOut out(stream);
        out << "abc";
        out.setpos(0);
        EXPECT_EQ(failureOf([&] { out << "d"; }), writeFailed) << "which would stand at another place";
        EXPECT_EQ(sink->written, "abc");
    }
}

TEST(FileMediaOut, LetsTheEndOfItsThreadPass) {
    std::function<void(FileMediaOut&)> const steps[] = {
        [](FileMediaOut& out) { out.tell(); },
        [](FileMediaOut& out) { out.setpos(0); },
    };
    for (auto const& step : steps)
        EXPECT_EQ(endOfThread([&] {
                      Stubborn sink("", [] { ::pthread_exit(const_cast<char*>("ended")); });
                      std::ostream stream(&sink);
                      FileMediaOut out(stream);
                      step(out);
                  }),
                  "ended");
}

TEST(FileMediaOut, IsEmptiedThroughItsBase) {
    std::ostringstream stream;
    FileMediaOut out(stream);
    static_cast<MediaOut&>(out) = MediaOut();
    EXPECT_EQ(failureOf([&] { out.close(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.name(); }), nullHandle);
}
