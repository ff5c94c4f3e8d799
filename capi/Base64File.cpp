#include "media/Base64File.h"

#include "capi/Guard.h"
#include "include2/quillmark.h"

using namespace Quillmark;

int quill_file_base64_encode(char const* inputPath, char* outputPath) {
    return guarded(-1, [&] {
        base64EncodeFile(inputPath, outputPath);
        return 0;
    });
}

int quill_file_base64_decode(char const* inputPath, char const* outputPath) {
    return guarded(-1, [&] {
        base64DecodeFile(inputPath, outputPath);
        return 0;
    });
}
