// Whoever reads lines, with room for 0 to 8 bytes, mixed with other reads: put together again, the pieces are
// the text.

#include <array>
#include <functional>
#include <sstream>

#include "fuzz/support/Fuzz.h"
#include "include2/BufferMedia"
#include "include2/FileMedia"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

/// The lines with CR LF for each line feed.
std::string withCrlf(std::string const& text) {
    std::string out;
    for (char const c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return out;
}

/// Reads everything. @p in chooses what comes next: a line into a buffer of its own that may grow, a line into
/// memory that may not, or some bytes.
/// @param smallest  room for a line, in bytes
/// @param bytesToo  also read what is no line
std::string readAll(MediaIn source, Input in, std::size_t smallest, bool bytesToo) {
    std::string all;
    std::array<unsigned char, 8> memory{};
    std::size_t idle = 0;
    while (!source.atEnd()) {
        claim(++idle < 20000, "reading comes to an end");
        std::size_t const room = in.number(smallest, memory.size());
        std::size_t const way = in.number(0, bytesToo ? 2 : 1);
        std::string piece;
        if (way == 2) {
            int const got = source.read(memory.data(), static_cast<uint_t>(room));
            claim(got >= 0 && static_cast<std::size_t>(got) <= room, "no more is read than was asked for");
            piece.assign(reinterpret_cast<char const*>(memory.data()), static_cast<std::size_t>(got));
        } else {
            Buffer line = way == 0 ? Buffer(static_cast<int>(room), 1)
                                   : Buffer(memory.data(), static_cast<unsigned int>(room), true);
            source.readline(line);
            piece = textOf(line);
            std::size_t const feed = piece.find('\n');
            claim(feed == std::string::npos || feed + 1 == piece.size(), "a piece ends with its line");
            if (way == 1 && room != 0) claim(piece.size() <= room, "a piece fits its memory");
        }
        if (!piece.empty()) idle = 0;
        all += piece;
    }
    return all;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    std::size_t const start = in.number(0, 7);
    Input const choices = in;
    std::string const text = in.rest();

    // Memory, and a range of it. A range reads whole lines, so it is one that ends with the text.
    Buffer const bytes(text.data(), static_cast<uint_t>(text.size()), false);
    claimSame("read from memory", readAll(BufferMediaIn(bytes), choices, 1, true), text);
    std::string const around = std::string(start, '\n') + text;
    Buffer const longer(around.data(), static_cast<uint_t>(around.size()), false);
    BufferMediaIn source(longer);
    PartialMediaIn range(source, start, text.size());
    range.setpos(0);
    claimSame("read from a range", readAll(range, choices, 1, true), text);

    // Streams and files.
    std::istringstream stream(text);
    claimSame("read from a stream", readAll(IStreamMediaIn(stream), choices, 0, true), text);
    MemoryFile const file(text);
    claimSame("read from a file", readAll(FileMediaIn(file.name()), choices, 0, true), text);
    std::istringstream unixText(text);
    IStreamMediaIn converting(unixText);
    converting.convertToCRLF(true);
    claimSame("read with other line ends", readAll(converting, choices, 2, false), withCrlf(text));

    // Lines of a buffer, up to the last one that ends.
    LineBuffer const lines(bytes);
    std::string all;
    for (Buffer line;;) {
        lines.getLine(line, '\n');
        if (line.isEmpty()) break;
        all += textOf(line);
    }
    claimSame("the lines of a buffer", all, text.substr(0, text.rfind('\n') + 1));
    return 0;
}
