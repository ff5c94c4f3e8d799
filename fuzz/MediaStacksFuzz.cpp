// Filters one behind the other: the bytes that come out are those of the plain functions, one after the other,
// whatever the pieces in which they went in.

#include <memory>
#include <vector>

#include "fuzz/support/Fuzz.h"
#include "include2/Base64Media"
#include "include2/BufferMedia"
#include "include2/EncoderMedia"
#include "include2/Media"
#include "include2/Obfuscator"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

constexpr uint_t seed = 0x00a50012;

/// What goes through a stack: bytes, and whether their end is known.
struct Flow {
    std::string bytes;
    bool ended = true;
};

// The filters said plainly.

Flow base64(Flow const& in) {
    static char const alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::size_t column = 0;
    auto const put = [&](std::string const& group) {
        out += group;
        column += 4;
        if (column == 76) out += '\n', column = 0;
    };
    std::size_t const whole = in.bytes.size() / 3 * 3;
    auto const at = [&](std::size_t i) {
        return i < in.bytes.size() ? static_cast<unsigned char>(in.bytes[i]) : 0u;
    };
    for (std::size_t i = 0; i < (in.ended ? in.bytes.size() : whole); i += 3) {
        unsigned int const bits = at(i) << 16 | at(i + 1) << 8 | at(i + 2);
        std::string group{alphabet[bits >> 18], alphabet[bits >> 12 & 63], alphabet[bits >> 6 & 63],
                          alphabet[bits & 63]};
        for (std::size_t missing = in.bytes.size() - i; missing < 3; ++missing) group[missing + 1] = '=';
        put(group);
    }
    if (in.ended) out += '\n';
    return {out, false};  // it does not end what comes next
}

Flow quotedPrintable(Flow const& in) {
    static char const digits[] = "0123456789ABCDEF";
    std::string out;
    std::size_t column = 0;
    for (char const c : in.bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (column > 72) out += "=\n", column = 0;
        if (c == '\n') {
            out += c;
            column = 0;
        } else if ((c > ' ' && c <= '~' && c != '=') || c == ' ' || (c >= '\t' && c <= '\r')) {
            out += c;
            column += 1;
        } else {
            out += {'=', digits[byte >> 4], digits[byte & 15]};
            column += 3;
        }
    }
    return {out, in.ended};
}

Flow header(Flow const& in) {
    std::string out;
    for (std::size_t i = 0; i < in.bytes.size(); ++i) {
        if (i != 0 && i % 128 == 0) out += "\n ";
        out += in.bytes[i];
    }
    return {out, in.ended};
}

Flow obfuscated(Flow const& in) {
    std::string out;
    for (char const c : in.bytes) out += static_cast<char>(c ^ static_cast<char>((seed ^ seed >> 16) & 0xff));
    return {out, false};
}

Flow unchanged(Flow const& in) {
    return in;
}

struct Filter {
    MediaOut (*before)(MediaOut next);
    Flow (*plain)(Flow const&);
};

constexpr Filter filters[] = {
    {[](MediaOut next) -> MediaOut { return Base64MediaOut(next); }, base64},
    {[](MediaOut next) -> MediaOut { return QuotedPrintableOut(next); }, quotedPrintable},
    {[](MediaOut next) -> MediaOut { return HeaderMediaOut(next); }, header},
    {[](MediaOut next) -> MediaOut { return LightweightObfuscator(next, seed); }, obfuscated},
    {[](MediaOut next) -> MediaOut { return TeeMediaOut(next, BufferMediaOut()); }, unchanged},
    {[](MediaOut next) -> MediaOut { return TeeMediaOut(MediaOut(), next); }, unchanged},
};

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    std::vector<Filter> stack;
    for (std::size_t i = in.number(0, 4); i > 0; --i) stack.push_back(in.oneOf(filters));
    bool const ends = in.number(0, 3) != 0;
    Input const lengths = in;
    std::string const text = in.rest();

    BufferMediaOut last;
    MediaOut first = last;
    Flow expected{text, ends};
    for (auto filter = stack.rbegin(); filter != stack.rend(); ++filter) first = filter->before(first);
    for (Filter const& filter : stack) expected = filter.plain(expected);

    inPieces(text, lengths.empty() ? text.size() : 90, lengths, [&](auto const* bytes, auto count) {
        if (count % 2 == 0)
            first.write(bytes, count);
        else
            first.write(Buffer(bytes, count, true));
    });
    if (ends) first.end();
    claimSame("what comes out of a stack of filters",
              std::string(reinterpret_cast<char const*>(last.buffer().data()), last.buffer().length()),
              expected.bytes);
    return 0;
}
