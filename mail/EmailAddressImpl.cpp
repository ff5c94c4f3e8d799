#include "include2/EmailAddress"

#include <mutex>
#include <ostream>

#include "foundation/Fail.h"
#include "mail/ListReader.h"
#include "mail/PathReader.h"
#include "platform/quill_string.h"

namespace Quillmark {

namespace {

constexpr Site here{"EmailAddressImpl", 0};

// Serialises the making of texts for addresses that were not filled by a parser, which is rare.
std::mutex s_lock;

bool holdsNul(std::string const& text) noexcept {
    return text.find('\0') != std::string::npos;
}

// Kept for the daemons: they test results and never need a try block.
template <class Parse>
auto quietly(Parse&& parse) -> decltype(parse()) {
    try {
        return parse();
    } catch (Exception const&) {
        return {};
    }
}

// Calls `found` with each address of a header value, from the last to the first.
template <class Found>
void forEachAddress(std::string const& text, bool lowerLocal, std::string const& separator, Found found) {
    if (holdsNul(text)) return;
    ListReader reader(text, lowerLocal, separator);
    for (EmailAddress address = reader.next(); !address.isNull(); address = reader.next()) found(address);
}

std::list<EmailAddress> listOf(std::string const& text, bool lowerLocal, std::string const& separator) {
    return quietly([&] {
        std::list<EmailAddress> list;
        forEachAddress(text, lowerLocal, separator,
                       [&](EmailAddress const& address) { list.push_front(address); });
        return list;
    });
}

}  // namespace

EmailAddressImpl::EmailAddressImpl() = default;
EmailAddressImpl::~EmailAddressImpl() = default;

void EmailAddressImpl::local(std::string const& text, bool lower) {
    if (lower) {
        copyStringToLower(text, m_local, 0, std::string::npos);
    } else {
        m_local = text;
    }
}

void EmailAddressImpl::domain(std::string const& text) {
    copyStringToLower(text, m_domain, 0, std::string::npos);
}

void EmailAddressImpl::displayName(std::string const& text) {
    m_displayName = text;
}

std::string const& EmailAddressImpl::address() const {
    if ((m_made.load(std::memory_order_acquire) & MadeAddress) != 0 || m_local.empty()) return m_address;
    std::lock_guard const guard(s_lock);
    if ((m_made.load(std::memory_order_relaxed) & MadeAddress) != 0) return m_address;
    m_address = m_domain.empty() ? m_local : m_local + '@' + m_domain;
    m_made.fetch_or(MadeAddress, std::memory_order_release);
    return m_address;
}

std::string const& EmailAddressImpl::asString() const {
    if ((m_made.load(std::memory_order_acquire) & MadeText) != 0) return m_asString;
    std::string const& joined = address();
    if (m_displayName.empty() && joined.empty()) return m_asString;
    std::lock_guard const guard(s_lock);
    if ((m_made.load(std::memory_order_relaxed) & MadeText) != 0) return m_asString;
    m_asString = m_displayName.empty() ? joined : m_displayName + " <" + joined + '>';
    m_made.fetch_or(MadeText, std::memory_order_release);
    return m_asString;
}

bool EmailAddressImpl::operator==(EmailAddressImpl const& other) const {
    return address() == other.address();
}

bool EmailAddressImpl::operator<(EmailAddressImpl const& other) const {
    return address() < other.address();
}

EmailAddress::EmailAddress(EmailAddressImpl* impl, bool addReference) noexcept : m_impl(impl, addReference) {}
EmailAddress::EmailAddress(EmailAddress const& other) noexcept = default;
EmailAddress::EmailAddress(EmailAddress&& other) noexcept = default;
EmailAddress& EmailAddress::operator=(EmailAddress const& other) noexcept = default;
EmailAddress& EmailAddress::operator=(EmailAddress&& other) noexcept = default;
EmailAddress::~EmailAddress() = default;

EmailAddress EmailAddress::rfc5321Parse(std::string const& text, bool requireBrackets) {
    return quietly([&] {
        if (holdsNul(text)) return EmailAddress();
        auto* const impl = new EmailAddressImpl;
        EmailAddress const parsed(impl, false);
        return readPath(text, *impl, requireBrackets) ? parsed : EmailAddress();
    });
}

EmailAddress EmailAddress::create(std::string const& local, std::string const& domain, bool requireBrackets) {
    return rfc5321Parse(local + '@' + domain, requireBrackets);
}

EmailAddress EmailAddress::rfc5322Parse(std::string const& text, bool lowerLocal) {
    return quietly([&] {
        // The first of the set that rfc5322ParseSet makes, without making one.
        EmailAddress smallest;
        forEachAddress(text, lowerLocal, {}, [&](EmailAddress const& address) {
            if (smallest.isNull() || address < smallest) smallest = address;
        });
        return smallest;
    });
}

std::set<EmailAddress> EmailAddress::rfc5322ParseSet(std::string const& text, bool lowerLocal,
                                                     bool /*ignored*/) {
    return quietly([&] {
        std::set<EmailAddress> set;
        forEachAddress(text, lowerLocal, {}, [&](EmailAddress const& address) { set.insert(address); });
        return set;
    });
}

std::list<EmailAddress> EmailAddress::rfc5322ParseList(std::string const& text, bool lowerLocal) {
    return listOf(text, lowerLocal, {});
}

std::list<EmailAddress> EmailAddress::rfc5322ParseList(std::string const& text,
                                                       std::string const& separator) {
    return listOf(text, false, separator);
}

EmailAddressImpl const& EmailAddress::value(char const* operation) const {
    if (!m_impl) fail(operation, NullHandle, here);
    return *m_impl;
}

bool EmailAddress::isEmptyAddress() const {
    return !m_impl || m_impl->address().empty();
}

std::string const& EmailAddress::local() const {
    return value("local").local();
}

std::string const& EmailAddress::domain() const {
    return value("domain").domain();
}

std::string const& EmailAddress::displayName() const {
    return value("displayName").displayName();
}

std::string const& EmailAddress::address() const {
    return value("address").address();
}

std::string const& EmailAddress::asString() const {
    static std::string const nothing;
    return m_impl ? m_impl->asString() : nothing;
}

bool EmailAddress::operator==(EmailAddress const& other) const {
    if (m_impl == other.m_impl) return true;
    return m_impl && other.m_impl && *m_impl == *other.m_impl;
}

bool EmailAddress::operator<(EmailAddress const& other) const {
    if (m_impl == other.m_impl || !other.m_impl) return false;
    return !m_impl || *m_impl < *other.m_impl;
}

std::ostream& operator<<(std::ostream& out, EmailAddress const& address) {
    return out << address.address();
}

std::string emailAddressEscapedWrite(EmailAddress const& address) {
    std::string escaped;
    if (address.isNull()) return escaped;
    for (char const c : address.address()) {
        if (c == '\'') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

void emailAddressSetCopy(std::set<EmailAddress> const& from, std::set<EmailAddress>& to) {
    EmailAddressSetInserter const insert(to);
    for (EmailAddress const& address : from) insert(address);
}

}  // namespace Quillmark
