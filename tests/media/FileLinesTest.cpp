// Lines of streams, and line ends of whole files.

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <type_traits>

#include "include2/File"
#include "tests/media/Trees.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using Path = File::Path;

namespace {

/// The bytes so that a person can read them.
std::string shown(std::string_view bytes) {
    std::string text;
    for (char const c : bytes) {
        if (c == '\r') {
            text += "\\r";
        } else if (c == '\n') {
            text += "\\n";
        } else if (c == '\0') {
            text += "\\0";
        } else {
            text += c;
        }
    }
    return text;
}

using Reader = int (*)(std::istream&, char*, int);

/// Reads a text call by call until nothing comes. Each call gives its result and, in the buffer before the
/// terminating NUL or up to the result, its bytes. Bytes behind the buffer must stay.
std::string calls(Reader reader, std::string const& text, int size, bool terminated) {
    std::istringstream stream(text);
    std::string all;
    for (int i = 0; i < 100; ++i) {
        std::string buffer(static_cast<std::size_t>(size) + 4, '#');
        int const result = reader(stream, buffer.data(), size);
        EXPECT_EQ(buffer.substr(static_cast<std::size_t>(size)), "####") << "written past the buffer";
        if (result == 0) return all;
        std::string const bytes =
            terminated ? std::string(buffer.c_str()) : buffer.substr(0, static_cast<std::size_t>(result));
        all += std::to_string(result) + ":" + shown(bytes) + "|";
    }
    return all + "no end";
}

std::string lines(std::string const& text, int size) {
    return calls(File::getline, text, size, true);
}

std::string crlfLines(std::string const& text, int size) {
    return calls(File::getlinecrlf, text, size, false);
}

/// Gives its text without taking a byte back.
class OneWay : public std::streambuf {
public:
    explicit OneWay(std::string text) : m_text(std::move(text)) {}

protected:
    int_type underflow() override {
        return m_next < m_text.size() ? traits_type::to_int_type(m_text[m_next]) : traits_type::eof();
    }
    int_type uflow() override {
        int_type const byte = underflow();
        ++m_next;
        return byte;
    }

private:
    std::string m_text;
    std::size_t m_next = 0;
};

using Conversion = void (*)(Path const&, Path const&);

std::string converted(Conversion convert, std::string const& text) {
    TemporaryDirectory const here;
    Path const from(here.write("from", text));
    Path const to(here.write("to", "what was there before, and longer than what comes"));
    convert(from, to);
    EXPECT_EQ(readFile(here.file("from")), text);
    return readFile(here.file("to"));
}

std::string refusal(std::string const& reason) {
    return "_lineConvert( 4 ) , File:349,  \"" + reason + "\"";
}

/// The number that the next descriptor gets.
int nextDescriptor() {
    int const next = ::dup(0);
    ::close(next);
    return next;
}

}  // namespace

static_assert(std::is_base_of_v<std::ifstream, File::basic_ifstream>);
static_assert(std::is_base_of_v<std::ofstream, File::basic_ofstream>);

TEST(FileGetline, GivesALineWithoutItsEnd) {
    struct {
        std::string text;
        int size;
        std::string calls;
    } const rows[] = {
        {"ab\ncd\n", 10, "3:ab|3:cd|"},
        {"ab\r\ncd\r\n", 10, "3:ab|3:cd|"},
        {"ab", 10, "2:ab|"},
        {"ab\r", 10, "2:ab|"},  // also without a line feed
        {"\n\n", 10, "1:|1:|"},
        {"\r\n", 10, "1:|"},
        {"\r", 10, "1:\\r|"},  // one byte stays as it is
        {"\rb\n", 2, "1:\\r|2:b|"},
        {"a", 10, "1:a|"},
        {"a\r\r\n", 10, "3:a\\r|"},  // one carriage return is taken off
        {"", 10, ""},
        {"abc\nd", 4, "4:abc|1:d|"},         // just fits
        {"abcd\ne\n", 4, "3:abc|2:d|2:e|"},  // comes in pieces
        {"ab\rc\n", 4, "2:ab|2:c|"},         // a carriage return at the end of a piece is taken off as well
        {"abc", 4, "3:abc|"},
        {"abcabcab", 4, "3:abc|3:abc|2:ab|"},
        {"ab\n", 2, "1:a|2:b|"},
        {"\n\n", 1, "1:|1:|"},
        {"a\n", 1, ""},
    };
    for (auto const& [text, size, expected] : rows)
        EXPECT_EQ(lines(text, size), expected) << shown(text) << " in " << size;
}

TEST(FileGetline, KeepsTheStreamGoodUntilItsEnd) {
    std::istringstream stream("abcdef\ng");
    char buffer[4];
    EXPECT_EQ(File::getline(stream, buffer, 4), 3);
    EXPECT_TRUE(stream.good()) << "a full buffer";
    EXPECT_EQ(File::getline(stream, buffer, 4), 4);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(File::getline(stream, buffer, 4), 1);
    EXPECT_TRUE(stream.eof());
    EXPECT_FALSE(stream.fail());
    EXPECT_EQ(File::getline(stream, buffer, 4), 0);
    EXPECT_TRUE(stream.fail());
    EXPECT_EQ(buffer[0], '\0');
    std::istringstream empty("\na");
    EXPECT_EQ(File::getline(empty, buffer, 1), 1);
    EXPECT_TRUE(empty.good()) << "a line feed needs no room";
    EXPECT_EQ(File::getline(empty, buffer, 1), 0);
    EXPECT_TRUE(empty.fail());
}

TEST(FileGetline, TakesNoLineForAFailure) {
    for (Reader const reader : {File::getline, File::getlinecrlf}) {
        std::istringstream stream("\nabcdef\n");
        stream.exceptions(std::ios::failbit | std::ios::badbit);
        char buffer[4];
        EXPECT_GT(reader(stream, buffer, 4), 0);
        EXPECT_EQ(reader(stream, buffer, 4), 3);
        EXPECT_GE(reader(stream, buffer, 4), 3);
    }
}

TEST(FileGetline, GivesNothingOfAStreamThatHasFailed) {
    for (Reader const reader : {File::getline, File::getlinecrlf}) {
        std::istringstream stream("abc\n");
        stream.setstate(std::ios::failbit);
        char buffer[8] = "#";
        EXPECT_EQ(reader(stream, buffer, 8), 0);
        EXPECT_STREQ(buffer, "");
        stream.clear();
        EXPECT_EQ(stream.peek(), 'a');
    }
}

TEST(FileGetline, RefusesABufferThatHoldsNothing) {
    for (Reader const reader : {File::getline, File::getlinecrlf}) {
        char buffer[] = "#";
        std::istringstream zero("\n"), negative("\n"), nowhere("\n"), one("a");
        EXPECT_EQ(reader(zero, buffer, 0), 0);
        EXPECT_EQ(reader(negative, buffer, -1), 0);
        EXPECT_EQ(reader(nowhere, nullptr, 10), 0);
        EXPECT_STREQ(buffer, "#");
        EXPECT_EQ(reader(one, buffer, 1), 0);
        EXPECT_STREQ(buffer, "");
        for (auto const* stream : {&zero, &negative, &nowhere, &one}) EXPECT_TRUE(stream->fail());
    }
}

TEST(FileGetlinecrlf, EndsALineInCrLf) {
    struct {
        std::string text;
        int size;
        std::string calls;
    } const rows[] = {
        {"ab\ncd\n", 10, "4:ab\\r\\n|4:cd\\r\\n|"},
        {"ab\r\ncd\r\n", 10, "4:ab\\r\\n|4:cd\\r\\n|"},
        {"ab", 10, "4:ab\\r\\n|"},
        {"ab\r", 10, "5:ab\\r\\r\\n|"},  // without a line feed the carriage return is a byte like others
        {"a", 10, "1:a|"},
        {"\n\n", 10, "2:\\r\\n|2:\\r\\n|"},
        {"\r\n", 10, "2:\\r\\n|"},
        {"\r", 10, "1:\\r|"},
        {"", 10, ""},
        {"ab", 4, "4:ab\\r\\n|"},  // room for the end
        {"ab", 3, "2:ab|"},        // no room
        {"abc", 4, "3:abc|"},
        {"ab\n", 4, "4:ab\\r\\n|"},  // fills the buffer
        {"ab\r\n", 4, "4:ab\\r\\n|"},
        {"a\r\n", 3, "3:a\\r\\n|"},
        {"abc\nd\n", 4, "3:abc|2:\\r\\n|3:d\\r\\n|"},  // the line feed had no room
        {"abcd\n", 4, "3:abc|3:d\\r\\n|"},
        {"abcdef\n", 4, "3:abc|3:def|2:\\r\\n|"},
        {"abcabcab", 4, "3:abc|3:abc|4:ab\\r\\n|"},
        {"\n", 2, "2:\\r\\n|"},
        {"a\n", 2, "1:a|2:\\r\\n|"},
        {"\n", 1, ""},
        {"a\n", 1, ""},
    };
    for (auto const& [text, size, expected] : rows)
        EXPECT_EQ(crlfLines(text, size), expected) << shown(text) << " in " << size;
}

TEST(FileGetlinecrlf, LosesNoLineFeedOfAStreamThatTakesNothingBack) {
    OneWay source("abc\nd\n");
    std::istream stream(&source);
    char buffer[4];
    std::string all;
    for (int n; (n = File::getlinecrlf(stream, buffer, 4)) > 0;)
        all.append(buffer, static_cast<std::size_t>(n));
    EXPECT_EQ(shown(all), "abc\\r\\nd\\r\\n");
}

TEST(FileGetlinecrlf, ReportsTheStreamWithoutProgressAsFailed) {
    std::istringstream stream("\n");
    char buffer[1];
    EXPECT_EQ(File::getlinecrlf(stream, buffer, 1), 0);
    EXPECT_TRUE(stream.fail());
    stream.clear();
    EXPECT_EQ(stream.peek(), '\n') << "the line feed stays";
}

TEST(LineConversion, EndsLinesAsAsked) {
    struct {
        std::string text, unix, dos;
    } const rows[] = {
        {"x\r\ny", "x\ny", "x\r\ny"},
        {"x\ny\n", "x\ny\n", "x\r\ny\r\n"},
        {"x\r\ny\r\n", "x\ny\n", "x\r\ny\r\n"},
        {"", "", ""},
        {"x", "x", "x"},
        {"\n", "\n", "\r\n"},
        {"\r\n", "\n", "\r\n"},
        {"\n\n\r\n", "\n\n\n", "\r\n\r\n\r\n"},
        {"x\r\r\n", "x\r\n", "x\r\r\n"},   // one carriage return belongs to the line feed
        {"x\ry\n", "x\ry\n", "x\ry\r\n"},  // others stay
        {"x\ny\r", "x\ny\r", "x\r\ny\r"},  // what has no line feed stays as it is
        {"\r", "\r", "\r"},
        {"\r\r", "\r\r", "\r\r"},
        {std::string("a\0b\n", 4), std::string("a\0b\n", 4), std::string("a\0b\r\n", 5)},
        {"\xff\xfe\n", "\xff\xfe\n", "\xff\xfe\r\n"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(shown(converted(File::dos2unix, row.text)), shown(row.unix)) << shown(row.text);
        EXPECT_EQ(shown(converted(File::unix2dos, row.text)), shown(row.dos)) << shown(row.text);
    }
}

// The file is read in blocks of 16384 bytes: each line end falls once on either side of their border.
TEST(LineConversion, SeesLineEndsAcrossBlocks) {
    for (std::size_t before = 16380; before < 16388; ++before) {
        std::string const text(before, 'x');
        EXPECT_EQ(converted(File::dos2unix, text + "\r\ny"), text + "\ny") << before;
        EXPECT_EQ(converted(File::unix2dos, text + "\r\ny"), text + "\r\ny") << before;
        EXPECT_EQ(converted(File::dos2unix, text + "\r\r\n"), text + "\r\n") << before;
        EXPECT_EQ(converted(File::dos2unix, text + "\ry"), text + "\ry") << before;
        EXPECT_EQ(converted(File::dos2unix, text + "\r"), text + "\r") << before;
        EXPECT_EQ(converted(File::unix2dos, text + "\n\n"), text + "\r\n\r\n") << before;
    }
}

TEST(LineConversion, TakesALongLineInOnePass) {
    std::string const line(20'000'000, 'x');
    EXPECT_TRUE(converted(File::dos2unix, line + "\r\n") == line + "\n");
    std::string const returns(3'000'000, '\r');
    EXPECT_TRUE(converted(File::dos2unix, returns) == returns);
    std::string const ends(3'000'000, '\n');
    EXPECT_TRUE(converted(File::dos2unix, ends) == ends);
}

TEST(LineConversion, DoesNothingForAnEmptyPath) {
    TemporaryDirectory const here;
    Path const file(here.write("a", "x\n"));
    for (Conversion const convert : {File::unix2dos, File::dos2unix}) {
        EXPECT_EQ(failureOf([&] { convert(Path(), file); }), "nothing thrown");
        EXPECT_EQ(failureOf([&] { convert(file, Path()); }), "nothing thrown");
        EXPECT_EQ(failureOf([&] { convert(Path(), Path()); }), "nothing thrown");
    }
    EXPECT_EQ(readFile(file), "x\n");
}

TEST(LineConversion, MakesTheFileThatItWrites) {
    TemporaryDirectory const here;
    File::unix2dos(Path(here.write("a", "x\n")), Path(here.file("b")));
    EXPECT_EQ(readFile(here.file("b")), "x\r\n");
}

TEST(LineConversion, LeavesTheOutputAloneWhenTheInputCannotBeRead) {
    TemporaryDirectory const here;
    Path const output(here.write("b", "precious"));
    EXPECT_EQ(failureOf([&] { File::unix2dos(Path(here.file("nothing")), output); }),
              refusal("No such file or directory"));
    EXPECT_EQ(failureOf([&] { File::dos2unix(Path(here.path()), output); }), refusal("Is a directory"));
    EXPECT_EQ(readFile(here.file("b")), "precious");
    EXPECT_NE(failureOf([&] { File::unix2dos(Path(here.file("nothing")), Path(here.file("c"))); }),
              "nothing thrown");
    EXPECT_FALSE(isThere(here.file("c")));
    try {
        File::unix2dos(Path(here.file("nothing")), output);
        FAIL();
    } catch (Exception const& refused) {
        EXPECT_EQ(refused.intParameter(), ENOENT);
    }
}

TEST(LineConversion, ReportsAnOutputThatCannotBeOpened) {
    TemporaryDirectory const here;
    Path const input(here.write("a", "x\n"));
    std::size_t const open = openDescriptors();
    EXPECT_EQ(failureOf([&] { File::unix2dos(input, Path(here.path())); }), refusal("Is a directory"));
    EXPECT_EQ(failureOf([&] { File::unix2dos(input, Path(here.file("no/b"))); }),
              refusal("No such file or directory"));
    EXPECT_EQ(failureOf([&] { File::unix2dos(input, Path(here.path() + std::string("/b\0c", 4))); }),
              refusal("Invalid argument"));
    EXPECT_EQ(failureOf([&] { File::unix2dos(Path(here.path() + std::string("/a\0c", 4)), input); }),
              refusal("Invalid argument"));
    EXPECT_EQ(openDescriptors(), open);
}

TEST(LineConversion, ReportsAWriteThatFails) {
    TemporaryDirectory const here;
    Path const input(here.write("a", "x\n"));
    std::size_t const open = openDescriptors();
    EXPECT_EQ(failureOf([&] { File::unix2dos(input, Path("/dev/full")); }),
              refusal("No space left on device"));
    EXPECT_EQ(openDescriptors(), open);
}

TEST(LineConversion, RefusesTwoPathsToOneFile) {
    TemporaryDirectory const here;
    Path const file(here.write("a", "x\r\ny\n"));
    file.link(here.file("hard"));
    makeLink("a", here.file("soft"));
    for (std::string const& to :
         {here.file("a"), here.file("hard"), here.file("soft"), here.path() + "/./a"}) {
        EXPECT_EQ(failureOf([&] { File::dos2unix(file, Path(to)); }), refusal("Both paths lead to one file"))
            << to;
        EXPECT_EQ(readFile(file), "x\r\ny\n") << to;
    }
}

TEST(FileStreams, ReadAndWriteAFile) {
    TemporaryDirectory const here;
    Path const path(here.write("a", "what was there before"));
    File::basic_ofstream out(path);
    ASSERT_TRUE(out.is_open());
    out << "one two";
    out.close();
    EXPECT_TRUE(out.good());
    File::basic_ifstream in(path);
    ASSERT_TRUE(in.is_open());
    std::string one, two;
    in >> one >> two;
    EXPECT_EQ(one + "|" + two, "one|two");
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(readFile(path), "one two");
}

TEST(FileStreams, FailWhenTheFileCannotBeOpened) {
    TemporaryDirectory const here;
    here.write("x", "");
    for (std::string const& path : {here.file("no/file"), std::string(), here.file(std::string("x\0y", 3))}) {
        File::basic_ifstream const in{Path(path)};
        EXPECT_TRUE(in.fail()) << path;
        EXPECT_FALSE(in.is_open()) << path;
        File::basic_ofstream const out{Path(path)};
        EXPECT_TRUE(out.fail()) << path;
        EXPECT_FALSE(out.is_open()) << path;
    }
}

TEST(FileStreams, AreNotHandedDownToOtherPrograms) {
    TemporaryDirectory const here;
    Path const path(here.write("a", ""));
    std::size_t const open = openDescriptors();
    {
        int const first = nextDescriptor();
        File::basic_ifstream const in(path);
        int const second = nextDescriptor();
        File::basic_ofstream const out(path);
        for (int const descriptor : {first, second})
            EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC) << descriptor;
    }
    EXPECT_EQ(openDescriptors(), open);
}
