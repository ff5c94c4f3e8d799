#pragma once
// One queue of the pool: the elements that wait for a worker, and the workers that wait for an element.

#include <atomic>
#include <deque>
#include <mutex>

#include "include2/QuillTask"
#include "sched/ElementRing.h"

namespace Quillmark::Task {

/// First in, first out, without a limit: what a ring has no room for waits in line behind it.
///
/// Waking a thread costs more than most elements do, so nobody is woken while a worker is looking for
/// work: whoever finds an element and sees another one wakes the next.
class ElementQueue {
public:
    /// Threads: one at a time.
    void push(Handle<ElementImpl> element);
    /// The first element. Waits for it, also through signals.
    Handle<ElementImpl> pop();

private:
    class Search;

    Handle<ElementImpl> take();
    bool empty() const noexcept { return m_ring.empty() && !m_hasLine.load(std::memory_order_seq_cst); }
    bool claimSleeper() noexcept;
    void wakeIfNobodyLooks() noexcept;

    ElementRing m_ring;
    std::atomic<bool> m_hasLine{false};  // elements go to the line, not to the ring
    std::mutex m_lineLock;
    std::deque<Handle<ElementImpl>> m_line;

    alignas(64) std::atomic<int> m_searching{0};  // awake, and without an element
    std::atomic<int> m_sleeping{0};               // of whom nobody has yet decided to wake them
    Semaphore m_wakeUps{0};
};

}  // namespace Quillmark::Task
