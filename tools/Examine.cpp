#include "tools/Examine.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <optional>
#include <string_view>

#include "include2/Base64Media"
#include "include2/Buffer"
#include "include2/BufferMedia"
#include "include2/EmailAddress"
#include "include2/Exception"
#include "include2/HostName"
#include "include2/IPAddress"
#include "include2/Md5"
#include "include2/Media"
#include "include2/TopLevelDomain"
#include "include2/UriSniffer"
#include "tools/Charset.h"
#include "tools/Words.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

constexpr std::array<char const*, 5> addressFields{"From", "Sender", "Reply-To", "To", "Cc"};

bool isNamed(std::string const& name, char const* other) {
    return ::strcasecmp(name.c_str(), other) == 0;
}

void readHeader(std::vector<Mime::Field> const& fields, MessageReport& report) {
    for (Mime::Field const& field : fields) {
        // The topmost Return-Path is the one of the last server; those below are history.
        if (!report.envelope && isNamed(field.name, "Return-Path"))
            report.envelope = Envelope{field.value, parsePath(field.value)};
        if (report.subject.empty() && isNamed(field.name, "Subject"))
            report.subject = decodedText(field.value);
        if (report.date.empty() && isNamed(field.name, "Date")) report.date = field.value;
        if (report.id.empty() && isNamed(field.name, "Message-ID")) report.id = field.value;
    }
    for (char const* name : addressFields)
        for (Mime::Field const& field : fields)
            if (isNamed(field.name, name))
                report.fields.push_back({name, field.value, parseAddressList(field.value)});
}

// Text is sniffed whole up to this many bytes. What is longer goes in pieces that end behind a byte that no link
// holds, so that a body of any size takes this much memory and no link is torn. Only a link of more than half of
// this is cut short.
constexpr unsigned int sniffedAtOnce = 8U << 20;

/// The bytes of ASCII that no link holds (RFC 3986), and "!", where the library ends them.
constexpr std::array<bool, 256> inNoLink = [] {
    std::array<bool, 256> bytes{};
    for (std::size_t byte = 0; byte <= ' '; ++byte) bytes[byte] = true;
    for (char const c : std::string_view("!\"<>\\^`{|}\x7f")) bytes[static_cast<unsigned char>(c)] = true;
    return bytes;
}();

using Text = std::basic_string_view<unsigned char>;

bool isOfCharacter(unsigned char byte) {
    return byte >= 0x80;
}
bool continuesCharacter(unsigned char byte) {
    return (byte & 0xc0U) == 0x80;
}

/// Where the last character begins of a text in UTF-8; its last byte where there is none.
std::size_t lastCharacter(Text text) {
    std::size_t at = text.size() - 1;
    while (at > 0 && text.size() - at < 4 && continuesCharacter(text[at])) --at;
    bool const isLead = text[at] >= 0xc0;
    return isLead ? at : text.size() - 1;
}

/// The text without a character of UTF-8 at its end of which bytes are missing.
Text withoutBegunCharacter(Text text) {
    std::size_t const at = lastCharacter(text);
    std::size_t const length = text[at] >= 0xf0 ? 4 : text[at] >= 0xe0 ? 3 : text[at] >= 0xc0 ? 2 : 1;
    return text.size() - at < length ? text.substr(0, at) : text;
}

/// A text that comes in pieces, searched for links.
class Searched {
public:
    Searched(UriContainer& links, bool liberal) : m_links(links), m_liberal(liberal) {}
    void add(std::string_view piece) {
        m_text.append(reinterpret_cast<unsigned char const*>(piece.data()),
                      static_cast<unsigned int>(piece.size()));
        if (m_text.length() >= sniffedAtOnce) searchBeginning();
    }
    void end() { search(m_text.length()); }

private:
    void searchBeginning() {
        Text const text(m_text.data(), m_text.length());
        for (std::size_t i = text.size(); i > 0; --i) {
            if (!inNoLink[text[i - 1]]) continue;
            search(i);
            drop(i);
            return;
        }
        searchUnbroken(withoutBegunCharacter(text));
    }

    // Without such a byte the text is one link at most where it is UTF-8, and else any number of them between the
    // bytes above ASCII. So it is cut behind one of these, which stays, for the search to tell one case from the
    // other again. What goes on behind the cut would look like a link of its own: two dots make it none, up to
    // where it ends.
    void searchUnbroken(Text text) {
        auto const last = std::find_if(text.rbegin(), text.rend(), isOfCharacter);
        auto const lastEnd = static_cast<std::size_t>(text.rend() - last);
        if (lastEnd > sniffedAtOnce / 2) text = text.substr(0, lastEnd);
        std::size_t const kept = isOfCharacter(text.back()) ? lastCharacter(text) : text.size();
        static constexpr std::string_view noLink = "x..";
        search(text.size());
        drop(kept - noLink.size());
        std::memcpy(m_text.data(), noLink.data(), noLink.size());
    }

    void search(std::size_t count) {
        if (count != 0) UriSniffer::search(m_links, m_text.left(static_cast<unsigned int>(count)), m_liberal);
    }
    void drop(std::size_t count) { m_text.shiftLeft(static_cast<unsigned int>(count)); }

    UriContainer& m_links;
    bool const m_liberal;
    Buffer m_text;
};

/// Collects the text of a part and looks for links in it.
class Sniffing {
public:
    Sniffing(UriContainer& links, std::string const& charset, bool liberal)
        : m_asUsual(charset, links, liberal) {
        if (!m_asUsual.toUtf8.converts() && !isUtf8(charset))
            m_asSaid.emplace(Mime::converterFrom(charset), links, liberal);
    }
    void add(unsigned char const* bytes, unsigned int count) {
        std::string_view const piece(reinterpret_cast<char const*>(bytes), count);
        m_asUsual.text.add(m_asUsual.toUtf8.convert(piece));
        if (m_asSaid) m_asSaid->text.add(m_asSaid->toUtf8.convert(piece));
    }
    void end() {
        m_asUsual.text.end();
        if (m_asSaid) m_asSaid->text.end();
    }

private:
    struct Reading {
        ToUtf8 toUtf8;
        Searched text;
        template <class Charset>
        Reading(Charset const& charset, UriContainer& links, bool liberal)
            : toUtf8(charset), text(links, liberal) {}
    };
    Reading m_asUsual;
    // In a character set that few programs know. The others show the text as it is, so it is read in both ways.
    std::optional<Reading> m_asSaid;
};

/// Base64 on its way to the library, which makes nothing of a character that is alone in its group.
class Base64End {
public:
    void add(unsigned char const* bytes, unsigned int count) {
        unsigned char const* const end = bytes + count;
        if (auto const* const padding = static_cast<unsigned char const*>(::memrchr(bytes, '=', count))) {
            bytes = padding + 1;
            m_characters = 0;
        }
        // In whole blocks many bytes are counted at once.
        constexpr int block = 64;
        for (; end - bytes >= block; bytes += block) {
            unsigned char some = 0;
            for (int i = 0; i < block; ++i) some = static_cast<unsigned char>(some + (bytes[i] > ' '));
            m_characters += some;
        }
        for (; bytes != end; ++bytes) m_characters += *bytes > ' ' ? 1U : 0U;
    }
    bool isLone() const { return m_characters % 4 == 1; }

private:
    std::uint64_t m_characters = 0;  // since the last padding
};

/// One part on its way through the library: kept encoded in memory or a swap file, decoded, hashed, sniffed.
class PartReader {
public:
    PartReader(PartReport& report, UriContainer& links, bool liberal)
        : m_report(report), m_sniffing(links, report.charset, liberal) {}

    void read(Mime::Message const& message, std::size_t leaf, ExamineOptions const& options) {
        Mime::Leaf const& part = message.leaves()[leaf];
        // A small part needs no large cache, which is made anew for every part.
        auto const memory =
            static_cast<unsigned int>(std::min<std::uint64_t>(options.memory, message.size(leaf)));
        SwapBufferMediaOut body(memory, options.swapTemplate.c_str());
        bool const isBase64 = part.encoding == Mime::Encoding::Base64;
        Base64End base64End;
        bool const whole = message.read(leaf, [&](auto const* bytes, auto count) {
            if (isBase64) base64End.add(bytes, count);
            body.write(bytes, count);
        });
        if (!whole) m_report.error = "the file could not be read to the end of the part";
        body.end();
        MediaIn encoded = createMediaInFromSwapBufferMediaOut(body);
        if (isBase64) {
            Base64MediaIn decoded(encoded);
            take(decoded, part.isText);
            if (base64End.isLone() && m_report.error.empty())
                m_report.error = "the Base64 breaks off within a byte";
        } else {
            take(encoded, part.isText);
        }
        if (part.isText) m_sniffing.end();
        if (!m_report.error.empty()) return;
        m_hasher.finalize();
        m_report.md5 = m_hasher.digestAsHexString();
    }

private:
    void take(MediaIn& in, bool isText) {
        std::array<unsigned char, 16384> block;  // written before it is read
        for (;;) {
            int count = 0;
            try {
                count = in.read(block.data(), block.size());
            } catch (BufferException const& e) {
                if (e.error() != BadArgument) throw;
                // A line of bad Base64 is behind us and lost; the lines after it are read, for a mail
                // program shows them too, and whoever hides a link behind a bad byte counts on that.
                if (m_report.error.empty()) m_report.error = detailOf(e);
                continue;
            }
            if (count < 1) return;
            auto const length = static_cast<unsigned int>(count);
            m_report.bytes += length;
            m_hasher.update(block.data(), length);
            if (isText) m_sniffing.add(block.data(), length);
        }
    }

    PartReport& m_report;
    Sniffing m_sniffing;
    Md5Hasher m_hasher;
};

/// Whether a name ends where the registrar's part does: it is a public suffix and nobody's own.
bool isSuffix(std::string const& domain) {
    return DomainNameCountryCodeContainer::instance()->find(domain);
}

}  // namespace

bool isPrivateAddress(IPAddress const& address) {
    return IPAddress::isPrivateAddress(address) || IPAddress::isLoopBack(address) ||
           IPAddress::isLinkLocal(address) || IPAddress::isSiteLocal(address);
}

std::string detailOf(Exception const& e) {
    std::string detail = e.stringParameter();
    if (!detail.empty()) return detail;
    return e.error() == WriteFailed ? "the swap file cannot be written" : e.asString();
}

Address plainAddress(EmailAddress const& address) {
    return {address.displayName(), address.address(), address.local(), address.domain()};
}

std::vector<Address> parseAddressList(std::string const& text) {
    std::vector<Address> addresses;
    // With ";" as a separator beside the comma the members of "Group: a, b;" come out one by one.
    for (EmailAddress const& address : EmailAddress::rfc5322ParseList(text, std::string(";")))
        addresses.push_back(plainAddress(address));
    return addresses;
}

std::optional<Address> parsePath(std::string const& text) {
    EmailAddress const address = EmailAddress::rfc5321Parse(text, false);
    if (address.isNull()) return std::nullopt;
    return plainAddress(address);
}

LinkReport describeLink(Uri const& uri) {
    LinkReport link;
    link.text = uri.asString();
    link.idn = uri.idn();
    link.scheme = uri.scheme();
    link.port = uri.port();
    link.hasUser = link.scheme != "mailto:" && !uri.user().empty();
    HostName const& host = uri.host();
    if (host.isNull()) {
        link.noRegisteredDomain = true;
        return link;
    }
    link.name = host.asString();
    link.ipLiteral = host.isIPAddress();
    link.domain = host.domain();
    if (link.ipLiteral) {
        link.isPrivate = isPrivateAddress(IPAddress(link.name));
        return link;
    }
    // Where the registered domain is the whole name, the library may leave its first label in host().
    if (link.domain != link.name) link.host = host.host();
    link.noRegisteredDomain = link.domain.empty() || isSuffix(link.domain);
    return link;
}

MessageReport examine(Mime::Message const& message, ExamineOptions const& options) {
    MessageReport report;
    report.errors = message.faults();
    if (message.fields().empty()) report.errors.emplace_back("no header field: this is no message");
    readHeader(message.fields(), report);
    report.outerNames = message.outerNames();

    UriContainer links;
    for (std::size_t i = 0; i < message.leaves().size(); ++i) {
        Mime::Leaf const& leaf = message.leaves()[i];
        PartReport part{i + 1, leaf.number, leaf.type, leaf.encodingName, leaf.charset, leaf.fileNames,
                        0,     {},          {}};
        links.currentId(part.id);
        try {
            PartReader(part, links, options.liberal).read(message, i, options);
        } catch (Exception const& e) {
            part.error = detailOf(e);
        }
        for (Uri const& uri : links.hrefs(part.id)) {
            report.links.push_back(describeLink(uri));
            report.links.back().part = part.number;
        }
        if (!part.error.empty()) report.errors.push_back("part " + part.number + ": " + part.error);
        report.parts.push_back(std::move(part));
    }
    return report;
}

}  // namespace QuillmarkTool
