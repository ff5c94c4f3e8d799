#pragma once
// What takes longer to allocate than to use, kept by the thread that gave it back for the next who needs it.

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace Quillmark {

/// Up to @p most objects of each thread, as they were given back.
template <class T, std::size_t most>
class Spares {
public:
    /// The one that was given back last; null when there is none.
    static std::unique_ptr<T> take() noexcept {
        Spares* const spares = ofThread();
        if (!spares || spares->m_count == 0) return nullptr;
        return std::move(spares->m_kept[--spares->m_count]);
    }

    /// Keeps or destroys it.
    static void giveBack(std::unique_ptr<T> spare) noexcept {
        Spares* const spares = ofThread();
        if (spares && spares->m_count < most) spares->m_kept[spares->m_count++] = std::move(spare);
    }

private:
    // Null at the end of a thread, when others still destroy what they hold.
    static Spares* ofThread() noexcept {
        struct Slot {
            Spares* own = nullptr;
            bool over = false;
        };
        // At a fixed distance from the thread's own pointer: to call for its place takes long.
        [[gnu::tls_model("initial-exec")]] static thread_local constinit Slot slot;
        if (slot.own || slot.over) return slot.own;
        // Elsewhere, since programs that load the library while they run have few bytes left for such variables.
        struct Owner {
            std::unique_ptr<Spares> own{new (std::nothrow) Spares};
            Owner() noexcept { slot.own = own.get(); }
            ~Owner() { slot = {nullptr, true}; }
        };
        static thread_local Owner const owner;
        return slot.own;
    }

    std::array<std::unique_ptr<T>, most> m_kept;
    std::size_t m_count = 0;
};

}  // namespace Quillmark
