#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <cstdint>
#include <ctime>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "include2/QuillCron"
#include "include2/Time"
#include "tests/sched/FakeClock.h"
#include "tests/support/Support.h"

using Quillmark::uint_t;
using Quillmark::Cron::Period;
using namespace QuillmarkTest;

namespace {

std::string shown(Period const& period) {
    char const* const types[] = {"day", "hour", "minute"};
    auto const type = static_cast<uint_t>(period.type());
    return (type < 3 ? types[type] : "type " + std::to_string(type)) + std::string(" ") +
           std::to_string(period.length()) + "+" + std::to_string(period.offset());
}

/// A local time such as "2026-03-29 02:30:00" in seconds; the first if there are two.
long at(char const* text) {
    std::tm fields{};
    ::strptime(text, "%Y-%m-%d %H:%M:%S", &fields);
    fields.tm_isdst = -1;
    long const seconds = ::mktime(&fields);
    long const hourBefore = seconds - 3600;
    return Period::time2str(&hourBefore) == text ? hourBefore : seconds;
}

/// The next time after @p now, as a local time.
std::string next(Period const& period, long now, bool allowNow = false) {
    period.reset(now, allowNow);
    long const result = period.next();
    return Period::time2str(&result);
}

std::string const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
std::string const beirut = "EET-2EEST,M3.5.0/0,M10.5.0/0";
std::string const utc = "UTC0";

constexpr auto DAY = Period::PERIOD_DAY;
constexpr auto HOUR = Period::PERIOD_HOUR;
constexpr auto MINUTE = Period::PERIOD_MINUTE;

/// A zone as the C library reads it from a file.
struct Change {
    std::int32_t when;
    std::int32_t offset;
    bool summer;
};

std::string zoneFile(std::int32_t firstOffset, std::vector<Change> const& changes) {
    auto const number = [](std::int32_t value) {
        auto const bits = static_cast<std::uint32_t>(value);
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(bits >> shift & 0xff);
        return bytes;
    };
    auto const count = static_cast<std::int32_t>(changes.size());
    std::string file = "TZif" + std::string(16, '\0');
    for (std::int32_t const header : {0, 0, 0, count, count + 1, 4}) file += number(header);
    for (Change const& change : changes) file += number(change.when);
    for (int i = 1; i <= count; ++i) file += static_cast<char>(i);
    file += number(firstOffset) + std::string(2, '\0');
    for (Change const& change : changes)
        file += number(change.offset) + static_cast<char>(change.summer) + '\0';
    return file + std::string("ZON\0", 4);
}

// A zone that left out 30 December 2011 by going from one side of the date line to the other.
std::string const overTheDateLine = zoneFile(-11 * 3600, {{1316872800, -10 * 3600, true},
                                                          {1325239200, 14 * 3600, true},
                                                          {1333202400, 13 * 3600, false},
                                                          {1348927200, 14 * 3600, true}});
// A zone that changed its offset for good, twice, without calling it summer time.
std::string const moved = zoneFile(3 * 3600, {{1269730800, 4 * 3600, true},
                                              {1288479600, 3 * 3600, false},
                                              {1301180400, 4 * 3600, false},
                                              {1414274400, 3 * 3600, false},
                                              {1439564400, 3 * 3600 - 1800, false},
                                              {1525446000, 3 * 3600, false}});

}  // namespace

TEST(CronPeriod, CutsSecondsToWholeUnits) {
    struct Row {
        uint_t seconds, offset;
        char const* result;
    };
    for (Row const& row : std::vector<Row>{{0, 0, "minute 60+0"},
                                           {59, 0, "minute 60+0"},
                                           {59, 30, "minute 60+0"},
                                           {60, 30, "minute 60+30"},
                                           {60, 60, "minute 60+60"},
                                           {60, 61, "minute 60+0"},
                                           {150, 0, "minute 120+0"},
                                           {150, 130, "minute 120+0"},
                                           {3599, 3540, "minute 3540+3540"},
                                           {3599, 3600, "minute 3540+0"},
                                           {3600, 3600, "hour 3600+3600"},
                                           {7300, 90, "hour 7200+90"},
                                           {86399, 82801, "hour 82800+0"},
                                           {86400, 86400, "day 86400+86400"},
                                           {86400, 86401, "day 86400+0"},
                                           {200000, 1, "day 172800+1"},
                                           {UINT_MAX, 4294944000U, "day 4294944000+4294944000"},
                                           {UINT_MAX, UINT_MAX, "day 4294944000+0"}}) {
        Period const period(row.seconds, row.offset);
        EXPECT_EQ(shown(period), row.result) << row.seconds << ", " << row.offset;
        EXPECT_EQ(period.next(), 0);
    }
}

TEST(CronPeriod, CountsUnits) {
    struct Row {
        Period::PeriodType type;
        uint_t count, offsetMinutes;
        char const* result;
    };
    for (Row const& row : std::vector<Row>{{HOUR, 1, 59, "hour 3600+3540"},
                                           {HOUR, 23, 60, "hour 82800+0"},
                                           {HOUR, 24, 5, "hour 3600+300"},
                                           {HOUR, UINT_MAX, UINT_MAX, "hour 3600+0"},
                                           {HOUR, 0, 5, "hour 0+300"},
                                           {MINUTE, 5, 2, "minute 300+120"},
                                           {MINUTE, 5, 5, "minute 300+300"},
                                           {MINUTE, 5, 6, "minute 300+0"},
                                           {MINUTE, 60, 60, "minute 3600+3600"},
                                           {MINUTE, 61, 1, "minute 60+60"},
                                           {MINUTE, 61, 2, "minute 60+0"},
                                           {MINUTE, UINT_MAX, UINT_MAX, "minute 60+0"},
                                           {MINUTE, 0, 0, "minute 0+0"},
                                           {MINUTE, 0, 1, "minute 0+0"},
                                           {DAY, 1, 1439, "day 86400+86340"},
                                           {DAY, 7, 1440, "day 86400+0"},
                                           {DAY, 0, 1, "day 86400+60"},
                                           {static_cast<Period::PeriodType>(3), 5, 5, "type 3 0+0"}}) {
        Period const period(row.type, row.count, row.offsetMinutes);
        EXPECT_EQ(shown(period), row.result) << row.count << ", " << row.offsetMinutes;
        EXPECT_EQ(period.next(), 0);
    }
}

TEST(CronPeriod, ReadsATimeOfDay) {
    for (auto const& [text, offset] : std::vector<std::pair<char const*, int>>{{"00:00", 0},
                                                                               {"23:59", 86340},
                                                                               {"12:34", 45240},
                                                                               {"7:5", 25500},
                                                                               {" 8:30", 30600},
                                                                               {"08:30 or so", 30600},
                                                                               {"25:99", 0},
                                                                               {"12:xx", 0},
                                                                               {"12", 0},
                                                                               {"noon", 0},
                                                                               {"", 0}}) {
        Period const period{std::string(text)};
        EXPECT_EQ(shown(period), "day 86400+" + std::to_string(offset)) << '"' << text << '"';
        EXPECT_EQ(period.next(), 0);
    }
}

TEST(CronPeriod, IsAPlainValue) {
    Zone const zone(utc);
    Period const original(HOUR, 2, 5);
    original.reset(1'000'000'000, false);
    Period copy(60, 0);
    copy = original;
    EXPECT_EQ(shown(copy), shown(original));
    EXPECT_EQ(copy.next(), original.next());
    EXPECT_TRUE(std::is_trivially_copyable_v<Period>);
    EXPECT_EQ(sizeof(Period::PeriodType), 4U);
}

TEST(CronPeriod, FindsTheNextSlot) {
    struct Row {
        Period period;
        char const* now;
        char const* next;
    };
    Zone const zone(utc);
    for (Row const& row : std::vector<Row>{
             {{MINUTE, 5, 2}, "2026-01-01 12:00:00", "2026-01-01 12:02:00"},
             {{MINUTE, 5, 2}, "2026-01-01 12:02:00", "2026-01-01 12:07:00"},
             {{MINUTE, 5, 2}, "2026-01-01 12:57:00", "2026-01-01 13:02:00"},
             {{MINUTE, 7, 0}, "2026-01-01 12:57:00", "2026-01-01 13:03:00"},
             {{MINUTE, 60, 60}, "2026-01-01 12:30:00", "2026-01-01 13:00:00"},
             {{MINUTE, 0, 0}, "2026-01-01 12:30:00", "2026-01-01 12:31:00"},
             {{60, 30}, "2026-01-01 12:30:30", "2026-01-01 12:31:30"},
             {{HOUR, 1, 15}, "2026-01-01 12:14:59", "2026-01-01 12:15:00"},
             {{HOUR, 1, 15}, "2026-01-01 23:15:00", "2026-01-02 00:15:00"},
             {{HOUR, 0, 15}, "2026-01-01 12:15:00", "2026-01-01 13:15:00"},
             {{HOUR, 5, 0}, "2026-01-01 20:30:00", "2026-01-02 01:00:00"},
             {{HOUR, 5, 0}, "2026-01-02 01:00:00", "2026-01-02 05:00:00"},
             {{HOUR, 7, 0}, "2026-12-31 21:00:00", "2027-01-01 04:00:00"},
             {{HOUR, 23, 1}, "2026-01-01 23:00:00", "2026-01-01 23:01:00"},
             {{HOUR, 23, 1}, "2026-01-01 23:01:00", "2026-01-02 22:01:00"},
             {{18000, 18000}, "2026-01-01 20:30:00", "2026-01-02 01:00:00"},
             {{7200, 3690}, "2026-01-01 20:00:00", "2026-01-01 21:01:30"},
             {{DAY, 1, 150}, "2026-01-01 02:29:59", "2026-01-01 02:30:00"},
             {{DAY, 1, 150}, "2026-02-28 02:30:00", "2026-03-01 02:30:00"},
             {{86400, 86400}, "2026-01-01 12:00:00", "2026-01-02 00:00:00"},
             {{172800, 0}, "2026-05-01 12:00:00", "2026-05-02 00:00:00"},
             {{172800, 0}, "2026-05-02 00:00:00", "2026-05-04 00:00:00"},
             {{3 * 86400, 60}, "2026-03-01 12:00:00", "2026-03-03 00:01:00"},
             {{40U * 86400, 0}, "2026-03-01 12:00:00", "2026-04-09 00:00:00"},
             {{UINT_MAX, 0}, "2026-03-01 12:00:00", "2162-04-06 00:00:00"},
             {Period(std::string("23:15")), "2026-12-31 23:15:00", "2027-01-01 23:15:00"},
             {{static_cast<Period::PeriodType>(9), 5, 5}, "2026-01-01 12:30:00", "2026-01-01 12:31:00"}})
        EXPECT_EQ(next(row.period, at(row.now)), row.next) << shown(row.period) << " after " << row.now;
}

TEST(CronPeriod, TakesNowOnlyIfItMay) {
    Zone const zone(berlin);
    for (Period const& period :
         {Period(MINUTE, 5, 0), Period(HOUR, 4, 0), Period(DAY, 1, 720), Period(HOUR, 12, 0)}) {
        EXPECT_EQ(next(period, at("2026-06-10 12:00:00"), true), "2026-06-10 12:00:00") << shown(period);
        EXPECT_NE(next(period, at("2026-06-10 12:00:00"), false), "2026-06-10 12:00:00") << shown(period);
        EXPECT_GT(next(period, at("2026-06-10 12:00:01"), true), "2026-06-10 12:00:01") << shown(period);
    }
}

TEST(CronPeriod, SkipsATimeThatTheClockLeavesOut) {
    Zone const zone(berlin);
    Period const halfPastTwo(DAY, 1, 150);
    EXPECT_EQ(next(halfPastTwo, at("2026-03-28 02:30:00")), "2026-03-30 02:30:00");
    EXPECT_EQ(next(halfPastTwo, at("2026-03-29 00:30:00")), "2026-03-30 02:30:00");
    EXPECT_EQ(next(halfPastTwo, at("2026-03-29 12:00:00")), "2026-03-30 02:30:00");
    EXPECT_EQ(next(Period(HOUR, 1, 10), at("2026-03-29 01:30:00")), "2026-03-29 03:10:00");
    EXPECT_EQ(next(Period(HOUR, 2, 10), at("2026-03-29 01:30:00")), "2026-03-29 04:10:00");
    EXPECT_EQ(next(Period(MINUTE, 20, 0), at("2026-03-29 01:50:00")), "2026-03-29 03:00:00");
}

TEST(CronPeriod, SkipsAMidnightThatDoesNotExist) {
    Zone const zone(beirut);
    Period const midnight(DAY, 1, 0);
    EXPECT_EQ(next(midnight, at("2026-03-28 12:00:00")), "2026-03-30 00:00:00");
    EXPECT_EQ(next(midnight, at("2026-03-29 12:00:00")), "2026-03-30 00:00:00");
    EXPECT_EQ(next(Period(172800, 0), at("2026-03-28 12:00:00")), "2026-03-30 00:00:00");
    EXPECT_EQ(next(Period(HOUR, 6, 0), at("2026-03-28 19:00:00")), "2026-03-29 06:00:00");
}

TEST(CronPeriod, RunsDaysOnceAndHoursAndMinutesTwiceInARepeatedHour) {
    Zone const zone(berlin);
    long const first = at("2026-10-25 02:00:00");  // and once more an hour later
    struct Row {
        Period period;
        long now;
        long next;
    };
    for (Row const& row : std::vector<Row>{{{DAY, 1, 150}, first - 60, first + 1800},
                                           {{DAY, 1, 150}, first + 1800, first + 1800 + 25 * 3600},
                                           {{DAY, 1, 150}, first + 3600, first + 1800 + 25 * 3600},
                                           {{HOUR, 1, 30}, first - 60, first + 1800},
                                           {{HOUR, 1, 30}, first + 1800, first + 5400},
                                           {{HOUR, 1, 30}, first + 5400, first + 9000},
                                           {{HOUR, 2, 0}, first, first + 3600},
                                           {{HOUR, 2, 0}, first + 3600, first + 3 * 3600},
                                           {{MINUTE, 5, 0}, first + 1230, first + 1500},
                                           {{MINUTE, 5, 0}, first + 1230 + 3600, first + 1500 + 3600},
                                           {{MINUTE, 7, 0}, first + 1230 + 3600, first + 1260 + 3600}})
        for (long const asked : {1'767'225'600L, 1'780'000'000L}) {  // winter, summer: mktime remembers
            std::tm fields{};
            ::localtime_r(&asked, &fields);
            ::mktime(&fields);
            row.period.reset(row.now, false);
            EXPECT_EQ(row.period.next() - first, row.next - first)
                << shown(row.period) << " after " << row.now - first;
        }
    Period const hourly(HOUR, 1, 30);
    for (long const slot : {first + 1800, first + 5400}) {
        hourly.reset(slot, true);
        EXPECT_EQ(hourly.next(), slot);
    }
}

TEST(CronPeriod, GetsOverADayThatDoesNotExist) {
    TemporaryDirectory const directory;
    Zone const zone(directory.write("zone", overTheDateLine));
    EXPECT_EQ(next(Period(DAY, 1, 600), at("2011-12-29 10:00:00")), "2011-12-31 10:00:00");
    EXPECT_EQ(next(Period(DAY, 1, 600), at("2011-12-29 23:59:59")), "2011-12-31 10:00:00");
    EXPECT_EQ(next(Period(HOUR, 1, 0), at("2011-12-29 23:00:00")), "2011-12-31 00:00:00");
    EXPECT_EQ(next(Period(HOUR, 5, 10), at("2011-12-29 21:00:00")), "2011-12-31 01:10:00");
    EXPECT_EQ(next(Period(MINUTE, 5, 0), at("2011-12-29 23:55:00")), "2011-12-31 00:00:00");
}

TEST(CronPeriod, NoticesThatTheZoneChanged) {
    Zone const zone(utc);
    Period const noon(DAY, 1, 720);
    long const now = at("2026-06-10 08:00:00");
    EXPECT_EQ(next(noon, now), "2026-06-10 12:00:00");
    long const inUtc = noon.next();
    ::setenv("TZ", berlin.c_str(), 1);
    EXPECT_EQ(next(noon, now), "2026-06-10 12:00:00");
    EXPECT_EQ(noon.next(), inUtc - 2 * 3600);
}

// One answer may take up a changed TZ that the next one of another thread does not expect.
TEST(CronPeriod, AsksAboutTheZoneWhileNobodyElseDoes) {
    std::atomic<int> going{0};
    mostZoneReaders = 0;
    auto const often = [&going](auto const& ask) {
        return std::thread([&going, ask] {
            for (++going; going != 4;) std::this_thread::yield();
            for (int i = 0; i < 5000; ++i) ask(1'767'225'600L + i * 7200L);
        });
    };
    std::thread threads[] = {
        often([](long t) { Period(DAY, 1, 150).reset(t, false); }),
        often([](long t) { Period::time2str(&t); }),
        often([](long t) { Quillmark::Time::then(t, true); }),
        often([](long) { Quillmark::Time().asTimeT(); }),
    };
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mostZoneReaders, 1);
}

TEST(CronPeriod, TakesZeroForThePresent) {
    Zone const zone(utc);
    FakeClock const clock(1'767'225'630);
    EXPECT_EQ(next(Period(60, 0), 0), "2026-01-01 00:01:00");
}

TEST(CronPeriod, EndsItsSearchWhereTheCalendarEnds) {
    Zone const zone(utc);
    long const now = at("2026-01-01 12:30:00");
    for (Period const& period : {Period(60, 0), Period(3600, 0), Period(86400, 0)}) {
        refuseMktime = 1;
        period.reset(now, false);
        EXPECT_EQ(period.next(), -1) << shown(period);
        period.reset(LONG_MAX, false);
        EXPECT_EQ(period.next(), LONG_MAX) << shown(period);
        period.reset(LONG_MIN, false);
        EXPECT_EQ(period.next(), LONG_MIN) << shown(period);
    }
    EXPECT_EQ(refuseMktime, 0);
    refuseMktime = allowMktime = 1;
    EXPECT_EQ(next(Period(86400, 0), now), "2026-01-01 00:00:00");
    // The last minute of the last year that struct tm can hold.
    long const last = 67'768'036'191'676'799;
    Period const daily(86400, 0);
    daily.reset(last, false);
    EXPECT_EQ(daily.next(), last - 86399);
    Period const always(60, 0);
    always.reset(last - 60, false);
    EXPECT_EQ(always.next(), last - 59);
    refuseMktime = allowMktime = 0;
    always.reset(-1, false);
    EXPECT_EQ(always.next(), 0);
    always.reset(-61, false);
    EXPECT_EQ(always.next(), -60);
    Period const beforeMidnight(60, 59);
    beforeMidnight.reset(-2, false);  // the second that mktime's failure looks like
    EXPECT_EQ(beforeMidnight.next(), -1);
}

TEST(CronPeriod, TakesTheRepeatedHourWhereTheCalendarEnds) {
    Zone const zone(berlin);
    long const first = at("2026-10-25 02:00:00");
    refuseMktime = allowMktime = 1;
    Period const hourly(HOUR, 1, 0);
    hourly.reset(first, false);
    EXPECT_EQ(hourly.next(), first + 3600);
    EXPECT_EQ(refuseMktime, 0);
}

TEST(CronPeriod, SleepsUntilItsNextTime) {
    Zone const zone(utc);
    FakeClock clock(1'767'225'630);
    int slept = 0;
    clock.afterSleep = [&slept] { ++slept; };
    Period const minutely(60, 0);
    minutely.wait();
    EXPECT_EQ(clock.now, 1'767'225'660);
    minutely.wait();
    EXPECT_EQ(clock.now, 1'767'225'720);
    EXPECT_EQ(minutely.next(), 1'767'225'720);
    EXPECT_EQ(slept, 2);
    Period(UINT_MAX, 0).wait();
    EXPECT_EQ(clock.now, 1'767'139'200 + 4'294'944'000);  // from the day 0 of January
}

TEST(CronPeriod, DoesNotSleepIntoThePast) {
    Zone const zone(utc);
    FakeClock const clock(1'767'225'630);
    refuseMktime = 1;
    EXPECT_EQ(failureOf([] { Period(60, 0).wait(); }),
              "Period.wait( )( 4 ) , Cron:166,  \"Next period is before now. Sleep value could be very "
              "large.  now=1767225630 m_next = -1\"");
}

TEST(CronPeriod, PrintsTimes) {
    Zone const zone(berlin);
    FakeClock const clock(1'767'225'630);
    long const summer = 1'780'000'000;
    EXPECT_EQ(Period::time2str(&summer), "2026-05-28 22:26:40");
    EXPECT_EQ(Period::time2str(nullptr), "2026-01-01 01:00:30");
    long const never = LONG_MAX;
    EXPECT_EQ(Period::time2str(&never), "");
}

namespace {

constexpr long day = 86400;

std::tm localFields(long t) {
    std::tm fields{};
    ::localtime_r(&t, &fields);
    return fields;
}

// The offsets that were in force at some time of the ten years.
std::set<long> offsets;

/// The other time that shows the same as @p t, or @p t when there is none.
long otherReading(long t) {
    long const shown = t + localFields(t).tm_gmtoff;
    for (long const offset : offsets)
        if (shown - offset != t && localFields(shown - offset).tm_gmtoff == offset) return shown - offset;
    return t;
}

/// The search as one writes it down with mktime, with one reading of repeated times throughout.
long searched(Period const& period, long now, bool allowNow, bool late) {
    std::tm fields = localFields(now);
    int const offset = static_cast<int>(period.offset());
    bool const minutes = period.type() == MINUTE;
    int const every = static_cast<int>(period.length() / (minutes ? 60 : period.type() == HOUR ? 3600 : day));
    fields.tm_sec = offset % 60;
    int& hand = minutes ? fields.tm_min : period.type() == HOUR ? fields.tm_hour : fields.tm_mday;
    hand = every * (hand / every);
    fields.tm_min = offset / 60 % 60 + (minutes ? fields.tm_min : 0);
    if (!minutes) fields.tm_hour = offset / 3600 + (period.type() == HOUR ? fields.tm_hour : 0);
    long before = LONG_MIN;
    for (;; hand += every) {
        std::tm trial = fields;
        trial.tm_isdst = -1;
        long found = ::mktime(&trial);
        long const other = otherReading(found);
        found = late ? std::max(found, other) : std::min(found, other);
        if (minutes) {
            while (found <= now && !(allowNow && found == now)) found += period.length();
            return found;
        }
        if (trial.tm_hour != fields.tm_hour % 24 || trial.tm_min != fields.tm_min || found <= before)
            continue;
        if (found > now || (allowNow && found == now)) return found;
        before = found;
        fields = trial;
    }
}

struct TestZone {
    char const* name;
    std::string tz;  // or the content of a zone file
    bool isPlain;    // changes by an hour at most, and not within one: shorter periods begin anew there
};

std::vector<TestZone> const zones = {
    {"Berlin", berlin, true},
    {"New York", "EST5EDT,M3.2.0,M11.1.0", true},
    {"Lord Howe, half an hour", "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", true},
    {"Chatham, at a quarter to three", "<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45", false},
    {"Beirut, at midnight", beirut, true},
    {"Santiago, at the end of Saturday", "<-04>4<-03>,M9.1.6/24,M4.1.6/24", true},
    {"Gaza, two days after a Thursday", "EET-2EEST,M3.4.4/50,M10.4.4/50", true},
    {"Nuuk, before the day begins", "<-02>2<-01>,M3.5.0/-1,M10.5.0/0", true},
    {"Dublin, summer time in winter", "IST-1GMT0,M10.5.0,M3.5.0/1", true},
    {"Troll, two hours", "<+00>0<+02>-2,M3.5.0/1,M10.5.0/3", false},
    {"over the date line", overTheDateLine, true},
    {"moved for good", moved, true},
};

std::vector<Period> const periods = {
    {MINUTE, 1, 0}, {MINUTE, 5, 2}, {MINUTE, 15, 0}, {MINUTE, 30, 10}, {MINUTE, 7, 3},
    {HOUR, 1, 0},   {HOUR, 1, 30},  {HOUR, 2, 15},   {HOUR, 6, 0},     {HOUR, 12, 45},
    {HOUR, 5, 10},  {HOUR, 23, 0},  {DAY, 1, 0},     {DAY, 1, 30},     {DAY, 1, 150},
    {DAY, 1, 1439}, {DAY, 1, 60},   {2 * 86400, 0},  {86400, 7290},    {31 * 86400, 5},
};

// Their slots do not depend on where the search begins.
std::vector<Period> const regularPeriods = {
    {HOUR, 1, 30}, {HOUR, 6, 0}, {HOUR, 12, 45}, {DAY, 1, 0},
    {DAY, 1, 30},  {DAY, 1, 60}, {DAY, 1, 150},  {DAY, 1, 1439},
};

/// Ten years of a zone, which the process has as long as the object lives.
class Decade {
public:
    Decade(TestZone const& row, TemporaryDirectory const& directory)
        : begin(isFile(row) ? 1'262'304'000 : 1'735'689'600),  // 2010, 2025
          end(begin + 3652 * day),
          m_zone(isFile(row) ? directory.write(row.name, row.tz) : row.tz) {
        offsets = {localFields(begin).tm_gmtoff};
        for (long t = begin; t < end; t += day) {
            long const offset = localFields(t + day).tm_gmtoff;
            if (offset == localFields(t).tm_gmtoff) continue;
            offsets.insert(offset);
            long after = t + day;
            while (localFields(after - 60).tm_gmtoff == offset) after -= 60;
            changes.push_back(after);
        }
    }

    long const begin;
    long const end;
    std::vector<long> changes;  // the first minute of each new offset

private:
    static bool isFile(TestZone const& row) { return row.tz.substr(0, 4) == "TZif"; }

    Zone m_zone;
};

// Added to what the clock shows, in minutes of the day, when it shows it for the second time.
constexpr std::uint16_t again = 1440;

/// What the clock shows in each minute of a decade, as minutes of the day.
std::vector<std::uint16_t> shownIn(Decade const& decade) {
    std::vector<std::uint16_t> minutes;
    long changed = 0;
    std::tm first = localFields(decade.begin);
    for (long hour = decade.begin; hour < decade.end; hour += 3600) {
        std::tm const next = localFields(hour + 3600);
        bool const changes = next.tm_gmtoff != first.tm_gmtoff;
        if (changes) changed = hour;
        for (int minute = 0; minute < 60; ++minute) {
            long const t = hour + minute * 60;
            std::tm const fields = changes ? localFields(t) : first;
            int const shown = fields.tm_hour * 60 + fields.tm_min + (changes ? 0 : minute);
            bool const isAgain = t < changed + 4 * 3600 && otherReading(t) < t;
            minutes.push_back(static_cast<std::uint16_t>(shown % again + (isAgain ? again : 0)));
        }
        first = next;
    }
    return minutes;
}

/// Whether a period has a slot where the clock shows a minute. Days take the first of two.
std::vector<bool> slotsOf(Period const& period) {
    std::vector<bool> slots(2 * again, false);
    for (int minute = 0; minute < again; ++minute) {
        bool const isSlot = (minute - period.offset() / 60) % (period.length() / 60) == 0;
        slots[static_cast<std::size_t>(minute)] = isSlot;
        slots[static_cast<std::size_t>(minute) + again] = isSlot && period.type() != DAY;
    }
    return slots;
}

/// Whether mktime reads what the clock shows at @p t as @p t, or as the other time that shows the same.
bool isReadBack(long t) {
    std::tm fields = localFields(t);
    fields.tm_isdst = -1;
    long const read = ::mktime(&fields);
    return read == t || read == otherReading(t);
}

std::string described(Period const& period, long now, long found) {
    return shown(period) + " after " + std::to_string(now) + " (" + Period::time2str(&now) + ") is " +
           std::to_string(found) + " (" + Period::time2str(&found) + ")";
}

void PrintTo(TestZone const& zone, std::ostream* out) {
    *out << zone.name;
}

/// Each of the zones, in a test of its own.
class CronZone : public testing::TestWithParam<TestZone> {
protected:
    TestZone const& row = GetParam();
    TemporaryDirectory const directory;
    Decade const decade{row, directory};
    std::mt19937 random{20'261'025};
};

std::string nameOf(testing::TestParamInfo<TestZone> const& info) {
    std::string name = info.param.name;
    name.erase(std::remove_if(name.begin(), name.end(), [](unsigned char c) { return !std::isalpha(c); }),
               name.end());
    return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Twelve, CronZone, testing::ValuesIn(zones), nameOf);

// Each minute of the ten years either is one in which the clock shows a slot, and is given from the slot
// before it on, or is none and is not given.
TEST_P(CronZone, AgreesWithTheClockInEachMinuteOfTenYears) {
    EXPECT_GE(decade.changes.size(), 4U);
    auto const minutes = shownIn(decade);
    for (Period const& period : regularPeriods) {
        if (!row.isPlain && period.length() < 6 * 3600) continue;
        auto const slots = slotsOf(period);
        long slot = decade.begin;
        for (std::size_t minute = 1; minute < minutes.size() && !HasFailure(); ++minute) {
            if (!slots[minutes[minute]]) continue;
            long const expected = decade.begin + static_cast<long>(minute) * 60;
            EXPECT_TRUE(period.type() != DAY || isReadBack(expected)) << expected;
            auto const distance = static_cast<unsigned long>(expected - slot);
            for (long const now : {slot, slot + static_cast<long>(random() % distance)}) {
                if (now != slot && random() % 4 != 0) continue;
                period.reset(now, false);
                if (period.next() != expected)
                    ADD_FAILURE() << described(period, now, period.next()) << ", not " << expected;
            }
            slot = expected;
        }
    }
}

// The periods whose slots depend on where the search begins, with all others: minute by minute around each
// change of the clock, and at random moments between them, as a search with mktime finds them.
TEST_P(CronZone, SearchesAsTheCLibraryDoesOverTenYears) {
    std::vector<long> moments;
    for (long const change : decade.changes)
        for (long minutes = -150; minutes < 150; ++minutes)
            moments.insert(moments.end(), 3, change + minutes * 60);
    for (int i = 0; i < 10'000; ++i)
        moments.push_back(decade.begin + static_cast<long>(random() % (3652UL * day)));
    int wrong = 0;
    for (long const moment : moments) {
        long const now = moment + (random() % 4 == 0 ? static_cast<long>(random() % 60) : 0);
        Period const& period = periods[random() % periods.size()];
        bool const allowNow = random() % 2 == 0;
        period.reset(now, allowNow);
        long const found = period.next();
        if (found == searched(period, now, allowNow, false)) continue;
        if (period.type() != DAY && found == searched(period, now, allowNow, true)) continue;
        if (++wrong > 3) break;
        ADD_FAILURE() << described(period, now, found) << ", not " << searched(period, now, allowNow, false);
    }
}
