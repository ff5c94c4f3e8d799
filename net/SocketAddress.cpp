#include "include2/SocketAddress"

#include <sys/un.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "foundation/Fail.h"
#include "include2/Host"

namespace Quillmark {

namespace {

constexpr Site here{"SocketAddress", 0};

constexpr std::size_t pathOffset = offsetof(sockaddr_un, sun_path);
constexpr std::size_t pathSize = sizeof(sockaddr_un::sun_path);
static_assert(pathOffset == 2 && pathSize == 108);
static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_in6) == 28);

// System records are copied, not cast: whoever calls us owes them no alignment beyond a sockaddr's.
template <class Record>
Record recordOf(sockaddr const& address) {
    Record record{};
    std::memcpy(&record, &address, sizeof record);
    return record;
}

std::string pathOf(sockaddr const& address) {
    char const* const path = reinterpret_cast<char const*>(&address) + pathOffset;
    return {path, ::strnlen(path, pathSize)};
}

}  // namespace

_SocketAddress::~_SocketAddress() = default;

_SocketAddressIn::_SocketAddressIn(IPAddress const& address, unsigned int port)
    : _SocketAddress(INET), m_address(address), m_port(port) {}

_SocketAddressIn::_SocketAddressIn(sockaddr const& address, bool mapV4) : _SocketAddress(INET) {
    if (address.sa_family == AF_INET) {
        auto const record = recordOf<sockaddr_in>(address);
        m_port = ntohs(record.sin_port);
        m_address = IPAddress(record.sin_addr);
        if (mapV4) m_address = IPAddress::asIPv4Mapped(m_address);
    } else if (address.sa_family == AF_INET6) {
        auto const record = recordOf<sockaddr_in6>(address);
        m_port = ntohs(record.sin6_port);
        m_address = IPAddress(record.sin6_addr);
    }
}

_SocketAddressIn::~_SocketAddressIn() = default;

unsigned int _SocketAddressIn::size() const {
    return m_address.isV4() ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

_SocketAddressIn::operator sockaddr*() const {
    if (!m_hasRecord) {
        auto const port = htons(static_cast<in_port_t>(m_port & 0xffffU));
        if (m_address.isV4()) {
            sockaddr_in record{};
            record.sin_family = AF_INET;
            record.sin_port = port;
            record.sin_addr = m_address.asInAddr();
            std::memcpy(&m_record, &record, sizeof record);
        } else {
            m_record.sin6_addr = m_address.asIn6Addr();
            m_record.sin6_family = AF_INET6;
            m_record.sin6_port = port;
        }
        m_hasRecord = true;
    }
    return reinterpret_cast<sockaddr*>(&m_record);
}

_SocketAddressUnix::_SocketAddressUnix(std::string const& path) : _SocketAddress(UNIX), m_path(path) {}

_SocketAddressUnix::~_SocketAddressUnix() = default;

unsigned int _SocketAddressUnix::size() const {
    return static_cast<unsigned int>(pathOffset + m_path.size());
}

_SocketAddressUnix::operator sockaddr*() const {
    if (m_record.empty()) {
        std::vector<unsigned char> record(std::max(sizeof(sockaddr_un), pathOffset + m_path.size()));
        sa_family_t const family = AF_UNIX;
        std::memcpy(record.data(), &family, sizeof family);
        std::memcpy(record.data() + pathOffset, m_path.c_str(), ::strnlen(m_path.c_str(), pathSize));
        m_record.swap(record);
    }
    return reinterpret_cast<sockaddr*>(m_record.data());
}

SocketAddress::SocketAddress(std::string const& path) : m_impl(new _SocketAddressUnix(path), false) {}

SocketAddress::SocketAddress(IPAddress const& address, unsigned int port)
    : m_impl(new _SocketAddressIn(address, port), false) {}

SocketAddress::SocketAddress(Host const& host, unsigned int port) : SocketAddress(host.address(), port) {}

SocketAddress::SocketAddress(sockaddr const& address, bool mapV4) {
    if (address.sa_family == AF_UNIX)
        m_impl = Handle<_SocketAddress>(new _SocketAddressUnix(pathOf(address)), false);
    else
        m_impl = Handle<_SocketAddress>(new _SocketAddressIn(address, mapV4), false);
}

SocketAddress::~SocketAddress() = default;

_SocketAddress const& SocketAddress::value() const {
    if (!m_impl) fail("SocketAddress", NullHandle, here);
    return *m_impl;
}

unsigned int SocketAddress::size() const {
    return value().size();
}

SocketAddress::operator sockaddr*() const {
    return value();
}

_SocketAddressUnix const& SocketAddress::asUNIX() const {
    if (!isUNIX()) fail("SocketAddress", NullHandle, here, "Not a UNIX address");
    return dynamic_cast<_SocketAddressUnix const&>(*m_impl);
}

_SocketAddressIn const& SocketAddress::asINET() const {
    if (!isINET()) fail("SocketAddress", NullHandle, here, "Not an INET address");
    return dynamic_cast<_SocketAddressIn const&>(*m_impl);
}

}  // namespace Quillmark
