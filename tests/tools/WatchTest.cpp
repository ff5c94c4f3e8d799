#include "tools/Watch.h"

#include <utime.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "include2/Exception"
#include "tests/tools/Tool.h"

using namespace QuillmarkTool;
using QuillmarkTest::TemporaryDirectory;

TEST(WatchedFiles, ChangeByTheirSizeTheirTimeAndTheirNumber) {
    TemporaryDirectory const place;
    std::string const path = place.write("policy", "one");
    utimbuf const past{1000, 1000};
    auto const changedBy = [&](auto const& change) {
        ::utime(path.c_str(), &past);
        WatchedFiles files;
        files.watch({place.file("other"), path});
        EXPECT_FALSE(files.changed());
        change();
        return files.changed();
    };
    EXPECT_TRUE(changedBy([&] {
        place.write("policy", "three");
        ::utime(path.c_str(), &past);
    })) << "size";
    EXPECT_TRUE(changedBy([&] {
        utimbuf const later{1000, 1001};
        ::utime(path.c_str(), &later);
    })) << "time";
    EXPECT_TRUE(changedBy([&] {
        std::string const next = place.write("next", "seven");
        ::utime(next.c_str(), &past);
        std::rename(next.c_str(), path.c_str());
    })) << "number";
    EXPECT_FALSE(changedBy([] {}));
}

TEST(WatchedFiles, ChangeWhenTheyComeAndGo) {
    TemporaryDirectory const place;
    WatchedFiles files;
    EXPECT_FALSE(files.changed()) << "nothing is watched";
    files.watch({place.file("policy")});
    EXPECT_FALSE(files.changed());
    place.write("policy", "");
    EXPECT_TRUE(files.changed());
    files.watch({place.file("policy")});
    EXPECT_FALSE(files.changed());
    std::filesystem::remove(place.file("policy"));
    EXPECT_TRUE(files.changed());
}

TEST(WatchedFiles, AreChangedOnceTheyAreForgotten) {
    TemporaryDirectory const place;
    std::string const path = place.write("policy", "one");
    WatchedFiles files;
    files.watch({path});
    EXPECT_FALSE(files.changed());
    files.forget();
    EXPECT_TRUE(files.changed());
    EXPECT_TRUE(files.changed()) << "until they are watched again";
    files.watch({path});
    EXPECT_FALSE(files.changed());
}

TEST(EveryMinute, IsAJobThatRunsAtEveryFullMinute) {
    int runs = 0;
    Quillmark::Cron::Job const job(new EveryMinute([&] { ++runs; }), false);
    EXPECT_EQ(job.period().length(), 60);
    EXPECT_EQ(job.period().offset(), 0);
    EXPECT_EQ(job.period().type(), Quillmark::Cron::Period::PERIOD_MINUTE);
    job.task();
    job.task();
    EXPECT_EQ(runs, 2);
}

TEST(EveryMinute, GoesOnWhenItsWorkThrows) {
    testing::internal::CaptureStderr();
    EveryMinute([] { throw std::runtime_error("no memory"); }).task();
    EveryMinute([] { throw Quillmark::Exception("title", 4, "File", 7); }).task();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "quillmark: no memory\nquillmark: title( 4 ) , File:7, \n");
}
