/* The appliance's address helper, as the library calls it. Plain C, safe from any thread.
 *
 * MIND THE RESULTS, which are uneven:
 *   quill_string_to_ip      1 IS SUCCESS, anything else is failure
 *   quill_string_to_ipmask  0 IS SUCCESS, anything else is failure
 *   quill_..._to_string     THE BUFFER ITSELF IS SUCCESS, anything else is failure
 *   quill_..._compare       negative, zero, positive
 *   quill_ipmask_match      1 for a match
 *
 * Null is no crash: a null text, buffer or record is a failure, compares before every record, matches
 * nothing and is left alone.
 */
#ifndef QUILLMARK_PLATFORM_QUILL_IP_H
#define QUILLMARK_PLATFORM_QUILL_IP_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "platform/quill_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One address: 20 bytes. */
typedef struct ip_addr_t {
    uint32_t family;     /**< 2 is IPv4, 10 is IPv6 (AF_INET, AF_INET6); 0 is no address */
    uint8_t address[16]; /**< network byte order; IPv4 fills the first 4 bytes, the rest is zero */
} ip_addr_t;

/** One network: 24 bytes. */
typedef struct ip_mask_t {
    ip_addr_t address; /**< host bits are kept as they were given */
    uint32_t bits;     /**< the length of the prefix: 0 to 32, or 0 to 128 */
} ip_mask_t;

/** Reads one address out of a terminated text, which holds nothing else: a dotted quad or an RFC 4291
 *  text as inet_pton takes them; or an IPv4 address as inet_aton takes it, with octal and hexadecimal
 *  parts ("0x7f.0.0.1") or as one number ("2130706433"), of four parts or one and of at least six
 *  characters, so that "1.2" and "25" are no addresses. No scope ("%eth0") and no port.
 *  @return 1 FOR SUCCESS; anything else is failure and leaves @p address zeroed. */
QUILL_PLATFORM_EXPORT int quill_string_to_ip(char const* text, ip_addr_t* address);

/** Writes the text of an address, terminated, in the form of RFC 5952: small letters, no leading
 *  zeros, "::" for the first of the longest runs of two or more zero groups.
 *  @param length  the size of @p buffer in bytes; 46 always suffice
 *  @param dotted  true prints an IPv4-mapped IPv6 address as ::ffff:a.b.c.d, false in hexadecimal groups
 *  @return @p buffer FOR SUCCESS; null for a family other than 2 and 10 or a buffer that is too small,
 *  which stays as it was */
QUILL_PLATFORM_EXPORT char* quill_ip_to_string(ip_addr_t const* address, char* buffer, size_t length,
                                               bool dotted);

/** @return negative, zero or positive: no family before IPv4 before IPv6, then by bytes, of which IPv4
 *  has 4. */
QUILL_PLATFORM_EXPORT int quill_ip_compare(ip_addr_t const* a, ip_addr_t const* b);

/** Reads "address/length", for IPv4 also "address/netmask" as in 10.0.0.0/255.0.0.0 (a netmask with a hole
 *  is refused); an address alone is its full length. The address is one for quill_string_to_ip, the length
 *  is decimal digits, 0 to 32 or 0 to 128. Host bits are kept.
 *  @return 0 FOR SUCCESS; anything else is failure and leaves @p mask zeroed. */
QUILL_PLATFORM_EXPORT int quill_string_to_ipmask(char const* text, ip_mask_t* mask);

/** Writes "address/length", terminated, the address as quill_ip_to_string does with dotted true. The length
 *  is printed as it stands, even beyond the width of the family.
 *  @param length  the size of @p buffer in bytes; 48 suffice for a valid mask, 51 for every one
 *  @return @p buffer FOR SUCCESS; null for a family other than 2 and 10 or a buffer that is too small,
 *  which stays as it was */
QUILL_PLATFORM_EXPORT char* quill_ipmask_to_string(ip_mask_t const* mask, char* buffer, size_t length);

/** @return negative, zero or positive: by address, then by length of the prefix. */
QUILL_PLATFORM_EXPORT int quill_ipmask_compare(ip_mask_t const* a, ip_mask_t const* b);

/** @return 1 when the address lies in the network, which takes the same family, 2 or 10; an
 *  IPv4-mapped IPv6 address also lies in the IPv4 networks of the address that it maps, so that a private
 *  address does not slip by in that dress. A length beyond the width counts as the width. 0 otherwise. */
QUILL_PLATFORM_EXPORT int quill_ipmask_match(ip_mask_t const* mask, ip_addr_t const* address);

/** Clears the bits of @p address beyond the first @p bits, in place. Null, an address without
 *  family, and a count of the width or more change nothing. */
QUILL_PLATFORM_EXPORT void quill_ipmask_apply_mask(ip_addr_t* address, unsigned int bits);

#ifdef __cplusplus
}
#endif

#endif
