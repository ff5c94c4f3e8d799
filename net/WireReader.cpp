// A name is put together in one pass over its labels. What a pointer led to is remembered by its place, so
// that the many names of a message that end alike are copied and not read again.
//
// Names are also what a hostile message would spend our time and memory with. Once a message has made us take
// more steps than it has bytes, the text of every place that a name goes over is kept, and a later name
// that is pointed there takes it whole: from then on each place is walked once. And all names of a message
// share an allowance.

#include "net/WireReader.h"

#include "foundation/Fail.h"

#include <algorithm>
#include <cassert>
#include <tuple>

namespace Quillmark {

namespace {

constexpr Site here{"Resolver", 0};

// As many bytes as a label may have are copied faster than as many as this one has.
constexpr std::size_t copied = 64, copiedOfShort = 16;

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
    forget();
    m_kept.clear();
    m_texts.clear();
}

void WireReader::restart() {
    m_offset = m_nameBytes = 0;
    m_hadLongNames = false;
    m_visits.clear();
    length(0);
}

void WireReader::release() noexcept {
    std::vector<Visit>().swap(m_visits);
    std::vector<Kept>().swap(m_kept);
    std::string().swap(m_texts);
}

/// Reads a name of usual length that does not jump about. False leaves everything as it was, also for a
/// name that is none. It is put together behind what is remembered, to be remembered where it is.
bool WireReader::shortName(std::string& text) {
    constexpr int mostJumps = 16;
    char* const name = roomToRead();
    std::size_t length = 0;  // with a dot at the beginning

    std::size_t at = m_offset;
    std::size_t behind = 0;                   // the name as it is stored here: behind its first pointer
    std::size_t learnt = at, learntFrom = 0;  // a place to remember, and where its name begins
    std::size_t steps = 0;
    int jumps = 0;
    for (;; ++steps) {
        if (at >= m_length) return false;
        std::size_t const count = m_array[at];
        if (count == 0) break;
        if (count <= longestLabel) {
            if (count >= m_length - at || length + count > longestUsualName) return false;
            // The length goes along, and becomes the dot before the label.
            if (count < copiedOfShort)
                std::memcpy(name + length, textAt(at), copiedOfShort);
            else
                std::memcpy(name + length, textAt(at), copied);
            name[length] = '.';
            length += 1 + count;
            at += 1 + count;
            continue;
        }
        if (at + 1 >= m_length || ++jumps > mostJumps) return false;
        if (behind == 0) behind = at + 2;
        at = target(at);
        if (std::string_view const known = recall(at); !known.empty()) {
            if (length + known.size() > longestUsualName) return false;
            name[length] = '.';
            std::memcpy(name + length + 1, known.data(), known.size());
            length += 1 + known.size();
            break;
        }
        if (jumps == 1) learnt = at, learntFrom = length;
    }
    if (m_nameBytes + length > nameAllowance) return false;

    m_offset = behind != 0 ? behind : at + 1;
    m_steps += steps;
    if (length == 0) return true;
    append({name + 1, length - 1}, text);
    if (learntFrom < length) remember(learnt, learntFrom + 1, length);
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
            appendOrFail(std::string_view(m_texts).substr(kept.begin, kept.end - kept.begin), text);
            break;
        }
        if (++steps > m_length) failName();  // there are not so many places: it goes round
        if (keeping) m_visits.push_back({at, text.size()});
        if (count > longestLabel) {
            if (behind == 0) behind = at + 2;
            at = static_cast<std::size_t>(count & longestLabel) << 8 | nameByte(at + 1);
        } else {
            appendOrFail(label(at), text);
            at += 1 + std::size_t{count};
        }
    }
    m_offset = behind != 0 ? behind : at + 1;
    m_steps += steps;
    if (text.size() - start > longestUsualName) m_hadLongNames = true;
    if (!m_visits.empty()) keep(text, start);
}

/// Where the longest usual name may be put together.
char* WireReader::roomToRead() noexcept {
    constexpr std::uint32_t size = std::tuple_size_v<decltype(m_read)>;
    constexpr std::uint32_t needed = 1 + longestUsualName + copied;
    if (m_readEnd % size > size - needed) m_readEnd = (m_readEnd / size + 1) * size;
    if (m_readEnd + needed > size) m_oldest = std::max(m_oldest, m_readEnd + needed - size);
    return m_read.data() + m_readEnd % size;
}

/// Remembers a piece of what was put together there.
void WireReader::remember(std::size_t at, std::size_t begin, std::size_t end) noexcept {
    m_remembered[at % m_remembered.size()] = {m_readEnd + static_cast<std::uint32_t>(begin),
                                              static_cast<std::uint16_t>(at),
                                              static_cast<std::uint16_t>(end - begin)};
    constexpr std::uint32_t aligned = 32;  // to write from such a place on is faster
    m_readEnd = (m_readEnd + static_cast<std::uint32_t>(end) + aligned - 1) / aligned * aligned;
}

void WireReader::forget() noexcept {
    m_oldest = m_readEnd;
    if (m_readEnd < UINT32_MAX / 2) return;
    m_remembered.fill({});
    m_readEnd = m_oldest = 0;
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

void WireReader::appendOrFail(std::string_view labels, std::string& text) {
    if (labels.empty()) return;
    if (m_nameBytes + labels.size() >= nameAllowance) failName();
    append(labels, text);
}

}  // namespace Quillmark
