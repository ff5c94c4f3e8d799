#pragma once
// The border of the C interface.

#include <utility>

#include "include2/Exception"

namespace Quillmark {

/// Runs @p call and turns the library's exceptions, and no others, into @p failure. Anything else that
/// can come by is a failed allocation or the end of a cancelled thread, and goes on to the caller.
template <class Result, class Call>
Result guarded(Result failure, Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (Exception const&) {
        return failure;
    }
}

}  // namespace Quillmark
