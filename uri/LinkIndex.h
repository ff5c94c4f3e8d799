#pragma once
// Which links are there: a hash table of their texts.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/SpareBlocks.h"

namespace Quillmark {

/// Texts that others own, found by a hash that no sender of mail can steer.
class LinkIndex {
public:
    struct Slot {
        std::uint64_t hash = 0;
        std::string const* text = nullptr;  ///< null: free
    };

    /// The slot of an equal text or, when there is none, a free one. Good until the next call.
    Slot& slotOf(std::string_view text);

    /// Fills a free slot that slotOf() gave for an equal of @p text.
    void fill(Slot& slot, std::string const& text) noexcept {
        slot.text = &text;
        ++m_filled;
    }

private:
    static constexpr std::size_t firstSlots = 16, spareSlots = 256;

    /// A table for some hundred links is too large for the heap to have one at hand, and when it is given back
    /// the heap tidies up. So a thread keeps the memory of one.
    template <class T>
    struct Memory {
        using value_type = T;
        using Spare = SpareBlocks<T[spareSlots], 1>;

        T* allocate(std::size_t count) { return static_cast<T*>(Spare::take(count * sizeof(T))); }
        void deallocate(T* slots, std::size_t count) noexcept { Spare::giveBack(slots, count * sizeof(T)); }
        bool operator==(Memory const&) const noexcept { return true; }
    };

    void grow();

    std::vector<Slot, Memory<Slot>> m_slots;  ///< a power of two, or none yet; some are always free
    std::size_t m_filled = 0;
};

}  // namespace Quillmark
