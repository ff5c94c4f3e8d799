#include "include2/EncoderMedia"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>

#include "foundation/ByteSet.h"

namespace Quillmark {

namespace {

/// A soft break comes before the byte that would follow this column.
constexpr int lastColumn = 72;

void appendEscaped(std::string& out, unsigned char byte) {
    static constexpr char digits[] = "0123456789ABCDEF";
    out += '=';
    out += digits[byte >> 4];
    out += digits[byte & 15];
}

/// White space passes as it is, like the printable bytes; line feeds are looked at before.
constexpr ByteSet passing = ByteSet::range('!', '<') | ByteSet::range('>', '~') | whiteSpaceBytes;
static_assert(passing.contains('\r') && !passing.contains('=') && !passing.contains(0x7f));

/// What is encoded at once: three times as much still has a length of 32 bits.
constexpr std::size_t blockSize = std::size_t{1} << 30;

}  // namespace

QuotedPrintableOutImpl::QuotedPrintableOutImpl(MediaOut const& next) : MediaOutDecoratorImpl(next) {}
QuotedPrintableOutImpl::~QuotedPrintableOutImpl() = default;

void QuotedPrintableOutImpl::write(Buffer const& buffer) {
    unsigned char const* data = buffer.data();
    std::size_t left = buffer.length();
    std::string out;
    while (left != 0) {
        std::size_t const block = std::min(left, blockSize);
        int column = m_column;  // which counts once the sink has taken the block
        out.clear();
        out.reserve(block + block / 8);
        for (unsigned char const byte : std::span(data, block)) {
            if (column > lastColumn) {
                out += "=\n";
                column = 0;
            }
            if (byte == '\n') {
                out += '\n';
                column = 0;
            } else if (passing.contains(byte)) {
                out += static_cast<char>(byte);
                column += 1;
            } else {
                appendEscaped(out, byte);
                column += 3;
            }
        }
        m_next.write(reinterpret_cast<unsigned char const*>(out.data()), static_cast<uint_t>(out.size()));
        m_column = column;
        data += block;
        left -= block;
    }
}

void QuotedPrintableOutImpl::write(unsigned char const* data, uint_t n) {
    write(Buffer(data, n, true));
}

QuotedPrintableOut::QuotedPrintableOut() : QuotedPrintableOut(MediaOut()) {}
QuotedPrintableOut::QuotedPrintableOut(MediaOut const& next) {
    adopt(new QuotedPrintableOutImpl(next));
}

UUEncodeOutImpl::UUEncodeOutImpl(MediaOut const& next) : MediaOutDecoratorImpl(next) {}
UUEncodeOutImpl::~UUEncodeOutImpl() = default;
void UUEncodeOutImpl::write(Buffer const& /*buffer*/) {}
void UUEncodeOutImpl::write(unsigned char const* data, uint_t n) {
    write(Buffer(data, n, true));
}
void UUEncodeOutImpl::end() {}

UUEncodeOut::UUEncodeOut() : UUEncodeOut(MediaOut()) {}
UUEncodeOut::UUEncodeOut(MediaOut const& next) {
    adopt(new UUEncodeOutImpl(next));
}

BinHex40OutImpl::BinHex40OutImpl(MediaOut const& next) : MediaOutDecoratorImpl(next) {}
BinHex40OutImpl::~BinHex40OutImpl() = default;
void BinHex40OutImpl::write(Buffer const& /*buffer*/) {}
void BinHex40OutImpl::write(unsigned char const* data, uint_t n) {
    write(Buffer(data, n, true));
}
void BinHex40OutImpl::end() {}

BinHex40Out::BinHex40Out() : BinHex40Out(MediaOut()) {}
BinHex40Out::BinHex40Out(MediaOut const& next) {
    adopt(new BinHex40OutImpl(next));
}

}  // namespace Quillmark
