#pragma once
// A DNS message (RFC 1035) read field by field.

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Quillmark {

/// Reads from an offset that moves with every field. What lies in the array behind the message reads as
/// it is, what lies behind the array as 0; whoever minds asks need() first.
class WireReader {
public:
    /// Longer ones are read at leisure.
    static constexpr std::size_t longestUsualName = 512;
    /// So many bytes behind the array are looked at as well, whatever they are.
    static constexpr std::size_t slack = 64;

    /// @param array  what holds the message; it must outlive the reader
    explicit WireReader(std::span<unsigned char const> array) noexcept : m_array(array) {}

    /// How much of the array is message. Forgets what was learnt of its names.
    void length(std::size_t length);
    /// Back to the beginning, for another message of no length yet.
    void restart();
    /// Lets go of memory that only hostile names need, megabytes of it. Nothing is read until restart().
    void release() noexcept;

    bool atEnd() const noexcept { return m_offset >= m_length; }
    std::size_t remaining() const noexcept { return atEnd() ? 0 : m_length - m_offset; }
    /// Throws "Packet is corrupt" in the name of the operation unless the next bytes lie in the message.
    void need(std::size_t count, char const* operation) const {
        if (count > remaining()) failCorrupt(operation);
    }

    // The next bytes, which must lie in the message.
    std::uint8_t u8() noexcept { return m_array[take(1)]; }
    std::uint16_t u16() noexcept { return __builtin_bswap16(load<std::uint16_t>(take(2))); }
    std::uint32_t u32() noexcept { return __builtin_bswap32(load<std::uint32_t>(take(4))); }
    std::string_view peek(std::size_t count) const noexcept { return {textAt(m_offset), count}; }
    std::string_view bytes(std::size_t count) noexcept { return {textAt(take(count)), count}; }

    /// As u16(), wherever it lies.
    std::uint16_t u16Anywhere() noexcept {
        unsigned int const high = byte(m_offset++);
        return static_cast<std::uint16_t>(high << 8 | byte(m_offset++));
    }
    void skip(std::size_t count) noexcept { m_offset += count; }

    /// Appends a name to the text, with a dot between the two. Throws "OutOfBounds name index" for a name
    /// that leaves the message or does not end.
    void name(std::string& text) {
        if (rememberedName(text)) return;
        if (m_steps > m_length || !shortName(text)) anyName(text);
    }

    /// Whether there was a name of more than longestUsualName bytes.
    bool hadLongNames() const noexcept { return m_hadLongNames; }

    [[noreturn]] static void failCorrupt(char const* operation);

private:
    // A greater length byte makes it a pointer, also where RFC 1035 has reserved it.
    static constexpr std::uint8_t longestLabel = 63;
    // The text of all names of a message. Every message whose pointers lead to earlier names stays below.
    static constexpr std::size_t nameAllowance = std::size_t{4} << 20;

    /// The name that begins at some place of the message, as a piece of m_read.
    struct Remembered {
        std::uint32_t begin = 0;
        std::uint16_t at = 0;
        std::uint16_t length = 0;
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

    std::size_t take(std::size_t count) noexcept { return std::exchange(m_offset, m_offset + count); }
    template <class Number>
    Number load(std::size_t at) const noexcept {
        Number number;
        std::memcpy(&number, m_array.data() + at, sizeof number);
        return number;
    }
    char const* textAt(std::size_t at) const noexcept {
        return reinterpret_cast<char const*>(m_array.data()) + at;
    }
    std::uint8_t byte(std::size_t at) const noexcept { return at < m_array.size() ? m_array[at] : 0; }
    std::size_t target(std::size_t at) const noexcept {
        return static_cast<std::size_t>(m_array[at] & longestLabel) << 8 | m_array[at + 1];
    }
    std::uint8_t nameByte(std::size_t at) const;
    std::string_view label(std::size_t at) const;

    bool rememberedName(std::string& text);
    bool shortName(std::string& text);
    void anyName(std::string& text);
    void append(std::string_view labels, std::string& text);
    void appendOrFail(std::string_view labels, std::string& text);

    std::string_view recall(std::size_t at) const noexcept;
    char* roomToRead() noexcept;
    void remember(std::size_t at, std::size_t begin, std::size_t end) noexcept;
    void forget() noexcept;
    void keep(std::string const& text, std::size_t start);

    std::span<unsigned char const> m_array;
    std::size_t m_length = 0;
    std::size_t m_offset = 0;
    std::size_t m_steps = 0;      // over labels and pointers, for all names so far
    std::size_t m_nameBytes = 0;  // of all names so far
    bool m_hadLongNames = false;

    // The names that were read last. m_read goes round: a position in it counts all that was ever written.
    std::array<Remembered, 64> m_remembered{};  // by the low bits of the place
    std::array<char, 4096> m_read;
    std::uint32_t m_readEnd = 0;
    std::uint32_t m_oldest = 0;  // what begins before is of another message, or overwritten

    std::vector<Visit> m_visits;  // of the name that is being read
    std::vector<Kept> m_kept;     // by place; empty until m_steps makes it worth while
    std::string m_texts;
};

/// Appends a name that is nothing but a pointer to a place that is remembered, as most are.
inline bool WireReader::rememberedName(std::string& text) {
    if (remaining() < 2 || m_array[m_offset] <= longestLabel) return false;
    std::string_view const known = recall(target(m_offset));
    if (known.empty() || m_nameBytes + known.size() >= nameAllowance) return false;
    m_offset += 2;
    append(known, text);
    return true;
}

/// The name that begins at a place; empty when that is not known.
inline std::string_view WireReader::recall(std::size_t at) const noexcept {
    Remembered const& name = m_remembered[at % m_remembered.size()];
    if (name.at != at || name.begin < m_oldest) return {};
    return {m_read.data() + name.begin % m_read.size(), name.length};
}

/// Appends what the message has an allowance for.
inline void WireReader::append(std::string_view labels, std::string& text) {
    m_nameBytes += labels.size() + 1;
    if (!text.empty()) text += '.';
    text += labels;
}

}  // namespace Quillmark
