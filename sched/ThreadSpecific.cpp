#include "foundation/Fail.h"
#include "include2/QuillThread"

namespace Quillmark {

namespace {

/// Deletes an object of which no more is known than that its first virtual operation is its
/// destructor. The platform's C++ ABI puts two entries there: destroy, and destroy and free.
void deleteValue(void* value) {
    using Operation = void (*)(void*);
    Operation const* const operations = *static_cast<Operation const* const*>(value);
    Operation const destroyAndFree = operations[1];
    destroyAndFree(value);
}

}  // namespace

ThreadSpecificKey::ThreadSpecificKey() : m_key(0) {
    // The system does not call it for null.
    int const result = ::pthread_key_create(&m_key, deleteValue);
    // Kept for log readers: the text is errno's, though the call gives its error as its result.
    int const error = errno;
    if (result != 0)
        fail("ThreadSpecificKey::ThreadSpecificKey", Refused, Site{"ThreadSpecific", 25}, errnoText(error));
}

ThreadSpecificKey::ThreadSpecificKey(ThreadSpecificKey const& other) noexcept = default;

ThreadSpecificKey::~ThreadSpecificKey() {
    ::pthread_key_delete(m_key);
    m_key = 0;
}

int ThreadSpecificKey::value(void* value) {
    return ::pthread_setspecific(m_key, value);
}

void* ThreadSpecificKey::value() const {
    return ::pthread_getspecific(m_key);
}

}  // namespace Quillmark
