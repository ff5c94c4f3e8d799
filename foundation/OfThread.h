#pragma once
// What a thread keeps for itself.

namespace Quillmark {

/// The calling thread's own T, made by its first call. Null at the end of the thread, when T is gone and
/// others still destroy what they hold. Later calls cost one look at the thread's memory.
template <class T>
T* ofThread() {
    struct Slot {
        T* own = nullptr;
        bool over = false;
    };
    static thread_local constinit Slot slot;
    if (slot.own || slot.over) return slot.own;
    struct Owner {
        T own;
        Owner() { slot.own = &own; }
        ~Owner() { slot = {nullptr, true}; }
    };
    static thread_local Owner owner;
    return &owner.own;
}

}  // namespace Quillmark
