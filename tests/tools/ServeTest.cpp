// quillmark serve, ping and ipc, run for real over loopback.

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/tools/Daemon.h"

using namespace QuillmarkTest;

namespace {

char const eicar[] = "44d88612fea8a8f36de82e1278abb02f";

/// The clock of the daemon stands three seconds before the full minute when it starts.
Surroundings threeSecondsBeforeTheMinute() {
    char const* const options = std::getenv("ASAN_OPTIONS");
    Surroundings late;
    late.environment = {{"LD_PRELOAD", QUILLMARK_LATE_CLOCK},
                        {"ASAN_OPTIONS", std::string(options ? options : "") + ":verify_asan_link_order=0"}};
    return late;
}

}  // namespace

TEST(ServeCommand, AnswersAPing) {
    Daemon daemon;
    EXPECT_EQ(daemon.greeting(), "serving on " + daemon.where() + " by the built-in policy");
    Ran const ran = quillmark({"ping", daemon.where()});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(ran.out, testing::MatchesRegex(daemon.where() + " answers in [0-9.]+ ms\n"));
    EXPECT_EQ(daemon.answer(1, "any bytes"), "any bytes");
}

TEST(ServeCommand, EndsCleanlyWhenItIsAskedTo) {
    for (int const number : {SIGTERM, SIGINT}) {
        Daemon daemon;
        EXPECT_EQ(daemon.answer(52, "").substr(0, 8), "score 0\n");
        daemon.run().signal(number);
        EXPECT_EQ(daemon.run().line(), "served 1 message");
        EXPECT_EQ(daemon.run().wait(), 0);
        EXPECT_EQ(daemon.run().error(), "");
    }
}

TEST(ServeCommand, EndsCleanlyWhenNobodyReadsItsLastLine) {
    Daemon daemon;
    daemon.run().closeOutput();
    daemon.run().signal(SIGTERM);
    EXPECT_EQ(daemon.run().wait(), 0);
    EXPECT_EQ(daemon.run().error(), "");
}

TEST(ServeCommand, LooksDigestsUp) {
    Daemon daemon;
    std::string const unknown(32, 'a');
    EXPECT_EQ(daemon.answer(51, unknown + "\n" + eicar + "\n"),
              std::string(eicar) + " the EICAR test file\n");
    EXPECT_EQ(daemon.answer(51, ""), "");
    EXPECT_EQ(daemon.answer(51, "abc"), "error a line is no MD5 digest\n");
}

TEST(ServeCommand, RefusesARequestThatIsTooLong) {
    Daemon daemon;
    std::string features = "link 203.0.113.9\nname ";
    features.resize(1015, 'n');
    features += '\n';
    EXPECT_THAT(daemon.answer(52, features), testing::StartsWith("score 40\n"));
    EXPECT_EQ(daemon.answer(52, features + "c"), "error the request has more than 1016 bytes\n");
    EXPECT_EQ(daemon.answer(51, std::string(1'000'000, 'a')), "error the request has more than 1016 bytes\n");
    EXPECT_THAT(daemon.answer(53, ""),
                testing::EndsWith("messages 1\naccept 0\nreview 1\nreject 0\nrefused 2\n"));
}

TEST(ServeCommand, JudgesFeaturesByTheShippedPolicy) {
    Daemon daemon;
    std::string const noReason = "score 0\naction accept\n";
    struct {
        char const* features;
        std::string verdict;
    } const rows[] = {
        {"", noReason},
        {"sender example.com\nlink www.example.com\n", noReason},
        {"sender example.com\nlink www.example.org\nlink example.com\n", noReason},
        {"sender a.example.co.uk\nlink b.example.co.uk\n", noReason},
        {"sender example.co.uk\nlink other.co.uk\n",
         "score 20\naction accept\nreason unrelated-sender 20 example.co.uk does not link to itself but to "
         "other.co.uk\n"},
        {"link 10.0.0.1", "score 60\naction review\nreason private-link 60 10.0.0.1\n"},
        {"link 127.0.0.1\nlink 192.168.1.1\nlink 127.0.0.1",
         "score 60\naction review\nreason private-link 60 127.0.0.1 and 1 more\n"},
        {"link 203.0.113.9", "score 40\naction review\nreason ip-link 40 203.0.113.9\n"},
        {"user-link example.com\n", "score 40\naction review\nreason user-in-link 40 example.com\n"},
        {"link xn--80ak6aa92e.com\n", noReason},     // Cyrillic throughout
        {"link xn--bcher-kva.example\n", noReason},  // Latin throughout
        {"link www.xn--pypal-4ve.com\n",
         "score 80\naction review\nreason mixed-scripts 80 www.xn--pypal-4ve.com\n"},
        {"digest 44d88612fea8a8f36de82e1278abb02f\n",
         "score 100\naction reject\nreason known-digest 100 44d88612fea8a8f36de82e1278abb02f the EICAR test "
         "file\n"},
        {"name Invoice.PDF.Exe\nname harmless.pdf\n",
         "score 50\naction review\nreason attachment-name 50 Invoice.PDF.Exe\n"},
        {"user-link 10.0.0.1\ncut\n",
         "score 100\naction reject\nreason private-link 60 10.0.0.1\nreason user-in-link 40 10.0.0.1\n"
         "reason cut 0 more links or names than were looked at\n"},
        {"nonsense\n", "error a line is no feature\n"},
    };
    for (auto const& row : rows) EXPECT_EQ(daemon.answer(52, row.features), row.verdict) << row.features;
}

TEST(ServeCommand, CountsWhatItDid) {
    Daemon daemon;
    daemon.answer(51, std::string(eicar) + "\n" + std::string(32, '0') + "\n");
    daemon.answer(52, "link 10.0.0.1");
    daemon.answer(52, "");
    daemon.answer(52, "nonsense");
    auto const lines = linesOf(daemon.answer(53, ""));
    ASSERT_EQ(lines.size(), 8U);
    EXPECT_THAT(lines[0], testing::StartsWith("seconds "));
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 1, lines.end()),
              (std::vector<std::string>{"digests 2", "known 1", "messages 2", "accept 1", "review 1",
                                        "reject 0", "refused 1"}));
}

TEST(ServeCommand, ReadsPolicyAndListsAgainWhenTold) {
    TemporaryDirectory const place;
    auto const makeLists = [&](char const* rules) {
        return quillmark({"lists", "--source", place.write("rules", rules), "--out", place.file("lists")});
    };
    ASSERT_EQ(makeLists("com\n").status, 0);
    std::string const policy = place.write("policy", "rule ip-link 7\nrule unrelated-sender 3\n");
    Daemon daemon({"--policy", policy}, place.file("lists"));
    EXPECT_EQ(daemon.greeting(), "serving on " + daemon.where() + " by " + policy);
    EXPECT_EQ(daemon.answer(52, "link 203.0.113.9"),
              "score 7\naction accept\nreason ip-link 7 203.0.113.9\n");
    std::string const neighbours = "sender a.shops.com\nlink b.shops.com\n";
    EXPECT_EQ(daemon.answer(52, neighbours), "score 0\naction accept\n");

    place.write("policy", "rule ip-link 8\naction review 8\nrule unrelated-sender 3\n");
    ASSERT_EQ(makeLists("com\nshops.com\n").status, 0);
    daemon.run().signal(SIGHUP);
    EXPECT_EQ(daemon.run().error(), "quillmark: policy and lists are read again");
    EXPECT_EQ(daemon.answer(52, "link 203.0.113.9"),
              "score 8\naction review\nreason ip-link 8 203.0.113.9\n");
    EXPECT_THAT(daemon.answer(52, neighbours), testing::StartsWith("score 3\n"));

    place.write("policy", "rule nothing 8\n");
    daemon.run().signal(SIGHUP);
    EXPECT_EQ(daemon.run().error(), "quillmark: " + policy + ": line 1: \"nothing\" is no rule");
    EXPECT_EQ(daemon.run().error(), "quillmark: what was read before goes on");
    EXPECT_EQ(daemon.answer(52, "link 203.0.113.9"),
              "score 8\naction review\nreason ip-link 8 203.0.113.9\n");
}

TEST(ServeCommand, GoesOnWithTheListsThatItReadWhenTheyAreGone) {
    std::string const neighbours = "sender a.shops.com\nlink b.shops.com\n";
    std::string const verdict =
        "score 3\naction accept\nreason unrelated-sender 3 a.shops.com does not link to itself but to "
        "b.shops.com\n";
    for (bool const askedBefore : {true, false})
        for (char const* gone : {"gtld", "cctld", "idntld"}) {
            TemporaryDirectory const place;
            std::string const policy = place.write("policy", "rule unrelated-sender 3\n");
            std::string const rules = place.write("rules", "com\nshops.com\n");
            ASSERT_EQ(quillmark({"lists", "--source", rules, "--out", place.file("lists")}).status, 0);
            Daemon daemon({"--policy", policy}, place.file("lists"));
            if (askedBefore) {
                EXPECT_EQ(daemon.answer(52, neighbours), verdict);
            }
            for (char const* each : {"gtld", "cctld", "idntld"})
                if (askedBefore || each == std::string(gone))
                    std::filesystem::remove(place.file("lists/" + std::string(each)));
            daemon.run().signal(SIGHUP);
            std::string const first = askedBefore ? "gtld" : gone;
            EXPECT_EQ(daemon.run().error(),
                      "quillmark: cannot read the domain list " + place.file("lists/" + first));
            EXPECT_EQ(daemon.run().error(), "quillmark: what was read before goes on");
            EXPECT_EQ(daemon.answer(52, neighbours), verdict);
        }
}

TEST(ServeCommand, LivesOnWhenThePolicyCannotBeReadAndReadsTheListsAgain) {
    TemporaryDirectory const place;
    auto const makeLists = [&](char const* rules) {
        return quillmark({"lists", "--source", place.write("rules", rules), "--out", place.file("lists")});
    };
    ASSERT_EQ(makeLists("com\n").status, 0);
    std::string const policy = place.write("policy", "rule unrelated-sender 3\n");
    Daemon daemon({"--policy", policy}, place.file("lists"));
    std::string const neighbours = "sender a.shops.com\nlink b.shops.com\n";
    EXPECT_EQ(daemon.answer(52, neighbours), "score 0\naction accept\n");

    std::filesystem::remove(policy);
    std::filesystem::create_directory(policy);
    ASSERT_EQ(makeLists("com\nshops.com\n").status, 0);
    daemon.run().signal(SIGHUP);
    EXPECT_EQ(daemon.run().error(), "quillmark: " + policy + ": Is a directory");
    EXPECT_EQ(daemon.run().error(), "quillmark: what was read before goes on");
    EXPECT_THAT(daemon.answer(52, neighbours), testing::StartsWith("score 3\n"));

    std::filesystem::remove(policy);
    std::filesystem::create_symlink("/proc/self/mem", policy);  // opens, and cannot be read
    daemon.run().signal(SIGHUP);
    EXPECT_EQ(daemon.run().error(), "quillmark: " + policy + ": Input/output error");
    EXPECT_EQ(daemon.run().error(), "quillmark: what was read before goes on");
    EXPECT_THAT(daemon.answer(52, neighbours), testing::StartsWith("score 3\n"));
}

TEST(ServeCommand, TriesAgainWithinAMinuteWhatItCouldNotReadJustThen) {
    TemporaryDirectory const place;
    std::string const policy = place.write("policy", "rule ip-link 7\n");
    Daemon daemon({"--policy", policy}, testLists(), threeSecondsBeforeTheMinute());
    place.write("policy", "rule ip-link 18\n");
    // While it may open nothing more it can read neither policy nor lists, which stay as they are from then on.
    int const process = daemon.run().process();
    rlimit before{};
    ASSERT_EQ(::prlimit(process, RLIMIT_NOFILE, nullptr, &before), 0);
    rlimit const none{0, before.rlim_max};
    ASSERT_EQ(::prlimit(process, RLIMIT_NOFILE, &none, nullptr), 0);
    daemon.run().signal(SIGHUP);
    EXPECT_EQ(daemon.run().error(), "quillmark: " + policy + ": Too many open files");
    EXPECT_EQ(daemon.run().error(), "quillmark: cannot read the domain list " + testLists() + "/gtld");
    EXPECT_EQ(daemon.run().error(), "quillmark: what was read before goes on");
    ASSERT_EQ(::prlimit(process, RLIMIT_NOFILE, &before, nullptr), 0);
    std::string line;
    // The minute may have come while nothing could be opened.
    while (daemon.run().error(line) && line != "quillmark: policy and lists are read again") {
    }
    EXPECT_EQ(line, "quillmark: policy and lists are read again");
    EXPECT_EQ(daemon.answer(52, "link 203.0.113.9"),
              "score 18\naction accept\nreason ip-link 18 203.0.113.9\n");
}

TEST(ServeCommand, ReadsPolicyAndListsAgainWithinAMinuteOfTheirChange) {
    TemporaryDirectory const place;
    std::string const policy = place.write("policy", "rule ip-link 7\n");
    Daemon daemon({"--policy", policy}, testLists(), threeSecondsBeforeTheMinute());
    place.write("policy", "rule ip-link 18\n");
    EXPECT_EQ(daemon.run().error(), "quillmark: policy and lists are read again");
    EXPECT_EQ(daemon.answer(52, "link 203.0.113.9"),
              "score 18\naction accept\nreason ip-link 18 203.0.113.9\n");
}

TEST(ServeCommand, RefusesAPolicyThatIsNone) {
    TemporaryDirectory const place;
    struct {
        char const* text;
        char const* reason;
    } const rows[] = {
        {"# fine\n\nmisspelt\n", ": line 3: \"misspelt\" is none of rule, action, digest and name\n"},
        {"rule ip-links 3\n", ": line 1: \"ip-links\" is no rule\n"},
        {"rule ip-link\n", ": line 1: \"\" is no number from 0 to 1000\n"},
        {"rule ip-link 1001\n", ": line 1: \"1001\" is no number from 0 to 1000\n"},
        {"rule ip-link 10x\n", ": line 1: \"10x\" is no number from 0 to 1000\n"},
        {"rule ip-link 10 20\n", ": line 1: \"20\" stands behind the number\n"},
        {"action delete 10\n", ": line 1: \"delete\" is no action\n"},
        {"digest abc\n", ": line 1: \"abc\" is no MD5 digest\n"},
        {"name  \n", ": line 1: a pattern is missing\n"},
    };
    for (auto const& row : rows) {
        std::string const policy = place.write("policy", row.text);
        Ran const ran = quillmark({"serve", "--port", "0", "--lists", testLists(), "--policy", policy});
        EXPECT_EQ(ran.status, 2) << row.text;
        EXPECT_EQ(ran.err, "quillmark: " + policy + row.reason);
    }
    Ran const none = quillmark({"serve", "--port", "0", "--policy", place.file("none")});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, testing::HasSubstr(place.file("none") + ": No such file or directory\n"));
    Ran const directory =
        quillmark({"serve", "--port", "0", "--lists", testLists(), "--policy", place.path()});
    EXPECT_EQ(directory.status, 2);
    EXPECT_EQ(directory.err, "quillmark: " + place.path() + ": Is a directory\n");
    EXPECT_EQ(quillmark({"serve", "--port", "0", "--lists", place.path()}).status, 2);
}

TEST(ServeCommand, TakesTheShippedPolicyFileAsItIs) {
    Daemon daemon({"--policy", "share/policy"});
    EXPECT_EQ(daemon.answer(52, "link 10.0.0.1"),
              "score 60\naction review\nreason private-link 60 10.0.0.1\n");
}

TEST(ServeCommand, SaysThatItsPortIsTaken) {
    Daemon daemon;
    std::string const port = daemon.where().substr(daemon.where().find(':') + 1);
    Ran const ran = quillmark({"serve", "--port", port, "--lists", testLists()});
    EXPECT_EQ(ran.status, 2);
    // The dispatcher may log its last attempt a moment later.
    EXPECT_THAT(ran.err, testing::HasSubstr("quillmark: cannot listen on " + daemon.where() + "\n"));
}

TEST(PingCommand, SaysWhenNobodyAnswers) {
    struct {
        char const* where;
        char const* reason;
    } const rows[] = {
        {"127.0.0.1:1", "quillmark: 127.0.0.1:1: Connection refused\n"},
        {"localhost:1", "quillmark: 127.0.0.1:1: Connection refused\n"},
        {"127.0.0.1:x", "quillmark: 127.0.0.1:x: no port\n"},
        {"127.0.0.1:0", "quillmark: 127.0.0.1:0: no port\n"},
        {"127.0.0.1:65536", "quillmark: 127.0.0.1:65536: no port\n"},
        {"::1", "quillmark: ::1: no IPv4 address\n"},
    };
    for (auto const& row : rows) {
        Ran const ran = quillmark({"ping", row.where});
        EXPECT_EQ(ran.status, 1) << row.where;
        EXPECT_EQ(ran.err, row.reason);
        EXPECT_EQ(ran.out, "");
    }
}

TEST(IpcCommand, SaysWhenItCannotReadTheRequest) {
    Daemon daemon;
    TemporaryDirectory const place;
    Surroundings directory;
    directory.inputFrom = place.path();
    Ran const ran = quillmark({"ipc", "send", "53", "--to", daemon.where()}, directory);
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.err, "quillmark: standard input: Is a directory\n");
    EXPECT_EQ(ran.out, "");
}

TEST(IpcCommand, SaysWhenARequestIsNotAnswered) {
    Daemon daemon;
    Ran const ran = quillmark({"ipc", "send", "99", "--to", daemon.where()}, {"x", {}, ""});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.err, "quillmark: " + daemon.where() + ": does not answer\n");
    EXPECT_EQ(quillmark({"ipc", "send"}).status, 2);
    EXPECT_EQ(quillmark({"ipc"}).status, 2);
}
