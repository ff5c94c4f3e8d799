#pragma once
// What GMime's parser reads.

#include <gmime/gmime.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QuillmarkTool::Mime {

/// In bytes.
inline constexpr std::size_t longestCharset = 16384;

/// The bytes of @p source, from its beginning, for the parser. That keeps the names of character sets on the stack,
/// whatever their length; so what would end one of more than longestCharset is not shown to it, and where that was goes to
/// @p hidden, once for a field, in order. Most such places are none of a header, and of no consequence: the streams
/// of the contents that the parser finds are those of the source. Has a position of its own.
/// @return to be unreferenced by the caller, before @p hidden goes
GMimeStream* newParserStream(GMimeStream* source, std::vector<std::int64_t>& hidden);

}  // namespace QuillmarkTool::Mime
