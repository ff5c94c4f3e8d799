#include "include2/StringContainer"

namespace Quillmark {

void StringContainerImpl::add(std::string const& value) {
    m_values.push_back(value);
}

std::list<std::string> const& StringContainerImpl::values() const {
    return m_values;
}

StringContainer::StringContainer() : m_impl(new StringContainerImpl, false) {}

void StringContainer::add(std::string const& value) {
    m_impl->add(value);
}

std::list<std::string> const& StringContainer::values() const {
    return m_impl->values();
}

}  // namespace Quillmark
