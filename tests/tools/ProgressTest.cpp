#include "tools/Progress.h"

#include <unistd.h>

#include "tests/tools/Tool.h"

using namespace QuillmarkTool;
using QuillmarkTest::errorsOnTerminal;

TEST(ProgressText, ShowsABarWhatWasDoneAndWhatIsLeft) {
    struct {
        char const* what;
        Done done;
        std::uint64_t total;
        double seconds;
        std::size_t columns;
        char const* text;
    } const rows[] = {
        {"half",
         {1000, 5000000, 0},
         10000000,
         2,
         99,
         "[===============               ]  50%  1000 messages  500/s  2.5 MB/s  2 s left"},
        {"flagged",
         {1000, 5000000, 12},
         10000000,
         2,
         99,
         "[===============               ]  50%  1000 messages  500/s  2.5 MB/s  2 s left  12 flagged"},
        {"narrow",
         {1000, 5000000, 12},
         10000000,
         2,
         68,
         " 50%  1000 messages  500/s  2.5 MB/s  2 s left  12 flagged"},
        {"too narrow", {1000, 5000000, 12}, 10000000, 2, 30, " 50%  1000 messages  500/s  2."},
        {"nothing yet",
         {0, 0, 0},
         10000000,
         1,
         60,
         "[                             ]   0%  0 messages  0/s  0 B/s"},
        {"more than all",
         {1, 30, 0},
         20,
         1,
         60,
         "[===================] 100%  1 message  1/s  30 B/s  0 s left"},
        {"minutes",
         {1, 100, 0},
         10000,
         1.5,
         60,
         "[              ]   1%  1 message  0/s  66 B/s  2:29 min left"},
        {"hours",
         {1, 1, 0},
         100000,
         0.075,
         63,
         "[                  ]   0%  1 message  13/s  13 B/s  2:05 h left"},
        {"unknown", {1000, 5000000, 12}, 0, 2, 99, "1000 messages, 5.0 MB  500/s  2.5 MB/s  12 flagged"},
        {"at once", {3, 1500, 0}, 0, 0, 99, "3 messages, 1.5 kB  3000/s  1.5 MB/s"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(progressText(row.done, row.total, row.seconds, row.columns), row.text) << row.what;
}

TEST(Progress, IsOneLineThatGoesAwayAgain) {
    EXPECT_THAT(errorsOnTerminal([] {
                    Progress progress(false, std::chrono::milliseconds(0));
                    progress.total(3000);
                    progress.add({1, 1500, 1});
                }),
                testing::MatchesRegex("\r\x1b\\[K\\[=+ +\\]  50%  1 message  .* left  1 flagged\r\x1b\\[K"));
}

TEST(Progress, IsPatient) {
    EXPECT_EQ(errorsOnTerminal([] {
                  Progress progress(false, std::chrono::hours(1));
                  EXPECT_TRUE(progress.isOn());
                  progress.add({3, 1500, 0});
              }),
              "");
}

TEST(Progress, KeepsQuietOnTheTerminalOfTheReportUnlessItIsWanted) {
    auto const both = [](bool always) {
        return errorsOnTerminal([&] {
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
            Progress progress(always, std::chrono::milliseconds(0));
            progress.add({1, 10, 0});
            progress.aside([] { (void)!::write(STDOUT_FILENO, "report", 6); });
        });
    };
    EXPECT_EQ(both(false), "report");
    EXPECT_THAT(both(true), testing::MatchesRegex("\r\x1b\\[K1 message.*\r\x1b\\[Kreport"));
}

TEST(Progress, IsSilentWithoutATerminal) {
    testing::internal::CaptureStderr();
    Progress progress(true, std::chrono::milliseconds(0));
    progress.add({1, 10, 0});
    EXPECT_FALSE(progress.isOn());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
