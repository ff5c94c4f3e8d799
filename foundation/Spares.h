#pragma once
// What takes longer to allocate than to use, kept by the thread that gave it back for the next who needs it.

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "foundation/ThreadEnd.h"

namespace Quillmark {

/// Up to @p most objects of each thread, as they were given back.
template <class T, std::size_t most>
class Spares {
public:
    static constexpr std::size_t limit = most;

    /// The one that was given back last; null when there is none.
    static std::unique_ptr<T> take() noexcept {
        Spares* const spares = s_kept.spares;
        if (!spares || spares->m_count == 0) return nullptr;
        return std::move(spares->m_spares[--spares->m_count]);
    }

    /// Keeps or destroys it.
    static void giveBack(std::unique_ptr<T> spare) noexcept {
        Kept& kept = s_kept;
        if (!kept.spares && !open(kept)) return;
        Spares& spares = *kept.spares;
        if (spares.m_count < most) spares.m_spares[spares.m_count++] = std::move(spare);
    }

private:
    // Programs that load the library while they run have few bytes left for it: the rest stands elsewhere.
    struct Kept : EndsWithThread {
        Spares* spares;
    };

    [[gnu::noinline]] static bool open(Kept& kept) noexcept {
        if (!ThreadEnd::note(kept, close)) return false;
        kept.spares = new (std::nothrow) Spares;
        return kept.spares != nullptr;
    }

    static void close(EndsWithThread& ending) noexcept {
        std::unique_ptr<Spares> const last(std::exchange(static_cast<Kept&>(ending).spares, nullptr));
    }

    // At a fixed distance from the thread's own pointer: to call for its place takes long.
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local Kept s_kept{};

    std::array<std::unique_ptr<T>, most> m_spares;
    std::size_t m_count = 0;
};

}  // namespace Quillmark
