#include "tools/InOrder.h"

#include <atomic>
#include <exception>
#include <stdexcept>
#include <thread>

#include "tests/tools/Tool.h"

using QuillmarkTool::InOrder;

namespace {

/// What was written, with a "|" behind every piece.
struct Written {
    std::string text;
    InOrder::Write writer() {
        return [this](std::string const& more) { text += more + "|"; };
    }
};

}  // namespace

TEST(InOrder, WritesTheHeadAtOnceAndTheOthersWhenTheirTurnHasCome) {
    Written written;
    InOrder order(10, 10, written.writer());
    for (std::uint64_t piece : {0U, 1U, 2U, 3U}) EXPECT_EQ(order.begin(), piece);
    order.say(1, "b");
    order.say(0, "a");
    EXPECT_EQ(written.text, "a|");
    order.say(1, "B");
    order.say(2, "c");
    order.end(2);
    order.end(0);
    EXPECT_EQ(written.text, "a|") << "the new head speaks when it speaks again";
    order.say(1, "!");
    EXPECT_EQ(written.text, "a|bB!|");
    order.end(1);
    EXPECT_EQ(written.text, "a|bB!|c|");
    order.end(3);
    order.wait();
    EXPECT_EQ(written.text, "a|bB!|c|");
    EXPECT_EQ(order.begin(), 4U);
}

TEST(InOrder, BeginsNoMoreThanMayBeUnfinished) {
    Written written;
    InOrder order(2, 100, written.writer());
    order.begin();
    order.begin();
    std::atomic<bool> begun{false};
    std::thread third([&] {
        order.begin();
        begun = true;
        order.end(2);
    });
    EXPECT_FALSE(begun);
    order.end(1);  // unwritten, but finished
    third.join();
    order.end(0);
    order.wait();
}

TEST(InOrder, BeginsNoMoreThanTheWindowHolds) {
    Written written;
    InOrder order(100, 2, written.writer());
    order.begin();
    order.begin();
    order.end(1);
    std::atomic<bool> begun{false};
    std::thread third([&] {
        order.begin();
        begun = true;
    });
    EXPECT_FALSE(begun);
    order.end(0);
    third.join();
    order.end(2);
    order.wait();
}

TEST(InOrder, LetsAPieceThatSaysTooMuchWaitForItsTurn) {
    Written written;
    InOrder order(10, 10, written.writer());
    order.begin();
    order.begin();
    std::string const much(1U << 19, 'x');
    std::atomic<int> said{0};
    std::thread second([&] {
        for (int i = 0; i < 5; ++i) {
            order.say(1, much);
            ++said;
        }
        order.end(1);
    });
    while (said < 2) std::this_thread::yield();
    order.say(0, "head");
    EXPECT_EQ(written.text, "head|");
    EXPECT_EQ(said, 2) << "a third would be more than a megabyte";
    order.end(0);
    second.join();
    order.wait();
    EXPECT_EQ(written.text.size(), 5 + 5 * much.size() + 3);  // the third is written with what waited
}

TEST(InOrder, StopsWritingWhenThatFails) {
    int writes = 0;
    InOrder order(10, 10, [&](std::string const&) {
        ++writes;
        throw std::runtime_error("closed");
    });
    for (int i = 0; i < 3; ++i) order.begin();
    order.say(1, "b");
    order.say(0, "a");
    order.say(0, "A");
    for (std::uint64_t piece : {0U, 1U, 2U}) order.end(piece);
    EXPECT_THROW(order.wait(), std::runtime_error);
    EXPECT_EQ(writes, 1);
}

TEST(InOrder, WritesTheOthersAndSaysAtTheEndWhyPartOfAPieceIsLost) {
    Written written;
    InOrder order(10, 10, written.writer());
    for (int i = 0; i < 3; ++i) order.begin();
    order.say(1, "b");
    order.failed(std::make_exception_ptr(std::runtime_error("no memory")));
    order.failed(std::make_exception_ptr(std::runtime_error("no memory again")));
    order.say(2, "c");
    order.say(0, "a");
    for (std::uint64_t piece : {0U, 1U, 2U}) order.end(piece);
    EXPECT_EQ(written.text, "a|b|c|");
    try {
        order.wait();
        ADD_FAILURE() << "nothing was said";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ(e.what(), "no memory");
    }
}

TEST(InOrder, EndsAPieceThatNobodyTookOver) {
    Written written;
    InOrder order(1, 10, written.writer());
    try {
        InOrder::Begun const piece(order);
        EXPECT_EQ(piece.number(), 0U);
        throw std::runtime_error("no memory");
    } catch (std::runtime_error const&) {
        order.wait();  // for nobody
    }
    {
        InOrder::Begun piece(order);
        EXPECT_EQ(piece.number(), 1U);
        piece.takenOver();
    }
    order.say(1, "b");
    order.end(1);
    order.wait();
    EXPECT_EQ(written.text, "b|");
}

TEST(InOrder, KeepsTheOrderOfManyWorkers) {
    std::string text;
    InOrder order(8, 16, [&](std::string const& more) { text += more; });
    std::atomic<std::uint64_t> begun{0};
    std::atomic<bool> isOver{false};
    std::atomic<std::uint64_t> taken{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; ++i)
        workers.emplace_back([&] {
            for (;;) {
                std::uint64_t piece = taken;
                if (piece >= begun) {
                    if (isOver && piece >= begun) return;
                    std::this_thread::yield();
                    continue;
                }
                if (!taken.compare_exchange_strong(piece, piece + 1)) continue;
                order.say(piece, std::to_string(piece) + ",");
                order.say(piece, "-");
                order.end(piece);
            }
        });
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        begun = order.begin() + 1;
        expected += std::to_string(i) + ",-";
    }
    isOver = true;
    order.wait();
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(text, expected);
}
