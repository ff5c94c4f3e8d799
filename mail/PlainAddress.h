#pragma once
// An address that needs no grammar, found in a text.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "foundation/Cpu.h"
#include "include2/EmailAddress"

namespace Quillmark {

/// Atoms and dots on both sides of an "@", as most addresses are. What they stand between is not looked at.
struct PlainAddress {
    std::string_view text;  ///< local@domain; the local part is a good one
    std::size_t sign = 0;   ///< where the "@" is
    bool hasCapitals = false;
    /// The domain is a host name at a glance: letters, digits, "-", "." and "_", no number or address, and a
    /// last label of two bytes or more. Others may be one all the same.
    bool hasCommonDomain = false;

    std::string_view domain() const noexcept { return text.substr(sign + 1); }

    /// Reads the one that @p from holds at @p at. False when there is none, or none with a good domain.
    bool read(std::string_view from, std::size_t at);
    /// @param name  the display name, as it is to be kept
    EmailAddress make(bool lowerLocal, std::string_view name) const;
};

/// One way of finding a plain address.
struct AddressScan {
    InstructionSet needs;
    /// Fills @p address from what @p text begins with. False when there is no "@" behind a good local part.
    bool (*scan)(std::string_view text, PlainAddress& address) noexcept;
};

/// All kernels, the best first. The last one is the plain twin.
QUILLMARK_EXPORT std::span<AddressScan const> addressScans() noexcept;

}  // namespace Quillmark
