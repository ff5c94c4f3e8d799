#pragma once
// Text of other character sets as UTF-8, which is what the sniffer reads: in UTF-16 every link would
// hide behind its zero bytes.

#include <iconv.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace QuillmarkTool {

/// Whether text in a character set, named in lower case, is as good as UTF-8 already. So it is where none is named.
bool isUtf8(std::string const& charset);

/// What there is instead of a converter for a character set that is not known: -1.
iconv_t noConverter();

/// Converts one text, given piece by piece.
class ToUtf8 {
public:
    /// @param charset  as the message names it, in lower case. Text passes as it is but in those that mail
    ///                 is written in, UTF-8 excepted.
    explicit ToUtf8(std::string const& charset);
    /// @param converter  to UTF-8, which is closed in the end. With noConverter() text passes as it is.
    explicit ToUtf8(iconv_t converter);
    ~ToUtf8();
    ToUtf8(ToUtf8 const&) = delete;
    ToUtf8& operator=(ToUtf8 const&) = delete;

    /// The next piece, converted. Bytes that are no character become "?"; a character that is cut in two
    /// waits for its other half. Good until the next call.
    std::string_view convert(std::string_view piece);
    bool converts() const { return m_converter != nullptr; }
    /// Whether the text so far ends within a character.
    bool isWaiting() const { return !m_rest.empty(); }

private:
    iconv_t m_converter = nullptr;  // null where text passes as it is
    std::size_t m_unit = 1;         // bytes to go on by behind what is no character
    std::string m_rest;             // the begun character at the end of the last piece
    std::string m_out;
};

}  // namespace QuillmarkTool
