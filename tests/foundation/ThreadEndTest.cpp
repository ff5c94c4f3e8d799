#include "foundation/ThreadEnd.h"

#include <pthread.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace Quillmark;

/// A variable that says its name when its thread ends.
struct Speaker : EndsWithThread {
    char const* name;
    std::string* said;
};

void speak(EndsWithThread& ending) noexcept {
    auto& speaker = static_cast<Speaker&>(ending);
    *speaker.said += speaker.name;
}

constinit thread_local Speaker first{};
constinit thread_local Speaker second{};

bool isNoted(Speaker& speaker, char const* name, std::string& said) {
    speaker.name = name;
    speaker.said = &said;
    return ThreadEnd::note(speaker, speak);
}

template <class Work>
std::string saidOnNewThread(Work work) {
    std::string said;
    std::thread([&] { work(said); }).join();
    return said;
}

}  // namespace

TEST(ThreadEnd, CallsWhatWasNotedLastFirst) {
    EXPECT_EQ(saidOnNewThread([](std::string& said) {
                  EXPECT_TRUE(isNoted(first, "a", said));
                  EXPECT_TRUE(isNoted(second, "b", said));
              }),
              "ba");
}

TEST(ThreadEnd, CallsWhatWasNotedTwiceOnce) {
    EXPECT_EQ(saidOnNewThread([](std::string& said) {
                  EXPECT_TRUE(isNoted(first, "a", said));
                  EXPECT_TRUE(isNoted(first, "a", said));
              }),
              "a");
}

TEST(ThreadEnd, ComesBehindTheDestructorsOfTheThread) {
    struct Variable {
        std::string* said = nullptr;
        ~Variable() { *said += isNoted(second, "b", *said) ? "destroyed," : "over,"; }
    };
    EXPECT_EQ(saidOnNewThread([](std::string& said) {
                  EXPECT_TRUE(isNoted(first, "a", said));
                  thread_local Variable variable;
                  variable.said = &said;
              }),
              "destroyed,ba");
}

TEST(ThreadEnd, RefusesWhatIsNotedWhileItComes) {
    static constexpr EndsWithThread::End late = [](EndsWithThread& ending) noexcept {
        std::string& said = *static_cast<Speaker&>(ending).said;
        said += isNoted(second, "b", said) ? "noted" : "refused";
    };
    EXPECT_EQ(saidOnNewThread([](std::string& said) {
                  first.said = &said;
                  EXPECT_TRUE(ThreadEnd::note(first, late));
              }),
              "refused");
}

namespace {

constexpr int rounds = 3;  // the C library looks for new values of keys four times

struct LastWords {
    pthread_key_t key;
    int left;
    char const* said;
};

// The thread sanitizer takes the thread for ended by then.
__attribute__((no_sanitize("thread"))) void lookAgain(void* of) {
    auto& words = *static_cast<LastWords*>(of);
    if (words.left-- > 0) {
        ::pthread_setspecific(words.key, of);
    } else {
        std::string unsaid;
        words.said = isNoted(first, "a", unsaid) ? "noted" : "refused";
    }
}

}  // namespace

TEST(ThreadEnd, RefusesWhatIsNotedBehindIt) {
    LastWords words{{}, rounds, nullptr};
    ASSERT_EQ(::pthread_key_create(&words.key, lookAgain), 0);
    EXPECT_EQ(saidOnNewThread([&](std::string& said) {
                  EXPECT_EQ(::pthread_setspecific(words.key, &words), 0);
                  EXPECT_TRUE(isNoted(second, "b", said));
              }),
              "b");
    EXPECT_STREQ(words.said, "refused");
    ::pthread_key_delete(words.key);
}

// Needs a process that has not noted anything yet.
TEST(ThreadEndDeathTest, RefusesEverythingInAProcessWithoutAKey) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            pthread_key_t last{};
            for (pthread_key_t key; ::pthread_key_create(&key, nullptr) == 0;) last = key;
            std::string said;
            bool const before = isNoted(first, "a", said);
            ::pthread_key_delete(
                last);  // asked for once: a process that is short of keys has better uses for them
            bool const after = isNoted(first, "a", said);
            std::exit(before || after ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}
