// Every function that is fast for a reason, beside its plain twin.

#include <vector>

#include "foundation/Base64.h"
#include "fuzz/support/Fuzz.h"
#include "media/Md5Block.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(std::string const& text, std::size_t unit) {
    return {text.begin(), text.begin() + static_cast<std::ptrdiff_t>(text.size() / unit * unit)};
}

void base64Encodes(std::string const& text) {
    Bytes const in = bytesOf(text, 3);
    std::string fast(in.size() / 3 * 4, '?'), plain = fast;
    base64EncodeGroups(in.data(), in.size() / 3, fast.data());
    base64EncodeGroupsPlain(in.data(), in.size() / 3, plain.data());
    claimSame("Base64 encoded, fast and plain", fast, plain);
}

void base64Decodes(std::string const& text) {
    Bytes const in = bytesOf(text, 4);
    std::string fast(in.size() / 4 * 3, '?'), plain = fast;
    std::size_t const groups =
        base64DecodeGroups(in.data(), in.size() / 4, reinterpret_cast<unsigned char*>(fast.data()));
    std::size_t const plainGroups =
        base64DecodeGroupsPlain(in.data(), in.size() / 4, reinterpret_cast<unsigned char*>(plain.data()));
    claimSame("groups of Base64 decoded, fast and plain", groups, plainGroups);
    claimSame("Base64 decoded, fast and plain", fast.substr(0, groups * 3), plain.substr(0, groups * 3));
    Bytes inPlace = in;
    claimSame("groups decoded in place", base64DecodeGroups(inPlace.data(), in.size() / 4, inPlace.data()),
              groups);
    claimSame("Base64 decoded in place",
              std::string(inPlace.begin(), inPlace.begin() + static_cast<long>(groups * 3)),
              fast.substr(0, groups * 3));
}

void md5Compresses(std::string const& text) {
    Bytes const in = bytesOf(text, md5BlockSize);
    Md5State together = md5InitialState, apart = md5InitialState;
    md5Compress(together, in.data(), in.size() / md5BlockSize);
    for (std::size_t i = 0; i < in.size(); i += md5BlockSize) {
        Bytes const block(in.begin() + static_cast<std::ptrdiff_t>(i),
                          in.begin() + static_cast<std::ptrdiff_t>(i + md5BlockSize));
        md5Compress(apart, block.data(), 1);
    }
    claimSame("MD5 of many blocks and of one after the other", together, apart);
}

// Whoever adds a kernel adds a line.
constexpr void (*kernels[])(std::string const&) = {
    base64Encodes,
    base64Decodes,
    md5Compresses,
};

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();
    for (auto const kernel : kernels) kernel(text);
    // Repeated until every kernel has left its first block; and from an odd address on.
    std::string longer;
    while (!text.empty() && longer.size() < 512) longer += text;
    for (auto const kernel : kernels) kernel(longer);
    return 0;
}
