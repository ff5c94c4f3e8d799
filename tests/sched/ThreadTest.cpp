#include "include2/QuillThread"

#if defined(POSIX_TIME_PTIME_HPP___) || defined(BOOST_INTERPROCESS_EXCEPTIONS_HPP) || \
    defined(BOOST_INTERPROCESS_SEM_WRAPPER_HPP)
#error "a daemon that includes QuillThread must not pay for the heavy Boost headers"
#endif

#include <dlfcn.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/exceptions.hpp>
#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>
#include <functional>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using boost::posix_time::ptime;
using QuillmarkTest::failureOf;
using QuillmarkTest::isFree;
using QuillmarkTest::LogRecorder;
using QuillmarkTest::onAnotherThread;
using QuillmarkTest::slotOf;

namespace {

// What the system refuses on this thread.
thread_local bool refuseDestroy = false;
thread_local bool refuseTrywait = false;
thread_local bool refuseUtc = false;

template <class Function>
Function* next(char const* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand in the place of the C library's for this whole program and call those.
extern "C" __attribute__((visibility("default"))) int sem_destroy(sem_t* semaphore) noexcept {
    static auto* const real = next<int(sem_t*)>("sem_destroy");
    if (!refuseDestroy) return real(semaphore);
    errno = EBUSY;
    return -1;
}

extern "C" __attribute__((visibility("default"))) int sem_trywait(sem_t* semaphore) noexcept {
    static auto* const real = next<int(sem_t*)>("sem_trywait");
    if (!refuseTrywait) return real(semaphore);
    errno = EINVAL;
    return -1;
}

extern "C" __attribute__((visibility("default"))) struct tm* gmtime_r(time_t const* time,
                                                                      struct tm* fields) noexcept {
    static auto* const real = next<struct tm*(time_t const*, struct tm*)>("gmtime_r");
    return refuseUtc ? nullptr : real(time, fields);
}

namespace {

/// Runs what it was made with.
class Work : public Runable {
public:
    explicit Work(std::function<void()> work) : m_work(std::move(work)) {}
    void run() override { m_work(); }
    pthread_t ownTid() const { return m_tid; }
    bool ownStarted() const { return m_started; }

private:
    std::function<void()> m_work;
};

class OwnThread : public Thread {
public:
    explicit OwnThread(std::function<void()> work) : m_work(std::move(work)) {}
    void run() override { m_work(); }

private:
    std::function<void()> m_work;
};

/// Takes all units out and gives their number.
int units(Semaphore& semaphore) {
    int count = 0;
    while (semaphore.trywait()) ++count;
    return count;
}

/// errno and text of the exception of a semaphore's system call.
std::string systemFailureOf(std::function<void()> const& action) {
    try {
        action();
    } catch (boost::interprocess::interprocess_exception const& e) {
        return std::to_string(e.get_native_error()) + " " + e.what();
    }
    return "nothing thrown";
}

/// The same for an action that waits in vain, until signals interrupt it.
std::string interrupted(std::function<void()> const& action) {
    struct sigaction handler {};
    struct sigaction former {};
    handler.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &handler, &former);
    std::atomic<bool> done{false};
    std::string failure;
    std::thread waiter([&] {
        failure = systemFailureOf(action);
        done = true;
    });
    while (!done) {
        ::pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    waiter.join();
    ::sigaction(SIGUSR1, &former, nullptr);
    return failure;
}

std::string const interruptedCall = "4 Interrupted system call";

ptime day(int year) {
    return ptime(boost::gregorian::date(static_cast<unsigned short>(year), 6, 1));
}

}  // namespace

TEST(Thread, RunsItsOwnWork) {
    std::atomic<pthread_t> ran{0};
    OwnThread thread([&ran] { ran = ::pthread_self(); });
    EXPECT_EQ(thread.tid(), 0U);
    EXPECT_FALSE(thread.started());
    ThreadJoin join = thread.start();
    pthread_t const tid = thread.tid();
    EXPECT_TRUE(thread.started());
    EXPECT_EQ(join.join(), 0);
    EXPECT_EQ(ran, tid);
    EXPECT_NE(tid, ::pthread_self());
    EXPECT_EQ(thread.count(), 1U);
}

TEST(Thread, RunsARunableAndKeepsItsIdentifierItself) {
    std::atomic<pthread_t> ran{0};
    Work work([&ran] { ran = ::pthread_self(); });
    Thread thread;
    EXPECT_EQ(thread.start(work).join(), 0);
    EXPECT_EQ(ran, thread.tid());
    EXPECT_EQ(work.ownTid(), 0U);
    EXPECT_FALSE(work.ownStarted());
    EXPECT_TRUE(thread.started());
    ran = 0;
    EXPECT_EQ(thread.start(&work).join(), 0);
    EXPECT_EQ(ran, thread.tid());
}

TEST(Thread, EndsAtOnceWithNothingToRun) {
    Thread thread;
    ThreadJoin join = thread.start(static_cast<Runable*>(nullptr));
    EXPECT_NE(thread.tid(), 0U);
    EXPECT_EQ(join.join(), 0);
}

TEST(Thread, HasNoIdentifierWhenItCannotBeMade) {
    // Stacks of this size there are not.
    pthread_attr_t normal;
    pthread_attr_t huge;
    ASSERT_EQ(::pthread_getattr_default_np(&normal), 0);
    ASSERT_EQ(::pthread_getattr_default_np(&huge), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&huge, std::size_t{1} << 50), 0);
    OwnThread thread([] {});
    EXPECT_EQ(thread.start().join(), 0);
    EXPECT_NE(thread.tid(), 0U);
    ASSERT_EQ(::pthread_setattr_default_np(&huge), 0);
    ThreadJoin none = thread.start();
    ASSERT_EQ(::pthread_setattr_default_np(&normal), 0);
    EXPECT_EQ(thread.tid(), 0U);
    EXPECT_EQ(none.join(), ESRCH);
    thread.detach();
    ::pthread_attr_destroy(&normal);
    ::pthread_attr_destroy(&huge);
}

TEST(Thread, DetachesWhatWasStartedAndNothingElse) {
    Thread never;
    never.detach();
    Semaphore done(0);
    Semaphore goOn(0);
    OwnThread thread([&] {
        goOn.wait();
        done.post();
    });
    thread.start();
    thread.detach();
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_getattr_np(thread.tid(), &attributes), 0);
    int state = PTHREAD_CREATE_JOINABLE;
    ::pthread_attr_getdetachstate(&attributes, &state);
    ::pthread_attr_destroy(&attributes);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    goOn.post();
    done.wait();
}

TEST(Thread, RefusesToRunWhatNobodyWrote) {
    Thread thread;
    EXPECT_EQ(failureOf([&] { thread.run(); }), "Thread::run( 2 ) , Thread:58, ");
}

TEST(Thread, LogsAnExceptionThatLeavesItAndEndsAlone) {
    LogRecorder log;
    Thread thread;
    EXPECT_EQ(thread.start().join(), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"300006d void* Quillmark::Thread::starter(void*)|"
                                                    "Thread::run( 2 ) , Thread:58, "});
}

TEST(Thread, EndsAloneAlsoWhenTheLogFails) {
    for (bool const own : {true, false}) {
        LogRecorder log;
        log.afterwards([=] {
            if (own) throw Exception("Recorder", 4, nullptr, 0);
            throw std::bad_alloc();
        });
        Thread thread;
        EXPECT_EQ(thread.start().join(), 0);
        EXPECT_EQ(log.lines().size(), 1U);
    }
}

TEST(Thread, LetsCancellationPass) {
    LogRecorder log;
    Semaphore never(0);
    Semaphore running(0);
    std::atomic<bool> unwound{false};
    struct Unwound {
        std::atomic<bool>& flag;
        ~Unwound() { flag = true; }
    };
    OwnThread thread([&] {
        Unwound const guard{unwound};
        running.post();
        never.wait();
    });
    thread.start();
    running.wait();
    ASSERT_EQ(::pthread_cancel(thread.tid()), 0);
    void* result = nullptr;
    ASSERT_EQ(::pthread_join(thread.tid(), &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(unwound);
    EXPECT_TRUE(log.lines().empty());
}

TEST(Thread, MayLetGoOfItselfWhileItIsBeingStarted) {
    static std::atomic<int> destroyed{0};
    struct Fleeting : Thread {
        void run() override { release(); }
        ~Fleeting() override { ++destroyed; }
    };
    for (int i = 1; i <= 50; ++i) {
        EXPECT_EQ((new Fleeting)->start().join(), 0);
        EXPECT_EQ(destroyed, i);
    }
}

TEST(Thread, KeepsTheOrderOfVirtualOperations) {
    EXPECT_EQ(slotOf(&Runable::run), 2U);
    EXPECT_EQ(slotOf(&Thread::run), 2U);
    EXPECT_EQ(slotOf(&ThreadJoin::join), 2U);
    EXPECT_EQ(slotOf(&Mutex::lock), 2U);
    EXPECT_EQ(slotOf(&Mutex::unlock), 3U);
    EXPECT_EQ(slotOf(&Mutex::trylock), 4U);
    EXPECT_FALSE(std::is_polymorphic_v<Semaphore>);
    EXPECT_EQ(sizeof(Semaphore), sizeof(sem_t));
    EXPECT_TRUE(std::has_virtual_destructor_v<RefAutoSemaphore>);
}

TEST(Thread, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Thread>);
    EXPECT_FALSE(std::is_copy_constructible_v<Mutex>);
    EXPECT_FALSE(std::is_copy_constructible_v<Semaphore>);
    EXPECT_FALSE(std::is_copy_constructible_v<Synchronized>);
    EXPECT_FALSE(std::is_copy_constructible_v<AutoSemaphore>);
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, Runable>));
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, Mutex>));
}

TEST(ThreadJoin, WaitsAndThenHasNothingToWaitFor) {
    OwnThread thread([] {});
    ThreadJoin join = thread.start();
    EXPECT_EQ(join.join(), 0);
    EXPECT_EQ(join.join(), ESRCH);
    EXPECT_EQ(ThreadJoin(0).join(), ESRCH);
    EXPECT_EQ(ThreadJoin(::pthread_self()).join(), EDEADLK);
}

TEST(ThreadJoin, NeitherJoinsNorDetachesWhenItGoes) {
    OwnThread thread([] {});
    { ThreadJoin const forgotten = thread.start(); }
    EXPECT_EQ(ThreadJoin(thread.tid()).join(), 0);
}

namespace {
constinit Mutex beforeMain;
bool const lockedBeforeMain = beforeMain.trylock();
}  // namespace

TEST(Mutex, IsUsableBeforeMain) {
    EXPECT_TRUE(lockedBeforeMain);
    EXPECT_FALSE(isFree(beforeMain));
    beforeMain.unlock();
    EXPECT_TRUE(isFree(beforeMain));
}

TEST(Mutex, KeptForTheDaemonsLocksTwiceAndUnlocksOnce) {
    Mutex mutex;
    mutex.lock();
    mutex.lock();
    EXPECT_FALSE(isFree(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, StaysLockedWhenAStrangerUnlocksIt) {
    Mutex mutex;
    mutex.lock();
    onAnotherThread([&] { mutex.unlock(); });
    EXPECT_FALSE(isFree(mutex));
    mutex.unlock();
}

TEST(Mutex, RefusesATryWhileItIsLockedAlsoByItsOwner) {
    Mutex mutex;
    EXPECT_TRUE(mutex.trylock());
    EXPECT_FALSE(mutex.trylock());
    EXPECT_FALSE(isFree(mutex));
    mutex.lock();
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, MayGoWhileItsOwnerHoldsIt) {
    Mutex mutex;
    mutex.lock();
}

TEST(Mutex, LetsOneThreadInAtATime) {
    Mutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    for (int n = 0; n < 4; ++n)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                Synchronized const guard(mutex);
                ++count;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(count, 8000);
}

TEST(Synchronized, CallsTheVirtualOperationsOfItsMutex) {
    struct Counting : Mutex {
        void lock() override { ++locks; }
        void unlock() override { ++unlocks; }
        int locks = 0;
        int unlocks = 0;
    } mutex;
    {
        Synchronized const byReference(mutex);
        Synchronized const byPointer(&mutex);
        EXPECT_EQ(mutex.locks, 2);
        EXPECT_EQ(mutex.unlocks, 0);
    }
    EXPECT_EQ(mutex.unlocks, 2);
}

TEST(Synchronized, HoldsOneUnitOfASemaphore) {
    Semaphore semaphore(3);
    {
        Synchronized const byReference(semaphore);
        Synchronized const byPointer(&semaphore);
        EXPECT_EQ(units(semaphore), 1);
    }
    EXPECT_EQ(units(semaphore), 2);
}

TEST(Synchronized, HoldsNothingForNull) {
    Synchronized const noMutex(static_cast<Mutex*>(nullptr));
    Synchronized const noSemaphore(static_cast<Semaphore*>(nullptr));
}

TEST(Synchronized, KeptForTheDaemonsAnInnerGuardFreesTheMutex) {
    Mutex mutex;
    Synchronized const outer(mutex);
    { Synchronized const inner(mutex); }
    EXPECT_TRUE(isFree(mutex));
}

TEST(Synchronized, GoesQuietlyWhenItsUnitHasNoPlaceAnyMore) {
    Semaphore semaphore(SEM_VALUE_MAX);
    {
        Synchronized const guard(semaphore);
        AutoSemaphore const units(semaphore, 1);
        semaphore += 2;
    }
    EXPECT_TRUE(semaphore.trywait());
}

TEST(Semaphore, CountsUnits) {
    Semaphore semaphore(2);
    semaphore.post();
    ++semaphore;
    semaphore += 3;
    semaphore += 0;
    semaphore.wait();
    --semaphore;
    semaphore -= 2;
    semaphore -= 0;
    EXPECT_EQ(units(semaphore), 3);
    EXPECT_FALSE(semaphore.trywait());
    EXPECT_EQ(units(++(semaphore += 2)), 3);
}

TEST(Semaphore, TellsWhyASystemCallFailed) {
    EXPECT_EQ(systemFailureOf([] { Semaphore const tooMany(static_cast<unsigned>(SEM_VALUE_MAX) + 1); }),
              "22 Invalid argument");
    Semaphore full(SEM_VALUE_MAX);
    EXPECT_EQ(systemFailureOf([&] { full.post(); }), "75 Value too large for defined data type");
    EXPECT_EQ(systemFailureOf([&] { ++full; }), "75 Value too large for defined data type");
    EXPECT_EQ(systemFailureOf([&] { full += 2; }), "75 Value too large for defined data type");
    refuseTrywait = true;
    EXPECT_EQ(systemFailureOf([&] { full.trywait(); }), "22 Invalid argument");
    refuseTrywait = false;
}

TEST(SemaphoreDeathTest, AbortsWhenItCannotBeDestroyed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Semaphore const busy(0);
            refuseDestroy = true;
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(Semaphore, ReportsWaitsThatASignalInterrupts) {
    Semaphore semaphore(0);
    ptime forEver(boost::posix_time::pos_infin);
    ptime farAway = day(2300);
    ptime last = day(9999);
    EXPECT_EQ(interrupted([&] { semaphore.wait(); }), interruptedCall);
    EXPECT_EQ(interrupted([&] { --semaphore; }), interruptedCall);
    EXPECT_EQ(interrupted([&] { semaphore -= 1; }), interruptedCall);
    EXPECT_EQ(interrupted([&] { semaphore.timedwait(forEver); }), interruptedCall);
    EXPECT_EQ(interrupted([&] { semaphore.timedwait(farAway); }), interruptedCall);
    EXPECT_EQ(interrupted([&] { semaphore.timedwait(last); }), interruptedCall);
    EXPECT_EQ(interrupted([&] { semaphore.timedwait(LONG_MAX); }), interruptedCall);
    EXPECT_EQ(interrupted([&] { Synchronized const guard(semaphore); }), interruptedCall);
}

TEST(Semaphore, WaitsUntilAnotherThreadPosts) {
    Semaphore ask(0);
    Semaphore answer(0);
    std::thread other([&] {
        ask.wait();
        answer += 3;
    });
    ask.post();
    ptime forEver(boost::posix_time::pos_infin);
    ptime farAway = day(2300);
    EXPECT_TRUE(answer.timedwait(forEver));
    EXPECT_TRUE(answer.timedwait(farAway));
    EXPECT_TRUE(answer.timedwait(600'000));
    other.join();
}

TEST(Semaphore, WaitsNoLongerThanItsDeadline) {
    Semaphore semaphore(0);
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(semaphore.timedwait(0));
    EXPECT_FALSE(semaphore.timedwait(-5));
    EXPECT_FALSE(semaphore.timedwait(LONG_MIN));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_FALSE(semaphore.timedwait(30));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(29));
    ptime soon = boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(20);
    ptime const before = soon;
    EXPECT_FALSE(semaphore.timedwait(soon));
    EXPECT_GE(boost::posix_time::microsec_clock::universal_time(), before);
    EXPECT_EQ(soon, before);
}

TEST(Semaphore, TakesADeadlineOfAnyAge) {
    Semaphore semaphore(0);
    ptime deadlines[] = {day(1400), day(1960), ptime(boost::gregorian::date(1970, 1, 1)),
                         day(1970), day(2001), ptime(boost::posix_time::neg_infin)};
    for (ptime& deadline : deadlines) {
        EXPECT_FALSE(semaphore.timedwait(deadline)) << deadline.date().year();
        semaphore.post();
        EXPECT_TRUE(semaphore.timedwait(deadline)) << deadline.date().year();
    }
    semaphore.post();
    EXPECT_TRUE(semaphore.timedwait(0));
    ptime never(boost::posix_time::not_a_date_time);
    EXPECT_EQ(systemFailureOf([&] { semaphore.timedwait(never); }), "22 Invalid argument");
}

TEST(Semaphore, TellsWhenTheClockCannotBeReadAsUtc) {
    Semaphore semaphore(1);
    std::string text;
    refuseUtc = true;
    try {
        semaphore.timedwait(1);
    } catch (std::runtime_error const& e) {
        text = e.what();
    }
    refuseUtc = false;
    EXPECT_EQ(text, "could not convert calendar time to UTC time");
}

TEST(Semaphore, WorksBetweenProcesses) {
    void* const memory =
        ::mmap(nullptr, sizeof(Semaphore), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const semaphore = new (memory) Semaphore(0);
    pid_t const child = ::fork();
    if (child == 0) {
        semaphore->post();
        ::_exit(0);
    }
    EXPECT_TRUE(semaphore->timedwait(60'000));
    ::waitpid(child, nullptr, 0);
    semaphore->~Semaphore();
    ::munmap(memory, sizeof(Semaphore));
}

TEST(AutoSemaphore, HoldsItsUnitsForAScope) {
    Semaphore semaphore(5);
    {
        AutoSemaphore held(semaphore, 2);
        EXPECT_EQ(&held.semaphore(), &semaphore);
        EXPECT_TRUE(held.trywait());
        EXPECT_EQ(units(semaphore), 2);
        EXPECT_FALSE(held.trywait());
    }
    EXPECT_EQ(units(semaphore), 3);
}

TEST(AutoSemaphore, TakesAndGivesNothingForZeroAndLess) {
    Semaphore semaphore(1);
    {
        AutoSemaphore none(semaphore, 0);
        AutoSemaphore const less(semaphore, -3);
        none.post();
    }
    EXPECT_EQ(units(semaphore), 1);
}

TEST(AutoSemaphore, GivesItsUnitsBackOnce) {
    Semaphore semaphore(2);
    {
        AutoSemaphore held(semaphore, 2);
        held.post();
        EXPECT_EQ(units(semaphore), 2);
        held.post();
    }
    EXPECT_EQ(units(semaphore), 0);
}

TEST(AutoSemaphore, GivesBackWhatItTookWhenItIsStoppedHalfWay) {
    Semaphore semaphore(2);
    EXPECT_EQ(interrupted([&] { AutoSemaphore const tooMany(semaphore, 3); }), interruptedCall);
    EXPECT_EQ(units(semaphore), 2);
}

TEST(RefAutoSemaphore, GivesTheUnitsBackWithTheLastCopy) {
    Semaphore semaphore(3);
    RefAutoSemaphore last;
    {
        RefAutoSemaphore const first(semaphore, 2);
        RefAutoSemaphore const second(first);
        last = second;
        EXPECT_EQ(units(semaphore), 1);
    }
    EXPECT_EQ(units(semaphore), 0);
    last = RefAutoSemaphore();
    EXPECT_EQ(units(semaphore), 2);
}
