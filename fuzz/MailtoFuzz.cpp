// Links of the scheme "mailto": addresses and header fields.

#include <algorithm>

#include "fuzz/support/Fuzz.h"
#include "include2/Uri"

using namespace Quillmark;
using namespace QuillmarkFuzz;

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = "mailto:" + Input(data, size).rest();

    Uri const uri(text);
    std::string failure = failureOf([&] { uri.scheme(); });
    claimSame("a mailto link can be taken apart", failure, "");
    std::string const& clean = uri.idn().empty() ? uri.asString() : uri.idn();
    if (clean.find("//") != std::string::npos) return 0;  // read as any link
    std::list<EmailAddress> const& addresses = uri.emailAddresses();

    // Each address is one of the list that stands first, or of a header field that names recipients.
    std::size_t named = 0;
    for (TypeAndValue const& header : uri.headers()) {
        std::string name = header.type();
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        if (name == "to" || name == "cc")
            named += EmailAddress::rfc5322ParseSet(header.value(), true, false).size();
        claim(header.type().find('=') == std::string::npos,
              "the name of a header field ends at the first \"=\"");
        claim(header.value().find('&') == std::string::npos, "a header field ends at the first \"&\"");
    }
    claim(addresses.size() >= named, "the recipients of the header fields are among the addresses");
    for (EmailAddress const& address : addresses) claim(!address.isNull(), "no address is null");
    if (addresses.empty()) {
        claim(uri.host().isNull() && uri.user().empty(), "without an address there is no host");
    } else {
        claimSame("the user is the first address's", uri.user(), addresses.front().local());
        HostName const host(addresses.front().domain(), true, false);
        claimSame("whether there is a host", uri.host().isNull(), host.isNull());
        if (!host.isNull()) claimSame("the host is the first address's", uri.hostname(), host.asString());
    }

    // A link says the same again when it is made of what it says.
    std::string again = "mailto:";
    char const* separator = "";
    for (EmailAddress const& address : addresses) {
        again += separator + address.address();
        separator = ",";
    }
    separator = "?";
    for (TypeAndValue const& header : uri.headers()) {
        again += separator + header.type() + "=" + header.value();
        separator = "&";
    }
    claimSame("the comparison string", uri.comparisonString(), again);
    return 0;
}
