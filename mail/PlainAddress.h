#pragma once
// An address that needs no grammar, found in a text.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "foundation/Cpu.h"
#include "mail/AddressMaker.h"

namespace Quillmark {

/// Atoms and dots on both sides of an "@", as most addresses are, in one of the forms
///
///     local@domain     <local@domain>     name <local@domain>
///
/// with a name out of atoms, dots, blanks, quoted strings and comments.
struct PlainAddress {
    std::string_view name;        ///< as written but for the blanks around it; empty without a "<"
    std::string_view text;        ///< local@domain; the local part is a good one
    std::size_t sign = 0;         ///< where the "@" is
    std::size_t end = 0;          ///< of everything, in the text that was read
    bool hasParentheses = false;  ///< there is a "(" in the name, of a comment or not
    bool hasCapitals = false;     ///< in local@domain
    /// The domain is a host name at a glance: letters, digits, "-", "." and "_", no number or address, and a
    /// last label of two bytes or more. Others may be one all the same.
    bool hasCommonDomain = false;

    std::string_view domain() const noexcept { return text.substr(sign + 1); }

    /// Reads the one that @p from begins with, behind white space. False when there is none, or none with a
    /// good domain.
    bool read(std::string_view from);
    EmailAddress make(bool lowerLocal) const {
        bool const isAsWritten = !hasCapitals && !hasParentheses;
        return isAsWritten ? AddressMaker::make(text, sign, name) : makeChanged(lowerLocal);
    }

private:
    EmailAddress makeChanged(bool lowerLocal) const;
};

/// One way of finding a plain address.
struct AddressScan {
    InstructionSet needs;
    /// Fills @p address from what @p text begins with. False when there is none; the domain is not looked at.
    bool (*scan)(std::string_view text, PlainAddress& address) noexcept;
};

/// All kernels, the best first. The last one is the plain twin.
QUILLMARK_EXPORT std::span<AddressScan const> addressScans() noexcept;

}  // namespace Quillmark
