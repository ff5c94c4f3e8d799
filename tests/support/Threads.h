#pragma once
// What tests ask other threads.

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "include2/QuillThread"
#include "tests/support/Support.h"

namespace QuillmarkTest {

inline void onAnotherThread(std::function<void()> const& action) {
    std::thread(action).join();
}

/// True when another thread could lock the mutex; it unlocks it again.
inline bool isFree(Quillmark::Mutex& mutex) {
    bool free = false;
    onAnotherThread([&] {
        free = mutex.trylock();
        if (free) mutex.unlock();
    });
    return free;
}

/// Runs @p action on this thread while another holds the mutex.
inline void whileLocked(Quillmark::Mutex& mutex, std::function<void()> const& action) {
    std::binary_semaphore locked(0);
    std::binary_semaphore done(0);
    std::thread holder([&] {
        Quillmark::Synchronized const guard(mutex);
        locked.release();
        done.acquire();
    });
    locked.acquire();
    action();
    done.release();
    holder.join();
}

/// True for a thread of this process that sleeps in the system, as one does that waits for a lock.
inline bool isAsleep(pid_t thread) {
    std::string const state = readFile("/proc/self/task/" + std::to_string(thread) + "/stat");
    return state.compare(state.rfind(')') + 1, 2, " S") == 0;
}

/// What another thread gets that asks when @p mutex is locked, and has to wait while this one asks the same.
inline std::string askedSecond(Quillmark::Mutex& mutex, std::function<std::string()> const& ask) {
    std::atomic<pid_t> waiting{0};
    std::string answer;
    std::thread second;
    {
        Quillmark::Synchronized const guard(mutex);
        second = std::thread([&] {
            waiting = ::gettid();
            answer = ask();
        });
        while (waiting == 0 || !isAsleep(waiting)) std::this_thread::yield();
        ask();
    }
    second.join();
    return answer;
}

/// What four threads get that ask at the same time.
inline std::vector<std::string> fromFourThreads(std::function<std::string()> const& ask) {
    std::atomic<int> waiting{4};
    std::vector<std::thread> threads;
    std::vector<std::string> answers(4);
    for (std::string& answer : answers)
        threads.emplace_back([&] {
            --waiting;
            while (waiting != 0) std::this_thread::yield();
            answer = ask();
        });
    for (std::thread& thread : threads) thread.join();
    return answers;
}

/// Runs @p action on a thread that is cancelled at the first place where it can be.
/// @return whether that was within the action
inline bool isCancelledIn(std::function<void()> const& action) {
    struct Run {
        std::function<void()> const& action;
        bool ended = false;
    } run{action};
    pthread_t thread{};
    ::pthread_create(
        &thread, nullptr,
        [](void* argument) -> void* {
            auto& here = *static_cast<Run*>(argument);
            ::pthread_cancel(::pthread_self());
            here.action();
            here.ended = true;
            ::pthread_testcancel();
            return nullptr;
        },
        &run);
    void* result = nullptr;
    ::pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    return !run.ended;
}

}  // namespace QuillmarkTest
