// The command line as it is read, and what it is read with: standard descriptors that somebody has closed.

#include "tests/tools/Scans.h"

using namespace QuillmarkTest;

namespace {

/// Runs a line of the shell in which "$@" is the command and its arguments.
Ran inShell(std::string const& line, std::vector<std::string> const& arguments,
            std::string const& directory = QUILLMARK_SOURCE_DIR) {
    Surroundings shell;
    shell.program = "/bin/sh";
    shell.environment = {{"PLACE", directory}};
    std::vector<std::string> all{"-c", "cd \"$PLACE\" && " + line, "sh", QUILLMARK_TOOL};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return quillmark(all, shell);
}

}  // namespace

TEST(CommandLine, TakesPathsAsTheyStand) {
    TemporaryDirectory const place;
    std::vector<std::string> arguments{"md5"};
    std::string digests;
    for (char const* name : {"[a.eml]", "[a,b]", "[]", "{}", "[[a.eml]]", "%%", "[a", "a b", "a,b"}) {
        place.write(name, "abc");
        arguments.emplace_back(name);
        digests += std::string("900150983cd24fb0d6963f7d28e17f72  ") + name + "\n";
    }
    Ran const all = inShell("\"$@\"", arguments, place.path());
    EXPECT_EQ(all.out, digests);
    EXPECT_EQ(all.status, 0) << all.err;
    for (char const* name : {"[a.eml]", "[a,b]", "[]", "{}"})
        EXPECT_EQ(inShell("\"$@\"", {"md5", "--", name}, place.path()).out,
                  std::string("900150983cd24fb0d6963f7d28e17f72  ") + name + "\n");
}

TEST(CommandLine, ScansPathsAsTheyStand) {
    TemporaryDirectory const place;
    place.write("mail/1.eml", message("other"));
    place.write("[mail]/2.eml", message("wanted"));
    Ran const ran = inShell("\"$@\"", {"scan", "--lists", testLists(), "[mail]", "[a,b]"}, place.path());
    EXPECT_THAT(ran.out, testing::StartsWith("[mail]/2.eml\n"));
    EXPECT_THAT(ran.out, testing::HasSubstr("\n[a,b]\n  Error      No such file or directory\n"));
    EXPECT_EQ(linesOf(ran.out).back(), "1 message, 1 part, 1 link. 1 bad, see the lines \"Error\".");
}

TEST(CommandLine, TakesWhatStandsBehindTwoDashesForPaths) {
    TemporaryDirectory const place;
    place.write("a", "abc");
    place.write("-x", "abc");
    std::string const digest = "900150983cd24fb0d6963f7d28e17f72  ";
    Ran const behind = inShell("\"$@\"", {"md5", "a", "--", "-x"}, place.path());
    EXPECT_EQ(behind.out, digest + "a\n" + digest + "-x\n") << behind.err;
    EXPECT_EQ(inShell("\"$@\"", {"md5", "a", "-x"}, place.path()).status, 2) << "here it is an option";
}

TEST(CommandLine, RefusesAnEmptyShard) {
    Ran const ran = scan({"--shard", "", examples});
    EXPECT_EQ(
        ran.err,
        "quillmark: --shard: an empty text is not K/N, with K from 1 to N\nTry \"quillmark --help\".\n");
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
}

TEST(CommandLine, NamesAWordThatIsNoCommand) {
    struct {
        std::vector<std::string> arguments;
        std::string error;
    } const rows[] = {
        {{"nosuch"}, "\"nosuch\" is no command of quillmark"},
        {{"nosuch", "message.eml", "--json"}, "\"nosuch\" is no command of quillmark"},
        {{"--", "nosuch"}, "\"nosuch\" is no command of quillmark"},
        {{""}, "\"\" is no command of quillmark"},
        {{"--nosuch"}, "\"--nosuch\" is no option of quillmark"},
        {{"ipc", "nosuch"}, "\"nosuch\" is no command of ipc"},
        {{"--"}, "A subcommand is required"},
        {{}, "A subcommand is required"},
        {{"ipc"}, "A subcommand is required"},
        {{"ip"}, "TEXT is required"},
        {{"md5", "--nosuch"}, "The following argument was not expected: --nosuch"},
    };
    for (auto const& [arguments, error] : rows) {
        Ran const ran = quillmark(arguments);
        EXPECT_EQ(ran.err, "quillmark: " + error + "\nTry \"quillmark --help\".\n");
        EXPECT_EQ(ran.status, 2) << error;
        EXPECT_EQ(ran.out, "") << error;
    }
}

TEST(CommandLine, FailsWhenHelpOrVersionCannotBeWritten) {
    for (std::vector<std::string> const& arguments :
         {std::vector<std::string>{"--version"}, {"--help"}, {"scan", "--help"}, {"ipc", "send", "--help"}}) {
        Ran const full = quillmark(arguments, {"", {}, "/dev/full"});
        EXPECT_EQ(full.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(full.err, "quillmark: cannot write the report: No space left on device\n");
        Ran const closed = inShell("\"$@\" >&-", arguments);
        EXPECT_EQ(closed.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(closed.err, "quillmark: cannot write the report: Bad file descriptor\n");
    }
}

TEST(StandardDescriptors, GiveNothingWhenInputIsClosed) {
    Ran const message = inShell("\"$@\" <&-", {"scan", "--lists", testLists()});
    EXPECT_THAT(message.out, testing::StartsWith("standard input\n  Error      Bad file descriptor\n"));
    EXPECT_EQ(message.status, 1);
    Ran const list = inShell("\"$@\" <&-", {"scan", "--lists", testLists(), "--files-from", "-"});
    EXPECT_EQ(list.err, "quillmark: -: Bad file descriptor\n");
    EXPECT_EQ(list.status, 2);
    // Whoever needs no input does not miss it.
    Ran const file = inShell("\"$@\" <&-", {"md5", "/dev/null"});
    EXPECT_EQ(file.out, "d41d8cd98f00b204e9800998ecf8427e  /dev/null\n");
    EXPECT_EQ(file.status, 0) << file.err;
}

TEST(StandardDescriptors, TakeNoReportWhenOutputIsClosed) {
    for (char const* line : {"\"$@\" >&-", "\"$@\" <&- >&-"}) {
        Ran const ran = inShell(line, {"scan", "--lists", testLists(), examples});
        EXPECT_EQ(ran.err, "quillmark: cannot write the report: Bad file descriptor\n") << line;
        EXPECT_EQ(ran.status, 2) << line;
    }
    EXPECT_EQ(inShell("\"$@\" <&- >&- 2>&-", {"scan", "--lists", testLists(), examples}).status, 2);
}

TEST(StandardDescriptors, MayLackTheOneForErrors) {
    Ran const with = scan({examples});
    Ran const without = inShell("\"$@\" 2>&-", {"scan", "--lists", testLists(), examples});
    EXPECT_EQ(without.out, with.out);
    EXPECT_EQ(without.status, with.status);
}
