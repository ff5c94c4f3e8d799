// When a job runs next, beside a search with mktime.

#include <array>
#include <climits>
#include <cstdlib>
#include <ctime>

#include "fuzz/support/Fuzz.h"
#include "include2/QuillCron"

using namespace Quillmark;
using namespace QuillmarkFuzz;
using Cron::Period;

namespace {

constexpr long day = 86400;

constexpr char const* zones[] = {
    "UTC0",
    "CET-1CEST,M3.5.0,M10.5.0/3",
    "EST5EDT,M3.2.0,M11.1.0",
    "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0",
    "EET-2EEST,M3.5.0/0,M10.5.0/0",
    "<-04>4<-03>,M9.1.6/24,M4.1.6/24",
    "<-02>2<-01>,M3.5.0/-1,M10.5.0/0",
};

std::tm fieldsOf(long t) {
    std::tm fields{};
    ::localtime_r(&t, &fields);
    return fields;
}

/// The other time at which the clock shows the same, or @p t when there is none.
long otherReading(long t) {
    long const shown = t + fieldsOf(t).tm_gmtoff;
    for (long const nearby : {t - day, t + day}) {
        long const other = shown - fieldsOf(nearby).tm_gmtoff;
        if (other != t && other + fieldsOf(other).tm_gmtoff == shown) return other;
    }
    return t;
}

/// The search as one writes it down, with one reading of repeated times throughout.
long searched(Period const& period, long now, bool allowNow, bool late) {
    std::tm fields = fieldsOf(now);
    bool const minutes = period.type() == Period::PERIOD_MINUTE;
    bool const hours = period.type() == Period::PERIOD_HOUR;
    long const unit = minutes ? 60 : hours ? 3600 : day;
    int const every = static_cast<int>(std::max<long>(period.length() / unit, 1));
    int const offset = static_cast<int>(period.offset());
    int& hand = minutes ? fields.tm_min : hours ? fields.tm_hour : fields.tm_mday;
    hand = every * (hand / every);
    fields.tm_sec = offset % 60;
    fields.tm_min = offset / 60 % 60 + (minutes ? fields.tm_min : 0);
    if (!minutes) fields.tm_hour = offset / 3600 % 24 + (hours ? fields.tm_hour : 0);
    for (long before = LONG_MIN;; hand += every) {
        std::tm trial = fields;
        trial.tm_isdst = -1;
        long found = ::mktime(&trial);
        found = late ? std::max(found, otherReading(found)) : std::min(found, otherReading(found));
        if (minutes) {
            while (found < now || (found == now && !allowNow)) found += every * 60;
            return found;
        }
        if (trial.tm_hour != fields.tm_hour % 24 || trial.tm_min != fields.tm_min || found <= before)
            continue;
        if (found > now || (found == now && allowNow)) return found;
        before = found;
        fields = trial;
    }
}

Period periodFrom(Input& in) {
    auto const count = static_cast<uint_t>(in.number(0, 100));
    auto const offset = static_cast<uint_t>(in.number(0, 2000));
    switch (in.number(0, 4)) {
    case 0: return {Period::PERIOD_MINUTE, count, offset};
    case 1: return {Period::PERIOD_HOUR, count, offset};
    case 2: return {Period::PERIOD_DAY, count, offset};
    case 3: return {static_cast<uint_t>(in.number(0, 40 * day)), static_cast<uint_t>(in.number(0, 2 * day))};
    default: return Period(in.rest());
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    ::setenv("TZ", in.oneOf(zones), 1);
    ::tzset();
    bool const allowNow = in.flag();
    long const now = static_cast<long>(in.number(day, 4'000'000'000));
    Period const period = periodFrom(in);
    claim(period.length() >= 0 && period.offset() >= 0, "lengths are not negative");
    if (period.type() != Period::PERIOD_DAY && period.length() < 60) return 0;

    period.reset(now, allowNow);
    long const next = period.next();
    claim(next > now || (next == now && allowNow), "the next time comes");
    long const early = searched(period, now, allowNow, false);
    long const late = searched(period, now, allowNow, true);
    bool const daily = period.type() == Period::PERIOD_DAY;
    if (next != early && (daily || next != late))
        broken("after " + Period::time2str(&now) + " every " + std::to_string(period.length()) + " + " +
               std::to_string(period.offset()) + " comes " + Period::time2str(&next) + ", searched " +
               Period::time2str(&early) + " or " + Period::time2str(&late));
    return 0;
}
