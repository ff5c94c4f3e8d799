#pragma once
// Addresses out of pieces of a text.

#include <algorithm>
#include <string>
#include <string_view>

#include "include2/EmailAddress"
#include "platform/quill_string.h"

namespace Quillmark {

/// Makes addresses whose parts have been checked; each is written once, at its size.
class AddressMaker {
public:
    /// @param address  local@domain
    /// @param sign     where the "@" is; the size of the text for a local part alone
    /// @param name     the display name, as written
    static EmailAddress make(std::string_view address, std::size_t sign, bool lowerLocal,
                             std::string_view name) {
        auto* const impl = new EmailAddressImpl;
        EmailAddress made(impl, false);
        assign(impl->m_local, address.substr(0, sign), lowerLocal);
        if (sign < address.size()) assign(impl->m_domain, address.substr(sign + 1), true);
        if (!name.empty()) impl->m_displayName = std::string(name);
        return made;
    }

private:
    static void assign(std::string& to, std::string_view text, bool lower) {
        auto const isCapital = [](char c) { return static_cast<unsigned char>(c - 'A') < 26; };
        to = std::string(text);
        if (lower && std::any_of(text.begin(), text.end(), isCapital)) ::copyStringToLower(to, to);
    }
};

}  // namespace Quillmark
