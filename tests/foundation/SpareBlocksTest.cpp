#include "foundation/SpareBlocks.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <set>
#include <thread>
#include <vector>

namespace {

using namespace Quillmark;

struct Small {
    char bytes[40];
};
using Spare = SpareBlocks<Small, 3>;

// Each test has a thread of its own, with nothing in store.
template <class Test>
void onNewThread(Test test) {
    std::thread(test).join();
}

void giveBack(std::vector<void*> const& blocks) {
    for (void* const block : blocks) Spare::giveBack(block, sizeof(Small));
}

std::vector<void*> taken(std::size_t count) {
    std::vector<void*> blocks;
    while (blocks.size() < count) blocks.push_back(Spare::take(sizeof(Small)));
    return blocks;
}

}  // namespace

TEST(SpareBlocks, GiveTheBlockThatCameBackLast) {
    onNewThread([] {
        std::vector<void*> const blocks = taken(2);
        giveBack(blocks);
        EXPECT_EQ(taken(2), (std::vector<void*>{blocks[1], blocks[0]}));
        giveBack(blocks);
    });
}

TEST(SpareBlocks, KeepNoMoreThanTheyMay) {
    onNewThread([] {
        std::vector<void*> const blocks = taken(5);
        giveBack(blocks);
        std::vector<void*> const kept{blocks[2], blocks[1], blocks[0]};
        EXPECT_EQ(taken(3), kept);
        giveBack(kept);
    });
}

TEST(SpareBlocks, LeaveObjectsOfAnotherSizeToTheHeap) {
    onNewThread([] {
        std::vector<void*> const blocks = taken(1);
        giveBack(blocks);
        void* const large = Spare::take(sizeof(Small) + 8);
        EXPECT_NE(large, blocks[0]);
        Spare::giveBack(large, sizeof(Small) + 8);
        EXPECT_EQ(taken(1), blocks);
        giveBack(blocks);
    });
}

TEST(SpareBlocks, TakeWhatAnotherThreadMade) {
    std::vector<void*> const blocks = taken(2);
    onNewThread([&] {
        giveBack(blocks);
        std::vector<void*> const again = taken(2);
        EXPECT_EQ(std::set<void*>(again.begin(), again.end()), std::set<void*>(blocks.begin(), blocks.end()));
        giveBack(again);
    });
}

namespace {

void giveBackAtLast(void* block) {
    Spare::giveBack(block, sizeof(Small));  // a leak, were it kept
}

}  // namespace

TEST(SpareBlocks, GoToTheHeapWhenTheThreadHasEnded) {
    onNewThread([] { giveBack(taken(1)); });  // so that the key that is made now comes last
    pthread_key_t key{};
    ASSERT_EQ(::pthread_key_create(&key, giveBackAtLast), 0);
    onNewThread([&] {
        EXPECT_EQ(::pthread_setspecific(key, taken(1).front()), 0);
        giveBack(taken(2));
    });
    ::pthread_key_delete(key);
}
