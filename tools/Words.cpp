#include "tools/Words.h"

#include <glib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "tools/Charset.h"
#include "tools/Mime.h"

namespace QuillmarkTool {
namespace {

constexpr std::string_view opening = "=?";

struct Word {
    std::string charset;  // lower case
    char encoding;        // 'b' or 'q'
    std::string_view payload;
    std::size_t length;  // of the whole word
};

char lower(char c) {
    return g_ascii_tolower(c);
}

/// The word at the beginning of a text that begins with the opening. Nothing is read twice for two openings: another
/// one ends the search.
std::optional<Word> wordAt(std::string_view text) {
    constexpr std::size_t longestCharset = 64;
    std::size_t const charsetEnd = text.find('?', opening.size());
    if (charsetEnd == std::string_view::npos || text.size() - charsetEnd < 3 || text[charsetEnd + 2] != '?')
        return std::nullopt;
    std::string charset(text.substr(opening.size(), std::min(charsetEnd - opening.size(), longestCharset)));
    charset.resize(std::min(charset.size(), charset.find('*')));  // behind it stands a language
    if (charset.empty() || charset.find_first_of(" \t=") != std::string::npos) return std::nullopt;
    std::transform(charset.begin(), charset.end(), charset.begin(), lower);
    char const encoding = lower(text[charsetEnd + 1]);
    if (encoding != 'b' && encoding != 'q') return std::nullopt;
    std::size_t const begin = charsetEnd + 3;
    for (std::size_t end = begin; (end = text.find('?', end)) != std::string_view::npos; ++end) {
        if (end + 1 < text.size() && text[end + 1] == '=')
            return Word{std::move(charset), encoding, text.substr(begin, end - begin), end + 2};
        if (end > begin && text[end - 1] == '=') break;
    }
    return std::nullopt;
}

/// Everything that the text holds: what is no Base64 is left out, and behind padding it begins anew.
std::string base64Bytes(std::string_view text) {
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned int count = 0;  // of the bits that no byte has yet
    for (char const c : text) {
        std::size_t const value = alphabet.find(c);
        if (c == '=') count = 0;
        if (value == std::string_view::npos) continue;
        bits = bits << 6U | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<char>(bits >> count & 0xffU));
    }
    return bytes;
}

/// Words that follow each other and are in one character set.
class Neighbours {
public:
    explicit Neighbours(Groups groups) : m_groups(groups) {}
    bool takes(Word const& word) const { return word.charset == m_charset; }
    void add(Word word) {
        if (word.encoding != m_encoding) decode();
        m_charset = std::move(word.charset);
        m_encoding = word.encoding;
        m_text += word.payload;
        if (m_encoding == 'b' && m_groups == Groups::Whole) m_text.push_back('=');
    }
    /// What they say, in UTF-8. None are left.
    std::string take() {
        decode();
        return inUtf8(m_charset, std::exchange(m_bytes, {}));
    }

private:
    void decode() {
        if (m_encoding == 'q') std::replace(m_text.begin(), m_text.end(), '_', ' ');
        m_bytes += m_encoding == 'q' ? unescaped(m_text, '=') : base64Bytes(m_text);
        m_text.clear();
    }

    Groups const m_groups;
    std::string m_charset;
    char m_encoding = 'b';
    std::string m_text;   // of the last ones, which are in one encoding
    std::string m_bytes;  // of those before them
};

}  // namespace

std::string unescaped(std::string_view text, char sign) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool const isEscape = text[i] == sign && text.size() - i > 2 && g_ascii_isxdigit(text[i + 1]) &&
                              g_ascii_isxdigit(text[i + 2]);
        if (!isEscape) {
            bytes.push_back(text[i]);
            continue;
        }
        bytes.push_back(
            static_cast<char>(g_ascii_xdigit_value(text[i + 1]) * 16 + g_ascii_xdigit_value(text[i + 2])));
        i += 2;
    }
    return bytes;
}

std::string inUtf8(std::string const& charset, std::string_view bytes) {
    if (bytes.empty()) return {};
    bool const isUtf8 = g_utf8_validate_len(bytes.data(), bytes.size(), nullptr) != FALSE;
    if (isUtf8 && (charset.empty() || charset == "utf-8")) return std::string(bytes);
    ToUtf8 known(Mime::converterFrom(charset));
    if (known.converts()) {
        std::string text(known.convert(bytes));
        return known.isWaiting() ? text + '?' : text;
    }
    if (isUtf8) return std::string(bytes);
    return std::string(ToUtf8("iso-8859-1").convert(bytes));
}

std::string decodedText(std::string_view text, Groups groups) {
    std::string decoded;
    Neighbours words(groups);
    std::size_t begin = 0;  // of what stands behind the last word
    for (std::size_t at = 0; (at = text.find(opening, at)) != std::string_view::npos;) {
        std::optional<Word> word = wordAt(text.substr(at));
        if (!word) {
            at += opening.size();
            continue;
        }
        std::string_view const between = text.substr(begin, at - begin);
        bool const isNeighbour = begin != 0 && between.find_first_not_of(" \t\r\n") == std::string_view::npos;
        if (!isNeighbour || !words.takes(*word)) decoded += words.take();
        if (!isNeighbour) decoded += inUtf8({}, between);
        begin = at += word->length;
        words.add(*std::move(word));
    }
    if (begin == 0) return std::string(text);
    return decoded + words.take() + inUtf8({}, text.substr(begin));
}

}  // namespace QuillmarkTool
