// Files with other line ends.

#include "fuzz/support/Fuzz.h"
#include "media/LineConvert.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::string converted(std::string const& text, std::string const& lineEnd) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool const crlf = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if (crlf) continue;
        if (text[i] == '\n')
            out += lineEnd;
        else
            out += text[i];
    }
    return out;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    // So that a line's end falls on the end of what is read at once.
    bool const manyBlocks = in.number(0, 7) == 7;
    std::string text(manyBlocks ? in.number(16384 - 8, 16384) : 0, '.');
    text += in.rest();

    MemoryFile const from(text);
    for (std::string const lineEnd : {"\n", "\r\n"}) {
        MemoryFile const to("what was there before");
        claimSame("the conversion", convertLines(from.name().c_str(), to.name().c_str(), lineEnd), 0);
        claimSame("the converted text", to.content(), converted(text, lineEnd));
        // Once is enough: what was converted stays. The way back loses what stood before the line feeds.
        MemoryFile const again;
        claimSame("the second conversion", convertLines(to.name().c_str(), again.name().c_str(), lineEnd), 0);
        if (lineEnd == "\r\n") claimSame("the text, converted twice", again.content(), to.content());
    }
    claimSame("a file onto itself", convertLines(from.name().c_str(), from.name().c_str(), "\n"),
              bothAreOneFile);
    claimSame("which stays as it is", from.content(), text);
    return 0;
}
