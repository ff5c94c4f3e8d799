#include "include2/Resolver"

#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <new>

#include "foundation/Fail.h"
#include "net/RecordNumbers.h"
#include "net/ResolverState.h"

namespace Quillmark {

namespace {

constexpr Site here{"Resolver", 0};

constexpr char const* unknownName = "Unknown";

// No search list, no default domain, no host aliases, no second question over TCP. The bit that the
// system does not name any more (it was RES_NOIP6DOT) has no effect.
constexpr unsigned long resolverOptions = RES_INIT | RES_IGNTC | RES_RECURSE | RES_NOALIASES | 0x80000UL;
static_assert(resolverOptions == 0x81061);

using State = struct __res_state;

/// The resolver state of a thread, ready for use, until its thread ends.
class ThreadState : private NonCopyable {
public:
    ThreadState() {
        State& state = _res;
        if ((state.options & RES_INIT) != 0) ::res_nclose(&state);  // somebody else has used it
        if (::res_ninit(&state) == -1) fail("Resolver", ResolverError, here);
        state.options = resolverOptions;
    }
    virtual ~ThreadState() {
        State& state = _res;
        ::res_nclose(&state);
        // It looks at as many as are asked. Those that stood behind one that was chosen are still there.
        for (sockaddr_in6*& slot : state._u._ext.nsaddrs) std::free(std::exchange(slot, nullptr));
        state.options = 0;  // whoever asks later in the thread's end prepares it again
    }
};

/// Where the C library keeps the thread's first server when that is an IPv6 one; null if there never
/// was one. It may hold a copy of an IPv4 server as well.
sockaddr_in6*& firstSlot(State& state) {
    return state._u._ext.nsaddrs[0];
}

void useServer(State& state, in_addr const& address, in_port_t port) {
    sockaddr_in& first = state.nsaddr_list[0];
    first.sin_family = AF_INET;
    first.sin_port = port;
    first.sin_addr = address;
    state.nscount = 1;
    state._u._ext.nscount = 0;
    // Nothing to the C library of today, but to who looks here it is the count of IPv6 servers.
    state._u._ext.nscount6 = 0;
}

void useServer(State& state, in6_addr const& address, in_port_t port) {
    sockaddr_in6*& slot = firstSlot(state);
    // The C library frees it.
    if (!slot) slot = static_cast<sockaddr_in6*>(std::calloc(1, sizeof *slot));
    if (!slot) throw std::bad_alloc();
    slot->sin6_family = AF_INET6;
    slot->sin6_port = port;
    slot->sin6_flowinfo = 0;
    slot->sin6_addr = address;
    slot->sin6_scope_id = 1;
    state._u._ext.nscount = 1;
    state._u._ext.nscount6 = 1;
    state.nscount = 1;
    // Without a family the C library looks into the slot. The port stays, for those who read it here.
    state.nsaddr_list[0].sin_family = 0;
}

/// The first server's IPv6 address, null when it is an IPv4 one. The C library marks an IPv6 server by
/// its count or by the missing family of the IPv4 entry.
in6_addr const* firstV6Server(State& state) {
    sockaddr_in6 const* const slot = firstSlot(state);
    bool const used = state._u._ext.nscount != 0 || state.nsaddr_list[0].sin_family == 0;
    return used && slot && slot->sin6_family == AF_INET6 ? &slot->sin6_addr : nullptr;
}

}  // namespace

CurrentServer currentServer() {
    State& state = _res;
    sockaddr_in const& first = state.nsaddr_list[0];
    in6_addr const* const address = firstV6Server(state);
    return {address ? IPAddress(*address) : IPAddress(first.sin_addr), ntohs(first.sin_port)};
}

Resolver::~Resolver() = default;

Resolver* Resolver::instance() {
    static Resolver* const resolver = new Resolver;
    resolver->prepareThread();
    return resolver;
}

void Resolver::prepareThread() {
    if (m_key.value()) return;
    Synchronized const guard(m_lock);
    auto state = std::make_unique<ThreadState>();
    if (m_key.value(state.get()) != 0) fail("Resolver", ResolverError, here);
    (void)state.release();  // the key's, until the thread ends
}

ResolverMessage Resolver::submit(unsigned short dnsType, unsigned short dnsClass,
                                 std::string const& name) const {
    auto* const impl = new ResolverMessageImpl;
    ResolverMessage message(impl, false);
    bool const isText = name.find('\0') == std::string::npos;  // the system would lose what follows a NUL
    int const length = isText ? ::res_nsearch(&_res, name.c_str(), dnsClass, dnsType, impl->data(),
                                              static_cast<int>(impl->size()))
                              : -1;
    if (length == -1)
        impl->resolve_error(isText ? h_errno : NO_RECOVERY);
    else
        impl->length(length);
    return message;
}

ResolverMessage Resolver::submit(RecordType type, std::string const& name, RecordClass recordClass) const {
    return submit(static_cast<unsigned short>(convertRecordType(type)),
                  static_cast<unsigned short>(convertRecordClass(recordClass)), name);
}

IPAddress Resolver::getIPAddress(HostName const& name) const {
    if (name.isNull()) return IPAddress();
    if (name.isIPAddress()) return IPAddress(name.asString());
    return submit(TypeA, name.asString(), ClassIN).getIPAddress();
}

HostName Resolver::getHostname(IPAddress const& address) const {
    std::string const name =
        address.asStringReversed(true) + (address.isV4() ? ".in-addr.arpa." : ".ip6.arpa.");
    return submit(TypePTR, name, ClassIN).getHostname();
}

void Resolver::server(IPAddress const& address, unsigned int port) const {
    in_port_t const wirePort = htons(static_cast<in_port_t>(port));
    if (address.isV4()) useServer(_res, address.asInAddr(), wirePort);
    if (address.isV6()) useServer(_res, address.asIn6Addr(), wirePort);
}

Resolver::RecordType Resolver::convertRecordType(int dnsType) noexcept {
    return recordTypeOf(dnsType);
}

int Resolver::convertRecordType(RecordType type) noexcept {
    return lookUp(recordTypes, &TypeRow::type, type, &TypeRow::dns, 255);
}

char const* Resolver::recordTypeName(RecordType type) noexcept {
    return lookUp(recordTypes, &TypeRow::type, type, &TypeRow::name, unknownName);
}

char const* Resolver::recordTypeName(int dnsType) noexcept {
    return lookUp(recordTypes, &TypeRow::dns, dnsType, &TypeRow::name, unknownName);
}

Resolver::RecordClass Resolver::convertRecordClass(int dnsClass) noexcept {
    return recordClassOf(dnsClass);
}

int Resolver::convertRecordClass(RecordClass recordClass) noexcept {
    return lookUp(recordClasses, &ClassRow::recordClass, recordClass, &ClassRow::dns, 1);
}

char const* Resolver::recordClassName(RecordClass recordClass) noexcept {
    return lookUp(recordClasses, &ClassRow::recordClass, recordClass, &ClassRow::name, unknownName);
}

char const* Resolver::recordClassName(int dnsClass) noexcept {
    return lookUp(recordClasses, &ClassRow::dns, dnsClass, &ClassRow::name, unknownName);
}

}  // namespace Quillmark
