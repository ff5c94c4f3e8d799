// The verdicts of quillmark scan, from the daemon and from the scan itself.

#include <nlohmann/json.hpp>

#include "tests/tools/Daemon.h"

using namespace QuillmarkTest;

namespace {

std::string mail(std::string const& text, std::string const& more = {}) {
    return "From: a@example.com\nTo: b@example.org\nSubject: s\n" + more + "\n" + text + "\n";
}

/// Scans a message with or without a daemon; gives the verdict.
nlohmann::json verdictOf(std::string const& message, std::vector<std::string> const& more = {}) {
    std::vector<std::string> arguments{"scan", "--json", "--lists", testLists()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    Ran const ran = quillmark(arguments, {message, {}, ""});
    return ran.out.empty() ? nlohmann::json(ran.err) : nlohmann::json::parse(ran.out)["verdict"];
}

std::string reasonsOf(nlohmann::json const& verdict) {
    std::string all;
    for (auto const& reason : verdict["reasons"]) all += reason.get<std::string>() + "\n";
    return all;
}

}  // namespace

TEST(ScanVerdict, JudgesByTheBuiltInPolicyWhenNoDaemonIsNamed) {
    struct {
        char const* text;
        char const* action;
        char const* reasons;
    } const rows[] = {
        {"nothing", "accept", ""},
        {"http://www.example.com/", "accept", ""},
        {"mailto:c@example.net", "accept", ""},
        {"http://192.168.1.1/", "review", "private-link 60 192.168.1.1\n"},
        {"http://0x7f000001/index.html", "review", "private-link 60 127.0.0.1\n"},
        {"http://2130706433/index.html", "review", "private-link 60 127.0.0.1\n"},
        {"http://198.51.100.7/", "review", "ip-link 40 198.51.100.7\n"},
        {"http://3325256711/index.html", "review", "ip-link 40 198.51.100.7\n"},
        {"http://www.example.com@10.0.0.1/", "reject",
         "private-link 60 10.0.0.1\nuser-in-link 40 10.0.0.1\n"},
        {"http://www.p\xd0\xb0ypal.com/ http://example.com", "review",
         "mixed-scripts 80 www.xn--pypal-4ve.com\n"},
        {"http://www.example.org/", "accept",
         "unrelated-sender 20 example.com does not link to itself but to example.org\n"},
    };
    for (auto const& row : rows) {
        nlohmann::json const verdict = verdictOf(mail(row.text));
        EXPECT_EQ(verdict["action"], row.action) << row.text;
        EXPECT_EQ(reasonsOf(verdict), row.reasons) << row.text;
        EXPECT_EQ(verdict["by"], "the built-in policy");
    }
}

TEST(ScanVerdict, IsTheSameFromADaemon) {
    Daemon daemon;
    std::vector<std::string> const asked{"scan",      "--lists",      testLists(), "--json",
                                         "--verdict", daemon.where(), examples};
    Ran const theirs = quillmark(asked);
    Ran const ours = quillmark({"scan", "--lists", testLists(), "--json", examples});
    auto const a = linesOf(theirs.out);
    auto const b = linesOf(ours.out);
    ASSERT_EQ(a.size(), b.size()) << theirs.err;
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto const their = nlohmann::json::parse(a[i])["verdict"];
        auto const our = nlohmann::json::parse(b[i])["verdict"];
        EXPECT_EQ(their.is_null(), our.is_null()) << b[i];
        if (our.is_null()) continue;
        EXPECT_EQ(their["score"], our["score"]) << b[i];
        EXPECT_EQ(their["action"], our["action"]) << b[i];
        EXPECT_EQ(their["reasons"], our["reasons"]) << b[i];
        EXPECT_EQ(their["by"], daemon.where());
    }
}

TEST(ScanVerdict, NamesTheFirstOffenderWhoeverJudges) {
    Daemon daemon;
    struct {
        char const* links;
        char const* reasons;
    } const rows[] = {
        {"http://www.example.org/ http://user@example.net/",
         "user-in-link 40 example.net\n"
         "unrelated-sender 20 example.com does not link to itself but to example.org\n"},
        {"http://one.example.org/ http://203.0.113.9/ http://two.example.net/ http://203.0.113.8/",
         "ip-link 40 203.0.113.9 and 1 more\n"
         "unrelated-sender 20 example.com does not link to itself but to example.org\n"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(reasonsOf(verdictOf(mail(row.links))), row.reasons);
        EXPECT_EQ(reasonsOf(verdictOf(mail(row.links), {"--verdict", daemon.where()})), row.reasons);
    }
}

TEST(ScanVerdict, SaysWhoJudged) {
    TemporaryDirectory const place;
    std::string const policy = place.write("policy", "rule ip-link 1\naction reject 1\n");
    Ran const own = quillmark({"scan", "--lists", testLists(), "--policy", policy},
                              {mail("http://203.0.113.9/"), {}, ""});
    EXPECT_THAT(own.out, testing::HasSubstr("\n  Verdict    reject, score 1\n"
                                            "             ip-link 1 203.0.113.9\n"));
    EXPECT_THAT(own.out, testing::HasSubstr("\nJudged by " + policy + ": 0 to review, 1 to reject.\n"));

    Daemon daemon({"--policy", policy});
    Ran const asked = quillmark({"scan", "--lists", testLists(), "--verdict", daemon.where()},
                                {mail("http://203.0.113.9/"), {}, ""});
    EXPECT_THAT(asked.out, testing::HasSubstr("\n  Verdict    reject, score 1\n"));
    EXPECT_THAT(asked.out,
                testing::HasSubstr("\nJudged by " + daemon.where() + ": 0 to review, 1 to reject.\n"));
}

TEST(ScanVerdict, KnowsTheDigestsOfManyParts) {
    // 80 parts: their digests take three requests. The last one is known.
    std::string text;
    for (int i = 0; i < 80; ++i) text += "--b\n\npart " + std::to_string(i) + "\n";
    std::string const message = mail(text + "--b--", "Content-Type: multipart/mixed; boundary=b\n");
    Ran const report = quillmark({"scan", "--json", "--lists", testLists()}, {message, {}, ""});
    auto const parts = nlohmann::json::parse(report.out)["parts"];
    ASSERT_EQ(parts.size(), 80U);
    std::string const last = parts[79]["md5"];
    TemporaryDirectory const place;
    std::string const policy = place.write("policy", "rule known-digest 5\ndigest " + last + " the last\n");
    Daemon daemon({"--policy", policy});
    std::string const reason = "known-digest 5 " + last + " the last\n";
    EXPECT_EQ(reasonsOf(verdictOf(message, {"--policy", policy})), reason);
    EXPECT_EQ(reasonsOf(verdictOf(message, {"--verdict", daemon.where()})), reason);
}

TEST(ScanVerdict, AsksAboutWhatMattersWhenNotAllLinksFit) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += "http://host" + std::to_string(i) + ".example.org/\n";
    std::string const message = mail(text + "http://10.0.0.1/\nhttp://www.example.com/");
    Daemon daemon;
    EXPECT_EQ(reasonsOf(verdictOf(message, {"--verdict", daemon.where()})),
              "private-link 60 10.0.0.1\ncut 0 more links or names than were looked at\n");
}

TEST(ScanVerdict, FindsTheNameOfAnAttachmentInEveryDisguise) {
    Daemon daemon;
    struct {
        char const* what;
        std::string fields;
        std::string found;  // empty: nothing
    } const rows[] = {
        {"a plain name", "Content-Disposition: a; filename=a.exe", "a.exe"},
        {"a name in capitals", "Content-Disposition: a; filename=A.EXE", "A.EXE"},
        {"a harmless name", "Content-Disposition: a; filename=a.exe.txt", ""},
        {"a name cut into padded words",
         "Content-Disposition: a; filename=\"=?utf-8?B?YQ==?= =?utf-8?B?LmV4ZQ==?=\"", "a.exe"},
        {"a name that is given twice", "Content-Disposition: a; filename=a.txt; filename=b.exe", "b.exe"},
        {"another name of the type", "Content-Type: a/b; name=b.exe\nContent-Disposition: a; filename=a.txt",
         "b.exe"},
        {"another encoded name", "Content-Disposition: a; filename*=utf-8''b%2Eexe; filename=a.txt", "b.exe"},
        {"another name before the encoded one", "Content-Disposition: a; filename=a.exe; filename*=''b.txt",
         "a.exe"},
        {"a dot and a blank at the end", "Content-Disposition: a; filename=\"a.exe. \"", "a.exe. "},
        {"a character at the end that nobody sees", "Content-Disposition: a; filename*=utf-8''a.exe%E2%80%AE",
         "a.exe\xe2\x80\xae"},
        {"one within", "Content-Disposition: a; filename*=utf-8''a.e%E2%80%8Bxe", "a.e\xe2\x80\x8bxe"},
        {"a joiner of graphemes within", "Content-Disposition: a; filename*=utf-8''a.e%CD%8Fxe",
         "a.e\xcd\x8fxe"},
        {"a filler of Hangul within", "Content-Disposition: a; filename*=utf-8''a.e%E3%85%A4xe",
         "a.e\xe3\x85\xa4xe"},
        {"writing that is turned round", "Content-Disposition: a; filename*=utf-8''a%E2%80%AEtxt.exe",
         "a\xe2\x80\xaetxt.exe"},
        {"a NUL before the end", "Content-Disposition: a; filename*=utf-8''a%00.exe", "a.exe"},
        {"a NUL behind the name", "Content-Disposition: a; filename*=utf-8''a.exe%00.txt", "a.exe"},
        {"a control byte within", "Content-Disposition: a; filename*=utf-8''a.e%01x%0Ae", "a.exe"},
        {"a line end within", "Content-Disposition: a; filename=\"a.\n\texe\"", "a.exe"},
        {"bytes that are no UTF-8", "Content-Disposition: a; filename*=utf-8''%E9%FF.exe", "?\?.exe"},
        {"the name of a message within", "Content-Type: message/rfc822; name=a.exe\n\nFrom: b@example.com",
         "a.exe"},
        {"the name of a multipart",
         "Content-Type: multipart/mixed; boundary=c; name=a.exe\n\n--c\n\nx\n--c--", "a.exe"},
        {"a very long name", "Content-Disposition: a; filename=" + std::string(250, 'x') + "a.exe",
         std::string(250, 'x') + "a.exe"},
    };
    for (auto const& row : rows) {
        std::string const message =
            mail("--b\n" + row.fields + "\n\nx\n--b--", "Content-Type: multipart/mixed; boundary=b\n");
        std::string const wanted = row.found.empty() ? "" : "attachment-name 50 " + row.found + "\n";
        EXPECT_EQ(reasonsOf(verdictOf(message)), wanted) << row.what;
        EXPECT_EQ(reasonsOf(verdictOf(message, {"--verdict", daemon.where()})), wanted) << row.what;
    }
}

TEST(ScanVerdict, AsksAboutTheEndOfANameThatIsLongerThanAny) {
    Daemon daemon;
    std::string const name = std::string(5000, 'x') + ".exe";
    EXPECT_EQ(reasonsOf(verdictOf(mail("x", "Content-Type: a/b; name=" + name + "\n"),
                                  {"--verdict", daemon.where()})),
              "attachment-name 50 " + std::string(251, 'x') +
                  ".exe\ncut 0 more links or names than were looked at\n");
}

TEST(ScanVerdict, NeedsTheDaemonThatWasNamed) {
    Ran const ran = quillmark({"scan", "--lists", testLists(), "--verdict", "127.0.0.1:1", examples});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err, "quillmark: 127.0.0.1:1: Connection refused\n");
    TemporaryDirectory const place;
    Ran const bad = quillmark({"scan", "--lists", testLists(), "--policy", place.file("none"), examples});
    EXPECT_EQ(bad.status, 2);
    EXPECT_THAT(bad.err, testing::HasSubstr("No such file or directory"));
}
