// Processes that are killed amid their work leave nothing behind that the next one trips over.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/Support.h"
#include "tests/tools/Daemon.h"
#include "tests/tools/Tool.h"

namespace QuillmarkTest {

namespace {

std::vector<std::string> filesIn(std::string const& directory) {
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(directory)) names.push_back(entry.path());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(Killed, AScanLeavesItsSwapFileAndTheNextOneReportsAsIfNothingHadHappened) {
    TemporaryDirectory const place;
    std::filesystem::create_directory(place.file("tmp"));
    std::string const pipe = place.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    {
        // A message whose end does not come, and that is too long for memory.
        Running scan({"scan", "--lists", testLists(), "--memory", "1K", "--tmp", place.file("tmp"), pipe});
        int const writer = ::open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
        std::string const begun = "From: a@example.com\n\n" + std::string(3000, 'x');
        EXPECT_EQ(::write(writer, begun.data(), begun.size()), static_cast<ssize_t>(begun.size()));
        while (filesIn(place.file("tmp")).empty() && ::waitpid(scan.process(), nullptr, WNOHANG) == 0)
            ::sched_yield();
        scan.signal(SIGKILL);
        EXPECT_EQ(scan.wait(), 128 + SIGKILL);
        ::close(writer);
    }
    std::vector<std::string> const left = filesIn(place.file("tmp"));
    EXPECT_EQ(left.size(), 1U);
    // Nothing fits in no memory, so each of these goes through a swap file of its own.
    std::vector<std::string> arguments{"scan", "--json", "--lists", testLists(), examples};
    Ran const usual = quillmark(arguments);
    arguments.insert(arguments.end(), {"--memory", "0", "--tmp", place.file("tmp")});
    Ran const next = quillmark(arguments);
    EXPECT_EQ(next.out, usual.out);
    EXPECT_EQ(next.status, usual.status) << next.err;
    EXPECT_EQ(filesIn(place.file("tmp")), left);
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
