#pragma once
// Encoded words (RFC 2047), and the text of headers in UTF-8.

#include <string>
#include <string_view>

namespace QuillmarkTool {

/// How Base64 stands in neighbouring words.
enum class Groups {
    Whole,  ///< each word has its own, as it should be
    Cut,  ///< the text was cut into words after it was encoded, and a group of four characters may be in two
};

/// A header's text with its encoded words decoded, in UTF-8 as far as it can be. The bytes of neighbours in one
/// character set are joined before they are converted, since mailers cut characters in two. What begins like a
/// word and is none stays as it is. May hold NULs. Takes linear time.
std::string decodedText(std::string_view text, Groups groups = Groups::Whole);

/// Bytes in a character set as mail names it, in UTF-8. Of an unknown set, or none, they are taken for UTF-8 where
/// they are that, else for ISO 8859-1.
std::string inUtf8(std::string const& charset, std::string_view bytes);

/// The bytes of text in which some are written as a sign and two hexadecimal digits: "=2E" or "%2E".
std::string unescaped(std::string_view text, char sign);

}  // namespace QuillmarkTool
