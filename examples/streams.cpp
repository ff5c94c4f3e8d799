// Chains of streams: what is written once goes encoded to one place and is hashed on the way back.
#include <include2/Base64Media>
#include <include2/BufferMedia>
#include <include2/Md5>

#include <iostream>
#include <string>

using namespace Quillmark;

int main() {
    std::string const text = "A line of mail that is long enough to need a second line of Base64.\r\n";

    Buffer encoded;
    BufferMediaOut memory(encoded);
    Base64MediaOut encoder(memory);
    encoder << text;
    encoder.end();  // writes the last, incomplete group
    std::cout << encoded.c_str();

    BufferMediaIn again(encoded, 0);
    Base64MediaIn decoder(again);
    Md5Hasher hasher;
    Buffer block;
    while (!decoder.atEnd()) {
        decoder.read(block, 0);
        hasher.update(block);
    }
    hasher.finalize();
    std::cout << hasher.digestAsHexString() << '\n';

    // Up to 16 bytes stay in memory; what comes after moves everything to a file that goes away
    // with its last holder.
    SwapBufferMediaOut message(16, "/tmp/quillmark-example-XXXXXX");
    message << text;
    std::cout << (message.cache().isEmpty() ? "on disk, " : "in memory, ") << message.totalBytesWritten()
              << " bytes\n";
}
