// What a pool itself costs: 10,000 pieces of work that do nothing, handed over one by one by a thread that
// does not work with the pool, until the last one is done. Everybody has five threads, as our pool has.

#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <semaphore>
#include <thread>

#include "bench/support/Bench.h"
#include "include2/QuillTask"

namespace {

using namespace Quillmark;

constexpr int pieces = 10'000;
constexpr int threads = 5;

/// Counts the pieces of one round; whoever handed them over waits for the last.
class Round {
public:
    void one() {
        if (m_left.fetch_sub(1, std::memory_order_acq_rel) == 1) m_done.release();
    }
    void wait() { m_done.acquire(); }

private:
    std::atomic<int> m_left{pieces};
    std::binary_semaphore m_done{0};
};

struct Element : Task::ElementImpl {
    explicit Element(Round& r) : round(r) {}
    void process() override { round.one(); }
    Round& round;
};

struct Batch : Task::TaskImpl {
    void createElements(uint_t taskId) override {
        auto* const pool = Task::TaskMaster::instance();
        for (uint_t i = 0; i < pieces; ++i) {
            Ref<Task::ElementImpl> const element(new Element(round), false);
            element->id(i);
            element->taskId(taskId);
            pool->add(element);
        }
        elementCreationFinished();
    }
    Round round;
};

void ours() {
    Handle<Batch> const batch(new Batch, false);
    Task::TaskMaster::instance()->run(Ref<Task::TaskImpl>(batch.get(), true));
    batch->round.wait();
    while (!batch->finished()) std::this_thread::yield();  // the next of its type would be refused
}

}  // namespace

int main(int argc, char** argv) {
    std::string const path = "10,000 empty elements through the pool";
    oneapi::tbb::global_control const allowed(oneapi::tbb::global_control::max_allowed_parallelism,
                                              threads + 1);
    oneapi::tbb::task_arena arena(threads, 0);
    boost::asio::thread_pool pool(threads);

    bench::contestant(path, "quillmark", ours, 0, pieces);
    bench::contestant(
        path, "tbb::task_arena",
        [&arena] {
            Round round;
            for (int i = 0; i < pieces; ++i) arena.enqueue([&round] { round.one(); });
            round.wait();
        },
        0, pieces);
    bench::contestant(
        path, "boost::asio::thread_pool",
        [&pool] {
            Round round;
            for (int i = 0; i < pieces; ++i) boost::asio::post(pool, [&round] { round.one(); });
            round.wait();
        },
        0, pieces);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
