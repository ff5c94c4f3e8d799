#include "include2/quillmark.h"

#include "capi/Guard.h"
#include "include2/Md5"

#include <cstdio>
#include <cstring>
#include <new>

using Quillmark::guarded;
using Quillmark::Md5Hasher;

namespace {

/// What the C interface hands out is the C++ handle itself.
Md5Hasher& asHasher(quill_md5_hasher* hasher) {
    return *static_cast<Md5Hasher*>(hasher);
}

}  // namespace

quill_md5_hasher* quill_md5_hasher_create(void) {
    try {
        return guarded<quill_md5_hasher*>(nullptr, [] { return new Md5Hasher; });
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

int quill_md5_hasher_update(quill_md5_hasher* hasher, unsigned char const* data, unsigned int length) {
    if (!hasher) return -1;
    return guarded(-1, [&] { return asHasher(hasher).update(data, length), 0; });
}

int quill_md5_hasher_finalize(quill_md5_hasher* hasher) {
    if (!hasher) return -1;
    return guarded(-1, [&] { return asHasher(hasher).finalize(), 0; });
}

int quill_md5_hasher_get_digest(quill_md5_hasher* hasher, unsigned char* output, unsigned int size) {
    if (!hasher || !output || size < QUILL_MD5_DIGEST_SIZE) return -1;
    return guarded(-1, [&] {
        Quillmark::Buffer const digest = asHasher(hasher).digest();
        std::memcpy(output, digest.data(), QUILL_MD5_DIGEST_SIZE);
        return 0;
    });
}

int quill_md5_hasher_get_digest_hex_string(quill_md5_hasher* hasher, char* output, unsigned int size) {
    if (!hasher || !output || size == 0) return -1;
    return guarded(-1, [&] {
        std::snprintf(output, size, "%s", asHasher(hasher).digestAsHexString().c_str());
        return 0;
    });
}

int quill_md5_hasher_xor_digest(quill_md5_hasher* hasher, unsigned int key) {
    if (!hasher) return -1;
    return guarded(-1, [&] { return asHasher(hasher).xorDigest(key), 0; });
}

void quill_md5_hasher_destroy(quill_md5_hasher* hasher) {
    delete static_cast<Md5Hasher*>(hasher);
}
