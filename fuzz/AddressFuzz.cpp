// The texts of IP addresses.

#include <arpa/inet.h>

#include <array>

#include "fuzz/support/Fuzz.h"
#include "include2/IPAddress"
#include "include2/quillmark.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

void check(IPAddress const& address) {
    // Printed and read again, in both forms. The first call decides what a value prints.
    for (bool const dotted : {false, true}) {
        IPAddress const fresh(address.asIpAddr());
        std::string const& printed = fresh.asString(dotted);
        claim(IPAddress::isValidIPAddress(printed), "what is printed is an address");
        claim(IPAddress(printed) == address, "the address that was printed");
        claimSame("printed again", IPAddress(printed).asString(dotted), printed);
    }
    // As the system prints it, but for the forms in which IPv4 addresses are dressed.
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address.isV4()) {
        ::inet_ntop(AF_INET, &address.asInAddr(), text.data(), text.size());
        claimSame("an IPv4 address as the system prints it", address.asString(true),
                  std::string(text.data()));
    } else if (!IPAddress::isV4Mapped(address) && !IPAddress::isV4Compatible(address)) {
        ::inet_ntop(AF_INET6, &address.asIn6Addr(), text.data(), text.size());
        claimSame("an IPv6 address as the system prints it", address.asString(true),
                  std::string(text.data()));
    }
    claim(address.asStringReversed(true).size() >= (address.isV4() ? 7U : 63U),
          "a reversed address is whole");

    // From one family to the other and back.
    if (address.isV4()) {
        IPAddress const mapped = IPAddress::asIPv4Mapped(address);
        claim(mapped.isV6() && IPAddress::isV4Mapped(mapped), "a mapped address is one");
        claim(IPAddress::asIPv4(mapped) == address, "an address mapped and back");
        claimSame("a private address in that dress", IPAddress::isPrivateAddress(mapped),
                  IPAddress::isPrivateAddress(address));
        claimSame("what C says of it", ::quill_int_is_private_ip_address(address.asInAddr().s_addr) == 1,
                  IPAddress::isPrivateAddress(address));
    } else {
        bool const holdsV4 = IPAddress::isV4Mapped(address) || IPAddress::isV4Compatible(address);
        claimSame("what holds no IPv4 address is refused",
                  failureOf([&] { IPAddress::asIPv4(address); }).empty(), holdsV4);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    std::string const text = in.rest();
    bool const valid = IPAddress::isValidIPAddress(text);
    std::string const failure = failureOf([&] { check(IPAddress(text)); });
    claimSame("only a valid text makes an address", failure.empty(), valid);
    std::array<char, 80> query{};
    claimSame("what C says of it",
              ::quill_dns_get_ip_querystring(text.c_str(), query.data(), query.size()) == 0,
              IPAddress::isValidIPAddress(text.c_str()));

    // Any bytes are an address, too.
    in6_addr six{};
    std::copy_n(data, std::min<std::size_t>(size, sizeof six), six.s6_addr);
    in_addr four{};
    std::copy_n(data, std::min<std::size_t>(size, sizeof four), reinterpret_cast<std::uint8_t*>(&four));
    check(IPAddress(six));
    check(IPAddress(four));
    claim(IPAddress(four) < IPAddress(six), "IPv4 comes first");
    return 0;
}
