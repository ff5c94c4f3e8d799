#pragma once
// Whole files to and from Base64.

namespace Quillmark {

/// Encodes one file into another, which is made or emptied. A path that is null, a file that cannot be
/// opened, one file under both names (which is left alone) and bytes that cannot be read or written out
/// throw MediaException.
void base64EncodeFile(char const* inputPath, char const* outputPath);

/// The same back; bad text throws what Base64MediaIn throws. The output is opened before the input.
void base64DecodeFile(char const* inputPath, char const* outputPath);

}  // namespace Quillmark
