#include "tools/Charset.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace QuillmarkTool {
namespace {

// The name comes from a stranger and would load a converter by that name. Only those that mail is
// written in are let through.
bool isConverted(std::string const& charset) {
    static constexpr std::array<std::string_view, 15> families{
        "iso-8859-", "windows-125", "cp125",  "koi8-",   "utf-16", "utf-32", "utf-7",      "shift_jis",
        "euc-jp",    "euc-kr",      "gb2312", "gb18030", "gbk",    "big5",   "iso-2022-jp"};
    static constexpr std::string_view plain{"abcdefghijklmnopqrstuvwxyz0123456789-_"};
    return charset.size() <= 16 && charset.find_first_not_of(plain) == std::string::npos &&
           std::any_of(families.begin(), families.end(),
                       [&](auto family) { return charset.starts_with(family); });
}

}  // namespace

iconv_t noConverter() {
    return std::bit_cast<iconv_t>(std::intptr_t{-1});
}

ToUtf8::ToUtf8(std::string const& charset)
    : ToUtf8(isConverted(charset) ? ::iconv_open("UTF-8", charset.c_str()) : noConverter()) {}

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
            ++in;
            --left;
        }
    }
    m_rest.erase(0, m_rest.size() - left);
    return m_out;
}

}  // namespace QuillmarkTool
