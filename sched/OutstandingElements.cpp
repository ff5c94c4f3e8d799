#include "sched/OutstandingElements.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>

namespace Quillmark::Task {

void ShortLock::lock() noexcept {
    for (int looks = 40; looks != 0; --looks) {
        int free = 0;
        if (m_state.load(std::memory_order_relaxed) == 0 &&
            m_state.compare_exchange_weak(free, 1, std::memory_order_acquire))
            return;
        _mm_pause();
    }
    while (m_state.exchange(2, std::memory_order_acquire) != 0) m_state.wait(2, std::memory_order_relaxed);
}

void ShortLock::unlock() noexcept {
    if (m_state.exchange(0, std::memory_order_release) == 2) m_state.notify_one();
}

void OutstandingElements::add(ElementImpl& element) {
    Handle<ElementImpl> added(&element, true);
    uint_t const id = element.id();
    std::lock_guard const guard(m_lock);
    if (4 * (m_count + 1) > 3 * m_places.size()) grow();
    Place& place = m_places[placeOf(id)];
    place.id = id;
    place.element.swap(added);
    if (!added) count(m_count + 1);
}

void OutstandingElements::remove(uint_t id) noexcept {
    Handle<ElementImpl> removed;
    std::lock_guard const guard(m_lock);
    if (m_places.empty()) return;
    std::size_t free = placeOf(id);
    removed.swap(m_places[free].element);
    if (!removed) return;
    count(m_count - 1);
    // Whoever was kept from the place, or from one before it, moves up.
    for (std::size_t at = (free + 1) & m_mask; m_places[at].element; at = (at + 1) & m_mask) {
        if (((at - home(m_places[at].id)) & m_mask) < ((at - free) & m_mask)) continue;
        m_places[free].id = m_places[at].id;
        m_places[free].element.swap(m_places[at].element);
        free = at;
    }
}

/// Where the search for an element begins. Ids are often multiples of something.
std::size_t OutstandingElements::home(uint_t id) const noexcept {
    return id * std::uint64_t{0x9e3779b97f4a7c15} >> m_shift;
}

/// The place of an element, or the free one where it would go.
std::size_t OutstandingElements::placeOf(uint_t id) const noexcept {
    std::size_t at = home(id);
    while (m_places[at].element && m_places[at].id != id) at = (at + 1) & m_mask;
    return at;
}

void OutstandingElements::grow() {
    std::vector<Place> former(std::max<std::size_t>(16, 2 * m_places.size()));
    former.swap(m_places);
    m_mask = m_places.size() - 1;
    m_shift = static_cast<std::size_t>(64 - std::countr_zero(m_places.size()));
    for (Place& place : former)
        if (place.element) m_places[placeOf(place.id)] = std::move(place);
}

}  // namespace Quillmark::Task
