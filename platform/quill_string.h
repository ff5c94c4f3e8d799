// The appliance's string helpers, as the library calls them. C++, safe from any thread. White space
// is TAB, LF, VT, FF, CR and SPACE and letters are ASCII, whatever the locale.
#pragma once

#include <cstddef>
#include <string>

#include "platform/quill_platform.h"

/// Replaces @p destination by the lower-cased bytes of @p source from @p start on, at most @p count.
/// A start beyond the end gives the empty text. The two may be one object.
QUILL_PLATFORM_EXPORT void copyStringToLower(std::string const& source, std::string& destination,
                                             std::size_t start = 0, std::size_t count = std::string::npos);

/// Compares two texts without regard to ASCII case, up to @p count bytes or to the end of one of them.
/// Reads nothing beyond, so a text of @p count bytes need not be terminated.
/// @return negative, zero or positive: by unsigned bytes, capitals counting as small letters.
QUILL_PLATFORM_EXPORT int stringCompareNoCase(char const* a, char const* b, std::size_t count);

/// @return the position of the first @p needle in @p text at or after @p start without regard to ASCII
/// case, or npos. An empty needle is found at the start, unless that lies beyond the end. Takes time in
/// proportion to the text and the needle together.
QUILL_PLATFORM_EXPORT std::size_t stringFindNoCase(std::string const& text, std::string const& needle,
                                                   std::size_t start = 0);

/// Removes leading (trailing) white space in place.
QUILL_PLATFORM_EXPORT void stringLeftTrim(std::string& text);
QUILL_PLATFORM_EXPORT void stringRightTrim(std::string& text);

/// @return the position of the first byte at or after @p start that is not white space, or npos.
QUILL_PLATFORM_EXPORT std::size_t stringFindNonWhiteSpace(std::string const& text, std::size_t start = 0);

/// @return true when the bytes are well-formed UTF-8 (RFC 3629): no overlong form, no surrogate,
/// nothing past U+10FFFF. No bytes at all are well-formed, and a byte 0 is a character like any other.
QUILL_PLATFORM_EXPORT bool isValidUtf8(char const* text, std::size_t length);
