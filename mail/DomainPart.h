#pragma once
// What may stand behind the "@".

#include <string_view>

namespace Quillmark {

/// True for a host name and for an address in brackets.
bool isValidDomainPart(std::string_view text);

}  // namespace Quillmark
