#include "tests/sched/FakeClock.h"

#include <dlfcn.h>
#include <sys/select.h>
#include <time.h>

#include <cstdlib>
#include <utility>

namespace QuillmarkTest {

thread_local int refuseMktime = 0;
thread_local int allowMktime = 0;
thread_local int refuseLocaltime = 0;

std::atomic<int> mostZoneReaders{0};

namespace {

std::atomic<int> zoneReaders{0};

/// Counts the threads that ask about the zone.
struct ZoneReader {
    ZoneReader() {
        int const now = ++zoneReaders;
        for (int most = mostZoneReaders; now > most && !mostZoneReaders.compare_exchange_weak(most, now);) {
        }
    }
    ~ZoneReader() { --zoneReaders; }
};

thread_local FakeClock* current = nullptr;

template <class Function>
Function* next(char const* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

FakeClock::FakeClock(long start) : now(start), m_share(*this) {}
FakeClock::~FakeClock() = default;

FakeClock::Share::Share(FakeClock& clock) : m_former(std::exchange(current, &clock)) {}
FakeClock::Share::~Share() {
    current = m_former;
}

Zone::Zone(std::string const& tz) {
    char const* const former = ::getenv("TZ");
    m_wasSet = former != nullptr;
    if (former) m_former = former;
    set(tz);
}

Zone::~Zone() {
    if (m_wasSet)
        set(m_former);
    else
        ::unsetenv("TZ");
    ::tzset();
}

void Zone::set(std::string const& tz) {
    ::setenv("TZ", tz.c_str(), 1);
    ::tzset();
}

}  // namespace QuillmarkTest

using namespace QuillmarkTest;

// These stand in the place of the C library's for this whole program.
extern "C" __attribute__((visibility("default"))) time_t time(time_t* result) noexcept {
    timespec present{};
    if (!current) ::clock_gettime(CLOCK_REALTIME, &present);
    time_t const seconds = current ? current->now.load() : present.tv_sec;
    if (result) *result = seconds;
    return seconds;
}

extern "C" __attribute__((visibility("default"))) int select(int count, fd_set* in, fd_set* out,
                                                             fd_set* failed, timeval* timeout) {
    static auto* const real = next<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
    if (!current || count != 0) return real(count, in, out, failed, timeout);
    current->now += timeout->tv_sec;
    if (current->afterSleep) current->afterSleep();
    return 0;
}

extern "C" __attribute__((visibility("default"))) time_t mktime(struct tm* fields) noexcept {
    static auto* const real = next<time_t(struct tm*)>("mktime");
    ZoneReader const reader;
    if (refuseMktime == 0) return real(fields);
    if (allowMktime > 0) {
        --allowMktime;
        return real(fields);
    }
    --refuseMktime;
    return -1;
}

extern "C" __attribute__((visibility("default"))) struct tm* localtime_r(time_t const* time,
                                                                         struct tm* fields) noexcept {
    static auto* const real = next<struct tm*(time_t const*, struct tm*)>("localtime_r");
    ZoneReader const reader;
    if (refuseLocaltime == 0) return real(time, fields);
    --refuseLocaltime;
    return nullptr;
}
