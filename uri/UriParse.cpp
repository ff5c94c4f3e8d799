#include "uri/UriParse.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "foundation/ByteSet.h"
#include "foundation/Fail.h"
#include "platform/quill_string.h"

namespace Quillmark {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view mailtoScheme = "mailto:";

// What a host name may end with when the text around it left its punctuation behind. Bytes of 128 and
// above stay, they are letters of an internationalised name.
constexpr ByteSet endsHost = alphanumericBytes | ByteSet::range(0x80, 0xff);

std::string lowered(std::string_view text) {
    std::string result(text);
    copyStringToLower(result, result);
    return result;
}

bool isMailto(std::string const& text) {
    return stringCompareNoCase(text.c_str(), mailtoScheme.data(), mailtoScheme.size()) == 0;
}

HostName hostFrom(std::string_view text, bool strict) {
    HostName host(std::string(text), true, strict);
    if (!host.isNull()) return host;
    std::size_t length = text.size();
    while (length > 1 && !endsHost.contains(text[length - 1])) --length;
    return length < text.size() ? HostName(std::string(text.substr(0, length)), true, strict) : host;
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
    parts.pathQueryFragment = text;
    std::size_t const question = text.find('?');
    std::string_view const query = question == npos ? text : text.substr(question + 1);
    std::size_t const hash = query.find('#');
    if (hash != npos) parts.fragment = lowered(query.substr(hash + 1));
    if (question != npos) parts.query = lowered(query.substr(0, hash));
    parts.path = text.substr(0, question == npos ? hash : question);
}

// The addresses and header fields of a mailto link (RFC 6068), byte by byte:
//
//     BeforeAddress ---> LocalPart ---"@"---> Domain ---"?"---> HeaderName ---"="---> HeaderValue
//       |      ^                               |                 ^      ^                |
//       |      `--------------","--------------'                 |      `------"&"-------'
//       `----------------------------"?"-------------------------'
class MailtoReader {
public:
    explicit MailtoReader(UriParts& parts) : m_parts(parts) {}

    void read(std::string_view text) {
        for (char const c : text) m_state = step(c);
        if (m_state == State::Domain) addAddress();
        if (m_state == State::HeaderValue) addHeader();
    }

private:
    enum class State { BeforeAddress, LocalPart, Domain, HeaderName, HeaderValue };

    State step(char c) {
        switch (m_state) {
        case State::BeforeAddress:
            if (c == '?') return State::HeaderName;
            if (whiteSpaceBytes.contains(c)) return m_state;
            m_left = c;
            return State::LocalPart;
        case State::LocalPart:
            if (c == '@') return State::Domain;
            m_left += c;
            return m_state;
        case State::Domain:
            if (c == '?' || c == ',') {
                addAddress();
                return c == '?' ? State::HeaderName : State::BeforeAddress;
            }
            m_right += c;
            return m_state;
        case State::HeaderName:
            if (c == '=') return State::HeaderValue;
            m_left += c;
            return m_state;
        case State::HeaderValue:
            if (c == '&') {
                addHeader();
                return State::HeaderName;
            }
            m_right += c;
            return m_state;
        }
        return m_state;
    }

    void addAddress() {
        trimBoth();
        EmailAddress const address = EmailAddress::create(m_left, m_right, false);
        if (!address.isNull()) m_parts.emailAddresses.push_back(address);
        startAfresh();
    }

    void addHeader() {
        trimBoth();
        std::string const name = lowered(m_left);
        if (name == "to" || name == "cc") {
            for (EmailAddress const& address : EmailAddress::rfc5322ParseSet(m_right, true, false))
                m_parts.emailAddresses.push_back(address);
        }
        m_parts.headers.emplace_back(m_left, m_right);
        startAfresh();
    }

    void trimBoth() {
        for (std::string* text : {&m_left, &m_right}) {
            stringLeftTrim(*text);
            stringRightTrim(*text);
        }
    }

    void startAfresh() {
        m_left.clear();
        m_right.clear();
    }

    UriParts& m_parts;
    State m_state = State::BeforeAddress;
    std::string m_left;   // the local part, or a header's name
    std::string m_right;  // the domain, or a header's value
};

void parseMailto(std::string const& text, UriParts& parts) {
    parts.scheme = lowered(std::string_view(text).substr(0, mailtoScheme.size()));
    MailtoReader(parts).read(std::string_view(text).substr(mailtoScheme.size()));
    if (parts.emailAddresses.empty()) return;
    EmailAddress const& first = parts.emailAddresses.front();
    parts.host = HostName(first.domain(), true, false);
    parts.user = first.local();
}

std::string mailtoComparison(UriParts const& parts) {
    std::string text = parts.scheme;
    char const* separator = "";
    for (EmailAddress const& address : parts.emailAddresses) {
        text += separator + address.address();
        separator = ",";
    }
    separator = "?";
    for (TypeAndValue const& header : parts.headers) {
        text += separator + header.type() + '=' + header.value();
        separator = "&";
    }
    return text;
}

std::string comparisonOf(UriParts const& parts) {
    if (parts.scheme == mailtoScheme) return mailtoComparison(parts);
    std::string text = parts.scheme + "//";
    if (!parts.password.empty())
        text += parts.user + ':' + parts.password + '@';
    else if (!parts.user.empty())
        text += parts.user + '@';
    if (!parts.host.isNull()) text += parts.host.asString();
    if (parts.port != 0) text += ':' + std::to_string(parts.port);
    text += parts.path;
    if (!parts.query.empty()) text += '?' + parts.query;
    if (!parts.fragment.empty()) text += '#' + parts.fragment;
    return text;
}

}  // namespace

UriParts parseUri(std::string const& text) {
    UriParts parts;
    std::size_t const slashes = text.find("//");
    if (slashes != npos) {
        std::size_t const authority = slashes + 2;
        std::size_t const end = std::min(text.find_first_of("/#?", authority), text.size());
        parts.scheme = lowered(std::string_view(text).substr(0, slashes));
        splitAuthority(std::string_view(text).substr(authority, end - authority), parts);
        splitPath(std::string_view(text).substr(end), parts);
    } else if (isMailto(text)) {
        parseMailto(text, parts);
    } else {
        fail<UriException>(ParseError, Site{"UriImpl", 0}, text);
    }
    parts.comparison = comparisonOf(parts);
    return parts;
}

}  // namespace Quillmark
