#pragma once
// Standard output, for those who write to it all day.

#include <iostream>
#include <ostream>
#include <string_view>

#include "foundation/Descriptor.h"

namespace Quillmark {

/// Writes @p text to where std::cout writes, at once.
///
/// By way of a stream of its own: std::cout writes nothing any more after one failure, and there will be room
/// again. A thread that is cancelled leaves no half of a line.
/// @return whether all of it was taken
inline bool print(std::string_view text) {
    Uncancelled const whole;
    std::ostream out(std::cout.rdbuf());
    out.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
    return out.good();
}

}  // namespace Quillmark
