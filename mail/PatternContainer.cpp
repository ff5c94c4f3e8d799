#include "include2/PatternContainer"

#include <fnmatch.h>

#include <algorithm>

namespace Quillmark {

void PatternContainerImpl::add(std::string const& pattern) {
    m_patterns.insert(pattern);
}

std::set<std::string> const& PatternContainerImpl::patterns() const {
    return m_patterns;
}

bool PatternContainerImpl::match(std::string const& text, std::string const** matched) const {
    auto const found = std::ranges::find_if(m_patterns, [&text](std::string const& pattern) {
        return ::fnmatch(pattern.c_str(), text.c_str(), FNM_CASEFOLD) == 0;
    });
    if (found == m_patterns.end()) return false;
    if (matched) *matched = &*found;
    return true;
}

PatternContainer::PatternContainer() : m_impl(new PatternContainerImpl, false) {}

void PatternContainer::add(std::string const& pattern) {
    m_impl->add(pattern);
}

std::set<std::string> const& PatternContainer::patterns() const {
    return m_impl->patterns();
}

bool PatternContainer::match(std::string const& text, std::string const** matched) const {
    return m_impl->match(text, matched);
}

}  // namespace Quillmark
