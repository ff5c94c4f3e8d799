#pragma once
// A DNS message (RFC 1035) read field by field.

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Quillmark {

/// Reads from an offset that moves with every field. What lies in the array behind the message reads as
/// it is, what lies behind the array as 0; whoever minds asks need() first.
class WireReader {
public:
    /// @param array  what holds the message; it must outlive the reader
    explicit WireReader(std::span<unsigned char const> array) noexcept : m_array(array) { forget(); }

    /// How much of the array is message. Forgets what was learnt of its names.
    void length(std::size_t length);

    bool atEnd() const noexcept { return m_offset >= m_length; }
    std::size_t remaining() const noexcept { return atEnd() ? 0 : m_length - m_offset; }
    /// Throws "Packet is corrupt" in the name of the operation unless the next bytes lie in the message.
    void need(std::size_t count, char const* operation) const {
        if (count > remaining()) failCorrupt(operation);
    }

    std::uint8_t u8() noexcept { return byte(m_offset++); }
    std::uint16_t u16() noexcept {
        unsigned int const high = u8();
        return static_cast<std::uint16_t>(high << 8 | u8());
    }
    std::uint32_t u32() noexcept {
        std::uint32_t const high = u16();
        return high << 16 | u16();
    }
    /// The next bytes, which must lie in the message.
    std::string_view peek(std::size_t count) const;
    std::string_view bytes(std::size_t count);
    void skip(std::size_t count) noexcept { m_offset += count; }

    /// Appends a name to the text, with a dot between the two. Throws "OutOfBounds name index" for a name
    /// that leaves the message or does not end.
    void name(std::string& text);

    [[noreturn]] static void failCorrupt(char const* operation);

private:
    /// The name that begins at some place of the message, as a piece of m_read. Place 0, which lies in the
    /// header, stands for none.
    struct Remembered {
        std::uint16_t at;
        std::uint16_t begin;
        std::uint16_t length;
    };
    /// A piece of m_texts: the name that begins at some place of the message.
    struct Kept {
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
        bool known = false;
    };
    /// A place of the message that a name went over, and how long the text was there.
    struct Visit {
        std::size_t at;
        std::size_t textLength;
    };

    std::uint8_t byte(std::size_t at) const noexcept { return at < m_array.size() ? m_array[at] : 0; }
    std::uint8_t nameByte(std::size_t at) const;
    std::string_view label(std::size_t at) const;
    bool shortName(std::string& text);
    void anyName(std::string& text);
    void append(std::string_view labels, std::string& text);
    void remember(std::size_t at, std::string_view name) noexcept;
    void forget() noexcept;
    void keep(std::string const& text, std::size_t start);

    std::span<unsigned char const> m_array;
    std::size_t m_length = 0;
    std::size_t m_offset = 0;
    std::size_t m_steps = 0;      // over labels and pointers, for all names so far
    std::size_t m_nameBytes = 0;  // of all names so far

    std::array<Remembered, 64> m_remembered;  // by the low bits of the place
    std::array<char, 1024> m_read;
    std::size_t m_readLength = 0;

    std::vector<Visit> m_visits;  // of the name that is being read
    std::vector<Kept> m_kept;     // by place; empty until m_steps makes it worth while
    std::string m_texts;
};

}  // namespace Quillmark
