// DNS answers taken apart, from the bytes as they were received to the lists of records, with all strings
// made and destroyed again. The C library gets our lists to fill, ldns and c-ares fill their own; c-ares
// knows answers of one type and looks at nothing else.

#include <ares.h>
#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <ldns/ldns.h>
#include <netdb.h>
#include <resolv.h>

#include <array>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>

#include "bench/support/Bench.h"
#include "include2/IPAddress"
#include "include2/Resolver"

namespace {

using namespace Quillmark;
using Query = ResolverMessage::Query;
using Record = ResolverMessage::Record;

/// Writes a message as a server does: a name that came before is pointed at from its first known label.
class Writer {
public:
    explicit Writer(std::string const& name, unsigned int type) {
        for (unsigned int const word : {0x4711U, 0x8580U, 1U, 0U, 0U, 0U}) number(word, 2);
        put(name);
        number(type, 2);
        number(1, 2);
    }
    enum Section { Answer = 6, Authority = 8, Additional = 10 };

    template <class Data>
    void record(Section section, std::string const& owner, unsigned int type, Data data) {
        if (++m_bytes[section + 1] == 0) ++m_bytes[section];
        put(owner);
        number(type, 2);
        number(1, 2);
        number(3600, 4);
        number(0, 2);
        std::size_t const begin = m_bytes.size();
        data();
        auto const length = m_bytes.size() - begin;
        m_bytes[begin - 2] = static_cast<char>(length >> 8);
        m_bytes[begin - 1] = static_cast<char>(length);
    }
    void a(Section section, std::string const& owner, std::uint32_t address) {
        record(section, owner, ns_t_a, [&] { number(address, 4); });
    }
    void aaaa(Section section, std::string const& owner, std::uint32_t host) {
        record(section, owner, ns_t_aaaa, [&] {
            for (std::uint32_t const word : {0x20010db8U, 0x00010000U, 0U, host}) number(word, 4);
        });
    }
    void target(Section section, std::string const& owner, unsigned int type, std::string const& name) {
        record(section, owner, type, [&] { put(name); });
    }
    void mx(std::string const& owner, unsigned int rank, std::string const& exchange) {
        record(Answer, owner, ns_t_mx, [&] {
            number(rank, 2);
            put(exchange);
        });
    }
    void txt(std::string const& owner, std::string const& text) {
        record(Answer, owner, ns_t_txt, [&] {
            for (std::string_view rest = text; !rest.empty();
                 rest.remove_prefix(std::min<std::size_t>(255, rest.size()))) {
                number(static_cast<std::uint32_t>(std::min<std::size_t>(255, rest.size())), 1);
                m_bytes += rest.substr(0, 255);
            }
        });
    }
    std::string const& bytes() const { return m_bytes; }

private:
    void number(std::uint32_t value, int size) {
        while (size-- != 0) m_bytes += static_cast<char>(value >> (8 * size));
    }
    void put(std::string const& name) {
        for (std::string_view rest = name; !rest.empty();) {
            auto const [known, isNew] = m_places.emplace(rest, m_bytes.size());
            if (!isNew) return number(static_cast<std::uint32_t>(0xc000U | known->second), 2);
            auto const label = rest.substr(0, rest.find('.'));
            number(static_cast<std::uint32_t>(label.size()), 1);
            m_bytes += label;
            rest.remove_prefix(std::min(rest.size(), label.size() + 1));
        }
        m_bytes += '\0';
    }

    std::string m_bytes;
    std::map<std::string, std::size_t> m_places;
};

std::string numbered(std::string const& head, unsigned int number, std::string const& tail) {
    return head + std::to_string(number) + tail;
}

// A web host behind a content network: an alias, then the addresses.
std::string addressAnswer() {
    Writer message("www.quarterly-report.example.com", ns_t_a);
    message.target(Writer::Answer, "www.quarterly-report.example.com", ns_t_cname,
                   "edge17.content.example.net");
    for (unsigned int i = 1; i <= 4; ++i)
        message.a(Writer::Answer, "edge17.content.example.net", 0xc0000200 + i);
    return message.bytes();
}

// A domain's mail exchanges, alone or with everything that a server adds.
std::string exchangeAnswer(bool whole) {
    Writer message("mail-heavy.example.org", ns_t_mx);
    auto const exchange = [](unsigned int i) { return numbered("mx", i, ".filter.example.org"); };
    auto const server = [](unsigned int i) { return numbered("ns", i, ".dns.example.org"); };
    for (unsigned int i = 1; i <= 10; ++i) message.mx("mail-heavy.example.org", 10 * i, exchange(i));
    if (!whole) return message.bytes();
    for (unsigned int i = 1; i <= 4; ++i)
        message.target(Writer::Authority, "example.org", ns_t_ns, server(i));
    for (unsigned int i = 1; i <= 10; ++i) {
        message.a(Writer::Additional, exchange(i), 0xc6336400 + i);
        message.aaaa(Writer::Additional, exchange(i), i);
    }
    for (unsigned int i = 1; i <= 4; ++i) message.a(Writer::Additional, server(i), 0xcb007100 + i);
    return message.bytes();
}

// As many addresses as a message of 8192 bytes holds, each with the owner that its pointer gives.
std::string manyAddresses() {
    Writer message("a-very-large-pool.hosts.example.com", ns_t_a);
    for (unsigned int i = 0; i < 500; ++i)
        message.a(Writer::Answer, "a-very-large-pool.hosts.example.com", 0x0a000000 + 257 * i);
    return message.bytes();
}

// A sender's policy and keys.
std::string textAnswer() {
    Writer message("example.com", ns_t_txt);
    message.txt("example.com", "v=spf1 ip4:192.0.2.0/24 ip6:2001:db8::/32 include:_spf.example.net -all");
    message.txt("example.com", "site-verification=" + std::string(43, 'k'));
    message.txt("example.com", "v=DKIM1; k=rsa; p=" + std::string(392, 'M') + "IDAQAB");
    return message.bytes();
}

Handle<ResolverMessageImpl> ours(std::string const& bytes) {
    Handle<ResolverMessageImpl> message(new ResolverMessageImpl, false);
    std::memcpy(message->data(), bytes.data(), bytes.size());
    message->length(static_cast<int>(bytes.size()));
    return message;
}

struct Lists {
    std::list<Query> queries;
    std::list<Record> answers, nameservers, additional;
};

std::string_view textOf(char const* name) {
    return std::strcmp(name, ".") == 0 ? std::string_view() : std::string_view(name);
}

std::string addressText(int family, unsigned char const* bytes) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    return ::inet_ntop(family, bytes, text.data(), text.size());
}

std::string nameAt(ns_msg const& message, unsigned char const* at, int& length) {
    std::array<char, NS_MAXDNAME> name;
    length = ::ns_name_uncompress(ns_msg_base(message), ns_msg_end(message), at, name.data(), name.size());
    return length < 0 ? std::string() : std::string(textOf(name.data()));
}

void readRecord(ns_msg const& message, ns_rr const& rr, Record& record) {
    record.name = textOf(ns_rr_name(rr));
    record.dnsType = ns_rr_type(rr);
    record.type = Resolver::convertRecordType(record.dnsType);
    record.dnsClass = ns_rr_class(rr);
    record.recordClass = Resolver::convertRecordClass(record.dnsClass);
    record.ttl = ns_rr_ttl(rr);
    record.rdata.assign(reinterpret_cast<char const*>(ns_rr_rdata(rr)), ns_rr_rdlen(rr));
    unsigned char const* data = ns_rr_rdata(rr);
    int length = 0;
    switch (record.type) {
    case Resolver::TypeA: record.value = addressText(AF_INET, data); break;
    case Resolver::TypeAAAA: record.value = addressText(AF_INET6, data); break;
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR: record.value = nameAt(message, data, length); break;
    case Resolver::TypeMX:
        record.mxRank = ns_get16(data);
        record.value = nameAt(message, data + 2, length);
        break;
    case Resolver::TypeTXT:
        for (auto const* const end = data + ns_rr_rdlen(rr); data < end; data += 1 + *data)
            record.value.append(reinterpret_cast<char const*>(data) + 1, *data);
        break;
    case Resolver::TypeSOA:
        record.mname = nameAt(message, data, length);
        data += length;
        record.rname = nameAt(message, data, length);
        data += length;
        record.serial = static_cast<std::uint32_t>(ns_get32(data));
        record.refresh = static_cast<std::uint32_t>(ns_get32(data + 4));
        record.retry = static_cast<std::uint32_t>(ns_get32(data + 8));
        record.expire = static_cast<std::uint32_t>(ns_get32(data + 12));
        record.minimum = static_cast<std::uint32_t>(ns_get32(data + 16));
        break;
    default: break;
    }
}

void readSection(ns_msg& message, ns_sect section, std::list<Record>& records) {
    ns_rr rr;
    for (int i = 0; i < ns_msg_count(message, section); ++i) {
        if (::ns_parserr(&message, section, i, &rr) != 0) return;
        readRecord(message, rr, records.emplace_back());
    }
}

Lists cLibrary(std::string const& bytes) {
    Lists lists;
    ns_msg message;
    if (::ns_initparse(reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<int>(bytes.size()),
                       &message) != 0)
        return lists;
    ns_rr rr;
    for (int i = 0; i < ns_msg_count(message, ns_s_qd); ++i) {
        if (::ns_parserr(&message, ns_s_qd, i, &rr) != 0) return lists;
        Query& query = lists.queries.emplace_back();
        query.name = textOf(ns_rr_name(rr));
        query.dnsType = ns_rr_type(rr);
        query.type = Resolver::convertRecordType(query.dnsType);
        query.dnsClass = ns_rr_class(rr);
        query.recordClass = Resolver::convertRecordClass(query.dnsClass);
    }
    readSection(message, ns_s_an, lists.answers);
    readSection(message, ns_s_ns, lists.nameservers);
    readSection(message, ns_s_ar, lists.additional);
    return lists;
}

std::size_t ldns(std::string const& bytes) {
    ldns_pkt* packet = nullptr;
    if (::ldns_wire2pkt(&packet, reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size()) !=
        LDNS_STATUS_OK)
        return 0;
    std::size_t const count = ::ldns_rr_list_rr_count(ldns_pkt_answer(packet)) +
                              ::ldns_rr_list_rr_count(ldns_pkt_authority(packet)) +
                              ::ldns_rr_list_rr_count(ldns_pkt_additional(packet));
    ::ldns_pkt_free(packet);
    return count;
}

using Cares = std::size_t (*)(unsigned char const* bytes, int size);

std::size_t caresAddresses(unsigned char const* bytes, int size) {
    hostent* host = nullptr;
    std::size_t count = 0;
    if (::ares_parse_a_reply(bytes, size, &host, nullptr, nullptr) != ARES_SUCCESS) return 0;
    while (host->h_addr_list[count] != nullptr) ++count;
    ::ares_free_hostent(host);
    return count;
}

template <class Reply>
std::size_t caresList(int (*parse)(unsigned char const*, int, Reply**), unsigned char const* bytes,
                      int size) {
    Reply* replies = nullptr;
    std::size_t count = 0;
    if (parse(bytes, size, &replies) != ARES_SUCCESS) return 0;
    for (Reply const* reply = replies; reply != nullptr; reply = reply->next) ++count;
    ::ares_free_data(replies);
    return count;
}

std::size_t caresExchanges(unsigned char const* bytes, int size) {
    return caresList(::ares_parse_mx_reply, bytes, size);
}

std::size_t caresTexts(unsigned char const* bytes, int size) {
    return caresList(::ares_parse_txt_reply, bytes, size);
}

bool same(Record const& a, Record const& b) {
    return a.type == b.type && a.recordClass == b.recordClass && a.name == b.name && a.ttl == b.ttl &&
           a.value == b.value && a.mxRank == b.mxRank && a.dnsType == b.dnsType && a.dnsClass == b.dnsClass &&
           a.rdata == b.rdata;
}

template <class Entry, class Same>
bool same(std::list<Entry> const& a, std::list<Entry> const& b, Same equal) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), equal);
}

/// @param cares    null where c-ares would leave out most of it
/// @param answers  how many records c-ares is to find
void compare(std::string const& what, std::string const& bytes, Cares cares, std::size_t answers) {
    std::string const path = "DNS message, " + what;
    auto const mine = ours(bytes);
    auto const theirs = cLibrary(bytes);
    constexpr bool (*sameRecord)(Record const&, Record const&) = same;
    bench::agree(bytes.size() <= 8192 && !mine->answers().empty(), path);
    bench::agree(same(mine->queries(), theirs.queries,
                      [](Query const& a, Query const& b) {
                          return a.name == b.name && a.type == b.type && a.dnsClass == b.dnsClass;
                      }),
                 path + ": queries");
    bench::agree(same(mine->answers(), theirs.answers, sameRecord), path + ": answers");
    bench::agree(same(mine->nameserverRecords(), theirs.nameservers, sameRecord), path + ": authority");
    bench::agree(same(mine->additionalRecords(), theirs.additional, sameRecord), path + ": additional");
    bench::agree(ldns(bytes) == mine->answers().size() + mine->nameserverRecords().size() +
                                    mine->additionalRecords().size(),
                 path + ": ldns");
    auto const caresOf = [bytes, cares] {
        return cares(reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<int>(bytes.size()));
    };
    bench::agree(!cares || caresOf() == answers, path + ": c-ares");

    auto const size = static_cast<std::int64_t>(bytes.size());
    bench::contestant(
        path, "quillmark", [bytes] { return ours(bytes); }, size);
    bench::contestant(
        path, "ns_parserr", [bytes] { return cLibrary(bytes); }, size);
    bench::contestant(
        path, "ldns", [bytes] { return ldns(bytes); }, size);
    if (cares) bench::contestant(path, "c-ares", caresOf, size);
}

}  // namespace

int main(int argc, char** argv) {
    compare("an alias and 4 addresses", addressAnswer(), caresAddresses, 4);
    compare("10 exchanges", exchangeAnswer(false), caresExchanges, 10);
    compare("10 exchanges and 28 more records", exchangeAnswer(true), nullptr, 0);
    compare("500 addresses", manyAddresses(), caresAddresses, 500);
    compare("3 texts", textAnswer(), caresTexts, 4);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
