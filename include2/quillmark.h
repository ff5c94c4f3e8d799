/* Quillmark's flat C interface. Plain C11; the sections follow the C++ headers that do the work.
 *
 * No function lets an exception out, but for a lack of memory (std::bad_alloc) where no failure value is
 * named for it: a failure is the value that each comment names. Whatever a function allocates for the
 * caller goes back through the function that its comment names.
 */
#ifndef QUILLMARK_QUILLMARK_H
#define QUILLMARK_QUILLMARK_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

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
 * 0 on success. -1 when a path is null, a file cannot be opened, the input cannot be read, input and output
 * are one file (which is then left alone), the text is bad, or the output cannot be written out completely.
 * decode opens its output first, so a missing input leaves an empty output; encode then leaves it alone. */
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
 *  @return an address for quill_emailaddress_destroy; null for null and for text without an address. Blanks,
 *          a comma or a dot without anything else are the empty address, which is not null. */
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

/** The answer to one question, or its failure. Arrays are the caller's; texts and bytes in them belong to
 *  the query and live until quill_dns_query_release. One thread at a time. */
typedef void quill_dns_query;

/** One entry of the question section: 96 bytes. */
typedef struct quill_dns_question {
    uint16_t type;         /**< the number of RFC 1035 */
    uint16_t record_class; /**< the number of RFC 1035 */
    uint32_t reserved;
    char const* name; /**< without the last dot; never null */
    unsigned char reserved2[80];
} quill_dns_question;

/** One record: 96 bytes. What its type has no use for is 0 or the empty text; no pointer is null. */
typedef struct quill_dns_record {
    uint16_t type;         /**< the number of RFC 1035 */
    uint16_t record_class; /**< the number of RFC 1035 */
    uint32_t reserved;
    char const* name; /**< without the last dot */
    uint32_t ttl;     /**< seconds */
    uint32_t reserved2;
    char const* value; /**< the address, the target, the exchange (MX) or all the text (TXT) */
    uint32_t mx_rank;  /**< the preference of an MX record */
    uint32_t reserved3;
    char const* mname; /**< SOA: the primary name server */
    char const* rname; /**< SOA: the mailbox, as a name */
    uint32_t serial;
    uint32_t refresh; /**< seconds */
    uint32_t retry;   /**< seconds */
    uint32_t expire;  /**< seconds */
    uint32_t minimum; /**< seconds */
    uint32_t reserved4;
    unsigned char const* rdata; /**< the data as received */
    uint64_t rdata_length;      /**< bytes */
} quill_dns_record;

/** Asks a question and waits for the answer. A truncated answer is not asked again over TCP.
 *  @param type,record_class  the numbers of RFC 1035
 *  @param name    asked for as it stands
 *  @param server  whom to ask: an address, or a name with a registered domain. It stays the server of the
 *                 calling thread. Null, the empty text and a @p port below 1 leave the thread's server;
 *                 so does a name without an address, which is logged.
 *  @return a query for quill_dns_query_release, also when the question failed: quill_dns_query_get_error
 *          says so. Null for a null name and when the resolver cannot be used. */
QUILL_EXPORT quill_dns_query* quill_dns_query_create(int type, int record_class, char const* name,
                                                     char const* server, int port);
/** Frees a query. Null is left alone. */
QUILL_EXPORT void quill_dns_query_release(quill_dns_query* query);

/* The sections. Each gives the number of entries, and -1, nothing stored, for null and for a question that
 * failed. The array is for free(); null when there are no entries, or no memory: the count is given all
 * the same. Where to store it may be null. */
QUILL_EXPORT int quill_dns_query_get_queries(quill_dns_query* query, quill_dns_question** questions);
QUILL_EXPORT int quill_dns_query_get_answers(quill_dns_query* query, quill_dns_record** records);
QUILL_EXPORT int quill_dns_query_get_nameserver_records(quill_dns_query* query, quill_dns_record** records);
QUILL_EXPORT int quill_dns_query_get_additional_records(quill_dns_query* query, quill_dns_record** records);

/** Stores 1 or 0 for "the server is an authority for the name" (AA) and "the answer was cut" (TC). Either
 *  pointer may be null.
 *  @return 0, or -1 and nothing stored for null and for a question that failed */
QUILL_EXPORT int quill_dns_query_get_flags(quill_dns_query* query, int* authoritative, int* truncated);

/** Stores why a question failed, as h_errno, and the system's text for it, which lasts. Either pointer may
 *  be null.
 *  @return 0 for a question that failed; -1 and nothing stored for null and for one that did not */
QUILL_EXPORT int quill_dns_query_get_error(quill_dns_query* query, int* error, char const** text);

/** Writes the answer for people. Null prints as such; a null @p out is left alone. */
QUILL_EXPORT void quill_dns_query_print(quill_dns_query* query, FILE* out);

/** "IN" for 1; "Unknown" if there is no name. The text lasts. */
QUILL_EXPORT char const* quill_dns_class_name(int record_class);
/** "MX" for 15; "Unknown" if there is no name. The text lasts. */
QUILL_EXPORT char const* quill_dns_type_name(int type);

/** Gives the address of the calling thread's first server, cut to size - 1 characters and always
 *  terminated; the rest of the buffer is zeros. Without a buffer, or with a @p size below 1, only the port.
 *  @param port  takes the port of the first IPv4 server, also where the address is IPv6; may be null
 *  @return 0 */
QUILL_EXPORT int quill_dns_get_serverinfo(char* buffer, int size, int* port);

/** @return 1 for a host name with a registered domain, 0 for an IP literal, -1 for anything else */
QUILL_EXPORT int quill_dns_validate_hostname(char const* name);

/** Gives the name for a reverse lookup, without the last dot ("1.2.0.192.in-addr.arpa" for 192.0.2.1), cut
 *  to size - 1 characters and always terminated; the rest of the buffer is zeros.
 *  @return 0; -1 and nothing written for null, for text that is no address and without room */
QUILL_EXPORT int quill_dns_get_ip_querystring(char const* address, char* buffer, int size);

/* ---- Host addresses ------------------------------------------------------------------------- */

/** The addresses of a host, IPv4 before IPv6, as its name servers give them.
 *  @param addresses  takes the records. THE NAME "localhost", in capitals or not, WRITES ITS ONE RECORD
 *                    (127.0.0.1) WHATEVER max AND family ARE: have room for one. A slot behind the last
 *                    record that is counted may hold an address of another family.
 *  @param max        the room, in records
 *  @param family     2 for IPv4 only, 10 for IPv6 only, below 0 for both
 *  @return the number of records; 0 for null arguments, for a host without addresses and on failure */
QUILL_EXPORT int quill_hostname_to_ipaddress_list(char const* name, ip_addr_t* addresses, int max,
                                                  int family);

/* ---- The local request/response protocol ---------------------------------------------------- */

/* One connection carries one request to a daemon and any number of answers. Messages are a type, the number
 * of payload bytes and the payload, in the machine's own byte order: both ends are on one machine.
 * A failure that a function gives as -1 or null is in the log, except an expired time-out of ipc_read. */

/** The head of a message. Its payload follows in the same allocation, at p + 1. */
typedef struct ipc_pdu {
    uint32_t type;   /**< 1 asks a daemon to send the message back */
    uint32_t length; /**< payload bytes that follow */
} ipc_pdu;

/** An open connection. One thread at a time. */
typedef struct ipc_connection ipc_connection;

struct sockaddr;

/** Connects, no longer than 30 seconds; later calls wait as long.
 *  @param address  a struct sockaddr_in; null for 127.0.0.1, port 29001
 *  @return a connection for ipc_close; null on failure, and for any other family than IPv4 */
QUILL_EXPORT ipc_connection* ipc_connect(struct sockaddr const* address);

/** Sends a message: the head and length bytes of payload.
 *  @return bytes sent, 8 for the head included, less when 30 seconds passed without progress; 0 when
 *          either pointer is null; -1 on failure */
QUILL_EXPORT int ipc_write(ipc_connection* connection, ipc_pdu* pdu);

/** Receives one message.
 *  @param pdu  length is the room for payload. SET IT BEFORE EACH CALL: afterwards it is what the sender
 *              says, which is more than is held when the room was too small. The rest is dropped then.
 *  @return bytes held, 8 for the head included; 0 when the peer ended before the message did, or either
 *          pointer is null; -1 after 30 seconds and on failure. After 0 and -1 the connection is of no
 *          further use. */
QUILL_EXPORT int ipc_read(ipc_connection* connection, ipc_pdu* pdu);

/** Closes and frees a connection. Null is left alone. */
QUILL_EXPORT void ipc_close(ipc_connection* connection);

#ifdef __cplusplus
}
#endif

#endif
