// The path of an envelope: straight from the text, and over a queue of tokens.

#include "fuzz/support/Fuzz.h"
#include "include2/EmailAddress"
#include "tests/mail/Addresses.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;
using namespace QuillmarkTest;

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();

    EmailAddress const loose = EmailAddress::rfc5321Parse(text, false);
    EmailAddress const strict = EmailAddress::rfc5321Parse(text, true);
    claimSame("the path from the text and from its tokens", parts(loose), parts(pathByQueue(text, false)));
    claimSame("the same with brackets demanded", parts(strict), parts(pathByQueue(text, true)));
    if (!strict.isNull()) claimSame("who has the brackets needs not be told to", parts(loose), parts(strict));
    if (loose.isNull()) return 0;

    // What was read can be written down and read again.
    std::string const path = "<" + loose.address() + ">";
    EmailAddress const again = EmailAddress::rfc5321Parse(path, true);
    claimSame("the address written as a path", parts(again), parts(loose));
    claim(loose.isEmptyAddress() == loose.address().empty(), "only an address without text is empty");
    claim(loose.displayName().empty(), "a path has no display name");
    // Without brackets a path does not end in a quoted string, with them its domain may.
    if (!loose.domain().empty() && loose.domain().find('"') == std::string::npos) {
        EmailAddress const created = EmailAddress::create(loose.local(), loose.domain(), false);
        claimSame("the address made of its two parts", parts(created), parts(loose));
    }
    return 0;
}
