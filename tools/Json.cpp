#include "tools/Json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <type_traits>
#include <utility>

#include "tools/Words.h"

namespace QuillmarkTool {
namespace {

using Quillmark::Resolver;
using Quillmark::ResolverMessage;

// A value is written straight into the line: a tree of values for each message would take longer than finding
// out what is in it. So each kind of value has its own write().

/// Whether the byte stands for itself between quotes.
constexpr bool isPlain(char c) {
    return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
}

void write(std::string& out, std::string const& text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return isPlain(c); })) {
        out.append(1, '"').append(text).append(1, '"');
        return;
    }
    // What must be escaped, and above all what is no UTF-8, is left to those who know it well.
    out += nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

template <class Number>
std::enable_if_t<std::is_arithmetic_v<Number>> write(std::string& out, Number value) {
    if constexpr (std::is_same_v<Number, bool>)
        out += value ? "true" : "false";
    else
        out += std::to_string(value);
}

/// A header field in which no address was found.
struct WithoutAddress {
    AddressField const& field;
};
/// What only an SOA record has.
struct Soa {
    ResolverMessage::Record const& record;
};
/// Why there is no answer.
struct NoMessage {
    ResolverMessage const& message;
};
using MailtoHeader = std::pair<std::string, std::string>;

void write(std::string& out, Address const& address);
void write(std::string& out, Envelope const& envelope);
void write(std::string& out, WithoutAddress const& without);
void write(std::string& out, PartReport const& part);
void write(std::string& out, LinkReport const& link);
void write(std::string& out, VerdictReport const& verdict);
void write(std::string& out, MailtoHeader const& header);
void write(std::string& out, ResolverMessage::Query const& query);
void write(std::string& out, ResolverMessage::Record const& record);
void write(std::string& out, Soa const& soa);
void write(std::string& out, NoMessage const& none);

// A list and an object are closed by a call of their own: closing takes memory, of which there may be none left, and
// a destructor could not say so.

/// A list, item by item.
class Array {
public:
    explicit Array(std::string& out) : m_out(out) { m_out += '['; }
    Array(Array const&) = delete;
    Array& operator=(Array const&) = delete;
    template <class Value>
    void add(Value const& value) {
        if (!std::exchange(m_first, false)) m_out += ',';
        write(m_out, value);
    }
    void end() { m_out += ']'; }

private:
    std::string& m_out;
    bool m_first = true;
};

/// An object, member by member.
class Object {
public:
    explicit Object(std::string& out) : m_out(out) { m_out += '{'; }
    Object(Object const&) = delete;
    Object& operator=(Object const&) = delete;

    /// A member, whose value is written next. The name is plain.
    std::string& name(std::string_view name) {
        if (!std::exchange(m_first, false)) m_out += ',';
        return m_out.append(1, '"').append(name).append("\":");
    }
    template <class Value>
    Object& add(std::string_view name, Value const& value) {
        write(this->name(name), value);
        return *this;
    }
    /// Text that is not there is null, so that a reader need not tell "" from "none".
    Object& orNull(std::string_view name, std::string const& text) {
        return text.empty() ? null(name) : add(name, text);
    }
    template <class Value>
    Object& orNull(std::string_view name, std::optional<Value> const& value) {
        return value ? add(name, *value) : null(name);
    }
    Object& null(std::string_view name) {
        this->name(name) += "null";
        return *this;
    }
    template <class List>
    Object& list(std::string_view name, List const& list) {
        Array array(this->name(name));
        for (auto const& item : list) array.add(item);
        array.end();
        return *this;
    }
    void end() { m_out += '}'; }

private:
    std::string& m_out;
    bool m_first = true;
};

/// A display name as a person would say it: without its quotes, encoded words decoded.
std::string spoken(std::string const& displayName) {
    bool const quoted = displayName.size() > 1 && displayName.front() == '"' && displayName.back() == '"';
    std::string name;
    for (std::size_t i = quoted ? 1 : 0; i < displayName.size() - (quoted ? 1 : 0); ++i) {
        if (quoted && displayName[i] == '\\' && i + 2 < displayName.size()) ++i;
        name.push_back(displayName[i]);
    }
    return decodedText(name);
}

void write(std::string& out, Address const& address) {
    Object(out)
        .orNull("name", spoken(address.displayName))
        .orNull("display_name", address.displayName)
        .add("address", address.address)
        .add("local", address.local)
        .orNull("domain", address.domain)
        .end();
}

void write(std::string& out, Envelope const& envelope) {
    Object(out).add("text", envelope.text).orNull("address", envelope.address).end();
}

void write(std::string& out, PartReport const& part) {
    Object(out)
        .add("id", part.id)
        .add("part", part.number)
        .add("type", part.type)
        .add("encoding", part.encoding)
        .orNull("charset", part.charset)
        .orNull("file_name", part.fileNames.empty() ? "" : part.fileNames.front())
        .add("bytes", part.bytes)
        .orNull("md5", part.md5)
        .orNull("error", part.error)
        .end();
}

/// What there is to say of a link, wherever it stands.
void addLink(Object& object, LinkReport const& link) {
    object.orNull("link", link.text)
        .orNull("idn", link.idn)
        .orNull("scheme", link.scheme)
        .orNull("name", link.name)
        .orNull("host", link.host)
        .orNull("domain", link.domain)
        .orNull("port", link.port == 0 ? std::nullopt : std::optional(link.port))
        .add("ip_literal", link.ipLiteral)
        .add("private", link.isPrivate)
        .add("no_registered_domain", link.noRegisteredDomain);
}

void write(std::string& out, LinkReport const& link) {
    Object object(out);
    object.orNull("part", link.part);
    addLink(object, link);
    object.end();
}

std::string hexadecimal(std::string const& bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (char const c : bytes) {
        text += digits[(c >> 4) & 15];
        text += digits[c & 15];
    }
    return text;
}

template <class Entry>
void addQuestion(Object& object, Entry const& entry) {
    object.add("name", entry.name)
        .add("type", Resolver::recordTypeName(entry.dnsType))
        .add("type_number", entry.dnsType)
        .add("class", Resolver::recordClassName(entry.dnsClass))
        .add("class_number", entry.dnsClass);
}

void write(std::string& out, ResolverMessage::Query const& query) {
    Object object(out);
    addQuestion(object, query);
    object.end();
}

void write(std::string& out, Soa const& soa) {
    Object(out)
        .add("mname", soa.record.mname)
        .add("rname", soa.record.rname)
        .add("serial", soa.record.serial)
        .add("refresh", soa.record.refresh)
        .add("retry", soa.record.retry)
        .add("expire", soa.record.expire)
        .add("minimum", soa.record.minimum)
        .end();
}

/// Whether the value is the address, the name or the text of the record, which may be empty.
bool hasValue(ResolverMessage::Record const& record) {
    switch (record.type) {
    case Resolver::TypeA:
    case Resolver::TypeAAAA:
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR:
    case Resolver::TypeMX:
    case Resolver::TypeTXT: return true;
    default: return false;
    }
}

void write(std::string& out, ResolverMessage::Record const& record) {
    Object object(out);
    addQuestion(object, record);
    object.add("ttl", record.ttl);
    if (hasValue(record))
        object.add("value", record.value);
    else
        object.null("value");
    if (record.type == Resolver::TypeMX)
        object.add("mx_rank", record.mxRank);
    else
        object.null("mx_rank");
    if (record.type == Resolver::TypeSOA)
        object.add("soa", Soa{record});
    else
        object.null("soa");
    object.add("rdata", hexadecimal(record.rdata)).end();
}

void write(std::string& out, VerdictReport const& verdict) {
    Object(out)
        .add("action", verdict.action)
        .add("score", verdict.score)
        .list("reasons", verdict.reasons)
        .add("by", verdict.by)
        .end();
}

void write(std::string& out, WithoutAddress const& without) {
    Object(out).add("field", without.field.name).add("text", without.field.text).end();
}

void write(std::string& out, MailtoHeader const& header) {
    Object(out).add("name", header.first).add("value", header.second).end();
}

void write(std::string& out, NoMessage const& none) {
    Object(out).add("code", none.message.resolve_error()).add("text", none.message.errorAsString()).end();
}

/// The line with the object that is filled.
template <class Fill>
std::string line(Fill fill) {
    std::string out;
    out.reserve(4096);
    Object object(out);
    fill(object);
    object.end();
    return out;
}

void addAddresses(Object& object, char const* key, char const* field, MessageReport const& report) {
    Array addresses(object.name(key));
    for (AddressField const& each : report.fields)
        if (each.name == field)
            for (Address const& address : each.addresses) addresses.add(address);
    addresses.end();
}

}  // namespace

std::string jsonOf(MessageReport const& report) {
    return line([&](Object& object) {
        object.add("file", report.file)
            .orNull("message", report.number == 0 ? std::nullopt : std::optional(report.number))
            .add("good", report.isGood())
            .list("errors", report.errors)
            .orNull("subject", report.subject)
            .orNull("date", report.date)
            .orNull("message_id", report.id)
            .orNull("envelope", report.envelope);
        addAddresses(object, "from", "From", report);
        addAddresses(object, "sender", "Sender", report);
        addAddresses(object, "reply_to", "Reply-To", report);
        addAddresses(object, "to", "To", report);
        addAddresses(object, "cc", "Cc", report);
        Array without(object.name("without_address"));
        for (AddressField const& field : report.fields)
            if (field.addresses.empty()) without.add(WithoutAddress{field});
        without.end();
        object.list("parts", report.parts).list("links", report.links).orNull("verdict", report.verdict);
    });
}

std::string jsonOf(LinkReport const& link) {
    std::string out;
    write(out, link);
    return out;
}

std::string jsonOf(AddressFacts const& facts) {
    return line([&](Object& object) {
        object.add("text", facts.text).list("header", facts.header).orNull("envelope", facts.envelope);
    });
}

std::string jsonOf(UriFacts const& facts) {
    return line([&](Object& object) {
        object.add("text", facts.text).orNull("error", facts.error);
        addLink(object, facts.link);
        object.orNull("user", facts.user)
            .orNull("password", facts.password)
            .orNull("path", facts.path)
            .orNull("query", facts.query)
            .orNull("fragment", facts.fragment)
            .orNull("canonical", facts.canonical)
            .list("addresses", facts.addresses)
            .list("headers", facts.headers);
    });
}

std::string jsonOf(HostFacts const& facts) {
    return line([&](Object& object) {
        object.add("text", facts.text)
            .add("valid", facts.valid)
            .orNull("name", facts.name)
            .orNull("idn", facts.idn)
            .orNull("host", facts.host)
            .orNull("domain", facts.domain)
            .add("ip_literal", facts.ipLiteral)
            .add("public_suffix", facts.publicSuffix);
    });
}

std::string jsonOf(IpFacts const& facts) {
    return line([&](Object& object) {
        object.add("text", facts.text)
            .orNull("error", facts.error)
            .orNull("version", facts.version == 0 ? std::nullopt : std::optional(facts.version))
            .orNull("address", facts.address)
            .orNull("prefix_length",
                    facts.prefixLength < 0 ? std::nullopt : std::optional(facts.prefixLength))
            .orNull("reversed", facts.reversed)
            .orNull("ipv4", facts.ipv4)
            .list("kinds", facts.kinds);
    });
}

std::string jsonOf(DnsFacts const& facts) {
    ResolverMessage const& message = facts.message;
    return line([&](Object& object) {
        object.add("name", facts.name)
            .add("type", Resolver::recordTypeName(facts.type))
            .add("class", Resolver::recordClassName(facts.recordClass))
            .orNull("error", message.isEmpty() ? std::optional(NoMessage{message}) : std::nullopt)
            .add("authoritative", message.isAuthouritativeAnswer())
            .add("truncated", facts.truncated)
            .list("queries", message.queries())
            .list("answers", message.answers())
            .list("name_servers", message.nameserverRecords())
            .list("additional", message.additionalRecords());
    });
}

}  // namespace QuillmarkTool
