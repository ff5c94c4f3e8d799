// Base64 as a stream, read in random chunks from a range of another input that may end early.

#include <vector>

#include "fuzz/support/Fuzz.h"
#include "include2/Base64Media"
#include "include2/BufferMedia"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

struct Decoded {
    std::string bytes;
    bool bad = false;  // a line was left out
};

/// What the text stands for, character by character: a bad line gives what came before its bad character no
/// more than the rest of it, and the group that was begun is forgotten.
Decoded decodedPlain(std::string const& text) {
    static std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Decoded decoded;
    unsigned int bits = 0, count = 0;
    bool padded = false;
    for (std::size_t begin = 0; begin < text.size();) {
        std::size_t const end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        std::string line;
        bool good = true;
        for (char const c : text.substr(begin, end - begin)) {
            std::size_t const value = alphabet.find(c);
            if (isBlank(c)) continue;
            if (c == '=' && (padded || count >= 2)) {
                padded = true;
            } else if (value == std::string::npos || padded) {
                good = false;
                break;
            } else {
                bits = bits << 6 | static_cast<unsigned int>(value);
                if (++count > 1) line += static_cast<char>(bits >> (8 - 2 * count) & 0xff);
                count %= 4;
            }
        }
        if (good) decoded.bytes += line;
        if (!good || padded) count = 0;
        padded = false;
        decoded.bad = decoded.bad || !good;
        begin = end;
    }
    return decoded;
}

/// Everything that can be read, in chunks that @p in chooses. Reading goes on behind a bad line.
Decoded readAll(MediaIn source, Input in) {
    Base64MediaIn decoder(source);
    Decoded all;
    std::vector<unsigned char> chunk(300);
    for (std::size_t failures = 0;;) {
        auto const wanted = static_cast<uint_t>(in.number(1, chunk.size()));
        int got = 0;
        std::string const failure = failureOf([&] { got = decoder.read(chunk.data(), wanted); });
        if (!failure.empty()) {
            all.bad = true;
            claim(++failures < 20000, "reading comes to an end");
            continue;
        }
        claim(got >= 0 && got <= static_cast<int>(wanted), "no more is read than was asked for");
        if (got == 0) break;
        all.bytes.append(reinterpret_cast<char const*>(chunk.data()), static_cast<std::size_t>(got));
    }
    claim(decoder.atEnd(), "nothing is left behind the last byte");
    return all;
}

void sameDecoded(std::string const& what, Decoded const& a, Decoded const& b) {
    claimSame(what, a.bytes, b.bytes);
    claimSame(what + ": whether a line is bad", a.bad, b.bad);
}

std::string encoded(std::string const& text, std::size_t longest, Input lengths) {
    BufferMediaOut end;
    Base64MediaOut out(end);
    inPieces(text, longest, lengths, [&](auto const* bytes, auto count) { out.write(bytes, count); });
    out.end();
    return textOf(end.buffer());
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    // Numbers at the end: where the range begins, how long it is, and how much of it there is.
    std::size_t const start = in.number(0, 15);
    std::size_t const missing = in.number(0, 3) == 3 ? in.number(0, 40) : 0;
    Input const chunks = in;
    std::string const text = in.rest();
    Decoded const expected = decodedPlain(text);

    Buffer bytes(text.data(), static_cast<uint_t>(text.size()), false);
    sameDecoded("read from memory", readAll(BufferMediaIn(bytes), chunks), expected);
    sameDecoded("read byte by byte", readAll(BufferMediaIn(bytes), Input(nullptr, 0)), expected);

    std::string const around = std::string(start, '!') + text;
    Buffer whole(around.data(), static_cast<uint_t>(around.size()), false);
    BufferMediaIn source(whole);
    PartialMediaIn range(source, start, text.size() + missing);
    range.setpos(0);
    sameDecoded("read from a range that ends early", readAll(range, chunks), expected);
    MemoryFile const file(text);
    sameDecoded("read from a file", readAll(FileMediaIn(file.name()), chunks), expected);

    std::string const encodedWhole = encoded(text, text.size(), noLengths());
    claimSame("encoded in pieces", encoded(text, 100, chunks), encodedWhole);
    Buffer again(encodedWhole.data(), static_cast<uint_t>(encodedWhole.size()), false);
    claimSame("encoded and decoded", readAll(BufferMediaIn(again), chunks).bytes, text);
    return 0;
}
