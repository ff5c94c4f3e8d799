#include "include2/IPAddressMask"

#include <algorithm>
#include <array>
#include <boost/make_shared.hpp>
#include <cstring>
#include <ostream>

#include "foundation/Fail.h"
#include "foundation/NeverDestroyed.h"

namespace Quillmark {

namespace {

constexpr Site here{"IPAddressMask", 0};

// The size of the text buffer: the longest text of a valid mask with its end, and some.
constexpr std::size_t textSize = 48;

struct PrivateNetwork {
    char const* text;
    std::uint32_t prefix;
    unsigned int bits;
};

constexpr PrivateNetwork privateNetworks[] = {
    {"10.0.0.0/8", 0x0a000000, 8},      {"169.254.0.0/16", 0xa9fe0000, 16}, {"172.16.0.0/12", 0xac100000, 12},
    {"192.168.0.0/16", 0xc0a80000, 16}, {"127.0.0.0/8", 0x7f000000, 8},
};

/// The one network in which addresses with a certain first byte may lie: those that are the prefix under
/// the mask. There is none where no address is.
struct Candidate {
    std::uint32_t mask;
    std::uint32_t prefix;
};

constexpr auto candidates = [] {
    std::array<Candidate, 256> byFirstByte{};
    byFirstByte.fill({0, 1});
    for (auto const& network : privateNetworks)
        byFirstByte[network.prefix >> 24] = {~std::uint32_t{0} << (32 - network.bits), network.prefix};
    return byFirstByte;
}();

bool isPrivateV4(std::uint8_t const* address) {
    std::uint32_t word = 0;
    std::memcpy(&word, address, sizeof word);
    Candidate const& candidate = candidates[address[0]];
    return (ntohl(word) & candidate.mask) == candidate.prefix;
}

bool parse(std::string const& text, ip_mask_t& mask) {
    return quill_string_to_ipmask(text.c_str(), &mask) == 0 && text.find('\0') == std::string::npos;
}

std::string textOf(ip_mask_t const& mask) {
    // Kept for the daemons: what has no text stays as it is, 48 NULs.
    std::string text(textSize, '\0');
    if (quill_ipmask_to_string(&mask, text.data(), textSize) == text.data())
        text.resize(std::strlen(text.c_str()));
    return text;
}

// The address as it stands, made anew because a family of our own is no address.
IPAddress prefixOf(ip_mask_t const& mask) {
    if (mask.address.family == IPAddressMaskImpl::IPv4) {
        in_addr address{};
        std::memcpy(&address, mask.address.address, sizeof address);
        return address;
    }
    if (mask.address.family == IPAddressMaskImpl::IPv6) {
        in6_addr address{};
        std::memcpy(&address, mask.address.address, sizeof address);
        return address;
    }
    return {};
}

// Makes what is made once. The flag is what other threads look at: it follows the value.
template <class Value, class Make>
Value const& once(Value& value, std::atomic<bool>& final, Make make) {
    if (final.load(std::memory_order_acquire)) return value;
    Synchronized const guard(IPAddressMaskImpl::s_lock);
    if (!final.load(std::memory_order_relaxed)) {
        value = make();
        final.store(true, std::memory_order_release);
    }
    return value;
}

}  // namespace

// A mask may be printed while statics are being made, and by threads that outlive them.
static constinit NeverDestroyed<Mutex> textLock;
constinit Mutex& IPAddressMaskImpl::s_lock = textLock.object;

IPAddressMaskImpl::IPAddressMaskImpl(std::string const& text) {
    if (text.empty()) return;
    if (!parse(text, m_mask)) fail("IPAddressMask", BadArgument, here, "Invalid mask:" + text);
}

IPAddressMaskImpl::IPAddressMaskImpl(ip_addr_t const& address, unsigned int bits) : m_mask{address, bits} {}

IPAddressMaskImpl::IPAddressMaskImpl(ip_mask_t const& mask) : m_mask(mask) {}

IPAddressMaskImpl::IPAddressMaskImpl(Type type) noexcept {
    m_mask.address.family = type;
}

IPAddressMaskImpl::~IPAddressMaskImpl() = default;

IPAddress const& IPAddressMaskImpl::prefix() const {
    return once(m_prefix, m_hasPrefix, [&] { return prefixOf(m_mask); });
}

std::string const& IPAddressMaskImpl::asString() const {
    if (type() == NoFamily) return m_text;
    return once(m_text, m_hasText, [&] { return textOf(m_mask); });
}

bool IPAddressMaskImpl::matches(IPAddress const& address) const {
    if (type() != IPv4 && type() != IPv6) return false;
    return quill_ipmask_match(&m_mask, &address.asIpAddr()) == 1;
}

bool IPAddressMaskImpl::operator==(IPAddressMaskImpl const& other) const {
    return quill_ipmask_compare(&m_mask, &other.m_mask) == 0;
}

bool IPAddressMaskImpl::operator<(IPAddressMaskImpl const& other) const {
    return quill_ipmask_compare(&m_mask, &other.m_mask) < 0;
}

IPAddressMaskMulti::IPAddressMaskMulti(std::list<IPAddressMask> const& masks)
    : IPAddressMaskImpl(Multi), m_masks(masks) {}

IPAddressMaskMulti::~IPAddressMaskMulti() = default;

std::string const& IPAddressMaskMulti::asString() const {
    // Never destroyed: a mask may be printed while the process ends.
    static auto const* const empty = new std::string;
    return *empty;
}

bool IPAddressMaskMulti::matches(IPAddress const& address) const {
    return std::any_of(m_masks.begin(), m_masks.end(),
                       [&](IPAddressMask const& mask) { return mask.matches(address); });
}

bool IPAddressMaskMulti::operator==(IPAddressMaskImpl const& /*other*/) const {
    return false;
}

bool IPAddressMaskMulti::operator<(IPAddressMaskImpl const& /*other*/) const {
    return false;
}

IPAddressMask::IPAddressMask(std::string const& text) : m_impl(boost::make_shared<IPAddressMaskImpl>(text)) {}

IPAddressMask::IPAddressMask(ip_addr_t const& address, unsigned int bits)
    : m_impl(boost::make_shared<IPAddressMaskImpl>(address, bits)) {}

IPAddressMask::IPAddressMask(ip_mask_t const& mask) : m_impl(boost::make_shared<IPAddressMaskImpl>(mask)) {}

IPAddressMask::IPAddressMask(std::list<IPAddressMask> const& masks)
    : m_impl(boost::make_shared<IPAddressMaskMulti>(masks)) {}

IPAddressMask::~IPAddressMask() = default;

IPAddressMaskImpl const& IPAddressMask::value() const {
    if (!m_impl) fail("IPAddressMask", NullHandle, here);
    return *m_impl;
}

std::string const& IPAddressMask::asString() const {
    return value().asString();
}

IPAddress const& IPAddressMask::prefix() const {
    return value().prefix();
}

unsigned int IPAddressMask::cidr() const {
    // Kept for the daemons: this call alone has a code and words of its own for null.
    if (!m_impl) fail("IPAddressMask", BadArgument, here, "Null value");
    return m_impl->cidr();
}

ip_mask_t const& IPAddressMask::asIpMask() const {
    return value().asIpMask();
}

bool IPAddressMask::matches(IPAddress const& address) const {
    IPAddressMaskImpl const& mask = value();
    return !address.isNull() && mask.matches(address);
}

bool IPAddressMask::operator==(IPAddressMask const& other) const {
    if (m_impl == other.m_impl) return true;
    return m_impl && other.m_impl && *m_impl == *other.m_impl;
}

bool IPAddressMask::operator<(IPAddressMask const& other) const {
    if (m_impl == other.m_impl || !other.m_impl) return false;
    return !m_impl || *m_impl < *other.m_impl;
}

bool IPAddressMask::isValidIPAddressMask(std::string const& text) {
    ip_mask_t mask{};
    return !text.empty() && parse(text, mask);
}

void IPAddressMask::applyMask(IPAddress& address, unsigned int bits) {
    quill_ipmask_apply_mask(address.m_impl ? &address.m_impl->m_address : nullptr, bits);
}

std::ostream& operator<<(std::ostream& out, IPAddressMask const& mask) {
    if (!mask.isNull()) out << mask.asString();
    return out;
}

PrivateNetworkIdentifier::PrivateNetworkIdentifier() {
    for (auto const& network : privateNetworks) m_networks.emplace_back(std::string(network.text));
}

PrivateNetworkIdentifier::~PrivateNetworkIdentifier() = default;

PrivateNetworkIdentifier* PrivateNetworkIdentifier::instance() {
    static auto* const identifier = new PrivateNetworkIdentifier;
    return identifier;
}

bool PrivateNetworkIdentifier::isPrivateAddress(IPAddress const& address) const {
    if (address.isV4()) return isPrivateV4(address.m_impl->asIpAddr().address);
    return std::any_of(m_networks.begin(), m_networks.end(),
                       [&](IPAddressMask const& network) { return network.matches(address); });
}

}  // namespace Quillmark
