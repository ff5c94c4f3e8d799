// DNS for C callers.

#include "include2/quillmark.h"

#include "capi/Guard.h"
#include "foundation/Caught.h"
#include "include2/HostName"
#include "include2/IPAddress"
#include "include2/Resolver"
#include "net/ResolverState.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>

namespace {

using namespace Quillmark;

static_assert(sizeof(quill_dns_question) == 96 && offsetof(quill_dns_question, name) == 8 &&
              offsetof(quill_dns_question, reserved2) == 16);
static_assert(sizeof(quill_dns_record) == 96 && offsetof(quill_dns_record, name) == 8 &&
              offsetof(quill_dns_record, ttl) == 16 && offsetof(quill_dns_record, value) == 24 &&
              offsetof(quill_dns_record, mx_rank) == 32 && offsetof(quill_dns_record, mname) == 40 &&
              offsetof(quill_dns_record, rname) == 48 && offsetof(quill_dns_record, serial) == 56 &&
              offsetof(quill_dns_record, minimum) == 72 && offsetof(quill_dns_record, rdata) == 80 &&
              offsetof(quill_dns_record, rdata_length) == 88);

ResolverMessage const* messageOf(quill_dns_query* query) {
    return static_cast<ResolverMessage const*>(query);
}

bool isAnswer(quill_dns_query* query) {
    return query && !messageOf(query)->isEmpty();
}

template <class Value>
void store(Value* where, Value value) {
    if (where) *where = value;
}

void fill(quill_dns_question& question, ResolverMessage::Query const& query) {
    question.type = query.dnsType;
    question.record_class = query.dnsClass;
    question.name = query.name.c_str();
}

void fill(quill_dns_record& element, ResolverMessage::Record const& record) {
    element.type = record.dnsType;
    element.record_class = record.dnsClass;
    element.name = record.name.c_str();
    element.ttl = record.ttl;
    element.value = record.value.c_str();
    element.mx_rank = record.mxRank;
    element.mname = record.mname.c_str();
    element.rname = record.rname.c_str();
    element.serial = record.serial;
    element.refresh = record.refresh;
    element.retry = record.retry;
    element.expire = record.expire;
    element.minimum = record.minimum;
    element.rdata = reinterpret_cast<unsigned char const*>(record.rdata.data());
    element.rdata_length = record.rdata.size();
}

template <class Element, class Entry>
int section(quill_dns_query* query, Element** array,
            std::list<Entry> const& (ResolverMessage::*entries)() const) {
    return guarded(-1, [&] {
        if (!isAnswer(query)) return -1;
        auto const& list = (messageOf(query)->*entries)();
        if (!array) return static_cast<int>(list.size());
        *array = list.empty() ? nullptr : static_cast<Element*>(std::calloc(list.size(), sizeof(Element)));
        if (Element* element = *array)
            for (Entry const& entry : list) fill(*element++, entry);
        return static_cast<int>(list.size());
    });
}

/// Terminated, cut to the room, and the rest of the room zeros.
void copyText(std::string const& text, char* buffer, int size) {
    auto const room = static_cast<std::size_t>(size) - 1;
    std::strncpy(buffer, text.c_str(), room);
    buffer[room] = '\0';
}

bool hasRoom(char const* buffer, int size) {
    return buffer && size >= 1;
}

void chooseServer(Resolver const& resolver, char const* server, int port) {
    if (!server || *server == '\0' || port < 1) return;
    IPAddress const address = resolver.getIPAddress(HostName(server, true, false));
    if (address.isNull())
        logCaught("quill_dns_query_create", server);
    else
        resolver.server(address, static_cast<unsigned int>(port));
}

}  // namespace

quill_dns_query* quill_dns_query_create(int type, int record_class, char const* name, char const* server,
                                        int port) {
    return guarded(static_cast<quill_dns_query*>(nullptr), [&]() -> quill_dns_query* {
        if (!name) return nullptr;
        Resolver const& resolver = *Resolver::instance();
        chooseServer(resolver, server, port);
        return new ResolverMessage(resolver.submit(static_cast<unsigned short>(type),
                                                   static_cast<unsigned short>(record_class), name));
    });
}

void quill_dns_query_release(quill_dns_query* query) {
    delete static_cast<ResolverMessage*>(query);
}

int quill_dns_query_get_queries(quill_dns_query* query, quill_dns_question** questions) {
    return section(query, questions, &ResolverMessage::queries);
}

int quill_dns_query_get_answers(quill_dns_query* query, quill_dns_record** records) {
    return section(query, records, &ResolverMessage::answers);
}

int quill_dns_query_get_nameserver_records(quill_dns_query* query, quill_dns_record** records) {
    return section(query, records, &ResolverMessage::nameserverRecords);
}

int quill_dns_query_get_additional_records(quill_dns_query* query, quill_dns_record** records) {
    return section(query, records, &ResolverMessage::additionalRecords);
}

int quill_dns_query_get_flags(quill_dns_query* query, int* authoritative, int* truncated) {
    return guarded(-1, [&] {
        if (!isAnswer(query)) return -1;
        store(authoritative, messageOf(query)->isAuthouritativeAnswer() ? 1 : 0);
        store(truncated, messageOf(query)->isTruncated() ? 1 : 0);
        return 0;
    });
}

int quill_dns_query_get_error(quill_dns_query* query, int* error, char const** text) {
    return guarded(-1, [&] {
        if (!query || isAnswer(query)) return -1;
        store(error, messageOf(query)->resolve_error());
        store(text, messageOf(query)->errorAsString());
        return 0;
    });
}

void quill_dns_query_print(quill_dns_query* query, FILE* out) {
    guarded(0, [&] {
        (query ? *messageOf(query) : ResolverMessage()).print(out);
        return 0;
    });
}

char const* quill_dns_class_name(int record_class) {
    return Resolver::recordClassName(record_class);
}

char const* quill_dns_type_name(int type) {
    return Resolver::recordTypeName(type);
}

int quill_dns_get_serverinfo(char* buffer, int size, int* port) {
    return guarded(0, [&] {
        // What a thread without a resolver is told.
        if (hasRoom(buffer, size)) copyText("", buffer, size);
        store(port, 0);

        Resolver::instance();
        CurrentServer const server = currentServer();
        if (hasRoom(buffer, size)) copyText(server.address.asString(true), buffer, size);
        store(port, static_cast<int>(server.port));
        return 0;
    });
}

int quill_dns_validate_hostname(char const* name) {
    return guarded(-1, [&] {
        if (!name || *name == '\0') return -1;
        HostName const host(name, true, false);
        if (host.isNull()) return -1;
        return host.isIPAddress() ? 0 : 1;
    });
}

int quill_dns_get_ip_querystring(char const* address, char* buffer, int size) {
    return guarded(-1, [&] {
        if (!address || !hasRoom(buffer, size)) return -1;
        IPAddress const parsed{std::string(address)};
        copyText(parsed.asStringReversed(true) + (parsed.isV6() ? ".ip6.arpa" : ".in-addr.arpa"), buffer,
                 size);
        return 0;
    });
}
