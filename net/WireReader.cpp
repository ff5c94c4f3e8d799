// A name is put together in one pass over its labels. What a pointer led to is remembered by its place, so
// that the many names of a message that end alike are copied and not read again.
//
// Names are also what a hostile message would spend our time and memory with. Once a message has made us take
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
    if (m_readLength != 0) forget();
    m_kept = {};
    m_texts = {};
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
    if (m_steps > m_length || !shortName(text)) anyName(text);
}

/// Reads a name of usual length that does not jump about. False leaves everything as it was, also for a
/// name that is none.
bool WireReader::shortName(std::string& text) {
    constexpr std::size_t longestName = 512;
    constexpr std::size_t mostJumps = 16;
    std::array<char, longestName + longestLabel + 1> name;
    std::size_t length = 0;
    auto const dot = [&] {
        if (length != 0) name[length++] = '.';
    };

    std::size_t at = m_offset;
    std::size_t behind = 0;  // the name as it is stored here: behind its first pointer
    std::size_t steps = 0;
    std::size_t unknown = 0, unknownFrom = 0;  // the first place that was pointed at and not remembered
    std::size_t jumps = 0;
    for (;; ++steps) {
        if (at >= m_length) return false;
        std::size_t const count = m_array[at];
        if (count == 0) break;
        if (count <= longestLabel) {
            if (count >= m_length - at || length > longestName - longestLabel) return false;
            dot();
            unsigned char const* const label = m_array.data() + at + 1;
            // As many bytes as a label may have are copied faster than as many as this one has.
            bool const whole = m_array.size() - at > longestLabel + 1;
            std::memcpy(name.data() + length, label, whole ? longestLabel + 1 : count);
            length += count;
            at += 1 + count;
            continue;
        }
        if (at + 1 >= m_length || ++jumps > mostJumps) return false;
        if (behind == 0) behind = at + 2;
        at = (count & longestLabel) << 8 | m_array[at + 1];
        Remembered const& known = m_remembered[at % m_remembered.size()];
        if (known.at == at && at != 0) {
            if (known.length > longestName - length) return false;
            dot();
            std::memcpy(name.data() + length, m_read.data() + known.begin, known.length);
            length += known.length;
            break;
        }
        if (unknown == 0) unknown = at, unknownFrom = length == 0 ? 0 : length + 1;
    }
    if (length >= nameAllowance - m_nameBytes) return false;

    m_offset = behind != 0 ? behind : at + 1;
    m_steps += steps;
    if (length != 0) {
        m_nameBytes += length + 1;
        if (!text.empty()) text += '.';
        text.append(name.data(), length);
    }
    if (unknown != 0)
        remember(unknown, std::string_view(name.data(), length).substr(std::min(unknownFrom, length)));
    return true;
}

/// Reads every name, and fails for what is none.
void WireReader::anyName(std::string& text) {
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

void WireReader::remember(std::size_t at, std::string_view name) noexcept {
    if (name.empty() || name.size() > m_read.size()) return;
    if (name.size() > m_read.size() - m_readLength) forget();
    std::memcpy(m_read.data() + m_readLength, name.data(), name.size());
    m_remembered[at % m_remembered.size()] = {static_cast<std::uint16_t>(at),
                                              static_cast<std::uint16_t>(m_readLength),
                                              static_cast<std::uint16_t>(name.size())};
    m_readLength += name.size();
}

void WireReader::forget() noexcept {
    m_remembered.fill({});
    m_readLength = 0;
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
