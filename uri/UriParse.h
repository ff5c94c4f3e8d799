#pragma once
// A cleaned-up link, taken apart.

#include <string_view>

#include "include2/Uri"

namespace Quillmark {

/// Splits @p text into its components, the comparison string included; `idn` stays empty.
/// Throws UriException, code 5, when it holds no "//" and is no "mailto:" link.
/// @param parts  empty ones; when something is thrown they are partly filled
void parseUri(std::string_view text, UriParts& parts);

}  // namespace Quillmark
