// quillmark scan, run for real: over the example messages, whose reports stand in golden/, and over
// mailboxes made here.

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "include2/Md5"
#include "tests/tools/Scans.h"
#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

/// The titles of a report: the lines that begin with no blank, but the last two, which sum up.
std::vector<std::string> titles(std::string const& report) {
    std::vector<std::string> found;
    for (std::string const& line : linesOf(report))
        if (!line.empty() && line[0] != ' ') found.push_back(line);
    found.resize(found.size() - std::min<std::size_t>(2, found.size()));
    return found;
}

/// The lines of a report that stand under a label.
std::vector<std::string> under(std::string const& label, std::string const& report) {
    std::vector<std::string> found;
    bool inside = false;
    for (std::string const& line : linesOf(report)) {
        if (line.size() < 13 || line.substr(0, 2) != "  ")
            inside = false;
        else if (line[2] != ' ')
            inside = line.substr(2, 10).find(label + " ") == 0;
        if (inside) found.push_back(line.substr(13));
    }
    return found;
}

std::string mbox() {
    return "From a@example.com Mon Mar  2 09:14:05 2026\n" + message("one") +
           "\nFrom b@example.com Mon Mar  2 09:15:05 2026\n" + message("two");
}

}  // namespace

TEST(Scan, ReportsOnTheExampleMessagesLineByLine) {
    Ran const ran = scan({examples});
    EXPECT_EQ(ran.out, readFile(QUILLMARK_SOURCE_DIR "/tests/tools/golden/examples.txt"));
    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(ran.status, 1);  // two of the messages are bad on purpose
}

TEST(Scan, ReportsOnTheExampleMessagesInJson) {
    Ran const ran = scan({"--json", examples});
    EXPECT_EQ(linesOf(ran.out), linesOf(readFile(QUILLMARK_SOURCE_DIR "/tests/tools/golden/examples.json")));
    EXPECT_EQ(ran.status, 1);
}

TEST(Scan, ReportsAsItsPageSays) {
    std::string const page = readFile(QUILLMARK_SOURCE_DIR "/docs/tool.md");
    std::string const file = std::string(examples) + "/06-private-link.eml";
    std::string const report = scan({file}).out;
    EXPECT_THAT(page, testing::HasSubstr("```text\n" + report.substr(0, report.find("\n\n")) + "\n```"));
}

TEST(Scan, SaysTheSameTwice) {
    EXPECT_EQ(scan({examples}).out, scan({examples}).out);
}

TEST(Scan, EndsWithZeroWhenEveryMessageIsGood) {
    EXPECT_EQ(scan({std::string(examples) + "/01-plain.eml"}).status, 0);
}

TEST(Scan, ReadsStandardInputWhenNoPathOrADashIsGiven) {
    for (std::vector<std::string> const& paths :
         {std::vector<std::string>{}, std::vector<std::string>{"-"}}) {
        Ran const ran = scan(paths, {message("one"), {}, ""});
        EXPECT_EQ(titles(ran.out), std::vector<std::string>{"standard input"});
        EXPECT_EQ(under("Links", ran.out),
                  std::vector<std::string>{"1  example.org  one  http://one.example.org/"});
        EXPECT_EQ(ran.status, 0);
    }
}

TEST(Scan, ReadsAStandardInputThatIsLargerThanTheMemory) {
    TemporaryDirectory const swap;
    std::string const large = message("one") + std::string(300000, 'x') + "\n";
    Ran const ran = scan({"--memory", "1K", "--tmp", swap.path()}, {large, {}, ""});
    EXPECT_EQ(ran.out, scan({}, {large, {}, ""}).out);
    EXPECT_TRUE(std::filesystem::is_empty(swap.path())) << "a swap file was left behind";
}

TEST(Scan, ReadsAnMboxMessageByMessage) {
    TemporaryDirectory const place;
    std::string const path = place.write("archive", mbox());
    Ran const ran = scan({path});
    EXPECT_EQ(titles(ran.out), (std::vector<std::string>{path + ", message 1", path + ", message 2"}));
    EXPECT_EQ(under("Subject", ran.out), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(linesOf(ran.out).back(), "2 messages, 2 parts, 2 links.");
}

TEST(Scan, ReadsAnMboxFromStandardInput) {
    EXPECT_EQ(titles(scan({}, {mbox(), {}, ""}).out),
              (std::vector<std::string>{"standard input, message 1", "standard input, message 2"}));
}

TEST(Scan, ReadsAMaildirAndItsFolders) {
    TemporaryDirectory const place;
    for (char const* directory : {"cur", "new", "tmp", ".Sent/cur", ".Sent/new", ".Sent/tmp"})
        std::filesystem::create_directories(place.file(directory));
    place.write("cur/2:2,S", message("two"));
    place.write("cur/1:2,S", message("one"));
    place.write("new/3", message("three"));
    place.write("tmp/4", message("unfinished"));
    place.write(".Sent/cur/5", message("sent"));
    place.write("dovecot-uidlist", "3 V1 N5\n");
    Ran const ran = scan({place.path()});
    EXPECT_EQ(titles(ran.out), (std::vector<std::string>{place.file("cur/1:2,S"), place.file("cur/2:2,S"),
                                                         place.file("new/3"), place.file(".Sent/cur/5")}));
}

TEST(Scan, ReadsWhatLooksLikeMailBelowADirectory) {
    TemporaryDirectory const place;
    place.write("b.EML", message("b"));
    place.write("a.mbox", mbox());
    place.write("deep/er/header", message("header"));
    place.write("box/cur/1", message("maildir"));
    std::filesystem::create_directories(place.file("box/new"));
    place.write("archive", mbox());
    place.write("notes.txt", "Some notes: nothing of it mail.\n");
    place.write("link.txt", "http://www.example.com/\n");
    place.write(".hidden.eml", message("hidden"));
    place.write(".git/x.eml", message("hidden"));
    std::filesystem::create_directory_symlink(place.path(), place.file("deep/round"));
    Ran const ran = scan({place.path()});
    EXPECT_EQ(titles(ran.out),
              (std::vector<std::string>{
                  place.file("a.mbox") + ", message 1", place.file("a.mbox") + ", message 2",
                  place.file("archive") + ", message 1", place.file("archive") + ", message 2",
                  place.file("b.EML"), place.file("box/cur/1"), place.file("deep/er/header")}));
    EXPECT_EQ(linesOf(ran.out).back(), "7 messages, 7 parts, 7 links. 2 files that are no mail passed over.");
    EXPECT_EQ(ran.status, 0);
}

TEST(Scan, ReadsAFileThatWasNamedWhateverItLooksLike) {
    TemporaryDirectory const place;
    Ran const ran = scan({place.write("message.txt", message("one"))});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(under("Subject", ran.out), std::vector<std::string>{"one"});
}

TEST(Scan, GivesEachBadMessageItsErrorAndGoesOn) {
    TemporaryDirectory const place;
    std::string const missing = place.file("missing.eml");
    std::string const empty = place.write("empty.eml", "");
    std::string const good = place.write("good.eml", message("good"));
    Ran const ran = scan({missing, empty, "/dev/null", good});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(titles(ran.out), (std::vector<std::string>{missing, empty, "/dev/null", good}));
    EXPECT_EQ(under("Error", ran.out),
              (std::vector<std::string>{"No such file or directory", "empty: there is no message in it",
                                        "empty: there is no message in it"}));
    EXPECT_EQ(linesOf(ran.out).back(), "1 message, 1 part, 1 link. 3 bad, see the lines \"Error\".");
}

TEST(Scan, KnowsWhatIsNoMessage) {
    for (char const* text : {"\nJust text, see www.example.com.\n", "Just text, see www.example.com.\n"}) {
        Ran const ran = scan({}, {text, {}, ""});
        EXPECT_EQ(ran.status, 1);
        EXPECT_THAT(under("Error", ran.out), testing::Contains("no header field: this is no message"));
        EXPECT_EQ(under("Links", ran.out).size(), 1U);
    }
}

TEST(Scan, GoesOnBehindAMessageOfAnMboxThatIsNone) {
    std::string const marker = "From a@example.com Mon Mar  2 09:14:05 2026\n";
    std::string const text = "no header here: see www.example.org\n";
    // The next message begins anywhere, at the edge of a block of 16384 bytes as well.
    for (std::size_t const end : {36U, 16382U, 16383U, 16384U, 16385U, 16388U, 16390U, 40000U}) {
        std::string const filler(end - text.size(), 'x');
        Ran const ran = scan({}, {marker + text + filler + "\n" + mbox()});
        EXPECT_EQ(ran.status, 1);
        EXPECT_EQ(under("Error", ran.out).size(), 2U) << end;
        EXPECT_EQ(under("Subject", ran.out), (std::vector<std::string>{"one", "two"})) << end;
        EXPECT_EQ(under("Links", ran.out).size(), 3U) << end;
    }
}

TEST(Scan, KnowsAMultipartThatBreaksOff) {
    Ran const ran = scan({}, {"From: a@example.com\nContent-Type: multipart/mixed; boundary=x\n\n"
                              "--x\n\nSee www.example.com\n",
                              {},
                              ""});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(under("Error", ran.out), std::vector<std::string>{"a multipart breaks off before its end"});
    EXPECT_EQ(under("Links", ran.out).size(), 1U);
}

TEST(Scan, KnowsOtherFaultsOfTheStructure) {
    Ran const noBoundary =
        scan({}, {"From: a@example.com\nContent-Type: multipart/mixed\n\nSee www.example.com\n"});
    EXPECT_EQ(under("Error", noBoundary.out), std::vector<std::string>{"a multipart names no boundary"});
    Ran const noField =
        scan({}, {"From: a@example.com\nthis is no field\nSubject: x\n\nSee www.example.com\n"});
    EXPECT_EQ(under("Error", noField.out),
              std::vector<std::string>{"a line among the header fields is no header field"});
}

TEST(Scan, SaysWhyAFileCannotBeRead) {
    Ran const ran = scan({"/proc/self/mem"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(under("Error", ran.out), std::vector<std::string>{"Input/output error"});
}

TEST(Scan, PrintsAsManyKeysForAFileThatCannotBeRead) {
    EXPECT_EQ(
        scan({"--json", "/nonexistent"}).out,
        R"({"file":"/nonexistent","message":null,"good":false,"errors":["No such file or directory"],)"
        R"("subject":null,"date":null,"message_id":null,"envelope":null,"from":[],"sender":[],"reply_to":[],)"
        R"("to":[],"cc":[],"without_address":[],"parts":[],"links":[],"verdict":null})"
        "\n");
}

TEST(Scan, LivesThroughMultipartsNestedWithoutEnd) {
    std::string nested = "From: a@example.com\n";
    for (int i = 0; i < 20000; ++i) {
        std::string const boundary = "b" + std::to_string(i);
        nested += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
    }
    Ran const ran = scan({}, {nested + "\nwww.example.com\n", {}, ""});
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(under("Error", ran.out), testing::Contains("multiparts are nested too deep"));
}

TEST(Scan, KeepsTheLinksOfABrokenBase64Part) {
    Ran const ran = scan({std::string(examples) + "/07-broken-base64.eml"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(under("Error", ran.out),
              std::vector<std::string>{"part 2: Invalid Base64 Encoding at pos 30. Character=0x21"});
    EXPECT_EQ(under("Links", ran.out),
              (std::vector<std::string>{"1  example.com  www     https://www.example.com/parcel",
                                        "2  example.com  parcel  http://parcel.example.com/first",
                                        "2  example.com  parcel  http://parcel.example.com/second"}));
}

TEST(Scan, DecodesQuotedPrintableAndUuencodeBeforeItLooksForLinks) {
    Ran const ran =
        scan({}, {"From: a@example.com\nContent-Type: multipart/mixed; boundary=x\n\n"
                  "--x\nContent-Transfer-Encoding: quoted-printable\n\nSee http://www.exam=\nple.com/=41\n"
                  "--x\nContent-Transfer-Encoding: x-uuencode\n\n"
                  "begin 644 t\n6=W=W+F5X86UP;&4N;W)G+W5U96YC\n`\nend\n--x--\n",
                  {},
                  ""});
    EXPECT_EQ(under("Links", ran.out),
              (std::vector<std::string>{"1  example.com  www  http://www.example.com/A",
                                        "2  example.org  www  http://www.example.org/uuenc"}));
}

TEST(Scan, HashesTheDecodedContent) {
    // The digest of "abc" in RFC 1321.
    for (char const* encoded : {"7bit\n\nabc", "base64\n\nYWJj", "quoted-printable\n\n=61b=\nc"}) {
        Ran const ran =
            scan({}, {std::string("From: a@example.com\nContent-Transfer-Encoding: ") + encoded, {}, ""});
        EXPECT_THAT(ran.out, testing::HasSubstr(" 3 B  900150983cd24fb0d6963f7d28e17f72\n")) << encoded;
    }
}

TEST(Scan, FindsLinksInOtherCharacterSets) {
    std::string wide;
    for (char const c : std::string("See http://bc.example.de/\n")) wide += std::string{c, '\0'};
    Ran const ran =
        scan({}, {"From: a@example.com\nContent-Type: text/plain; charset=UTF-16LE\n\n" + wide, {}, ""});
    EXPECT_EQ(under("Links", ran.out), std::vector<std::string>{"1  example.de  bc  http://bc.example.de/"});
}

TEST(Scan, LooksForLinksInTextOnly) {
    Ran const ran =
        scan({}, {"From: a@example.com\nContent-Type: application/x-thing\n\nwww.example.com\n", {}, ""});
    EXPECT_TRUE(under("Links", ran.out).empty());
}

TEST(Scan, KeepsTheLinksOfEachPartApart) {
    Ran const ran = scan({std::string(examples) + "/09-bounce.eml"});
    EXPECT_EQ(under("Links", ran.out),
              (std::vector<std::string>{"1    example.org       mailto:nobody@example.org",
                                        "1    example.com  www  https://www.example.com/help/bounces",
                                        "3.1  example.com  www  http://www.example.com/hello",
                                        "3.2  example.com  www  http://www.example.com/hello"}));
}

TEST(Scan, FindsTheSameWhateverStaysInMemory) {
    std::string const whole = scan({examples}).out;
    for (char const* memory : {"0", "1", "100", "1K", "1M"}) {
        TemporaryDirectory const swap;
        EXPECT_EQ(scan({"--memory", memory, "--tmp", swap.path(), examples}).out, whole) << memory;
        EXPECT_TRUE(std::filesystem::is_empty(swap.path())) << memory;
    }
}

TEST(Scan, FindsEveryLinkOfATextThatIsSniffedInPieces) {
    std::string text = "From: a@example.com\n\n";
    std::string const filler(80, '-');
    for (int i = 0; i < 240000; ++i)
        text += filler + (i % 60000 == 0 ? " www.a" + std::to_string(i) + ".example.com" : "") + "\n";
    EXPECT_EQ(under("Links", scan({}, {text, {}, ""}).out).size(), 4U);
}

TEST(Scan, ReadsATextWithoutLineEndsInPieces) {
    std::string const text =
        "From: a@example.com\n\nwww.example.com " + std::string(9000000, ' ') + "www.example.org\n";
    EXPECT_EQ(under("Links", scan({}, {text}).out).size(), 2U);
}

TEST(Scan, TakesBareDomainsForLinksUnlessItIsStrict) {
    Surroundings const bare{"From: a@example.com\n\nGo to example.com/page or www.example.org\n", {}, ""};
    EXPECT_EQ(under("Links", scan({}, bare).out).size(), 2U);
    EXPECT_EQ(under("Links", scan({"--strict"}, bare).out),
              std::vector<std::string>{"1  example.org  www  http://www.example.org"});
}

TEST(Scan, TakesTheFirstReturnPathForTheEnvelope) {
    Ran const ran = scan(
        {}, {"Return-Path: <a@example.com>\nReturn-Path: <b@example.com>\nFrom: c@example.com\n\n", {}, ""});
    EXPECT_EQ(under("Envelope", ran.out), std::vector<std::string>{"a@example.com"});
}

TEST(Scan, ShowsWhatIsNoAddressAsItStands) {
    Ran const ran = scan({}, {"Return-Path: a b\nFrom: @@\n\n", {}, ""});
    EXPECT_EQ(under("Envelope", ran.out), std::vector<std::string>{"no path: a b"});
    EXPECT_EQ(under("From", ran.out), std::vector<std::string>{"no address: @@"});
}

TEST(Scan, UnfoldsHeaderFields) {
    Ran const ran =
        scan({}, {"From: Anna\r\n Lind\r\n\t<a@example.com>\r\nSubject: two\r\n words\r\n\r\n", {}, ""});
    EXPECT_EQ(under("From", ran.out), std::vector<std::string>{"Anna Lind <a@example.com>"});
    EXPECT_EQ(under("Subject", ran.out), std::vector<std::string>{"two words"});
}

TEST(Scan, DecodesTheEncodedWordsAmongOtherText) {
    std::string const opened = "=?utf-8?B?" + std::string(1100, 'w');
    struct {
        std::string subject;
        std::string shown;
    } const rows[] = {
        {"=?utf-8?B?w4Y=?=", "\xc3\x86"},
        {"=?utf-8?B?w4Y=?= =?utf-8?Q?b=C3=A4?=",
         "\xc3\x86"
         "b\xc3\xa4"},
        {"a =?utf-8?B?w4Y=?= b", "a \xc3\x86 b"},
        {opened + "=?utf-8?B?w4Y=?=", opened + "\xc3\x86"},
        {"=? =?utf-8?B?w4Y=?= =?x?= =?\?=", "=? \xc3\x86 =?x?= =?\?="},
        {"=?utf-8?B?w4Y=?= =?", "\xc3\x86 =?"},
        {"=?utf-8?XY?w4Y=?=", "=?utf-8?XY?w4Y=?="},
    };
    for (auto const& row : rows) {
        Ran const ran = scan({}, {"From: a@example.org\nSubject: " + row.subject + "\n\n", {}, ""});
        EXPECT_EQ(under("Subject", ran.out), std::vector<std::string>{row.shown}) << row.subject;
    }
}

TEST(Scan, DecodesTheNamesOfAttachments) {
    struct {
        char const* parameter;
        char const* name;
    } const rows[] = {
        {"\"=?utf-8?Q?caf=C3=A9=2Eexe?=\"", "caf\\u00e9.exe"},
        {"\"=?utf-8?B?Y2Fmw6ku?= =?utf-8?B?ZXhl?=\"", "caf\\u00e9.exe"},
        {"\"my =?utf-8?Q?caf=C3=A9?=.exe\"", "my caf\\u00e9.exe"},
        {"\"bill.exe\"", "bill.exe"},
        {"x.txt\nContent-Disposition: attachment; filename=\"=?utf-8?Q?caf=C3=A9?=.exe\"", "caf\\u00e9.exe"},
        {"\"=?utf-8?Q?x?=\"\nContent-Disposition: attachment; filename=bill.exe", "bill.exe"},
        {"\"=?utf-8?Q?x?=\"\nContent-Disposition: attachment", "x"},
    };
    for (auto const& row : rows) {
        Ran const ran =
            scan({"--json"}, {std::string("From: a@example.org\nContent-Type: application/x; name=") +
                                  row.parameter + "\n\nx\n",
                              {},
                              ""});
        EXPECT_THAT(ran.out, testing::HasSubstr(std::string("\"file_name\":\"") + row.name + "\""))
            << row.parameter;
    }
}

TEST(Scan, SaysWhenAHeaderFieldNamesAVeryLongCharacterSet) {
    std::string const fault = "a header field names a character set of more than 16 KiB";
    std::string const name(20'000, 'x');
    std::string const word = "=?" + name + "?Q?a?=";
    std::string const value = "filename*=" + name + "''a.exe";
    std::string const part = "From: a@example.com\nContent-Type: a/b\n";
    struct {
        char const* what;
        std::string message;
        std::size_t faults;
    } const rows[] = {
        {"in an encoded word", part + "Content-Description: " + word + "\n\nx\n", 1},
        {"in two", part + "Content-Description: " + word + "\n " + word + "\n\nx\n", 1},
        {"in a name", part + "Content-Disposition: a; " + value + "\n\nx\n", 1},
        {"behind a shorter one", part + "Content-Disposition: a; filename*=b*=" + name + "''a.exe\n\nx\n", 1},
        {"in a part",
         "From: a@example.com\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b\nX: " + word +
             "\n\nx\n--b--\n",
         1},
        {"in a message of an mbox",
         "From a\n" + part + "\nx\n\nFrom a\nX: " + word + "\n\nx\n\nFrom a\n" + part + "\nx\n", 1},
        {"not in a text", part + "\n" + word + "\n" + value + "\n", 0},
        {"not in the text of a part",
         "From: a@example.com\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\n" + word + "\n--b\n\n" +
             value + "\n--b--\n",
         0},
        {"not over several fields", part + "Content-Description: =?\nX: " + name + "\nY: ?Q?a?=\n\nx\n", 0},
        {"not in a shorter one",
         part + "Content-Description: =?" + std::string(16'000, 'x') + "?Q?a?=\n\nx\n", 0},
    };
    for (auto const& row : rows) {
        Ran const ran = scan({}, {row.message, {}, ""});
        EXPECT_EQ(under("Error", ran.out), std::vector<std::string>(row.faults, fault)) << row.what;
    }
}

TEST(Scan, ReadsContentsThatNameAVeryLongCharacterSetAsTheyAre) {
    std::string const text = "=?" + std::string(20'000, 'x') + "?Q?a?= *=" + std::string(20'000, 'x') + "''";
    Ran const ran = scan({}, {"From: a@example.com\nContent-Type: a/b\n\n" + text, {}, ""});
    Quillmark::Md5Hasher digest;
    digest.update(reinterpret_cast<unsigned char const*>(text.data()),
                  static_cast<unsigned int>(text.size()));
    digest.finalize();
    EXPECT_THAT(ran.out, testing::HasSubstr(digest.digestAsHexString()));
}

TEST(Scan, WritesOutWhatATerminalWouldObey) {
    Ran const ran = scan(
        {}, {"From: \"\x1b]0;owned\x07\" <a@example.com>\nSubject: =?utf-8?q?=E2=80=AEevil=1b?= \x9b\n\n",
             {},
             ""});
    EXPECT_EQ(under("From", ran.out), std::vector<std::string>{"\"\\x1b]0;owned\\x07\" <a@example.com>"});
    EXPECT_THAT(under("Subject", ran.out).front(), testing::StartsWith("\\u{202e}evil\\x1b "));
    for (char const c : ran.out) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
}

TEST(Scan, RefusesListsThatCannotBeRead) {
    Ran const ran = quillmark({"scan", "--lists", "/nonexistent", examples});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, "quillmark: cannot read the domain list /nonexistent/gtld\n");
    EXPECT_EQ(ran.out, "");
}

TEST(Scan, TakesTheListsThatCameWithTheProgram) {
    TemporaryDirectory const prefix;
    std::filesystem::create_directories(prefix.file("bin"));
    std::filesystem::copy_file(QUILLMARK_TOOL, prefix.file("bin/quillmark"));
    Surroundings elsewhere;
    elsewhere.program = prefix.file("bin/quillmark");
    std::vector<std::string> const arguments{"scan", std::string(examples) + "/06-private-link.eml"};

    Ran const without = quillmark(arguments, elsewhere);
    EXPECT_EQ(without.err,
              "quillmark: no domain lists: links are found by their address only; \"quillmark lists\" makes "
              "them\n");
    EXPECT_EQ(under("Links", without.out).size(), 5U);
    EXPECT_EQ(without.status, 0);

    std::filesystem::create_directories(prefix.file("share/quillmark"));
    std::filesystem::copy(testLists(), prefix.file("share/quillmark/lists"));
    Ran const with = quillmark(arguments, elsewhere);
    EXPECT_EQ(with.err, "");
    EXPECT_EQ(under("Links", with.out).size(), 7U);
}

TEST(Scan, RefusesAPlaceForSwapFilesThatIsNone) {
    Ran const ran = scan({"--tmp", "/nonexistent", examples});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, "quillmark: /nonexistent: cannot write swap files there\n");
}

TEST(Scan, ReportsAPartThatFitsInNoSwapFileAndGoesOn) {
    TemporaryDirectory const place;
    std::string const large = place.write("large.eml", message("large") + std::string(20000, 'x'));
    std::string const small = place.write("small.eml", message("small"));
    Surroundings narrow;
    narrow.fileSize = 4000;
    Ran const ran = scan({"--memory", "10", large, small}, narrow);
    EXPECT_EQ(under("Error", ran.out), std::vector<std::string>{"part 1: the swap file cannot be written"});
    EXPECT_EQ(under("Subject", ran.out), (std::vector<std::string>{"large", "small"}));
    EXPECT_EQ(ran.status, 1);
}

TEST(Scan, SaysWhenTheReportCannotBeWritten) {
    Ran const ran = scan({examples}, {"", {}, "/dev/full"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, "quillmark: cannot write the report: No space left on device\n");
}

TEST(Scan, LeavesNoSwapFileBehindWhenItIsInterrupted) {
    TemporaryDirectory const swap;
    Ran const ran = quillmarkInterrupted(
        {"scan", "--lists", testLists(), "--memory", "1K", "--tmp", swap.path()},
        message("one") + std::string(5000, 'x'), [&] { return !std::filesystem::is_empty(swap.path()); });
    EXPECT_EQ(ran.status, 128 + SIGINT);
    EXPECT_TRUE(std::filesystem::is_empty(swap.path()));
}

TEST(Scan, UsesColoursOnATerminalOnly) {
    std::string const file = std::string(examples) + "/06-private-link.eml";
    auto const onTerminal = [&](std::vector<std::string> more, Surroundings const& surroundings = {}) {
        more.insert(more.begin(), {"scan", "--lists", testLists()});
        more.push_back(file);
        return quillmarkOnTerminal(Terminal::Everything, more, surroundings).out;
    };
    std::string const colour = "\x1b[1;36m" + file + "\x1b[0m\n";
    EXPECT_THAT(onTerminal({}), testing::StartsWith(colour));
    EXPECT_THAT(onTerminal({}), testing::HasSubstr("\x1b[33mprivate IP address"));
    EXPECT_THAT(onTerminal({"--color", "never"}), testing::StartsWith(file + "\n"));
    EXPECT_THAT(onTerminal({}, {"", {{"NO_COLOR", "1"}}, ""}), testing::StartsWith(file + "\n"));
    EXPECT_THAT(onTerminal({}, {"", {{"TERM", "dumb"}}, ""}), testing::StartsWith(file + "\n"));
    EXPECT_THAT(scan({file}).out, testing::StartsWith(file + "\n"));
    EXPECT_THAT(scan({"--color", "always", file}).out, testing::StartsWith(colour));
}

TEST(Scan, ShowsNoProgressForShortWork) {
    Ran const ran = quillmarkOnTerminal(Terminal::ErrorsOnly, {"scan", "--lists", testLists(), examples});
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.status, 1);
}

TEST(CommandLine, ShowsItsVersionAndItsHelp) {
    Ran const version = quillmark({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "quillmark 1.0.0\n");
    Ran const help = quillmark({"--help"});
    EXPECT_EQ(help.status, 0);
    for (char const* text :
         {"scan", "lists", "address", "uri", "links", "host", "ip", "Examples:", "Exit status:"})
        EXPECT_THAT(help.out, testing::HasSubstr(text));
    Ran const scanHelp = quillmark({"scan", "--help"});
    EXPECT_EQ(scanHelp.status, 0);
    for (char const* text : {"--lists DIR", "--memory SIZE", "--tmp DIR", "--strict", "--json", "Examples:"})
        EXPECT_THAT(scanHelp.out, testing::HasSubstr(text));
}

TEST(CommandLine, SaysInWordsWhatAnOptionTakes) {
    struct Row {
        std::vector<std::string> arguments;
        std::string said;
    };
    std::string const number = " is no number from ";
    for (Row const& row : {
             Row{{"scan", "--jobs", "0"}, "--jobs: 0" + number + "1 to 4294967295"},
             Row{{"scan", "--jobs", "-1"}, "--jobs: -1" + number + "1 to 4294967295"},
             Row{{"scan", "--jobs", "1K"}, "--jobs: 1K" + number + "1 to 4294967295"},
             Row{{"scan", "--jobs", "4294967296"}, "--jobs: 4294967296" + number + "1 to 4294967295"},
             Row{{"scan", "--memory", "1X"},
                 "--memory: 1X" + number + "0 to 4294967295, with K, M or G or without"},
             Row{{"scan", "--memory", "1KB"},
                 "--memory: 1KB" + number + "0 to 4294967295, with K, M or G or without"},
             Row{{"scan", "--memory", "4G"},
                 "--memory: 4G" + number + "0 to 4294967295, with K, M or G or without"},
             Row{{"scan", "--memory", "99999999999999999999K"},
                 "--memory: 99999999999999999999K" + number + "0 to 4294967295, with K, M or G or without"},
             Row{{"scan", "--memory", ""},
                 "--memory: " + number + "0 to 4294967295, with K, M or G or without"},
             Row{{"scan", "--color", "bogus"}, "--color: bogus is not auto, always or never"},
             Row{{"ps", "--color", "1"}, "--color: 1 is not auto, always or never"},
             Row{{"serve", "--port", "65536"}, "--port: 65536" + number + "0 to 65535"},
             Row{{"dns", "a", "--server", "127.0.0.1", "--port", "x"}, "--port: x" + number + "0 to 65535"},
             Row{{"encode", "scramble", "--seed", "1.5"}, "--seed: 1.5" + number + "0 to 4294967295"},
             Row{{"ipc", "send", "ping"}, "TYPE: ping" + number + "0 to 4294967295"},
         }) {
        Ran const ran = quillmark(row.arguments);
        EXPECT_EQ(ran.err, "quillmark: " + row.said + "\nTry \"quillmark --help\".\n");
        EXPECT_EQ(ran.status, 2) << row.said;
    }
}

TEST(CommandLine, TakesNumbersAsDecimalAndSizesWithTheirSuffixes) {
    std::string const whole = scan({examples}).out;
    for (char const* memory : {"3G", "1m", "010k", "0"})
        EXPECT_EQ(scan({"--memory", memory, "--jobs", "010", "--color", "never", examples}).out, whole)
            << memory;
    EXPECT_EQ(scan({"--colour", "always", examples}).out.find("\x1b["), 0U);
}

TEST(CommandLine, EndsWithTwoForWhatItDoesNotUnderstand) {
    for (std::vector<std::string> const& arguments : {std::vector<std::string>{},
                                                      {"frobnicate"},
                                                      {"scan", "--frobnicate"},
                                                      {"host"},
                                                      {"scan", "--memory", "lots"}}) {
        Ran const ran = quillmark(arguments);
        EXPECT_EQ(ran.status, 2) << testing::PrintToString(arguments);
        EXPECT_THAT(ran.err, testing::EndsWith("Try \"quillmark --help\".\n"));
        EXPECT_EQ(ran.out, "");
    }
}
