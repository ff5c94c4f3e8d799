#include "include2/Md5"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>

#include "foundation/Fail.h"
#include "foundation/SpareBlocks.h"
#include "media/Md5Block.h"

namespace Quillmark {

namespace {

constexpr std::size_t digestSize = 16;

constexpr Site here(unsigned int line) {
    return {"Md5", line};
}

static_assert(std::endian::native == std::endian::little, "words are copied as they are");

/// The digest's bytes for those who ask for a buffer. They get copies of the handle, to whom it is memory of
/// the hasher: it cannot grow. When the hasher goes it becomes theirs, and the last copy frees it.
class DigestBuffer : public Buffer {
public:
    explicit DigestBuffer(unsigned char const* bytes) : Buffer(static_cast<int>(digestSize), 0) {
        m_impl->length = m_impl->maxSize = digestSize;
        m_impl->fixed = true;
        std::memcpy(m_impl->data, bytes, digestSize);
    }
    DigestBuffer(DigestBuffer const&) = delete;
    DigestBuffer& operator=(DigestBuffer const&) = delete;
    ~DigestBuffer() override { m_impl->fixed = false; }
};

}  // namespace

class Md5HasherImpl final : public virtual RefImpl {
public:
    void update(unsigned char const* data, std::size_t length);
    void finalize();
    Buffer const& digest();
    std::string const& hex();
    void xorDigest(std::uint32_t key);

    static void* operator new(std::size_t size);
    static void operator delete(void* memory, std::size_t size) noexcept;

private:
    Md5State m_state = md5InitialState;
    std::uint64_t m_bitCount = 0;                       // wraps, as RFC 1321 has it
    std::array<unsigned char, md5BlockSize> m_block{};  // input that fills no block yet
    std::array<unsigned char, digestSize> m_bytes{};    // of the digest, until a buffer has them
    std::optional<DigestBuffer> m_digest;
    bool m_finalized = false;
    std::string m_hex;  // empty until somebody asked for it

    std::size_t used() const noexcept { return m_bitCount / 8 % md5BlockSize; }
    void add(unsigned char const* data, std::size_t length) noexcept;
    unsigned char* bytes() { return m_digest ? m_digest->data() : m_bytes.data(); }
};

using SpareHashers = SpareBlocks<Md5HasherImpl, 8>;

void* Md5HasherImpl::operator new(std::size_t size) {
    return SpareHashers::take(size);
}

void Md5HasherImpl::operator delete(void* memory, std::size_t size) noexcept {
    SpareHashers::giveBack(memory, size);
}

Buffer const& Md5HasherImpl::digest() {
    if (!m_digest) m_digest.emplace(m_bytes.data());
    return *m_digest;
}

void Md5HasherImpl::add(unsigned char const* data, std::size_t length) noexcept {
    std::size_t const begun = used();
    m_bitCount += std::uint64_t{length} * 8;
    if (begun != 0) {
        std::size_t const taken = std::min(length, md5BlockSize - begun);
        std::memcpy(m_block.data() + begun, data, taken);
        if (begun + taken < md5BlockSize) return;
        md5Kernel().compress(m_state, m_block.data(), 1);
        data += taken;
        length -= taken;
    }
    std::size_t const blocks = length / md5BlockSize;
    if (blocks != 0) md5Kernel().compress(m_state, data, blocks);
    std::memcpy(m_block.data(), data + blocks * md5BlockSize, length % md5BlockSize);
}

void Md5HasherImpl::update(unsigned char const* data, std::size_t length) {
    if (m_finalized) fail("update", Refused, here(269), "Can't update a finalized digest");
    if (length == 0) return;
    if (!data) fail("update", BadArgument, Site{nullptr, 0}, "No data to add");
    add(data, length);
}

void Md5HasherImpl::finalize() {
    if (m_finalized) fail("finalize", Refused, here(317), "Already finalized this digest");
    // A bit 1, zeros up to eight bytes before the end of a block, the number of bits. They are stored in
    // whole words, as they are about to be read.
    using Word = std::uint64_t;
    constexpr std::size_t lengthAt = md5BlockSize - sizeof(Word);
    std::size_t const begun = used();
    std::size_t end = begun / sizeof(Word) * sizeof(Word);
    unsigned int const shift = begun % sizeof(Word) * 8;
    Word word = 0;
    std::memcpy(&word, m_block.data() + end, sizeof word);
    word = (word & ((Word{1} << shift) - 1)) | (Word{0x80} << shift);
    std::memcpy(m_block.data() + end, &word, sizeof word);
    end += sizeof(Word);
    if (end > lengthAt) {
        std::memset(m_block.data() + end, 0, md5BlockSize - end);
        md5Kernel().compress(m_state, m_block.data(), 1);
        end = 0;
    }
    std::memset(m_block.data() + end, 0, lengthAt - end);
    std::memcpy(m_block.data() + lengthAt, &m_bitCount, sizeof m_bitCount);
    md5Kernel().compress(m_state, m_block.data(), 1);
    std::memcpy(bytes(), m_state.data(), digestSize);
    m_block = {};
    m_finalized = true;
}

std::string const& Md5HasherImpl::hex() {
    if (!m_finalized || !m_hex.empty()) return m_hex;
    static constexpr char digits[] = "0123456789abcdef";
    unsigned char const* const digest = bytes();
    std::string text;
    text.reserve(2 * digestSize);
    for (std::size_t i = 0; i < digestSize; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    m_hex = std::move(text);
    return m_hex;
}

void Md5HasherImpl::xorDigest(std::uint32_t key) {
    if (!m_finalized) fail("xorDigest", Refused, here(365), "Digest not finalized.");
    m_hex.clear();
    std::array<std::uint32_t, digestSize / 4> words;
    std::memcpy(words.data(), bytes(), digestSize);
    std::uint32_t const first = words[0];
    words.fill(first);
    words[0] = first ^ key;
    std::memcpy(bytes(), words.data(), digestSize);
}

Md5Hasher::Md5Hasher() : m_impl(new Md5HasherImpl, false) {}
Md5Hasher::Md5Hasher(Md5Hasher const& other) noexcept = default;
Md5Hasher& Md5Hasher::operator=(Md5Hasher const& other) noexcept = default;
Md5Hasher::~Md5Hasher() = default;

void Md5Hasher::update(unsigned char const* data, unsigned int length) {
    m_impl->update(data, length);
}

void Md5Hasher::update(Buffer const& data) {
    m_impl->update(data.data(), data.length());
}

void Md5Hasher::finalize() {
    m_impl->finalize();
}

Buffer Md5Hasher::digest() const {
    return m_impl->digest();
}

std::string Md5Hasher::digestAsHexString() const {
    return m_impl->hex();
}

void Md5Hasher::xorDigest(unsigned int key) {
    m_impl->xorDigest(key);
}

}  // namespace Quillmark
