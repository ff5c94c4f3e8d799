#include "include2/QuillRefcounted"

#include <cstdlib>

#include "foundation/Fail.h"

namespace Quillmark {

RefImpl::~RefImpl() = default;

void RefImpl::countWrapped() noexcept {
    std::abort();
}

void refuseNullReference() {
    fail("RefCounted constructor for RefImpl failed.", Refused, Site{nullptr, 0});
}

// Kept for log readers: the header's own name and a fixed line stand here, whatever the code says.
void refuseEmptyRef() {
    fail("operator->", NullHandle, Site{"include2/QuillRefcounted", 359});
}

}  // namespace Quillmark
