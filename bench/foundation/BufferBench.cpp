// A buffer that grows: by bytes, by the lines of an encoder, by the blocks of a reader.

#include "include2/Buffer"

#include <algorithm>
#include <string>

#include "bench/support/Bench.h"

namespace {

using namespace Quillmark;

constexpr std::size_t mebibyte = std::size_t{1} << 20;

std::string_view view(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

std::string_view view(std::string const& text) {
    return text;
}

/// Appends all of @p bytes and gives the result.
template <class Container>
auto byByte(std::string const& bytes) {
    return [&bytes] {
        Container result;
        for (char const c : bytes) {
            if constexpr (std::is_same_v<Container, Buffer>)
                result.append(static_cast<unsigned char>(c));
            else
                result.push_back(c);
        }
        return result;
    };
}

template <class Container>
auto byBlocks(std::string const& bytes, std::size_t block) {
    using Byte = std::conditional_t<std::is_same_v<Container, Buffer>, unsigned char, char>;
    return [&bytes, block] {
        Container result;
        auto const* const data = reinterpret_cast<Byte const*>(bytes.data());
        for (std::size_t at = 0; at < bytes.size(); at += block)
            result.append(data + at, static_cast<unsigned int>(std::min(block, bytes.size() - at)));
        return result;
    };
}

template <class Ours, class Theirs>
void compare(std::string const& path, Ours ours, Theirs theirs, std::string const& bytes) {
    bench::agree(view(ours()) == bytes && view(theirs()) == bytes, path);
    auto const size = static_cast<std::int64_t>(bytes.size());
    bench::contestant(path, "quillmark", ours, size);
    bench::contestant(path, "std::string", theirs, size);
}

}  // namespace

int main(int argc, char** argv) {
    std::string const small = bench::Random(1).bytes(mebibyte);
    std::string const large = bench::Random(2).bytes(16 * mebibyte);
    compare("append to a buffer by byte, 1 MiB", byByte<Buffer>(small), byByte<std::string>(small), small);
    compare("append to a buffer in 76-byte blocks, 1 MiB", byBlocks<Buffer>(small, 76),
            byBlocks<std::string>(small, 76), small);
    compare("append to a buffer in 8 KiB blocks, 1 MiB", byBlocks<Buffer>(small, 8192),
            byBlocks<std::string>(small, 8192), small);
    compare("append to a buffer in 8 KiB blocks, 16 MiB", byBlocks<Buffer>(large, 8192),
            byBlocks<std::string>(large, 8192), large);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
