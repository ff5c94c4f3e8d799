#pragma once
// What GMime's parser reads.

#include <gmime/gmime.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QuillmarkTool::Mime {

/// In bytes.
inline constexpr std::size_t longestCharset = 16384;

/// What the name of a field begins with for the parser that would take the field apart as soon as it meets it.
inline constexpr char hiddenInitial = '_';

/// A read that failed, which the parser takes for the end of what it reads.
struct ReadFailure {
    int error = 0;            ///< errno; 0 when none failed
    std::int64_t offset = 0;  ///< where it began
};

/// The bytes of @p source, from its beginning, for the parser, but for what that is no match for:
///
/// - It keeps the names of character sets on the stack, whatever their length. What would end one of more than
///   longestCharset is not shown to it, and where that was goes to @p hidden, once for a field, in order.
/// - It takes addresses, subjects, dates and numbers of messages apart, which nobody wants of it, and loses the memory
///   of an address that ends within a comment. The names of their fields begin with hiddenInitial.
///
/// Most such places are none of a header, and of no consequence: the streams of the contents that the parser finds are
/// those of the source. Has a position of its own.
///
/// A read that fails goes to @p failure, and so do all behind it, lest the parser goes on behind a gap: until the
/// parser is sent elsewhere.
/// @param isMbox  lines that begin with "From " are none of a header
/// @return to be unreferenced by the caller, before @p hidden and @p failure go
GMimeStream* newParserStream(GMimeStream* source, bool isMbox, std::vector<std::int64_t>& hidden,
                             ReadFailure& failure);

}  // namespace QuillmarkTool::Mime
