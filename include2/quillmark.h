/* Quillmark's flat C interface. Plain C11; the sections follow the C++ headers that do the work.
 *
 * No function lets an exception out: a failure is the value that each comment names. Whatever a
 * function allocates for the caller goes back through the function that its comment names.
 */
#ifndef QUILLMARK_QUILLMARK_H
#define QUILLMARK_QUILLMARK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/quill_ip.h"

#if defined(__GNUC__)
#define QUILL_EXPORT __attribute__((visibility("default")))
#else
#define QUILL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- MD5 ------------------------------------------------------------------------------------ */

/** A digest in the making (RFC 1321). One thread at a time. */
typedef void quill_md5_hasher;

#define QUILL_MD5_DIGEST_SIZE 16u     /**< bytes */
#define QUILL_MD5_HEX_STRING_SIZE 33u /**< digits and the 0 behind them */

/** A new hasher, for quill_md5_hasher_destroy; null when there is no memory. */
QUILL_EXPORT quill_md5_hasher* quill_md5_hasher_create(void);
/** Frees a hasher. Null is left alone. */
QUILL_EXPORT void quill_md5_hasher_destroy(quill_md5_hasher* hasher);

/* All others give 0, or -1 for a null hasher and for what their comments name. */

/** Adds @p length bytes; -1 after quill_md5_hasher_finalize, and for null data with a length. */
QUILL_EXPORT int quill_md5_hasher_update(quill_md5_hasher* hasher, unsigned char const* data,
                                         unsigned int length);
/** Finishes the digest; -1 the second time. */
QUILL_EXPORT int quill_md5_hasher_finalize(quill_md5_hasher* hasher);
/** Writes the 16 bytes of the digest, zeros when it is not finished; -1 and nothing written for a null
 *  @p output and for a @p size below 16. */
QUILL_EXPORT int quill_md5_hasher_get_digest(quill_md5_hasher* hasher, unsigned char* output,
                                             unsigned int size);
/** Writes the digest in hexadecimal, cut to size - 1 digits, always terminated; the empty text when it
 *  is not finished. -1 for a null @p output and a @p size of 0. */
QUILL_EXPORT int quill_md5_hasher_get_digest_hex_string(quill_md5_hasher* hasher, char* output,
                                                        unsigned int size);
/** Scrambles a finished digest: its first 32-bit word becomes word ^ key, the other three the former
 *  first word. -1 when it is not finished. */
QUILL_EXPORT int quill_md5_hasher_xor_digest(quill_md5_hasher* hasher, unsigned int key);

/* ---- Base64 files --------------------------------------------------------------------------- */

/* Base64 (RFC 2045) of whole files: encode writes lines of 76 characters that end in a line feed, decode
 * takes lines of any length. The output is made or emptied; what was written before a failure stays.
 *
 * 0 on success. -1 when a path is null, a file cannot be opened, input and output are one file (which is
 * then left alone), the text is bad, or the output cannot be written out completely.
 * decode opens its output first, so a missing input leaves an empty output. */
QUILL_EXPORT int quill_file_base64_encode(char const* inputPath, char* outputPath);
QUILL_EXPORT int quill_file_base64_decode(char const* inputPath, char const* outputPath);

/* ---- Mail addresses ------------------------------------------------------------------------- */

/** One mail address. Texts that it gives belong to it and live as long as it does. */
typedef struct quill_emailaddress quill_emailaddress;

/** A node of a list of addresses, which owns them. */
typedef struct quill_emailaddress_container {
    quill_emailaddress* address;               /**< may be null */
    struct quill_emailaddress_container* next; /**< null in the last node */
} quill_emailaddress_container;

/** The smallest address of a header value, its local part in lower case.
 *  @return an address for quill_emailaddress_destroy; null for null and for text without an address */
QUILL_EXPORT quill_emailaddress* quill_emailaddress_create(char const* text);

/** Frees an address. Null is left alone. */
QUILL_EXPORT void quill_emailaddress_destroy(quill_emailaddress* address);

/** The addresses of a header value, local parts in lower case, in ascending order, each once.
 *  @param count  takes their number; may be null. Null text leaves it alone
 *  @return an array for free(), each element for quill_emailaddress_destroy. Null when there is no
 *          address, for null text, and when the array cannot be allocated: the count then is what was found */
QUILL_EXPORT quill_emailaddress** quill_emailaddress_find(char const* text, int* count);

/** "Display name <local@domain>", or the address alone. Null for null only. */
QUILL_EXPORT char const* quill_emailaddress_get_string(quill_emailaddress* address);

/* One part of an address, terminated, possibly empty. Null for null. */

/** "local@domain", or the local part alone. */
QUILL_EXPORT char const* quill_emailaddress_get_email_address(quill_emailaddress* address);
QUILL_EXPORT char const* quill_emailaddress_get_local(quill_emailaddress* address);
/** The same as quill_emailaddress_get_local. */
QUILL_EXPORT char const* quill_emailaddress_to_username(quill_emailaddress* address);
QUILL_EXPORT char const* quill_emailaddress_get_domain(quill_emailaddress* address);
/** The display name as written, with its quotes. */
QUILL_EXPORT char const* quill_emailaddress_get_personal(quill_emailaddress* address);

/** A new list: one node without an address, for quill_emailaddress_container_destroy. */
QUILL_EXPORT quill_emailaddress_container* quill_emailaddress_container_create(void);

/** Puts @p address at the end of @p list, which owns it from then on. Walks the list, so the time grows
 *  with its length. Does nothing when either is null. */
QUILL_EXPORT void quill_emailaddress_container_append(quill_emailaddress_container* list,
                                                      quill_emailaddress* address);

/** Frees a list with its addresses and sets the caller's pointer to null. Null is left alone. */
QUILL_EXPORT void quill_emailaddress_container_destroy(quill_emailaddress_container** list);

/* ---- Private addresses ---------------------------------------------------------------------- */

/** @param address  an IPv4 address in network order, as in an in_addr
 *  @return 1 for an address in 10/8, 127/8, 169.254/16, 172.16/12 or 192.168/16; 0 for any other and
 *          on failure. Any thread. */
QUILL_EXPORT int quill_int_is_private_ip_address(unsigned int address);

/* ---- DNS ------------------------------------------------------------------------------------ */

/* ---- Host addresses ------------------------------------------------------------------------- */

/* ---- The local request/response protocol ---------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif
