// A large message on its way to a swap file: 64 MiB in the writes of a socket's reader.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/support/Bench.h"
#include "include2/BufferMedia"

namespace {

using namespace Quillmark;

constexpr unsigned int block = 8192;
constexpr std::size_t writes = 8192;
constexpr unsigned int cache = 64 * 1024;

// Memory, where there is some: the disk is the same for everybody.
std::string const pattern =
    (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + std::string("/benchXXXXXX");

/// Gives the size of the file; it goes before its name is known to anybody.
std::size_t spill(std::string const& bytes) {
    SwapBufferMediaOut out(cache, pattern.c_str());
    for (std::size_t i = 0; i < writes; ++i)
        out.write(reinterpret_cast<unsigned char const*>(bytes.data()), block);
    out.end();
    return out.fileMedia().length();
}

std::size_t byStdio(std::string const& bytes) {
    std::string name = pattern;
    int const descriptor = ::mkstemp(name.data());
    std::FILE* const file = descriptor == -1 ? nullptr : ::fdopen(descriptor, "w");
    if (!file) std::abort();
    std::size_t written = 0;
    for (std::size_t i = 0; i < writes; ++i) written += std::fwrite(bytes.data(), 1, block, file);
    bool const closed = std::fclose(file) == 0;
    ::unlink(name.c_str());
    return closed ? written : 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string const path = "spill 64 MiB in 8 KiB writes";
    std::string const bytes = bench::Random(1).bytes(block);
    bench::agree(spill(bytes) == block * writes && byStdio(bytes) == block * writes, path);
    auto const size = static_cast<std::int64_t>(block * writes);
    bench::contestant(
        path, "quillmark", [&bytes] { return spill(bytes); }, size);
    bench::contestant(
        path, "fwrite", [&bytes] { return byStdio(bytes); }, size);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
