#pragma once
// Buffers from texts and back.

#include <string>
#include <string_view>

#include "include2/Buffer"

namespace QuillmarkTest {

/// An owned buffer with these bytes.
inline Quillmark::Buffer bytes(std::string_view text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

inline std::string text(Quillmark::Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

/// @p count times @p byte, and @p tail behind.
inline std::string repeated(std::size_t count, char byte, std::string_view tail = {}) {
    std::string result(count, byte);
    result.append(tail);
    return result;
}

inline unsigned char const* raw(char const* text) {
    return reinterpret_cast<unsigned char const*>(text);
}

constexpr char fixedSize[] =
    "BufferException( 2 ) , BufferImpl:121,  \"Can't change the size of a fixed size buffer.\"";

}  // namespace QuillmarkTest
