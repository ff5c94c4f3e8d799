#pragma once
// Where in a text a link may stand: most text has none, and is passed over many bytes at a time.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "foundation/ByteSet.h"
#include "foundation/Cpu.h"

namespace Quillmark {

/// The bytes of ASCII that may stand in a URI (RFC 3986), "!" excepted.
inline constexpr ByteSet asciiUriBytes = alphanumericBytes | ByteSet{":/?#[]@$&'()*+,;=-._~%"};
inline constexpr ByteSet utf8UriBytes = asciiUriBytes | ByteSet::range(0x80, 0xff);

/// What the bytes of 128 and above are in a text.
enum class HighBytes : std::uint8_t {
    Unseen,   ///< nobody knows whether there are any: each is a mark
    InLinks,  ///< characters of well-formed UTF-8, which may stand in a link
    Foreign,  ///< they may not
};

/// A run of URI bytes, without the dots that it begins with.
struct LinkRun {
    std::size_t begin, end;
    bool bracketed;           ///< there is an opening bracket
    bool doubledDot = false;  ///< two dots side by side; here and below, in front of that bracket
    std::size_t dots = 0;

    bool operator==(LinkRun const&) const = default;
};

/// One way of finding the next mark: the last byte of what is in every run of URI bytes that may be a link,
/// and rarely in one that is none. A mark is
///
///     a byte behind a single dot inside of a run     a.b      but not "end. " and "wait..."
///     a colon in front of a slash                    http:/
///     a colon behind an "o" or "O"                   mailto:
///     an opening bracket
///     and a byte of 128 or above as long as those are HighBytes::Unseen.
struct LinkScan {
    InstructionSet needs;
    /// @param from  nothing in front of it is looked at
    /// @return the first mark at or behind @p from, or the size of the text
    std::size_t (*nextMark)(std::string_view text, std::size_t from, HighBytes highBytes) noexcept;
    /// The run around @p mark, of which nothing in front of @p from is looked at. Empty, and at the mark,
    /// where no byte of a run is.
    LinkRun (*runAt)(std::string_view text, std::size_t from, std::size_t mark, HighBytes highBytes) noexcept;
};

/// All kernels, the best first. The last one is the plain twin.
QUILLMARK_EXPORT std::span<LinkScan const> linkScans() noexcept;

}  // namespace Quillmark
