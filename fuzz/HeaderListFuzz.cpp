// The addresses of a header value: as a list, as a set, with a separator of its own, over a queue of tokens
// and in C.

#include <algorithm>
#include <cstdlib>

#include "fuzz/support/Fuzz.h"
#include "include2/EmailAddress"
#include "include2/HostName"
#include "include2/quillmark.h"
#include "tests/mail/Addresses.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;
using namespace QuillmarkTest;

namespace {

/// What the C interface finds, as the parts of all, taken apart and freed.
std::string foundInC(std::string const& text) {
    int count = 0;
    quill_emailaddress** const found = ::quill_emailaddress_find(text.c_str(), &count);
    claimSame("there is an array exactly where there are addresses", found != nullptr, count != 0);
    std::string all;
    for (int i = 0; i < count; ++i) {
        std::string const name = ::quill_emailaddress_get_personal(found[i]);
        all += (all.empty() ? "" : "; ") + (name.empty() ? "" : name + "|") +
               ::quill_emailaddress_get_local(found[i]) + "|" + ::quill_emailaddress_get_domain(found[i]);
        ::quill_emailaddress_destroy(found[i]);
    }
    std::free(found);
    return all;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();

    for (bool const lower : {false, true}) {
        std::list<EmailAddress> const list = EmailAddress::rfc5322ParseList(text, lower);
        std::set<EmailAddress> const set = EmailAddress::rfc5322ParseSet(text, lower, false);
        claimSame("the list from the text and from its tokens", parts(list),
                  parts(listByQueue(text, lower, "")));
        claimSame("the set from the text and from its tokens", parts(set), parts(setByQueue(text, lower)));
        // Of equal ones the rightmost stays.
        claimSame("the set of the list", parts(std::set<EmailAddress>(list.rbegin(), list.rend())),
                  parts(set));
        claimSame("the one address is the smallest", parts(EmailAddress::rfc5322Parse(text, lower)),
                  set.empty() ? "null" : parts(*set.begin()));
        if (lower && text.find('\0') == std::string::npos)
            claimSame("what is found in C", foundInC(text), parts(set));
        for (EmailAddress const& address : list) {
            claim(!address.isNull(), "no address of a list is null");
            // A domain without an ASCII form may end in what is none of it in brackets: a special byte, a line
            // feed.
            HostName const host(address.domain(), false, true);
            if (!host.isNull() && host.asString().empty()) continue;
            EmailAddress const again = EmailAddress::rfc5322Parse("<" + address.address() + ">", lower);
            claimSame("an address written down and read again", parts(again),
                      address.local() + "|" + address.domain());
        }
    }
    for (std::string const separator : {";", ",", " ", ".", "\n"})
        claimSame("the list with a separator, from the text and from its tokens",
                  parts(EmailAddress::rfc5322ParseList(text, separator)),
                  parts(listByQueue(text, false, separator)));
    return 0;
}
