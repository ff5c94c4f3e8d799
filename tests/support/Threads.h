#pragma once
// What tests ask other threads.

#include <atomic>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "include2/QuillThread"

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

}  // namespace QuillmarkTest
