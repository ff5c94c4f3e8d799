// Every function that is fast for a reason, beside its plain twin: every kernel that this machine can run.

#include <vector>

#include "foundation/Base64.h"
#include "fuzz/support/Fuzz.h"
#include "mail/PlainAddress.h"
#include "media/Md5Block.h"
#include "platform/quill_string.h"
#include "uri/LinkScan.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

using Bytes = std::vector<unsigned char>;

/// Memory of exactly this size, so that a byte too many is seen.
Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string textOf(Bytes const& bytes, std::size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<long>(size)};
}

void base64Encodes(std::string_view text) {
    Bytes const in = bytesOf(text);
    Base64Kernel const& plain = base64Kernels().back();
    std::string groups(text.size() / 3 * 4, '?');
    std::string lines(text.size() / base64LineBytes * (base64LineLength + 1), '?');
    plain.encodeGroups(in.data(), text.size() / 3, groups.data());
    plain.encodeLines(in.data(), text.size() / base64LineBytes, lines.data());
    for (Base64Kernel const& kernel : base64Kernels()) {
        if (!cpuHas(kernel.needs)) continue;
        std::vector<char> out(groups.size(), '!');
        kernel.encodeGroups(in.data(), text.size() / 3, out.data());
        claimSame(std::string("groups encoded by ") + kernel.name, std::string(out.begin(), out.end()),
                  groups);
        out.assign(lines.size(), '!');
        kernel.encodeLines(in.data(), text.size() / base64LineBytes, out.data());
        claimSame(std::string("lines encoded by ") + kernel.name, std::string(out.begin(), out.end()), lines);
    }
}

void base64Decodes(std::string_view text) {
    Bytes const in = bytesOf(text);
    Bytes plain(text.size() * 3 / 4, '?');
    Base64Run const run = base64Kernels().back().decode(in.data(), in.size(), plain.data());
    for (Base64Kernel const& kernel : base64Kernels()) {
        if (!cpuHas(kernel.needs)) continue;
        std::string const by = std::string(" decoded by ") + kernel.name;
        Bytes out(plain.size(), '!');
        claim(kernel.decode(in.data(), in.size(), out.data()) == run, "how far it goes," + by);
        claimSame("bytes" + by, textOf(out, run.written), textOf(plain, run.written));
        Bytes inPlace = in;
        claim(kernel.decode(inPlace.data(), in.size(), inPlace.data()) == run,
              "how far it goes in place," + by);
        claimSame("bytes in place" + by, textOf(inPlace, run.written), textOf(plain, run.written));
    }
}

void md5Compresses(std::string_view text) {
    Bytes const in = bytesOf(text.substr(0, text.size() / md5BlockSize * md5BlockSize));
    Md5State plain = md5InitialState;
    md5Kernels().back().compress(plain, in.data(), in.size() / md5BlockSize);
    for (Md5Kernel const& kernel : md5Kernels()) {
        if (!cpuHas(kernel.needs)) continue;
        Md5State together = md5InitialState, apart = md5InitialState;
        kernel.compress(together, in.data(), in.size() / md5BlockSize);
        for (std::size_t i = 0; i < in.size(); i += md5BlockSize)
            kernel.compress(apart, bytesOf(text.substr(i, md5BlockSize)).data(), 1);
        claimSame(std::string("MD5 by ") + kernel.name, together, plain);
        claimSame(std::string("MD5 block by block by ") + kernel.name, apart, plain);
    }
}

void marksLinks(std::string_view text) {
    Bytes const in = bytesOf(text);
    std::string_view const exact(reinterpret_cast<char const*>(in.data()), in.size());
    for (HighBytes const highBytes : {HighBytes::Unseen, HighBytes::InLinks, HighBytes::Foreign})
        for (std::size_t from = 0; from <= exact.size();) {
            std::size_t const plain = linkScans().back().nextMark(exact, from, highBytes);
            for (LinkScan const& scan : linkScans())
                if (cpuHas(scan.needs))
                    claimSame("the mark behind " + std::to_string(from),
                              scan.nextMark(exact, from, highBytes), plain);
            from = plain + 1;
        }
}

std::string textOf(LinkRun const& run) {
    return std::to_string(run.begin) + " to " + std::to_string(run.end) + ", dots " +
           std::to_string(run.dots) + (run.doubledDot ? " doubled" : "") + (run.bracketed ? " [" : "");
}

/// The run around a byte, with all of the text in front of it or with less.
void findsRuns(std::string_view text) {
    // The plain twin goes as far as the run, and so often that long ones take their time; a kernel has 64 bytes
    // to each side in sight.
    Bytes const in = bytesOf(text.substr(0, 400));
    std::string_view const exact(reinterpret_cast<char const*>(in.data()), in.size());
    std::size_t const stride = 1 + exact.size() / 128;
    for (HighBytes const highBytes : {HighBytes::Unseen, HighBytes::InLinks, HighBytes::Foreign})
        for (std::size_t mark = 0; mark < exact.size(); mark += stride)
            for (std::size_t const from : {std::size_t{0}, mark - mark % 67}) {
                LinkRun const plain = linkScans().back().runAt(exact, from, mark, highBytes);
                for (LinkScan const& scan : linkScans()) {
                    if (!cpuHas(scan.needs) || scan.runAt == linkScans().back().runAt) continue;
                    LinkRun const run = scan.runAt(exact, from, mark, highBytes);
                    if (run != plain)
                        claimSame("the run around " + std::to_string(mark), textOf(run), textOf(plain));
                }
            }
}

/// What a kernel finds at the front of a text.
std::string addressBy(AddressScan const& scan, std::string_view text) {
    PlainAddress address;
    if (!scan.scan(text, address)) return "none";
    return std::string(address.text) + " sign " + std::to_string(address.sign) +
           (address.hasCapitals ? " capitals" : "") + (address.hasCommonDomain ? " common" : "");
}

/// The address that the text begins with, and those behind its first bytes; a kernel has 64 bytes in sight.
void findsAddresses(std::string_view text) {
    Bytes const in = bytesOf(text);
    std::string_view const exact(reinterpret_cast<char const*>(in.data()), in.size());
    for (std::size_t skip = 0; skip <= exact.size(); skip += 1 + exact.size() / 65) {
        std::string const plain = addressBy(addressScans().back(), exact.substr(skip));
        for (AddressScan const& scan : addressScans())
            if (cpuHas(scan.needs))
                claimSame("the address behind " + std::to_string(skip), addressBy(scan, exact.substr(skip)),
                          plain);
    }
}

/// RFC 3629, character by character.
bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
        unsigned int const lead = byte(0);
        std::size_t const size = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
        if ((lead >= 0x80 && lead < 0xc0) || lead > 0xf7 || text.size() < size) return false;
        unsigned int point = size == 1 ? lead : lead & (0x7fU >> size);
        for (std::size_t i = 1; i < size; ++i) {
            if ((byte(i) & 0xc0) != 0x80) return false;
            point = point << 6 | (byte(i) & 0x3fU);
        }
        constexpr unsigned int smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (point < smallest[size] || point > 0x10ffff || (point >= 0xd800 && point < 0xe000)) return false;
        text.remove_prefix(size);
    }
    return true;
}

void checksUtf8(std::string_view text) {
    for (std::size_t skip = 0; skip < 9 && skip <= text.size(); ++skip) {
        Bytes const in = bytesOf(text.substr(skip));
        claimSame("whether a text is UTF-8",
                  ::isValidUtf8(reinterpret_cast<char const*>(in.data()), in.size()),
                  isUtf8(text.substr(skip)));
    }
}

// Whoever adds a kernel adds a line.
constexpr void (*kernels[])(std::string_view) = {
    base64Encodes, base64Decodes, md5Compresses, marksLinks, findsRuns, findsAddresses, checksUtf8,
};

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();
    for (auto const kernel : kernels) kernel(text);
    // Repeated until every kernel has left its first block.
    std::string longer;
    while (!text.empty() && longer.size() < 512) longer += text;
    for (auto const kernel : kernels) kernel(longer);
    return 0;
}
