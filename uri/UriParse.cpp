#include "uri/UriParse.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/ByteSet.h"
#include "foundation/Fail.h"
#include "net/HostNameReader.h"
#include "platform/quill_string.h"

namespace Quillmark {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view mailtoScheme = "mailto:";

// What a host name may end with when the text around it left its punctuation behind. Bytes of 128 and
// above stay, they are letters of an internationalised name.
constexpr ByteSet endsHost = alphanumericBytes | ByteSet::range(0x80, 0xff);

// What an authority ends with, and what is in one that is more than a host.
enum AuthorityByte : std::uint8_t { Ends = 1, Splits = 2 };
constexpr std::array<std::uint8_t, 256> authorityBytes = [] {
    std::array<std::uint8_t, 256> bytes{};
    for (char const c : {'/', '#', '?'}) bytes[static_cast<unsigned char>(c)] = Ends;
    for (char const c : {'@', ':', '['}) bytes[static_cast<unsigned char>(c)] = Splits;
    return bytes;
}();

bool hasCapitals(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c - 'A') < 26; });
}

std::string lowered(std::string_view text) {
    std::string result(text);
    if (hasCapitals(text)) copyStringToLower(result, result);
    return result;
}

bool isMailto(std::string_view text) {
    return text.size() >= mailtoScheme.size() &&
           stringCompareNoCase(text.data(), mailtoScheme.data(), mailtoScheme.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && whiteSpaceBytes.contains(text.front())) text.remove_prefix(1);
    while (!text.empty() && whiteSpaceBytes.contains(text.back())) text.remove_suffix(1);
    return text;
}

HostName hostFrom(std::string_view text, bool strict) {
    HostName host = HostNameReader::read(text, true, strict);
    if (!host.isNull()) return host;
    std::size_t length = text.size();
    while (length > 1 && !endsHost.contains(text[length - 1])) --length;
    return length < text.size() ? HostNameReader::read(text.substr(0, length), true, strict) : host;
}

int portFrom(std::string_view text) {
    KeepErrno const keepErrno;
    return static_cast<int>(std::strtol(std::string(text).c_str(), nullptr, 10));
}

// [user[":"password]"@"]host[":"port], the host possibly in brackets (RFC 3986, 3.2).
void splitAuthority(std::string_view authority, UriParts& parts) {
    std::size_t const open = authority.find('[');
    std::size_t const close = open == npos ? npos : authority.find(']', open);
    bool const bracketed = close != npos;

    std::size_t hostStart = 0;
    std::size_t const at = authority.substr(0, bracketed ? open : npos).rfind('@');
    if (at != npos) {
        std::string_view const information = authority.substr(0, at);
        std::size_t const colon = information.find(':');
        parts.user = information.substr(0, colon);
        if (colon != npos) parts.password = information.substr(colon + 1);
        hostStart = (bracketed ? close : at) + 1;
    }

    // Kept for the daemons: without user information the search for a port begins before the bracket,
    // so that "[2001:db8::1]:80" has no port, and its address is taken as if it had one.
    std::size_t const colon = authority.find(':', hostStart);
    bool const hasPort = colon != npos;
    std::string_view const host = bracketed ? authority.substr(open + 1, close - open - 1)
                                            : authority.substr(hostStart, hasPort ? colon - hostStart : npos);
    parts.host = hostFrom(host, !hasPort);
    if (hasPort && !parts.host.isNull()) parts.port = portFrom(authority.substr(colon + 1));
}

// path["?"query]["#"fragment], where a "?" behind a "#" still begins a query.
void splitPath(std::string_view text, UriParts& parts) {
    parts.pathQueryFragment = std::string(text);
    std::size_t const question = text.find('?');
    std::string_view const query = question == npos ? text : text.substr(question + 1);
    std::size_t const hash = query.find('#');
    if (hash != npos) parts.fragment = lowered(query.substr(hash + 1));
    if (question != npos) parts.query = lowered(query.substr(0, hash));
    parts.path = std::string(text.substr(0, question == npos ? hash : question));
}

void addAddress(std::string_view local, std::string_view domain, UriParts& parts) {
    std::string address(trimmed(local));
    (address += '@') += trimmed(domain);
    if (EmailAddress parsed = EmailAddress::rfc5321Parse(address, false); !parsed.isNull())
        parts.emailAddresses.push_back(std::move(parsed));
}

void addHeader(std::string_view name, std::string_view value, UriParts& parts) {
    std::string const type(trimmed(name));
    std::string const content(trimmed(value));
    std::string const field = lowered(type);
    if (field == "to" || field == "cc") {
        for (EmailAddress const& address : EmailAddress::rfc5322ParseSet(content, true, false))
            parts.emailAddresses.push_back(address);
    }
    parts.headers.emplace_back(type, content);
}

// name"="value *("&" name"="value)
void readHeaders(std::string_view text, UriParts& parts) {
    for (std::size_t at = 0; at <= text.size();) {
        std::size_t const equals = text.find('=', at);
        if (equals == npos) return;
        std::size_t const end = std::min(text.find('&', equals + 1), text.size());
        addHeader(text.substr(at, equals - at), text.substr(equals + 1, end - equals - 1), parts);
        at = end + 1;
    }
}

// The addresses and header fields of a mailto link (RFC 6068): local"@"domain, parted by commas, and behind
// the first "?" in front of an address or in its domain the headers.
void readMailto(std::string_view text, UriParts& parts) {
    constexpr ByteSet endsDomain{",?"};
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '?') return readHeaders(text.substr(at + 1), parts);
        if (whiteSpaceBytes.contains(text[at])) continue;
        std::size_t const sign = text.find('@', at + 1);  // behind the first byte, whatever that is
        if (sign == npos) return;
        std::size_t end = sign + 1;
        while (end < text.size() && !endsDomain.contains(text[end])) ++end;
        addAddress(text.substr(at, sign - at), text.substr(sign + 1, end - sign - 1), parts);
        if (end < text.size() && text[end] == '?') return readHeaders(text.substr(end + 1), parts);
        at = end;
    }
}

void parseMailto(std::string_view text, UriParts& parts) {
    parts.scheme = mailtoScheme;
    readMailto(text.substr(mailtoScheme.size()), parts);
    if (parts.emailAddresses.empty()) return;
    EmailAddress const& first = parts.emailAddresses.front();
    parts.host = HostNameReader::read(first.domain(), true, false);
    parts.user = first.local();
}

std::string mailtoComparison(UriParts const& parts) {
    std::string text = parts.scheme;
    char const* separator = "";
    for (EmailAddress const& address : parts.emailAddresses) {
        (text += separator) += address.address();
        separator = ",";
    }
    separator = "?";
    for (TypeAndValue const& header : parts.headers) {
        (((text += separator) += header.type()) += '=') += header.value();
        separator = "&";
    }
    return text;
}

std::string comparisonOf(UriParts const& parts, std::size_t length) {
    std::string text;
    text.reserve(length);
    (text += parts.scheme) += "//";
    text += parts.user;
    if (!parts.password.empty()) (text += ':') += parts.password;
    if (text.size() != parts.scheme.size() + 2) text += '@';
    if (!parts.host.isNull()) text += parts.host.asString();
    if (parts.port != 0) (text += ':') += std::to_string(parts.port);
    text += parts.path;
    if (!parts.query.empty()) (text += '?') += parts.query;
    if (!parts.fragment.empty()) (text += '#') += parts.fragment;
    return text;
}

// A link with a host alone, and with all in lower case that will be: it is its own comparison string, unless
// a query or fragment is empty and goes away with its mark.
bool isItsComparison(std::string_view text, std::string_view authority, UriParts const& parts) {
    std::size_t length = parts.scheme.size() + 2 + authority.size() + parts.path.size();
    if (!parts.query.empty()) length += 1 + parts.query.size();
    if (!parts.fragment.empty()) length += 1 + parts.fragment.size();
    if (length != text.size() || parts.host.isNull() || parts.host.asString() != authority) return false;
    return text.starts_with(parts.scheme) && text.ends_with(parts.fragment) &&
           text.substr(0, text.size() - (parts.fragment.empty() ? 0 : 1 + parts.fragment.size()))
               .ends_with(parts.query);
}

}  // namespace

void parseUri(std::string_view text, UriParts& parts) {
    std::size_t const slashes = text.find("//");
    if (slashes == npos) {
        if (!isMailto(text)) fail<UriException>(ParseError, Site{"UriImpl", 0}, std::string(text));
        parseMailto(text, parts);
        parts.comparison = mailtoComparison(parts);
        return;
    }
    parts.scheme = lowered(text.substr(0, slashes));
    std::size_t const begin = slashes + 2;
    std::size_t end = begin;
    unsigned seen = 0;
    for (; end < text.size(); ++end) {
        seen |= authorityBytes[static_cast<unsigned char>(text[end])];
        if ((seen & Ends) != 0) break;
    }
    std::string_view const authority = text.substr(begin, end - begin);
    bool const isHost = (seen & Splits) == 0;
    if (isHost) {
        parts.host = hostFrom(authority, true);
    } else {
        splitAuthority(authority, parts);
    }
    splitPath(text.substr(end), parts);
    if (parts.scheme == mailtoScheme) {
        parts.comparison = mailtoComparison(parts);
    } else if (!isHost || !isItsComparison(text, authority, parts)) {
        parts.comparison = comparisonOf(parts, text.size());
    }
}

}  // namespace Quillmark
