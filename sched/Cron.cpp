#include "include2/QuillCron"

#include <cxxabi.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <sstream>
#include <string_view>
#include <utility>

#include "foundation/Caught.h"
#include "foundation/Console.h"
#include "foundation/Fail.h"
#include "foundation/Zone.h"
#include "include2/Time"
#include "sched/PatientWait.h"

namespace Quillmark {
namespace Cron {

namespace {

constexpr long minute = 60;
constexpr long hour = 60 * minute;
constexpr long day = 24 * hour;

// How far two wake-ups may be apart beyond the tick before the clock counts as set.
constexpr long tolerance = 10;

constexpr char const taskManagerName[] = "void Quillmark::Cron::Crontab::taskManager()";

constexpr long unitOf(Period::PeriodType type) {
    switch (type) {
    case Period::PERIOD_DAY: return day;
    case Period::PERIOD_HOUR: return hour;
    case Period::PERIOD_MINUTE: break;
    }
    return minute;
}

/// Reads @p fields as local time and normalises them. False where the calendar ends.
bool readLocal(std::tm& fields, long& seconds) {
    fields.tm_isdst = -1;
    fields.tm_wday = -1;  // tells a failure from the second before 1970
    seconds = ::mktime(&fields);
    return seconds != -1 || fields.tm_wday != -1;
}

struct Readings {
    long first;
    long last;
};

/// The times at which the clock shows what mktime made of @p fields and @p seconds. They are two where
/// the clock was set back; which of them mktime gives depends on what it was asked before. The offsets
/// in force a day before and a day after lead to both.
Readings readingsOf(std::tm const& fields, long seconds) {
    long const shown = seconds + fields.tm_gmtoff;
    Readings readings{seconds, seconds};
    for (long const nearby : {seconds - day, seconds + day}) {
        std::tm there{};
        std::tm then{};
        if (!::localtime_r(&nearby, &there)) continue;
        long const reading = shown - there.tm_gmtoff;
        if (!::localtime_r(&reading, &then) || then.tm_gmtoff != there.tm_gmtoff) continue;
        readings = {std::min(readings.first, reading), std::max(readings.last, reading)};
    }
    return readings;
}

/// Breaks down a time by the zone that is set now.
bool breakDown(long seconds, std::tm& fields) {
    ::tzset();  // localtime_r need not do it
    return ::localtime_r(&seconds, &fields) != nullptr;
}

/// The offset of local time from GMT at some time. False where the calendar ends.
bool offsetAt(long seconds, long& offset) {
    std::lock_guard const guard(zoneLock);
    std::tm local{};
    if (!breakDown(seconds, local)) return false;
    offset = local.tm_gmtoff;
    return true;
}

// The narration of the manager.

std::string stamp(long t) {
    return Period::time2str(&t) + " (" + std::to_string(t) + ")";
}

std::string nameOf(Job const& job) {
    std::ostringstream name;
    name << "Job#" << static_cast<void const*>(&job);
    return name.str();
}

void say(std::string const& line) {
    print("===== " + line + '\n');
}

}  // namespace

Period::Period(uint_t seconds, uint_t offset) {
    if (seconds < minute) {
        m_length = minute;
        return;
    }
    m_type = seconds < hour ? PERIOD_MINUTE : seconds < day ? PERIOD_HOUR : PERIOD_DAY;
    long const unit = unitOf(m_type);
    m_length = seconds / unit * unit;
    m_offset = offset > m_length ? 0 : offset;
}

Period::Period(PeriodType type, uint_t count, uint_t offsetMinutes) : m_type(type) {
    bool offsetFits = false;
    switch (type) {
    case PERIOD_DAY:
        m_length = day;
        offsetFits = offsetMinutes < day / minute;
        break;
    case PERIOD_HOUR:
        m_length = (count < day / hour ? count : 1) * hour;
        offsetFits = offsetMinutes < hour / minute;
        break;
    case PERIOD_MINUTE:
        if (count > hour / minute) count = 1;
        m_length = count * minute;
        offsetFits = offsetMinutes <= count;
        break;
    }
    if (offsetFits) m_offset = offsetMinutes * minute;
}

Period::Period(std::string const& hhmm) : m_length(day), m_type(PERIOD_DAY) {
    std::tm time{};
    if (::strptime(hhmm.c_str(), "%R", &time)) m_offset = time.tm_min * minute + time.tm_hour * hour;
}

std::int64_t Period::next() const noexcept {
    return std::atomic_ref(m_next).load();
}

void Period::reset(long now, bool allowNow) const {
    if (now == 0) now = ::time(nullptr);
    std::lock_guard const guard(zoneLock);
    std::int64_t next = now;  // of a time without a date
    std::tm local{};
    if (breakDown(now, local)) {
        // Of the offset only the time of day counts.
        local.tm_sec = static_cast<int>(m_offset % minute);
        bool const byMinutes = unitOf(m_type) == minute;
        next = byMinutes ? nextMinute(local, now, allowNow) : nextHourOrDay(local, now, allowNow);
    }
    std::atomic_ref(m_next).store(next);
}

/// From a first slot in the hour of @p now on, by seconds.
std::int64_t Period::nextMinute(std::tm const& local, long now, bool allowNow) const {
    int const every = static_cast<int>(std::max(m_length / minute, 1L));
    std::tm fields = local;
    fields.tm_min = every * (local.tm_min / every) + static_cast<int>(m_offset / minute % 60);
    long seconds = -1;
    if (!readLocal(fields, seconds)) return -1;
    long const step = every * minute;
    auto const due = [=](long slot) {
        if (slot > now || (allowNow && slot == now)) return slot;
        long const passed = now - slot;
        bool const isNow = allowNow && passed % step == 0;
        return slot + (passed / step + (isNow ? 0 : 1)) * step;
    };
    Readings const readings = readingsOf(fields, seconds);
    return std::min(due(readings.first), due(readings.last));
}

/// From a first slot in the hour or day of @p now on, by the hands of the clock.
std::int64_t Period::nextHourOrDay(std::tm const& local, long now, bool allowNow) const {
    bool const daily = m_type == PERIOD_DAY;
    int const every = static_cast<int>(std::max(m_length / unitOf(m_type), 1L));
    int const offsetHours = static_cast<int>(m_offset / hour % 24);
    std::tm wanted = local;
    wanted.tm_min = static_cast<int>(m_offset / minute % 60);
    // Kept for the daemons: days of a month count from 1, so the first slot of every few days may be day
    // 0, the last of the month before.
    if (daily) wanted.tm_mday = every * (local.tm_mday / every);
    wanted.tm_hour = daily ? offsetHours : every * (local.tm_hour / every) + offsetHours;

    auto const isDue = [=](long slot) { return slot > now || (allowNow && slot == now); };
    long const never = std::numeric_limits<long>::max();
    long before = std::numeric_limits<long>::min();  // the slot that was found last
    long repeated = never;                           // the first slot to come in a repeated hour
    for (long found = -1;; (daily ? wanted.tm_mday : wanted.tm_hour) += every) {
        std::tm shown = wanted;
        long seconds = -1;
        if (!readLocal(shown, seconds)) return repeated != never ? repeated : found;
        Readings const readings = readingsOf(shown, seconds);
        found = readings.first;
        // A slot that the clock leaves out shows as some other time. Where it leaves out a whole day it may
        // show as the slot before, and would do so for ever.
        if (shown.tm_hour != wanted.tm_hour % 24 || shown.tm_min != wanted.tm_min || found <= before)
            continue;
        if (!daily && isDue(readings.last)) repeated = std::min(repeated, readings.last);
        if (isDue(found)) return std::min(found, repeated);
        before = found;
        wanted = shown;
    }
}

void Period::wait() const {
    long const now = ::time(nullptr);
    reset(now, false);
    long const until = next();
    if (until < now)
        fail("Period.wait( )", Refused, Site{"Cron", 166},
             "Next period is before now. Sleep value could be very large.  now=" + std::to_string(now) +
                 " m_next = " + std::to_string(until));
    qm_usleep(0, static_cast<uint_t>(std::min<long>(until - now, std::numeric_limits<uint_t>::max())));
}

std::string Period::time2str(long const* t) {
    long const time = t ? *t : ::time(nullptr);
    std::lock_guard const guard(zoneLock);
    std::tm fields{};
    if (!breakDown(time, fields)) return {};
    char text[40];
    return {text, ::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields)};
}

JobImpl::JobImpl() : JobImpl(Period(minute, 0)) {}
JobImpl::JobImpl(Period const& period) : m_period(period) {}
JobImpl::~JobImpl() = default;

Job::Job() noexcept = default;
Job::Job(JobImpl* impl, bool addReference) noexcept : m_impl(impl, addReference) {}
Job::Job(Job const& other) noexcept = default;
Job::Job(Job&& other) noexcept = default;
Job& Job::operator=(Job const& other) noexcept = default;
Job& Job::operator=(Job&& other) noexcept = default;
Job::~Job() = default;

JobImpl& Job::held() const {
    if (!m_impl) refuseEmptyRef();
    return *m_impl;
}

void Job::task() const {
    held().task();
}

Period const& Job::period() const {
    return held().period();
}

std::atomic<Crontab*> Crontab::s_instance{nullptr};

Crontab::Crontab() : m_tick(minute, 0), m_lastTime(::time(nullptr)), m_gmtOffset(0) {
    offsetAt(m_lastTime, m_gmtOffset);
}

Crontab::~Crontab() = default;

Crontab* Crontab::instance(bool startThread) {
    static std::mutex making;
    if (Crontab* const made = s_instance) return made;
    std::lock_guard const guard(making);
    if (Crontab* const made = s_instance) return made;
    std::unique_ptr<Crontab> fresh(new Crontab);
    if (startThread) {
        pthread_t manager = 0;
        if (::pthread_create(&manager, nullptr, starter, fresh.get()) != 0)
            fail("Crontab::instance", Refused, Site{"Cron", 203}, "pthread_create failed");
        ::pthread_detach(manager);
    }
    Crontab* const running = fresh.release();  // nobody ever destroys it: its manager never ends
    if (startThread) waitThroughSignals(running->m_started);
    s_instance = running;
    return running;
}

void Crontab::start() {
    starter(this);
}

// The handler for the end of a thread binds a reference that the system leaves null, so that one check of
// the sanitizers has to look away.
__attribute__((noinline, no_sanitize("null"))) void* Crontab::starter(void* crontab) {
    try {
        if (crontab) static_cast<Crontab*>(crontab)->taskManager();
    } catch (abi::__forced_unwind&) {  // the end of a thread, which has to go its way
        throw;
    } catch (...) {
        logUnknown(taskManagerName);
    }
    return nullptr;
}

void Crontab::add(Job const& job) {
    Synchronized const guard(m_mutex);
    auto entry = std::make_shared<Job>(job);
    entry->period().reset(0, false);
    Synchronized const tableGuard(m_tableLock);
    m_table.emplace(entry->period().next(), std::move(entry));
}

void Crontab::dump(void (*fn)(Job const& job, void* context), void* context) {
    if (!fn) return;
    for (auto const& [time, job] : entries()) fn(*job, context);
}

void Crontab::taskManager() {
    m_started.post();
    for (;;) {
        try {
            cycle();
        } catch (Exception const& e) {
            logCaught(taskManagerName, e);
        }
    }
}

void Crontab::cycle() {
    m_tick.wait();
    long const now = ::time(nullptr);
    bool changed = false;
    long offset = 0;
    if (offsetAt(now, offset) && offset != m_gmtOffset) {
        if (m_verbose) say(stamp(now) + " GMT offset changed. ======");
        m_gmtOffset = offset;
        changed = true;
    }
    if (std::abs(now - m_lastTime) > m_tick.length() + tolerance) {
        if (m_verbose) say(stamp(now) + " system time changed. ======");
        changed = true;
    }
    m_lastTime = now;
    if (changed) plan(now);
    runDue(now);
}

/// Gives every job its next time from @p now on, which may be now.
void Crontab::plan(long now) {
    std::vector<std::string> lines;
    {
        Synchronized const guard(m_tableLock);
        Table planned;
        while (!m_table.empty()) {
            Table::node_type entry = m_table.extract(m_table.begin());
            long const former = entry.key();
            Job const& job = *entry.mapped();
            job.period().reset(now, true);
            entry.key() = job.period().next();
            if (m_verbose)
                lines.push_back(stamp(now) + " " + nameOf(job) + " reset schedule from " +
                                Period::time2str(&former) + " to " + stamp(entry.key()));
            planned.insert(std::move(entry));
        }
        m_table.swap(planned);
    }
    for (std::string const& line : lines) say(line);
}

void Crontab::runDue(long now) {
    Synchronized const guard(m_mutex);
    if (m_verbose)
        for (auto const& [time, job] : entries())
            say(stamp(now) + " " + nameOf(*job) + " next schedule is " + stamp(time));
    // Jobs that are due again at once, since the clock was set back while they ran, wait for the next
    // minute: otherwise they would run until the clock is here again.
    struct Again {
        Crontab& crontab;
        ~Again() {
            Synchronized const table(crontab.m_tableLock);
            crontab.m_table.merge(crontab.m_again);
        }
    } const again{*this};
    while (Table::node_type entry = takeDue(now)) {
        Job const& job = *entry.mapped();
        if (m_verbose) say(nameOf(job) + " starts ======");
        job.task();
        job.period().reset(0, false);
        long const next = job.period().next();
        if (m_verbose)
            say(stamp(now) + " " + nameOf(job) + " completed, next running time is " + stamp(next) +
                " ======");
        entry.key() = next;
        insert(std::move(entry), next <= now ? m_again : m_table);
    }
}

/// The first entry that is due, out of the table; none when there is none.
Crontab::Table::node_type Crontab::takeDue(long now) {
    Synchronized const guard(m_tableLock);
    bool const isDue = !m_table.empty() && m_table.begin()->first <= now;
    return isDue ? m_table.extract(m_table.begin()) : Table::node_type();
}

void Crontab::insert(Table::node_type entry, Table& table) {
    Synchronized const guard(m_tableLock);
    table.insert(std::move(entry));
}

Crontab::Table Crontab::entries() const {
    Synchronized const guard(m_tableLock);
    Table all(m_table);
    all.insert(m_again.begin(), m_again.end());
    return all;
}

}  // namespace Cron
}  // namespace Quillmark
