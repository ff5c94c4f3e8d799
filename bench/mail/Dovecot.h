/* Dovecot's address parser, in a C of its own: its headers are no C++. */
#ifndef QUILLMARK_BENCH_MAIL_DOVECOT_H
#define QUILLMARK_BENCH_MAIL_DOVECOT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Called for each address; a name that is not there is null. */
typedef void (*dovecot_found)(void* context, char const* name, char const* mailbox, char const* domain);

/* Parses into a pool that is emptied and used again. Returns how many addresses there were; with `found`
 * each of them is handed over. */
unsigned int dovecot_parse(char const* text, size_t size, dovecot_found found, void* context);

#ifdef __cplusplus
}
#endif

#endif
