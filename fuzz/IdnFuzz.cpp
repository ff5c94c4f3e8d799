// Internationalised names, there and back.

#include "fuzz/support/Fuzz.h"
#include "include2/HostName"
#include "platform/quill_string.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();

    // From UTF-8 to ASCII, and to the UTF-8 that everybody writes it in.
    HostName const name(text, false, true);
    if (!name.isNull() && !name.idn().empty()) {
        std::string const& ascii = name.asString();
        claim(::isValidUtf8(text.data(), text.size()), "only well-formed UTF-8 is converted");
        for (char const c : ascii) claim(HostName::isValidACharacter(c), "the ASCII form is a plain name");
        std::string const idn = HostName::aceToIDN(ascii);
        claim(::isValidUtf8(idn.data(), idn.size()), "the way back gives well-formed UTF-8");
        HostName const again(idn, false, true);
        bool const isName = !again.isNull() && !again.asString().empty() && !again.isIPAddress();
        if (!idn.empty() && isName) claimSame("there, back and there", again.asString(), ascii);
    }

    // From what says that it is ASCII.
    for (std::string const& ace : {text, "xn--" + text}) {
        std::string const idn = HostName::aceToIDN(ace);
        claim(::isValidUtf8(idn.data(), idn.size()), "a decoded name is well-formed UTF-8");
        claim(ace.find('\0') == std::string::npos || idn.empty(), "nothing is decoded up to a NUL only");
    }
    return 0;
}
