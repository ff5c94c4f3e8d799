// quillmark address, uri, links, host, ip: how one value parses.

#include <arpa/inet.h>

#include <array>

#include "include2/Exception"
#include "include2/HostName"
#include "include2/IPAddress"
#include "include2/IPAddressMask"
#include "include2/TopLevelDomain"
#include "include2/Uri"
#include "include2/UriSniffer"
#include "tools/Commands.h"
#include "tools/DomainLists.h"
#include "tools/Examine.h"
#include "tools/Facts.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/Report.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

/// The value to look at: the text itself or, for "-", standard input without its last line end.
std::string valueOf(ShowOptions const& options) {
    if (options.text != "-") return options.text;
    std::string text = standardInput();
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

/// Labels and values, a line each; what is not there is left out.
class Sheet {
public:
    explicit Sheet(Painter const& paint) : m_paint(paint) {}
    void add(std::string const& label, std::string const& value, Style style = Style::Plain) {
        if (value.empty()) return;
        m_text +=
            "  " + m_paint(Style::Label, padded(label, 18)) + " " + m_paint(style, harmless(value)) + "\n";
    }
    void title(std::string const& text) { m_text += m_paint(Style::Title, harmless(text)) + "\n"; }
    std::string const& text() const { return m_text; }

private:
    Painter const& m_paint;
    std::string m_text;
};

/// Prints the facts in the form that was asked for.
template <class Facts, class Print>
int show(ShowOptions const& options, Output& output, Facts const& facts, bool good, Print print) {
    if (options.json) {
        output.line(jsonOf(facts));
    } else {
        Painter const paint(wantsColour(options.colour));
        Sheet sheet(paint);
        print(sheet);
        output.say(sheet.text());
    }
    return good ? Fine : Findings;
}

/// Makes the lists known. A value that is looked at without them is split worse, but not wrongly.
bool ready(ShowOptions const& options) {
    ListsInUse const lists = useDomainLists(options.lists);
    if (!lists.complaint.empty()) complain(lists.complaint);
    return lists.good || options.lists.empty();
}

void addAddress(Sheet& sheet, Address const& address) {
    sheet.add("address", address.address.empty() ? "<> (nobody: a bounce)" : address.address, Style::Strong);
    sheet.add("display name", address.displayName);
    sheet.add("local part", address.local);
    sheet.add("domain", address.domain);
}

void addLink(Sheet& sheet, LinkReport const& link) {
    sheet.add("host", link.host);
    sheet.add("registered domain", link.ipLiteral ? std::string() : link.domain);
    sheet.add("address", link.ipLiteral ? link.name : std::string());
    sheet.add("remark", remarksOn(link), Style::Warning);
}

UriFacts factsOf(std::string const& text) {
    UriFacts facts;
    facts.text = text;
    try {
        Uri const uri(text);
        facts.link = describeLink(uri);
        facts.user = uri.user();
        facts.password = uri.password();
        facts.path = uri.path();
        facts.query = uri.query();
        facts.fragment = uri.fragment();
        facts.canonical = uri.canonicalized();
        for (EmailAddress const& address : uri.emailAddresses()) facts.addresses.push_back(address.address());
        for (TypeAndValue const& header : uri.headers())
            facts.headers.emplace_back(header.type(), header.value());
    } catch (Exception const&) {
        facts.error = "no URI: it has no \"//\" and does not begin with \"mailto:\"";
    }
    return facts;
}

/// What kinds of address an address is, by the names of the library's questions.
std::vector<std::string> kindsOf(IPAddress const& address) {
    struct Kind {
        bool (*holds)(IPAddress const&);
        char const* name;
    };
    static constexpr std::array<Kind, 7> kinds{{
        {&IPAddress::isPrivateAddress, "private"},
        {&IPAddress::isLoopBack, "loopback"},
        {&IPAddress::isLinkLocal, "link-local"},
        {&IPAddress::isSiteLocal, "site-local"},
        {&IPAddress::isMultiCast, "multicast"},
        {&IPAddress::isV4Mapped, "IPv4-mapped"},
        {&IPAddress::isV4Compatible, "IPv4-compatible"},
    }};
    std::vector<std::string> names;
    for (Kind const& kind : kinds)
        if (kind.holds(address)) names.emplace_back(kind.name);
    return names;
}

IpFacts ipFactsOf(std::string const& text) {
    IpFacts facts;
    facts.text = text;
    try {
        IPAddress address;
        if (text.find('/') != std::string::npos) {
            IPAddressMask const mask(text);
            address = mask.prefix();
            facts.prefixLength = static_cast<int>(mask.cidr());
        } else {
            address = IPAddress(text);
        }
        facts.address = address.asString(true);
        facts.version = address.isV4() ? 4 : 6;
        facts.reversed = address.asStringReversed(true);
        facts.kinds = kindsOf(address);
        if (IPAddress::isV4Mapped(address) || IPAddress::isV4Compatible(address))
            facts.ipv4 = IPAddress::asIPv4(address).asString(true);
    } catch (Exception const& e) {
        facts.error = detailOf(e);
    }
    return facts;
}

std::string joined(std::vector<std::string> const& texts) {
    std::string all;
    for (std::string const& text : texts) {
        if (!all.empty()) all += ", ";
        all += text;
    }
    return all;
}

}  // namespace

int showAddress(ShowOptions const& options, Output& output) {
    std::string const text = valueOf(options);
    AddressFacts const facts{text, parseAddressList(text), parsePath(text)};
    bool const good = !facts.header.empty() || facts.envelope;
    return show(options, output, facts, good, [&](Sheet& sheet) {
        sheet.title("In a header field");
        if (facts.header.empty()) sheet.add("error", "no address", Style::Error);
        for (Address const& address : facts.header) addAddress(sheet, address);
        sheet.title("In an envelope");
        if (!facts.envelope) sheet.add("error", "no path", Style::Error);
        if (facts.envelope) addAddress(sheet, *facts.envelope);
    });
}

int showUri(ShowOptions const& options, Output& output) {
    if (!ready(options)) return Failed;
    UriFacts const facts = factsOf(valueOf(options));
    return show(options, output, facts, facts.error.empty(), [&](Sheet& sheet) {
        sheet.title(facts.text);
        sheet.add("error", facts.error, Style::Error);
        if (!facts.error.empty()) return;
        sheet.add("scheme", facts.link.scheme);
        sheet.add("user", facts.user);
        sheet.add("password", facts.password);
        addLink(sheet, facts.link);
        sheet.add("port", facts.link.port == 0 ? std::string() : std::to_string(facts.link.port));
        sheet.add("path", facts.path);
        sheet.add("query", facts.query);
        sheet.add("fragment", facts.fragment);
        sheet.add("addresses", joined(facts.addresses));
        for (auto const& [name, value] : facts.headers)
            sheet.add("header", std::string(name).append(": ").append(value));
        sheet.add("written", facts.link.idn);
        sheet.add("canonical", facts.canonical, Style::Strong);
    });
}

int showLinks(ShowOptions const& options, Output& output) {
    if (!ready(options)) return Failed;
    using Level = UriSniffer::Config;
    Level::instance(options.strict ? Level::LevelStrict : Level::LevelLiberal);
    UriContainer found;
    UriSniffer::search(found, valueOf(options), 0, !options.strict);
    Painter const paint(wantsColour(options.colour));
    for (Uri const& uri : found.hrefs(found.currentId())) {
        LinkReport const link = describeLink(uri);
        if (options.json) {
            output.line(jsonOf(link));
            continue;
        }
        std::string const remarks = remarksOn(link);
        output.line(paint(Style::Strong, harmless(link.text)) +
                    (remarks.empty() ? std::string() : "  " + paint(Style::Warning, remarks)));
    }
    return found.size() != 0 ? Fine : Findings;
}

int showHost(ShowOptions const& options, Output& output) {
    if (!ready(options)) return Failed;
    HostFacts facts;
    facts.text = valueOf(options);
    HostName const host(facts.text, false, true);
    facts.valid = !host.isNull() && !host.asString().empty();
    if (facts.valid) {
        facts.name = host.asString();
        facts.idn = host.idn().empty() ? HostName::aceToIDN(facts.name) : host.idn();
        if (facts.idn == facts.name) facts.idn.clear();
        facts.ipLiteral = host.isIPAddress();
        if (!facts.ipLiteral) {
            facts.domain = host.domain();
            if (facts.domain != facts.name) facts.host = host.host();
        }
        facts.publicSuffix = DomainNameCountryCodeContainer::instance()->find(facts.name) ||
                             DomainNameGenericCodeContainer::instance()->find(facts.name) ||
                             DomainNameInternationalDomainNameCodeContainer::instance()->find(facts.name);
        if (facts.publicSuffix) facts.domain.clear();
    }
    return show(options, output, facts, facts.valid, [&](Sheet& sheet) {
        sheet.title(facts.text);
        if (!facts.valid) sheet.add("error", "no host name", Style::Error);
        sheet.add("name", facts.name, Style::Strong);
        sheet.add("internationalised", facts.idn);
        sheet.add("host", facts.host);
        sheet.add("registered domain", facts.domain);
        if (facts.ipLiteral) sheet.add("remark", "IP address", Style::Warning);
        if (facts.publicSuffix)
            sheet.add("remark", "public suffix: names below it are registered", Style::Warning);
        if (facts.valid && !facts.ipLiteral && !facts.publicSuffix && facts.domain.empty())
            sheet.add("remark", "no registered domain", Style::Warning);
    });
}

int showIp(ShowOptions const& options, Output& output) {
    IpFacts const facts = ipFactsOf(valueOf(options));
    return show(options, output, facts, facts.error.empty(), [&](Sheet& sheet) {
        sheet.title(facts.text);
        sheet.add("error", facts.error, Style::Error);
        if (!facts.error.empty()) return;
        sheet.add("version", "IPv" + std::to_string(facts.version));
        sheet.add("address", facts.address, Style::Strong);
        if (facts.prefixLength >= 0) sheet.add("prefix length", std::to_string(facts.prefixLength));
        sheet.add("reversed", facts.reversed);
        sheet.add("IPv4 address", facts.ipv4);
        sheet.add("kind", joined(facts.kinds), Style::Warning);
    });
}

}  // namespace QuillmarkTool
