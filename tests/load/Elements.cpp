// Ten million elements through the task pool.

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "include2/QuillTask"
#include "tests/load/Client.h"
#include "tests/load/Storm.h"

namespace QuillmarkLoad {
using namespace Quillmark;

namespace {

/// How often each element was worked on.
using Counts = std::vector<std::atomic<std::uint8_t>>;

class Element final : public Task::ElementImpl {
public:
    explicit Element(std::atomic<std::uint8_t>& count) : m_count(count) {}
    void process() override { ++m_count; }

private:
    std::atomic<std::uint8_t>& m_count;
};

/// The elements from one number to another.
class Range final : public Task::TaskImpl {
public:
    Range(unsigned int type, Counts& counts, unsigned long begin, unsigned long end)
        : m_counts(counts), m_begin(begin), m_end(end) {
        this->type(static_cast<Type>(type));
    }
    void createElements(uint_t taskId) override {
        for (unsigned long number = m_begin; number < m_end; ++number) {
            Ref<Task::ElementImpl> const element(new Element(m_counts[number]), false);
            element->id(static_cast<uint_t>(number - m_begin));
            element->taskId(taskId);
            Task::TaskMaster::instance()->add(element);
        }
        elementCreationFinished();
    }

private:
    Counts& m_counts;
    unsigned long const m_begin;
    unsigned long const m_end;
};

}  // namespace

Worked workElements(ElementOptions const& options) {
    constexpr unsigned int types = 4;
    Counts counts(options.elements);
    Worked worked;
    std::mutex lock;  // for what follows
    std::condition_variable changed;
    unsigned long given = 0;
    unsigned long done = 0;
    auto const start = std::chrono::steady_clock::now();
    std::vector<std::thread> runners;
    for (unsigned int type = 1; type <= types; ++type)
        runners.emplace_back([&, type] {
            Random random(type);
            for (;;) {
                unsigned long begin = 0;
                unsigned long end = 0;
                {
                    std::lock_guard const guard(lock);
                    begin = given;
                    end = given = std::min<unsigned long>(given + 1 + random() % 20'000, options.elements);
                    if (begin == end) return;
                    ++worked.tasks;
                }
                Ref<Task::TaskImpl> const task(new Range(type, counts, begin, end), false);
                Task::TaskMaster::instance()->run(task);
                // A task of a type whose last one is not finished would not be run.
                while (!task->finished()) ::sched_yield();
                std::lock_guard const guard(lock);
                done += end - begin;
                changed.notify_one();
            }
        });
    for (unsigned long next = options.sampleEvery; next <= options.elements; next += options.sampleEvery) {
        std::unique_lock waiting(lock);
        changed.wait(waiting, [&] { return done >= next; });
        worked.samples.push_back(sampled(done, "elements", options.isTold));
    }
    for (auto& runner : runners) runner.join();
    worked.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (auto const& count : counts) {
        worked.never += count == 0;
        worked.twice += count > 1;
    }
    return worked;
}

}  // namespace QuillmarkLoad
