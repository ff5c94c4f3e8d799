#pragma once
// Memory for objects of one class that come and go by the dozen.

#include <sanitizer/asan_interface.h>  // whose marks are nothing in other builds

#include <cstddef>
#include <new>

#include "foundation/ThreadEnd.h"

namespace Quillmark {

/// What a class's operator new and operator delete come down to. Each thread keeps some of the blocks that
/// objects gave back, up to @p most, for those that it makes next: the heap takes longer to part and to join
/// blocks of such a size than it takes to fill them. Blocks may go back on another thread than they came from.
///
/// @tparam T  objects of derived classes that are larger get their memory from the heap
template <class T, std::size_t most>
class SpareBlocks {
public:
    static void* take(std::size_t size) {
        void* const spare = size == sizeof(T) ? spareBlock() : nullptr;
        return spare != nullptr ? spare : ::operator new(size);
    }

    /// The same, and null where there is no memory.
    static void* take(std::size_t size, std::nothrow_t const& /*none*/) noexcept {
        void* const spare = size == sizeof(T) ? spareBlock() : nullptr;
        return spare != nullptr ? spare : ::operator new(size, std::nothrow);
    }

    static void giveBack(void* memory, std::size_t size) noexcept {
        Spare& spare = s_spare;
        if (size != sizeof(T) || (spare.room == 0 && !open(spare))) return ::operator delete(memory);
        --spare.room;
        spare.first = new (memory) Block{spare.first};
        ASAN_POISON_MEMORY_REGION(spare.first + 1, sizeof(T) - sizeof(Block));  // whoever still uses it shows
    }

private:
    struct Block {
        Block* next;
    };
    static_assert(sizeof(T) > sizeof(Block) && alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

    struct Spare : EndsWithThread {
        Block* first;
        std::size_t room;  ///< for more blocks
    };

    static void* spareBlock() noexcept {
        Spare& spare = s_spare;
        if (spare.first == nullptr) return nullptr;
        ++spare.room;
        return pop(spare);
    }

    static Block* pop(Spare& spare) noexcept {
        Block* const block = spare.first;
        ASAN_UNPOISON_MEMORY_REGION(block + 1, sizeof(T) - sizeof(Block));
        spare.first = block->next;
        return block;
    }

    static bool open(Spare& spare) noexcept {
        if (spare.end != nullptr || !ThreadEnd::note(spare, close)) return false;
        spare.room = most;
        return true;
    }

    static void close(EndsWithThread& ending) noexcept {
        auto& spare = static_cast<Spare&>(ending);
        spare.room = 0;
        while (spare.first != nullptr) ::operator delete(pop(spare));
    }

    // At a fixed distance from the thread's own pointer: to call for its place would take as long as the heap.
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local Spare s_spare{};
};

}  // namespace Quillmark
