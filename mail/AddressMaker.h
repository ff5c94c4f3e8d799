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
    /// @param address  local@domain, in the case in which it is to be kept
    /// @param sign     where the "@" is; the size of the text for a local part alone
    /// @param name     the display name, as written
    static EmailAddress make(std::string_view address, std::size_t sign, std::string_view name) {
        std::string_view const domain = sign < address.size() ? address.substr(sign + 1) : std::string_view();
        return {new EmailAddressImpl(address.substr(0, sign), domain, name), false};
    }

    /// The case in which @p address is kept: the domain's is always lower, the local part's if asked.
    static std::string lowered(std::string_view address, std::size_t sign, bool lowerLocal) {
        std::string kept(address);
        if (!hasCapitals(address)) return kept;
        std::string tail;
        std::size_t const from = lowerLocal ? 0 : sign;
        ::copyStringToLower(kept, tail, from, std::string::npos);
        return kept.replace(from, std::string::npos, tail);
    }

private:
    static bool hasCapitals(std::string_view text) {
        return std::any_of(text.begin(), text.end(),
                           [](char c) { return static_cast<unsigned char>(c - 'A') < 26; });
    }
};

}  // namespace Quillmark
