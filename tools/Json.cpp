#include "tools/Json.h"

#include <nlohmann/json.hpp>

#include "tools/Mime.h"

namespace QuillmarkTool {
namespace {

using Json = nlohmann::ordered_json;
using Quillmark::Resolver;
using Quillmark::ResolverMessage;

/// Text that is not there is null, so that a reader need not tell "" from "none".
Json orNull(std::string const& text) {
    return text.empty() ? Json() : Json(text);
}

/// A display name as a person would say it: without its quotes, encoded words decoded.
std::string spoken(std::string const& displayName) {
    bool const quoted = displayName.size() > 1 && displayName.front() == '"' && displayName.back() == '"';
    std::string name;
    for (std::size_t i = quoted ? 1 : 0; i < displayName.size() - (quoted ? 1 : 0); ++i) {
        if (quoted && displayName[i] == '\\' && i + 2 < displayName.size()) ++i;
        name.push_back(displayName[i]);
    }
    return Mime::decodedText(name);
}

Json object(Address const& address) {
    return {{"name", orNull(spoken(address.displayName))},
            {"display_name", orNull(address.displayName)},
            {"address", address.address},
            {"local", address.local},
            {"domain", orNull(address.domain)}};
}

Json object(Envelope const& envelope) {
    return {{"text", envelope.text}, {"address", envelope.address ? object(*envelope.address) : Json()}};
}

Json object(PartReport const& part) {
    return {{"id", part.id},
            {"part", part.number},
            {"type", part.type},
            {"encoding", part.encoding},
            {"charset", orNull(part.charset)},
            {"file_name", orNull(part.fileName)},
            {"bytes", part.bytes},
            {"md5", orNull(part.md5)},
            {"error", orNull(part.error)}};
}

Json object(LinkReport const& link) {
    return {{"part", orNull(link.part)},
            {"link", link.text},
            {"idn", orNull(link.idn)},
            {"scheme", link.scheme},
            {"name", orNull(link.name)},
            {"host", orNull(link.host)},
            {"domain", orNull(link.domain)},
            {"port", link.port == 0 ? Json() : Json(link.port)},
            {"ip_literal", link.ipLiteral},
            {"private", link.isPrivate},
            {"no_registered_domain", link.noRegisteredDomain}};
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
Json questionOf(Entry const& entry) {
    return {{"name", entry.name},
            {"type", Resolver::recordTypeName(entry.dnsType)},
            {"type_number", entry.dnsType},
            {"class", Resolver::recordClassName(entry.dnsClass)},
            {"class_number", entry.dnsClass}};
}

Json object(ResolverMessage::Query const& query) {
    return questionOf(query);
}

/// The address, the name or the text, which may be empty; null for a type that has none of them.
Json valueOf(ResolverMessage::Record const& record) {
    switch (record.type) {
    case Resolver::TypeA:
    case Resolver::TypeAAAA:
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR:
    case Resolver::TypeMX:
    case Resolver::TypeTXT: return record.value;
    default: return {};
    }
}

Json object(ResolverMessage::Record const& record) {
    Json json = questionOf(record);
    bool const isSoa = record.type == Resolver::TypeSOA;
    json["ttl"] = record.ttl;
    json["value"] = valueOf(record);
    json["mx_rank"] = record.type == Resolver::TypeMX ? Json(record.mxRank) : Json();
    json["soa"] = isSoa
                      ? Json{{"mname", record.mname},     {"rname", record.rname}, {"serial", record.serial},
                             {"refresh", record.refresh}, {"retry", record.retry}, {"expire", record.expire},
                             {"minimum", record.minimum}}
                      : Json();
    json["rdata"] = hexadecimal(record.rdata);
    return json;
}

Json object(VerdictReport const& verdict) {
    return {{"action", verdict.action},
            {"score", verdict.score},
            {"reasons", verdict.reasons},
            {"by", verdict.by}};
}

template <class List>
Json array(List const& list) {
    Json all = Json::array();
    for (auto const& item : list) all.push_back(object(item));
    return all;
}

std::string line(Json const& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

std::string jsonOf(MessageReport const& report) {
    Json json{{"file", report.file},
              {"message", report.number == 0 ? Json() : Json(report.number)},
              {"good", report.isGood()},
              {"errors", report.errors},
              {"subject", orNull(report.subject)},
              {"date", orNull(report.date)},
              {"message_id", orNull(report.id)},
              {"envelope", report.envelope ? object(*report.envelope) : Json()}};
    for (auto const& [key, name] :
         {std::pair{"from", "From"}, std::pair{"sender", "Sender"}, std::pair{"reply_to", "Reply-To"},
          std::pair{"to", "To"}, std::pair{"cc", "Cc"}}) {
        json[key] = Json::array();
        for (AddressField const& field : report.fields)
            if (field.name == name)
                for (Address const& address : field.addresses) json[key].push_back(object(address));
    }
    json["without_address"] = Json::array();
    for (AddressField const& field : report.fields)
        if (field.addresses.empty())
            json["without_address"].push_back({{"field", field.name}, {"text", field.text}});
    json["parts"] = array(report.parts);
    json["links"] = array(report.links);
    json["verdict"] = report.verdict ? object(*report.verdict) : Json();
    return line(json);
}

std::string jsonOf(LinkReport const& link) {
    return line(object(link));
}

std::string jsonOf(AddressFacts const& facts) {
    return line({{"text", facts.text},
                 {"header", array(facts.header)},
                 {"envelope", facts.envelope ? object(*facts.envelope) : Json()}});
}

std::string jsonOf(UriFacts const& facts) {
    if (!facts.error.empty()) return line({{"text", facts.text}, {"error", facts.error}});
    Json json{{"text", facts.text}, {"error", nullptr}};
    json.update(object(facts.link));
    json.erase("part");
    json["user"] = orNull(facts.user);
    json["password"] = orNull(facts.password);
    json["path"] = orNull(facts.path);
    json["query"] = orNull(facts.query);
    json["fragment"] = orNull(facts.fragment);
    json["canonical"] = facts.canonical;
    json["addresses"] = facts.addresses;
    json["headers"] = Json::array();
    for (auto const& [name, value] : facts.headers)
        json["headers"].push_back({{"name", name}, {"value", value}});
    return line(json);
}

std::string jsonOf(HostFacts const& facts) {
    return line({{"text", facts.text},
                 {"valid", facts.valid},
                 {"name", orNull(facts.name)},
                 {"idn", orNull(facts.idn)},
                 {"host", orNull(facts.host)},
                 {"domain", orNull(facts.domain)},
                 {"ip_literal", facts.ipLiteral},
                 {"public_suffix", facts.publicSuffix}});
}

std::string jsonOf(IpFacts const& facts) {
    return line({{"text", facts.text},
                 {"error", orNull(facts.error)},
                 {"version", facts.version == 0 ? Json() : Json(facts.version)},
                 {"address", orNull(facts.address)},
                 {"prefix_length", facts.prefixLength < 0 ? Json() : Json(facts.prefixLength)},
                 {"reversed", orNull(facts.reversed)},
                 {"ipv4", orNull(facts.ipv4)},
                 {"kinds", facts.kinds}});
}

std::string jsonOf(DnsFacts const& facts) {
    ResolverMessage const& message = facts.message;
    Json error;
    if (message.isEmpty()) error = {{"code", message.resolve_error()}, {"text", message.errorAsString()}};
    return line({{"name", facts.name},
                 {"type", Resolver::recordTypeName(facts.type)},
                 {"class", Resolver::recordClassName(facts.recordClass)},
                 {"error", error},
                 {"authoritative", message.isAuthouritativeAnswer()},
                 {"truncated", facts.truncated},
                 {"queries", array(message.queries())},
                 {"answers", array(message.answers())},
                 {"name_servers", array(message.nameserverRecords())},
                 {"additional", array(message.additionalRecords())}});
}

}  // namespace QuillmarkTool
