#pragma once
// The elements of a task that have not been completed.

#include <atomic>
#include <cstddef>
#include <mutex>
#include <vector>

#include "include2/QuillTask"

namespace Quillmark::Task {

/// A lock for a few instructions at a time: it is worth to look again before one sleeps.
class ShortLock {
public:
    void lock() noexcept;
    void unlock() noexcept;

private:
    std::atomic<int> m_state{0};  // 1 when held, 2 when somebody waits as well
};

/// Elements by their id, in a table without a cell for each of them.
///
/// Threads: any. What leaves the table may be the last of its kind, and its destructor is the daemon's: it
/// goes when the lock is free again.
class OutstandingElements {
public:
    void add(ElementImpl& element);  ///< in the place of one with the same id
    void remove(uint_t id) noexcept;
    bool empty() const noexcept { return m_count.load(std::memory_order_acquire) == 0; }

private:
    struct Place {
        Handle<ElementImpl> element;  // null for a free place
        uint_t id = 0;
    };
    std::size_t home(uint_t id) const noexcept;
    std::size_t placeOf(uint_t id) const noexcept;
    void grow();
    void count(std::size_t now) noexcept { m_count.store(now, std::memory_order_release); }

    ShortLock m_lock;
    std::atomic<std::size_t> m_count{0};
    std::vector<Place> m_places;  // as many as a power of two, a quarter of them free at least
    std::size_t m_mask = 0;
    std::size_t m_shift = 0;
};

}  // namespace Quillmark::Task
