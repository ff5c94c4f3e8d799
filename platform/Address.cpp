// The address helper.

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/quill_ip.h"

static_assert(sizeof(ip_addr_t) == 20 && sizeof(ip_mask_t) == 24, "the layout is known to every daemon");

namespace {

constexpr std::uint32_t ipv4 = AF_INET;
constexpr std::uint32_t ipv6 = AF_INET6;
static_assert(ipv4 == 2 && ipv6 == 10, "the family numbers are known to every daemon");

constexpr std::size_t mappedPrefixSize = 12;
constexpr std::uint8_t mappedPrefix[mappedPrefixSize] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

bool isMapped(ip_addr_t const& address) {
    return address.family == ipv6 && std::memcmp(address.address, mappedPrefix, mappedPrefixSize) == 0;
}

// The bits of an address, 0 for a family that we do not know.
unsigned int widthOf(std::uint32_t family) {
    switch (family) {
    case ipv4: return 32;
    case ipv6: return 128;
    default: return 0;
    }
}

// An IPv4 number in the looser forms of inet_aton that are not mistaken for something else: four parts
// or one, of decimal, octal or hexadecimal digits, and no fewer than six characters.
bool isIpv4Number(std::string_view text) {
    constexpr std::string_view allowed{"0123456789abcdefABCDEFxX."};
    if (text.size() <= 5 || text.find_first_not_of(allowed) != std::string_view::npos) return false;
    auto const dots = std::count(text.begin(), text.end(), '.');
    return dots == 0 || dots == 3;
}

// The text of an address or a mask while it is put together; the longest is that of an IPv6 mask with a
// length of ten digits.
class Text {
public:
    void put(char c) { m_bytes[m_length++] = c; }
    void put(std::string_view text) {
        for (char const c : text) put(c);
    }
    void putNumber(std::uint32_t number, std::uint32_t base) {
        std::array<char, 10> digits{};
        auto first = digits.end();
        do *--first = "0123456789abcdef"[number % base];
        while ((number /= base) != 0);
        put(std::string_view(first, static_cast<std::size_t>(digits.end() - first)));
    }

    // Copies the text, terminated, and gives the buffer; a buffer that is too small stays as it was.
    char* copyTo(char* buffer, std::size_t size) const {
        if (size <= m_length) return nullptr;
        std::copy_n(m_bytes.begin(), m_length, buffer);
        buffer[m_length] = '\0';
        return buffer;
    }

private:
    std::array<char, 39 + 1 + 10> m_bytes;
    std::size_t m_length = 0;
};

void putDottedQuad(Text& out, std::uint8_t const* bytes) {
    for (int i = 0; i < 4; ++i) {
        if (i != 0) out.put('.');
        out.putNumber(bytes[i], 10);
    }
}

struct Run {
    int begin = 0, length = 0;
};

// The groups of zeros that "::" stands for: the longest run, the first of equals, never a single group
// (RFC 5952, section 4.2).
Run longestZeroRun(std::uint16_t const (&groups)[8]) {
    Run longest;
    for (int i = 0; i < 8; ++i) {
        Run run{i, 0};
        while (i < 8 && groups[i] == 0) ++i, ++run.length;
        if (run.length > longest.length) longest = run;
    }
    return longest.length > 1 ? longest : Run();
}

void putGroups(Text& out, std::uint8_t const* bytes) {
    std::uint16_t groups[8];
    for (std::uint16_t& group : groups) {
        group = static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
        bytes += 2;
    }
    Run const zeros = longestZeroRun(groups);
    bool separated = true;
    for (int i = 0; i < 8;) {
        if (zeros.length != 0 && i == zeros.begin) {
            out.put("::");
            separated = true;
            i += zeros.length;
            continue;
        }
        if (!separated) out.put(':');
        out.putNumber(groups[i++], 16);
        separated = false;
    }
}

bool putAddress(Text& out, ip_addr_t const& address, bool dotted) {
    if (address.family == ipv4) {
        putDottedQuad(out, address.address);
    } else if (dotted && isMapped(address)) {
        out.put("::ffff:");
        putDottedQuad(out, address.address + mappedPrefixSize);
    } else if (address.family == ipv6) {
        putGroups(out, address.address);
    } else {
        return false;
    }
    return true;
}

// Whether the first bits agree.
bool samePrefix(std::uint8_t const* a, std::uint8_t const* b, unsigned int bits) {
    std::size_t const bytes = bits / 8;
    if (std::memcmp(a, b, bytes) != 0) return false;
    unsigned int const rest = bits % 8;
    return rest == 0 || ((a[bytes] ^ b[bytes]) >> (8 - rest)) == 0;
}

// Decimal digits for a number up to the limit, or a number past the limit.
std::uint32_t prefixLength(std::string_view text, std::uint32_t limit) {
    std::uint32_t const invalid = limit + 1;
    if (text.empty()) return invalid;
    std::uint32_t number = 0;
    for (char const c : text) {
        if (c < '0' || c > '9') return invalid;
        number = number * 10 + static_cast<std::uint32_t>(c - '0');
        if (number > limit) return invalid;
    }
    return number;
}

// The length that a netmask like 255.255.240.0 stands for. One with a hole is no netmask.
bool netmaskLength(char const* text, std::uint32_t& bits) {
    in_addr netmask{};
    if (::inet_pton(AF_INET, text, &netmask) != 1) return false;
    std::uint32_t const ones = ntohl(netmask.s_addr);
    std::uint32_t const zeros = ~ones;
    if ((zeros & (zeros + 1)) != 0) return false;
    bits = static_cast<std::uint32_t>(__builtin_popcount(ones));
    return true;
}

bool readMask(std::string const& text, ip_mask_t& mask) {
    std::size_t const slash = text.find('/');
    if (quill_string_to_ip(text.substr(0, slash).c_str(), &mask.address) != 1) return false;
    std::uint32_t const width = widthOf(mask.address.family);
    if (slash == std::string::npos) {
        mask.bits = width;
        return true;
    }
    std::string const length = text.substr(slash + 1);
    if (mask.address.family == ipv4 && length.find('.') != std::string::npos)
        return netmaskLength(length.c_str(), mask.bits);
    mask.bits = prefixLength(length, width);
    return mask.bits <= width;
}

}  // namespace

int quill_string_to_ip(char const* text, ip_addr_t* address) {
    if (!address) return 0;
    *address = {};
    if (!text) return 0;
    in_addr number{};
    in6_addr groups{};
    if (::inet_pton(AF_INET, text, &number) == 1 || (isIpv4Number(text) && ::inet_aton(text, &number) != 0)) {
        address->family = ipv4;
        std::memcpy(address->address, &number, sizeof number);
    } else if (::inet_pton(AF_INET6, text, &groups) == 1) {
        address->family = ipv6;
        std::memcpy(address->address, &groups, sizeof groups);
    } else {
        return 0;
    }
    return 1;
}

char* quill_ip_to_string(ip_addr_t const* address, char* buffer, size_t length, bool dotted) {
    if (!address || !buffer) return nullptr;
    Text out;
    return putAddress(out, *address, dotted) ? out.copyTo(buffer, length) : nullptr;
}

int quill_ip_compare(ip_addr_t const* a, ip_addr_t const* b) {
    if (!a || !b) return static_cast<int>(a != nullptr) - static_cast<int>(b != nullptr);
    if (a->family != b->family) return a->family < b->family ? -1 : 1;
    return std::memcmp(a->address, b->address, a->family == ipv4 ? 4 : sizeof a->address);
}

int quill_string_to_ipmask(char const* text, ip_mask_t* mask) {
    if (!mask) return -1;
    *mask = {};
    if (text && readMask(text, *mask)) return 0;
    *mask = {};
    return -1;
}

char* quill_ipmask_to_string(ip_mask_t const* mask, char* buffer, size_t length) {
    if (!mask || !buffer) return nullptr;
    Text out;
    if (!putAddress(out, mask->address, true)) return nullptr;
    out.put('/');
    out.putNumber(mask->bits, 10);
    return out.copyTo(buffer, length);
}

int quill_ipmask_compare(ip_mask_t const* a, ip_mask_t const* b) {
    if (!a || !b) return static_cast<int>(a != nullptr) - static_cast<int>(b != nullptr);
    int const byAddress = quill_ip_compare(&a->address, &b->address);
    if (byAddress != 0 || a->bits == b->bits) return byAddress;
    return a->bits < b->bits ? -1 : 1;
}

int quill_ipmask_match(ip_mask_t const* mask, ip_addr_t const* address) {
    if (!mask || !address) return 0;
    unsigned int const width = widthOf(mask->address.family);
    if (width == 0) return 0;
    unsigned int const bits = std::min(mask->bits, width);
    if (mask->address.family == address->family)
        return samePrefix(mask->address.address, address->address, bits) ? 1 : 0;
    // A private address that comes as ::ffff:10.0.0.1 is as private as 10.0.0.1.
    if (mask->address.family == ipv4 && isMapped(*address))
        return samePrefix(mask->address.address, address->address + mappedPrefixSize, bits) ? 1 : 0;
    return 0;
}

void quill_ipmask_apply_mask(ip_addr_t* address, unsigned int bits) {
    if (!address || bits >= widthOf(address->family)) return;
    std::size_t const bytes = bits / 8;
    address->address[bytes] &= static_cast<std::uint8_t>(0xff00 >> (bits % 8));
    std::fill(std::begin(address->address) + bytes + 1, std::end(address->address), std::uint8_t{0});
}
