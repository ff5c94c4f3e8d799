// Names are what a hostile message would spend our time and memory with. Once a message has made us take
// more steps than it has bytes, the text of every place that a name goes over is kept, and a later name
// that is pointed there takes it whole: from then on each place is walked once. And all names of a message
// share an allowance.

#include "net/WireReader.h"

#include <algorithm>
#include <cassert>

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

// A greater length byte makes it a pointer, also where RFC 1035 has reserved it.
constexpr std::uint8_t longestLabel = 63;

// The text of all names of a message. Every message whose pointers lead to earlier names stays below.
constexpr std::size_t nameAllowance = std::size_t{4} << 20;
static_assert(nameAllowance <= UINT32_MAX);

constexpr Site here{"Resolver", 0};

[[noreturn]] void failName() {
    fail("Resolver::ParseName", ParseError, here, "OutOfBounds name index");
}

}  // namespace

void WireReader::failCorrupt(char const* operation) {
    fail(operation, ParseError, here, "Packet is corrupt");
}

void WireReader::length(std::size_t length) {
    assert(length <= m_array.size());
    m_length = length;
    m_steps = 0;
    m_kept = {};
    m_texts = {};
}

void WireReader::need(std::size_t count, char const* operation) const {
    if (count > remaining()) failCorrupt(operation);
}

std::uint16_t WireReader::u16() noexcept {
    unsigned int const high = u8();
    return static_cast<std::uint16_t>(high << 8 | u8());
}

std::uint32_t WireReader::u32() noexcept {
    std::uint32_t const high = u16();
    return high << 16 | u16();
}

std::string_view WireReader::peek(std::size_t count) const {
    assert(count <= remaining());
    return {reinterpret_cast<char const*>(m_array.data()) + m_offset, count};
}

std::string_view WireReader::bytes(std::size_t count) {
    std::string_view const result = peek(count);
    skip(count);
    return result;
}

void WireReader::name(std::string& text) {
    std::size_t const start = text.size();
    bool const keeping = m_steps > m_length;
    if (keeping) m_kept.resize(m_array.size());
    m_visits.clear();

    std::size_t at = m_offset;
    std::size_t behind = 0;  // the name as it is stored here: behind its first pointer
    std::size_t steps = 0;
    while (std::uint8_t const count = nameByte(at)) {
        if (keeping && behind != 0 && m_kept[at].known) {
            Kept const& kept = m_kept[at];
            append(std::string_view(m_texts).substr(kept.begin, kept.end - kept.begin), text);
            break;
        }
        if (++steps > m_length) failName();  // there are not so many places: it goes round
        if (keeping) m_visits.push_back({at, text.size()});
        if (count > longestLabel) {
            if (behind == 0) behind = at + 2;
            at = static_cast<std::size_t>(count & longestLabel) << 8 | nameByte(at + 1);
        } else {
            append(label(at), text);
            at += 1 + std::size_t{count};
        }
    }
    m_offset = behind != 0 ? behind : at + 1;
    m_steps += steps;
    if (!m_visits.empty()) keep(text, start);
}

/// Keeps what a name read from its start, for each place that it went over.
void WireReader::keep(std::string const& text, std::size_t start) {
    std::size_t const base = m_texts.size();
    m_texts.append(text, start);
    for (auto const& [at, length] : m_visits) {
        // Alone, a name does not begin with the dot that follows what stood before it.
        std::size_t const begin = std::min(text.size(), length == 0 ? 0 : length + 1);
        m_kept[at] = {static_cast<std::uint32_t>(base + begin - start),
                      static_cast<std::uint32_t>(m_texts.size()), true};
    }
}

std::uint8_t WireReader::nameByte(std::size_t at) const {
    if (at >= m_length) failName();
    return m_array[at];
}

std::string_view WireReader::label(std::size_t at) const {
    std::size_t const count = m_array[at];
    if (count >= m_length - at) failName();
    return {reinterpret_cast<char const*>(m_array.data()) + at + 1, count};
}

void WireReader::append(std::string_view labels, std::string& text) {
    if (labels.empty()) return;
    m_nameBytes += labels.size() + 1;
    if (m_nameBytes > nameAllowance) failName();
    if (!text.empty()) text += '.';
    text += labels;
}

}  // namespace Quillmark
