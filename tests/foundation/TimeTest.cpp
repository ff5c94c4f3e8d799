#include "include2/Time"

#include <pthread.h>
#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <thread>
#include <type_traits>
#include <utility>

#include "tests/support/Support.h"

using namespace Quillmark;

namespace {

/// The local zone, as long as the object lives.
class Zone {
public:
    explicit Zone(char const* name) {
        char const* const former = ::getenv("TZ");
        m_wasSet = former != nullptr;
        if (former) m_former = former;
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~Zone() {
        if (m_wasSet)
            ::setenv("TZ", m_former.c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }
    Zone(Zone const&) = delete;
    Zone& operator=(Zone const&) = delete;

private:
    bool m_wasSet = false;
    std::string m_former;
};

constexpr long firstSecondOf2038 = 2145916800;
constexpr long firstSecondOf2040 = 2208988800;
constexpr long firstSecondOf2041 = 2240611200;
constexpr long day = 24 * 60 * 60;

std::string utc(long t) {
    return Time::then(t, false).asCstring();
}

/// The six answers about two times, as one word.
std::string comparisons(Time const& a, Time const& b) {
    std::string text;
    if (a == b) text += "== ";
    if (a != b) text += "!= ";
    if (a < b) text += "< ";
    if (a <= b) text += "<= ";
    if (a > b) text += "> ";
    if (a >= b) text += ">= ";
    return text;
}

char const* const less = "!= < <= ";
char const* const equal = "== <= >= ";
char const* const greater = "!= > >= ";

}  // namespace

TEST(Time, PrintsAsMailDoes) {
    Zone const zone("UTC");
    struct {
        long t;
        char const* text;
    } const rows[] = {
        {0, "Thu, 01 Jan 1970 00:00:00 +0000"},
        {-1, "Wed, 31 Dec 1969 23:59:59 +0000"},
        {951827696, "Tue, 29 Feb 2000 12:34:56 +0000"},
        {INT_MAX, "Tue, 19 Jan 2038 03:14:07 +0000"},
        {INT_MAX + 1L, "Tue, 19 Jan 2038 03:14:08 +0000"},
        {253402300799, "Fri, 31 Dec 9999 23:59:59 +0000"},
        {67767976233532799, "Tue, 31 Dec 2147483647 23:59:59 +0000"},
    };
    for (auto const& [t, text] : rows) EXPECT_EQ(utc(t), text) << t;
}

TEST(Time, PrintsUtcAsPlusZeroInAnyLocalZone) {
    Zone const zone("EST5EDT");
    EXPECT_EQ(utc(0), "Thu, 01 Jan 1970 00:00:00 +0000");
}

TEST(Time, PrintsLocalTimeWithItsZone) {
    Zone const zone("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_STREQ(Time::then(1700000000, true).asCstring(), "Tue, 14 Nov 2023 17:13:20 -0500");
    EXPECT_STREQ(Time::then(1690000000, true).asCstring(), "Sat, 22 Jul 2023 00:26:40 -0400");
}

TEST(Time, LooksForANewZoneWhenItBreaksDownLocally) {
    Zone const zone("UTC");
    ::setenv("TZ", "ABC-2", 1);
    EXPECT_STREQ(Time::then(0, true).asCstring(), "Thu, 01 Jan 1970 02:00:00 +0200");
}

TEST(Time, PrintsInEnglishWhateverTheLocale) {
    std::string const former = std::setlocale(LC_ALL, nullptr);
    for (char const* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C.UTF-8", "C"}) {
        std::setlocale(LC_ALL, name);  // whichever this system has
        EXPECT_EQ(utc(0), "Thu, 01 Jan 1970 00:00:00 +0000") << name;
    }
    std::setlocale(LC_ALL, former.c_str());
}

TEST(Time, PrintsAllZeroFieldsByDefault) {
    EXPECT_STREQ(Time().asCstring(), "Sun, 00 Jan 1900 00:00:00 +0000");
}

TEST(Time, WithoutACalendarDateHasZeroFields) {
    for (bool const local : {false, true}) {
        EXPECT_STREQ(Time::then(LONG_MAX, local).asCstring(), "Sun, 00 Jan 1900 00:00:00 +0000");
        EXPECT_STREQ(Time::then(LONG_MIN, local).asCstring(), "Sun, 00 Jan 1900 00:00:00 +0000");
    }
}

TEST(Time, PrintsOnceAndKeepsTheText) {
    Time const time = Time::then(0, false);
    char const* const text = time.asCstring();
    Zone const zone("ABC-9");
    EXPECT_EQ(time.asCstring(), text);
    EXPECT_STREQ(text, "Thu, 01 Jan 1970 00:00:00 +0000");
    Time const copy(time);
    EXPECT_STREQ(copy.asCstring(), text);
    EXPECT_NE(copy.asCstring(), text);
}

TEST(Time, GivesBackTheSecondsInAUtcZone) {
    Zone const zone("UTC");
    for (long const t : {1L, 1700000000L, 4102444800L, -86400L, 0L}) {
        EXPECT_EQ(Time::then(t, false).asTimeT(), t);
        EXPECT_EQ(Time::then(t, true).asTimeT(), t);
    }
}

// Kept for the daemons: UTC fields are read as if they were local ones.
TEST(Time, KeepsTheOffsetOfTheZoneInTheSecondsOfAUtcTime) {
    Zone const zone("ABC5");
    EXPECT_EQ(Time::then(1700000000, false).asTimeT(), 1700000000 + 5 * 3600);
    EXPECT_EQ(Time::then(1700000000, true).asTimeT(), 1700000000);
}

TEST(Time, TakesTheFieldsOfAUtcTimeForStandardTimeInSummerToo) {
    Zone const zone("ABC5ABD,M3.2.0,M11.1.0");
    constexpr long july2023 = 1689000000;
    EXPECT_EQ(Time::then(july2023, false).asTimeT(), july2023 + 5 * 3600);
    EXPECT_EQ(Time::then(july2023, true).asTimeT(), july2023);
    EXPECT_STREQ(Time::then(july2023, true).asCstring(), "Mon, 10 Jul 2023 10:40:00 -0400");
}

TEST(Time, ComputesTheSecondsOfADefaultTimeWhenAsked) {
    Zone const zone("UTC");
    EXPECT_EQ(Time().asTimeT(), -2209075200);  // the day before 1900 began
}

TEST(Time, KeepsTheSecondsOnceTheyAreKnown) {
    Zone const zone("UTC");
    Time const made = Time::then(1700000000, false);
    Time const asked;
    EXPECT_EQ(asked.asTimeT(), -2209075200);
    Zone const other("ABC5");
    EXPECT_EQ(made.asTimeT(), 1700000000);
    EXPECT_EQ(asked.asTimeT(), -2209075200);
}

TEST(Time, NowIsThePresentInUtc) {
    Zone const zone("UTC");
    std::time_t const before = std::time(nullptr);
    Time const now = Time::now();
    EXPECT_LE(before, now.asTimeT());
    EXPECT_LE(now.asTimeT(), std::time(nullptr));
    EXPECT_EQ(std::string(now.asCstring()).substr(26), "+0000");
}

TEST(Time, ComparesBySecondsBefore2038AndByFieldsFromThenOn) {
    Zone const zone("UTC");
    struct {
        long a, b;
        char const* answer;
    } const rows[] = {
        {1, 1, equal},
        {1, 2, less},
        {-5, 5, less},
        {firstSecondOf2038 - 1, firstSecondOf2038, less},
        {1, firstSecondOf2040, less},
        {firstSecondOf2038, firstSecondOf2038, equal},
        {firstSecondOf2040, firstSecondOf2040, equal},
        {firstSecondOf2040, firstSecondOf2040 + 1, less},                        // second
        {firstSecondOf2040 + 59, firstSecondOf2040 + 60, less},                  // minute
        {firstSecondOf2040 + 3599, firstSecondOf2040 + 3600, less},              // hour
        {firstSecondOf2040 + day - 1, firstSecondOf2040 + day, less},            // day
        {firstSecondOf2040 + 31 * day - 1, firstSecondOf2040 + 31 * day, less},  // month
        {firstSecondOf2041 - 1, firstSecondOf2041, less},                        // year
    };
    for (auto const& [a, b, answer] : rows) {
        Time const left = Time::then(a, false);
        Time const right = Time::then(b, false);
        EXPECT_EQ(comparisons(left, right), answer) << a << " and " << b;
        EXPECT_EQ(comparisons(right, left), answer == less ? greater : answer) << b << " and " << a;
    }
}

TEST(Time, From2038OnIgnoresTheSecondsAndTheOtherFields) {
    Time utcTime;
    Time localTime;
    {
        Zone const zone("ABC-1");
        utcTime = Time::then(firstSecondOf2040, false);
        localTime = Time::then(firstSecondOf2040 - 3600, true);  // the same date and hour on the wall
    }
    EXPECT_STREQ(utcTime.asCstring(), "Sun, 01 Jan 2040 00:00:00 +0000");
    EXPECT_STREQ(localTime.asCstring(), "Sun, 01 Jan 2040 00:00:00 +0100");
    EXPECT_EQ(comparisons(utcTime, localTime), equal);
    {
        Zone const zone("ABC5");  // other seconds for the same fields
        Time const elsewhere = Time::then(firstSecondOf2040, false);
        EXPECT_NE(elsewhere.asTimeT(), utcTime.asTimeT());
        EXPECT_EQ(comparisons(utcTime, elsewhere), equal);
    }
}

TEST(Time, Before2038ComparesTheSecondsThatItKeepsNotTheFields) {
    for (auto const& [seconds, expected] : {std::pair{1700000000L, less},
                                            {firstSecondOf2038 - day, less},
                                            {firstSecondOf2038, equal},
                                            {firstSecondOf2040, equal}}) {
        Time noonHere;
        Time noonThere;
        {
            Zone const zone("UTC");
            noonHere = Time::then(seconds, false);
        }
        {
            Zone const zone("ABC5");
            noonThere = Time::then(seconds, false);  // the same fields, five hours more in seconds
        }
        EXPECT_STREQ(noonHere.asCstring(), noonThere.asCstring());
        EXPECT_EQ(comparisons(noonHere, noonThere), expected) << seconds;
    }
}

TEST(Time, WithoutSecondsYetComparesAsTheBeginningOf1970) {
    Zone const zone("UTC");
    Time const time;
    EXPECT_EQ(comparisons(time, Time()), equal);
    EXPECT_EQ(comparisons(time, Time::then(0, false)), equal);
    EXPECT_EQ(comparisons(time, Time::then(-1, false)), greater);
    time.asTimeT();
    EXPECT_EQ(comparisons(time, Time::then(-1, false)), less);
}

TEST(Time, CanBeDerivedFromAndDestroyedThroughItsBase) {
    static_assert(std::has_virtual_destructor_v<Time>);
    static_assert(sizeof(Time) == sizeof(void*) + sizeof(std::tm) + sizeof(std::time_t) + 64);
}

TEST(StringAggregator, JoinsWithASeparatorBetweenTexts) {
    std::vector<std::string> const items{"a", "b", "c"};
    std::string target;
    std::for_each(items.begin(), items.end(), stringAggregator(target, ','));
    EXPECT_EQ(target, "a,b,c");
    target = "x";
    std::for_each(items.begin(), items.end(), stringAggregator(target, ','));
    EXPECT_EQ(target, "x,a,b,c");
}

TEST(StringAggregator, SeparatesFromTheTargetNotFromEmptyTexts) {
    std::string target;
    stringAggregator join(target, ';');
    join("");
    join("");
    EXPECT_EQ(target, "");
    join("a");
    join("");
    EXPECT_EQ(target, "a;");
}

namespace {

std::chrono::milliseconds timeOf(unsigned int microseconds, unsigned int seconds) {
    auto const start = std::chrono::steady_clock::now();
    qm_usleep(microseconds, seconds);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace

TEST(Sleep, TakesSecondsAndMicroseconds) {
    using std::chrono::milliseconds;
    EXPECT_LT(timeOf(0, 0), milliseconds(1000));
    EXPECT_GE(timeOf(20'000, 0), milliseconds(20));
    EXPECT_GE(timeOf(20'000, 1), milliseconds(1020));
}

TEST(Sleep, CarriesAMillionMicrosecondsIntoSeconds) {
    using std::chrono::milliseconds;
    EXPECT_GE(timeOf(1'020'000, 0), milliseconds(1020));
}

// A signal every 10 ms: each ends the system's wait, none ends ours, and none makes it begin anew.
TEST(Sleep, GoesOnAfterSignals) {
    using std::chrono::milliseconds;
    struct sigaction ignore {};
    struct sigaction former {};
    ignore.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &ignore, &former);
    int interruptions = 0;
    std::atomic<bool> awake{false};
    milliseconds slept{};
    std::thread sleeper([&] {
        slept = timeOf(300'000, 0);
        awake = true;
    });
    while (!awake) {
        ::pthread_kill(sleeper.native_handle(), SIGUSR1);
        ++interruptions;
        ::usleep(10'000);
    }
    sleeper.join();
    ::sigaction(SIGUSR1, &former, nullptr);
    EXPECT_GE(interruptions, 2);
    EXPECT_GE(slept, milliseconds(300));
    EXPECT_LT(slept, milliseconds(5000));
}
