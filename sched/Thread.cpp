#include "include2/QuillThread"

#include "foundation/Caught.h"
#include "foundation/Fail.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/exceptions.hpp>
#include <boost/make_shared.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace Quillmark {

namespace {

void* runThread(void* argument) {
    auto* const runable = static_cast<Runable*>(argument);
    if (!runable) return nullptr;
    try {
        runable->run();
    } catch (Exception const& e) {
        logCaught("void* Quillmark::Thread::starter(void*)", e);
    }
    return nullptr;
}

[[noreturn]] void failSemaphore(int error) {
    throw boost::interprocess::interprocess_exception(boost::interprocess::error_info(error));
}

/// A deadline as the system counts it. One before 1970 has passed just as well at its beginning.
timespec sinceEpoch(boost::posix_time::ptime const& deadline) {
    boost::posix_time::ptime const epoch(boost::gregorian::date(1970, 1, 1));
    if (deadline.is_not_a_date_time()) failSemaphore(EINVAL);
    if (deadline <= epoch) return {0, 0};
    auto const duration = deadline - epoch;
    auto const perSecond = boost::posix_time::time_duration::ticks_per_second();
    // Ticks only: the counts of seconds and of nanoseconds that a duration offers do not reach far enough.
    return {duration.ticks() / perSecond, duration.ticks() % perSecond * (1'000'000'000 / perSecond)};
}

/// The way back of a guard's units, for destructors. The only failure is a semaphore that others have
/// filled to its limit since: there the unit has no place.
void giveBack(Semaphore& semaphore, int units) noexcept {
    try {
        semaphore += static_cast<unsigned int>(units);
    } catch (boost::interprocess::interprocess_exception const&) {
    }
}

}  // namespace

Runable::~Runable() = default;

ThreadJoin::~ThreadJoin() = default;

int ThreadJoin::join() {
    if (m_tid == 0) return ESRCH;
    int const result = ::pthread_join(m_tid, nullptr);
    if (result == 0) m_tid = 0;
    return result;
}

Thread::~Thread() = default;

void Thread::run() {
    fail("Thread::run", BadArgument, Site{"Thread", 58});
}

ThreadJoin Thread::start(Runable* runable) {
    // What runs may let go of this object before the new thread's number is written down.
    Handle<Thread> const alive(this, true);
    pthread_t tid = 0;
    if (::pthread_create(&tid, nullptr, runThread, runable) != 0) tid = 0;
    m_tid = tid;
    m_started = true;
    return ThreadJoin(tid);
}

ThreadJoin Thread::start(Runable& runable) {
    return start(&runable);
}

ThreadJoin Thread::start() {
    return start(this);
}

pthread_t Thread::tid() const noexcept {
    return m_tid;
}

bool Thread::started() const noexcept {
    return m_started;
}

void Thread::detach() {
    if (pthread_t const tid = m_tid) ::pthread_detach(tid);
}

Mutex::~Mutex() {
    Mutex::unlock();
    ::pthread_mutex_destroy(&m_mutex);
}

// The owner needs no order of its own: a thread can only find itself there if it wrote that itself.
void Mutex::lock() {
    pthread_t const self = ::pthread_self();
    if (m_owner.load(std::memory_order_relaxed) == self) return;
    ::pthread_mutex_lock(&m_mutex);
    m_owner.store(self, std::memory_order_relaxed);
}

void Mutex::unlock() {
    if (m_owner.load(std::memory_order_relaxed) != ::pthread_self()) return;
    m_owner.store(0, std::memory_order_relaxed);
    ::pthread_mutex_unlock(&m_mutex);
}

bool Mutex::trylock() {
    if (::pthread_mutex_trylock(&m_mutex) != 0) return false;
    m_owner.store(::pthread_self(), std::memory_order_relaxed);
    return true;
}

Semaphore::Semaphore(unsigned int initial) : m_semaphore() {
    if (::sem_init(&m_semaphore, 1, initial) != 0) failSemaphore(errno);
}

Semaphore::~Semaphore() {
    if (::sem_destroy(&m_semaphore) != 0) std::abort();
}

void Semaphore::post() {
    if (::sem_post(&m_semaphore) != 0) failSemaphore(errno);
}

Semaphore& Semaphore::operator++() {
    post();
    return *this;
}

Semaphore& Semaphore::operator+=(unsigned int n) {
    for (; n != 0; --n) post();
    return *this;
}

void Semaphore::wait() {
    if (::sem_wait(&m_semaphore) != 0) failSemaphore(errno);
}

Semaphore& Semaphore::operator--() {
    wait();
    return *this;
}

Semaphore& Semaphore::operator-=(unsigned int n) {
    for (; n != 0; --n) wait();
    return *this;
}

bool Semaphore::trywait() {
    if (::sem_trywait(&m_semaphore) == 0) return true;
    if (errno == EAGAIN) return false;
    failSemaphore(errno);
}

bool Semaphore::timedwait(boost::posix_time::ptime& deadline) {
    if (deadline.is_pos_infinity()) {
        wait();
        return true;
    }
    timespec const until = sinceEpoch(deadline);
    if (::sem_timedwait(&m_semaphore, &until) == 0) return true;
    if (errno == ETIMEDOUT) return false;
    failSemaphore(errno);
}

bool Semaphore::timedwait(long milliseconds) {
    // A hundred years either way, so that the sum stays a time. Nobody waits that long.
    constexpr long limit = 100L * 366 * 24 * 3600 * 1000;
    // Kept for the daemons: a clock that cannot be read as UTC is refused, although the wait goes by another
    // one, which nobody sets.
    (void)boost::posix_time::microsec_clock::universal_time();
    auto const deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(std::clamp(milliseconds, -limit, limit));
    auto const sinceStart = std::max(deadline.time_since_epoch(), std::chrono::nanoseconds(0)).count();
    timespec const until{sinceStart / 1'000'000'000, sinceStart % 1'000'000'000};
    if (::sem_clockwait(&m_semaphore, CLOCK_MONOTONIC, &until) == 0) return true;
    if (errno == ETIMEDOUT) return false;
    failSemaphore(errno);
}

Synchronized::Synchronized(Mutex& mutex) : Synchronized(&mutex) {}

Synchronized::Synchronized(Mutex* mutex) : m_mutex(mutex) {
    if (m_mutex) m_mutex->lock();
}

Synchronized::Synchronized(Semaphore& semaphore) : Synchronized(&semaphore) {}

Synchronized::Synchronized(Semaphore* semaphore) : m_semaphore(semaphore) {
    if (m_semaphore) m_semaphore->wait();
}

Synchronized::~Synchronized() {
    if (m_mutex) m_mutex->unlock();
    if (m_semaphore) giveBack(*m_semaphore, 1);
}

AutoSemaphore::AutoSemaphore(Semaphore& semaphore) noexcept : m_semaphore(semaphore) {}

// By way of the other constructor the object counts as made, so that its destructor gives back what
// was taken when a wait does not come back.
AutoSemaphore::AutoSemaphore(Semaphore& semaphore, int n) : AutoSemaphore(semaphore) {
    for (; m_held < n; ++m_held) --m_semaphore;
}

AutoSemaphore::~AutoSemaphore() {
    giveBack(m_semaphore, m_held);
}

bool AutoSemaphore::trywait() {
    if (!m_semaphore.trywait()) return false;
    ++m_held;
    return true;
}

void AutoSemaphore::post() {
    for (; m_held > 0; --m_held) ++m_semaphore;
}

RefAutoSemaphore::RefAutoSemaphore(Semaphore& semaphore, int n)
    : m_held(boost::make_shared<AutoSemaphore>(semaphore, n)) {}

RefAutoSemaphore::~RefAutoSemaphore() = default;

}  // namespace Quillmark
