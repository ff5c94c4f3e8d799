#pragma once
// Mail of all kinds, and what becomes of it on bad days.

#include <string>

#include "tests/load/Client.h"

namespace QuillmarkLoad {

/// A message with a header, multiparts in multiparts, attachments and links, different for every number.
std::string wholeMessage(Random& random);

/// The same with bytes changed, lost, doubled, swapped or thrown in, or cut off. It may still be good.
std::string brokenMessage(Random& random);

}  // namespace QuillmarkLoad
