#pragma once
// A cleaned-up link, taken apart.

#include "include2/Uri"

namespace Quillmark {

/// Splits the text of @p parts into its components, the comparison string included; `idn` stays empty. What
/// they held before does not matter; its memory, that of the host's object too, is used again.
/// Throws UriException, code 5, when the text holds no "//" and is no "mailto:" link.
void parseUri(UriParts& parts);

}  // namespace Quillmark
