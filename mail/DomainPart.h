#pragma once
// What may stand behind the "@".

#include <string>

namespace Quillmark {

/// True for a host name and for an address in brackets.
bool isValidDomainPart(std::string const& text);

}  // namespace Quillmark
