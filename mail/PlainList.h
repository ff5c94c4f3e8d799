#pragma once
// Addresses as most of them are written.

#include <cstddef>
#include <string_view>

#include "include2/EmailAddress"
#include "mail/PlainAddress.h"

namespace Quillmark {

/// Reads a header value whose addresses, parted by commas, are all plain. They come out as ListReader gives
/// them, in the order of the text and much faster. Whatever else stands in a text makes it not plain: then
/// ListReader reads it from the beginning.
class PlainList {
public:
    explicit PlainList(std::string_view text) noexcept : m_text(text) {}

    /// Reads the next address. False at the end, and where the text is not plain.
    bool next(PlainAddress& address) {
        if (isComplete() || !address.read(m_text.substr(m_at))) return false;
        std::size_t const end = m_at + address.end;
        if (end != m_text.size() && m_text[end] != ',') return false;
        m_at = end + 1;
        return true;
    }
    /// Everything up to the end of the text was plain.
    bool isComplete() const noexcept { return m_at > m_text.size(); }

private:
    std::string_view m_text;
    std::size_t m_at = 0;  ///< just past the last comma; beyond the text when that was read
};

/// The same for the path of an envelope: local@domain or <local@domain> and nothing else. Null for others.
EmailAddress readPlainPath(std::string_view text, bool requireBrackets);

}  // namespace Quillmark
