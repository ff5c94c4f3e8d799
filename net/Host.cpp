#include "include2/Host"

#include <utility>

#include "foundation/Fail.h"
#include "include2/Resolver"

namespace Quillmark {

namespace {

[[noreturn]] void failNull() {
    fail("Host", NullHandle, Site{"Host", 0});
}

/// Null for a null name or address.
template <class Value>
Handle<HostImpl> newImpl(Value const& value) {
    return Handle<HostImpl>(value.isNull() ? nullptr : new HostImpl(value), false);
}

/// What the server answers to a question for addresses of one family, in its order.
void appendAnswers(HostName const& name, Resolver::RecordType type, std::list<IPAddress>& addresses) {
    ResolverMessage const message = Resolver::instance()->submit(type, name.asString(), Resolver::ClassIN);
    for (ResolverMessage::Record const& answer : message.answers())
        if (answer.type == type) addresses.emplace_back(answer.value);
}

}  // namespace

HostImpl::HostImpl(HostName const& name) {
    this->name(name);
}

HostImpl::HostImpl(IPAddress const& address) : m_address(address) {}

HostImpl::~HostImpl() = default;

void HostImpl::name(HostName const& name) {
    if (name.isNull()) failNull();
    if (name.isIPAddress())
        m_address = IPAddress(name.asString());
    else
        m_name = name;
}

HostName const& HostImpl::name() {
    if (m_name.isNull() && !m_address.isNull()) m_name = Resolver::instance()->getHostname(m_address);
    return m_name;
}

IPAddress const& HostImpl::address() {
    if (m_address.isNull() && !m_name.isNull()) m_address = Resolver::instance()->getIPAddress(m_name);
    return m_address;
}

std::list<IPAddress> const& HostImpl::addressList() {
    if (!m_addresses.empty()) return m_addresses;
    if (!m_name.isNull()) {
        std::list<IPAddress> found;
        appendAnswers(m_name, Resolver::TypeA, found);
        appendAnswers(m_name, Resolver::TypeAAAA, found);
        m_addresses = std::move(found);
    } else if (!m_address.isNull()) {
        m_addresses.push_back(m_address);
    }
    return m_addresses;
}

Host::Host(HostName const& name) : m_impl(newImpl(name)) {}

Host::Host(IPAddress const& address) : m_impl(newImpl(address)) {}

Host::Host(std::string const& text, bool parseDomain) : Host(HostName(text, parseDomain, false)) {}

Host::~Host() = default;

HostImpl& Host::impl() const {
    if (!m_impl) failNull();
    return *m_impl;
}

HostName const& Host::name() const {
    return impl().name();
}

IPAddress const& Host::address() const {
    return impl().address();
}

std::list<IPAddress> const& Host::addressList() const {
    return impl().addressList();
}

}  // namespace Quillmark
