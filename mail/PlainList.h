#pragma once
// Addresses as most of them are written.

#include <cstddef>
#include <string_view>

#include "include2/EmailAddress"

namespace Quillmark {

/// Reads a header value whose addresses, parted by commas, are all of the forms
///
///     local@domain     <local@domain>     name <local@domain>
///
/// with plain addresses, and names out of atoms, dots, blanks, quoted strings and comments. They come out as
/// ListReader gives them, in the order of the text and much faster. Whatever else stands in a text
/// makes it not plain: then ListReader reads it from the beginning.
class PlainList {
public:
    PlainList(std::string_view text, bool lowerLocal) noexcept : m_text(text), m_lowerLocal(lowerLocal) {}

    /// The next address; null at the end, and where the text is not plain.
    EmailAddress next();
    /// Everything up to the end of the text was plain.
    bool isComplete() const noexcept { return m_at > m_text.size(); }

private:
    bool ended(std::size_t at) noexcept;

    std::string_view m_text;
    bool m_lowerLocal;
    std::size_t m_at = 0;  ///< just past the last comma; beyond the text when that was read
};

/// The same for the path of an envelope: local@domain or <local@domain> and nothing else. Null for others.
EmailAddress readPlainPath(std::string_view text, bool requireBrackets);

}  // namespace Quillmark
