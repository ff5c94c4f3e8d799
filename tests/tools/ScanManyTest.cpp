// quillmark scan of many messages: their order, lists of paths, shards, and how it ends before its time.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "include2/Md5"
#include "tests/tools/Scans.h"
#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

/// The files of a report in JSON, in its order.
std::vector<std::string> files(std::string const& json) {
    std::vector<std::string> found;
    for (std::string const& line : linesOf(json)) found.push_back(nlohmann::json::parse(line)["file"]);
    return found;
}

std::vector<std::string> subjects(std::string const& json) {
    std::vector<std::string> found;
    for (std::string const& line : linesOf(json)) found.push_back(nlohmann::json::parse(line)["subject"]);
    return found;
}

/// So many messages of very different length, named so that their names are in order.
std::vector<std::string> writeMessages(TemporaryDirectory const& place, unsigned int count) {
    std::vector<std::string> paths;
    for (unsigned int i = 0; i < count; ++i) {
        std::string const number = std::to_string(10000 + i);
        std::string const filler(i % 7 == 0 ? 200000 : i % 13 * 100, ' ');
        paths.push_back(place.write(number + ".eml", message("m" + number) + filler + "\n"));
    }
    return paths;
}

std::string joined(std::vector<std::string> const& paths, char separator) {
    std::string text;
    for (std::string const& path : paths) text += path + separator;
    return text;
}

std::string mboxOf(std::string const& text) {
    return "From a@example.com Mon Mar  2 09:14:05 2026\n" + text;
}

/// A named pipe in a directory.
std::string makePipe(TemporaryDirectory const& place, char const* name) {
    std::string path = place.file(name);
    if (::mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("no pipe");
    return path;
}

/// The writing end of a named pipe, once somebody reads it.
class PipeWriter {
public:
    explicit PipeWriter(std::string const& path) : m_descriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC)) {}
    ~PipeWriter() { ::close(m_descriptor); }
    PipeWriter(PipeWriter const&) = delete;
    PipeWriter& operator=(PipeWriter const&) = delete;
    void write(std::string const& text) const {
        EXPECT_EQ(::write(m_descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

private:
    int const m_descriptor;
};

}  // namespace

TEST(ScanMany, ReportsInTheOrderOfTheInputHoweverManyWork) {
    TemporaryDirectory const place;
    std::vector<std::string> const paths = writeMessages(place, 700);
    Ran const all = scan({"--json", place.path()});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(files(all.out), paths);
    std::string const report = scan({place.path()}).out;
    for (char const* jobs : {"1", "2", "5", "100"}) {
        EXPECT_EQ(scan({"--json", "--jobs", jobs, place.path()}).out, all.out) << jobs;
        EXPECT_EQ(scan({"--jobs", jobs, place.path()}).out, report) << jobs;
    }
    EXPECT_EQ(linesOf(report).back(), "700 messages, 700 parts, 700 links.");
    std::vector<std::string> const backwards(paths.rbegin(), paths.rend());
    EXPECT_EQ(files(scan({"--json", "--files-from", "-"}, {joined(backwards, '\n')}).out), backwards);
}

TEST(ScanMany, KeepsTheOrderWhenOneFileHasMoreToSayThanMayWait) {
    TemporaryDirectory const place;
    std::string mailbox;
    for (int i = 0; i < 3000; ++i) mailbox += mboxOf(message("m" + std::to_string(i))) + "\n";
    std::vector<std::string> paths;
    for (char const* name : {"a", "b", "c"}) paths.push_back(place.write(name, mailbox));
    Ran const ran = scan({"--json", paths[0], paths[1], paths[2]});
    ASSERT_GT(ran.out.size(), std::size_t{3} << 20);
    std::vector<std::string> expected;
    for (std::string const& path : paths) expected.insert(expected.end(), 3000, path);
    EXPECT_EQ(files(ran.out), expected);
    std::vector<std::string> const found = subjects(ran.out);
    for (std::size_t i = 0; i < found.size(); ++i) ASSERT_EQ(found[i], "m" + std::to_string(i % 3000));
}

TEST(ScanMany, RefusesANumberOfJobsThatIsNone) {
    for (char const* jobs : {"0", "-1", "many"})
        EXPECT_EQ(scan({"--jobs", jobs, examples}).status, 2) << jobs;
}

TEST(FilesFrom, TakesOnePathALineOrOneBeforeEachNul) {
    TemporaryDirectory const place;
    std::vector<std::string> const paths{place.write("b.eml", message("b")), place.write("a b", message("a")),
                                         place.write("c\nd", message("c"))};
    EXPECT_EQ(files(scan({"--json", "-0", "--files-from", "-"}, {joined(paths, '\0')}).out), paths);
    EXPECT_EQ(files(scan({"--json", "--null", "--files-from", "-"}, {joined(paths, '\0')}).out), paths);
    std::vector<std::string> const lines(paths.begin(), paths.begin() + 2);
    std::string const text = "\n" + lines[0] + "\n\n" + lines[1];  // the last one lacks its end
    EXPECT_EQ(files(scan({"--json", "--files-from", "-"}, {text}).out), lines);
    std::string const list = place.write("list", text);
    EXPECT_EQ(files(scan({"--json", "--files-from", list}).out), lines);
    EXPECT_EQ(files(scan({"--json", "--files-from", list, paths[2]}).out),
              (std::vector<std::string>{paths[2], lines[0], lines[1]}))
        << "the paths come first";
}

TEST(FilesFrom, OpensDirectoriesAndReportsWhatIsNotThere) {
    TemporaryDirectory const place;
    std::filesystem::create_directories(place.file("box/cur"));
    std::filesystem::create_directories(place.file("box/new"));
    std::string const one = place.write("box/cur/1", message("one"));
    std::string const two = place.write("two", message("two"));
    Ran const ran = scan({"--json", "--files-from", "-"},
                         {joined({place.file("missing"), place.file("box"), two}, '\n')});
    EXPECT_EQ(files(ran.out), (std::vector<std::string>{place.file("missing"), one, two}));
    EXPECT_EQ(nlohmann::json::parse(linesOf(ran.out)[0])["errors"],
              std::vector<std::string>{"No such file or directory"});
    EXPECT_EQ(ran.status, 1);
}

TEST(FilesFrom, ReportsPathsThatNoSystemTakes) {
    TemporaryDirectory const place;
    std::string const good = place.write("good", message("good"));
    Ran const ran = scan({"--json", "--files-from", "-"},
                         {std::string(300000, 'x') + "\na" + std::string(1, '\0') + "b\n" + good});
    std::vector<std::string> const lines = linesOf(ran.out);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(nlohmann::json::parse(lines[0])["errors"], std::vector<std::string>{"File name too long"});
    EXPECT_EQ(nlohmann::json::parse(lines[1])["errors"], std::vector<std::string>{"Invalid argument"});
    EXPECT_EQ(nlohmann::json::parse(lines[2])["subject"], "good");
}

TEST(FilesFrom, SaysWhenTheListCannotBeRead) {
    TemporaryDirectory const place;
    Ran const missing = scan({"--files-from", place.file("missing")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "quillmark: " + place.file("missing") + ": No such file or directory\n");
    EXPECT_EQ(missing.out, "");
    // What was named beside it is reported on all the same.
    Ran const directory = scan({"--files-from", place.path(), place.write("a.eml", message("a"))});
    EXPECT_EQ(directory.status, 2);
    EXPECT_EQ(directory.err, "quillmark: " + place.path() + ": Is a directory\n");
    EXPECT_EQ(linesOf(directory.out).back(), "1 message, 1 part, 1 link.");
}

TEST(FilesFrom, StandardInputIsTheListOrAMessage) {
    Ran const ran = scan({"--files-from", "-", "-"}, {message("one")});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, "quillmark: standard input cannot be a message and the list of paths at once\n");
}

// Two readers would share its bytes, and each take a part for the whole.
TEST(FilesFrom, StandardInputIsReadByOne) {
    TemporaryDirectory const place;
    std::string const mail = place.write("a.eml", message("a"));
    Ran const listed = scan({"--files-from", "-"}, {"-\n" + mail + "\n"});
    EXPECT_EQ(listed.status, 1);
    EXPECT_THAT(listed.out, testing::HasSubstr("standard input\n  Error      is the list of paths\n"));
    EXPECT_THAT(listed.out, testing::HasSubstr("1 message, ")) << "the list was read to its end";
    Ran const twice = scan({"-", "-"}, {message("one")});
    EXPECT_EQ(twice.status, 1);
    EXPECT_THAT(twice.out, testing::HasSubstr("standard input\n  Error      has been named before\n"));
    EXPECT_THAT(twice.out, testing::HasSubstr("1 message, "));
    std::string const list = place.write("list", "-\n");
    EXPECT_EQ(scan({"--files-from", list}, {message("one")}).status, 0) << "a list in a file may name it";
}

TEST(FilesFrom, AnEmptyListIsNoInput) {
    Ran const ran = scan({"--files-from", "-"});
    EXPECT_EQ(ran.out,
              "Judged by the built-in policy: 0 to review, 0 to reject.\n0 messages, 0 parts, 0 links.\n");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(scan({"--null", examples}).status, 2) << "without a list there is nothing to separate";
}

TEST(FilesFrom, ReportsWhatIsListedWhileTheListIsStillBeingWritten) {
    TemporaryDirectory const place;
    std::string const list = makePipe(place, "list");
    Running run({"scan", "--lists", testLists(), "--files-from", list});
    {
        PipeWriter const writer(list);
        for (char const* name : {"one", "two", "three"}) {
            std::string const path = place.write(name, message(name));
            writer.write(path + "\n");
            std::string line;
            do {
                line = run.line();
            } while (line != path && !line.empty());
            EXPECT_EQ(line, path);
            while (!run.line().empty()) {
            }
        }
    }
    EXPECT_EQ(run.line(), "Judged by the built-in policy: 0 to review, 0 to reject.");
    EXPECT_EQ(run.line(), "3 messages, 3 parts, 3 links.");
    EXPECT_EQ(run.wait(), 0);
}

TEST(Shard, CoversEverythingExactlyOnceInWhateverOrderItIsFound) {
    TemporaryDirectory const place;
    std::vector<std::string> paths = writeMessages(place, 60);
    std::filesystem::create_directories(place.file("deep/er"));
    paths.push_back(place.write("deep/er/x.eml", message("x")));
    place.write("notes.txt", "no mail\n");
    paths.push_back("/nonexistent");
    for (unsigned int const count : {1U, 2U, 7U}) {
        std::map<std::string, int> seen;
        unsigned long skipped = 0;
        for (unsigned int number = 1; number <= count; ++number) {
            std::string const shard = std::to_string(number) + "/" + std::to_string(count);
            Ran const walked = scan({"--json", "--shard", shard, place.path(), "/nonexistent"});
            for (std::string const& file : files(walked.out)) ++seen[file];
            skipped += linesOf(scan({"--shard", shard, place.path()}).out).back().find("passed over") !=
                       std::string::npos;
            std::vector<std::string> backwards(paths.rbegin(), paths.rend());
            std::vector<std::string> listed =
                files(scan({"--json", "--shard", shard, "--files-from", "-"}, {joined(backwards, '\n')}).out);
            std::reverse(listed.begin(), listed.end());
            EXPECT_EQ(listed, files(walked.out)) << shard;
        }
        std::map<std::string, int> expected;
        for (std::string const& path : paths) expected[path] = 1;
        EXPECT_EQ(seen, expected) << count;
        EXPECT_EQ(skipped, 1U) << count;
    }
}

TEST(Shard, IsTheDigestOfThePathDividedByTheirNumber) {
    // printf %s /nonexistent/2 | md5sum
    for (char const* path : {"/nonexistent/1", "/nonexistent/2", "/nonexistent/3"}) {
        Quillmark::Md5Hasher hasher;
        std::string const text = path;
        hasher.update(reinterpret_cast<unsigned char const*>(text.data()),
                      static_cast<unsigned int>(text.size()));
        hasher.finalize();
        std::uint64_t const start = std::stoull(hasher.digestAsHexString().substr(0, 16), nullptr, 16);
        for (std::uint64_t number = 1; number <= 5; ++number)
            EXPECT_EQ(files(scan({"--json", "--shard", std::to_string(number) + "/5", path}).out).size(),
                      start % 5 == number - 1 ? 1U : 0U)
                << path << " " << number;
    }
}

TEST(Shard, ReadsStandardInputInOneOfThemOnly) {
    int reports = 0;
    for (char const* shard : {"1/3", "2/3", "3/3"})
        reports += linesOf(scan({"--json", "--shard", shard}, {message("one")}).out).size() == 1 ? 1 : 0;
    EXPECT_EQ(reports, 1);
}

TEST(Shard, RefusesWhatIsNoShard) {
    for (std::string const shard : {"0/3", "4/3", "1", "1/", "/1", "a/b", "1/0", "-1/3", "1/3x", "1 /3"}) {
        Ran const ran = scan({"--shard", shard, examples});
        EXPECT_EQ(ran.status, 2) << shard;
        EXPECT_EQ(ran.err, "quillmark: --shard: " + shard + " is not K/N, with K from 1 to N\n");
    }
}

TEST(ScanEnd, SaysWhatWasDoneWhenItIsInterrupted) {
    for (int const number : {SIGINT, SIGTERM}) {
        TemporaryDirectory const place;
        std::string const first = place.write("first", message("first"));
        std::string const waiting = makePipe(place, "pipe");
        Running run({"scan", "--lists", testLists(), first, waiting});
        EXPECT_EQ(run.line(), first);
        while (!run.line().empty()) {
        }
        run.signal(number);
        EXPECT_EQ(run.line(), "Judged by the built-in policy: 0 to review, 0 to reject.");
        EXPECT_EQ(run.line(), "1 message, 1 part, 1 link.");
        EXPECT_EQ(run.wait(), 128 + number);
        EXPECT_EQ(run.error(), "");
    }
}

TEST(ScanEnd, ComesWhileTheListIsWaitedFor) {
    TemporaryDirectory const place;
    std::string const list = makePipe(place, "list");
    std::string const first = place.write("first", message("first"));
    Running run({"scan", "--json", "--lists", testLists(), "--files-from", list});
    PipeWriter const writer(list);
    writer.write(first + "\n");
    EXPECT_EQ(files(run.line()), std::vector<std::string>{first});
    run.signal(SIGINT);
    EXPECT_EQ(run.wait(), 128 + SIGINT);
    EXPECT_EQ(run.line(), "");
}

TEST(ScanEnd, IsQuietWhenNobodyReadsOn) {
    TemporaryDirectory const place;
    writeMessages(place, 50);
    Running run(
        {"scan", "--lists", testLists(), "--files-from", "-", place.path(), place.path(), place.path()});
    EXPECT_EQ(run.line(), place.file("10000.eml"));
    run.closeOutput();
    EXPECT_EQ(run.error(), "");
    run.wait();  // 2, or 0 where the pipe has taken everything by then
}

TEST(ScanProgress, IsABarOnceTheWorkTakesLong) {
    TemporaryDirectory const place;
    std::string const slow = makePipe(place, "pipe");
    std::thread writer([&] {
        PipeWriter const pipe(slow);
        // More than the line of progress waits for; the scan began before.
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        pipe.write(message("slow"));
    });
    Ran const ran =
        quillmarkOnTerminal(Terminal::ErrorsOnly, {"scan", "--jobs", "1", "--lists", testLists(),
                                                   std::string(examples) + "/06-private-link.eml", slow});
    writer.join();
    EXPECT_THAT(ran.out, testing::MatchesRegex(
                             "\r\x1b\\[K\\[=+\\] 100%  2 messages  .*/s  0 s left  1 flagged\r\x1b\\[K"));
}

TEST(ScanProgress, ShowsCountersWhereTheEndIsNotKnown) {
    TemporaryDirectory const place;
    std::string const list = makePipe(place, "list");
    std::thread writer([&] {
        PipeWriter const pipe(list);
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        pipe.write(place.write("a.eml", message("a")) + "\n");
    });
    Ran const ran =
        quillmarkOnTerminal(Terminal::ErrorsOnly, {"scan", "--lists", testLists(), "--files-from", list});
    writer.join();
    EXPECT_THAT(ran.out, testing::MatchesRegex("\r\x1b\\[K1 message, 0 B  .*/s  0 B/s\r\x1b\\[K"));
}

// What stands in an mbox is read by GMime alone, the header of a message alone by the command: both say the same.
TEST(ScanHeader, IsReadAlikeInAnMboxAndAlone) {
    std::string const body = "\nSee www.example.com\n";
    std::string const mixed = "multipart/mixed; boundary=x\n\n--x\n\nSee www.example.org\n--x--\n";
    for (std::string const& text : {
             "From: a@example.com\nSubject: plain\n" + body,
             "From: a@example.com\nSubject:no blank\nDate:\n" + body,
             "From: Anna\n Lind\n\t<a@example.com>\nSubject: \n folded \n  twice  \n" + body,
             "From: a@example.com\nContent-Type: text/plain; charset=utf-16le\nSubject: after\n" + body,
             "content-type: text/html\nFrom: a@example.com\nCONTENT-TRANSFER-ENCODING:\n  "
             "quoted-printable\n" +
                 body,
             "Content-Type: " + mixed,
             "From: a@example.com\nContent-Type:\n " + mixed,
             "Content-Type: text/plain\nContent-Type: text/html\nFrom: a@example.com\n" + body,
             "Content-: x\nContent-Disposition: attachment; filename=\"a b.exe\"\nFrom: a@example.com\n" +
                 body,
             "Subject : blank before the colon\nFrom : a@example.com\n" + body,
             "From: a@example.com\nno field\nSubject: x\n" + body,
             "From: a@example.com\nSubject: x\n \n y\n" + body,
             "From: a@example.com\nSubject: a\rb\n" + body,
             "From: a@example.com\nSubject: \xff\xe4\n" + body,
             std::string("From: a@example.com\nSubject: a\0b\n", 32) + body,
             std::string("From: a@example.com\nSubject: no end"),
             std::string("From: a@example.com\n\n"),
             std::string("\nSee www.example.com\n"),
             std::string("No header: see www.example.com\n"),
             std::string("no header, see www.example.com\n"),
         }) {
        std::string const crlf = [&] {
            std::string other;
            for (char const c : text) other += c == '\n' ? std::string("\r\n") : std::string(1, c);
            return other;
        }();
        for (std::string const& each : {text, crlf})
            EXPECT_EQ(scan({"--json"}, {each}).out, scan({"--json"}, {mboxOf(each)}).out) << each;
    }
}

TEST(ScanJson, IsPlainAscii) {
    std::string const subject = "\x01\t\"\\/ \x7f \xc3\xa9 \xf0\x9f\x93\x9a \xff \xe2\x82";
    Ran const ran = scan({"--json"}, {"Subject: x" + subject + "\n\n"});
    EXPECT_THAT(ran.out,
                testing::HasSubstr(R"("subject":"x\u0001\t\"\\/ \u007f \u00e9 \ud83d\udcda \ufffd \ufffd")"));
}
