#include "include2/Base64Media"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>

#include "foundation/Base64.h"
#include "foundation/Fail.h"

namespace Quillmark {

namespace {

constexpr uint_t lineLength = base64LineLength;
constexpr std::size_t linesAtOnce = 100;
constexpr int lineBuffer = 8192;

/// Encoded lines on their way to a sink.
class Lines {
public:
    /// @param column  characters that the sink's last line has, below 76
    Lines(MediaOut& next, uint_t column) : m_next(next), m_column(column) {}

    /// Encodes as many of the groups as there is room for. @return how many that were
    std::size_t put(unsigned char const* in, std::size_t groups) {
        constexpr std::size_t lineGroups = lineLength / 4;
        Base64Kernel const& kernel = base64Kernel();
        std::size_t done = 0;
        while (done < groups && m_text.size() - m_size > lineLength) {
            std::size_t const room = (m_text.size() - m_size) / (lineLength + 1);
            std::size_t const lines = m_column == 0 ? std::min((groups - done) / lineGroups, room) : 0;
            if (lines != 0) {
                kernel.encodeLines(in + done * 3, lines, m_text.data() + m_size);
                done += lines * lineGroups;
                m_size += lines * (lineLength + 1);
                continue;
            }
            std::size_t const count = std::min<std::size_t>(groups - done, (lineLength - m_column) / 4);
            kernel.encodeGroups(in + done * 3, count, m_text.data() + m_size);
            done += count;
            advance(static_cast<uint_t>(count * 4));
        }
        return done;
    }

    /// Encodes a last group of one or two bytes, which takes no more room than a whole one.
    void putLast(unsigned char const* in, std::size_t size) {
        base64Encode(in, size, m_text.data() + m_size);
        advance(4);
    }

    void putLineFeed() {
        m_text[m_size++] = '\n';
        m_column = 0;
    }

    /// Hands everything to the sink. @return the characters of its last line
    uint_t flush() {
        m_next.write(reinterpret_cast<unsigned char const*>(m_text.data()), static_cast<uint_t>(m_size));
        m_size = 0;
        return m_column;
    }

private:
    void advance(uint_t characters) {
        m_size += characters;
        m_column += characters;
        if (m_column == lineLength) putLineFeed();
    }

    MediaOut& m_next;
    uint_t m_column;
    std::size_t m_size = 0;
    std::array<char, linesAtOnce*(lineLength + 1)> m_text;
};

}  // namespace

Base64MediaOutImpl::Base64MediaOutImpl(MediaOut const& next) : MediaOutDecoratorImpl(next) {}
Base64MediaOutImpl::~Base64MediaOutImpl() = default;

// The sink may throw. What it was given counts as written only when it came back, so that a write which
// fails at its first block can be tried again.
void Base64MediaOutImpl::write(unsigned char const* data, uint_t n) {
    if (n == 0) return;
    if (!data) fail<BufferException>(BadArgument, Site{"BufferImpl", 70});  // as a buffer over them would
    if (m_next.isNull()) m_next.write(data, n);
    uint_t const completing = m_pendingCount == 0 ? 0 : std::min(n, 3 - m_pendingCount);
    Lines lines(m_next, m_column);
    if (m_pendingCount + completing == 3) {
        std::memcpy(m_pending + m_pendingCount, data, completing);
        lines.put(m_pending, 1);
    } else if (completing != 0) {
        std::memcpy(m_pending + m_pendingCount, data, completing);
        m_pendingCount += completing;
        return;
    }
    data += completing;
    std::size_t groups = (n - completing) / 3;
    uint_t const left = (n - completing) % 3;
    for (bool first = completing != 0; first || groups != 0; first = false) {
        std::size_t const done = lines.put(data, groups);
        m_column = lines.flush();
        m_pendingCount = 0;
        data += done * 3;
        groups -= done;
    }
    std::memcpy(m_pending, data, left);
    m_pendingCount = left;
}

void Base64MediaOutImpl::end() {
    if (m_next.isNull()) return;
    Lines lines(m_next, m_column);
    if (m_pendingCount != 0) lines.putLast(m_pending, m_pendingCount);
    lines.putLineFeed();
    m_column = lines.flush();
    m_pendingCount = 0;
}

Base64MediaOut::Base64MediaOut() {
    adopt(new Base64MediaOutImpl(MediaOut()));
}

Base64MediaOut::Base64MediaOut(MediaOut const& next) {
    adopt(new Base64MediaOutImpl(next));
}

Base64MediaInImpl::Base64MediaInImpl(MediaIn const& source)
    : m_source(source), m_line(lineBuffer, 0), m_decoder(std::make_unique<Base64Decoder>()) {}

Base64MediaInImpl::~Base64MediaInImpl() = default;

uint_t Base64MediaInImpl::available() const {
    return m_decoded.length() - m_taken;
}

bool Base64MediaInImpl::atEnd() const {
    return available() == 0 && !m_lineWaits && m_source.atEnd();
}

// Kept for log readers: the title names readline.
int Base64MediaInImpl::peek() const {
    fail("Base64MediaInImpl::readline", Refused, Site{"Base64Media", 172}, "Not Implemented yet");
}

int Base64MediaInImpl::read(unsigned char* data, uint_t n) {
    if (!data) return 0;
    n = std::min<uint_t>(n, INT_MAX);
    if (available() < n) {
        m_decoded.shiftLeft(m_taken);
        m_taken = 0;
    }
    while (available() < n && (m_lineWaits || !m_source.atEnd())) decodeLine();
    uint_t const count = std::min(available(), n);
    std::memcpy(data, m_decoded.data() + m_taken, count);
    m_taken += count;
    m_delivered += count;
    return static_cast<int>(count);
}

// A line for which there is no room now waits for the next call.
void Base64MediaInImpl::decodeLine() {
    if (!m_lineWaits) m_source.readline(m_line);
    m_lineWaits = !m_line.isEmpty();
    if (!m_lineWaits) return;
    uint_t const before = m_decoded.length();
    if (m_line.length() > UINT32_MAX - before) fail<BufferException>(Refused, Site{"BufferImpl", 129});
    m_decoded.size(before + m_line.length());
    m_lineWaits = false;
    if (m_lineEnded) m_decoder->endLine();
    // A source fills the buffer, or all but its last byte, when the line goes on.
    m_lineEnded = m_line.at(m_line.length() - 1) == '\n' || m_line.size() - m_line.length() > 1;
    std::size_t const count = m_decoder->decode(m_line.data(), m_line.length(), m_decoded.data() + before);
    m_decoded.length(before + static_cast<uint_t>(count));
}

Base64MediaIn::Base64MediaIn(MediaIn& source) : MediaIn(new Base64MediaInImpl(source), false) {}

}  // namespace Quillmark
