#pragma once
// The lists that the library splits host names with, as a daemon has them.

#include "tools/DomainLists.h"

namespace Quillmark::bench {

/// Makes the lists of Debian's public suffixes, points the library at them, and gives them away.
QuillmarkTool::DomainLists usePublicSuffixes();

}  // namespace Quillmark::bench
