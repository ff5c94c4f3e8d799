#include "sched/ElementQueue.h"

#include <immintrin.h>

#include <thread>
#include <utility>

#include "sched/PatientWait.h"

namespace Quillmark::Task {

namespace {

// How often a worker without work looks again before it sleeps: some microseconds, if there is a processor
// on which elements can be made in the meantime.
int looksBeforeSleep() {
    static int const looks = std::thread::hardware_concurrency() > 1 ? 200 : 0;
    return looks;
}

}  // namespace

/// A worker that is looking for work. One at a time looks on its own; those that were woken do as well.
/// However the search ends, also by the end of the thread, the queue hears of it.
class ElementQueue::Search {
public:
    explicit Search(ElementQueue& queue) noexcept : m_queue(queue) {}
    Search(Search const&) = delete;
    Search& operator=(Search const&) = delete;
    ~Search() {
        // A thread that ends in its sleep may have been chosen already; then its wake-up goes with it, or to
        // a worker that came later.
        bool const chosen = m_sleeping && !m_queue.claimSleeper();
        if (chosen && !m_queue.m_wakeUps.trywait())
            m_queue.claimSleeper();
        else if (chosen || m_searching)
            m_queue.m_searching.fetch_sub(1);
        if (m_sleeping) m_queue.wakeIfNobodyLooks();
    }

    /// Looks for a while, unless another worker does.
    bool lookAround() noexcept {
        int none = 0;
        m_searching = m_searching || m_queue.m_searching.compare_exchange_strong(none, 1);
        if (!m_searching) return false;
        for (int looks = looksBeforeSleep(); looks != 0; --looks) {
            if (!m_queue.empty()) return true;
            _mm_pause();
        }
        return false;
    }

    /// Sleeps until it is woken, or not at all if there is something now.
    void sleep() {
        if (std::exchange(m_searching, false)) m_queue.m_searching.fetch_sub(1);
        m_queue.m_sleeping.fetch_add(1);
        m_sleeping = true;
        if (m_queue.empty() || !m_queue.claimSleeper()) {
            waitThroughSignals(m_queue.m_wakeUps);
            m_searching = true;  // whoever wakes a worker has counted it
        }
        m_sleeping = false;
    }

private:
    ElementQueue& m_queue;
    bool m_searching = false;
    bool m_sleeping = false;
};

void ElementQueue::push(Handle<ElementImpl> element) {
    if (m_hasLine.load(std::memory_order_acquire) || !m_ring.put(element)) {
        std::lock_guard const guard(m_lineLock);
        // Meanwhile the line may have moved into the ring.
        if (m_hasLine.load(std::memory_order_relaxed) || !m_ring.put(element)) {
            m_line.push_back(std::move(element));
            m_hasLine.store(true, std::memory_order_seq_cst);
        }
    }
    wakeIfNobodyLooks();
}

Handle<ElementImpl> ElementQueue::pop() {
    Handle<ElementImpl> element = take();
    if (!element) {
        Search search(*this);
        while (!(element = take()))
            if (!search.lookAround()) search.sleep();
    }
    if (!empty()) wakeIfNobodyLooks();
    return element;
}

/// The first element, if there is one. With the ring empty the line moves up.
Handle<ElementImpl> ElementQueue::take() {
    Handle<ElementImpl> element = m_ring.take();
    if (element || !m_hasLine.load(std::memory_order_acquire)) return element;
    std::lock_guard const guard(m_lineLock);
    while (!m_line.empty() && m_ring.put(m_line.front())) m_line.pop_front();
    if (m_line.empty()) m_hasLine.store(false, std::memory_order_release);
    return m_ring.take();
}

/// Takes one of the sleepers out of the count, if there is any.
bool ElementQueue::claimSleeper() noexcept {
    int sleeping = m_sleeping.load();
    while (sleeping > 0)
        if (m_sleeping.compare_exchange_weak(sleeping, sleeping - 1)) return true;
    return false;
}

void ElementQueue::wakeIfNobodyLooks() noexcept {
    while (m_searching.load() == 0 && m_sleeping.load() != 0) {
        m_searching.fetch_add(1);  // the one that will wake
        if (claimSleeper()) return m_wakeUps.post();
        m_searching.fetch_sub(1);  // which may have kept others from waking who sleeps by now
    }
}

}  // namespace Quillmark::Task
