#include "tools/FileNames.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "tools/Words.h"

namespace QuillmarkTool {
namespace {

using Piece = FileNames::Piece;

constexpr std::string_view blanks = " \t";

std::string_view trimmed(std::string_view text) {
    std::size_t const first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// A parameter as it is written. Its values are those that programs see, without quotes, the longest first.
struct Parameter {
    std::string name;  // lower case
    std::vector<std::string> values;
};

/// Takes a value from the front of the text, and the semicolon behind it.
std::vector<std::string> takeValue(std::string_view& text, bool knowsEscapes) {
    std::vector<std::string> values;
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(blanks)));
    std::string quoted;
    std::size_t at = 0;
    bool isOpen = text.starts_with('"');
    bool const isQuoted = isOpen;
    if (isOpen) {
        for (at = 1; at < text.size() && text[at] != '"'; ++at) {
            if (text[at] == '\\' && knowsEscapes && at + 1 < text.size()) ++at;
            quoted.push_back(text[at]);
        }
        isOpen = at == text.size();
        if (!isOpen) ++at;
    }
    // Quotes that nothing closes hide nothing from those who look for the semicolon only.
    if (isOpen) values.push_back(quoted), at = 1;
    std::string_view const rest = text.substr(at, text.find(';', at) - at);
    if (isQuoted && !isOpen) {
        std::string longer = quoted;
        std::copy_if(rest.begin(), rest.end(), std::back_inserter(longer), [](char c) { return c != '"'; });
        if (!trimmed(rest).empty()) values.emplace_back(trimmed(longer));
        values.push_back(std::move(quoted));
    } else {
        std::string_view const whole = trimmed(rest);
        values.emplace_back(whole);
        std::string_view const token = whole.substr(0, whole.find_first_of(" \t\"(,"));
        if (token.size() < whole.size()) values.emplace_back(token);
    }
    text.remove_prefix(std::min(text.size(), at + rest.size() + 1));
    return values;
}

std::vector<Parameter> parametersOf(std::string_view text, bool knowsEscapes) {
    std::vector<Parameter> all;
    for (std::size_t end = 0; (end = text.find_first_of("=;")) != std::string_view::npos;) {
        // Some forget the semicolon before a parameter.
        std::string_view name = trimmed(text.substr(0, end));
        name.remove_prefix(name.find_last_of(blanks) + 1);
        bool const hasValue = text[end] == '=';
        text.remove_prefix(end + 1);
        if (!hasValue) continue;
        Parameter parameter{std::string(name), takeValue(text, knowsEscapes)};
        for (char& c : parameter.name)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        all.push_back(std::move(parameter));
    }
    return all;
}

/// The text without its comments. Those in quoted text are none.
std::string withoutComments(std::string_view text) {
    std::string rest;
    std::size_t depth = 0;
    bool isQuoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        bool const isEscape = c == '\\' && i + 1 < text.size();
        if (depth == 0 && c == '"') isQuoted = !isQuoted;
        if (!isQuoted && c == '(') ++depth;
        if (depth == 0) rest.append(text.substr(i, isEscape ? 2 : 1));
        if (!isQuoted && c == ')' && depth > 0) --depth;
        if (isEscape) ++i;
    }
    return rest;
}

/// The number of the piece that a parameter is, of the one with this name.
std::optional<Piece> pieceOf(Parameter const& parameter, std::string_view name) {
    std::string_view rest = parameter.name;
    if (!rest.starts_with(name)) return std::nullopt;
    rest.remove_prefix(name.size());
    if (!rest.starts_with('*')) return std::nullopt;
    rest.remove_prefix(1);
    Piece piece{0, rest.ends_with('*'), parameter.values.front()};
    if (piece.isEncoded) rest.remove_suffix(1);
    auto const [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), piece.number);
    if (rest.empty() || end != rest.data() + rest.size()) return std::nullopt;
    if (error != std::errc()) piece.number = UINT64_MAX;
    return piece;
}

std::string joined(std::span<Piece const> pieces) {
    std::string text;
    std::string charset;
    std::string bytes;  // of the last pieces, which are encoded: they may cut a character in two
    for (Piece const& piece : pieces) {
        std::string_view value = piece.text;
        if (!piece.isEncoded) {
            text += inUtf8(charset, std::exchange(bytes, {}));
            text += value;
            continue;
        }
        // The first one begins with the character set and the language: utf-8'en'.
        std::size_t const charsetEnd = value.find('\'');
        std::size_t const languageEnd = value.find('\'', std::min(value.size(), charsetEnd) + 1);
        if (&piece == pieces.data() && languageEnd != std::string_view::npos) {
            charset = value.substr(0, charsetEnd);
            value.remove_prefix(languageEnd + 1);
        }
        bytes += unescaped(value, '%');
    }
    return text + inUtf8(charset, bytes);
}

/// The pieces up to the first that is missing, which is as far as some programs read. Of several with one number
/// the first counts, or the last.
std::vector<Piece> unbroken(std::vector<Piece> const& inOrder, bool takeFirst) {
    std::vector<Piece> pieces;
    for (Piece const& piece : inOrder) {
        if (piece.number > pieces.size()) break;
        if (piece.number == pieces.size())
            pieces.push_back(piece);
        else if (!takeFirst)
            pieces.back() = piece;
    }
    return pieces;
}

}  // namespace

void FileNames::addOnce(std::string name) {
    if (!name.empty() && m_known.insert(name).second) m_all.push_back(std::move(name));
}

void FileNames::add(std::string_view name) {
    addText(inUtf8({}, decodedText(name)));
    if (name.find("=?") != std::string_view::npos) addText(inUtf8({}, decodedText(name, Groups::Cut)));
}

void FileNames::addText(std::string text) {
    std::size_t const end = text.find('\0');  // and of the name, for many
    std::string start = end != std::string::npos ? text.substr(0, end) : std::string();
    addOnce(std::move(text));
    addOnce(std::move(start));
}

void FileNames::addJoined(std::vector<Piece> const& pieces) {
    std::vector<Piece> inOrder = pieces;
    std::stable_sort(inOrder.begin(), inOrder.end(),
                     [](Piece const& a, Piece const& b) { return a.number < b.number; });
    add(joined(inOrder));
    add(joined(unbroken(inOrder, true)));
    add(joined(unbroken(inOrder, false)));
    add(joined(pieces));
}

void FileNames::read(std::string_view field) {
    readOnce(field, true);
    if (field.find('\\') != std::string_view::npos) readOnce(field, false);
    if (field.find('(') != std::string_view::npos) readOnce(withoutComments(field), true);
}

void FileNames::readOnce(std::string_view field, bool knowsEscapes) {
    auto const parameters = parametersOf(field, knowsEscapes);
    for (std::string const name : {"filename", "name"}) {
        for (Parameter const& parameter : parameters)
            if (parameter.name == name + '*')
                for (std::string const& value : parameter.values)
                    add(joined(std::array{Piece{0, true, value}}));
        std::vector<Piece> pieces;
        for (Parameter const& parameter : parameters)
            if (auto const piece = pieceOf(parameter, name)) pieces.push_back(*piece);
        if (!pieces.empty()) addJoined(pieces);
        for (Parameter const& parameter : parameters)
            if (parameter.name == name)
                for (std::string const& value : parameter.values) add(value);
    }
}

}  // namespace QuillmarkTool
