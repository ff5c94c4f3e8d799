#pragma once
// What threads that outlive main() still use while the process ends.

namespace Quillmark {

/// Room for an object that is constructed like any other and stays until the process is gone. For objects whose
/// storage is static and that own nothing but themselves, such as locks.
template <class T>
union NeverDestroyed {
    constexpr NeverDestroyed() noexcept : object() {}
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): that one would destroy the object
    NeverDestroyed(NeverDestroyed const&) = delete;
    NeverDestroyed& operator=(NeverDestroyed const&) = delete;

    T object;
};

}  // namespace Quillmark
