/* A C caller that asks for private addresses. */

#include <arpa/inet.h>

#include "include2/quillmark.h"

int isPrivateFromC(char const* text);

int isPrivateFromC(char const* text) {
    struct in_addr address;
    if (inet_pton(AF_INET, text, &address) != 1) return -1;
    return quill_int_is_private_ip_address(address.s_addr);
}
