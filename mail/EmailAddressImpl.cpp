#include "include2/EmailAddress"

#include <ostream>
#include <thread>
#include <utility>

#include "foundation/Fail.h"
#include "mail/AddressMaker.h"
#include "mail/ListReader.h"
#include "mail/PathReader.h"
#include "mail/PlainList.h"
#include "platform/quill_string.h"

namespace Quillmark {

namespace {

constexpr Site here{"EmailAddressImpl", 0};

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

// Who collects the addresses of a header value. They come in the order of the text or, where it takes
// the whole grammar to tell them apart, from the last to the first.
struct List {
    std::list<EmailAddress> all;

    void append(EmailAddress&& address) { all.push_back(std::move(address)); }
    void prepend(EmailAddress&& address) { all.push_front(std::move(address)); }
};

// Of equal addresses the rightmost stays.
struct Set {
    std::set<EmailAddress> all;

    void append(EmailAddress&& address) {
        auto const [place, isNew] = all.insert(address);
        if (!isNew) all.insert(all.erase(place), std::move(address));
    }
    void prepend(EmailAddress&& address) { all.insert(std::move(address)); }
};

// The first member of the set, without the set.
struct Smallest {
    EmailAddress all;

    void append(EmailAddress&& address) {
        if (all.isNull() || !(all < address)) all = std::move(address);
    }
    void prepend(EmailAddress&& address) {
        if (all.isNull() || address < all) all = std::move(address);
    }
};

template <class Collection>
auto collected(std::string const& text, bool lowerLocal, std::string const& separator) {
    return quietly([&] {
        if (separator.empty()) {
            Collection plain;
            PlainList reader(text);
            for (PlainAddress found; reader.next(found);) plain.append(found.make(lowerLocal));
            if (reader.isComplete()) return std::move(plain.all);
        }
        Collection any;
        if (holdsNul(text)) return std::move(any.all);
        ListReader reader(text, lowerLocal, separator);
        for (EmailAddress found = reader.next(); !found.isNull(); found = reader.next())
            any.prepend(std::move(found));
        return std::move(any.all);
    });
}

}  // namespace

EmailAddressImpl::EmailAddressImpl() = default;

EmailAddressImpl::~EmailAddressImpl() {
    AddressMaker::show(*this);
}

void EmailAddressImpl::local(std::string const& text, bool lower) {
    m_isPlain = false;
    if (lower) {
        copyStringToLower(text, m_local, 0, std::string::npos);
    } else {
        m_local = text;
    }
}

void EmailAddressImpl::domain(std::string const& text) {
    m_isPlain = false;
    copyStringToLower(text, m_domain, 0, std::string::npos);
}

void EmailAddressImpl::displayName(std::string const& text) {
    m_isPlain = false;
    m_displayName = text;
}

// Makes a text that nobody made yet. Threads may ask for it at once: one of them makes it, and the others
// wait for the few instructions that this takes.
template <class Make>
void EmailAddressImpl::once(Made text, Make make) const {
    auto const with = [](int made, Made more) { return static_cast<unsigned char>(made | more); };
    unsigned char seen = m_made.load(std::memory_order_acquire);
    while ((seen & text) == 0) {
        if ((seen & Making) != 0) {
            std::this_thread::yield();
            seen = m_made.load(std::memory_order_acquire);
        } else if (m_made.compare_exchange_weak(seen, with(seen, Making), std::memory_order_acquire)) {
            try {
                make();
            } catch (...) {
                m_made.store(seen, std::memory_order_release);
                throw;
            }
            m_made.store(with(seen, text), std::memory_order_release);
            return;
        }
    }
}

std::string const& EmailAddressImpl::address() const {
    if (m_local.empty()) return m_address;  // and it may yet get a local part
    once(MadeAddress, [this] {
        m_address.reserve(m_local.size() + 1 + m_domain.size());
        m_address = m_local;
        if (!m_domain.empty()) (m_address += '@') += m_domain;
    });
    return m_address;
}

std::string const& EmailAddressImpl::asString() const {
    // It may have been made without an address, which is not made to print it again.
    if ((m_made.load(std::memory_order_acquire) & MadeText) == 0) {
        std::string const& joined = address();
        if (m_displayName.empty() && joined.empty()) return m_asString;
        once(MadeText, [&] {
            if (m_displayName.empty()) return;
            m_asString.reserve(m_displayName.size() + 3 + joined.size());
            (((m_asString = m_displayName) += " <") += joined) += '>';
        });
    }
    return m_asString.empty() ? m_address : m_asString;
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
EmailAddress& EmailAddress::operator=(EmailAddress const& other) noexcept {
    EmailAddress(other).m_impl.swap(m_impl);
    return *this;
}
EmailAddress& EmailAddress::operator=(EmailAddress&& other) noexcept {
    EmailAddress(std::move(other)).m_impl.swap(m_impl);
    return *this;
}
EmailAddress::~EmailAddress() {
    if (m_impl) AddressMaker::drop(m_impl.detach());
}

EmailAddress EmailAddress::rfc5321Parse(std::string const& text, bool requireBrackets) {
    return quietly([&] {
        if (EmailAddress plain = readPlainPath(text, requireBrackets); !plain.isNull()) return plain;
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
    return collected<Smallest>(text, lowerLocal, {});
}

std::set<EmailAddress> EmailAddress::rfc5322ParseSet(std::string const& text, bool lowerLocal,
                                                     bool /*ignored*/) {
    return collected<Set>(text, lowerLocal, {});
}

std::list<EmailAddress> EmailAddress::rfc5322ParseList(std::string const& text, bool lowerLocal) {
    return collected<List>(text, lowerLocal, {});
}

std::list<EmailAddress> EmailAddress::rfc5322ParseList(std::string const& text,
                                                       std::string const& separator) {
    return collected<List>(text, false, separator);
}

void EmailAddress::refuseNull(char const* operation) {
    fail(operation, NullHandle, here);
}

inline EmailAddressImpl const& EmailAddress::value(char const* operation) const {
    if (!m_impl) refuseNull(operation);
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
    static auto const& nothing = *new std::string;  // never destroyed: it may be read while the process ends
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
