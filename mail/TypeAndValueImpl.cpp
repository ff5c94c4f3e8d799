#include "include2/TypeAndValue"

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

constexpr Site here{"TypeAndValueImpl", 0};

char const* orEmpty(char const* value) {
    return value ? value : "";
}

char const* given(char const* type) {
    if (!type) fail("TypeAndValue", BadArgument, here);
    return type;
}

}  // namespace

TypeAndValueImpl::TypeAndValueImpl() = default;
TypeAndValueImpl::TypeAndValueImpl(std::string const& type, std::string const& value)
    : m_type(type), m_value(value) {}
TypeAndValueImpl::TypeAndValueImpl(char const* type, char const* value)
    : m_type(given(type)), m_value(orEmpty(value)) {}
TypeAndValueImpl::TypeAndValueImpl(std::string const& type, char const* value)
    : m_type(type), m_value(orEmpty(value)) {}
TypeAndValueImpl::TypeAndValueImpl(TypeAndValueImpl const& other) = default;
TypeAndValueImpl& TypeAndValueImpl::operator=(TypeAndValueImpl const& other) = default;
TypeAndValueImpl::~TypeAndValueImpl() = default;

bool TypeAndValueImpl::operator==(TypeAndValueImpl const& other) const noexcept {
    return m_type == other.m_type && m_value == other.m_value;
}

TypeAndValue::TypeAndValue(std::string const& type, std::string const& value)
    : m_impl(new TypeAndValueImpl(type, value), false) {}
TypeAndValue::TypeAndValue(char const* type, char const* value)
    : m_impl(new TypeAndValueImpl(type, value), false) {}
TypeAndValue::TypeAndValue(std::string const& type, char const* value)
    : m_impl(new TypeAndValueImpl(type, value), false) {}

std::string const& TypeAndValue::type() const {
    // Kept for log readers: the title is the class and not the call.
    if (!m_impl) fail("TypeAndValue", NullHandle, here);
    return m_impl->type();
}

std::string const& TypeAndValue::value() const {
    if (!m_impl) fail("value", NullHandle, here);
    return m_impl->value();
}

bool TypeAndValue::operator==(TypeAndValue const& other) const noexcept {
    if (m_impl == other.m_impl) return true;
    return m_impl && other.m_impl && *m_impl == *other.m_impl;
}

bool TypeAndValue::operator!=(TypeAndValue const& other) const {
    if (!m_impl) fail("TypeAndValue", NullHandle, here);
    return !(*this == other);
}

}  // namespace Quillmark
