// quillmark encode, decode, md5, dos2unix, unix2dos and ps, run for real.

#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

Ran filtered(std::vector<std::string> const& arguments, std::string const& input) {
    return quillmark(arguments, {input, {}, ""});
}

}  // namespace

TEST(EncodeCommand, EncodesStandardInput) {
    std::string const longLine(80, 'x');
    struct {
        std::vector<std::string> arguments;
        std::string input;
        std::string output;
    } const rows[] = {
        {{"encode", "base64"}, "any carnal pleas", "YW55IGNhcm5hbCBwbGVhcw==\n"},
        {{"encode", "base64", "-"}, "any", "YW55\n"},
        {{"encode", "qp"}, "caf\xc3\xa9 = 1\n", "caf=C3=A9 =3D 1\n"},
        {{"encode", "qp"}, longLine, longLine.substr(0, 73) + "=\n" + longLine.substr(73)},
        {{"encode", "scramble"}, "abc", ";89"},
        {{"encode", "scramble", "--seed", "1"}, "abc", "`cb"},
    };
    for (auto const& row : rows) {
        Ran const ran = filtered(row.arguments, row.input);
        EXPECT_EQ(ran.status, 0) << ran.err;
        EXPECT_EQ(ran.out, row.output) << testing::PrintToString(row.arguments);
    }
}

TEST(EncodeCommand, TakesASeedForScramblingOnly) {
    struct {
        std::vector<std::string> arguments;
        std::string error;
    } const rows[] = {
        {{"encode", "qp", "--seed", "3"}, "--seed: qp has no seed, only scramble has one"},
        {{"encode", "--seed", "90", "base64"}, "--seed: base64 has no seed, only scramble has one"},
        {{"encode", "--seed", "3"}, "FORM is required"},
        {{"encode", "--seed", "x", "scramble"}, "--seed: x is no number from 0 to 4294967295"},
    };
    for (auto const& [arguments, error] : rows) {
        Ran const ran = filtered(arguments, "abc");
        EXPECT_EQ(ran.err, "quillmark: " + error + "\nTry \"quillmark --help\".\n");
        EXPECT_EQ(ran.status, 2) << error;
        EXPECT_EQ(ran.out, "") << error;
    }
}

TEST(EncodeCommand, TurnsItsOwnScrambledTextBack) {
    std::string text;
    for (int i = 0; i < 300000; ++i) text += static_cast<char>(i * 7);
    EXPECT_EQ(filtered({"encode", "scramble"}, filtered({"encode", "scramble"}, text).out).out, text);
}

TEST(EncodeCommand, ReadsAFile) {
    TemporaryDirectory const place;
    Ran const ran = quillmark({"encode", "base64", place.write("three", "abc")});
    EXPECT_EQ(ran.out, "YWJj\n");
    EXPECT_EQ(ran.status, 0);
}

TEST(EncodeCommand, SaysWhatItCannotRead) {
    TemporaryDirectory const place;
    for (char const* command : {"encode", "decode"}) {
        Ran const missing = quillmark({command, "base64", place.file("none")});
        EXPECT_EQ(missing.status, 2);
        EXPECT_EQ(missing.err, "quillmark: " + place.file("none") + ": No such file or directory\n");
        Ran const directory = quillmark({command, "base64", place.path()});
        EXPECT_EQ(directory.status, 2);
        EXPECT_EQ(directory.err, "quillmark: " + place.path() + ": Is a directory\n");
    }
}

TEST(EncodeCommand, RefusesFormsThatItDoesNotKnow) {
    for (char const* command : {"encode", "decode"}) {
        Ran const ran = quillmark({command, "rot13"});
        EXPECT_EQ(ran.status, 2);
        EXPECT_THAT(ran.err, testing::HasSubstr("rot13"));
    }
    EXPECT_EQ(quillmark({"decode", "qp"}).status, 2);
}

TEST(EncodeCommand, FailsWhenItsOutputIsFull) {
    Ran const ran = quillmark({"encode", "base64", "/proc/self/exe"}, {"", {}, "/dev/full"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, "quillmark: cannot write the report: No space left on device\n");
}

TEST(DecodeCommand, GivesBackWhatWasEncoded) {
    std::string bytes;
    for (int i = 0; i < 300000; ++i) bytes += static_cast<char>(i * i);
    Ran const ran = filtered({"decode", "base64"}, filtered({"encode", "base64"}, bytes).out);
    EXPECT_EQ(ran.out, bytes);
    EXPECT_EQ(ran.status, 0) << ran.err;
}

TEST(DecodeCommand, LeavesBadLinesOutAndSaysSo) {
    Ran const one = filtered({"decode", "base64"}, "YWJj\n*&%!\nZGVm\n");
    EXPECT_EQ(one.out, "abcdef");
    EXPECT_EQ(one.status, 1);
    EXPECT_THAT(one.err,
                testing::StartsWith("quillmark: standard input: 1 line is no Base64 and left out: "));
    Ran const two = filtered({"decode", "base64"}, "****\nYWJj\n*&%!\n");
    EXPECT_EQ(two.out, "abc");
    EXPECT_EQ(two.status, 1);
    EXPECT_THAT(two.err, testing::StartsWith(
                             "quillmark: standard input: 2 lines are no Base64 and left out; the first: "));
}

TEST(Md5Command, PrintsWhatMd5sumPrints) {
    TemporaryDirectory const place;
    std::string const plain = place.write("plain", "message digest");
    std::string const empty = place.write("empty", "");
    std::string const odd = place.write("a\\b\nc\rd", "a");
    Ran const ran = quillmark({"md5", plain, empty, odd});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, "f96b697d7cb7938d525a2f31aaf161d0  " + plain +
                           "\n"
                           "d41d8cd98f00b204e9800998ecf8427e  " +
                           empty +
                           "\n"
                           "\\0cc175b9c0f1b6a831c399e269772661  " +
                           place.path() + "/a\\\\b\\nc\\rd\n");
}

TEST(Md5Command, ReadsStandardInput) {
    std::string const line = "900150983cd24fb0d6963f7d28e17f72  -\n";
    EXPECT_EQ(filtered({"md5"}, "abc").out, line);
    EXPECT_EQ(filtered({"md5", "-"}, "abc").out, line);
}

TEST(Md5Command, GoesOnAfterAFileThatCannotBeRead) {
    TemporaryDirectory const place;
    std::string const good = place.write("good", "abc");
    Ran const ran = quillmark({"md5", place.file("none"), place.path(), good});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.out, "900150983cd24fb0d6963f7d28e17f72  " + good + "\n");
    EXPECT_EQ(linesOf(ran.err),
              (std::vector<std::string>{"quillmark: " + place.file("none") + ": No such file or directory",
                                        "quillmark: " + place.path() + ": Is a directory"}));
}

TEST(LinesCommands, ChangeTheEndsOfLines) {
    TemporaryDirectory const place;
    std::string const from = place.write("from", "one\r\ntwo\nthree");
    EXPECT_EQ(quillmark({"dos2unix", from, place.file("unix")}).status, 0);
    EXPECT_EQ(readFile(place.file("unix")), "one\ntwo\nthree");
    EXPECT_EQ(quillmark({"unix2dos", from, place.file("dos")}).status, 0);
    EXPECT_EQ(readFile(place.file("dos")), "one\r\ntwo\r\nthree");
}

TEST(LinesCommands, RefuseToWriteOverTheirInput) {
    TemporaryDirectory const place;
    std::string const from = place.write("from", "one\r\n");
    Ran const same = quillmark({"dos2unix", from, from});
    EXPECT_EQ(same.status, 2);
    EXPECT_EQ(same.err, "quillmark: " + from + " to " + from + ": Both paths lead to one file\n");
    EXPECT_EQ(readFile(from), "one\r\n");
    Ran const none = quillmark({"unix2dos", place.file("none"), place.file("made")});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, testing::HasSubstr("No such file or directory"));
    EXPECT_NE(::access(place.file("made").c_str(), F_OK), 0);
}

TEST(LinesCommands, RefuseAnEmptyName) {
    TemporaryDirectory const place;
    std::string const from = place.write("from", "one\r\n");
    for (char const* command : {"dos2unix", "unix2dos"}) {
        Ran const noPlace = quillmark({command, from, ""});
        EXPECT_EQ(noPlace.status, 2) << command;
        EXPECT_EQ(noPlace.err, "quillmark: TO: an empty name names no file\n");
        Ran const noSource = quillmark({command, "", place.file("made")});
        EXPECT_EQ(noSource.status, 2) << command;
        EXPECT_EQ(noSource.err, "quillmark: FROM: an empty name names no file\n");
    }
    EXPECT_NE(::access(place.file("made").c_str(), F_OK), 0);
}

TEST(ProcessesCommand, ShowsProcessesWithTheirNames) {
    std::string const own = std::to_string(::getpid());
    std::string const width(7 - std::min<std::size_t>(7, own.size()), ' ');
    Ran const all = quillmark({"ps"});
    EXPECT_EQ(all.status, 0);
    EXPECT_THAT(all.out, testing::HasSubstr(width + own + "  tools-tests "));
    Ran const named = quillmark({"ps", "tools-tests"});
    EXPECT_EQ(named.status, 0);
    for (std::string const& line : linesOf(named.out))
        EXPECT_THAT(line, testing::HasSubstr("  tools-tests       ")) << line;
    EXPECT_THAT(named.out, testing::HasSubstr(width + own));
}

TEST(ProcessesCommand, FailsWhenNoProcessHasTheName) {
    Ran const ran = quillmark({"ps", "no such name"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.out, "");
}
