// Host names: checked, converted to ASCII, split at the registered domain.

#include "fuzz/support/Fuzz.h"
#include "include2/HostName"
#include "include2/IPAddress"
#include "net/HostNameReader.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

void check(std::string const& text, bool parseDomain, bool strict) {
    HostName const name(text, parseDomain, strict);
    if (strict)
        claimSame("whether a name is valid", HostName::isValidHostname(text, parseDomain), !name.isNull());
    if (name.isNull()) {
        claim(name == HostName() && !(name < HostName()), "null is null");
        claim(!failureOf([&] { name.asString(); }).empty(), "null has no text");
        return;
    }
    std::string const& ascii = name.asString();
    claimSame("an address is an address", name.isIPAddress(), IPAddress::isValidIPAddress(text));
    claim(ascii.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos, "a name is in lower case");
    if (name.isIPAddress()) {
        claim(name.host() == ascii && name.domain() == ascii, "an address is its own host and domain");
    } else {
        claim(!parseDomain || !name.domain().empty(), "a name without a domain becomes null");
        claim(ascii.ends_with(name.domain()), "a name ends with its domain");
        claim(ascii.starts_with(name.host()), "a name begins with its host");
        if (name.domain() != ascii && !name.domain().empty())
            claimSame("host and domain are the name", name.host() + "." + name.domain(), ascii);
    }
    claim(name.idn().empty() || name.idn() == text, "an internationalised name is the text");

    // The text of a name is a name. An internationalised one is judged before it is converted: what becomes an
    // address or ends in one letter only then is no name any more.
    if (!name.idn().empty() || ascii.empty()) return;
    HostName const again(ascii, parseDomain, false);
    claim(!again.isNull(), "the text of a name is a name");
    claimSame("the name of its text", again.asString(), ascii);
    claim(again == name && !(again < name) && !(name < again), "and they are the same");
    claimSame("its domain", again.domain(), name.domain());
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();
    for (bool const parseDomain : {false, true})
        for (bool const strict : {false, true}) check(text, parseDomain, strict);
    claimSame("whether a piece of a text is a name", HostNameReader::isValid(text),
              HostName::isValidHostname(text, false));
    HostName const strict(text, false, true), loose(text, false, false);
    claim(strict.isNull() || strict == loose, "a strict look finds what a loose one finds, or nothing");
    return 0;
}
