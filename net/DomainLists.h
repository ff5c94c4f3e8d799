#pragma once
// The top-level-domain lists of the present configuration, asked without a lock and without a copy.

#include <string_view>

namespace Quillmark {

bool isCountryCodeSuffix(std::string_view name);        ///< "co.uk"
bool isGenericSuffix(std::string_view name);            ///< "com"
bool isInternationalisedSuffix(std::string_view name);  ///< "xn--p1ai"

}  // namespace Quillmark
