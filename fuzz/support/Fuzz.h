#pragma once
// What every target uses: an input that is cut into pieces, and claims that end the program when they do
// not hold. Log output is swallowed and the domain lists are those of examples/lists, in every target.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

/// What a target is: looks at one input, and claims. @return 0
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace QuillmarkFuzz {

/// One input, used up piece by piece: texts from the front, numbers from the back. So a seed begins with
/// text that a person can read, and a target that wants a choice first does not disturb it. What is used up
/// gives the empty text and the lowest number.
class Input {
public:
    Input(std::uint8_t const* data, std::size_t size) : m_rest(reinterpret_cast<char const*>(data), size) {}

    bool empty() const { return m_rest.empty(); }
    std::size_t left() const { return m_rest.size(); }

    /// A number from @p low to @p high, both included; takes the bytes that the range needs, at most 4.
    std::size_t number(std::size_t low, std::size_t high);
    bool flag() { return number(0, 1) != 0; }
    /// One of the elements of an array.
    template <class T, std::size_t N>
    T const& oneOf(T const (&choices)[N]) {
        return choices[number(0, N - 1)];
    }

    std::string bytes(std::size_t n);                                             ///< up to @p n bytes
    std::string piece(std::size_t longest) { return bytes(number(0, longest)); }  ///< of any length up to
    std::string line();  ///< up to the next line feed, which is dropped
    std::string rest();

private:
    std::string_view m_rest;
};

/// Hands over a text in pieces of 1 to @p longest bytes, as long as there are numbers for their lengths; then in
/// pieces of @p longest bytes.
template <class Take>
void inPieces(std::string_view text, std::size_t longest, Input lengths, Take take) {
    while (!text.empty()) {
        std::string_view const piece = text.substr(0, lengths.empty() ? longest : lengths.number(1, longest));
        take(reinterpret_cast<unsigned char const*>(piece.data()), static_cast<unsigned int>(piece.size()));
        text.remove_prefix(piece.size());
    }
}
inline Input noLengths() {
    return {nullptr, 0};
}

/// As a person reads it: quoted, bytes that cannot be seen as \xNN, cut after some hundred.
std::string shown(std::string_view text);
inline std::string shown(std::string const& text) {
    return shown(std::string_view(text));
}
inline std::string shown(char const* text) {
    return text ? shown(std::string_view(text)) : "null";
}
inline std::string shown(bool value) {
    return value ? "true" : "false";
}
template <class T>
std::string shown(T const& value) {
    if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else if constexpr (std::is_enum_v<T>) {
        return std::to_string(static_cast<long>(value));
    } else {  // a container
        std::string text = "[";
        for (auto const& element : value) text += (text.size() == 1 ? "" : ", ") + shown(element);
        return text + "]";
    }
}

[[noreturn]] void broken(std::string const& message);

/// @p holds, or else the program ends and says @p what.
inline void claim(bool holds, std::string_view what) {
    if (!holds) broken(std::string(what));
}

/// Both are equal, or else the program ends and shows them.
template <class A, class B>
void claimSame(std::string_view what, A const& a, B const& b) {
    if (!(a == b)) broken(std::string(what) + "\n  " + shown(a) + "\n  " + shown(b));
}

/// The text of the library's exception that @p action throws; empty when it throws none. Another exception
/// ends the program.
std::string failureOf(auto&& action);

/// A file in memory: its name, and its content.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content = {});
    ~MemoryFile();
    MemoryFile(MemoryFile const&) = delete;
    MemoryFile& operator=(MemoryFile const&) = delete;

    std::string const& name() const { return m_name; }
    std::string content() const;

private:
    int m_descriptor;
    std::string m_name;
};

}  // namespace QuillmarkFuzz

#include "include2/Exception"

namespace QuillmarkFuzz {

std::string failureOf(auto&& action) {
    try {
        action();
    } catch (Quillmark::Exception& e) {
        return e.asString();
    }
    return {};
}

}  // namespace QuillmarkFuzz
