// The address helper.

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/AddressText.h"
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
bool isIpv4Number(char const* text) {
    std::size_t length = 0, dots = 0;
    for (; text[length] != '\0'; ++length) {
        char const c = text[length];
        if (c == '.')
            ++dots;
        else if (!Quillmark::isHexDigit(c) && c != 'x' && c != 'X')
            return false;
    }
    return length > 5 && (dots == 0 || dots == 3);
}

// Every form of an address but the dotted quad.
[[gnu::noinline]] bool readOtherForms(char const* text, ip_addr_t& address) {
    in_addr number{};
    if (Quillmark::readGroups(text, address.address)) {
        address.family = ipv6;
    } else if (isIpv4Number(text) && ::inet_aton(text, &number) != 0) {
        address.family = ipv4;
        std::memcpy(address.address, &number, sizeof number);
    }
    return address.family != 0;
}

// The longest text: of an IPv6 mask with a length of ten digits.
using Text = std::array<char, Quillmark::longestGroups + 1 + 10 + 1>;

constexpr std::string_view mappedText{"::ffff:"};

// Writes the text of an address, of which the caller has excluded that it has none.
// @return its length
std::size_t writeAddress(ip_addr_t const& address, bool dotted, char* text) {
    if (address.family == ipv4) return Quillmark::writeDottedQuad(address.address, text);
    if (!dotted || !isMapped(address)) return Quillmark::writeGroups(address.address, text);
    std::memcpy(text, mappedText.data(), mappedText.size());
    return mappedText.size() +
           Quillmark::writeDottedQuad(address.address + mappedPrefixSize, text + mappedText.size());
}

// Copies a text, terminated, and gives the buffer; a buffer that is too small stays as it was.
char* copyText(Text const& text, std::size_t length, char* buffer, std::size_t size) {
    if (size <= length) return nullptr;
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return buffer;
}

std::uint32_t wordAt(std::uint8_t const* bytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return ntohl(word);
}

// Whether the first bits agree.
bool samePrefix(std::uint8_t const* a, std::uint8_t const* b, unsigned int bits) {
    for (; bits >= 32; bits -= 32, a += 4, b += 4)
        if (wordAt(a) != wordAt(b)) return false;
    return bits == 0 || ((wordAt(a) ^ wordAt(b)) >> (32 - bits)) == 0;
}

// Decimal digits for a number up to the limit, or a number past the limit.
std::uint32_t prefixLength(char const* text, std::uint32_t limit) {
    std::uint32_t const invalid = limit + 1;
    if (*text == '\0') return invalid;
    std::uint32_t number = 0;
    for (; *text != '\0'; ++text) {
        if (*text < '0' || *text > '9') return invalid;
        number = number * 10 + static_cast<std::uint32_t>(*text - '0');
        if (number > limit) return invalid;
    }
    return number;
}

// The length that a netmask like 255.255.240.0 stands for. One with a hole is no netmask.
bool netmaskLength(char const* text, std::uint32_t& bits) {
    std::uint8_t netmask[4];
    if (!Quillmark::readDottedQuad(text, netmask)) return false;
    std::uint32_t const ones = wordAt(netmask);
    std::uint32_t const zeros = ~ones;
    if ((zeros & (zeros + 1)) != 0) return false;
    bits = static_cast<std::uint32_t>(__builtin_popcount(ones));
    return true;
}

bool readMask(char const* text, ip_mask_t& mask) {
    char const* const slash = std::strchr(text, '/');
    if (!slash) {
        if (quill_string_to_ip(text, &mask.address) != 1) return false;
        mask.bits = widthOf(mask.address.family);
        return true;
    }
    if (quill_string_to_ip(std::string(text, slash).c_str(), &mask.address) != 1) return false;
    char const* const length = slash + 1;
    if (mask.address.family == ipv4 && netmaskLength(length, mask.bits)) return true;
    std::uint32_t const width = widthOf(mask.address.family);
    mask.bits = prefixLength(length, width);
    return mask.bits <= width;
}

}  // namespace

int quill_string_to_ip(char const* text, ip_addr_t* address) {
    if (!address) return 0;
    *address = {};
    if (!text) return 0;
    if (!Quillmark::readDottedQuad(text, address->address)) return readOtherForms(text, *address) ? 1 : 0;
    address->family = ipv4;
    return 1;
}

char* quill_ip_to_string(ip_addr_t const* address, char* buffer, size_t length, bool dotted) {
    if (!address || !buffer || widthOf(address->family) == 0) return nullptr;
    if (address->family == ipv4 && length > Quillmark::longestDottedQuad) {
        Quillmark::writeDottedQuad(address->address, buffer);
        return buffer;
    }
    Text text;
    return copyText(text, writeAddress(*address, dotted, text.data()), buffer, length);
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
    if (!mask || !buffer || widthOf(mask->address.family) == 0) return nullptr;
    Text text;
    char* end = text.data() + writeAddress(mask->address, true, text.data());
    *end++ = '/';
    end = std::to_chars(end, text.data() + text.size(), mask->bits).ptr;
    return copyText(text, static_cast<std::size_t>(end - text.data()), buffer, length);
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
