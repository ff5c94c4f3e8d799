#include "uri/UriParse.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <numeric>
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

struct Authority {
    std::string_view text;
    bool isHost;  ///< and nothing else
};

// What a text begins with. Each x86-64 compares 16 bytes at a time; the last ones go by the table.
Authority authorityOf(std::string_view text) {
    constexpr std::size_t blockSize = 16;
    unsigned int splits = 0;
    std::size_t end = 0;
    for (; text.size() - end >= blockSize; end += blockSize) {
        __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(text.data() + end));
        auto const where = [bytes](char a, char b, char c) {
            auto const are = [bytes](char byte) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte)); };
            return static_cast<unsigned int>(
                _mm_movemask_epi8(_mm_or_si128(are(a), _mm_or_si128(are(b), are(c)))));
        };
        unsigned int const ends = where('/', '#', '?');
        splits |= where('@', ':', '[') & (ends - 1) & ~ends;
        if (ends != 0)
            return {text.substr(0, end + static_cast<std::size_t>(std::countr_zero(ends))), splits == 0};
    }
    unsigned int seen = 0;
    for (; end < text.size(); ++end) {
        seen |= authorityBytes[static_cast<unsigned char>(text[end])];
        if ((seen & Ends) != 0) break;
    }
    return {text.substr(0, end), splits == 0 && (seen & Splits) == 0};
}

// Eight bytes at a time: the high bit of each byte says what it is.
bool hasCapitals(std::uint64_t bytes) {
    constexpr std::uint64_t each = 0x0101010101010101, high = 0x80 * each;
    std::uint64_t const low = bytes & ~high;
    return ((low + (0x80 - 'A') * each) & ~(low + (0x7f - 'Z') * each) & ~bytes & high) != 0;
}

bool hasCapitals(std::string_view text) {
    std::uint64_t bytes = 0;
    for (; text.size() >= sizeof bytes; text.remove_prefix(sizeof bytes)) {
        std::memcpy(&bytes, text.data(), sizeof bytes);
        if (hasCapitals(bytes)) return true;
    }
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c - 'A') < 26; });
}

/// Puts a text in lower case where there is none.
/// @return whether it was another one
bool putLowered(std::string& to, std::string_view text) {
    to += text;
    bool const changes = hasCapitals(text);
    if (changes) copyStringToLower(to, to);
    return changes;
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

void readHost(std::string_view text, bool strict, HostName& host) {
    HostNameReader::read(text, true, strict, host);
    if (!host.isNull()) return;
    std::size_t length = text.size();
    while (length > 1 && !endsHost.contains(text[length - 1])) --length;
    if (length < text.size()) HostNameReader::read(text.substr(0, length), true, strict, host);
}

int portFrom(std::string_view text) {
    constexpr std::size_t mostDigits = 9;
    if (text.size() <= mostDigits &&
        std::all_of(text.begin(), text.end(), [](char c) { return digitBytes.contains(c); }))
        return std::accumulate(text.begin(), text.end(), 0,
                               [](int port, char c) { return 10 * port + (c - '0'); });
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
    readHost(host, !hasPort, parts.host);
    if (hasPort && !parts.host.isNull()) parts.port = portFrom(authority.substr(colon + 1));
}

// path["?"query]["#"fragment], where a "?" behind a "#" still begins a query.
/// @return whether the components make the same text again
bool splitPath(std::string_view text, UriParts& parts) {
    parts.pathQueryFragment += text;
    std::size_t const question = text.find('?');
    std::string_view const query = question == npos ? text : text.substr(question + 1);
    std::size_t const hash = query.find('#');
    parts.isPathAll = question == npos && hash == npos;
    if (parts.isPathAll) return true;
    parts.path += text.substr(0, question == npos ? hash : question);
    bool changes = false;
    if (question != npos) changes = putLowered(parts.query, query.substr(0, hash)) || parts.query.empty();
    if (hash != npos) changes |= putLowered(parts.fragment, query.substr(hash + 1)) || parts.fragment.empty();
    return !changes;
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
    std::string field;
    putLowered(field, type);
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
    parts.scheme += mailtoScheme;
    readMailto(text.substr(mailtoScheme.size()), parts);
    if (parts.emailAddresses.empty()) {
        parts.host = HostName();
        return;
    }
    EmailAddress const& first = parts.emailAddresses.front();
    HostNameReader::read(first.domain(), true, false, parts.host);
    parts.user = first.local();
}

void compareMailto(UriParts& parts) {
    std::string& text = parts.comparison;
    text += parts.scheme;
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
}

void compareAny(UriParts& parts) {
    std::string& text = parts.comparison;
    (text += parts.scheme) += "//";
    text += parts.user;
    if (!parts.password.empty()) (text += ':') += parts.password;
    if (text.size() != parts.scheme.size() + 2) text += '@';
    if (!parts.host.isNull()) text += parts.host.asString();
    if (parts.port != 0) (text += ':') += std::to_string(parts.port);
    text += parts.isPathAll ? parts.pathQueryFragment : parts.path;
    if (!parts.query.empty()) (text += '?') += parts.query;
    if (!parts.fragment.empty()) (text += '#') += parts.fragment;
}

// All but the text and the host is as in new parts, and memory stays.
void clear(UriParts& parts) {
    parts.idn.clear();
    parts.scheme.clear();
    parts.user.clear();
    parts.password.clear();
    parts.pathQueryFragment.clear();
    parts.path.clear();
    parts.query.clear();
    parts.fragment.clear();
    parts.comparison.clear();
    parts.isPathAll = false;
    parts.port = 0;
    parts.headers.clear();
    parts.emailAddresses.clear();
}

}  // namespace

void parseUri(UriParts& parts) {
    clear(parts);
    std::string_view const text = parts.text;
    std::size_t const slashes = text.find("//");
    if (slashes == npos) {
        if (!isMailto(text)) fail<UriException>(ParseError, Site{"UriImpl", 0}, parts.text);
        parseMailto(text, parts);
        return compareMailto(parts);
    }
    bool const lowersScheme = putLowered(parts.scheme, text.substr(0, slashes));
    auto const [authority, isHost] = authorityOf(text.substr(slashes + 2));
    if (isHost) {
        readHost(authority, true, parts.host);
    } else {
        splitAuthority(authority, parts);
    }
    bool const isWhole = splitPath(text.substr(slashes + 2 + authority.size()), parts);
    if (parts.scheme == mailtoScheme) return compareMailto(parts);
    // A link with a host alone, and with all in lower case that will be, is its own comparison string.
    bool const isItsComparison =
        isHost && isWhole && !lowersScheme && !parts.host.isNull() && parts.host.asString() == authority;
    if (!isItsComparison) compareAny(parts);
}

}  // namespace Quillmark
