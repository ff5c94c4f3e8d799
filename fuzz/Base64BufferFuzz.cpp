// Base64 of a whole buffer: Buffer::toBase64String, decodeBase64 and the file functions, beside a decoder
// that says the rules one byte at a time.

#include "fuzz/support/Fuzz.h"
#include "include2/Buffer"
#include "include2/quillmark.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

/// What the text stands for; nothing, and false, for bad text.
bool decodedPlain(std::string const& text, std::string& out) {
    static std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    unsigned int bits = 0, count = 0;
    bool padded = false;
    for (char const c : text) {
        if (c == ' ' || (c >= '\t' && c <= '\r')) continue;
        if (c == '=') {
            if (count < 2 && !padded) return false;
            padded = true;
            continue;
        }
        std::size_t const value = alphabet.find(c);
        if (value == std::string::npos || padded) return false;
        bits = bits << 6 | static_cast<unsigned int>(value);
        if (++count > 1) out += static_cast<char>(bits >> (8 - 2 * count) & 0xff);
        if (count == 4) count = 0;
    }
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();

    std::string plain;
    bool const good = decodedPlain(text, plain);
    Buffer in(text.data(), static_cast<uint_t>(text.size()), true);
    Buffer out("before", 6, false);
    std::string const failure = failureOf([&] { in.decodeBase64(out); });
    claimSame("whether the text is Base64", failure.empty(), good);
    claimSame("what it stands for", textOf(out), good ? plain : "");
    claimSame("into itself: whether it fails", failureOf([&] {
                  Buffer own(text.data(), static_cast<uint_t>(text.size()), false);
                  own.decodeBase64(own);
                  claimSame("what it stands for, decoded into itself", textOf(own), plain);
              }),
              failure);
    for (char const c : text)
        if (!Buffer::isValidBase64Char(static_cast<unsigned char>(c)))
            claim(!good, "a foreign byte is refused");

    // Any bytes go there and back.
    std::string const encoded = in.toBase64String();
    claimSame("four characters for three bytes", encoded.size(), (text.size() + 2) / 3 * 4);
    claimSame("encoded and decoded", textOf(base64Decode(encoded)), text);

    // The same through files, whose lines have 76 characters.
    MemoryFile const from(text), encodedFile, decodedFile;
    std::string encodedName = encodedFile.name();
    claimSame("a file is encoded", ::quill_file_base64_encode(from.name().c_str(), encodedName.data()), 0);
    std::string lines = encodedFile.content();
    claimSame("and decoded", ::quill_file_base64_decode(encodedName.c_str(), decodedFile.name().c_str()), 0);
    claimSame("the file, there and back", decodedFile.content(), text);
    std::erase(lines, '\n');
    claimSame("its characters are the buffer's", lines, encoded);
    return 0;
}
