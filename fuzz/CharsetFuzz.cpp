// Text of other character sets, in pieces and as a whole.

#include "fuzz/support/Fuzz.h"
#include "platform/quill_string.h"
#include "tools/Charset.h"

using namespace QuillmarkFuzz;
using QuillmarkTool::ToUtf8;

namespace {

constexpr char const* charsets[] = {
    "utf-8",  "iso-8859-1", "windows-1252", "koi8-r", "utf-16", "utf-16le", "utf-16be", "utf-32", "utf-7",
    "euc-jp", "shift_jis",  "iso-2022-jp",  "gb2312", "gbk",    "gb18030",  "big5",     "euc-kr", "x-unknown",
};

std::string converted(std::string const& charset, std::string_view text, std::size_t longest, Input lengths) {
    ToUtf8 toUtf8(charset);
    std::string out;
    inPieces(text, longest, lengths, [&](auto const* bytes, auto count) {
        out += toUtf8.convert({reinterpret_cast<char const*>(bytes), count});
    });
    return out;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    std::string const charset = in.oneOf(charsets);
    Input const lengths = in;
    std::string const text = in.rest();
    std::string const whole = converted(charset, text, text.size(), noLengths());
    if (charset == "utf-8" || charset == "x-unknown") {
        claimSame("text that passes", whole, text);
        return 0;
    }
    claim(::isValidUtf8(whole.data(), whole.size()), "what was converted is UTF-8");
    // Behind a fault the C library's converters with states go on as it comes.
    if (whole.find('?') == std::string::npos)
        claimSame("converted in pieces", converted(charset, text, 7, lengths), whole);
    return 0;
}
