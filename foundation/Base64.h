#pragma once
// Base64 (RFC 4648, section 4) over raw bytes. The loops that cost time stand alone in kernels, the
// slowest of which says the same most simply; the decoder around them knows padding and bad text.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "foundation/Cpu.h"
#include "include2/QuillTypes"

namespace Quillmark {

/// What a kernel has decoded.
struct Base64Run {
    std::size_t read = 0;     ///< characters
    std::size_t written = 0;  ///< bytes, those that an incomplete last group determines among them
    unsigned int place = 0;   ///< characters of that group: 0 to 3
    unsigned int bits = 0;    ///< what they stand for, six bits each, the last one lowest

    bool operator==(Base64Run const& other) const = default;
};

/// Bytes and characters of a line as mail has them; its line feed comes on top.
inline constexpr std::size_t base64LineBytes = 57;
inline constexpr std::size_t base64LineLength = 76;

/// One way to do the work. All give the same, and touch no byte beyond what they are given.
struct Base64Kernel {
    char const* name;
    InstructionSet needs;
    /// Encodes @p groups groups of three bytes to four characters each.
    void (*encodeGroups)(unsigned char const* in, std::size_t groups, char* out) noexcept;
    /// Encodes @p lines times 57 bytes to 76 characters and a line feed.
    void (*encodeLines)(unsigned char const* in, std::size_t lines, char* out) noexcept;
    /// Decodes characters of the alphabet, and white space between them, up to the first byte that is
    /// neither. @p out has room for size * 3 / 4 bytes; it may be @p in, or before it.
    Base64Run (*decode)(unsigned char const* in, std::size_t size, unsigned char* out) noexcept;
};

/// Every kernel, the best first, the plain one last.
QUILLMARK_EXPORT std::span<Base64Kernel const> base64Kernels() noexcept;

/// The one for this machine.
QUILLMARK_EXPORT Base64Kernel const& base64Kernel() noexcept;

extern Base64Kernel const base64Avx512;
extern Base64Kernel const base64Avx2;

// What the kernels of an instruction set leave to code for any machine.
void base64EncodeGroupsPortable(unsigned char const* in, std::size_t groups, char* out) noexcept;
/// Goes on where @p run stands.
void base64DecodePortable(unsigned char const* in, std::size_t size, unsigned char* out,
                          Base64Run& run) noexcept;
/// One more character, of which @p run does not count the reading.
inline void base64DecodeValue(unsigned int value, unsigned char* out, Base64Run& run) noexcept {
    run.bits = (run.bits << 6) | value;
    if (run.place != 0) out[run.written++] = static_cast<unsigned char>(run.bits >> (6 - 2 * run.place));
    run.place = (run.place + 1) % 4;
    if (run.place == 0) run.bits = 0;
}

/// How the lines of a text look by its first one, which a kernel then expects to go on.
struct Base64Layout {
    static constexpr std::size_t shortest = 64;
    static constexpr std::size_t longest = 80;

    std::size_t length = 0;   ///< characters, whole groups; 0 when the first line is shorter or longer
    std::size_t lineEnd = 0;  ///< 1 for a line feed, 2 for a carriage return and a line feed

    Base64Layout(unsigned char const* text, std::size_t size) noexcept {
        auto const* const feed = static_cast<unsigned char const*>(
            std::memchr(text, '\n', std::min<std::size_t>(size, longest + 2)));
        if (!feed || feed == text) return;
        lineEnd = feed[-1] == '\r' ? 2 : 1;
        std::size_t const characters = static_cast<std::size_t>(feed - text) + 1 - lineEnd;
        if (characters % 4 == 0 && characters >= shortest && characters <= longest) length = characters;
    }

    /// Does a line that begins here end so? Its characters were not looked at.
    bool fits(unsigned char const* text) const noexcept {
        return text[length + lineEnd - 1] == '\n' && (lineEnd == 1 || text[length] == '\r');
    }
};

/// The number of characters that @p size bytes become, padding counted.
constexpr std::size_t base64EncodedSize(std::size_t size) noexcept {
    return (size / 3 + (size % 3 != 0)) * 4;
}

/// Encodes everything, the last group with padding. @p out has room for base64EncodedSize().
void base64Encode(unsigned char const* in, std::size_t size, char* out) noexcept;

/// Reads Base64 text that comes in pieces. An incomplete group goes on with the next piece.
class Base64Decoder {
public:
    /// Decodes a piece; gives the number of bytes, at most one a character. @p out may be @p in, or
    /// before it. Bad text throws BufferException code 2 with the position since the last endLine(); the
    /// next piece begins a new group.
    std::size_t decode(unsigned char const* in, std::size_t size, unsigned char* out);

    /// The pieces so far made a line: padding is over, positions count from 0.
    void endLine() noexcept;

private:
    static constexpr unsigned int padding = 4;

    [[noreturn]] void failAt(std::size_t index, std::size_t size, unsigned char byte, int value);

    unsigned int m_place = 0;      // in the group of four; padding: nothing but "=" may come
    unsigned int m_bits = 0;       // of the group so far; those before the last byte are of no use
    std::uint64_t m_position = 0;  // of the piece in its line
};

}  // namespace Quillmark
