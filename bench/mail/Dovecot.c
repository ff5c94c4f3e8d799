#include "Dovecot.h"

/* Dovecot's headers want the configuration that it was built with. */
#define HAVE_CONFIG_H
#undef _GNU_SOURCE
#undef _FILE_OFFSET_BITS
#include <lib.h>
#include <message-address.h>

unsigned int dovecot_parse(char const* text, size_t size, dovecot_found found, void* context) {
    static pool_t pool;
    unsigned int count = 0;
    struct message_address const* address;
    if (pool == NULL) {
        lib_init();
        pool = pool_alloconly_create("addresses", 1 << 16);
    }
    for (address = message_address_parse(pool, (unsigned char const*)text, size, UINT_MAX, 0);
         address != NULL; address = address->next) {
        if (found != NULL) {
            found(context, address->name, address->mailbox, address->domain);
        }
        ++count;
    }
    p_clear(pool);
    return count;
}
