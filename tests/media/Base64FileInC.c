/* A daemon that is written in C. */

#include "include2/quillmark.h"

int encodeInC(char const* input, char* output);
int decodeInC(char const* input, char const* output);

int encodeInC(char const* input, char* output) {
    return quill_file_base64_encode(input, output);
}

int decodeInC(char const* input, char const* output) {
    return quill_file_base64_decode(input, output);
}
