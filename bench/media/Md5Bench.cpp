// MD5 of a short key and of a large attachment.

#include "include2/Md5"

#define OPENSSL_SUPPRESS_DEPRECATED  // MD5(), which is what people call
#include <nettle/md5.h>
#include <openssl/md5.h>

#include <array>
#include <cstring>
#include <string>

#include "bench/support/Bench.h"

namespace {

using namespace Quillmark;
using Digest = std::array<unsigned char, 16>;

void compare(std::string const& path, std::string const& bytes) {
    auto const* const data = reinterpret_cast<unsigned char const*>(bytes.data());
    std::size_t const size = bytes.size();
    auto const ours = [data, size] {
        Md5Hasher hasher;
        hasher.update(data, static_cast<unsigned int>(size));
        hasher.finalize();
        return hasher.digest();
    };
    auto const openssl = [data, size] {
        Digest digest;
        MD5(data, size, digest.data());
        return digest;
    };
    auto const nettle = [data, size] {
        Digest digest;
        md5_ctx context;
        md5_init(&context);
        md5_update(&context, size, data);
        md5_digest(&context, digest.size(), digest.data());
        return digest;
    };
    Buffer const expected = ours();
    bench::agree(std::memcmp(expected.data(), openssl().data(), 16) == 0, path + ", OpenSSL");
    bench::agree(std::memcmp(expected.data(), nettle().data(), 16) == 0, path + ", nettle");
    auto const count = static_cast<std::int64_t>(size);
    bench::contestant(path, "quillmark", ours, count);
    bench::contestant(path, "OpenSSL MD5()", openssl, count);
    bench::contestant(path, "nettle", nettle, count);
}

}  // namespace

int main(int argc, char** argv) {
    std::string const key = bench::Random(1).bytes(64);
    std::string const attachment = bench::Random(2).bytes(std::size_t{1} << 20);
    compare("MD5, 64 B", key);
    compare("MD5, 1 MiB", attachment);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
