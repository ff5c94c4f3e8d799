#include "tools/Counting.h"

#include <new>
#include <stdexcept>

#include "include2/Exception"
#include "tests/tools/Tool.h"

using namespace QuillmarkTool;

namespace {

/// The line of progress of a scan that has read 10 bytes, when this is found to read.
std::string progressAfter(Counting::Find const& find) {
    return QuillmarkTest::errorsOnTerminal([&] {
        Progress progress(false, std::chrono::milliseconds(0));
        Counting counting(find, progress);
        counting.start().join();
        progress.add({1, 10, 0});
    });
}

}  // namespace

TEST(Counting, TellsProgressHowMuchThereIs) {
    EXPECT_THAT(progressAfter([](SourceSink& sink) {
                    EXPECT_TRUE(sink.take({"a", 15, {}}));
                    EXPECT_TRUE(sink.take({"b", 5, {}}));
                }),
                testing::HasSubstr("]  50%  1 message"));
}

TEST(Counting, LeavesProgressWithoutATotalWhenItFails) {
    Counting::Find const failures[] = {
        [](SourceSink&) { throw std::bad_alloc(); },
        [](SourceSink&) { throw std::runtime_error("cannot read back the names of a large directory"); },
        [](SourceSink&) { throw Quillmark::Exception("title", 4, "File", 7); },
        [](SourceSink&) { throw UnreadableList{"no list"}; },
    };
    for (auto const& failure : failures)
        EXPECT_THAT(progressAfter([&](SourceSink& sink) {
                        sink.take({"a", 20, {}});
                        failure(sink);
                    }),
                    testing::StartsWith("\r\x1b[K1 message"));
}

TEST(Counting, EndsEarlyWithoutATotalWhenNobodyWantsToKnow) {
    EXPECT_THAT(
        QuillmarkTest::errorsOnTerminal([] {
            Progress progress(false, std::chrono::milliseconds(0));
            Counting counting([](SourceSink& sink) { EXPECT_FALSE(sink.take({"a", 20, {}})); }, progress);
            counting.giveUp();
            counting.start().join();
            progress.add({1, 10, 0});
        }),
        testing::StartsWith("\r\x1b[K1 message"));
}
