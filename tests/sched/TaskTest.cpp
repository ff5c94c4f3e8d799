#include "include2/QuillTask"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using namespace Quillmark::Task;
using QuillmarkTest::failureOf;
using QuillmarkTest::isFree;
using QuillmarkTest::LogRecorder;
using QuillmarkTest::onAnotherThread;
using QuillmarkTest::slotOf;

namespace {

using Element = Ref<ElementImpl>;

/// An element that does what it was made with.
class Piece : public ElementImpl {
public:
    explicit Piece(std::function<void()> work) : m_work(std::move(work)) {}
    void process() override { m_work(); }

private:
    std::function<void()> m_work;
};

Element piece(
    uint_t taskId, uint_t id, std::function<void()> work = [] {}, uint_t queueId = 0) {
    Element const element(new Piece(std::move(work)), false);
    element->queueId(queueId);
    element->id(id);
    element->taskId(taskId);
    return element;
}

/// A task that creates its elements by what it was made with, and tells when it is destroyed.
class Batch : public TaskImpl {
public:
    Batch(uint_t number, std::function<void(Batch&, uint_t)> create, Semaphore* gone = nullptr)
        : m_create(std::move(create)), m_gone(gone) {
        type(static_cast<Type>(number));
    }
    ~Batch() override {
        if (m_gone) m_gone->post();
    }
    bool finished() const override {
        if (whenAsked) whenAsked();
        return TaskImpl::finished();
    }
    void createElements(uint_t taskId) override { m_create(*this, taskId); }

    std::function<void()> whenAsked;

private:
    std::function<void(Batch&, uint_t)> m_create;
    Semaphore* m_gone;
};

using Work = Ref<TaskImpl>;

Work batch(uint_t type, std::function<void(Batch&, uint_t)> create, Semaphore* gone = nullptr) {
    return Work(new Batch(type, std::move(create), gone), false);
}

constexpr TaskImpl::Type typeOf(uint_t number) {
    return static_cast<TaskImpl::Type>(number);
}

/// A pool of a test's own. With workers it must never be destroyed.
class Pool : public TaskMaster {
public:
    explicit Pool(uint_t workers) { addQueue(0, workers); }
    void another(uint_t queueId, uint_t workers) { addQueue(queueId, workers); }
    Mutex& lock() { return m_mutex; }

    /// One worker is enough to see in which order things happen. The pool stays for ever.
    static Pool& served() { return *new Pool(1); }

    /// What a worker does once, on the calling thread.
    void workOne() {
        Element const element = pop(0);
        element->do_work();
        completed(element);
    }
};

/// As long as it lives no thread can be made: stacks of this size there are not.
class NoThreads {
public:
    NoThreads() {
        ::pthread_getattr_default_np(&m_normal);
        pthread_attr_t huge;
        ::pthread_getattr_default_np(&huge);
        ::pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
        ::pthread_setattr_default_np(&huge);
        ::pthread_attr_destroy(&huge);
    }
    ~NoThreads() {
        ::pthread_setattr_default_np(&m_normal);
        ::pthread_attr_destroy(&m_normal);
    }

private:
    pthread_attr_t m_normal;
};

std::size_t threads() {
    std::filesystem::directory_iterator const all("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::string const doThread = "virtual void Quillmark::Task::TaskMaster::do_thread(Quillmark::uint_t)";
std::string const emptyHandle = "operator->( 1 ) , include2/QuillRefcounted:359, ";

}  // namespace

TEST(TaskElement, KeepsItsNumbers) {
    Piece element([] {});
    EXPECT_EQ(element.queueId() + element.id() + element.taskId(), 0U);
    EXPECT_EQ(element.started(), 0);
    element.queueId(1);
    element.id(2);
    element.taskId(4'294'967'295U);
    EXPECT_EQ(element.queueId(), 1U);
    EXPECT_EQ(element.id(), 2U);
    EXPECT_EQ(element.taskId(), 4'294'967'295U);
}

TEST(TaskElement, NotesWhenItsWorkBegan) {
    std::time_t seen = 0;
    Piece element([&] { seen = element.started(); });
    std::time_t const before = ::time(nullptr);
    element.do_work();
    EXPECT_GE(seen, before);
    EXPECT_LE(seen, ::time(nullptr));
    EXPECT_EQ(element.started(), seen);
}

TEST(TaskImpl, BeginsUnstartedAndUnfinished) {
    Batch const task(4'000'000'000U, [](Batch&, uint_t) {});
    EXPECT_EQ(task.type(), typeOf(4'000'000'000U));
    EXPECT_EQ(task.started(), 0);
    EXPECT_FALSE(task.finished());
}

TEST(TaskImpl, IsFinishedWhenAllWasCreatedAndNothingIsOutstanding) {
    Batch task(1, [](Batch&, uint_t) {});
    Element const one = piece(0, 1);
    Element const two = piece(0, 2);
    task.add(one);
    task.elementCreationFinished();
    EXPECT_FALSE(task.finished());
    task.add(two);
    task.remove(one);
    task.remove(one);
    EXPECT_FALSE(task.finished());
    task.remove(two);
    EXPECT_TRUE(task.finished());
}

TEST(TaskImpl, TellsElementsApartByTheirId) {
    Batch task(1, [](Batch&, uint_t) {});
    task.elementCreationFinished();
    auto* const first = new Piece([] {});
    task.add(Element(first, true));
    EXPECT_EQ(first->count(), 2U);
    task.add(piece(0, 0));
    EXPECT_EQ(first->count(), 1U);  // another one with its id took its place
    task.remove(Element(first, false));
    EXPECT_TRUE(task.finished());
}

TEST(TaskImpl, CreatesAnewWheneverItIsRun) {
    uint_t given = 0;
    bool finished = true;
    Batch task(1, [&](Batch& self, uint_t taskId) {
        given = taskId;
        finished = self.finished();
        EXPECT_GT(self.started(), 0);
    });
    task.elementCreationFinished();
    std::time_t const before = ::time(nullptr);
    task.do_work(7);
    EXPECT_EQ(given, 7U);
    EXPECT_FALSE(finished);
    EXPECT_FALSE(task.finished());
    EXPECT_GE(task.started(), before);
    EXPECT_LE(task.started(), ::time(nullptr));
}

TEST(TaskImpl, RefusesElementsThatAreNone) {
    Batch task(1, [](Batch&, uint_t) {});
    EXPECT_EQ(failureOf([&] { task.add(Element()); }), emptyHandle);
    EXPECT_EQ(failureOf([&] { task.add(Element(nullptr, false)); }), emptyHandle);
    EXPECT_EQ(failureOf([&] { task.remove(Element()); }), emptyHandle);
}

TEST(TaskMaster, KeepsTheOrderOfVirtualOperations) {
    EXPECT_EQ(slotOf(&ElementImpl::process), 2U);
    EXPECT_EQ(slotOf(&TaskImpl::finished), 2U);
    EXPECT_EQ(slotOf(&TaskImpl::createElements), 3U);
    EXPECT_EQ(slotOf(&TaskMaster::add), 2U);
    EXPECT_EQ(slotOf(&TaskMaster::run), 3U);
    EXPECT_EQ(slotOf(&TaskMaster::do_thread), 4U);
    EXPECT_EQ(sizeof(TaskImpl::Type), 4U);
    EXPECT_EQ(sizeof(TaskMaster::Counter), 4U);
}

TEST(TaskMaster, RefusesHandlesThatHoldNothing) {
    Pool pool(0);
    EXPECT_EQ(failureOf([&] { pool.add(Element()); }), emptyHandle);
    EXPECT_EQ(failureOf([&] { pool.add(Element(nullptr, false)); }), emptyHandle);
    EXPECT_EQ(failureOf([&] { pool.run(Work()); }), emptyHandle);
    EXPECT_EQ(failureOf([&] { pool.run(Work(nullptr, false)); }), emptyHandle);
    EXPECT_EQ(failureOf([&] { pool.completed(Element()); }), emptyHandle);
}

TEST(TaskMaster, RefusesASecondQueueOfOneNumber) {
    Pool pool(0);
    EXPECT_EQ(failureOf([&] { pool.another(0, 0); }),
              "Task::Scheduler( 4 ) , include2/QuillTask \"A task queue with that id already exists.\"");
    pool.another(1, 0);
}

TEST(TaskMaster, TellsWhenAWorkerCannotBeMade) {
    Pool pool(0);
    NoThreads const none;
    EXPECT_EQ(failureOf([&] { pool.another(1, 5); }),
              "Task::Scheduler( 4 ) , include2/QuillTask:318,  \"pthread_create failed\"");
}

TEST(TaskMaster, RefusesQueuesAndTasksThatItDoesNotHave) {
    Pool pool(0);
    std::string const add = "Task::TaskMaster::add element( 4 ) , Task:";
    EXPECT_EQ(failureOf([&] {
                  pool.add(piece(
                      0, 0, [] {}, 1));
              }),
              add + "181,  \"Could not find the defined task queue.\"");
    EXPECT_EQ(failureOf([&] { pool.add(piece(0, 0)); }), add + "189,  \"Could not find the running task.\"");
    EXPECT_EQ(failureOf([&] { pool.pop(1); }),
              "Task::TaskMaster::pop( 4 ) , Task:207,  \"Could not find the defined task queue.\"");
    EXPECT_TRUE(isFree(pool.lock()));
}

TEST(TaskMaster, NumbersTasksFromZero) {
    Pool pool(0);
    std::vector<uint_t> numbers;
    for (uint_t type = 0; type < 3; ++type)
        pool.run(batch(type, [&](Batch&, uint_t taskId) { numbers.push_back(taskId); }));
    EXPECT_EQ(numbers, (std::vector<uint_t>{0, 1, 2}));
}

TEST(TaskMaster, GivesOutElementsInTheOrderInWhichTheyCame) {
    Pool pool(0);
    pool.run(batch(1, [&](Batch&, uint_t taskId) {
        for (uint_t id : {7U, 3U, 9U}) pool.add(piece(taskId, id));
    }));
    std::vector<uint_t> order;
    for (int i = 0; i < 3; ++i) order.push_back(pool.pop(0)->id());
    EXPECT_EQ(order, (std::vector<uint_t>{7, 3, 9}));
}

TEST(TaskMaster, LearnsWhenTheLastElementIsCompleted) {
    Pool pool(0);
    Semaphore gone(0);
    std::time_t started = 0;
    pool.run(batch(
        1,
        [&](Batch& self, uint_t taskId) {
            started = self.started();
            pool.add(piece(taskId, 1));
            pool.add(piece(taskId, 2));
            self.elementCreationFinished();
        },
        &gone));
    pool.workOne();
    EXPECT_EQ(pool.lastRun(typeOf(1)), 0);
    EXPECT_FALSE(gone.trywait());
    pool.workOne();
    EXPECT_EQ(pool.lastRun(typeOf(1)), started);
    EXPECT_NE(started, 0);
    EXPECT_TRUE(gone.trywait());
    EXPECT_EQ(pool.lastRun(typeOf(2)), 0);
}

TEST(TaskMaster, IgnoresElementsOfTasksThatDoNotRun) {
    Pool pool(0);
    pool.completed(piece(0, 0));
    EXPECT_EQ(pool.lastRun(typeOf(0)), 0);
}

TEST(TaskMaster, LogsASecondTaskOfATypeAndDoesNotRunIt) {
    LogRecorder log;
    Pool pool(0);
    bool ran = false;
    Work const second = batch(4'000'000'000U, [&](Batch&, uint_t) { ran = true; });
    pool.run(batch(4'000'000'000U, [&](Batch& self, uint_t taskId) {
        pool.add(piece(taskId, 0));
        self.elementCreationFinished();
    }));
    pool.run(second);
    EXPECT_FALSE(ran);
    EXPECT_EQ(second->started(), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"3000071 4000000000"});
    EXPECT_TRUE(isFree(pool.lock()));
    pool.run(batch(5, [](Batch&, uint_t) {}));  // another type is not in its way
    pool.workOne();
    pool.run(second);
    EXPECT_TRUE(ran);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(TaskMaster, RefusesASecondTaskOfATypeAlsoWhenTheLoggerFails) {
    LogRecorder log;
    Pool pool(0);
    int ran = 0;
    auto const adding = [&](Batch&, uint_t taskId) {
        ++ran;
        pool.add(piece(taskId, 0));
    };
    pool.run(batch(1, adding));
    log.afterwards([] { throw std::runtime_error("full"); });
    pool.run(batch(1, adding));
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"3000071 1"});
    EXPECT_TRUE(isFree(pool.lock()));
}

namespace {

/// An element whose destructor asks the pool, which then is unlocked, and gives others time to come in between.
class AskingAtItsEnd : public ElementImpl {
public:
    AskingAtItsEnd(Pool& pool, std::atomic<unsigned int>& ends) : m_pool(pool), m_ends(ends) {}
    ~AskingAtItsEnd() override {
        (void)m_pool.lastRun(typeOf(1));
        unsigned int const both = (++m_ends + 1) / 2 * 2;
        for (int i = 0; i < 1500 && m_ends < both; ++i) __builtin_ia32_pause();
    }
    void process() override {}

private:
    Pool& m_pool;
    std::atomic<unsigned int>& m_ends;
};

}  // namespace

TEST(TaskMaster, LosesNoElementThatTakesThePlaceOfOneWhoseEndAsksThePool) {
    constexpr uint_t elements = 4000;
    Pool& pool = *new Pool(4);
    std::atomic<unsigned int> ends{0};
    Semaphore worked(0);
    auto const asking = [&](uint_t id) {
        Element element(new AskingAtItsEnd(pool, ends), false);
        element->id(id);
        return element;
    };
    auto const create = [&](Batch& self, uint_t taskId) {
        for (uint_t id = 0; id < elements; ++id) {
            self.add(asking(id));  // whose only reference is the task's
            pool.add(piece(taskId, id, [&] { worked.post(); }));
        }
        self.elementCreationFinished();
    };
    Work const tasks[] = {batch(11, create), batch(12, create)};
    std::vector<std::thread> threads;
    for (Work const& task : tasks) threads.emplace_back([&] { pool.run(task); });
    for (std::thread& thread : threads) thread.join();
    uint_t count = 0;
    while (count < 2 * elements && worked.timedwait(30'000)) ++count;
    EXPECT_EQ(count, 2 * elements);
}

TEST(TaskMaster, KeepsATaskWithoutElementsUntilTheNextOfItsType) {
    Pool pool(0);
    Semaphore gone(0);
    auto const empty = [](Batch& self, uint_t) { self.elementCreationFinished(); };
    pool.run(batch(1, empty, &gone));
    pool.run(batch(2, empty));
    EXPECT_FALSE(gone.trywait());
    bool ran = false;
    pool.run(batch(1, [&](Batch&, uint_t) { ran = true; }));
    EXPECT_TRUE(ran);
    EXPECT_TRUE(gone.trywait());
    EXPECT_EQ(pool.lastRun(typeOf(1)), 0);
}

TEST(TaskMaster, DoesNotNoticeATaskWhoseElementsAreCompletedTooEarly) {
    Pool pool(0);
    Semaphore gone(0);
    pool.run(batch(
        1,
        [&](Batch& self, uint_t taskId) {
            pool.add(piece(taskId, 0));
            pool.workOne();
            self.elementCreationFinished();
        },
        &gone));
    EXPECT_EQ(pool.lastRun(typeOf(1)), 0);
    EXPECT_FALSE(gone.trywait());
}

TEST(TaskMaster, KeptForTheDaemonsLetsEveryTaskThroughAfterAnUnnoticedOne) {
    LogRecorder log;
    Pool pool(0);
    pool.run(batch(1, [](Batch& self, uint_t) { self.elementCreationFinished(); }));
    int ran = 0;
    auto const unfinished = [&](Batch&, uint_t) { ++ran; };
    for (int i = 0; i < 3; ++i) pool.run(batch(1, unfinished));
    EXPECT_EQ(ran, 3);
    pool.run(batch(2, unfinished));
    pool.run(batch(2, unfinished));
    EXPECT_EQ(ran, 4);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"3000071 2"});
}

// A daemon that keeps one task and runs it over and over.
TEST(TaskMaster, DoesNotRunATaskAgainThatFinishedUnnoticedAndIsRunningNow) {
    for (bool const anotherMeanwhile : {false, true}) {
        LogRecorder log;
        Pool pool(0);
        int ran = 0;
        bool quick = true;
        Work const task = batch(1, [&](Batch& self, uint_t taskId) {
            ++ran;
            if (!quick) pool.add(piece(taskId, 1));
            self.elementCreationFinished();
        });
        pool.run(task);
        pool.run(task);
        Work const other = batch(1, [](Batch&, uint_t) {});
        if (anotherMeanwhile) pool.run(other);
        quick = false;
        pool.run(task);
        EXPECT_EQ(ran, 3);
        pool.run(task);
        pool.run(batch(1, [&ran](Batch&, uint_t) { ++ran; }));
        EXPECT_EQ(ran, 3) << "refused while its element is outstanding";
        EXPECT_EQ(log.lines(), std::vector<std::string>(2, "3000071 1"));
        pool.workOne();
        EXPECT_EQ(pool.lastRun(typeOf(1)), task->started());
        pool.run(task);
        EXPECT_EQ(ran, 4);
    }
}

TEST(TaskMaster, IsLockedUntilTheFirstElementWasAdded) {
    Pool pool(0);
    std::vector<bool> free;
    pool.run(batch(1, [&](Batch&, uint_t taskId) {
        free.push_back(isFree(pool.lock()));
        pool.add(piece(taskId, 1));
        free.push_back(isFree(pool.lock()));
        pool.add(piece(taskId, 2));
        free.push_back(isFree(pool.lock()));
    }));
    free.push_back(isFree(pool.lock()));
    EXPECT_EQ(free, (std::vector<bool>{false, true, true, true}));
}

TEST(TaskMaster, LeavesTheLockToWhoeverHasItByTheEndOfTheCreation) {
    Pool pool(0);
    Semaphore locked(0);
    Semaphore goOn(0);
    std::thread other;
    pool.run(batch(1, [&](Batch&, uint_t taskId) {
        pool.add(piece(taskId, 1));
        other = std::thread([&] {
            Synchronized const guard(pool.lock());
            locked.post();
            goOn.wait();
        });
        locked.wait();
    }));
    EXPECT_FALSE(pool.lock().trylock());
    goOn.post();
    other.join();
}

TEST(TaskMaster, ForgetsATaskThatCouldNotCreateItsElements) {
    LogRecorder log;
    Pool pool(0);
    auto const toNowhere = [&](Batch&, uint_t taskId) {
        pool.add(piece(taskId, 1));
        pool.add(piece(
            taskId, 2, [] {}, 1));
    };
    EXPECT_EQ(failureOf([&] { pool.run(batch(1, toNowhere)); }),
              "Task::TaskMaster::add element( 4 ) , Task:181,  \"Could not find the defined task queue.\"");
    EXPECT_TRUE(isFree(pool.lock()));
    EXPECT_THROW(pool.run(batch(1, [](Batch&, uint_t) { throw 1; })), int);
    EXPECT_TRUE(isFree(pool.lock()));
    bool ran = false;
    pool.run(batch(1, [&](Batch&, uint_t) { ran = true; }));
    EXPECT_TRUE(ran);
    EXPECT_TRUE(log.lines().empty());
    pool.workOne();  // the element that was queued
}

TEST(TaskMaster, StaysConsistentWhenATaskAsksThePoolWhetherItIsFinished) {
    LogRecorder log;
    Pool pool(0);
    auto* const asking = new Batch(1, [&](Batch& self, uint_t taskId) {
        pool.add(piece(taskId, 1));
        self.elementCreationFinished();
    });
    asking->whenAsked = [&pool] { pool.lastRun(typeOf(1)); };  // which unlocks it
    Work const task(asking, false);
    pool.run(task);
    pool.run(batch(1, [](Batch&, uint_t) {}));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"3000071 1"});
    EXPECT_TRUE(isFree(pool.lock()));
    pool.workOne();
    EXPECT_EQ(pool.lastRun(typeOf(1)), task->started());
    EXPECT_TRUE(isFree(pool.lock()));
    EXPECT_EQ(asking->count(), 1U);
}

TEST(TaskMaster, WaitsForElementsThroughSignals) {
    static std::atomic<int> signals{0};
    struct sigaction handler {};
    struct sigaction former {};
    handler.sa_handler = [](int) { ++signals; };
    ::sigaction(SIGUSR1, &handler, &former);
    Pool pool(0);
    uint_t id = 0;
    std::string failure;
    std::thread waiter([&] { failure = failureOf([&] { id = pool.pop(0)->id(); }); });
    // A sanitizer may keep a signal for later, so the next is sent without a wait for the one before.
    while (signals < 100) {
        ::pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    pool.run(batch(1, [&](Batch&, uint_t taskId) { pool.add(piece(taskId, 5)); }));
    waiter.join();
    ::sigaction(SIGUSR1, &former, nullptr);
    EXPECT_EQ(failure, "nothing thrown");
    EXPECT_EQ(id, 5U);
}

TEST(TaskWorker, WorksWhileTheTaskIsStillCreating) {
    Pool& pool = Pool::served();
    Semaphore worked(0);
    Semaphore gone(0);
    Semaphore created(0);
    pool.run(batch(
        1,
        [&](Batch& self, uint_t taskId) {
            pool.add(piece(taskId, 1, [&] { worked.post(); }));
            worked.wait();
            pool.add(piece(taskId, 2, [&] { created.wait(); }));
            self.elementCreationFinished();
        },
        &gone));
    EXPECT_EQ(pool.lastRun(typeOf(1)), 0);
    created.post();
    gone.wait();
    EXPECT_NE(pool.lastRun(typeOf(1)), 0);
}

namespace {

/// Runs one task on @p pool whose elements do the given works, and waits for its end. The first element
/// waits until all are created.
void runToTheEnd(TaskMaster& pool, uint_t type, std::vector<std::function<void()>> const& works) {
    Semaphore created(0);
    Semaphore gone(0);
    pool.run(batch(
        type,
        [&](Batch& self, uint_t taskId) {
            uint_t id = 0;
            pool.add(piece(taskId, id++, [&created] { created.wait(); }));
            for (auto const& work : works) pool.add(piece(taskId, id++, work));
            self.elementCreationFinished();
        },
        &gone));
    created.post();
    gone.wait();
}

}  // namespace

TEST(TaskWorker, LogsTheExceptionsOfElementsAndGoesOn) {
    LogRecorder log;
    Pool& pool = Pool::served();
    std::vector<pthread_t> workers;
    auto const note = [&] { workers.push_back(::pthread_self()); };
    runToTheEnd(pool, 1, {note, [] { throw Exception("Piece", BadArgument, "TaskTest", 1); }, note});
    ASSERT_EQ(workers.size(), 2U);
    EXPECT_EQ(workers[0], workers[1]);
    EXPECT_NE(pool.lastRun(typeOf(1)), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"300006d " + doThread + "|Piece( 2 ) , TaskTest:1, "});
}

TEST(TaskWorker, IsReplacedWhenAForeignExceptionEndsIt) {
    LogRecorder log;
    Pool& pool = Pool::served();
    Semaphore ended(0);
    struct Ending {
        Semaphore& ended;
        ~Ending() { ended.post(); }
    };
    auto const fail = [&] {
        thread_local Ending const whenThreadEnds{ended};
        throw 1;
    };
    std::set<int> seen;
    for (int i = 1; i <= 20; ++i) {
        runToTheEnd(pool, 1, {fail});
        log.lines(static_cast<std::size_t>(i));
        runToTheEnd(pool, 1, {[&seen, i] { seen.insert(i); }});
    }
    EXPECT_EQ(seen.size(), 20U);
    ended -= 20;  // as many threads are no more
    EXPECT_EQ(log.lines(), std::vector<std::string>(20, "300006f " + doThread));
}

TEST(TaskWorker, IsReplacedWhenAnElementEndsTheThread) {
    LogRecorder log;
    Pool& pool = Pool::served();
    int worked = 0;
    runToTheEnd(pool, 1, {[] { ::pthread_exit(nullptr); }, [&] { ++worked; }});
    EXPECT_EQ(worked, 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST(TaskWorker, GoesOnItselfWhenNobodyCanTakeItsPlace) {
    LogRecorder log;
    Pool& pool = Pool::served();
    std::unique_ptr<NoThreads> none;
    std::vector<pthread_t> workers;
    runToTheEnd(pool, 1,
                {[&] {
                     workers.push_back(::pthread_self());
                     none = std::make_unique<NoThreads>();
                     throw 1;
                 },
                 [&] {
                     workers.push_back(::pthread_self());
                     none.reset();
                 }});
    ASSERT_EQ(workers.size(), 2U);
    EXPECT_EQ(workers[0], workers[1]);
}

TEST(TaskWorker, SurvivesATaskThatThrowsWhenAsked) {
    LogRecorder log;
    Pool& pool = Pool::served();
    Semaphore created(0);
    int asked = 0;
    auto* const asking = new Batch(1, [&](Batch& self, uint_t taskId) {
        for (uint_t id = 0; id < 3; ++id) pool.add(piece(taskId, id, [&created] { created.wait(); }));
        self.elementCreationFinished();
    });
    asking->whenAsked = [&asked] {
        ++asked;
        if (asked == 1) throw Exception("Batch", BadArgument, nullptr, 0);
        if (asked == 2) throw 1;
    };
    Work const task(asking, false);
    pool.run(task);
    created += 3;
    log.lines(2);
    runToTheEnd(pool, 2, {});  // the third element is done when this is
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"300006d " + doThread + "|Batch( 2 ) ", "300006f " + doThread}));
    EXPECT_EQ(pool.lastRun(typeOf(1)), task->started());
}

TEST(TaskWorker, LogsWithoutEndWhenItsQueueDoesNotExist) {
    LogRecorder log;
    Pool pool(0);
    int lines = 0;
    log.afterwards([&lines] {
        if (++lines == 3) ::pthread_exit(nullptr);
    });
    struct Worker : Thread {
        explicit Worker(Pool& served) : pool(served) {}
        void run() override { pool.do_thread(9); }
        Pool& pool;
    } worker(pool);
    EXPECT_EQ(worker.start().join(), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>(3, "300006d " + doThread +
                                                           "|Task::TaskMaster::pop( 4 ) , Task:207,  "
                                                           "\"Could not find the defined task queue.\""));
}

TEST(TaskWorker, LogsWhenItIsStartedWithoutItsRecord) {
    LogRecorder log;
    pthread_t thread = 0;
    void* result = &thread;
    ASSERT_EQ(::pthread_create(&thread, nullptr, &TaskMaster::drone, nullptr), 0);
    ASSERT_EQ(::pthread_join(thread, &result), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"300014a  "});
}

TEST(TaskPool, IsOneForTheProcess) {
    TaskMaster* const pool = TaskMaster::instance();
    ASSERT_NE(pool, nullptr);
    onAnotherThread([pool] { EXPECT_EQ(TaskMaster::instance(), pool); });
    EXPECT_EQ(failureOf([&] {
                  pool->add(piece(
                      0, 0, [] {}, 1));
              }),
              "Task::TaskMaster::add element( 4 ) , Task:181,  \"Could not find the defined task queue.\"");
}

TEST(TaskImpl, HoldsTheLastElementOfEachNumberUntilItIsRemoved) {
    // Multiples of something and neighbours, so that they meet wherever they are kept.
    constexpr uint_t steps[] = {1, 4096, 65536, 2654435769U};
    Batch task(1, [](Batch&, uint_t) {});
    task.elementCreationFinished();
    std::map<uint_t, Element> expected;
    std::mt19937 random(3);
    for (int i = 0; i < 20'000; ++i) {
        uint_t const id = steps[random() % 4] * static_cast<uint_t>(random() % 40);
        Element const element = piece(0, id);
        auto const before = expected.find(id);
        if (random() % 2 == 0) {
            task.add(element);
            ASSERT_EQ(element->count(), 2U);
            if (before != expected.end()) {
                ASSERT_EQ(before->second->count(), 1U);
            }
            expected.insert_or_assign(id, element);
        } else {
            task.remove(element);
            if (before != expected.end()) {
                ASSERT_EQ(before->second->count(), 1U);
                expected.erase(before);
            }
        }
        ASSERT_EQ(task.finished(), expected.empty());
    }
    for (auto const& [id, element] : expected) EXPECT_EQ(element->count(), 2U) << id;
}

TEST(TaskPool, KeepsTheOrderOfMoreElementsThanWaitUsually) {
    constexpr uint_t many = 5000;
    Pool& pool = Pool::served();
    std::vector<uint_t> order;
    std::vector<std::function<void()>> works;
    std::vector<uint_t> expected;
    for (uint_t id = 0; id < many; ++id) {
        works.emplace_back([&order, id] { order.push_back(id); });
        expected.push_back(id);
    }
    for (int round = 0; round < 2; ++round) {
        order.clear();
        runToTheEnd(pool, 1, works);
        EXPECT_EQ(order, expected);
    }
}

TEST(TaskPool, DestroysTheElementsThatNobodyTook) {
    Element const element = piece(0, 0);
    {
        Pool pool(0);
        pool.run(batch(1, [&](Batch&, uint_t taskId) {
            for (uint_t id = 0; id < 3000; ++id) pool.add(piece(taskId, id));
            element->taskId(taskId);
            pool.add(element);
        }));
        EXPECT_EQ(element->count(), 3U);
    }
    EXPECT_EQ(element->count(), 1U);
}

TEST(TaskPool, WakesAsManyWorkersAsThereIsWorkFor) {
    // Elements that wait for each other: were one worker left asleep, this would not end.
    TaskMaster& pool = *TaskMaster::instance();
    for (uint_t round = 0; round < 2000; ++round) {
        uint_t const together = 1 + round % 5;
        auto const arrived = std::make_shared<std::atomic<uint_t>>(0);
        auto const meet = [arrived, together] {
            ++*arrived;
            while (*arrived < together) std::this_thread::yield();
        };
        pool.run(batch(1000 + round, [&](Batch& self, uint_t taskId) {
            for (uint_t id = 0; id < together; ++id) pool.add(piece(taskId, id, meet));
            self.elementCreationFinished();
        }));
        while (*arrived < together) std::this_thread::yield();
    }
}

TEST(TaskPool, WorksFiveElementsAtOnceInTheOrderInWhichTheyCame) {
    TaskMaster& pool = *TaskMaster::instance();
    Semaphore arrived(0);
    Semaphore goOn(0);
    Semaphore gone(0);
    std::vector<Element> elements;
    pool.run(batch(
        100,
        [&](Batch& self, uint_t taskId) {
            for (uint_t id = 0; id < 10; ++id)
                elements.push_back(piece(taskId, id, [&] {
                    arrived.post();
                    goOn.wait();
                }));
            for (Element const& element : elements) pool.add(element);
            self.elementCreationFinished();
        },
        &gone));
    arrived -= 5;
    for (uint_t id = 0; id < 10; ++id) EXPECT_EQ(elements[id]->started() != 0, id < 5) << id;
    for (uint_t first = 5; first < 10; ++first) {
        goOn.post();
        arrived.wait();
        EXPECT_NE(elements[first]->started(), 0) << first;
    }
    goOn += 5;
    gone.wait();
}

TEST(TaskPool, WorksTensOfThousandsOfElementsOnceEach) {
    TaskMaster& pool = *TaskMaster::instance();
    constexpr std::size_t count = 30'000;
    std::vector<std::atomic<int>> worked(count);
    std::vector<std::function<void()>> works;
    for (auto& cell : worked) works.emplace_back([&cell] { ++cell; });
    runToTheEnd(pool, 101, works);
    std::size_t once = 0;
    for (auto const& cell : worked) once += cell == 1;
    EXPECT_EQ(once, count);
    EXPECT_NE(pool.lastRun(typeOf(101)), 0);
}

TEST(TaskPool, ServesManyThreadsAtOnce) {
    TaskMaster& pool = *TaskMaster::instance();
    constexpr int tasks = 40;
    std::atomic<int> worked{0};
    std::atomic<int> asked{0};
    auto const daemon = [&](uint_t type) {
        for (int i = 0; i < tasks; ++i) {
            runToTheEnd(pool, type, std::vector<std::function<void()>>(20, [&worked] { ++worked; }));
            asked += pool.lastRun(typeOf(type)) != 0;
        }
    };
    std::vector<std::thread> daemons;
    for (uint_t type = 200; type < 204; ++type) daemons.emplace_back(daemon, type);
    for (std::thread& thread : daemons) thread.join();
    EXPECT_EQ(worked, 4 * tasks * 20);
    EXPECT_EQ(asked, 4 * tasks);
}

TEST(TaskPool, MayBeAskedAboutATaskAnywhereAndAnyTime) {
    TaskMaster& pool = *TaskMaster::instance();
    Semaphore created(0);
    Work const task = batch(300, [&](Batch& self, uint_t taskId) {
        pool.add(piece(taskId, 5000, [&created] { created.wait(); }));
        for (uint_t id = 0; id < 5000; ++id) pool.add(piece(taskId, id));
        self.elementCreationFinished();
    });
    std::atomic<bool> done{false};
    std::thread asking([&] {
        while (!done) {
            done = task->finished() && pool.lastRun(task->type()) == task->started();
            std::this_thread::yield();
        }
    });
    pool.run(task);
    created.post();
    asking.join();
    EXPECT_TRUE(task->finished());
}

TEST(TaskPoolDeathTest, ConsistsOfFiveThreads) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::thread([] {}).join();  // sanitizers have one of their own, from the first on
            std::size_t const before = threads();
            TaskMaster::instance();
            TaskMaster::instance();
            std::_Exit(static_cast<int>(threads() - before));
        },
        testing::ExitedWithCode(5), "");
}

// Of those who come at the same time one makes it, and the others wait for its queue and its workers.
TEST(TaskPoolDeathTest, IsWholeForEverybodyWhoComesFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            constexpr int callers = 8;
            std::atomic<std::size_t> before{0};
            std::atomic<int> early{0};
            std::atomic<int> done{0};
            std::vector<std::thread> first;
            for (int i = 0; i < callers; ++i)
                first.emplace_back([&] {
                    while (before == 0) std::this_thread::yield();
                    TaskMaster::instance();
                    if (threads() < before + 5) ++early;
                    ++done;
                    while (done != callers) std::this_thread::yield();  // who ends is not counted
                });
            before = threads();
            for (std::thread& thread : first) thread.join();
            std::_Exit(early);
        },
        testing::ExitedWithCode(0), "");
}

TEST(TaskPoolDeathTest, LetsTheProcessEndWhileItsWorkersWait) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            runToTheEnd(*TaskMaster::instance(), 1, {[] {}});
            std::exit(3);
        },
        testing::ExitedWithCode(3), "");
}

TEST(TaskPoolDeathTest, StaysWithTheWorkersThatItGot) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::string failure;
            {
                NoThreads const none;
                failure = failureOf([] { TaskMaster::instance(); });
            }
            bool const made = TaskMaster::instance() != nullptr;
            bool const asWritten =
                failure == "Task::Scheduler( 4 ) , include2/QuillTask:318,  \"pthread_create failed\"";
            std::exit(made && asWritten ? 3 : 1);
        },
        testing::ExitedWithCode(3), "");
}
