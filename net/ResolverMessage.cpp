#include "include2/Resolver"

#include "foundation/AddressText.h"
#include "foundation/Caught.h"
#include "foundation/Fail.h"
#include "foundation/SpareBlocks.h"
#include "net/MessageSheet.h"
#include "net/RecordNumbers.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace Quillmark {

namespace {

using Query = ResolverMessage::Query;
using Record = ResolverMessage::Record;

// As many as there are sheets to go with them.
using SpareMessages = SpareBlocks<ResolverMessageImpl, SpareSheets::limit>;

constexpr Site here{"Resolver", 0};

constexpr std::size_t headerSize = 12;
constexpr unsigned char authoritative = 0x04;  // bits of the header's third byte
constexpr unsigned char truncated = 0x02;

// Not inline: knowing that a piece has at most 255 bytes, the compiler would copy it by an instruction
// that is slow to start.
[[gnu::noinline]] void append(std::string& text, std::string_view value) {
    text.append(value);
}

// Texts take longer to assign than to append to.
void assign(std::string& text, std::string_view value) {
    text.clear();
    append(text, value);
}

void assignV4(std::string& text, std::string_view bytes) {
    std::array<char, longestDottedQuad + 1> quad;
    std::size_t const length =
        writeDottedQuad(reinterpret_cast<std::uint8_t const*>(bytes.data()), quad.data());
    assign(text, {quad.data(), length});
}

void assignV6(std::string& text, std::string_view bytes) {
    std::array<char, INET6_ADDRSTRLEN> groups;
    // The system writes some addresses that begin with zeros with a dotted quad.
    if (bytes[0] == '\0' && bytes[1] == '\0')
        return assign(text, ::inet_ntop(AF_INET6, bytes.data(), groups.data(), groups.size()));
    std::size_t const length =
        writeGroups(reinterpret_cast<std::uint8_t const*>(bytes.data()), groups.data());
    assign(text, {groups.data(), length});
}

/// Parses the last entry of a list. One that fails is no part of the list.
template <class Entry, class Parse>
void parseLast(std::list<Entry>& entries, Parse parse) {
    try {
        parse(entries.back());
    } catch (...) {
        entries.pop_back();
        throw;
    }
}

// The layout of print(). Log readers and scripts go by it.

void appendText(std::string& out, std::string const& text) {
    out.append(text, 0, text.find('\0'));
}

void appendNumber(std::string& out, char const* title, std::uint32_t number) {
    out += title;
    out += std::to_string(number);
}

void appendText(std::string& out, char const* title, std::string const& text) {
    out += title;
    appendText(out, text);
}

void appendBytes(std::string& out, std::string const& bytes) {
    constexpr std::string_view digits{"0123456789ABCDEF"};
    char const* separator = "";
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        out += separator;
        out += digits[byte >> 4];
        out += digits[byte & 15];
        separator = " ";
    }
}

template <class Entry>
void appendStart(std::string& out, int number, Entry const& entry) {
    out += std::to_string(number);
    out += ": type=";
    out += Resolver::recordTypeName(entry.type);
    out += ", class=";
    out += Resolver::recordClassName(entry.recordClass);
    appendText(out, ", name=", entry.name);
}

void appendEntry(std::string& out, int number, Query const& query) {
    appendStart(out, number, query);
    out += '\n';
}

void appendEntry(std::string& out, int number, Record const& record) {
    appendStart(out, number, record);
    appendNumber(out, ", ttl=", record.ttl);
    switch (record.type) {
    case Resolver::TypeA:
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR:
    case Resolver::TypeTXT:
    case Resolver::TypeAAAA: appendText(out, ", value=", record.value); break;
    case Resolver::TypeSOA:
        appendText(out, ", mname=", record.mname);
        appendText(out, ", rname=", record.rname);
        appendNumber(out, ", serial=", record.serial);
        appendNumber(out, ", refresh=", record.refresh);
        appendNumber(out, ", retry=", record.retry);
        appendNumber(out, ", expire=", record.expire);
        appendNumber(out, ", minimum=", record.minimum);
        break;
    case Resolver::TypeMX:
        appendText(out, ", value=", record.value);
        appendNumber(out, ", mx-rank=", record.mxRank);
        break;
    case Resolver::TypeSPF:
    case Resolver::TypeANY:
    case Resolver::TypeUnknown:
        out += ", rdata=[";
        appendBytes(out, record.rdata);
        out += ']';
        break;
    }
    out += '\n';
}

template <class Entry>
void appendSection(std::string& out, char const* heading, std::list<Entry> const& entries) {
    if (entries.empty()) return;
    out += heading;
    int number = 0;
    for (Entry const& entry : entries) appendEntry(out, ++number, entry);
}

std::string asText(ResolverMessage const& message) {
    std::string out;
    if (message.isNull()) return "DNS query response is NULL\n";
    if (message.isEmpty())
        return "DNS query failed: error=" + std::to_string(message.resolve_error()) + "(" +
               message.errorAsString() + ")\n";
    appendSection(out, "Queries:\n", message.queries());
    appendSection(out, "Answers:\n", message.answers());
    appendSection(out, "Name Server Records:\n", message.nameserverRecords());
    appendSection(out, "Additional Records:\n", message.additionalRecords());
    return out;
}

}  // namespace

bool ResolverMessage::RecordCompare::operator()(Record const& a, Record const& b) const noexcept {
    return a.value != b.value && std::tie(a.mxRank, a.value) < std::tie(b.mxRank, b.value);
}

ResolverMessage::ResolverMessage(ResolverMessageImpl* impl, bool addReference) noexcept
    : m_impl(impl, addReference) {}

ResolverMessageImpl& ResolverMessage::impl() const {
    if (!m_impl) fail("ResolverMessage", NullHandle, here);
    m_impl->parse();
    return *m_impl;
}

std::list<Query> const& ResolverMessage::queries() const {
    return impl().queries();
}

std::list<Record> const& ResolverMessage::answers() const {
    return impl().answers();
}

std::list<Record> const& ResolverMessage::nameserverRecords() const {
    return impl().nameserverRecords();
}

std::list<Record> const& ResolverMessage::additionalRecords() const {
    return impl().additionalRecords();
}

ResolverMessage::MxRecords const& ResolverMessage::mxRecords() const {
    return impl().mxRecords();
}

HostName const& ResolverMessage::getCanonicalName() const {
    return impl().canonicalName();
}

HostName const& ResolverMessage::getHostname() const {
    return impl().hostname();
}

IPAddress ResolverMessage::getIPAddress() const {
    for (Record const& answer : answers())
        if (answer.type == Resolver::TypeA || answer.type == Resolver::TypeAAAA)
            return IPAddress(answer.value);
    return IPAddress();
}

bool ResolverMessage::isAuthouritativeAnswer() const {
    return impl().hasFlag(authoritative);
}

bool ResolverMessage::isTruncated() const {
    return impl().hasFlag(truncated);
}

bool ResolverMessage::isEmpty() const {
    return impl().length() == 0;
}

int ResolverMessage::resolve_error() const {
    return impl().resolve_error();
}

char const* ResolverMessage::errorAsString() const {
    return ::hstrerror(resolve_error());
}

void ResolverMessage::print(std::FILE* out) const {
    if (!out) return;
    std::string const text = asText(*this);
    std::fwrite(text.data(), 1, text.size(), out);
}

void* ResolverMessageImpl::operator new(std::size_t size) {
    return SpareMessages::take(size);
}

void ResolverMessageImpl::operator delete(void* memory, std::size_t size) noexcept {
    SpareMessages::giveBack(memory, size);
}

ResolverMessageImpl::ResolverMessageImpl() : m_sheet(SpareSheets::take()) {
    if (m_sheet)
        m_sheet->clear();
    else
        m_sheet = std::make_unique<MessageSheet>();
    m_bytes = m_sheet->bytes.data();
}

ResolverMessageImpl::~ResolverMessageImpl() {
    if (m_longestData <= MessageSheet::longestSpareText && !m_sheet->reader.hadLongNames()) {
        m_sheet->queries.giveBack(m_queries);
        m_sheet->records.giveBack(m_answers);
        m_sheet->records.giveBack(m_nameservers);
        m_sheet->records.giveBack(m_additional);
    }
    m_sheet->reader.release();
    SpareSheets::giveBack(std::move(m_sheet));
}

void ResolverMessageImpl::length(int n) {
    m_length = static_cast<uint_t>(std::clamp(n, 0, static_cast<int>(MessageSheet::size)));
    m_sheet->reader.length(m_length);
    parse();
}

void ResolverMessageImpl::parse() {
    if (m_parsed) return;
    m_parsed = true;
    if (m_length == 0) return;
    try {
        parseHeader();
        parseSections();
    } catch (Exception const& e) {
        logCaught("void Quillmark::ResolverMessageImpl::parse()", e);
    }
}

void ResolverMessageImpl::parseHeader() {
    if (m_length < headerSize) fail("ResolverMessage", Refused, here, "Truncated packet");
    m_header = m_bytes;
    for (unsigned int const at : {0U, 4U, 6U, 8U, 10U}) {
        std::uint16_t number = 0;
        std::memcpy(&number, m_bytes + at, sizeof number);
        number = __builtin_bswap16(number);
        std::memcpy(m_bytes + at, &number, sizeof number);
    }
    m_sheet->reader.skip(headerSize);
}

void ResolverMessageImpl::parseSections() {
    auto const count = [this](std::size_t at) {
        std::uint16_t number = 0;
        std::memcpy(&number, m_header + at, sizeof number);
        return number;
    };
    for (unsigned int left = count(4); left != 0; --left) {
        m_sheet->queries.take(m_queries);
        parseLast(m_queries, [this](Query& query) { queryParse(query); });
    }
    parseRecords(count(6), m_answers);
    parseRecords(count(8), m_nameservers);
    parseRecords(count(10), m_additional);
}

void ResolverMessageImpl::parseRecords(unsigned int count, std::list<Record>& records) {
    for (; count != 0 && !m_sheet->reader.atEnd(); --count) {
        m_sheet->records.take(records);
        parseLast(records, [this](Record& record) { resourceRecordParse(record); });
    }
}

void ResolverMessageImpl::parseName(std::string& name) {
    m_sheet->reader.name(name);
}

void ResolverMessageImpl::queryParse(Query& query) {
    WireReader& in = m_sheet->reader;
    in.name(query.name);
    // Kept for the daemons: a question may break off before its class.
    in.need(2, "Resolver::queryParse");
    query.dnsType = in.u16();
    query.type = recordTypeOf(query.dnsType);
    query.dnsClass = in.u16Anywhere();
    query.recordClass = recordClassOf(query.dnsClass);
}

void ResolverMessageImpl::resourceRecordParse(Record& record) {
    WireReader& in = m_sheet->reader;
    constexpr char const* operation = "Resolver::resourceRecordParse";
    in.name(record.name);
    in.need(10, operation);
    record.dnsType = in.u16();
    record.type = recordTypeOf(record.dnsType);
    record.dnsClass = in.u16();
    record.recordClass = recordClassOf(record.dnsClass);
    record.ttl = in.u32();
    unsigned int const dataLength = in.u16();
    in.need(dataLength, operation);
    assign(record.rdata, in.peek(dataLength));
    m_longestData = std::max(m_longestData, dataLength);

    // Kept for the daemons: the next record begins behind what was read of this one, whatever its data
    // length says.
    switch (record.type) {
    case Resolver::TypeA: parseAddress(record); break;
    case Resolver::TypeAAAA: parseAAAA(record); break;
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR: in.name(record.value); break;
    case Resolver::TypeMX: parseMX(record); break;
    case Resolver::TypeTXT: parseTxt(record, dataLength); break;
    case Resolver::TypeSOA: parseSOA(record, dataLength); break;
    case Resolver::TypeSPF:
    case Resolver::TypeANY:
    case Resolver::TypeUnknown: in.skip(dataLength); break;
    }
}

void ResolverMessageImpl::parseAddress(Record& record) {
    WireReader& in = m_sheet->reader;
    in.need(sizeof(in_addr), "Resolver::parseAddress");
    assignV4(record.value, in.bytes(sizeof(in_addr)));
}

void ResolverMessageImpl::parseAAAA(Record& record) {
    WireReader& in = m_sheet->reader;
    in.need(sizeof(in6_addr), "Resolver::parseAAAA");
    assignV6(record.value, in.bytes(sizeof(in6_addr)));
}

void ResolverMessageImpl::parseMX(Record& record) {
    WireReader& in = m_sheet->reader;
    // Kept for log readers: the title, and that an exchange of one byte may not be the last of a message.
    in.need(4, "Resolver::parseMx");
    record.mxRank = in.u16();
    in.name(record.value);
}

void ResolverMessageImpl::parseTxt(Record& record, unsigned int dataLength) {
    WireReader& in = m_sheet->reader;
    constexpr char const* operation = "Resolver::parseTxt";
    while (dataLength != 0) {
        in.need(1, operation);
        unsigned int const count = in.u8();
        --dataLength;
        if (count > dataLength) WireReader::failCorrupt(operation);
        in.need(count, operation);
        append(record.value, in.bytes(count));
        dataLength -= count;
    }
}

void ResolverMessageImpl::parseSOA(Record& record, unsigned int /*dataLength*/) {
    WireReader& in = m_sheet->reader;
    in.name(record.mname);
    in.name(record.rname);
    in.need(20, "Resolver::parseSOA");
    record.serial = in.u32();
    record.refresh = in.u32();
    record.retry = in.u32();
    record.expire = in.u32();
    record.minimum = in.u32();
}

ResolverMessage::MxRecords const& ResolverMessageImpl::mxRecords() {
    if (m_hasMxRecords) return m_mxRecords;
    std::unordered_set<std::string_view> exchanges;
    for (Record const& answer : m_answers)
        if (answer.type == Resolver::TypeMX && exchanges.insert(answer.value).second)
            m_mxRecords.insert(answer);
    m_hasMxRecords = true;
    return m_mxRecords;
}

HostName ResolverMessageImpl::firstHostName(Resolver::RecordType type) const {
    for (Record const& answer : m_answers) {
        if (answer.type != type) continue;
        if (HostName name(answer.value, true, false); !name.isNull()) return name;
    }
    return HostName();
}

HostName const& ResolverMessageImpl::canonicalName() {
    if (m_canonicalName.isNull()) m_canonicalName = firstHostName(Resolver::TypeCNAME);
    return m_canonicalName;
}

HostName const& ResolverMessageImpl::hostname() {
    if (m_hostname.isNull()) m_hostname = firstHostName(Resolver::TypePTR);
    return m_hostname;
}

}  // namespace Quillmark
