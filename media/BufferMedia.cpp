#include "include2/BufferMedia"

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "foundation/Fail.h"
#include "platform/quill_cfg.h"

namespace Quillmark {

namespace {

constexpr char const* defaultSwapTemplate = "/var/spool/tmp/swapXXXXXX";

constexpr int ownBufferSize = 8192;
constexpr int ownBufferStep = 4096;

uint_t saturatedSum(uint_t a, uint_t b) {
    return a + std::min(b, UINT32_MAX - a);
}

ulong_t saturatedSum(ulong_t a, ulong_t b) {
    return a + std::min(b, UINT64_MAX - a);
}

bool liesIn(Buffer const& buffer, unsigned char const* byte) {
    unsigned char const* const begin = buffer.data();
    return !std::less<>()(byte, begin) && std::less<>()(byte, begin + buffer.length());
}

/// The number of bytes that remain, as peek() tells it.
int cutTo32Bits(ulong_t n) {
    return static_cast<int>(static_cast<std::uint32_t>(n));
}

// With a file the cache begins at a quarter of its limit, without one at all of it. From 2 GiB on, which
// means "no limit" to those who ask for it, it begins small.
Buffer newCache(uint_t limit, bool spills) {
    int const quarter = static_cast<int>(limit / 4);
    int const whole = limit <= INT32_MAX ? static_cast<int>(limit) : 0;
    Buffer cache = spills ? Buffer(quarter, quarter) : Buffer(whole, ownBufferStep);
    cache.maxSize(limit);
    return cache;
}

}  // namespace

BufferMediaInImpl::BufferMediaInImpl(Buffer const& buffer, uint_t index) : m_index(index), m_buffer(buffer) {
    if (index != 0 && index >= buffer.length())
        fail("BufferMedia.  Attempted to set the index past end of buffer.", OutOfRange, {nullptr, 0});
}

BufferMediaInImpl::~BufferMediaInImpl() = default;

uint_t BufferMediaInImpl::available() const {
    uint_t const length = m_buffer.length();
    return m_index < length ? length - static_cast<uint_t>(m_index) : 0;
}

bool BufferMediaInImpl::atEnd() const {
    return available() == 0;
}

int BufferMediaInImpl::peek() const {
    return cutTo32Bits(available());
}

void BufferMediaInImpl::readline(Buffer& line) {
    line.length(0);
    uint_t const n = available();
    if (n == 0) return;
    Buffer const& buffer = m_buffer;
    unsigned char const* const begin = buffer.data() + m_index;
    // No further than the piece reaches: a line that comes in many pieces is looked at once, not once for each.
    uint_t const piece = std::min(n, std::max(line.size(), 1U));
    auto const* const feed = static_cast<unsigned char const*>(std::memchr(begin, '\n', piece));
    line.append(begin, feed ? static_cast<uint_t>(feed - begin) + 1 : piece);
    m_index += line.length();
}

int BufferMediaInImpl::read(unsigned char* data, uint_t n) {
    if (!data) return 0;
    uint_t const count = std::min({available(), n, static_cast<uint_t>(INT32_MAX)});
    if (count == 0) return 0;
    Buffer const& buffer = m_buffer;
    std::memmove(data, buffer.data() + m_index, count);  // the caller may read the buffer into itself
    m_index += count;
    return static_cast<int>(count);
}

ulong_t BufferMediaInImpl::tell() const {
    return m_index;
}

void BufferMediaInImpl::setpos(ulong_t position) {
    m_index = position;
}

MediaOut& BufferMediaInImpl::write(MediaOut& out) {
    uint_t const n = available();
    Buffer const& buffer = m_buffer;
    out.write(buffer.data() + (buffer.length() - n), n);
    return out;
}

void BufferMediaInImpl::index(uint_t i) {
    m_index = std::min(i, m_buffer.length());
}

unsigned char BufferMediaInImpl::at(uint_t i) const {
    return m_buffer.at(i);
}

BufferMediaIn::BufferMediaIn() : MediaIn(new BufferMediaInImpl, false) {}
BufferMediaIn::BufferMediaIn(Buffer const& buffer, uint_t index)
    : MediaIn(new BufferMediaInImpl(buffer, index), false) {}

ulong_t BufferMediaIn::index() const {
    return as<BufferMediaInImpl>().index();
}

void BufferMediaIn::index(uint_t i) {
    as<BufferMediaInImpl>().index(i);
}

uint_t BufferMediaIn::length() const {
    return as<BufferMediaInImpl>().length();
}

unsigned char BufferMediaIn::operator[](uint_t i) const {
    return at(i);
}

unsigned char BufferMediaIn::at(uint_t i) const {
    return as<BufferMediaInImpl>().at(i);
}

Buffer const& BufferMediaIn::buffer() const {
    return as<BufferMediaInImpl>().buffer();
}

BufferMediaOutImpl::BufferMediaOutImpl() : m_position(0), m_buffer(ownBufferSize, ownBufferStep) {}
BufferMediaOutImpl::BufferMediaOutImpl(Buffer& buffer) : m_position(buffer.length()), m_buffer(buffer) {}
BufferMediaOutImpl::~BufferMediaOutImpl() = default;

void BufferMediaOutImpl::write(unsigned char const* data, uint_t n) {
    if (m_position >= m_buffer.length())
        m_buffer.append(data, n);
    else if (n >= m_position)
        m_buffer.assign(m_position, data, n);
    else  // n - position wraps: more is asked for than there is, which the form for buffers makes up for
        m_buffer.assign(m_position, Buffer(data, n, true));
    m_position = saturatedSum(m_position, n);
}

ulong_t BufferMediaOutImpl::tell() const {
    return m_position;
}

void BufferMediaOutImpl::setpos(ulong_t position) {
    m_position = static_cast<std::uint32_t>(std::min<ulong_t>(position, UINT32_MAX));
}

void BufferMediaOutImpl::buffer(Buffer& buffer) {
    m_buffer = buffer;
    m_position = m_buffer.length();
}

BufferMediaOut::BufferMediaOut() {
    adopt(new BufferMediaOutImpl);
}

BufferMediaOut::BufferMediaOut(Buffer& buffer) {
    adopt(new BufferMediaOutImpl(buffer));
}

Buffer& BufferMediaOut::buffer() {
    return as<BufferMediaOutImpl>().buffer();
}

Buffer const& BufferMediaOut::buffer() const {
    return as<BufferMediaOutImpl>().buffer();
}

void BufferMediaOut::buffer(Buffer& buffer) {
    as<BufferMediaOutImpl>().buffer(buffer);
}

PartialMediaInImpl::PartialMediaInImpl(MediaIn const& source, ulong_t start, ulong_t length)
    : m_source(source), m_start(start), m_rangeLength(length) {}
PartialMediaInImpl::~PartialMediaInImpl() = default;

ulong_t PartialMediaInImpl::remaining() const {
    return m_sourceEnded || m_position >= m_rangeLength ? 0 : m_rangeLength - m_position;
}

void PartialMediaInImpl::advance(ulong_t n) {
    m_position = saturatedSum(m_position, n);
    m_sourceEnded = n == 0;
}

bool PartialMediaInImpl::atEnd() const {
    return remaining() == 0;
}

int PartialMediaInImpl::peek() const {
    return cutTo32Bits(remaining());
}

void PartialMediaInImpl::readline(Buffer& line) {
    if (atEnd()) return line.length(0);
    m_source.readline(line);
    advance(line.length());
}

int PartialMediaInImpl::read(unsigned char* data, uint_t n) {
    auto const wanted = static_cast<uint_t>(std::min<ulong_t>({remaining(), n, INT32_MAX}));
    if (!data || wanted == 0) return 0;
    int const got = m_source.read(data, wanted);
    advance(static_cast<ulong_t>(std::max(got, 0)));
    return got;
}

ulong_t PartialMediaInImpl::tell() const {
    return m_position;
}

void PartialMediaInImpl::setpos(ulong_t position) {
    m_position = std::min(position, m_rangeLength);
    m_sourceEnded = false;
    m_source.setpos(saturatedSum(m_start, m_position));
}

MediaOut& PartialMediaInImpl::write(MediaOut& out) {
    setpos(0);
    return MediaInImpl::write(out);
}

PartialMediaIn::PartialMediaIn(MediaIn& source, ulong_t start, ulong_t length)
    : MediaIn(new PartialMediaInImpl(source, start, length), false) {}

SwapBufferMediaOutImpl::SwapBufferMediaOutImpl(uint_t maxCacheSize, char const* swapTemplate)
    : m_cacheOnly(swapTemplate == nullptr),
      m_maxCacheSize(maxCacheSize),
      m_swapTemplate(swapTemplate ? swapTemplate : ""),
      m_cache(newCache(maxCacheSize, swapTemplate != nullptr)) {}

SwapBufferMediaOutImpl::~SwapBufferMediaOutImpl() = default;

void SwapBufferMediaOutImpl::write(unsigned char const* data, uint_t n) {
    if (m_overflow) return;
    m_totalBytesWritten = saturatedSum(m_totalBytesWritten, n);
    if (!m_swapped && n <= cacheRoom())
        m_cache.append(data, n);
    else
        writeSwapped(data, n);
    m_overflow = m_maxSize != 0 && m_totalBytesWritten >= m_maxSize;
}

// For what does not stay in the cache, and everything that comes after it.
void SwapBufferMediaOutImpl::writeSwapped(unsigned char const* data, uint_t n) {
    bool const first = !std::exchange(m_swapped, true);
    if (m_cacheOnly) {
        if (!first) return;
        m_swapped = false;  // as long as there may be no memory
        cacheWhatFits(data, n);
        m_swapped = true;
        return;
    }
    Buffer copy;
    if (m_file.isNull()) {
        if (liesIn(m_cache, data)) {  // and would go or move with the cache
            copy = Buffer(data, n, false);
            data = std::as_const(copy).data();
        }
        spill();
        if (!m_autoRelease) cacheWhatFits(data, n);
    }
    m_file.write(data, n);
}

// The file counts as ours only when the whole cache has reached it; until then a failure leaves the cache
// alone, and the file goes with its handle.
void SwapBufferMediaOutImpl::spill() {
    TempFileMediaOut file(m_swapTemplate, true);
    file.write(m_cache);
    file.flush();
    if (m_autoRelease) m_cache = Buffer();
    m_file = file;
}

// Counted here, since for the buffer a maximum of 0 means none.
uint_t SwapBufferMediaOutImpl::cacheRoom() const {
    return m_maxCacheSize - std::min(m_maxCacheSize, m_cache.length());
}

void SwapBufferMediaOutImpl::cacheWhatFits(unsigned char const* data, uint_t n) {
    m_cache.append(data, std::min(n, cacheRoom()));
}

void SwapBufferMediaOutImpl::end() {
    if (!m_file.isNull()) m_file.end();
}

ulong_t SwapBufferMediaOutImpl::tell() const {
    return m_file.isNull() ? m_cache.length() : m_file.tell();
}

void SwapBufferMediaOutImpl::setpos(ulong_t position) {
    if (!m_file.isNull()) m_file.setpos(position);
}

void SwapBufferMediaOutImpl::maxCacheSize(uint_t n) {
    if (n <= m_maxCacheSize) return;
    m_maxCacheSize = n;
    m_cache.maxSize(n);
    m_cache.growSize(n - std::min(n, m_cache.size()));
}

void SwapBufferMediaOutImpl::cacheOnly(bool only) {
    if (!only && m_cacheOnly && m_swapTemplate.empty()) m_swapTemplate = quill_path(defaultSwapTemplate);
    m_cacheOnly = only;
}

void SwapBufferMediaOutImpl::discardCache() {
    if (!m_cache.isEmpty() && !m_file.isNull()) m_cache = Buffer();
}

bool SwapBufferMediaOutImpl::empty() const {
    return m_cache.isEmpty() && m_file.isNull();
}

SwapBufferMediaOut::SwapBufferMediaOut(uint_t maxCacheSize, char const* swapTemplate) {
    adopt(new SwapBufferMediaOutImpl(maxCacheSize, swapTemplate));
}

Buffer const& SwapBufferMediaOut::cache() const {
    return as<SwapBufferMediaOutImpl>().cache();
}

TempFileMediaOut SwapBufferMediaOut::fileMedia() const {
    return as<SwapBufferMediaOutImpl>().fileMedia();
}

uint_t SwapBufferMediaOut::maxCacheSize() const {
    return as<SwapBufferMediaOutImpl>().maxCacheSize();
}

void SwapBufferMediaOut::maxCacheSize(uint_t n) {
    as<SwapBufferMediaOutImpl>().maxCacheSize(n);
}

uint_t SwapBufferMediaOut::totalBytesWritten() const {
    return as<SwapBufferMediaOutImpl>().totalBytesWritten();
}

bool SwapBufferMediaOut::overflow() const {
    return as<SwapBufferMediaOutImpl>().overflow();
}

void SwapBufferMediaOut::maxSize(uint_t n) {
    as<SwapBufferMediaOutImpl>().maxSize(n);
}

void SwapBufferMediaOut::autoRelease(bool release) {
    as<SwapBufferMediaOutImpl>().autoRelease(release);
}

void SwapBufferMediaOut::cacheOnly(bool only) {
    as<SwapBufferMediaOutImpl>().cacheOnly(only);
}

void SwapBufferMediaOut::discardCache() {
    as<SwapBufferMediaOutImpl>().discardCache();
}

bool SwapBufferMediaOut::empty() const {
    return as<SwapBufferMediaOutImpl>().empty();
}

MediaIn createMediaInFromSwapBufferMediaOut(SwapBufferMediaOut const& out) {
    TempFileMediaOut file = out.fileMedia();
    if (file.isNull()) return BufferMediaIn(out.cache(), 0);
    file.end();
    return {new FileMediaInImpl(*file.tmpfile().operator->()), false};
}

}  // namespace Quillmark
