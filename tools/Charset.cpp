#include "tools/Charset.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace QuillmarkTool {
namespace {

/// Character sets in which all text has zero bytes.
struct WideRow {
    std::string_view name;  // without "-" and "_", which are there or not
    char const* converted;  // the name of its converter
};
constexpr WideRow wide[] = {
    {"utf16", "utf-16"},       {"utf16le", "utf-16le"},    {"utf16be", "utf-16be"}, {"csutf16", "utf-16"},
    {"csutf16le", "utf-16le"}, {"csutf16be", "utf-16be"},  {"ucs2", "utf-16"},      {"ucs2le", "utf-16le"},
    {"ucs2be", "utf-16be"},    {"iso10646ucs2", "utf-16"}, {"csunicode", "utf-16"}, {"unicode", "utf-16"},
    {"utf32", "utf-32"},       {"utf32le", "utf-32le"},    {"utf32be", "utf-32be"}, {"csutf32", "utf-32"},
    {"csutf32le", "utf-32le"}, {"csutf32be", "utf-32be"},  {"ucs4", "ucs-4"},       {"ucs4le", "ucs-4le"},
    {"ucs4be", "ucs-4be"},     {"iso10646ucs4", "ucs-4"},  {"csucs4", "ucs-4"},
};

/// The name of the converter, or null. The message's name comes from a stranger and would load a converter by that
/// name. Only those that mail is written in are let through.
char const* converterName(std::string const& charset) {
    static constexpr std::array<std::string_view, 13> families{
        "iso-8859-", "windows-125", "cp125",   "koi8-", "utf-7", "shift_jis",  "euc-jp",
        "euc-kr",    "gb2312",      "gb18030", "gbk",   "big5",  "iso-2022-jp"};
    static constexpr std::string_view plain{"abcdefghijklmnopqrstuvwxyz0123456789-_"};
    if (charset.size() > 16 || charset.find_first_not_of(plain) != std::string::npos) return nullptr;
    if (std::any_of(families.begin(), families.end(),
                    [&](auto family) { return charset.starts_with(family); }))
        return charset.c_str();
    std::string name = charset;
    std::erase_if(name, [](char c) { return c == '-' || c == '_'; });
    auto const* const row = std::find_if(std::begin(wide), std::end(wide),
                                         [&](WideRow const& known) { return known.name == name; });
    return row != std::end(wide) ? row->converted : nullptr;
}

iconv_t opened(std::string const& charset) {
    char const* const name = converterName(charset);
    return name != nullptr ? ::iconv_open("UTF-8", name) : noConverter();
}

}  // namespace

bool isUtf8(std::string const& charset) {
    static constexpr std::array<std::string_view, 5> names{"", "utf-8", "utf8", "us-ascii", "ascii"};
    return std::find(names.begin(), names.end(), charset) != names.end();
}

iconv_t noConverter() {
    return std::bit_cast<iconv_t>(std::intptr_t{-1});
}

ToUtf8::ToUtf8(std::string const& charset) : ToUtf8(opened(charset)) {
    std::string_view const name(m_converter != nullptr ? converterName(charset) : "");
    if (name.starts_with("utf-16")) m_unit = 2;
    if (name.starts_with("utf-32") || name.starts_with("ucs-4")) m_unit = 4;
}

ToUtf8::ToUtf8(iconv_t converter)
    : m_converter(reinterpret_cast<std::intptr_t>(converter) != -1 ? converter : nullptr) {}

ToUtf8::~ToUtf8() {
    if (m_converter != nullptr) ::iconv_close(m_converter);
}

std::string_view ToUtf8::convert(std::string_view piece) {
    if (m_converter == nullptr) return piece;
    m_rest.append(piece);
    m_out.clear();
    char* in = m_rest.data();
    std::size_t left = m_rest.size();
    std::array<char, 4096> block{};
    while (left != 0) {
        char* out = block.data();
        std::size_t room = block.size();
        bool const stopped = ::iconv(m_converter, &in, &left, &out, &room) == static_cast<std::size_t>(-1);
        int const reason = stopped ? errno : 0;
        m_out.append(block.data(), block.size() - room);
        if (reason == EINVAL) break;  // the piece ends within a character
        if (reason == EILSEQ) {
            m_out.push_back('?');
            std::size_t const skipped = std::min(m_unit, left);
            in += skipped;
            left -= skipped;
        }
    }
    m_rest.erase(0, m_rest.size() - left);
    return m_out;
}

}  // namespace QuillmarkTool
