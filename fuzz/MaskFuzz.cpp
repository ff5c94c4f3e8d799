// The texts of networks, and which addresses lie in them.

#include "fuzz/support/Fuzz.h"
#include "include2/IPAddressMask"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

/// Whether the first bits agree, bit by bit.
bool agree(ip_addr_t const& a, ip_addr_t const& b, unsigned int bits) {
    if (a.family != b.family) return false;
    for (unsigned int i = 0; i < bits; ++i)
        if (((a.address[i / 8] ^ b.address[i / 8]) >> (7 - i % 8) & 1) != 0) return false;
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    // A network, and behind a line feed an address.
    Input in(data, size);
    std::string const text = in.line();
    std::string const addressText = in.rest();

    bool const valid = IPAddressMask::isValidIPAddressMask(text);
    IPAddressMask mask;
    std::string const failure = failureOf([&] { mask = IPAddressMask(text); });
    claimSame("only a valid text, and the empty one, makes a mask", failure.empty(), valid || text.empty());
    if (!valid) return 0;
    unsigned int const width = mask.isV4() ? 32 : 128;
    claim(mask.isV4() != mask.isV6(), "a mask has one family");
    claim(mask.cidr() <= width, "a prefix is no longer than an address");
    IPAddressMask const again(mask.asString());
    claim(again == mask && !(again < mask) && !(mask < again), "printed and read again");
    claimSame("printed twice", again.asString(), mask.asString());
    claim(mask.matches(mask.prefix()), "the prefix of a network lies in it");

    if (!IPAddress::isValidIPAddress(addressText)) return 0;
    IPAddress address(addressText);
    IPAddress const seen =
        mask.isV4() && IPAddress::isV4Mapped(address) ? IPAddress::asIPv4(address) : address;
    bool const lies = agree(mask.asIpMask().address, seen.asIpAddr(), mask.cidr());
    claimSame("an address lies in the network whose bits it has", mask.matches(address), lies);
    IPAddressMask const set(std::list<IPAddressMask>{IPAddressMask(std::string("192.0.2.0/24")), mask});
    claimSame("and in a set that has the network", set.matches(address),
              lies || IPAddressMask(std::string("192.0.2.0/24")).matches(address));
    // What is left of an address lies in the network of that many of its bits.
    IPAddressMask const own(address.asIpAddr(), mask.cidr());
    IPAddress cut(address.asIpAddr());
    IPAddressMask::applyMask(cut, mask.cidr());
    claim(own.matches(cut) && own.matches(address), "an address lies in its own network, cut or whole");
    return 0;
}
