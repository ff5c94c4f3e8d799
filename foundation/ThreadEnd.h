#pragma once
// The end of a thread, for what it keeps until then.

#include <pthread.h>

#include <atomic>

namespace Quillmark {

/// A thread's variable that gives back what it holds when its thread ends. It is trivial and has no destructor,
/// since the C library ends the process when it has no memory to note the destructor of a thread's variable.
struct EndsWithThread {
    using End = void (*)(EndsWithThread&) noexcept;

    EndsWithThread* next;
    End end;  ///< null: not noted
};

/// Calls them. What it uses of the C library fails where it cannot work, and nothing waits for another thread, so
/// that a forked process may go on.
class ThreadEnd {
public:
    /// Has @p end called for @p variable when the calling thread, whose variable it is, ends: once, behind the
    /// destructors of the thread's variables, last noted first. A process that ends as a whole calls nothing.
    ///
    /// @return whether it will be called. When it will not, since memory is short or the thread has ended, the
    ///         variable may keep nothing.
    static bool note(EndsWithThread& variable, EndsWithThread::End end) noexcept {
        Thread& thread = s_thread;
        if (thread.isOver) return false;
        if (variable.end != nullptr) return true;
        if (!thread.isWatched && !watch(thread)) return false;
        variable.end = end;
        variable.next = thread.last;
        thread.last = &variable;
        return true;
    }

private:
    struct Thread {
        EndsWithThread* last;  ///< to be noted
        bool isWatched;
        bool isOver;
    };

    static constexpr pthread_key_t notAsked = ~pthread_key_t{0};
    static constexpr pthread_key_t none = notAsked - 1;

    static bool watch(Thread& thread) noexcept {
        pthread_key_t const known = s_key.load(std::memory_order_acquire);
        pthread_key_t const key = known == notAsked ? makeKey() : known;
        thread.isWatched = key != none && ::pthread_setspecific(key, &thread) == 0;
        return thread.isWatched;
    }

    /// The key for all threads, or none where the process has no more of them.
    static pthread_key_t makeKey() noexcept {
        pthread_key_t made = none;
        if (::pthread_key_create(&made, over) != 0) made = none;
        pthread_key_t present = notAsked;
        if (s_key.compare_exchange_strong(present, made, std::memory_order_acq_rel)) return made;
        if (made != none) ::pthread_key_delete(made);
        return present;
    }

    // The destructors of others' keys may still use the library behind ours.
    static void over(void* of) noexcept {
        Thread& thread = *static_cast<Thread*>(of);
        thread.isOver = true;
        while (EndsWithThread* const variable = thread.last) {
            thread.last = variable->next;
            variable->end(*variable);
        }
    }

    static inline constinit std::atomic<pthread_key_t> s_key{notAsked};
    // At a fixed distance from the thread's own pointer, where there is always room.
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local Thread s_thread{};
};

}  // namespace Quillmark
