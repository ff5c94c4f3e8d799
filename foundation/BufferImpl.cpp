// An owned array may have more memory behind it than `allocated` says. Callers see the growth in steps
// that they rely on; the memory itself doubles, so that appending n bytes moves O(n) bytes.

#include "include2/Buffer"

#include <sanitizer/asan_interface.h>  // whose marks are nothing in other builds

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <utility>

#include "foundation/Base64.h"
#include "foundation/Fail.h"
#include "foundation/SpareBlocks.h"

namespace Quillmark {

namespace {

constexpr Site here(unsigned int line) {
    return {"BufferImpl", line};
}

constexpr uint_t defaultSize = 1024;
constexpr uint_t defaultStep = 4096;
constexpr std::uint64_t largest = 0xffffffffU;

// What empty buffers wrap, so that their pointer can be handed to memcpy.
unsigned char nothing[1];

constexpr bool isWhiteSpace(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

int signOf(int difference) {
    return (difference > 0) - (difference < 0);
}

/// How the bytes compare with as many zero bytes.
int compareWithZeros(unsigned char const* bytes, std::size_t count) {
    return std::any_of(bytes, bytes + count, [](unsigned char c) { return c != 0; }) ? 1 : 0;
}

// Digests, requests and parts of lines come and go by the dozen, too small to be worth two pieces of memory.
constexpr uint_t roomInRecord = 64;

struct RecordBlock {
    alignas(std::max_align_t) unsigned char bytes[sizeof(BufferImpl) + roomInRecord];
};
static_assert(sizeof(BufferImpl) % alignof(std::max_align_t) == 0,
              "the room is aligned as the heap's memory is");

using SpareRecords = SpareBlocks<RecordBlock, 64>;

/// How much memory there has to be for an object of @p size bytes that begins with a record.
std::size_t blockSize(std::size_t size) noexcept {
    return size == sizeof(BufferImpl) ? sizeof(RecordBlock) : size;
}

/// Where a small array lies.
unsigned char* roomOf(BufferImpl& record) noexcept {
    return reinterpret_cast<unsigned char*>(&record + 1);
}

/// A record over an array that malloc or calloc made.
BufferImpl* newOwning(void* array, uint_t size, uint_t growStep) {
    auto* const record = new (std::nothrow) BufferImpl;
    if (!record) {
        std::free(array);
        fail<BufferException>(Refused, here(46));
    }
    if (!array) {
        delete record;
        fail<BufferException>(Refused, here(269));
    }
    record->data = static_cast<unsigned char*>(array);
    record->allocated = record->capacity = size;
    record->growStep = growStep;
    return record;
}

/// Zero-filled. The small arrays that malloc keeps at hand for each thread are not calloc's to give, and the
/// compiler would call it all the same if it saw nothing between the two.
void* zeroed(std::size_t size) {
    constexpr std::size_t small = 1032;
    if (size > small) return std::calloc(size, 1);
    void* const array = std::malloc(size);
    asm volatile("" : : : "memory");
    return array ? std::memset(array, 0, size) : nullptr;
}

BufferImpl* newOwned(uint_t size, uint_t growStep) {
    if (size > roomInRecord) return newOwning(zeroed(size), size, growStep);
    auto* const record = new (std::nothrow) BufferImpl;
    if (!record) fail<BufferException>(Refused, here(46));
    record->data = roomOf(*record);
    std::memset(record->data, 0, roomInRecord);
    ASAN_POISON_MEMORY_REGION(record->data + size, roomInRecord - size);  // whoever goes too far shows
    record->allocated = record->capacity = size;
    record->growStep = growStep;
    return record;
}

BufferImpl* newWrapping(void const* data, uint_t size) {
    auto* const record = new (std::nothrow) BufferImpl;
    if (!record) fail<BufferException>(Refused, here(55));
    record->data = static_cast<unsigned char*>(const_cast<void*>(data));
    record->length = record->allocated = record->maxSize = size;
    record->fixed = true;
    return record;
}

BufferImpl* newSized(int size, int growStep) {
    if (size < 0) fail<BufferException>(Refused, here(269));
    return newOwned(size == 0 ? defaultSize : static_cast<uint_t>(size),
                    growStep <= 0 ? defaultStep : static_cast<uint_t>(growStep));
}

BufferImpl* newFilled(void const* data, uint_t size, bool wrap) {
    if (!data && size != 0) fail<BufferException>(BadArgument, here(70));
    if (wrap) return newWrapping(data, size);
    BufferImpl* const record = newOwned(std::max(size, defaultSize), defaultStep);
    if (size != 0) std::memcpy(record->data, data, size);
    record->length = size;
    return record;
}

BufferImpl* share(BufferImpl* record) noexcept {
    if (record->count.fetch_add(1) == UINT32_MAX) std::abort();
    return record;
}

void release(BufferImpl* record) noexcept {
    if (record->count.fetch_sub(1) == 1) delete record;
}

/// The record that a handle has left, kept until what the caller points to in it has been read.
class [[nodiscard]] Former {
public:
    explicit Former(BufferImpl* record = nullptr) noexcept : m_record(record) {}
    Former(Former const&) = delete;
    Former& operator=(Former const&) = delete;
    ~Former() {
        if (m_record) release(m_record);
    }

private:
    BufferImpl* m_record;
};

/// Gives the handle bytes of its own if they are shared.
// Kept for the daemons: the copy is not limited, not fixed, and read from its start.
Former unshare(BufferImpl*& record) {
    if (record->count.load(std::memory_order_acquire) < 2) return Former();
    BufferImpl* const own = newOwned(record->allocated == 0 ? defaultSize : record->allocated,
                                     record->growStep == 0 ? defaultStep : record->growStep);
    if (record->length != 0) std::memcpy(own->data, record->data, record->length);
    own->length = record->length;
    own->protectedMode = record->protectedMode;
    own->sensitive = record->sensitive;
    return Former(std::exchange(record, own));
}

/// Comes before every change.
Former forChange(BufferImpl*& record) {
    return record->protectedMode ? unshare(record) : Former();
}

/// The number of bytes rounded to the next whole step above it.
std::uint64_t stepped(std::uint64_t bytes, uint_t step) {
    std::uint64_t const unit = step == 0 ? defaultStep : step;
    return (bytes / unit + 1) * unit;
}

[[noreturn]] void failFixedSize() {
    fail<BufferException>(BadArgument, here(121), "Can't change the size of a fixed size buffer.");
}

/// An array of @p size bytes that begins with the record's; the former array is gone, unless it was
/// the caller's. Null, and nothing changed, when the memory is not to be had.
unsigned char* moved(BufferImpl& record, std::size_t size) noexcept {
    bool const inside = record.data == roomOf(record);
    if (!record.fixed && !inside && !record.sensitive)
        return static_cast<unsigned char*>(std::realloc(record.data, size));
    auto* const array = static_cast<unsigned char*>(std::malloc(size));
    if (!array) return nullptr;
    if (record.length != 0) std::memcpy(array, record.data, record.length);
    if (record.fixed) return array;
    if (record.sensitive) explicit_bzero(record.data, record.allocated);
    if (!inside) std::free(record.data);
    return array;
}

/// Makes the array @p wanted bytes, or as many as the limit lets it; never fewer than it has. A fixed
/// record that grows owns its bytes from then on. Bytes beyond the length are 0, but for the next
/// @p coming, which the caller fills.
void grow(BufferImpl& record, std::uint64_t wanted, uint_t limit, uint_t coming = 0) {
    if (limit != 0) wanted = std::min<std::uint64_t>(wanted, limit);
    if (wanted <= record.allocated) return;
    if (wanted > largest) fail<BufferException>(Refused, here(129));
    if (wanted > record.capacity) {
        std::uint64_t roomy = 2ULL * record.capacity;
        roomy = std::clamp(roomy, wanted, limit != 0 ? limit : largest);
        unsigned char* array = moved(record, roomy);
        if (!array && roomy != wanted) array = moved(record, roomy = wanted);
        if (!array) fail<BufferException>(Refused, here(129));
        record.data = array;
        record.capacity = static_cast<uint_t>(roomy);
        record.fixed = false;
    }
    std::uint64_t const filled = std::min(std::uint64_t{record.length} + coming, wanted);
    std::memset(record.data + filled, 0, wanted - filled);
    record.allocated = static_cast<uint_t>(wanted);
}

/// Growth on request. Wrapped memory that is protected becomes owned; a maximum that is still the
/// size of that memory does not bind what takes its place.
void growTo(BufferImpl& record, std::uint64_t wanted) {
    bool const lifts = record.fixed && record.maxSize == record.allocated;
    uint_t const limit = lifts ? 0 : record.maxSize;
    grow(record, wanted, limit);
    record.maxSize = limit;
}

/// The rule of size().
void reserve(BufferImpl& record, std::uint64_t n) {
    if (record.allocated >= n) return;
    if (record.fixed) {
        if (!record.protectedMode) failFixedSize();
        record.growStep = defaultStep;
    }
    growTo(record, stepped(n, record.growStep));
}

/// Makes room for @p n more bytes; gives how many of them have a place. The first @p coming are the caller's
/// to fill.
uint_t makeRoom(BufferImpl& record, uint_t n, uint_t coming) {
    std::uint64_t const end = std::uint64_t{record.length} + n;
    std::uint64_t const target = record.maxSize == 0 ? end : std::min<std::uint64_t>(record.maxSize, end);
    if (target <= record.length) return 0;
    if (record.allocated < target) {
        bool const wrapsNothing = record.length == 0 && record.maxSize == 0;
        if (record.fixed && !wrapsNothing) return 0;
        grow(record, stepped(std::uint64_t{record.allocated} + n, record.growStep), record.maxSize, coming);
        if (record.growStep == 0) record.growStep = defaultStep;
    }
    return static_cast<uint_t>(target - record.length);
}

/// Appends bytes that may be the record's own. Memory of the caller stays where it is when the record grows.
void appendBytes(BufferImpl& record, unsigned char const* bytes, uint_t count) {
    std::less<unsigned char const*> const before;
    bool const own =
        !record.fixed && !before(bytes, record.data) && before(bytes, record.data + record.allocated);
    std::ptrdiff_t const offset = own ? bytes - record.data : 0;
    bool const spare = own && static_cast<std::uint64_t>(offset) + count > record.length;  // read, so cleared
    uint_t const stored = makeRoom(record, count, spare ? 0 : count);
    if (own) bytes = record.data + offset;
    if (stored != 0) std::memmove(record.data + record.length, bytes, stored);
    record.length += stored;
    if (!record.protectedMode)
        record.room = record.maxSize == 0 ? record.allocated : std::min(record.maxSize, record.allocated);
}

/// How many bytes the assign rule writes at @p pos, which is inside the array.
// Kept for the daemons: the count is n - pos, not n, and wraps below zero as unsigned numbers do.
uint_t assignedCount(BufferImpl const& record, uint_t pos, uint_t n) {
    return std::min(n - pos, record.allocated - pos);
}

void raiseLength(BufferImpl& record, uint_t end) {
    record.length = std::max(record.length, end);
}

uint_t findByte(BufferImpl const& record, unsigned char byte, uint_t start) noexcept {
    if (start >= record.length) return Buffer::npos;
    void const* const found = std::memchr(record.data + start, byte, record.length - start);
    return found ? static_cast<uint_t>(static_cast<unsigned char const*>(found) - record.data) : Buffer::npos;
}

uint_t findClass(BufferImpl const& record, bool whiteSpace, int start) noexcept {
    if (start < 0) return Buffer::npos;
    for (auto i = static_cast<uint_t>(start); i < record.length; ++i)
        if (isWhiteSpace(record.data[i]) == whiteSpace) return i;
    return Buffer::npos;
}

/// Takes @p n bytes out at @p pos, both inside the length.
void takeOut(BufferImpl& record, uint_t pos, uint_t n) {
    if (n == 0) return;
    std::memmove(record.data + pos, record.data + pos + n, record.length - pos - n);
    record.length -= n;
    if (record.sensitive) explicit_bzero(record.data + record.length, n);
}

/// A terminated copy of @p count bytes, which malloc made.
unsigned char* terminatedCopy(unsigned char const* bytes, std::size_t count) {
    auto* const copy = static_cast<unsigned char*>(std::malloc(count + 1));
    if (!copy) fail<BufferException>(Refused, here(129));
    std::memcpy(copy, bytes, count);
    copy[count] = 0;
    return copy;
}

/// Frees what a record owns beside its array.
void dropTerminated(BufferImpl& record) noexcept {
    if (!record.terminated) return;
    if (record.sensitive) explicit_bzero(record.terminated, record.terminatedLength);
    std::free(std::exchange(record.terminated, nullptr));
}

}  // namespace

void* BufferImpl::operator new(std::size_t size) {
    return SpareRecords::take(blockSize(size));
}

void* BufferImpl::operator new(std::size_t size, std::nothrow_t const& none) noexcept {
    return SpareRecords::take(blockSize(size), none);
}

void BufferImpl::operator delete(void* memory, std::size_t size) noexcept {
    SpareRecords::giveBack(memory, blockSize(size));
}

BufferImpl::~BufferImpl() {
    dropTerminated(*this);
    if (fixed || !data) return;
    if (sensitive) explicit_bzero(data, allocated);
    if (data != roomOf(*this)) std::free(data);
}

Buffer::Buffer() : m_impl(newOwned(defaultSize, defaultStep)) {}

Buffer::Buffer(int size, int growStep) : m_impl(newSized(size, growStep)) {}

Buffer::Buffer(void const* data, unsigned int size, bool wrap) : m_impl(newFilled(data, size, wrap)) {}

Buffer::Buffer(Buffer const& other) noexcept : m_impl(share(other.m_impl)) {}

Buffer& Buffer::operator=(Buffer const& other) noexcept {
    Buffer copy(other);
    std::swap(m_impl, copy.m_impl);
    return *this;
}

Buffer::~Buffer() {
    release(m_impl);
}

// By value: a byte whose address is asked for would be stored for each append that is fast.
void Buffer::appendSlowly(unsigned char byte) {
    appendSlowly(&byte, 1);
}

void Buffer::appendSlowly(unsigned char const* bytes, unsigned int count) {
    if (count == 0) return;
    if (!bytes) fail<BufferException>(BadArgument, here(356));
    Former const former = forChange(m_impl);
    appendBytes(*m_impl, bytes, count);
}

void Buffer::append(unsigned char const* bytes, unsigned int count) {
    BufferImpl& record = *m_impl;
    if (!bytes || record.length >= record.room || record.room - record.length < count)
        return appendSlowly(bytes, count);
    unsigned char* const end = record.data + record.length;
    record.length += count;
    std::memmove(end, bytes, count);
}

void Buffer::append(unsigned char* bytes, unsigned int count) {
    append(static_cast<unsigned char const*>(bytes), count);
}

void Buffer::append(Buffer const& other) {
    Former const former = forChange(m_impl);  // first: other may be this one
    if (other.isEmpty()) return;
    appendBytes(*m_impl, other.m_impl->data, other.m_impl->length);
}

void Buffer::assign(unsigned int pos, unsigned char const* src, unsigned int n) {
    Former const former = forChange(m_impl);
    if (pos >= size()) return;
    uint_t const count = assignedCount(*m_impl, pos, n);
    if (!src && count != 0) fail<BufferException>(BadArgument, here(0));
    if (count != 0) std::memmove(m_impl->data + pos, src, count);
    raiseLength(*m_impl, pos + count);
}

void Buffer::assign(unsigned int pos, Buffer const& other) {
    BufferImpl const& source = *other.m_impl;  // first: other may be this one, whose spare bytes stay behind
    Former const former = forChange(m_impl);
    if (pos >= size()) return;
    uint_t const count = assignedCount(*m_impl, pos, source.length);
    uint_t const held = std::min(count, source.allocated);
    if (held != 0) std::memmove(m_impl->data + pos, source.data, held);
    std::memset(m_impl->data + pos + held, 0, count - held);
    raiseLength(*m_impl, pos + count);
}

unsigned char Buffer::at(unsigned int index) const {
    if (index >= length()) fail<BufferException>(OutOfRange, here(320));
    return m_impl->data[index];
}

bool Buffer::operator==(Buffer const& other) const noexcept {
    if (m_impl == other.m_impl) return true;
    if (length() != other.length()) return false;
    return isEmpty() || std::memcmp(m_impl->data, other.m_impl->data, length()) == 0;
}

uint_t Buffer::find(unsigned char byte, int start) const noexcept {
    return start < 0 ? npos : findByte(*m_impl, byte, static_cast<uint_t>(start));
}

uint_t Buffer::find(Buffer const& needle, int start) const noexcept {
    if (start < 0 || static_cast<uint_t>(start) >= length()) return npos;
    auto const from = static_cast<uint_t>(start);
    if (needle.isEmpty()) return from;
    void const* const found =
        ::memmem(m_impl->data + from, length() - from, needle.m_impl->data, needle.length());
    return found ? static_cast<uint_t>(static_cast<unsigned char const*>(found) - m_impl->data) : npos;
}

uint_t Buffer::findWhiteSpace(int start) const noexcept {
    return findClass(*m_impl, true, start);
}

uint_t Buffer::findNonWhiteSpace(int start) const noexcept {
    return findClass(*m_impl, false, start);
}

int Buffer::compare(unsigned int, unsigned int skip, unsigned char const* other, unsigned int,
                    unsigned int count) const noexcept {
    bool const blind = isEmpty() || (skip != 0 && skip <= length());
    if (blind) return count == 0 ? 0 : -1;
    uint_t const bytes = count != 0 ? std::min(count, length()) : length();
    if (other) return signOf(std::memcmp(m_impl->data, other, bytes));
    return compareWithZeros(m_impl->data, bytes);
}

int Buffer::compare(Buffer const& other) const noexcept {
    // Kept for the daemons: with an empty other its whole array counts.
    if (other.isEmpty() && other.size() < length()) {
        uint_t const held = other.size();
        int const sign = held == 0 ? 0 : compare(0, 0, other.data(), 0, held);
        return sign != 0 ? sign : compareWithZeros(m_impl->data + held, length() - held);
    }
    return compare(0, 0, other.data(), 0, other.length());
}

unsigned char* Buffer::data() {
    Former const former = forChange(m_impl);
    return m_impl->data;
}

void Buffer::at(unsigned int index, unsigned char value) {
    Former const former = forChange(m_impl);
    if (index >= length()) fail<BufferException>(OutOfRange, here(333));
    m_impl->data[index] = value;
}

void Buffer::length(unsigned int n) {
    Former const former = forChange(m_impl);
    if (n > m_impl->allocated) fail<BufferException>(OutOfRange, here(174));
    m_impl->length = n;
}

void Buffer::size(unsigned int n) {
    Former const former = forChange(m_impl);
    reserve(*m_impl, n);
}

void Buffer::maxSize(unsigned int n) {
    Former const former = forChange(m_impl);
    if (!isResizable())
        fail<BufferException>(BadArgument, here(141),
                              "Can't change the maximum size of a fixed size buffer.");
    m_impl->maxSize = n;
    m_impl->room = 0;
}

uint_t Buffer::growSize(unsigned int step) {
    Former const former = forChange(m_impl);
    return m_impl->growStep = std::max(step, defaultStep);
}

void Buffer::fill(char value) {
    Former const former = forChange(m_impl);
    if (!isEmpty()) std::memset(m_impl->data, value, length());
}

void Buffer::erase(unsigned int pos, unsigned int n) {
    Former const former = forChange(m_impl);
    if (pos > length()) return;
    takeOut(*m_impl, pos, std::min(n, length() - pos));
}

void Buffer::shiftLeft(unsigned int n) {
    Former const former = forChange(m_impl);
    takeOut(*m_impl, 0, std::min(n, length()));
}

void Buffer::shiftRight(unsigned int n, unsigned char fill) {
    Former const former = forChange(m_impl);
    if (n == 0) return;
    BufferImpl& record = *m_impl;
    // Kept for the daemons: the allocated size is first compared with n alone.
    reserve(record, n);
    // One byte beyond the length moves along, since c_str() may have left its 0 there.
    std::uint64_t const needed = std::uint64_t{record.length} + n + 1;
    reserve(record, needed);
    if (record.allocated < needed) failFixedSize();
    std::memmove(record.data + n, record.data, record.length + std::size_t{1});
    std::memset(record.data, fill, n);
    record.length += n;
}

void Buffer::sensitiveData(bool sensitive) {
    Former const former = forChange(m_impl);
    m_impl->sensitive = sensitive;
}

void Buffer::protect() {
    Former const former = unshare(m_impl);
    m_impl->protectedMode = true;
    m_impl->room = 0;
}

void Buffer::unprotect() {
    Former const former = unshare(m_impl);
    m_impl->protectedMode = false;
}

char const* Buffer::c_str() {
    Former const former = forChange(m_impl);
    BufferImpl& record = *m_impl;
    bool const terminated = record.length != 0 && record.data[record.length - 1] == 0;
    if (!terminated) {
        if (record.length == record.allocated && makeRoom(record, 1, 1) == 0) {
            unsigned char* const copy = terminatedCopy(record.data, record.length);
            dropTerminated(record);
            record.terminated = copy;
            record.terminatedLength = record.length;
            return reinterpret_cast<char const*>(copy);
        }
        record.data[record.length] = 0;
    }
    return reinterpret_cast<char const*>(record.data);
}

void Buffer::increaseBuffer(unsigned int n) {
    Former const former = forChange(m_impl);
    if (!isResizable()) return;
    BufferImpl& record = *m_impl;
    if (record.fixed) record.growStep = defaultStep;
    growTo(record, stepped(std::uint64_t{record.allocated} + n, record.growStep));
}

Buffer Buffer::mid(unsigned int pos, unsigned int n) const {
    if (pos > length()) fail<BufferException>(OutOfRange, here(552));
    uint_t const count = std::min(n, length() - pos);
    if (count == 0) return {nothing, 0, true};
    if (count == length()) return *this;
    return {m_impl->data + pos, count, false};
}

Buffer Buffer::mid(unsigned int pos) const {
    return mid(pos, length());
}

Buffer Buffer::left(unsigned int n) const {
    return mid(0, n);
}

Buffer Buffer::right(unsigned int n) const {
    return n > length() ? *this : mid(length() - n, n);
}

std::string Buffer::toBase64String() const {
    std::string text(base64EncodedSize(length()), '\0');
    base64Encode(m_impl->data, length(), text.data());
    return text;
}

void Buffer::decodeBase64(Buffer& out) const {
    uint_t const count = length();
    std::uint64_t const room = std::uint64_t{count} * 3 / 4 + 3;
    out.size(static_cast<uint_t>(room));  // makes out's bytes its own, too
    BufferImpl const& source = *m_impl;   // which out may share, or be
    BufferImpl& target = *out.m_impl;
    target.length = 0;
    if (count == 0) {
        if (target.allocated != 0) target.data[0] = 0;
        return;
    }
    // The text may be read where the bytes are written, but not a little behind it.
    std::less<unsigned char const*> const before;
    bool const overtakes =
        before(source.data, target.data) && before(target.data, source.data + source.allocated);
    Base64Decoder decoder;
    if (target.allocated >= room && !overtakes) {
        target.length = static_cast<uint_t>(decoder.decode(source.data, count, target.data));
        return;
    }
    Buffer aside(1, 0);
    aside.m_impl->sensitive = target.sensitive;
    reserve(*aside.m_impl, room);
    std::size_t const decoded = decoder.decode(source.data, count, aside.m_impl->data);
    if (decoded > target.allocated) fail<BufferException>(OutOfRange, here(174));
    std::memcpy(target.data, aside.m_impl->data, decoded);
    target.length = static_cast<uint_t>(decoded);
}

bool Buffer::isValidBase64Char(unsigned char c) noexcept {
    return BufferImpl::s_Base64Values[c] != -1;
}

namespace {

long toNumber(Buffer const& text, int base) {
    if (text.isEmpty()) fail("BufferException", BadArgument, here(930));
    unsigned char const* const bytes = text.data();
    // The array is mostly more than the text, and zero behind it: then there is nothing to copy.
    if (std::memchr(bytes, 0, text.size()))
        return std::strtol(reinterpret_cast<char const*>(bytes), nullptr, base);
    Buffer copy(bytes, text.size(), false);
    copy.sensitiveData(text.sensitiveData());
    return std::strtol(copy.c_str(), nullptr, base);
}

}  // namespace

int bufferToInt(Buffer const& text, int base) {
    return static_cast<int>(toNumber(text, base));
}

unsigned int bufferToUint(Buffer const& text, int base) {
    return static_cast<unsigned int>(toNumber(text, base));
}

namespace {

/// What a text stands for, in an array of its size that is cleared only where nothing comes to stand.
class Base64Decoded : public Buffer {
public:
    explicit Base64Decoded(std::string const& text) : Buffer(nothing, 0, true) {
        auto const size = static_cast<uint_t>(text.size());
        release(std::exchange(m_impl, newOwning(std::malloc(size), size, defaultStep)));
        Base64Decoder decoder;
        m_impl->length = static_cast<uint_t>(
            decoder.decode(reinterpret_cast<unsigned char const*>(text.data()), size, m_impl->data));
        std::memset(m_impl->data + m_impl->length, 0, size - m_impl->length);
    }
};

}  // namespace

Buffer base64Decode(std::string const& text) {
    if (text.size() > INT_MAX) fail<BufferException>(Refused, here(269));
    constexpr std::size_t roomy =
        12;  // below it the rule of decodeBase64() asks for more than the text's size
    if (text.size() >= roomy) return Base64Decoded(text);
    Buffer out(static_cast<int>(text.size()), 0);
    Buffer(text.data(), static_cast<uint_t>(text.size()), true).decodeBase64(out);
    return out;
}

LineBuffer::LineBuffer() : Buffer(nothing, 0, true) {}

LineBuffer::LineBuffer(Buffer const& other) noexcept : Buffer(other) {}

LineBuffer& LineBuffer::operator=(Buffer const& other) {
    if (this == &other) {
        protect();
    } else {  // by way of a copy: what has no memory changes nothing
        Buffer own(other);
        own.protect();
        Buffer::operator=(own);
    }
    return *this;
}

LineBuffer::~LineBuffer() = default;

void LineBuffer::getLine(Buffer& line, unsigned char delimiter) const {
    line.length(0);
    uint_t const start = m_impl->lineStart;
    uint_t const end = findByte(*m_impl, delimiter, start);
    if (end == npos) return;
    line.append(m_impl->data + start, end + 1 - start);
    m_impl->lineStart = end + 1;
}

PartialBuffer::PartialBuffer() : Buffer(nothing, 0, true), m_offset(0) {}

PartialBuffer::PartialBuffer(Buffer const& other) noexcept : Buffer(other), m_offset(other.length()) {}

PartialBuffer::~PartialBuffer() = default;

Buffer PartialBuffer::buf() const {
    uint_t const from = std::min(m_offset, length());
    return {m_impl->data + from, length() - from, true};
}

}  // namespace Quillmark
