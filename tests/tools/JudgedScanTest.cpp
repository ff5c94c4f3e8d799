// scripts/judged-scan, which ./run hands its messages to.

#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

char const oneMessage[] = "examples/messages/06-private-link.eml";

Ran judgedScan(std::vector<std::string> const& arguments, std::string const& lists = testLists()) {
    Surroundings surroundings;
    surroundings.program = QUILLMARK_SOURCE_DIR "/scripts/judged-scan";
    std::vector<std::string> all{QUILLMARK_TOOL, lists};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return quillmark(all, surroundings);
}

}  // namespace

TEST(JudgedScan, StartsADaemonOnAFreePortAsksItAndStopsIt) {
    Ran const ran = judgedScan({examples});
    EXPECT_EQ(ran.status, 1) << ran.err;  // some examples are broken on purpose
    EXPECT_THAT(ran.out, testing::HasSubstr("\n  Verdict    reject, score 160\n"));
    std::string const by = "\nJudged by 127.0.0.1:";
    std::size_t const at = ran.out.find(by);
    ASSERT_NE(at, std::string::npos) << ran.out;
    std::string const where = ran.out.substr(at + 11, ran.out.find(": ", at + 11) - at - 11);
    EXPECT_EQ(ran.err, quillmark({"scan", "--lists", testLists(), examples}).err);
    EXPECT_EQ(quillmark({"ping", where}).err, "quillmark: " + where + ": Connection refused\n");
}

TEST(JudgedScan, HandsOptionsToTheScan) {
    Ran const ran = judgedScan({"--json", oneMessage});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(ran.out, testing::HasSubstr("\"by\":\"127.0.0.1:"));
}

TEST(JudgedScan, LeavesTheJudgeToWhoChoosesOne) {
    TemporaryDirectory const place;
    std::string const policy = place.write("policy", "rule private-link 1\n");
    Ran const ran = judgedScan({"--policy", policy, oneMessage});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(ran.out, testing::HasSubstr("\nJudged by " + policy + ": "));
    EXPECT_EQ(judgedScan({"--verdict=127.0.0.1:1", examples}).err,
              "quillmark: 127.0.0.1:1: Connection refused\n");
}

TEST(JudgedScan, SaysWhenTheDaemonDoesNotStart) {
    TemporaryDirectory const place;
    Ran const ran = judgedScan({examples}, place.path());
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, testing::EndsWith("the daemon does not start\n"));
}
