#include <string.h>

#include "include2/quillmark.h"

/* Each gives the empty text, or the first expectation that did not hold. */
#define EXPECT(condition) \
    if (!(condition)) return #condition

char const* md5HasherOfCDigestsABC(void);
char const* md5HasherOfCRefusesWhatItMust(void);
char const* md5HasherOfCCutsTheText(void);
char const* md5HasherOfCScrambles(void);

static unsigned char const abc[] = {'a', 'b', 'c'};

char const* md5HasherOfCDigestsABC(void) {
    static char text[QUILL_MD5_HEX_STRING_SIZE];
    quill_md5_hasher* hasher = quill_md5_hasher_create();
    EXPECT(hasher != NULL);
    EXPECT(quill_md5_hasher_update(hasher, abc, 1) == 0);
    EXPECT(quill_md5_hasher_update(hasher, abc + 1, 2) == 0);
    EXPECT(quill_md5_hasher_update(hasher, NULL, 0) == 0);
    EXPECT(quill_md5_hasher_finalize(hasher) == 0);
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, text, sizeof text) == 0);
    quill_md5_hasher_destroy(hasher);
    return text;
}

char const* md5HasherOfCRefusesWhatItMust(void) {
    static unsigned char const untouched[17] = "................";
    unsigned char digest[17] = "................";
    char text[40] = "untouched";
    quill_md5_hasher* hasher = quill_md5_hasher_create();
    EXPECT(quill_md5_hasher_update(NULL, abc, 3) == -1);
    EXPECT(quill_md5_hasher_finalize(NULL) == -1);
    EXPECT(quill_md5_hasher_get_digest(NULL, digest, 16) == -1);
    EXPECT(quill_md5_hasher_get_digest_hex_string(NULL, text, 33) == -1);
    EXPECT(quill_md5_hasher_xor_digest(NULL, 1) == -1);
    quill_md5_hasher_destroy(NULL);

    EXPECT(quill_md5_hasher_update(hasher, NULL, 1) == -1);
    EXPECT(quill_md5_hasher_xor_digest(hasher, 1) == -1);
    EXPECT(quill_md5_hasher_finalize(hasher) == 0);
    EXPECT(quill_md5_hasher_finalize(hasher) == -1);
    EXPECT(quill_md5_hasher_update(hasher, abc, 3) == -1);

    EXPECT(quill_md5_hasher_get_digest(hasher, NULL, 16) == -1);
    EXPECT(quill_md5_hasher_get_digest(hasher, digest, 0) == -1);
    EXPECT(quill_md5_hasher_get_digest(hasher, digest, 15) == -1);
    EXPECT(memcmp(digest, untouched, sizeof digest) == 0);
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, NULL, 33) == -1);
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, text, 0) == -1);
    EXPECT(strcmp(text, "untouched") == 0);
    quill_md5_hasher_destroy(hasher);
    return "";
}

char const* md5HasherOfCCutsTheText(void) {
    char text[40] = "untouched";
    quill_md5_hasher* hasher = quill_md5_hasher_create();
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, text, sizeof text) == 0);
    EXPECT(strcmp(text, "") == 0);
    EXPECT(quill_md5_hasher_finalize(hasher) == 0);
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, text, 33) == 0);
    EXPECT(strcmp(text, "d41d8cd98f00b204e9800998ecf8427e") == 0);
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, text, 10) == 0);
    EXPECT(strcmp(text, "d41d8cd98") == 0);
    EXPECT(quill_md5_hasher_get_digest_hex_string(hasher, text, 1) == 0);
    EXPECT(strcmp(text, "") == 0);
    quill_md5_hasher_destroy(hasher);
    return "";
}

char const* md5HasherOfCScrambles(void) {
    unsigned char before[16];
    unsigned char after[17] = {0};
    quill_md5_hasher* hasher = quill_md5_hasher_create();
    after[16] = '.';
    EXPECT(quill_md5_hasher_get_digest(hasher, before, 16) == 0);
    for (int i = 0; i < 16; ++i) EXPECT(before[i] == 0);
    EXPECT(quill_md5_hasher_finalize(hasher) == 0);
    EXPECT(quill_md5_hasher_get_digest(hasher, before, 16) == 0);
    EXPECT(memcmp(before, "\xd4\x1d\x8c\xd9\x8f\x00\xb2\x04\xe9\x80\x09\x98\xec\xf8\x42\x7e", 16) == 0);
    EXPECT(quill_md5_hasher_xor_digest(hasher, 0) == 0);
    EXPECT(quill_md5_hasher_get_digest(hasher, after, 17) == 0);
    for (int i = 0; i < 16; i += 4) EXPECT(memcmp(after + i, before, 4) == 0);
    EXPECT(after[16] == '.');
    quill_md5_hasher_destroy(hasher);
    return "";
}
