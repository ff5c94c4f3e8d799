#pragma once
// A cleaned-up link, taken apart.

#include <string>

#include "include2/Uri"

namespace Quillmark {

/// Splits @p text into its components, the comparison string included; `idn` stays empty.
/// Throws UriException, code 5, when it holds no "//" and is no "mailto:" link.
UriParts parseUri(std::string const& text);

}  // namespace Quillmark
