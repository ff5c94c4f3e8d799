// A DNS response: parsed, printed, handed out as C arrays, put together again.

#include <arpa/inet.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "fuzz/support/Fuzz.h"
#include "include2/quillmark.h"
#include "include2/Resolver"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

using Query = ResolverMessage::Query;
using Record = ResolverMessage::Record;

constexpr std::size_t largest = 8192;

ResolverMessage parsed(std::string const& bytes) {
    Handle<ResolverMessageImpl> const message(new ResolverMessageImpl, false);
    std::memcpy(message->data(), bytes.data(), bytes.size());
    message->length(static_cast<int>(bytes.size()));
    return {message.get(), true};
}

std::string printed(ResolverMessage const& message) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = ::open_memstream(&text, &size);
    message.print(stream);
    std::fclose(stream);
    std::string const result(text, size);
    std::free(text);
    return result;
}

// A message as plain as can be: no name points to another. What has no such form sets `possible` to false.
class Writer {
public:
    std::string bytes;
    bool possible = true;

    void number(std::uint32_t value, int size) {
        while (size-- > 0) bytes += static_cast<char>(value >> 8 * size & 255);
    }
    void name(std::string_view dotted) {
        while (!dotted.empty()) {
            std::string_view const label = dotted.substr(0, dotted.find('.'));
            possible = possible && !label.empty() && label.size() < 64 && dotted.size() != label.size() + 1;
            number(static_cast<std::uint32_t>(label.size()), 1);
            bytes += label;
            dotted.remove_prefix(std::min(dotted.size(), label.size() + 1));
        }
        number(0, 1);
    }
    void query(Query const& query) {
        name(query.name);
        number(query.dnsType, 2);
        number(query.dnsClass, 2);
    }
    void record(Record const& record) {
        name(record.name);
        number(record.dnsType, 2);
        number(record.dnsClass, 2);
        number(record.ttl, 4);
        Writer data;
        data.content(record);
        possible = possible && data.possible && data.bytes.size() < 65536;
        number(static_cast<std::uint32_t>(data.bytes.size()), 2);
        bytes += data.bytes;
    }

private:
    void content(Record const& record) {
        switch (record.type) {
        case Resolver::TypeA: return address(AF_INET, 4, record.value);
        case Resolver::TypeAAAA: return address(AF_INET6, 16, record.value);
        case Resolver::TypeNS:
        case Resolver::TypeCNAME:
        case Resolver::TypePTR: return name(record.value);
        case Resolver::TypeMX:
            possible = !record.value.empty();  // the root is too short to end a message
            number(record.mxRank, 2);
            return name(record.value);
        case Resolver::TypeTXT:
            for (std::size_t at = 0; at < record.value.size(); at += 255) {
                std::string const piece = record.value.substr(at, 255);
                number(static_cast<std::uint32_t>(piece.size()), 1);
                bytes += piece;
            }
            return;
        case Resolver::TypeSOA:
            name(record.mname);
            name(record.rname);
            for (std::uint32_t const value :
                 {record.serial, record.refresh, record.retry, record.expire, record.minimum})
                number(value, 4);
            return;
        case Resolver::TypeSPF:
        case Resolver::TypeANY:
        case Resolver::TypeUnknown: bytes += record.rdata; return;
        }
    }
    void address(int family, std::size_t size, std::string const& text) {
        std::array<char, 16> raw{};
        claim(::inet_pton(family, text.c_str(), raw.data()) == 1,
              "the value of an address record is an address");
        bytes.append(raw.data(), size);
    }
};

/// The message from what was parsed; nothing when it has no plain form that fits.
std::string rewritten(ResolverMessage const& message) {
    Writer writer;
    writer.number(0x12348180, 4);
    for (std::size_t const count : {message.queries().size(), message.answers().size(),
                                    message.nameserverRecords().size(), message.additionalRecords().size()})
        writer.number(static_cast<std::uint32_t>(count), 2);
    for (Query const& query : message.queries()) writer.query(query);
    for (auto const* section :
         {&message.answers(), &message.nameserverRecords(), &message.additionalRecords()})
        for (Record const& record : *section) writer.record(record);
    return writer.possible && writer.bytes.size() <= largest ? writer.bytes : "";
}

void sameRecords(std::list<Record> const& records, quill_dns_record const* array, int count) {
    claimSame("the records of a C array", static_cast<std::size_t>(count), records.size());
    for (Record const& record : records) {
        claimSame("its name", std::string(array->name), std::string(record.name.c_str()));
        claimSame("its value", std::string(array->value), std::string(record.value.c_str()));
        claimSame("its type", array->type, record.dnsType);
        claimSame("its class", array->record_class, record.dnsClass);
        claimSame("its time to live", array->ttl, record.ttl);
        claimSame("its rank", array->mx_rank, record.mxRank);
        claimSame("its serial number", array->serial, record.serial);
        claimSame("its data", std::string(reinterpret_cast<char const*>(array->rdata), array->rdata_length),
                  record.rdata);
        ++array;
    }
}

void checkInC(ResolverMessage const& message) {
    quill_dns_query* const query = new ResolverMessage(message);
    quill_dns_question* questions = nullptr;
    int const count = ::quill_dns_query_get_queries(query, &questions);
    if (message.isEmpty()) {
        claimSame("the questions of a failure", count, -1);
    } else {
        claimSame("the questions of a C array", static_cast<std::size_t>(count), message.queries().size());
        auto const* question = questions;
        for (Query const& asked : message.queries())
            claimSame("its name", std::string(question++->name), std::string(asked.name.c_str()));
        quill_dns_record* records = nullptr;
        int const answers = ::quill_dns_query_get_answers(query, &records);
        sameRecords(message.answers(), records, answers);
        std::free(records);
    }
    std::free(questions);
    ::quill_dns_query_release(query);
}

void checkSections(ResolverMessage const& message) {
    std::set<std::string> exchanges;
    for (Record const& answer : message.answers())
        if (answer.type == Resolver::TypeMX) exchanges.insert(answer.value);
    claimSame("each exchange is there once", message.mxRecords().size(), exchanges.size());
    std::uint32_t rank = 0;
    for (Record const& best : message.mxRecords()) {
        claim(best.mxRank >= rank, "the best exchange comes first");
        rank = best.mxRank;
    }
    IPAddress const address = message.getIPAddress();
    for (Record const& answer : message.answers())
        if (answer.type == Resolver::TypeA || answer.type == Resolver::TypeAAAA) {
            claim(address == IPAddress(answer.value), "the address is the first answer's");
            break;
        }
    for (HostName const& name : {message.getCanonicalName(), message.getHostname()})
        claim(name.isNull() || name.isIPAddress() || !name.domain().empty(), "a name has a domain");
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const bytes = Input(data, size).bytes(largest);
    ResolverMessage const message = parsed(bytes);
    claimSame("only no bytes are an empty message", message.isEmpty(), bytes.empty());
    std::string const text = printed(message);
    checkSections(message);
    checkInC(message);
    if (message.isEmpty()) return 0;
    std::string const plain = rewritten(message);
    if (!plain.empty()) claimSame("the message put together again", printed(parsed(plain)), text);
    return 0;
}
