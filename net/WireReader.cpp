// Names are what a hostile message would spend our time and memory with. Reading one takes time in
// proportion to its text: a chain of pointers is walked once and its end kept, so that later names leap
// over it, and behind every leap comes a label or the end. And all names of a message share an allowance.

#include "net/WireReader.h"

#include <cassert>

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

// A greater length byte makes it a pointer, also where RFC 1035 has reserved it.
constexpr std::uint8_t longestLabel = 63;

// The text of all names of a message. Every message whose pointers lead to earlier names stays below.
constexpr std::size_t nameAllowance = std::size_t{4} << 20;

constexpr Site here{"Resolver", 0};

[[noreturn]] void failName() {
    fail("Resolver::ParseName", ParseError, here, "OutOfBounds name index");
}

}  // namespace

void WireReader::failCorrupt(char const* operation) {
    fail(operation, ParseError, here, "Packet is corrupt");
}

void WireReader::length(std::size_t length) {
    assert(length <= m_array.size() && m_array.size() < UINT16_MAX);
    m_length = length;
    m_chainEnds.clear();
    m_chainEnds.shrink_to_fit();
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
    std::size_t at = m_offset;
    std::size_t behind = 0;  // the name as it is stored here: behind its first pointer
    std::size_t jumps = 0;
    while (std::uint8_t const count = nameByte(at)) {
        if (count <= longestLabel) {
            appendLabel(at + 1, count, text);
            at += 1 + std::size_t{count};
            continue;
        }
        if (jumps++ == 0) behind = at + 2;
        if (jumps > m_length) failName();  // there are not so many pointers: it goes round
        at = follow(at);
    }
    m_offset = jumps == 0 ? at + 1 : behind;
}

std::uint8_t WireReader::nameByte(std::size_t at) const {
    if (at >= m_length) failName();
    return m_array[at];
}

bool WireReader::isPointer(std::size_t at) const {
    return nameByte(at) > longestLabel;
}

std::size_t WireReader::target(std::size_t pointer) const {
    unsigned int const high = nameByte(pointer) & longestLabel;
    return high << 8 | nameByte(pointer + 1);
}

/// Where a pointer leads in the end: to a label or to the end of a name.
std::size_t WireReader::follow(std::size_t pointer) {
    std::size_t const first = target(pointer);
    if (!isPointer(first)) return first;

    m_chainEnds.resize(m_array.size());
    std::size_t end = pointer;
    for (std::size_t jumps = 0; isPointer(end); end = target(end)) {
        if (std::uint16_t const known = m_chainEnds[end]) {
            end = known - 1U;
            break;
        }
        if (++jumps > m_length) failName();
    }
    for (std::size_t at = pointer; at != end && m_chainEnds[at] == 0; at = target(at))
        m_chainEnds[at] = static_cast<std::uint16_t>(end + 1);
    return end;
}

void WireReader::appendLabel(std::size_t at, std::size_t count, std::string& text) {
    if (count > m_length - at) failName();
    m_nameBytes += count + 1;
    if (m_nameBytes > nameAllowance) failName();
    if (!text.empty()) text += '.';
    text.append(reinterpret_cast<char const*>(m_array.data()) + at, count);
}

}  // namespace Quillmark
