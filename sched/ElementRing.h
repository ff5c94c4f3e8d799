#pragma once
// The elements that wait for a worker of the pool, and who is looking for one.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "include2/QuillTask"

namespace Quillmark::Task {

/// A ring of references to elements, first in, first out, that workers take from without a lock.
///
/// Each place has a sequence number: n means that it is free for the n-th element, n + 1 that it holds it.
/// Threads: one at a time puts in; any number take out.
class ElementRing {
public:
    static constexpr std::size_t size = 1024;

    ElementRing() noexcept {
        for (std::size_t i = 0; i < size; ++i) m_places[i].sequence.store(i, std::memory_order_relaxed);
    }
    ElementRing(ElementRing const&) = delete;
    ElementRing& operator=(ElementRing const&) = delete;
    ~ElementRing() {
        while (take()) {
        }
    }

    /// Puts an element in, if there is room.
    bool put(Handle<ElementImpl>& element) noexcept {
        Place& place = m_places[m_end % size];
        if (place.sequence.load(std::memory_order_acquire) != m_end) return false;
        place.element.swap(element);
        place.sequence.store(++m_end, std::memory_order_seq_cst);
        return true;
    }

    /// Takes the first element out; null when there is none.
    Handle<ElementImpl> take() noexcept {
        std::uint64_t begin = m_begin.load(std::memory_order_relaxed);
        for (;;) {
            Place& place = m_places[begin % size];
            std::uint64_t const sequence = place.sequence.load(std::memory_order_seq_cst);
            if (sequence == begin + 1) {
                if (!m_begin.compare_exchange_weak(begin, begin + 1, std::memory_order_relaxed)) continue;
                Handle<ElementImpl> taken(std::move(place.element));
                place.sequence.store(begin + size, std::memory_order_release);
                return taken;
            }
            if (sequence <= begin) return {};
            begin = m_begin.load(std::memory_order_relaxed);  // others were faster
        }
    }

    /// Whether there is nothing to take.
    bool empty() const noexcept {
        std::uint64_t const begin = m_begin.load(std::memory_order_seq_cst);
        return m_places[begin % size].sequence.load(std::memory_order_seq_cst) <= begin;
    }

private:
    struct Place {
        std::atomic<std::uint64_t> sequence;
        Handle<ElementImpl> element;
    };

    std::array<Place, size> m_places;
    alignas(64) std::atomic<std::uint64_t> m_begin{0};
    alignas(64) std::uint64_t m_end = 0;  // of whoever puts in
};

}  // namespace Quillmark::Task
