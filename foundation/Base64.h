#pragma once
// Base64 (RFC 4648, section 4) over raw bytes. The two loops that cost time stand alone, each with a
// plain twin that says the same more simply; the decoder around them knows text.

#include <cstddef>
#include <cstdint>

#include "include2/QuillTypes"

namespace Quillmark {

/// Encodes @p groups groups of three bytes to four characters each.
QUILLMARK_EXPORT void base64EncodeGroups(unsigned char const* in, std::size_t groups, char* out) noexcept;
QUILLMARK_EXPORT void base64EncodeGroupsPlain(unsigned char const* in, std::size_t groups,
                                              char* out) noexcept;

/// Decodes a run: groups of four characters of the alphabet to three bytes each. Stops before the
/// first group that has any other character, and gives the number of groups before it.
///
/// Writes three bytes a group, after reading it, so that @p out may be @p in, or before it.
QUILLMARK_EXPORT std::size_t base64DecodeGroups(unsigned char const* in, std::size_t groups,
                                                unsigned char* out) noexcept;
QUILLMARK_EXPORT std::size_t base64DecodeGroupsPlain(unsigned char const* in, std::size_t groups,
                                                     unsigned char* out) noexcept;

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
