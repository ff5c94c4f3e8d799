// What may stand behind the "@" in brackets.

#include <string_view>

#include "fuzz/support/Fuzz.h"
#include "include2/EmailAddress"
#include "include2/IPAddress"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

/// The text between the brackets without blanks and prefix; nothing that is an address without brackets.
std::string_view inside(std::string_view text) {
    if (text.size() < 2 || text.front() != '[' || text.back() != ']') return "no literal";
    text = text.substr(1, text.size() - 2);
    std::string_view const blanks = " \t\n\v\f\r";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    text = text.substr(0, text.find_last_not_of(blanks) + 1);
    return text.starts_with("ipv6:") ? text.substr(5) : text;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();
    for (std::string const& literal : {text, "[" + text + "]"}) {
        bool const valid = s_isValidDomainLiteral(literal);
        std::string const address(inside(literal));
        claimSame("a literal is an address in brackets", valid, IPAddress::isValidIPAddress(address));
        if (!valid) continue;
        claim(!IPAddress(address).isNull(), "an address can be made of it");
        // Capitals and blanks: the grammar of paths keeps what it takes.
        EmailAddress const mail = EmailAddress::rfc5321Parse("<a@" + literal + ">", true);
        if (!mail.isNull()) claim(s_isValidDomainLiteral(mail.domain()), "the domain of a path is a literal");
        if (literal.find_first_of(" \t\n\v\f\r") == std::string::npos)
            claim(!mail.isNull(), "a literal without blanks is the domain of a path");
    }
    return 0;
}
