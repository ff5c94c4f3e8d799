// Buffer under any sequence of operations, beside a model over std::vector: three handles that share, copy on
// write, and limits.

#include <algorithm>
#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "fuzz/support/Fuzz.h"
#include "include2/Buffer"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(std::string const& text) {
    return {text.begin(), text.end()};
}
Bytes bytesOf(Buffer const& buffer) {
    return {buffer.data(), buffer.data() + buffer.length()};
}

/// What the third buffer may wrap.
std::array<unsigned char, 24> memory;

/// What an append finds: how many bytes there may be, 0 for any number, and how many have a place without a move.
struct Room {
    uint_t limit;
    uint_t allocated;
    bool wrapped;  ///< memory of ours, which is not to be moved
};

/// What handles that share bytes have in common.
struct Shared {
    Bytes bytes;
    bool copiesOnWrite = false;
};

/// A buffer and what it should be.
struct Pair {
    Buffer buffer;
    std::shared_ptr<Shared> model = std::make_shared<Shared>();

    Bytes& bytes() { return model->bytes; }

    /// Before a change: bytes of its own, if it is protected and shares them.
    void change() {
        if (model->copiesOnWrite) ownBytes();
    }
    void ownBytes() {
        if (model.use_count() > 1) model = std::make_shared<Shared>(*model);
    }

    /// Takes as many of the bytes as the limit leaves room for.
    void append(Bytes const& more, Room const& found) {
        std::size_t const most = found.limit == 0 ? SIZE_MAX : found.limit;
        std::size_t const room = most - std::min(most, bytes().size());
        bool const wrapsNothing = bytes().empty() && found.limit == 0;
        bool const fits = bytes().size() + std::min(room, more.size()) <= found.allocated;
        if (found.wrapped && !fits && !wrapsNothing) return;  // all or nothing
        bytes().insert(bytes().end(), more.begin(),
                       more.begin() + static_cast<long>(std::min(room, more.size())));
    }

    void check() const {
        claimSame("the bytes", bytesOf(buffer), model->bytes);
        claimSame("whether it is empty", buffer.isEmpty(), model->bytes.empty());
        claim(buffer.size() >= buffer.length(), "the bytes in use are allocated");
    }
};

uint_t find(Bytes const& bytes, Bytes const& wanted, int start) {
    if (start < 0 || static_cast<std::size_t>(start) >= bytes.size()) return Buffer::npos;
    std::string const text(bytes.begin(), bytes.end());
    std::size_t const found =
        text.find(std::string(wanted.begin(), wanted.end()), static_cast<std::size_t>(start));
    return found == std::string::npos ? Buffer::npos : static_cast<uint_t>(found);
}

/// What is asked without a change.
void ask(Pair const& pair, Pair const& other, Input& in) {
    Buffer const& buffer = pair.buffer;
    Bytes const& bytes = pair.model->bytes;
    auto const pos = static_cast<uint_t>(in.number(0, 40));
    auto const count = static_cast<uint_t>(in.number(0, 40));
    auto const start = static_cast<int>(pos) - 2;
    claimSame("an index out of range", failureOf([&] { buffer.at(pos); }).empty(), pos < bytes.size());
    if (pos < bytes.size()) claimSame("the byte at an index", buffer.at(pos), bytes[pos]);
    claimSame("where a byte is found", buffer.find(static_cast<unsigned char>(count), start),
              find(bytes, {static_cast<unsigned char>(count)}, start));
    claimSame("where bytes are found", buffer.find(other.buffer, start),
              find(bytes, other.model->bytes, start));
    claimSame("whether two are the same", buffer == other.buffer, bytes == other.model->bytes);
    std::string const failure = failureOf([&] {
        Bytes const part = bytesOf(buffer.mid(pos, count));
        std::size_t const end = std::min<std::size_t>(std::size_t{pos} + count, bytes.size());
        claimSame("a part", part, Bytes(bytes.begin() + pos, bytes.begin() + static_cast<long>(end)));
    });
    claimSame("a part beyond the end", failure.empty(), pos <= bytes.size());
    std::size_t const n = std::min<std::size_t>(count, bytes.size());
    claimSame("the left end", bytesOf(buffer.left(count)),
              Bytes(bytes.begin(), bytes.begin() + static_cast<long>(n)));
    claimSame("the right end", bytesOf(buffer.right(count)),
              Bytes(bytes.end() - static_cast<long>(n), bytes.end()));
}

/// One change.
void change(Pair& pair, Pair& other, Input& in) {
    Buffer& buffer = pair.buffer;
    auto const byte = static_cast<unsigned char>(in.number(0, 255));
    auto const pos = static_cast<uint_t>(in.number(0, 40));
    auto const count = static_cast<uint_t>(in.number(0, 40));
    uint_t const before = buffer.size();
    // What has to be known before the buffer has bytes of its own, which are not limited any more.
    bool const copies = pair.model->copiesOnWrite && pair.model.use_count() > 1;
    bool const wrapped = std::as_const(buffer).data() == memory.data();
    Room const room{copies ? 0 : buffer.maxSize(), before, wrapped && !copies};
    switch (in.number(0, 17)) {
    case 0:
        buffer.append(byte);
        pair.change();
        pair.append({byte}, room);
        break;
    case 1: {
        Bytes const bytes = bytesOf(in.bytes(count));
        if (bytes.empty()) break;
        buffer.append(bytes.data(), static_cast<unsigned int>(bytes.size()));
        pair.change();
        pair.append(bytes, room);
        break;
    }
    case 2: {
        Bytes const bytes = other.bytes();
        if (bytes.size() > 4096) break;
        buffer.append(other.buffer);
        pair.change();
        if (!bytes.empty()) pair.append(bytes, room);
        break;
    }
    case 3:
        pair.change();
        claimSame("a change out of range", failureOf([&] { buffer.at(pos, byte); }).empty(),
                  pos < pair.bytes().size());
        if (pos < pair.bytes().size()) pair.bytes()[pos] = byte;
        break;
    case 4:
        pair.change();
        claimSame("a length beyond the size", failureOf([&] { buffer.length(pos); }).empty(),
                  pos <= buffer.size());
        if (pos <= pair.bytes().size())
            pair.bytes().resize(pos);
        else
            pair.bytes() = bytesOf(std::as_const(buffer));  // what was there is not cleared
        break;
    case 5:
        buffer.erase(pos, count);
        pair.change();
        if (pos > pair.bytes().size()) break;
        pair.bytes().erase(pair.bytes().begin() + pos,
                           pair.bytes().begin() +
                               static_cast<long>(std::min<std::size_t>(pos + count, pair.bytes().size())));
        break;
    case 6:
        buffer.shiftLeft(count);
        pair.change();
        pair.bytes().erase(
            pair.bytes().begin(),
            pair.bytes().begin() + static_cast<long>(std::min<std::size_t>(count, pair.bytes().size())));
        break;
    case 7: {
        pair.change();
        std::size_t const needed = pair.bytes().size() + count + 1;
        bool const shifted = failureOf([&] { buffer.shiftRight(count, byte); }).empty();
        if (count != 0) claimSame("shifting needs room for one byte more", shifted, buffer.size() >= needed);
        if (shifted) pair.bytes().insert(pair.bytes().begin(), count, byte);
        break;
    }
    case 8:
        buffer.fill(static_cast<char>(byte));
        pair.change();
        std::fill(pair.bytes().begin(), pair.bytes().end(), byte);
        break;
    case 9:
        buffer.protect();
        pair.ownBytes();
        pair.model->copiesOnWrite = true;
        break;
    case 10:
        buffer.unprotect();
        pair.ownBytes();
        pair.model->copiesOnWrite = false;
        break;
    case 11:
        buffer = other.buffer;
        pair.model = other.model;
        break;
    case 12: {
        pair.change();
        std::string const failure = failureOf([&] { buffer.size(pos * 200); });
        claim(!failure.empty() ||
                  buffer.size() >= std::min(pos * 200, buffer.maxSize() ? buffer.maxSize() : ~0U),
              "the size that was asked for");
        break;
    }
    case 13:
        pair.change();
        static_cast<void>(failureOf([&] { buffer.maxSize(pos); }));
        break;
    case 14: {
        // Kept oddly: the count is n - pos, and wraps.
        Buffer const& source = other.buffer;  // whose bytes stay shared
        Bytes const from(source.data(), source.data() + source.size());
        uint_t const n = source.length();
        if (&pair == &other || other.model == pair.model) break;
        buffer.assign(pos, source);
        pair.change();
        if (pos >= buffer.size()) break;
        uint_t const end = pos + std::min(n - pos, buffer.size() - pos);
        std::size_t const length = pair.bytes().size();
        pair.bytes().resize(std::max<std::size_t>(length, end));
        // What lay between the length and the position is not cleared.
        for (std::size_t i = length; i < pos && i < pair.bytes().size(); ++i)
            pair.bytes()[i] = std::as_const(buffer).data()[i];
        for (uint_t i = pos; i < end; ++i) pair.bytes()[i] = i - pos < from.size() ? from[i - pos] : 0;
        break;
    }
    case 15: {
        pair.change();
        char const* const text = buffer.c_str();
        claim(std::equal(pair.bytes().begin(), pair.bytes().end(),
                         reinterpret_cast<unsigned char const*>(text)),
              "a C text has the bytes");
        claim((!pair.bytes().empty() && pair.bytes().back() == 0) || text[pair.bytes().size()] == 0,
              "a C text is terminated");
        break;
    }
    case 16:
        pair.change();
        buffer.increaseBuffer(count * 10);
        break;
    case 17: {
        // The lines, one after the other: put together they are the text up to its last delimiter.
        LineBuffer const lines(Buffer(std::as_const(buffer).data(), buffer.length(), false));
        Bytes all;
        for (Buffer line;;) {
            lines.getLine(line, byte);
            if (line.isEmpty()) break;
            claimSame("a line ends at its delimiter", line.find(byte), line.length() - 1);
            Bytes const piece = bytesOf(line);
            all.insert(all.end(), piece.begin(), piece.end());
        }
        Bytes const& bytes = pair.bytes();
        auto const last = std::find(bytes.rbegin(), bytes.rend(), byte).base();
        claimSame("the lines of a buffer", all, Bytes(bytes.begin(), last));
        break;
    }
    }
    if (pair.model.use_count() == 1 && &pair != &other && before > buffer.size())
        claim(buffer.length() == pair.bytes().size(), "a buffer shrinks only when it becomes another one");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    memory = {};
    Pair pairs[3];
    auto const small = static_cast<int>(in.number(1, 40));
    pairs[1].buffer = Buffer(small, static_cast<int>(in.number(0, 20)));
    if (in.flag()) {
        pairs[2].buffer = Buffer(memory.data(), static_cast<unsigned int>(in.number(0, memory.size())), true);
        pairs[2].bytes() = bytesOf(pairs[2].buffer);
    }
    for (int steps = 0; steps < 200 && !in.empty(); ++steps) {
        Pair& pair = pairs[in.number(0, 2)];
        Pair& other = pairs[in.number(0, 2)];
        change(pair, other, in);
        for (Pair const& each : pairs) each.check();
        ask(pair, other, in);
    }
    return 0;
}
