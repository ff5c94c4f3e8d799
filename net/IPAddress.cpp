#include "include2/IPAddress"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <boost/make_shared.hpp>
#include <cstring>
#include <ostream>
#include <span>
#include <string_view>

#include "foundation/AddressText.h"
#include "foundation/ByteSet.h"
#include "foundation/Fail.h"
#include "foundation/NeverDestroyed.h"
#include "include2/IPAddressMask"

namespace Quillmark {

namespace {

constexpr Site here{"IPAddress", 0};

// The size of every text buffer: the longest text of an address with its end.
constexpr std::size_t textSize = INET6_ADDRSTRLEN;
static_assert(textSize == 46);

constexpr std::size_t mappedPrefixSize = 12;
constexpr std::array<std::uint8_t, mappedPrefixSize> mappedPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

using Bytes = std::span<std::uint8_t const, 16>;

// Kept for the daemons: a text that does not parse is refused with the words for a bad family.
[[noreturn]] void failType() {
    fail("IPAddress", BadArgument, here, "Invalid address type");
}

bool hasEmbeddedNul(std::string const& text) {
    return text.find('\0') != std::string::npos;
}

constexpr ByteSet numberBytes = digitBytes | ByteSet{"abcdefABCDEFxX."};

bool isV4Number(std::string_view text) {
    if (text.size() <= 5 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return numberBytes.contains(c); }))
        return false;
    auto const dots = std::count(text.begin(), text.end(), '.');
    return dots == 0 || dots == 3;
}

std::string textOf(ip_addr_t const& address, bool dotted) {
    // Kept for the daemons: what has no text stays as it is, 46 NULs.
    std::string text(textSize, '\0');
    if (quill_ip_to_string(&address, text.data(), textSize, dotted) == text.data())
        text.resize(std::strlen(text.c_str()));
    return text;
}

std::string reversedV4(Bytes bytes) {
    std::array<std::uint8_t, 4> reversed{};
    std::reverse_copy(bytes.begin(), bytes.begin() + 4, reversed.begin());
    std::array<char, longestDottedQuad + 1> text;
    return {text.data(), writeDottedQuad(reversed.data(), text.data())};
}

std::string reversedV6(Bytes bytes) {
    constexpr std::string_view digits{"0123456789abcdef"};
    std::string text;
    text.reserve(4 * bytes.size());
    for (std::size_t i = bytes.size(); i-- > 0;) {
        for (int const nibble : {bytes[i] & 15, bytes[i] >> 4}) {
            text += digits[static_cast<std::size_t>(nibble)];
            text += '.';
        }
    }
    text.pop_back();
    return text;
}

// Makes a text that is made once. The flag is what other threads look at: it follows the text, so
// that nobody reads a text that is still being made.
template <class Make>
std::string const& once(std::string& text, std::atomic<bool>& final, Make make) {
    if (final.load(std::memory_order_acquire)) return text;
    Synchronized const guard(IPAddressImpl::s_lock);
    if (!final.load(std::memory_order_relaxed)) {
        text = make();
        final.store(true, std::memory_order_release);
    }
    return text;
}

// Whether an IPv6 address has bytes that satisfy the condition.
template <class Condition>
bool isV6With(IPAddress const& address, Condition condition) {
    return address.isV6() && condition(Bytes(address.asIpAddr().address));
}

// The address inside an address of which only the last four bytes count.
in_addr lastFour(Bytes bytes) {
    in_addr address{};
    std::memcpy(&address, bytes.last<4>().data(), sizeof address);
    return address;
}

}  // namespace

// An address may be printed while statics are being made, and by threads that outlive them.
static constinit NeverDestroyed<Mutex> textLock;
constinit Mutex& IPAddressImpl::s_lock = textLock.object;

IPAddressImpl::IPAddressImpl(std::string const& text) {
    if (hasEmbeddedNul(text) || quill_string_to_ip(text.c_str(), &m_address) != 1) failType();
}

IPAddressImpl::IPAddressImpl(in_addr const& address) {
    m_address.family = IPv4;
    std::memcpy(m_address.address, &address, sizeof address);
}

IPAddressImpl::IPAddressImpl(unsigned int address, bool networkOrder)
    : IPAddressImpl(in_addr{networkOrder ? address : htonl(address)}) {}

IPAddressImpl::IPAddressImpl(in6_addr const& address) {
    m_address.family = IPv6;
    std::memcpy(m_address.address, &address, sizeof address);
}

IPAddressImpl::IPAddressImpl(ip_addr_t const& address) : m_address(address) {
    if (type() != NoFamily && type() != IPv4 && type() != IPv6) failType();
}

IPAddressImpl::~IPAddressImpl() = default;

std::string const& IPAddressImpl::asString(bool dotted) const {
    if (type() != IPv4 && type() != IPv6) return m_text;
    return once(m_text, m_hasText, [&] { return textOf(m_address, dotted); });
}

std::string const& IPAddressImpl::asReverseString(bool /*unused*/) const {
    if (type() != IPv4 && type() != IPv6) return m_reversed;
    return once(m_reversed, m_hasReversed, [&] {
        Bytes const bytes(m_address.address);
        return type() == IPv4 ? reversedV4(bytes) : reversedV6(bytes);
    });
}

bool IPAddressImpl::operator==(IPAddressImpl const& other) const {
    return quill_ip_compare(&m_address, &other.m_address) == 0;
}

bool IPAddressImpl::operator<(IPAddressImpl const& other) const {
    return quill_ip_compare(&m_address, &other.m_address) < 0;
}

IPAddress::IPAddress(std::string const& text) : m_impl(boost::make_shared<IPAddressImpl>(text)) {}

IPAddress::IPAddress(in_addr const& address) : m_impl(boost::make_shared<IPAddressImpl>(address)) {}

IPAddress::IPAddress(unsigned int address, bool networkOrder)
    : m_impl(boost::make_shared<IPAddressImpl>(address, networkOrder)) {}

IPAddress::IPAddress(in6_addr const& address) : m_impl(boost::make_shared<IPAddressImpl>(address)) {}

IPAddress::IPAddress(ip_addr_t const& address) : m_impl(boost::make_shared<IPAddressImpl>(address)) {}

IPAddress::~IPAddress() = default;

IPAddressImpl const& IPAddress::value() const {
    if (!m_impl) fail("IPAddress", NullHandle, here);
    return *m_impl;
}

std::string const& IPAddress::asString(bool dotted) const {
    return value().asString(dotted);
}

std::string const& IPAddress::asStringReversed(bool unused) const {
    return value().asReverseString(unused);
}

ip_addr_t const& IPAddress::asIpAddr() const {
    return value().asIpAddr();
}

static_assert(offsetof(ip_addr_t, address) % alignof(in6_addr) == 0 &&
              alignof(ip_addr_t) >= alignof(in6_addr));

in_addr const& IPAddress::asInAddr() const {
    return *reinterpret_cast<in_addr const*>(value().asIpAddr().address);
}

in6_addr const& IPAddress::asIn6Addr() const {
    return *reinterpret_cast<in6_addr const*>(value().asIpAddr().address);
}

bool IPAddress::operator==(IPAddress const& other) const {
    if (m_impl == other.m_impl) return true;
    return m_impl && other.m_impl && *m_impl == *other.m_impl;
}

bool IPAddress::operator<(IPAddress const& other) const {
    if (m_impl == other.m_impl || !other.m_impl) return false;
    return !m_impl || *m_impl < *other.m_impl;
}

bool IPAddress::isValidIPAddress(std::string const& text) noexcept {
    std::array<std::uint8_t, 16> address;
    if (text.find(':') != std::string::npos)
        return !hasEmbeddedNul(text) && readGroups(text.c_str(), address.data());
    in_addr number{};
    return isV4Number(text) &&
           (readDottedQuad(text.c_str(), address.data()) || ::inet_aton(text.c_str(), &number) != 0);
}

IPAddress IPAddress::asIPv4(IPAddress const& address) {
    if (!address.isV6()) return address;
    if (!isV4Mapped(address) && !isV4Compatible(address))
        fail("IPAddress", BadArgument, here, "Address cannot be cast to IPv4");
    return lastFour(Bytes(address.asIpAddr().address));
}

IPAddress IPAddress::asIPv4Mapped(IPAddress const& address) {
    if (!address.isV4()) return address;
    in6_addr mapped{};
    std::copy(mappedPrefix.begin(), mappedPrefix.end(), mapped.s6_addr);
    std::copy_n(address.asIpAddr().address, 4, mapped.s6_addr + mappedPrefixSize);
    return mapped;
}

bool IPAddress::isLoopBack(IPAddress const& address) noexcept {
    if (address.isV4()) return address.asInAddr().s_addr == htonl(INADDR_LOOPBACK);
    return isV6With(address, [](Bytes bytes) {
        return std::equal(bytes.begin(), bytes.end(), in6addr_loopback.s6_addr);
    });
}

bool IPAddress::isSiteLocal(IPAddress const& address) noexcept {
    return isV6With(address, [](Bytes bytes) { return bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0xc0; });
}

bool IPAddress::isLinkLocal(IPAddress const& address) noexcept {
    return isV6With(address, [](Bytes bytes) { return bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80; });
}

bool IPAddress::isMultiCast(IPAddress const& address) noexcept {
    return isV6With(address, [](Bytes bytes) { return bytes[0] == 0xff; });
}

bool IPAddress::isV4Mapped(IPAddress const& address) noexcept {
    return isV6With(address, [](Bytes bytes) {
        return std::equal(mappedPrefix.begin(), mappedPrefix.end(), bytes.begin());
    });
}

bool IPAddress::isV4Compatible(IPAddress const& address) noexcept {
    return isV6With(address, [](Bytes bytes) {
        bool const zeros = std::all_of(bytes.begin(), bytes.begin() + mappedPrefixSize,
                                       [](std::uint8_t byte) { return byte == 0; });
        return zeros && ntohl(lastFour(bytes).s_addr) > 1;
    });
}

bool IPAddress::isPrivateAddress(IPAddress const& address) {
    return PrivateNetworkIdentifier::instance()->isPrivateAddress(address);
}

std::ostream& operator<<(std::ostream& out, IPAddress const& address) {
    if (!address.isNull()) out << address.asString(true);
    return out;
}

}  // namespace Quillmark
