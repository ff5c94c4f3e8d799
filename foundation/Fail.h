#pragma once
// One way to throw: title or class, code, recorded place, detail.

#include <cerrno>
#include <cstring>
#include <string>

#include "include2/Exception"

namespace Quillmark {

/// Where a failure says it comes from. People grep for both halves, so they are written down here
/// and stay when the code moves; __FILE__ and __LINE__ have no part in it.
struct Site {
    char const* file;
    unsigned int line;
};

/// Throws one of the classes whose title is their own name.
template <class Failure>
[[noreturn]] void fail(int code, Site site, std::string const& detail = {}) {
    Failure failure(code, site.file, site.line);
    if (!detail.empty()) failure.stringParameter(detail);
    throw failure;
}

/// Throws a plain Exception with a title of its own.
[[noreturn]] inline void fail(std::string const& title, int code, Site site, std::string const& detail = {}) {
    Exception failure(title, code, site.file, site.line);
    if (!detail.empty()) failure.stringParameter(detail);
    throw failure;
}

/// The text of the system's error number, taken before anything else can change it.
std::string errnoText(int error);

/// A scope whose clean-up leaves the caller's errno as it was.
class KeepErrno {
public:
    KeepErrno() noexcept : m_saved(errno) {}
    ~KeepErrno() { errno = m_saved; }
    KeepErrno(KeepErrno const&) = delete;
    KeepErrno& operator=(KeepErrno const&) = delete;

private:
    int m_saved;
};

}  // namespace Quillmark
