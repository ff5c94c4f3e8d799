// Base64 of a mail attachment, both ways: 64 KiB in lines of 76 characters.

#include "foundation/Base64.h"

#include <glib.h>
#include <openssl/evp.h>
#include <memory>

#include <cstring>
#include <string>

#include "bench/support/Bench.h"
#include "include2/Buffer"

namespace {

using namespace Quillmark;

constexpr std::size_t attachment = std::size_t{64} << 10;
constexpr std::size_t lineBytes = base64LineBytes;
constexpr std::size_t lineLength = base64LineLength;

unsigned char const* raw(std::string const& text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}
unsigned char* raw(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

/// Where everybody writes.
std::string out(2 * attachment, '\0');

/// The kernels that this machine can run, by the names that the table gives them.
template <class Use>
void eachKernel(Use use) {
    for (Base64Kernel const& kernel : base64Kernels())
        if (cpuHas(kernel.needs)) use(kernel, "our " + std::string(kernel.name));
}

// Whole lines, as they stand in a message.
void compareEncoding() {
    std::string const path = "base64 encode, 76 columns, 64 KiB";
    static std::string const in = bench::Random(1).bytes(attachment / lineBytes * lineBytes);
    std::size_t const lines = in.size() / lineBytes;
    auto const size = static_cast<std::int64_t>(in.size());
    auto const openssl = [lines] {
        auto const* from = raw(in);
        auto* to = raw(out);
        for (std::size_t line = 0; line < lines; ++line, from += lineBytes, to += lineLength + 1) {
            EVP_EncodeBlock(to, from, static_cast<int>(lineBytes));
            to[lineLength] = '\n';
        }
    };
    openssl();
    std::string const expected = out.substr(0, lines * (lineLength + 1));
    auto const ours = [lines](Base64Kernel const& kernel) {
        return [lines, &kernel] { kernel.encodeLines(raw(in), lines, out.data()); };
    };
    auto const check = [&](Base64Kernel const& kernel, std::string const& name) {
        std::fill(out.begin(), out.end(), '\0');
        ours(kernel)();
        bench::agree(out.substr(0, expected.size()) == expected, path + ", " + name);
    };
    check(base64Kernel(), "quillmark");
    bench::contestant(path, "quillmark", ours(base64Kernel()), size);
    eachKernel([&](Base64Kernel const& kernel, std::string const& name) {
        check(kernel, name);
        bench::contestant(path, name, ours(kernel), size);
    });
    bench::contestant(path, "OpenSSL EVP_EncodeBlock", openssl, size);
    bench::contestant(
        path, "memcpy", [] { std::memcpy(out.data(), in.data(), in.size()); }, size);
}

std::string encoded(std::string const& bytes, std::string const& lineEnd) {
    std::string const text =
        Buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), true).toBase64String();
    std::string lines;
    for (std::size_t at = 0; at < text.size(); at += lineLength)
        lines += text.substr(at, lineLength) + lineEnd;
    return lines;
}

/// Lines of any length, and blanks of all kinds anywhere in them.
std::string irregular(std::string const& bytes) {
    bench::Random random(3);
    std::string const text =
        Buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), true).toBase64String();
    std::string result;
    for (char const c : text) {
        result += c;
        if (random.below(12) == 0) result.append(1 + random.below(3), " \t\r\n"[random.below(4)]);
    }
    return result;
}

void compareDecoding(std::string const& path, std::string const& bytes, std::string const& text) {
    auto const size = static_cast<std::int64_t>(text.size());
    static gsize count = 0;
    auto const glib = [&text] {
        return std::unique_ptr<guchar, decltype(&g_free)>(g_base64_decode(text.c_str(), &count), g_free);
    };
    auto const theirs = glib();
    bench::agree(std::string_view(reinterpret_cast<char const*>(theirs.get()), count) == bytes, path);
    Buffer const result = base64Decode(text);
    bench::agree(result == Buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), true), path);
    bench::contestant(
        path, "quillmark", [&text] { return base64Decode(text); }, size);
    eachKernel([&](Base64Kernel const& kernel, std::string const& name) {
        Base64Run const run = kernel.decode(raw(text), text.size(), raw(out));
        bench::agree(run.read == text.size() && out.substr(0, run.written) == bytes, path + ", " + name);
        bench::contestant(
            path, name, [&kernel, &text] { return kernel.decode(raw(text), text.size(), raw(out)); }, size);
    });
    bench::contestant(path, "glib", glib, size);
}

}  // namespace

int main(int argc, char** argv) {
    std::string const bytes = bench::Random(2).bytes(attachment / 77 * 57);
    std::string const lf = encoded(bytes, "\n");
    std::string const crlf = encoded(bytes, "\r\n");
    std::string const blanks = irregular(bytes);
    benchmark::Initialize(&argc, argv);
    compareEncoding();
    compareDecoding("base64 decode, LF lines, 64 KiB", bytes, lf);
    compareDecoding("base64 decode, CRLF lines, 64 KiB", bytes, crlf);
    compareDecoding("base64 decode, irregular white space, 64 KiB", bytes, blanks);
    benchmark::RunSpecifiedBenchmarks();
}
