#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "include2/QuillCron"
#include "tests/sched/FakeClock.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace Quillmark::Cron;
using namespace QuillmarkTest;

namespace {

// 1 January 2026, half a minute past midnight in UTC, and the full minute after it.
constexpr long start = 1'767'225'630;
constexpr long minuteOne = start + 30;

/// A job that does what it was made with.
class Work : public JobImpl {
public:
    explicit Work(std::function<void()> work, Period const& period = Period(60, 0), Semaphore* gone = nullptr)
        : JobImpl(period), m_work(std::move(work)), m_gone(gone) {}
    ~Work() override {
        if (m_gone) m_gone->post();
    }
    void task() override { m_work(); }

private:
    std::function<void()> m_work;
    Semaphore* m_gone;
};

Job job(std::function<void()> work, Period const& period = Period(60, 0), Semaphore* gone = nullptr) {
    return {new Work(std::move(work), period, gone), false};
}

/// A crontab of the test's own, on a clock of the test's own.
class Table : public Crontab {
public:
    Table() = default;
};

/// What the clock throws to end the manager, who takes it for a failure of a job.
struct End {};

/// Runs the manager on the calling thread for some wake-ups; @p awake is told the number of each, from 1.
void runFor(
    int cycles, Crontab& crontab, FakeClock& clock, std::function<void(int)> const& awake = [](int) {}) {
    int count = 0;
    clock.afterSleep = [&] {
        if (++count > cycles) throw End();
        awake(count);
    };
    crontab.start();
}

/// What the manager tells, with the names "Job#1" and so on for its jobs in the order of the table.
class Narration {
public:
    explicit Narration(Crontab& crontab) : m_former(std::cout.rdbuf(&m_text)) {
        crontab.verbose() = 1;
        crontab.dump([](Job const& listed, void* self) { static_cast<Narration*>(self)->name(listed); },
                     this);
    }
    ~Narration() { std::cout.rdbuf(m_former); }
    Narration(Narration const&) = delete;
    Narration& operator=(Narration const&) = delete;

    std::string text() const {
        std::string result = m_text.flushed();
        for (auto const& [address, number] : m_names)
            for (std::size_t found = 0; (found = result.find(address, found)) != std::string::npos;)
                result.replace(found, address.size(), std::to_string(number));
        return result;
    }

private:
    void name(Job const& listed) {
        std::ostringstream address;
        address << static_cast<void const*>(&listed);
        m_names.emplace(address.str(), m_names.size() + 1);
    }

    /// Keeps what was flushed with each line.
    class Lines : public std::stringbuf {
    public:
        std::string const& flushed() const { return m_flushed; }

    protected:
        int sync() override {
            std::string const all = str();
            if (std::count(all.begin(), all.end(), '\n') == ++m_flushes) m_flushed = all;
            return 0;
        }

    private:
        std::string m_flushed;
        std::ptrdiff_t m_flushes = 0;
    };

    Lines m_text;
    std::map<std::string, std::size_t> m_names;
    std::streambuf* m_former;
};

/// The next times of all jobs, in the order of the table, from the beginning of 2026.
std::vector<long> planned(Crontab& crontab) {
    std::vector<long> times;
    crontab.dump(
        [](Job const& listed, void* result) {
            static_cast<std::vector<long>*>(result)->push_back(listed.period().next() - start + 30);
        },
        &times);
    return times;
}

int count(Crontab& crontab) {
    return static_cast<int>(planned(crontab).size());
}

std::string const manager = "void Quillmark::Cron::Crontab::taskManager()";
std::string const foreign = "300006f " + manager;

/// Everything that the tests of the manager need.
class CronManager : public testing::Test {
protected:
    Zone zone{"UTC0"};
    FakeClock clock{start};
    LogRecorder log;
    Table crontab;
};

}  // namespace

TEST(CronJob, RunsEveryMinuteUnlessToldOtherwise) {
    struct Plain : JobImpl {
        void task() override {}
    } plain;
    EXPECT_EQ(plain.period().length(), 60);
    EXPECT_EQ(plain.period().offset(), 0);
    EXPECT_EQ(plain.period().type(), Period::PERIOD_MINUTE);
    struct Daily : JobImpl {
        Daily() { m_period = Period(std::string("12:30")); }
        void task() override {}
    } daily;
    EXPECT_EQ(daily.period().offset(), 45'000);
}

TEST(CronJob, SharesItsWork) {
    int ran = 0;
    auto* const work = new Work([&ran] { ++ran; }, Period(3600, 0));
    Job const first(work, false);
    Job const second(first);
    Job third;
    third = second;
    second.task();
    third.task();
    EXPECT_EQ(ran, 2);
    EXPECT_EQ(third.impl(), work);
    EXPECT_EQ(work->count(), 3U);
    EXPECT_EQ(&first.period(), &work->period());
    Job const moved(std::move(third));
    third = Job(moved);
    EXPECT_EQ(work->count(), 4U);
    Job const another(work, true);
    EXPECT_EQ(work->count(), 5U);
}

TEST(CronJob, HasNothingToDoWhenItIsNull) {
    Job const null;
    std::string const refused = "operator->( 1 ) , include2/QuillRefcounted:359, ";
    EXPECT_TRUE(null.isNull());
    EXPECT_EQ(null.impl(), nullptr);
    EXPECT_EQ(failureOf([&] { null.task(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.period(); }), refused);
    Table crontab;
    EXPECT_EQ(failureOf([&] { crontab.add(null); }), refused);
    EXPECT_EQ(count(crontab), 0);
}

TEST(CronJob, KeepsTheOrderOfVirtualOperations) {
    EXPECT_EQ(slotOf(&JobImpl::task), 2U);
    EXPECT_TRUE(std::has_virtual_destructor_v<Job>);
    EXPECT_TRUE(std::has_virtual_destructor_v<Crontab>);
    EXPECT_EQ(sizeof(std::declval<Crontab>().verbose()), 4U);
}

TEST_F(CronManager, PlansAJobStrictlyAfterThePresent) {
    clock.now = minuteOne;
    crontab.add(job([] {}));
    crontab.add(job([] {}, Period(3600, 0)));
    crontab.add(job([] {}, Period(Period::PERIOD_MINUTE, 2, 0)));
    crontab.add(job([] {}));
    EXPECT_EQ(planned(crontab), (std::vector<long>{120, 120, 120, 3600}));
    EXPECT_EQ(crontab.verbose(), 0);
}

TEST_F(CronManager, ListsJobsOfOneTimeInTheOrderInWhichTheyCame) {
    std::vector<Job> const jobs = {job([] {}), job([] {}, Period(60, 1)), job([] {}), job([] {})};
    for (Job const& added : jobs) crontab.add(added);
    std::vector<JobImpl*> listed;
    crontab.dump(
        [](Job const& one, void* all) { static_cast<std::vector<JobImpl*>*>(all)->push_back(one.impl()); },
        &listed);
    EXPECT_EQ(listed,
              (std::vector<JobImpl*>{jobs[0].impl(), jobs[2].impl(), jobs[3].impl(), jobs[1].impl()}));
    crontab.dump(nullptr, &listed);
    EXPECT_EQ(listed.size(), 4U);
}

TEST_F(CronManager, LetsGoOfItsJobsWhenItIsDestroyed) {
    Job const kept = job([] {});
    {
        Table other;
        other.add(kept);
        other.add(kept);
        EXPECT_EQ(kept.impl()->count(), 3U);
    }
    EXPECT_EQ(kept.impl()->count(), 1U);
}

TEST_F(CronManager, RunsEachJobWhenItsTimeHasCome) {
    std::string ran;
    auto const note = [&](char name) { return [&ran, name] { ran += name; }; };
    crontab.add(job(note('m')));
    crontab.add(job(note('t'), Period(Period::PERIOD_MINUTE, 2, 0)));
    crontab.add(job(note('f'), Period(Period::PERIOD_MINUTE, 5, 3)));
    runFor(10, crontab, clock, [&](int) { ran += ' '; });
    EXPECT_EQ(ran, " m tm fm tm m tm m ftm m tm");
    EXPECT_EQ(clock.now, minuteOne + 600);
    EXPECT_EQ(log.lines(), std::vector<std::string>{foreign});
}

TEST_F(CronManager, RunsAJobAsOftenAsItWasAdded) {
    int ran = 0;
    Job const twice = job([&ran] { ++ran; });
    crontab.add(twice);
    crontab.add(twice);
    runFor(3, crontab, clock);
    EXPECT_EQ(ran, 6);
}

TEST_F(CronManager, PlansTheNextRunFromTheEndOfTheLast) {
    std::vector<long> ran;
    crontab.add(job([&] {
        ran.push_back(clock.now - minuteOne);
        clock.now += 150;
    }));
    runFor(2, crontab, clock);
    EXPECT_EQ(ran, (std::vector<long>{0, 180}));
    EXPECT_EQ(planned(crontab), std::vector<long>{420});
}

TEST_F(CronManager, RunsAJobOnceWhenTheClockIsSetBackMeanwhile) {
    int ran = 0;
    crontab.add(job([&] {
        ++ran;
        clock.now -= 600;
    }));
    runFor(1, crontab, clock);
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(planned(crontab), std::vector<long>{-480});
}

TEST_F(CronManager, RunsAJobOnceForEachWakeUpHoweverOftenTheClockIsSetByAnHour) {
    constexpr int cycles = 50;
    for (long const step : {3600L, -3600L})
        for (bool const isAsleep : {true, false})
            for (int const every : {1, 2, 7}) {
                clock.now = start;
                Table other;
                int ran = 0;
                other.add(job([&] {
                    if (++ran % every == 0 && !isAsleep) clock.now += step;
                }));
                other.add(job([] {}, Period(3600, 0)));
                long before = clock.now;
                long slept = 0;
                runFor(cycles, other, clock, [&](int cycle) {
                    slept = std::max(slept, clock.now - before);
                    EXPECT_GE(clock.now - before, isAsleep ? 1 : -3599);
                    if (isAsleep && cycle % every == 0) clock.now += step;
                    before = clock.now;
                });
                EXPECT_EQ(ran, cycles) << step << (isAsleep ? " asleep " : " at work ") << every;
                EXPECT_LE(slept, 3660);
                EXPECT_EQ(count(other), 2);
            }
    EXPECT_EQ(log.lines(), std::vector<std::string>(12, foreign));
}

TEST_F(CronManager, TellsWhatItDoes) {
    crontab.add(job([] {}));
    crontab.add(job([] {}, Period(3600, 0)));
    Narration const told(crontab);
    runFor(1, crontab, clock);
    EXPECT_EQ(told.text(),
              "===== 2026-01-01 00:01:00 (1767225660) Job#1 next schedule is "
              "2026-01-01 00:01:00 (1767225660)\n"
              "===== 2026-01-01 00:01:00 (1767225660) Job#2 next schedule is "
              "2026-01-01 01:00:00 (1767229200)\n"
              "===== Job#1 starts ======\n"
              "===== 2026-01-01 00:01:00 (1767225660) Job#1 completed, next running time is "
              "2026-01-01 00:02:00 (1767225720) ======\n");
}

TEST_F(CronManager, IsSilentUnlessAskedToTell) {
    crontab.add(job([] {}));
    Narration const told(crontab);
    crontab.verbose() = 0;
    runFor(2, crontab, clock, [&](int) { clock.now += 3600; });
    EXPECT_EQ(told.text(), "");
}

TEST_F(CronManager, PlansAnewWhenTheClockWasSet) {
    std::vector<long> ran;
    crontab.add(job([&] { ran.push_back(clock.now - minuteOne); }, Period(7200, 0)));
    Narration const told(crontab);
    // To a slot, which is not left out.
    runFor(1, crontab, clock, [&](int) { clock.now = minuteOne + 4 * 3600 - 60; });
    EXPECT_EQ(ran, std::vector<long>{4 * 3600 - 60});
    EXPECT_EQ(told.text(),
              "===== 2026-01-01 04:00:00 (1767240000) system time changed. ======\n"
              "===== 2026-01-01 04:00:00 (1767240000) Job#1 reset schedule from 2026-01-01 02:00:00 to "
              "2026-01-01 04:00:00 (1767240000)\n"
              "===== 2026-01-01 04:00:00 (1767240000) Job#1 next schedule is "
              "2026-01-01 04:00:00 (1767240000)\n"
              "===== Job#1 starts ======\n"
              "===== 2026-01-01 04:00:00 (1767240000) Job#1 completed, next running time is "
              "2026-01-01 06:00:00 (1767247200) ======\n");
}

TEST_F(CronManager, TakesMoreThanSeventySecondsBetweenTwoWakeUpsForASetClock) {
    for (auto const& [seconds, isSet] : std::vector<std::pair<long, bool>>{{60, false},
                                                                           {70, false},
                                                                           {71, true},
                                                                           {-60, false},
                                                                           {-70, false},
                                                                           {-71, true},
                                                                           {86400, true},
                                                                           {-86400, true},
                                                                           {100'000'000, true}}) {
        clock.now = start;
        Table other;
        other.add(job([] {}, Period(86400, 0)));
        Narration const told(other);
        long const now = start + seconds;
        runFor(1, other, clock, [&](int) { clock.now = now; });
        std::string const text = told.text();
        EXPECT_EQ(text.find("system time changed.") != std::string::npos, isSet) << seconds;
        EXPECT_EQ(text.find("reset schedule") != std::string::npos, isSet) << seconds;
        long const midnight = now - now % 86400 + 86400;
        if (!isSet) continue;
        EXPECT_EQ(planned(other), std::vector<long>{midnight - start + 30}) << seconds;
    }
}

TEST_F(CronManager, MeasuresFromOneWakeUpToTheNext) {
    Narration const told(crontab);
    runFor(3, crontab, clock, [&](int cycle) {
        if (cycle == 1) clock.now += 3600;
        if (cycle == 2) clock.now += 10;
    });
    EXPECT_EQ(told.text(), "===== 2026-01-01 01:01:00 (1767229260) system time changed. ======\n");
}

TEST_F(CronManager, MeasuresItsFirstWakeUpFromTheConstruction) {
    Narration const told(crontab);
    clock.now += 3600;
    runFor(1, crontab, clock);
    EXPECT_EQ(told.text(), "===== 2026-01-01 01:01:00 (1767229260) system time changed. ======\n");
}

TEST_F(CronManager, PlansAnewWhenTheOffsetOfTheZoneChanged) {
    Zone::set("CET-1CEST,M3.5.0,M10.5.0/3");
    clock.now = 1'774'745'970;  // half a minute before summer time
    Table european;
    european.add(job([] {}, Period(Period::PERIOD_DAY, 1, 240)));
    Narration const told(european);
    runFor(2, european, clock);
    EXPECT_EQ(told.text(),
              "===== 2026-03-29 03:00:00 (1774746000) GMT offset changed. ======\n"
              "===== 2026-03-29 03:00:00 (1774746000) Job#1 reset schedule from 2026-03-29 04:00:00 to "
              "2026-03-29 04:00:00 (1774749600)\n"
              "===== 2026-03-29 03:00:00 (1774746000) Job#1 next schedule is "
              "2026-03-29 04:00:00 (1774749600)\n"
              "===== 2026-03-29 03:01:00 (1774746060) Job#1 next schedule is "
              "2026-03-29 04:00:00 (1774749600)\n");
}

TEST_F(CronManager, NoticesANewZone) {
    crontab.add(job([] {}, Period(Period::PERIOD_DAY, 1, 720)));
    runFor(1, crontab, clock, [](int) { ::setenv("TZ", "JST-9", 1); });
    EXPECT_EQ(planned(crontab), std::vector<long>{3 * 3600});
}

TEST_F(CronManager, TellsBothWhenClockAndOffsetChanged) {
    Narration const told(crontab);
    runFor(1, crontab, clock, [&](int) {
        Zone::set("JST-9");
        clock.now += 120;
    });
    EXPECT_EQ(told.text(),
              "===== 2026-01-01 09:03:00 (1767225780) GMT offset changed. ======\n"
              "===== 2026-01-01 09:03:00 (1767225780) system time changed. ======\n");
}

TEST_F(CronManager, DoesNotLookAtTheOffsetWhenItCannot) {
    Narration const told(crontab);
    std::string text;
    runFor(2, crontab, clock, [&](int cycle) {
        if (cycle == 2) return;
        ::setenv("TZ", "JST-9", 1);
        refuseLocaltime = 1;
    });
    EXPECT_EQ(refuseLocaltime, 0);
    EXPECT_EQ(told.text(), "===== 2026-01-01 09:02:00 (1767225720) GMT offset changed. ======\n");
}

TEST_F(CronManager, KeepsTheOffsetThatItKnowsWhenItCannotLook) {
    Zone::set("JST-9");
    Table far;
    Narration const told(far);
    runFor(2, far, clock, [](int cycle) {
        if (cycle == 1) refuseLocaltime = 1;
    });
    EXPECT_EQ(refuseLocaltime, 0);
    EXPECT_EQ(told.text(), "");
}

TEST_F(CronManager, KnowsNoOffsetWhenItCannotLookAtFirst) {
    Zone::set("JST-9");
    refuseLocaltime = 1;
    Table lost;
    Narration const told(lost);
    runFor(1, lost, clock);
    EXPECT_EQ(told.text(), "===== 2026-01-01 09:01:00 (1767225660) GMT offset changed. ======\n");
}

TEST_F(CronManager, ForgetsAJobThatThrowsAndGoesOnInAMinute) {
    Semaphore gone(0);
    std::string ran;
    crontab.add(job(
        [&] {
            ran += 'x';
            throw Exception("Work", BadArgument, "CronTest", 7);
        },
        Period(60, 0), &gone));
    crontab.add(job([&] { ran += 'a'; }));
    runFor(3, crontab, clock, [&](int) { ran += ' '; });
    EXPECT_EQ(ran, " x a a");
    EXPECT_EQ(count(crontab), 1);
    EXPECT_TRUE(gone.trywait());
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"300006d " + manager + "|Work( 2 ) , CronTest:7, ", foreign}));
}

TEST_F(CronManager, EndsWithAForeignExceptionOfAJob) {
    crontab.add(job([] { throw 1; }));
    crontab.add(job([] {}));
    int awake = 0;
    runFor(5, crontab, clock, [&](int) { ++awake; });
    EXPECT_EQ(awake, 1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{foreign});
    std::thread([&] {
        FakeClock::Share const share(clock);
        crontab.add(job([] {}));  // nobody holds the lock
    }).join();
    EXPECT_EQ(count(crontab), 2);
}

TEST_F(CronManager, EndsOnlyItsThreadWithAForeignExceptionOfAJob) {
    crontab.add(job([] { throw 1; }));
    std::thread managing([&] {
        FakeClock::Share const share(clock);
        EXPECT_EQ(Crontab::starter(&crontab), nullptr);
    });
    managing.join();
    EXPECT_EQ(log.lines(), std::vector<std::string>{foreign});
}

TEST_F(CronManager, TriesAgainAtOnceWhenItCannotSleep) {
    refuseMktime = 2;
    runFor(1, crontab, clock);
    std::string const failure = "300006d " + manager +
                                "|Period.wait( )( 4 ) , Cron:166,  \"Next period is before now. Sleep value "
                                "could be very large.  now=1767225630 m_next = -1\"";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{failure, failure, foreign}));
    EXPECT_EQ(clock.now, minuteOne + 60);
}

TEST_F(CronManager, LetsJobsAddAndListJobs) {
    std::vector<int> listed;
    int added = 0;
    crontab.add(job([&] {
        listed.push_back(count(crontab));
        crontab.add(job([&added] { ++added; }));
        listed.push_back(count(crontab));
    }));
    runFor(3, crontab, clock);
    EXPECT_EQ(listed, (std::vector<int>{0, 1, 1, 2, 2, 3}));  // without the one that runs
    EXPECT_EQ(added, 3);
    EXPECT_EQ(count(crontab), 4);
}

TEST_F(CronManager, KeepsALongJobFromDelayingTheListButNotAdditions) {
    Semaphore running(0);
    Semaphore goOn(0);
    Semaphore adding(0);
    std::atomic<bool> added{false};
    bool addedMeanwhile = true;
    crontab.add(job([&] {
        running.post();
        goOn.wait();
        addedMeanwhile = added;
        throw End();
    }));
    crontab.add(job([] {}, Period(3600, 0)));
    std::thread managing([&] {
        FakeClock::Share const share(clock);
        crontab.start();
    });
    running.wait();
    std::thread other([&] {
        FakeClock::Share const share(clock);
        adding.post();
        crontab.add(job([] {}));
        added = true;
    });
    adding.wait();
    EXPECT_EQ(count(crontab), 1);
    goOn.post();
    managing.join();
    other.join();
    EXPECT_FALSE(addedMeanwhile);
    EXPECT_EQ(count(crontab), 2);
}

TEST_F(CronManager, ServesManyThreadsAtOnce) {
    constexpr int threads = 3;
    constexpr int each = 50;
    std::atomic<int> ran{0};
    std::atomic<bool> enough{false};
    clock.afterSleep = [&] {
        if (enough) throw End();
        if (clock.now % 7 == 0) clock.now += 3600;  // plans anew now and then
    };
    std::thread managing([&] {
        FakeClock::Share const share(clock);
        crontab.start();
    });
    std::vector<std::thread> daemons;
    for (int i = 0; i < threads; ++i)
        daemons.emplace_back([&] {
            FakeClock::Share const share(clock);
            for (int added = 0; added < each; ++added) {
                crontab.add(job([&ran, first = true]() mutable {
                    if (first) ++ran;
                    first = false;
                }));
                planned(crontab);
            }
        });
    for (std::thread& thread : daemons) thread.join();
    while (ran < threads * each) std::this_thread::yield();
    enough = true;
    managing.join();
    EXPECT_EQ(ran, threads * each);
    EXPECT_EQ(count(crontab), threads * each);
}

TEST(CronThread, LetsCancellationPass) {
    LogRecorder log;
    struct Manager : Thread {
        void run() override { crontab.start(); }
        Table crontab;
    } thread;
    thread.start();
    ASSERT_EQ(::pthread_cancel(thread.tid()), 0);
    void* result = nullptr;
    ASSERT_EQ(::pthread_join(thread.tid(), &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(log.lines().empty());
}

TEST(CronThread, DoesNothingWithoutACrontab) {
    EXPECT_EQ(Crontab::starter(nullptr), nullptr);
}

namespace {

std::size_t threadCount() {
    std::filesystem::directory_iterator const all("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace

// Each in a process of its own: the manager of the process never ends.

TEST(CrontabDeathTest, IsOneForTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Crontab* const first = Crontab::instance(false);
            std::size_t const before = threadCount();
            bool const same = Crontab::instance(true) == first && Crontab::instance(false) == first;
            std::exit(same && threadCount() == before ? 3 : 1);
        },
        testing::ExitedWithCode(3), "");
}

TEST(CrontabDeathTest, StartsOneThreadWhenAsked) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::thread([] {}).join();  // sanitizers have one of their own, from the first on
            std::size_t const before = threadCount();
            Crontab* const made = Crontab::instance(true);
            bool const same = Crontab::instance(true) == made;
            made->add(job([] {}));
            std::exit(same && count(*made) == 1 ? static_cast<int>(threadCount() - before) + 2 : 1);
        },
        testing::ExitedWithCode(3), "");
}

TEST(CrontabDeathTest, TellsWhenItsThreadCannotBeMade) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            pthread_attr_t normal;
            pthread_attr_t huge;
            ::pthread_getattr_default_np(&normal);
            ::pthread_getattr_default_np(&huge);
            ::pthread_attr_setstacksize(&huge, std::size_t{1} << 50);  // stacks of this size there are not
            ::pthread_setattr_default_np(&huge);
            std::string const failure = failureOf([] { Crontab::instance(true); });
            ::pthread_setattr_default_np(&normal);
            bool const asWritten = failure == "Crontab::instance( 4 ) , Cron:203,  \"pthread_create failed\"";
            std::exit(asWritten && Crontab::instance(true) ? 3 : 1);
        },
        testing::ExitedWithCode(3), "");
}
