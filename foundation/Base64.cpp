#include "foundation/Base64.h"

#include <array>
#include <string>

#include "foundation/Fail.h"
#include "include2/Buffer"

namespace Quillmark {

char const BufferImpl::s_Base64Chars[65] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

namespace {

constexpr int foreign = -1;
constexpr int whiteSpace = -2;
constexpr int equals = -3;

constexpr int valueOf(unsigned int byte) {
    if (byte >= 'A' && byte <= 'Z') return static_cast<int>(byte - 'A');
    if (byte >= 'a' && byte <= 'z') return static_cast<int>(byte - 'a' + 26);
    if (byte >= '0' && byte <= '9') return static_cast<int>(byte - '0' + 52);
    switch (byte) {
    case '+': return 62;
    case '/': return 63;
    case '=': return equals;
    case '\t':
    case '\n':
    case '\v':
    case '\f':
    case '\r':
    case ' ': return whiteSpace;
    default: return foreign;
    }
}

}  // namespace

// What valueOf() says, written out because outsiders index it as a plain array.
// clang-format off
int const BufferImpl::s_Base64Values[256] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -2, -2, -2, -2, -2, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -2, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 62, -1, -1, -1, 63,
    52, 53, 54, 55, 56, 57, 58, 59, 60, 61, -1, -1, -1, -3, -1, -1,
    -1,  0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10, 11, 12, 13, 14,
    15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, -1, -1, -1, -1, -1,
    -1, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40,
    41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
};
// clang-format on

namespace {

// Twelve bits are two characters, so a group is two look-ups.
constexpr auto pairs = [] {
    std::array<std::array<char, 2>, 4096> table{};
    std::array<char, 64> alphabet{};
    for (unsigned int byte = 0; byte != 256; ++byte)
        if (int const value = valueOf(byte); value >= 0)
            alphabet[static_cast<std::size_t>(value)] = static_cast<char>(byte);
    for (std::size_t i = 0; i != table.size(); ++i) table[i] = {alphabet[i >> 6], alphabet[i & 63]};
    return table;
}();

// The bits of a character where its place in the group wants them; bit 31 for what is no character.
constexpr std::uint32_t noCharacter = 0x80000000U;
constexpr auto placed = [] {
    std::array<std::array<std::uint32_t, 256>, 4> tables{};
    for (unsigned int place = 0; place < 4; ++place)
        for (unsigned int byte = 0; byte < 256; ++byte) {
            int const value = valueOf(byte);
            tables[place][byte] =
                value < 0 ? noCharacter : static_cast<std::uint32_t>(value) << (18 - 6 * place);
        }
    return tables;
}();

unsigned char lowByte(std::uint32_t bits) noexcept {
    return static_cast<unsigned char>(bits & 0xff);
}

}  // namespace

void base64EncodeGroupsPortable(unsigned char const* in, std::size_t groups, char* out) noexcept {
    for (; groups != 0; --groups, in += 3, out += 4) {
        unsigned int const bits = (unsigned{in[0]} << 16) | (unsigned{in[1]} << 8) | in[2];
        auto const& first = pairs[bits >> 12];
        auto const& second = pairs[bits & 0xfff];
        out[0] = first[0], out[1] = first[1];
        out[2] = second[0], out[3] = second[1];
    }
}

void base64DecodePortable(unsigned char const* in, std::size_t size, unsigned char* out,
                          Base64Run& run) noexcept {
    for (; run.read < size; ++run.read) {
        if (run.place == 0)
            for (; size - run.read >= 4; run.read += 4, run.written += 3) {
                unsigned char const* const group = in + run.read;
                std::uint32_t const bits =
                    placed[0][group[0]] | placed[1][group[1]] | placed[2][group[2]] | placed[3][group[3]];
                if (bits >= noCharacter) break;
                out[run.written] = lowByte(bits >> 16);
                out[run.written + 1] = lowByte(bits >> 8);
                out[run.written + 2] = lowByte(bits);
            }
        if (run.read == size) break;
        int const value = BufferImpl::s_Base64Values[in[run.read]];
        if (value >= 0)
            base64DecodeValue(static_cast<unsigned int>(value), out, run);
        else if (value != whiteSpace)
            break;
    }
}

namespace {

/// Lines of what @p Groups gives.
template <void (*Groups)(unsigned char const*, std::size_t, char*) noexcept>
void linesOf(unsigned char const* in, std::size_t lines, char* out) noexcept {
    for (; lines != 0; --lines, in += base64LineBytes, out += base64LineLength + 1) {
        Groups(in, base64LineBytes / 3, out);
        out[base64LineLength] = '\n';
    }
}

Base64Run decodePortable(unsigned char const* in, std::size_t size, unsigned char* out) noexcept {
    Base64Run run;
    base64DecodePortable(in, size, out, run);
    return run;
}

void encodeGroupsPlain(unsigned char const* in, std::size_t groups, char* out) noexcept {
    char const* const alphabet = BufferImpl::s_Base64Chars;
    for (; groups != 0; --groups, in += 3, out += 4) {
        out[0] = alphabet[in[0] >> 2];
        out[1] = alphabet[((in[0] & 3) << 4) | (in[1] >> 4)];
        out[2] = alphabet[((in[1] & 15) << 2) | (in[2] >> 6)];
        out[3] = alphabet[in[2] & 63];
    }
}

Base64Run decodePlain(unsigned char const* in, std::size_t size, unsigned char* out) noexcept {
    Base64Run run;
    for (; run.read < size; ++run.read) {
        int const value = BufferImpl::s_Base64Values[in[run.read]];
        if (value >= 0)
            base64DecodeValue(static_cast<unsigned int>(value), out, run);
        else if (value != whiteSpace)
            break;
    }
    return run;
}

}  // namespace

std::span<Base64Kernel const> base64Kernels() noexcept {
    static Base64Kernel const kernels[] = {
        base64Avx512,
        base64Avx2,
        {"portable", InstructionSet::Any, base64EncodeGroupsPortable, linesOf<base64EncodeGroupsPortable>,
         decodePortable},
        {"plain", InstructionSet::Any, encodeGroupsPlain, linesOf<encodeGroupsPlain>, decodePlain},
    };
    return kernels;
}

Base64Kernel const& base64Kernel() noexcept {
    static Base64Kernel const& best = bestKernel(base64Kernels());
    return best;
}

void base64Encode(unsigned char const* in, std::size_t size, char* out) noexcept {
    std::size_t const groups = size / 3;
    base64Kernel().encodeGroups(in, groups, out);
    std::size_t const rest = size % 3;
    if (rest == 0) return;
    unsigned char const* const tail = in + groups * 3;
    unsigned char const last[3] = {tail[0], rest == 2 ? tail[1] : static_cast<unsigned char>(0), 0};
    char* const end = out + groups * 4;
    base64EncodeGroupsPortable(last, 1, end);
    end[3] = '=';
    if (rest == 1) end[2] = '=';
}

std::size_t Base64Decoder::decode(unsigned char const* in, std::size_t size, unsigned char* out) {
    unsigned char const* const begin = out;
    Base64Kernel const& kernel = base64Kernel();
    for (std::size_t i = 0; i < size;) {
        if (m_place == 0) {
            Base64Run const run = kernel.decode(in + i, size - i, out);
            i += run.read;
            out += run.written;
            m_place = run.place;
            m_bits = run.bits;
            if (i == size) break;
        }
        // One character the long way: what stopped the run, or the rest of a group in pieces.
        unsigned char const byte = in[i];
        int const value = BufferImpl::s_Base64Values[byte];
        if (value == equals && m_place >= 2)
            m_place = padding;
        else if (value >= 0 && m_place != padding) {
            m_bits = (m_bits << 6) | static_cast<unsigned int>(value);
            if (m_place != 0) *out++ = lowByte(m_bits >> (6 - 2 * m_place));
            m_place = (m_place + 1) % 4;
        } else if (value != whiteSpace)
            failAt(i, size, byte, value);
        ++i;
    }
    m_position += size;
    return static_cast<std::size_t>(out - begin);
}

void Base64Decoder::endLine() noexcept {
    if (m_place == padding) m_place = 0;
    m_position = 0;
}

void Base64Decoder::failAt(std::size_t index, std::size_t size, unsigned char byte, int value) {
    std::uint64_t const position = m_position + index;
    unsigned int const place = m_place;
    m_position += size;
    m_place = 0;
    if (value == foreign) {
        static constexpr char digits[] = "0123456789abcdef";
        std::string text = "Invalid Base64 Encoding at pos " + std::to_string(position) + ". Character=0x";
        if (byte >= 16) text += digits[byte >> 4];
        text += digits[byte & 15];
        fail<BufferException>(BadArgument, Site{"BufferImpl", 709}, text);
    }
    if (value == equals)
        fail<BufferException>(BadArgument, Site{"BufferImpl", place == 0 ? 722U : 733U},
                              "Invalid Base64 Encoding: Equal not expected.");
    fail<BufferException>(BadArgument, Site{"BufferImpl", 780}, "Invalid Base64 Encoding: Equal expected.");
}

}  // namespace Quillmark
