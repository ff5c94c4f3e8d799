// Processes that are killed amid their work leave nothing behind that the next one trips over.

#include <signal.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/Support.h"
#include "tests/tools/Daemon.h"
#include "tests/tools/Tool.h"

namespace QuillmarkTest {

TEST(Killed, AScanLeavesNoFileAndTheNextOneReportsAsIfNothingHadHappened) {
    TemporaryDirectory const place;
    std::filesystem::create_directory(place.file("tmp"));
    std::string const message = QUILLMARK_SOURCE_DIR "/examples/messages/06-private-link.eml";
    std::string list;
    for (int i = 0; i < 20000; ++i) list += message + "\n";
    place.write("list", list);
    Surroundings const surroundings{{}, {{"TMPDIR", place.file("tmp")}}};
    {
        Running scan({"scan", "--json", "--lists", testLists(), "--files-from", place.file("list")},
                     surroundings);
        ASSERT_NE(scan.line(), "");
        scan.signal(SIGKILL);
        EXPECT_EQ(scan.wait(), 128 + SIGKILL);
    }
    EXPECT_TRUE(std::filesystem::is_empty(place.file("tmp")));
    Ran const before = quillmark({"scan", "--json", "--lists", testLists(), message});
    Ran const after = quillmark({"scan", "--json", "--lists", testLists(), message}, surroundings);
    EXPECT_EQ(after.out, before.out);
}

TEST(Killed, ADaemonFreesItsPortForTheNextOne) {
    Daemon daemon;
    std::string const port = std::to_string(daemon.port());
    ASSERT_EQ(daemon.answer(1, "hello"), "hello");
    daemon.run().signal(SIGKILL);
    EXPECT_EQ(daemon.run().wait(), 128 + SIGKILL);
    Running next({"serve", "--port", port, "--lists", testLists()});
    EXPECT_NE(next.line().find("127.0.0.1:" + port), std::string::npos);
    Ran const answer = quillmark({"ipc", "send", "1", "--to", "127.0.0.1:" + port}, {"hello again", {}, ""});
    EXPECT_EQ(answer.out, "hello again");
    next.signal(SIGTERM);
    EXPECT_EQ(next.wait(), 0);
}

}  // namespace QuillmarkTest
