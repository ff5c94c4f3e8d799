#include "include2/Time"

#include <locale.h>
#include <sys/select.h>
#include <time.h>

#include <cerrno>
#include <mutex>
#include <tuple>

#include "foundation/Zone.h"

namespace Quillmark {

std::mutex zoneLock;

namespace {

// The year in which a 32-bit time_t ends, as struct tm counts. Kept for the daemons: from there on
// times compare by their fields.
constexpr int year2038 = 138;

bool isBefore2038(std::tm const& fields) {
    return fields.tm_year < year2038;
}

auto dateOf(std::tm const& fields) {
    return std::tie(fields.tm_year, fields.tm_mon, fields.tm_mday, fields.tm_hour, fields.tm_min,
                    fields.tm_sec);
}

// mktime also writes its argument: the fields would turn from UTC into local time.
std::time_t localSeconds(std::tm fields) {
    return ::mktime(&fields);
}

locale_t englishLocale() {
    static locale_t const english = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return english;
}

}  // namespace

Time::Time() noexcept : m_fields(), m_seconds(0), m_text() {}
Time::~Time() = default;

Time Time::now() {
    return then(::time(nullptr), false);
}

Time Time::then(long t, bool local) {
    Time result;
    std::time_t const seconds = t;
    std::lock_guard const guard(zoneLock);
    if (local) ::tzset();  // localtime_r need not do it
    if (!(local ? ::localtime_r(&seconds, &result.m_fields) : ::gmtime_r(&seconds, &result.m_fields)))
        result.m_fields = std::tm();
    result.m_seconds = localSeconds(result.m_fields);
    return result;
}

std::time_t Time::asTimeT() const {
    if (m_seconds == 0) {
        std::lock_guard const guard(zoneLock);
        std::time_t const seconds = localSeconds(m_fields);
        if (seconds != 0) m_seconds = seconds;  // a second look writes nothing
    }
    return m_seconds;
}

char const* Time::asCstring() const {
    if (m_text[0] == '\0')
        ::strftime_l(m_text, sizeof m_text, "%a, %d %b %Y %T %z", &m_fields, englishLocale());
    return m_text;
}

bool Time::operator==(Time const& other) const noexcept {
    if (isBefore2038(m_fields) && isBefore2038(other.m_fields)) return m_seconds == other.m_seconds;
    return dateOf(m_fields) == dateOf(other.m_fields);
}

bool Time::operator!=(Time const& other) const noexcept {
    return !(*this == other);
}

bool Time::operator<(Time const& other) const noexcept {
    if (isBefore2038(m_fields) && isBefore2038(other.m_fields)) return m_seconds < other.m_seconds;
    return dateOf(m_fields) < dateOf(other.m_fields);
}

bool Time::operator<=(Time const& other) const noexcept {
    return *this < other || *this == other;
}

bool Time::operator>(Time const& other) const noexcept {
    return other < *this;
}

bool Time::operator>=(Time const& other) const noexcept {
    return other <= *this;
}

void qm_usleep(unsigned int microseconds, unsigned int seconds) {
    constexpr unsigned int million = 1'000'000;
    timeval left{};
    left.tv_sec = static_cast<time_t>(seconds) + microseconds / million;
    left.tv_usec = microseconds % million;
    // The system leaves in the time-out what remains of it.
    while (::select(0, nullptr, nullptr, nullptr, &left) == -1 && errno == EINTR) {
    }
}

}  // namespace Quillmark
