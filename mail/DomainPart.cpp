#include "mail/DomainPart.h"

#include "include2/EmailAddress"
#include "include2/IPAddress"
#include "net/HostNameReader.h"
#include "platform/quill_string.h"

namespace Quillmark {

bool isValidDomainPart(std::string_view text) {
    return HostNameReader::isValid(text) ||
           (text.substr(0, 1) == "[" && s_isValidDomainLiteral(std::string(text)));
}

bool s_isValidDomainLiteral(std::string const& text) {
    if (text.empty() || text.front() != '[' || text.find(']') != text.size() - 1) return false;
    std::string address = text.substr(1, text.size() - 2);
    stringLeftTrim(address);
    stringRightTrim(address);
    // Kept for peers: only lower case is a prefix, so "IPv6:" stays and is no address.
    if (address.starts_with("ipv6:")) address.erase(0, 5);
    return IPAddress::isValidIPAddress(address);
}

}  // namespace Quillmark
