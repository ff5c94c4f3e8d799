/* The flat interface: C callers get the same answers. */
#include <include2/quillmark.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) {
    int count = 0;
    quill_emailaddress** found = quill_emailaddress_find("b@x.example, \"A. Nother\" <A@x.example>", &count);
    for (int i = 0; i < count; ++i) {
        printf("%s is %s at %s\n", quill_emailaddress_get_string(found[i]),
               quill_emailaddress_get_local(found[i]), quill_emailaddress_get_domain(found[i]));
        quill_emailaddress_destroy(found[i]);
    }
    free(found);

    char digest[33];
    quill_md5_hasher* hasher = quill_md5_hasher_create();
    quill_md5_hasher_update(hasher, (unsigned char const*)"abc", 3);
    quill_md5_hasher_finalize(hasher);
    quill_md5_hasher_get_digest_hex_string(hasher, digest, sizeof digest);
    quill_md5_hasher_destroy(hasher);
    printf("%s\n", digest);

    printf("10.1.2.3 private: %d\n", quill_int_is_private_ip_address(inet_addr("10.1.2.3")));

    char question[64];
    quill_dns_get_ip_querystring("192.0.2.25", question, sizeof question);
    printf("whose address is it? %s %s\n", question, quill_dns_type_name(12));
    return 0;
}
