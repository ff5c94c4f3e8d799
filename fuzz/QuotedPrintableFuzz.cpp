// The quoted-printable encoder: whole and in pieces the same, and what a decoder makes of it.

#include "fuzz/support/Fuzz.h"
#include "include2/BufferMedia"
#include "include2/EncoderMedia"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

std::string encoded(std::string const& text, std::size_t longest, Input lengths) {
    BufferMediaOut end;
    QuotedPrintableOut out(end);
    inPieces(text, longest, lengths, [&](auto const* bytes, auto count) { out.write(bytes, count); });
    out.end();
    return textOf(end.buffer());
}

int digit(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// RFC 2045, section 6.7; line ends are bare line feeds.
std::string decoded(std::string const& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '=') {
            out += text[i];
            continue;
        }
        claim(i + 1 < text.size(), "no \"=\" is the last character");
        if (text[i + 1] == '\n') {
            ++i;
            continue;
        }
        claim(i + 2 < text.size() && digit(text[i + 1]) >= 0 && digit(text[i + 2]) >= 0,
              "two digits follow a \"=\"");
        out += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
        i += 2;
    }
    return out;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input const lengths(data, size);
    std::string const text = Input(data, size).rest();
    std::string const whole = encoded(text, text.size(), noLengths());
    claimSame("encoded byte by byte", encoded(text, 1, noLengths()), whole);
    claimSame("encoded in pieces", encoded(text, 20, lengths), whole);
    claimSame("encoded and decoded", decoded(whole), text);
    std::size_t column = 0;
    for (char const c : whole) {
        column = c == '\n' ? 0 : column + 1;
        claim(column <= 76, "no line has more than 76 characters");
        claim((c >= ' ' && c <= '~') || (c >= '\t' && c <= '\r'),
              "printable characters and white space only");
    }
    return 0;
}
